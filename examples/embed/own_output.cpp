// Runs one command in libhierfit with an output of our own (LineOutput.cpp): the library asks whoever loads it for a
// host, and finds ours.

#include "command/CommandParser.h"
#include "command/ParsedBlock.h"
#include "command/Resolver.h"
#include "contracts/Host.h"
#include "host/data/DataSource.h"
#include "host/data/TableBuilder.h"
#include "procedure/MixDriver.h"
#include "run/RunValue.h"

#include <cstdio>

namespace {

// Two treatments in six blocks; the middle value of each pair is the block's.
host::Outcome<std::shared_ptr<host::Table>> Trial() {
    const std::vector<double> yields{4.1, 5.3, 3.8, 5.2, 4.6, 5.5, 5.0, 6.3, 4.4, 5.1, 3.9, 5.4};
    std::vector<std::string> blocks, treatments;
    for (std::size_t i = 0; i < yields.size(); ++i) {
        blocks.push_back("block " + std::to_string(i / 2 + 1));
        treatments.push_back(i % 2 == 0 ? "control" : "manure");
    }
    return host::TableBuilder().Numbers("yield", yields).Texts("block", blocks).Texts("treatment", treatments).Finish();
}

constexpr const char* kCommand =
    "HIERFIT /FIELDS TARGET=yield /FIXED EFFECTS=treatment /RANDOM SUBJECTS=block EFFECTS=INTERCEPT /PRINT SOLUTION";

command::VariableList VariablesOf(const host::Table& table) {
    std::vector<command::VariableInfo> variables;
    for (int i = 0; i < table.VariableCount(); ++i) {
        const host::Variable& variable = table.GetVariable(i);
        variables.push_back({variable.fName, variable.fWidth, static_cast<command::Level>(variable.fLevel), {}});
    }
    return {std::move(variables), "the trial"};
}

}  // namespace

int main() {
    const auto table = Trial();
    command::CommandError error;
    const auto tree = command::ParseCommand(kCommand, error);
    const auto specification = tree ? command::Resolve(*tree, VariablesOf(**table), error) : std::nullopt;
    if (!specification) return std::fprintf(stderr, "own_output: %s\n", error.Message().c_str()), 2;

    run::RunValue value;
    command::FillRunValue(*specification, value);
    const run::Scope scope(value);
    command::ParsedBlock block = command::WriteBlock(*specification);
    ProcedureDataSource source(host::MakeDataSource(*table));
    BpProcedure procedure(nullptr);
    EXPOSEMIX(block.Slots(), block.Texts());
    MixDriver(block.Cells(), procedure, source);
    return value.fvResults.empty() || !value.fvResults.front().fpModel ? 1 : 0;
}
