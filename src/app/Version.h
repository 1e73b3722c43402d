#pragma once

#include <string>

namespace app {

/// Version, commit, compiler, build type and linear algebra of this build, a line each.
std::string VersionText();

}  // namespace app
