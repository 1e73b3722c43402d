#pragma once

#include "app/Options.h"

namespace app {

/// Tells what a message, named by its code or by its own text, means and what to do about it, or lists all messages.
/// Throws Failure for one that there is not.
int Explain(const Options& options);

}  // namespace app
