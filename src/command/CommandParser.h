#pragma once

#include "command/CommandTree.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace command {

/// Reads a HIERFIT command; checks subcommands, parameters, words and the shapes of their values, not the variables.
/// Nothing, with the error's text and place, when the text isn't a command.
std::optional<CommandTree> ParseCommand(std::string_view text, CommandError& error);

/// Reads items as they may stand behind a parameter, as a program option gives them: "a*b c", "measure, month | id".
std::optional<std::vector<Item>> ParseItems(std::string_view text, const char* source, CommandError& error);

/// Sets a parameter of the tree from the text of a program option, checked against the keyword table.
bool SetFromOption(CommandTree& tree, std::string_view subcommand, std::string_view parameter, std::string_view text,
                   const char* option, CommandError& error);

}  // namespace command
