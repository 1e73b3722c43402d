#include "app/Version.h"

extern "C" char* openblas_get_config();

namespace app {

/// Written by the build, behind each commit; empty where there is no repository.
extern const char* const kCommit;

std::string VersionText() {
    const std::string commit = kCommit;
    return std::string("hierfit " HIERFIT_VERSION "\n") + "commit: " + (commit.empty() ? "not known" : commit) +
           "\ncompiler: " HIERFIT_COMPILER ", " HIERFIT_BUILD_TYPE "\nlinear algebra: " + openblas_get_config() + "\n";
}

}  // namespace app
