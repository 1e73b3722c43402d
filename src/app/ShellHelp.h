#pragma once

#include <string>

namespace CLI {
class App;
}

namespace app {

/// Texts that are made from the program's own tasks and options, so that they never tell of others.

/// A completion script for bash or zsh.
std::string BashCompletion(const CLI::App& program);
std::string ZshCompletion(const CLI::App& program);

/// The manual page, as roff.
std::string ManualPage(const CLI::App& program, const std::string& version);

}  // namespace app
