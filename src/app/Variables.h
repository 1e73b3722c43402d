#pragma once

#include "command/VariableList.h"
#include "host/data/Table.h"

namespace app {

/// A table's variables as a command is resolved against them.
command::VariableList VariablesOf(const host::Table& table);

}  // namespace app
