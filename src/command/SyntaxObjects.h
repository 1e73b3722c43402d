#pragma once

#include "command/CommandTree.h"
#include "contracts/Parser.h"

#include <memory>

namespace command {

/// A command as the procedure's own check reads it. The tree must outlive the object.
std::unique_ptr<CommandSpec> MakeCommandSpec(const CommandTree& tree);
std::unique_ptr<CommandDescriptor> MakeCommandDescriptor();

}  // namespace command
