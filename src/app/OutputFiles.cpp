#include "app/OutputFiles.h"

#include "app/ExitCode.h"
#include "app/ResultWriter.h"
#include "host/output/FileStore.h"

#include <filesystem>
#include <vector>

namespace app {

namespace {

namespace fs = std::filesystem;

struct NamedFile {
    const char* fUse;
    std::string fName;
};

/// One spelling for each file, whether it is there or not.
fs::path Spelt(const std::string& name) {
    std::error_code error;
    const fs::path path = fs::weakly_canonical(fs::absolute(name), error);
    return error ? fs::path(name).lexically_normal() : path;
}

}  // namespace

void CheckFiles(const command::OutputFiles& files, const std::string& output, const std::string& data) {
    const std::vector<NamedFile> outputs{{"results", output},
                                         {"OUTFILE MODEL", files.fModel},
                                         {"OUTFILE PARAMETER", files.fParameter},
                                         {"OUTFILE STATXML", files.fStatXML},
                                         {"OUTFILE STATJSON", files.fStatJSON},
                                         {"saved data", files.fData}};
    for (std::size_t i = 0; i < outputs.size(); ++i) {
        const NamedFile& file = outputs[i];
        if (file.fName.empty()) continue;
        CheckOutput(file.fName);
        if (host::FileStore::IsWrittenStraight(file.fName)) continue;
        const fs::path path = Spelt(file.fName);
        if (path == Spelt(data))
            throw Failure{kWrongUse, file.fName + ": would be written over the data; name another file"};
        for (std::size_t j = 0; j < i; ++j) {
            if (!outputs[j].fName.empty() && path == Spelt(outputs[j].fName))
                throw Failure{kWrongUse, file.fName + ": is named for two outputs, " + outputs[j].fUse + " and " +
                                             file.fUse + "; give each a file of its own"};
        }
    }
}

}  // namespace app
