#pragma once

#include "app/Options.h"
#include "command/CommandTree.h"
#include "command/Formula.h"
#include "command/Specification.h"
#include "host/data/DataFile.h"

#include <memory>
#include <optional>

namespace app {

/// The command of a run, from a formula or a file, with the program's options put over it.
class CommandSource {
public:
    /// Reads the formula or the command file and the options. Throws Failure.
    explicit CommandSource(const Options& options);

    /// What the command says of the data.
    command::DataWishes Data() const { return command::ReadDataWishes(fTree); }

    /// Expands the formula, if there is one, and resolves the command against the data. Throws Failure.
    command::Specification Resolve(const host::Table& table);

    const command::CommandTree& Tree() const { return fTree; }

private:
    void ReadFile(const std::string& file);
    [[noreturn]] void Refuse(const command::CommandError& error) const;

    std::string fFile;  ///< the command file's name for messages
    std::optional<command::Formula> fFormula;
    command::CommandTree fTree;
};

/// Puts an option over a command. Throws Failure.
void ApplyOption(command::CommandTree& tree, const CommandOption& option, const std::string& text);

/// What the options say of the data, for tasks without a command. Throws Failure.
command::DataWishes WishesOf(const Options& options);

/// How data are to be read for a command.
host::DataOptions DataOptionsOf(const command::DataWishes& wishes);

}  // namespace app
