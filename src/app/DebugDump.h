#pragma once

#include <string>

namespace app {

/// Turns debug text of the procedure on for its own life, and sends it to the standard error. words: any of specs,
/// varlist, component, stats and records, separated by commas; records writes each split's sorted records, as the
/// engine reads them, to a file of the scratch directory. Throws Failure for any other word.
class DebugDump {
public:
    explicit DebugDump(const std::string& words);
    ~DebugDump();
    DebugDump(const DebugDump&) = delete;
    DebugDump& operator=(const DebugDump&) = delete;
};

}  // namespace app
