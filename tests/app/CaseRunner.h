#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace apptest {

/// A sanitizer takes the place of malloc, has symbols of its own, and maps more than any limit.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

struct Outcome {
    int fExit = -1;
    std::string fOut;
    std::string fErr;
};

/// Runs a shell command in a folder; "hierfit" is the program under test.
Outcome RunShell(const std::string& command, const std::filesystem::path& folder);

/// The code under which "hierfit explain" knows a message by its text, empty when it doesn't.
std::string ExplainedCode(const std::string& message);

/// A folder that goes away with the object.
class Scratch {
public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    const std::filesystem::path& Path() const { return fPath; }
    void Write(const std::string& name, const std::string& text) const;
    std::vector<std::string> Names() const;  ///< of the files in it, sorted

private:
    std::filesystem::path fPath;
};

/// Settings of a shell under which numbers have a decimal comma; empty when the machine can't make such a locale.
const std::string& GermanShell();

std::string ReadFile(const std::filesystem::path& path);

}  // namespace apptest
