#pragma once

#include "app/CommandOptions.h"

#include <map>
#include <optional>
#include <string>

namespace app {

enum class Task { kFit, kRun, kCheck, kDescribe, kPredict, kExplain };
enum class Format { kText, kJson, kHtml };

/// What the command line says.
struct Options {
    Task fTask = Task::kFit;
    std::string fFormula;      ///< fit
    std::string fDataFile;     ///< describe
    std::string fCommandFile;  ///< run, check; "-" is the standard input
    std::string fModelFile;    ///< predict
    std::string fMessage;      ///< explain: a code or the message itself; empty: all
    bool fMarkdown = false;    ///< explain: all as a page
    bool fStrict = false;      ///< predict: refuse data that the model doesn't fit
    /// Text of each command option that was given, by its flag; --data among them.
    std::map<std::string, std::string> fCommandTexts;
    Format fFormat = Format::kText;
    std::string fOutput;           ///< empty: the standard output
    std::string fChartsDirectory;  ///< empty: charts aren't written as files
    std::string fShow;             ///< classic, viewer, all; empty: what suits the format
    int fThreads = 0;
    bool fQuiet = false;
    bool fVerbose = false;
    bool fShowCommand = false;
    std::string fDebug;  ///< debug texts to show, separated by commas
};

/// Reads the command line. Help and version are printed, and wrong use is reported: then an exit code comes back and
/// there is nothing to do.
std::optional<int> ReadCommandLine(int argc, char** argv, Options& options);

}  // namespace app
