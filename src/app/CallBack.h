#pragma once

#include "command/CommandTree.h"
#include "contracts/HostData.h"
#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

#include <string>

namespace app {

/// The second half of a run: for each split that left documents, hands them to the system's call-back object, which
/// writes the model viewer's output under the split's heading. The run and the document are in force.
void CallBack(run::RunValue& run, host::OutputDocument& document, ProcedureDataSource& source);

/// The procedure's own check of a command, before anything runs: its message, or nothing for a command that holds.
std::string RefusedSyntax(const command::CommandTree& tree);

}  // namespace app
