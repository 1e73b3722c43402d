#pragma once

#include "command/CommandTree.h"
#include "command/Keywords.h"

namespace command {

/// Tests that the items fit what the parameter takes, and puts its keywords in capitals. Throws CommandError with what
/// was expected.
void CheckShape(const std::string& subcommand, const ParameterWord& word, Parameter& parameter);

}  // namespace command
