// A command, a formula and the text of a program option: what is accepted prints as a text that is accepted again and
// prints the same, and what fits the variables can be written into the memory areas.
#include "command/CommandParser.h"
#include "command/Formula.h"
#include "command/ParsedBlock.h"
#include "command/Resolver.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

const command::VariableList& Variables() {
    using command::Level;
    static const command::VariableList variables{{{"y", 0, Level::kScale, ""},
                                                  {"x", 0, Level::kScale, ""},
                                                  {"n", 0, Level::kScale, ""},
                                                  {"a", 1, Level::kNominal, ""},
                                                  {"b", 0, Level::kNominal, ""},
                                                  {"c", 12, Level::kNominal, ""},
                                                  {"g", 0, Level::kScale, ""},
                                                  {"t", 0, Level::kOrdinal, ""},
                                                  {"odd name", 0, Level::kScale, ""}},
                                                 "test.csv"};
    return variables;
}

void Require(bool holds, const char* what, const std::string& text) {
    if (holds) return;
    std::fprintf(stderr, "%s:\n%s\n", what, text.c_str());
    std::abort();
}

void Write(const command::CommandTree& tree) {
    command::CommandError error;
    const std::string printed = command::PrintCommand(tree);
    const auto again = command::ParseCommand(printed, error);
    Require(again.has_value(), "a printed command is refused", printed + "\n" + error.Message());
    Require(command::PrintCommand(*again) == printed, "a printed command prints otherwise", printed);
    const auto specification = command::Resolve(tree, Variables(), error);
    if (!specification) {
        Require(!error.Message().empty(), "refused without a message", printed);
        return;
    }
    Require(!command::WriteBlock(*specification).CellArray().empty(), "no cells", printed);
    run::RunValue value;
    command::FillRunValue(*specification, value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    command::CommandError error;
    if (const auto tree = command::ParseCommand(text, error)) Write(*tree);
    if (const auto formula = command::Formula::Parse(text, error)) {
        command::CommandTree tree;
        formula->NominalNames();
        if (formula->Expand(Variables(), tree, error)) Write(tree);
    }
    command::CommandTree tree;
    command::SetFromOption(tree, "EMMEANS", "TABLES", text, "--emmeans", error);
    return 0;
}
