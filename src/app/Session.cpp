#include "app/Session.h"

#include "app/CallBack.h"
#include "app/CommandSource.h"
#include "app/DebugDump.h"
#include "app/ExitCode.h"
#include "app/OutputFiles.h"
#include "app/Predict.h"
#include "app/ResultWriter.h"
#include "app/ScoringWalk.h"
#include "app/StopSignal.h"
#include "app/Terminal.h"
#include "command/ParsedBlock.h"
#include "contracts/Host.h"
#include "host/data/DataSource.h"
#include "host/data/SavedDataWriter.h"
#include "host/output/OutputDocument.h"
#include "procedure/MixDriver.h"
#include "report/OwnTables.h"
#include "report/TextRenderer.h"
#include "run/RunValue.h"

#include <algorithm>

namespace app {

namespace {

/// The messages of a document by level, as sentences.
struct MessageCollector : output::Visitor {
    void Show(const output::Message& message) override {
        if (message.fLevel >= kLevelError) fErrors.push_back(report::MessageText(message, host::Catalogue::Current()));
    }
    std::vector<std::string> fErrors;
};

/// One run of the procedure on a table.
class Session {
public:
    Session(const Options& options, std::shared_ptr<host::Table> table, const command::Specification& specification)
        : fOptions(options),
          fpTable(std::move(table)),
          fBlock(command::WriteBlock(specification)),
          fSaveFile(specification.fFiles.fData),
          fDocument("Mixed Model Analysis") {
        if (fOptions.fShow.empty()) fOptions.fShow = DefaultHalf(specification);
        command::FillRunValue(specification, fRun);
        fRun.fThreads = options.fThreads;
        fRun.fStop = StopSignal::Asked;
        fRun.fWishes.fDocuments = fOptions.fShow != "classic";
        fRun.fWishes.fRandomEffects = fOptions.fFormat == Format::kJson;
    }

    int Run(const std::string& command) {
        Drive();
        if (StopSignal::Asked()) throw Failure{kStopped, "stopped by the user"};
        ReportErrors();
        if (AnythingFitted() || fOptions.fFormat == Format::kJson)
            WriteResults(fOptions.fOutput, RenderResults(fOptions, fRun, fDocument, command));
        if (AnythingFitted()) WriteCharts(fOptions, fDocument);
        if (fSaveProblem) Complain(fSaveProblem->Message());
        if (fRun.fFileFailed || fSaveProblem) return kFileError;
        return AllFitted() ? kFitted : kNotFitted;
    }

private:
    /// A reader is shown the viewer's tables, with the classic ones when some were asked for that only they have.
    const char* DefaultHalf(const command::Specification& specification) const {
        const bool classicOnly = specification.fPrint.fCorb || specification.fPrint.fCovb;
        return fOptions.fFormat != Format::kJson && !classicOnly ? "viewer" : "all";
    }

    void Drive() {
        const host::OutputScope output(fDocument);
        const run::Scope run(fRun);
        Progress progress(!fOptions.fQuiet);
        fRun.fProgress = [&](const std::string& phase, double share) { progress.Show(phase, share); };
        ProcedureDataSource source(host::MakeDataSource(fpTable));
        fDocument.SetData(&source);
        BpProcedure procedure = fDocument.Procedure();
        EXPOSEMIX(fBlock.Slots(), fBlock.Texts());
        fDocument.SetHalf(output::Half::kClassic);
        {
            const DebugDump debug(fOptions.fDebug);
            MixDriver(fBlock.Cells(), procedure, source);
        }
        fDocument.SetHalf(output::Half::kBoth);
        if (fRun.fWishes.fDocuments && !StopSignal::Asked()) CallBack(fRun, fDocument, source);
        fRun.fProgress = nullptr;
        if (!fSaveFile.empty()) SaveScores(source);
        if (!StopSignal::Asked()) report::AddOwnTables(fRun, fDocument);
        fDocument.SetData(nullptr);
    }

    bool AnythingFitted() const {
        return std::any_of(fRun.fvResults.begin(), fRun.fvResults.end(),
                           [](const run::SplitResult& result) { return result.fpModel != nullptr; });
    }

    void SaveScores(ProcedureDataSource& source) {
        if (fRun.fFatal || StopSignal::Asked() || !AnythingFitted()) return;
        ScoreData(fBlock, fRun, source);
        if (StopSignal::Asked()) return;
        fSaveProblem = host::WriteWithSaved(source.Impl(), fSaveFile);
    }

    /// One line for what kept a model from being fitted: the output's message and the sentence behind it. The messages
    /// of splits, and of doubtful results, are notes in the output, and said here too.
    void ReportErrors() const {
        MessageCollector collector;
        fDocument.Root().Visit(collector);
        for (const run::SplitResult& result : fRun.fvResults) {
            for (const run::Message& message : result.fFigures.fMessages) {
                const bool shown = message.fLevel == "error" && result.fName.empty();
                if (message.fText.empty() || shown || fOptions.fQuiet) continue;
                Remark((result.fName.empty() ? "" : result.fName + ": ") + message.fText);
            }
        }
        std::vector<std::string>& errors = collector.fErrors;
        if (errors.size() == 2 && fRun.fvResults.size() == 1) {
            const std::size_t prefix = errors[1].find(": ");
            errors[0] += " " + errors[1].substr(prefix == std::string::npos ? 0 : prefix + 2);
            errors.pop_back();
        }
        for (const std::string& error : errors)
            Complain(error);
    }

    bool AllFitted() const {
        if (fRun.fFatal || fRun.fvResults.size() < fpTable->Splits().size() || fRun.fvResults.empty()) return false;
        return std::all_of(fRun.fvResults.begin(), fRun.fvResults.end(), [](const run::SplitResult& result) {
            return result.fpModel != nullptr && result.fFigures.fConverged;
        });
    }

    Options fOptions;
    std::shared_ptr<host::Table> fpTable;
    command::ParsedBlock fBlock;
    std::string fSaveFile;  ///< data with scores; empty: none
    host::OutputDocument fDocument;
    run::RunValue fRun;
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
    const std::shared_ptr<host::Table> table = OpenTable(source.Data());
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
    if (hasData) source.Resolve(*OpenTable(source.Data()));
    if (!options.fQuiet)
        WriteResults("", hasData ? "The command is right for its data.\n"
                                 : "The command is right as far as it can be checked without data.\n");
    return kFitted;
}

int Describe(const Options& options) {
    command::DataWishes wishes;
    wishes.fFile = options.fDataFile;
    const std::shared_ptr<host::Table> table = OpenTable(wishes);
    std::size_t width = 8;
    for (int i = 0; i < table->VariableCount(); ++i)
        width = std::max(width, table->GetVariable(i).fName.size());
    std::string text =
        std::to_string(table->RowCount()) + " records, " + std::to_string(table->VariableCount()) + " variables\n\n";
    for (int i = 0; i < table->VariableCount(); ++i) {
        const host::Variable& variable = table->GetVariable(i);
        const char* const levels[] = {"", "nominal", "ordinal", "scale"};
        text += variable.fName + std::string(width + 2 - variable.fName.size(), ' ');
        text += variable.IsText() ? "text(" + std::to_string(variable.fWidth) + ")" : "number";
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
        case Task::kFit:
        case Task::kRun:
            break;
    }
    return FitOrRun(options);
}

}  // namespace app
