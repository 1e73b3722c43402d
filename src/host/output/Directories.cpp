#include "contracts/HostOutput.h"

#include <filesystem>

/// Where the program's own files lie. The share directory is searched upward from the executable, as share/hierfit
/// (installed) or share (a source tree), so that an installation can be moved.

namespace {

namespace fs = std::filesystem;

constexpr int kLevels = 6;  ///< a build tree's test programs lie deeper than an installed program

fs::path ShareDirectory() {
    std::error_code error;
    fs::path at = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (int level = 0; level < kLevels && !at.empty(); ++level, at = at.parent_path()) {
        for (const char* below : {"share/hierfit", "share"}) {
            if (fs::exists(at / below / "strings" / "en.json", error)) return at / below;
        }
    }
    return {};
}

class ProgramPaths : public PathFinder {
public:
    std::string GetScratchDirectory() const override {
        std::error_code error;
        const fs::path directory = fs::temp_directory_path(error);
        return error ? "/tmp" : directory.string();
    }
    std::string GetBaseDirectory() const override { return Below(""); }
    std::string GetTemplateDirectory() const override { return Below("template"); }
    std::string GetStringTableDirectory() const override { return Below("strings"); }

private:
    std::string Below(const char* name) const { return fShare.empty() ? std::string() : (fShare / name).string(); }

    fs::path fShare = ShareDirectory();
};

}  // namespace

PathFinder& PathFactory::getPathInstance() {
    static ProgramPaths paths;
    return paths;
}

PathFinder& PathFactory::getPathInstance(int) {
    return getPathInstance();
}
