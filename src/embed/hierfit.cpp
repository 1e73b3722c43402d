#include "embed/hierfit.h"

#include "app/CommandSource.h"
#include "app/ExitCode.h"
#include "app/ModelRun.h"
#include "app/Predictor.h"
#include "app/Version.h"
#include "command/Words.h"
#include "engine/seam/StoredModel.h"
#include "host/data/TableBuilder.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <new>
#include <string_view>

namespace hierfit {

namespace {

/// The run in force is one for the process.
std::mutex& OneAtATime() {
    static std::mutex mutex;
    return mutex;
}

/// Whatever is thrown below becomes a value here.
template <class T, class Work>
Outcome<T> Guarded(Work work) {
    const std::lock_guard<std::mutex> lock(OneAtATime());
    try {
        return work();
    } catch (const app::Failure& failure) {
        return Error{failure.fCode == app::kFileError ? Error::Kind::kData : Error::Kind::kUse, failure.fText, 0};
    } catch (const Error& error) {
        return error;
    } catch (const std::bad_alloc&) {
        return Error{Error::Kind::kMemory, app::kNoMemory, 0};
    } catch (const std::exception& error) {
        return Error{Error::Kind::kInternal, std::string("the run ended unexpectedly: ") + error.what(), 0};
    }
}

std::shared_ptr<host::Table> TableOf(const Data& data, const host::DataOptions& options) {
    host::TableBuilder builder;
    for (const Column& column : data.Columns()) {
        if (column.fTexts.empty())
            builder.Numbers(column.fName, column.fNumbers);
        else
            builder.Texts(column.fName, column.fTexts);
    }
    host::Outcome<std::shared_ptr<host::Table>> table = builder.Finish(options);
    if (!table) throw Error{Error::Kind::kData, table.Error().Message(), 0};
    return *table;
}

bool IsAboutFiles(const app::CommandOption& option) {
    constexpr std::array<std::string_view, 6> kFiles{"--data",          "--data-schema", "--missing",
                                                     "--decimal-comma", "--save",        "--model-out"};
    return std::find(kFiles.begin(), kFiles.end(), option.fFlag) != kFiles.end();
}

/// The options as those of the command line.
app::Options Translate(const std::string& formula, const Options& options) {
    app::Options translated;
    translated.fTask = app::Task::kFit;
    translated.fFormula = formula;
    std::vector<std::string> names;
    for (const app::CommandOption& option : app::CommandOptions()) {
        if (!IsAboutFiles(option)) names.push_back(option.fFlag + 2);
    }
    for (const auto& [name, text] : options.fTexts) {
        if (std::find(names.begin(), names.end(), name) == names.end())
            throw Error{Error::Kind::kUse, "there is no option " + name + command::SuggestionText(name, names, false),
                        0};
        translated.fCommandTexts["--" + name] = text;
    }
    return translated;
}

std::vector<double> Values(const double* cells, std::uint64_t count) {
    if (!cells) return std::vector<double>(count, std::numeric_limits<double>::quiet_NaN());
    return {cells, cells + count};
}

std::vector<Column> SavedColumns(QVTA_DataSourceImpl& source) {
    std::vector<Column> columns;
    const host::Table& table = source.GetTable();
    for (std::size_t i = 0; i < source.SavedCount(); ++i) {
        if (!source.Saved(i).Error().empty()) throw Error{Error::Kind::kMemory, source.Saved(i).Error(), 0};
        columns.push_back({source.Variable(table.VariableCount() + i).GetName(),
                           Values(source.Saved(i).Cells(), table.InputRowCount()),
                           {}});
    }
    return columns;
}

std::string Joined(const std::vector<app::Saying>& sayings) {
    std::string text;
    for (const app::Saying& saying : sayings)
        text += (text.empty() ? "" : " ") + saying.fText;
    return text;
}

/// The sentences of a run that fitted nothing, and the status behind them.
Error WhyNothing(const app::ModelRun& run) {
    const std::vector<app::Saying> errors = run.Errors(), notes = run.Notes();
    Error error{Error::Kind::kNotFitted, Joined(errors.empty() ? notes : errors), 0};
    for (const run::SplitResult& result : run.Value().fvResults)
        if (error.fCode == 0) error.fCode = result.fFigures.fCode;
    // A run that ends before the engine is asked has no figures.
    if (error.fCode == 0 && !errors.empty()) error.fCode = std::strtol(errors.front().fCode.c_str(), nullptr, 10);
    return error;
}

Fitted Collect(app::ModelRun& run, std::vector<Column> scores) {
    Fitted fitted;
    for (run::SplitResult& result : run.Value().fvResults)
        fitted.fSplits.push_back({std::move(result.fSplit), std::move(result.fName), result.fpModel != nullptr,
                                  std::move(result.fFigures), std::move(result.fPMML)});
    fitted.fScores = std::move(scores);
    return fitted;
}

}  // namespace

Outcome<Fitted> Fit(const Data& data, const std::string& formula, const Options& options) {
    return Guarded<Fitted>([&]() -> Outcome<Fitted> {
        app::CommandSource source(Translate(formula, options));
        const std::shared_ptr<host::Table> table = TableOf(data, app::DataOptionsOf(source.Data()));
        app::ModelRun run(table, source.Resolve(*table));
        run.Value().fThreads = options.fThreads;
        run.Value().fStop = options.fStop;
        run.Value().fWishes.fDocuments = false;
        run.Value().fWishes.fFiles = true;  // the model as text
        std::vector<Column> scores;
        if (options.fTexts.count("scores"))
            run.fTakeScores = [&](QVTA_DataSourceImpl& saved) { scores = SavedColumns(saved); };
        run.Drive(app::Halves::kClassic);
        if (run.Stopped()) return Error{Error::Kind::kStopped, "stopped by the caller", 0};
        if (!run.AnythingFitted()) return WhyNothing(run);
        if (!run.ScoringProblem().empty()) return Error{Error::Kind::kMemory, run.ScoringProblem(), 0};
        std::vector<std::string> notes = table->Remarks();
        for (app::Saying& note : run.Notes())
            notes.push_back(std::move(note.fText));
        Fitted fitted = Collect(run, std::move(scores));
        fitted.fNotes = std::move(notes);
        return fitted;
    });
}

Outcome<Predictions> Predict(const std::string& model, const Data& data) {
    return Guarded<Predictions>([&]() -> Outcome<Predictions> {
        std::string problem;
        const auto stored = engine::StoredModel::Read(model, problem);
        if (!stored) return Error{Error::Kind::kUse, "the model can't be read: " + problem, 0};
        const std::shared_ptr<host::Table> table = TableOf(data, {});
        app::Predictor predictor(*stored, *table);
        if (!predictor.Problem().empty()) return Error{Error::Kind::kMemory, predictor.Problem(), 0};
        predictor.Run();
        Predictions predictions;
        for (const host::AddedColumn& column : predictor.Columns())
            predictions.fColumns.push_back({column.fName, Values(column.fNumbers, table->InputRowCount()), {}});
        for (const app::Misfits* misfits : {&predictor.Grave(), &predictor.Light()})
            for (std::string& sentence : misfits->Sentences())
                predictions.fNotes.push_back(std::move(sentence));
        return predictions;
    });
}

std::string Version() {
    return app::VersionText();
}

}  // namespace hierfit
