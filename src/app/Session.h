#pragma once

#include "app/Options.h"

namespace app {

/// Does what the options ask for and gives the exit code. Throws Failure.
int RunTask(const Options& options);

}  // namespace app
