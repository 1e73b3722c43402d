#pragma once

#include "app/Options.h"

namespace app {

/// Tells what a message means and what to do about it, or lists all messages that have a code. Throws Failure for a
/// code that there is not.
int Explain(const Options& options);

}  // namespace app
