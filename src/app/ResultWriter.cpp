#include "app/ResultWriter.h"

#include "app/ExitCode.h"
#include "app/Terminal.h"
#include "host/output/FileStore.h"
#include "report/ChartFiles.h"
#include "report/HtmlRenderer.h"
#include "report/JsonRenderer.h"
#include "report/TextRenderer.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace app {

namespace {

report::Selection SelectionOf(const Options& options) {
    report::Selection selection;
    selection.fClassic = options.fShow != "viewer";
    selection.fViewer = options.fShow != "classic";
    return selection;
}

}  // namespace

std::string RenderResults(const Options& options, const run::RunValue& run, const host::OutputDocument& document,
                          const std::string& command) {
    const report::Selection selection = SelectionOf(options);
    if (options.fFormat == Format::kJson) return report::RenderJson(run, document, selection, HIERFIT_VERSION, command);
    if (options.fFormat == Format::kHtml)
        return report::RenderHtml(document, selection, {"", command, HIERFIT_VERSION});
    const bool terminal = options.fOutput.empty() && OutputIsTerminal();
    return report::RenderText(document, selection, {OutputWidth(), true, terminal});
}

void CheckOutput(const std::string& file) {
    if (file.empty()) return;
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored)) throw Failure{kFileError, file + ": is a directory; name a file"};
    std::filesystem::path written(file);
    if (!host::FileStore::IsWrittenStraight(file)) {
        const std::filesystem::path path(host::FileStore::Target(file));
        written = path.has_parent_path() ? path.parent_path() : ".";
    }
    if (access(written.c_str(), W_OK) != 0)
        throw Failure{kFileError, file + ": can't be written: " + std::strerror(errno)};
}

void CheckChartsDirectory(const std::string& directory) {
    if (directory.empty()) return;
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (!error && !std::filesystem::is_directory(directory)) error = std::make_error_code(std::errc::not_a_directory);
    if (error) throw Failure{kFileError, directory + ": can't be a directory of charts: " + error.message()};
    CheckOutput(directory + "/chart");
}

void WriteCharts(const Options& options, const host::OutputDocument& document) {
    if (options.fChartsDirectory.empty()) return;
    for (const auto& chart : report::ChartFiles(document, SelectionOf(options)))
        WriteResults((std::filesystem::path(options.fChartsDirectory) / chart.fName).string(), chart.fText);
}

void WriteResults(const std::string& file, const std::string& text) {
    if (file.empty()) {
        const bool written =
            std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
        // A reader that has seen enough and closes the pipe is no error.
        if (!written && errno == EPIPE) return;
        if (!written) throw Failure{kFileError, std::string("the results can't be written: ") + std::strerror(errno)};
        return;
    }
    host::FileStore& store = host::FileStore::Instance();
    std::ofstream stream(store.Begin(file), std::ios::binary | std::ios::trunc);
    if (stream) {
        stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        stream.close();
        store.Finish(file, stream.good());
    } else {
        store.Refuse(file, errno);
    }
    const std::vector<std::string> failures = store.TakeFailures();
    if (!failures.empty()) throw Failure{kFileError, failures.front()};
}

}  // namespace app
