#include "app/Session.h"

#include "app/CommandSource.h"
#include "app/DataTable.h"
#include "app/DebugDump.h"
#include "app/ExitCode.h"
#include "app/Explain.h"
#include "app/ModelRun.h"
#include "app/OutputFiles.h"
#include "app/Predict.h"
#include "app/ResultWriter.h"
#include "app/StopSignal.h"
#include "app/Terminal.h"
#include "host/data/DateText.h"
#include "host/data/SavedDataWriter.h"

#include <algorithm>
#include <set>

namespace app {

namespace {

/// One run of the program: a run of the procedure, and where its results go.
class Session {
public:
    Session(const Options& options, std::shared_ptr<host::Table> table, const command::Specification& specification)
        : fOptions(options), fRun(std::move(table), specification) {
        if (fOptions.fShow.empty()) fOptions.fShow = DefaultHalf(specification);
        run::RunValue& value = fRun.Value();
        value.fThreads = options.fThreads;
        value.fStop = StopSignal::Asked;
        value.fWishes.fDocuments = fOptions.fShow != "classic";
        fRun.Document().fDrawn = options.fFormat != Format::kText || !options.fChartsDirectory.empty();
        value.fWishes.fRandomEffects = fOptions.fFormat == Format::kJson;
        const std::string file = specification.fFiles.fData;
        if (file.empty()) return;
        fRun.fTakeScores = [this, file](QVTA_DataSourceImpl& source) {
            fSaveProblem = host::WriteWithSaved(source, file);
        };
    }

    int Run(const std::string& command) {
        Drive();
        if (StopSignal::Asked()) throw Failure{kStopped, "stopped by the user"};
        ReportErrors();
        if (fRun.AnythingFitted() || fOptions.fFormat == Format::kJson)
            WriteResults(fOptions.fOutput, RenderResults(fOptions, fRun.Value(), fRun.Document(), command));
        if (fRun.AnythingFitted()) WriteCharts(fOptions, fRun.Document());
        if (fSaveProblem) Complain(fSaveProblem->Message());
        if (!fRun.ScoringProblem().empty()) Complain(fRun.ScoringProblem());
        if (fRun.Value().fFileFailed || fSaveProblem || !fRun.ScoringProblem().empty()) return kFileError;
        return fRun.AllFitted() ? kFitted : kNotFitted;
    }

private:
    /// A reader is shown the viewer's tables, with the classic ones when some were asked for that only they have.
    const char* DefaultHalf(const command::Specification& specification) const {
        const bool classicOnly = specification.fPrint.fCorb || specification.fPrint.fCovb;
        return fOptions.fFormat != Format::kJson && !classicOnly ? "viewer" : "all";
    }

    void Drive() {
        Progress progress(!fOptions.fQuiet);
        run::RunValue& value = fRun.Value();
        value.fProgress = [&](const run::Progress& state) {
            progress.Show(state, value.fSplitOrdinal + 1, fRun.SplitCount());
        };
        const DebugDump debug(fOptions.fDebug);
        fRun.Drive(fOptions.fShow == "classic" ? Halves::kClassic : Halves::kBoth);
    }

    void ReportErrors() const {
        std::set<std::string> told;
        if (!fOptions.fQuiet)
            for (const Saying& note : fRun.Notes())
                Remark(note.fText + Hint(note.fCode, told));
        for (const Saying& error : fRun.Errors())
            Complain(error.fText + Hint(error.fCode, told));
    }

    /// Where more is told about a message: once for each code.
    static std::string Hint(const std::string& code, std::set<std::string>& told) {
        return code.empty() || !told.insert(code).second ? "" : " (hierfit explain " + code + ")";
    }

    Options fOptions;
    ModelRun fRun;
    std::optional<host::DataError> fSaveProblem;
};

void ShowRemarks(const Options& options, const host::Table& table) {
    if (options.fQuiet) return;
    for (const std::string& remark : table.Remarks())
        Remark(remark);
}

int FitOrRun(const Options& options) {
    CommandSource source(options);
    CheckOutput(options.fOutput);
    CheckChartsDirectory(options.fChartsDirectory);
    const std::shared_ptr<host::Table> table = OpenTable(source.Data(), options.fQuiet);
    const command::Specification specification = source.Resolve(*table);
    CheckFiles(specification.fFiles, options.fOutput, source.Data().fFile);
    if (specification.fFiles.fData.empty() && !specification.fvSaved.empty())
        throw Failure{kWrongUse,
                      "SAVE names variables but no file takes them; give --save FILE or /OUTFILE DATA='...'"};
    const std::string command = command::PrintCommand(source.Tree());
    if (options.fShowCommand) {
        WriteResults(options.fOutput, command);
        return kFitted;
    }
    ShowRemarks(options, *table);
    return Session(options, table, specification).Run(command);
}

/// Without data only the words and the shape of the command can be tested.
int Check(const Options& options) {
    CommandSource source(options);
    const bool hasData = !source.Data().fFile.empty();
    if (hasData) source.Resolve(*OpenTable(source.Data(), options.fQuiet));
    if (!options.fQuiet)
        WriteResults("", hasData ? "The command is right for its data.\n"
                                 : "The command is right as far as it can be checked without data.\n");
    return kFitted;
}

std::string Counted(std::uint64_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

int Describe(const Options& options) {
    command::DataWishes wishes = WishesOf(options);
    wishes.fFile = options.fDataFile;
    const std::shared_ptr<host::Table> table = OpenTable(wishes, options.fQuiet);
    std::size_t width = 8;
    for (int i = 0; i < table->VariableCount(); ++i)
        width = std::max(width, table->GetVariable(i).fName.size());
    std::string text =
        Counted(table->RowCount(), "record") + ", " + Counted(table->VariableCount(), "variable") + "\n\n";
    for (int i = 0; i < table->VariableCount(); ++i) {
        const host::Variable& variable = table->GetVariable(i);
        const char* const levels[] = {"", "nominal", "ordinal", "scale"};
        text += variable.fName + std::string(width + 2 - variable.fName.size(), ' ');
        const std::string date = host::DateTypeName(variable.fFormat.fType);
        text += variable.IsText() ? "text(" + std::to_string(variable.fWidth) + ")" : date.empty() ? "number" : date;
        text += std::string(", ") + levels[static_cast<int>(variable.fLevel)];
        if (!variable.fLabel.empty()) text += ", " + variable.fLabel;
        text += "\n";
    }
    WriteResults("", text);
    ShowRemarks(options, *table);
    return kFitted;
}

}  // namespace

int RunTask(const Options& options) {
    switch (options.fTask) {
        case Task::kCheck:
            return Check(options);
        case Task::kDescribe:
            return Describe(options);
        case Task::kPredict:
            return Predict(options);
        case Task::kExplain:
            return Explain(options);
        case Task::kFit:
        case Task::kRun:
            break;
    }
    return FitOrRun(options);
}

}  // namespace app
