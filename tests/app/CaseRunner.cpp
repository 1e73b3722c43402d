#include "app/CaseRunner.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace apptest {

namespace fs = std::filesystem;

std::string ReadFile(const fs::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

Scratch::Scratch() {
    std::string pattern = (fs::temp_directory_path() / "hierfit-test-XXXXXX").string();
    fPath = mkdtemp(pattern.data());
}

Scratch::~Scratch() {
    std::error_code ignored;
    fs::remove_all(fPath, ignored);
}

void Scratch::Write(const std::string& name, const std::string& text) const {
    std::ofstream(fPath / name, std::ios::binary) << text;
}

std::vector<std::string> Scratch::Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(fPath))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

Outcome RunShell(const std::string& command, const fs::path& folder) {
    const Scratch captured;
    const fs::path out = captured.Path() / "out", err = captured.Path() / "err";
    const std::string line = "cd '" + folder.string() +
                             "' && export EXAMPLES='" HIERFIT_SOURCE_DIR "/examples' PATH='" HIERFIT_BINARY_DIR
                             "':\"$PATH\" && { " +
                             command + "\n} >'" + out.string() + "' 2>'" + err.string() + "' </dev/null";
    const int status = std::system(line.c_str());
    Outcome outcome;
    outcome.fExit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    outcome.fOut = ReadFile(out);
    outcome.fErr = ReadFile(err);
    return outcome;
}

std::string ExplainedCode(const std::string& message) {
    std::string quoted;
    for (const char c : message)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    const Outcome explained = RunShell("hierfit explain '" + quoted + "'", "/");
    return explained.fExit == 0 ? explained.fOut.substr(0, explained.fOut.find(' ')) : std::string();
}

const std::string& GermanShell() {
    static const Scratch folder;
    static const std::string settings = [] {
        const std::string names = "LOCPATH='" + folder.Path().string() + "' LC_ALL=de_DE.UTF-8 ";
        const Outcome made =
            RunShell("localedef -i de_DE -f UTF-8 ./de_DE.UTF-8; " + names + "locale decimal_point", folder.Path());
        return made.fOut == ",\n" ? names : std::string();
    }();
    return settings;
}

}  // namespace apptest
