#pragma once

#include "command/Specification.h"

#include <string>

namespace app {

/// Tests before anything is computed that a run's files can be written and are not one another's or the data's: output
/// is where the results go (empty: the standard output). Throws Failure.
void CheckFiles(const command::OutputFiles& files, const std::string& output, const std::string& data);

}  // namespace app
