#pragma once

#include "command/Specification.h"
#include "host/data/Table.h"

#include <memory>

namespace app {

/// The data that a command names, read with a line of progress unless quiet. Throws Failure.
std::shared_ptr<host::Table> OpenTable(const command::DataWishes& wishes, bool quiet);

}  // namespace app
