#pragma once

#include "command/CommandParser.h"
#include "command/Formula.h"
#include "command/ParsedBlock.h"

/// Commands and data for the tests: y, x, z and day are numbers, a, b, c nominal numbers or texts, g and h subjects.
namespace commandtest {

inline command::VariableList Variables() {
    using command::Level;
    return {{{"y", 0, Level::kScale, ""},
             {"x", 0, Level::kScale, ""},
             {"z", 0, Level::kScale, ""},
             {"a", 1, Level::kNominal, ""},
             {"b", 0, Level::kNominal, ""},
             {"c", 12, Level::kNominal, ""},
             {"g", 0, Level::kScale, ""},
             {"h", 3, Level::kNominal, ""},
             {"Day", 0, Level::kScale, ""},
             {"odd name", 0, Level::kScale, ""},
             {"n", 0, Level::kScale, ""}},
            "test.csv"};
}

/// The message of the first error, "" for a good command.
inline std::string Check(const std::string& text) {
    command::CommandError error;
    const auto tree = command::ParseCommand(text, error);
    if (!tree || !command::Resolve(*tree, Variables(), error)) return error.Message();
    return "";
}

inline command::CommandTree Tree(const std::string& text) {
    command::CommandError error;
    const auto tree = command::ParseCommand(text, error);
    EXPECT_TRUE(tree) << error.Message();
    return tree.value_or(command::CommandTree{});
}

inline command::Specification Specify(const command::CommandTree& tree) {
    command::CommandError error;
    const auto specification = command::Resolve(tree, Variables(), error);
    EXPECT_TRUE(specification) << error.Message();
    return specification.value_or(command::Specification{});
}

/// The command that a formula becomes, on one line behind HIERFIT; or "error: " and the message.
inline std::string Expand(const std::string& text) {
    command::CommandError error;
    const auto formula = command::Formula::Parse(text, error);
    command::CommandTree tree;
    if (!formula || !formula->Expand(Variables(), tree, error)) return "error: " + error.Message();
    std::string shown;
    for (const auto& subcommand : tree.fvSubcommands) {
        if (subcommand.fName == "FIELDS") continue;
        command::CommandTree one;
        one.fvSubcommands.push_back(subcommand);
        const std::string printed = command::PrintCommand(one);
        shown += printed.substr(10, printed.size() - 11);
    }
    return shown;
}

}  // namespace commandtest
