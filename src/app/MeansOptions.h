#pragma once

#include "app/Options.h"
#include "command/CommandTree.h"

#include <string>

namespace app {

/// Puts an option on estimated means into the command. --emmeans makes the requests, one for each effect between its
/// commas, in place of those that the command has; the other options hold for all requests. A contrast compares the
/// first factor of a request that names none. False, with the error, when the text doesn't hold.
bool ApplyMeansOption(command::CommandTree& tree, const CommandOption& option, const std::string& text,
                      command::CommandError& error);

}  // namespace app
