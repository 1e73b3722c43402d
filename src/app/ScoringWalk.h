#pragma once

#include "command/ParsedBlock.h"
#include "contracts/HostData.h"
#include "run/RunValue.h"

namespace app {

/// Walks the data once more by a specification and factory of its own and writes the saved variables into the data
/// source, by the models that the run has left behind: nothing is fitted again. What this walk says, notes and would
/// write is dropped. run is in force, and its run has ended without a fatal error.
void ScoreData(command::ParsedBlock& block, run::RunValue& run, ProcedureDataSource& source);

}  // namespace app
