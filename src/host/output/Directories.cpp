#include "contracts/HostOutput.h"

#include <dlfcn.h>
#include <filesystem>

/// Where the program's own files lie. The share directory is searched upward from the file that holds this code, the
/// executable or the library that another program embeds, as share/hierfit (installed) or share (a source tree), so
/// that an installation can be moved.

namespace {

namespace fs = std::filesystem;

constexpr int kLevels = 6;  ///< a build tree's test programs lie deeper than an installed program

/// Of an executable the loader knows no more than how it was called.
fs::path OwnFile() {
    std::error_code error;
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&OwnFile), &info) != 0 && info.dli_fname != nullptr) {
        fs::path file = fs::canonical(info.dli_fname, error);
        if (!error && file.filename().string().find(".so") != std::string::npos) return file;
    }
    return fs::read_symlink("/proc/self/exe", error);
}

fs::path ShareDirectory() {
    std::error_code error;
    fs::path at = OwnFile().parent_path();
    for (int level = 0; level < kLevels && !at.empty(); ++level, at = at.parent_path()) {
        for (const char* below : {"share/hierfit", "share"}) {
            if (fs::exists(at / below / "strings" / "en.json", error)) return at / below;
        }
    }
    return {};
}

class ProgramPaths : public PathFinder {
public:
    explicit ProgramPaths(bool own) : fOwn(own) {}

    std::string GetDirectory() const override { return fOwn ? Below("") : GetScratchDirectory(); }
    std::string GetScratchDirectory() const override {
        std::error_code error;
        const fs::path directory = fs::temp_directory_path(error);
        return error ? "/tmp" : directory.string();
    }
    std::string GetTemplateDirectory() const override { return Below("template"); }
    std::string GetStringTableDirectory() const override { return Below("strings"); }

private:
    std::string Below(const char* name) const { return fShare.empty() ? std::string() : (fShare / name).string(); }

    bool fOwn;  ///< the program's own files are meant
    fs::path fShare = ShareDirectory();
};

constexpr int kOwnFiles = 3;

}  // namespace

PathFinder& PathFactory::getPathInstance() {
    static ProgramPaths paths(false);
    return paths;
}

PathFinder& PathFactory::getPathInstance(int kind) {
    static ProgramPaths own(true);
    return kind == kOwnFiles ? own : getPathInstance();
}
