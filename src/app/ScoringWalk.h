#pragma once

#include "command/ParsedBlock.h"
#include "contracts/HostData.h"
#include "run/RunValue.h"

namespace app {

/// Walks the data once more by a specification and factory of its own and writes the saved variables into the data
/// source, by the models that the run has left behind: nothing is fitted again. What this walk says, notes and would
/// write is dropped. run is in force, and its run has ended without a fatal error. False when a model that the run has
/// left behind could not be used, for lack of memory or of room for the sorted records, or when the user stopped it.
bool ScoreData(command::ParsedBlock& block, run::RunValue& run, ProcedureDataSource& source);

}  // namespace app
