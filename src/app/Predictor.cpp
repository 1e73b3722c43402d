#include "app/Predictor.h"

#include "contracts/EngineStatus.h"
#include "engine/model/Workers.h"
#include "host/data/DataSource.h"
#include "host/data/NumberText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <deque>
#include <limits>
#include <unordered_map>

namespace app {

void Misfits::Add(const Misfits& other) {
    for (const auto& [kind, added] : other.fEntries) {
        Entry& entry = fEntries[kind];
        entry.fRows += added.fRows;
        for (const std::string& example : added.fExamples) {
            if (entry.fExamples.size() <= kExamples) entry.fExamples.insert(example);
        }
    }
}

std::vector<std::string> Misfits::Sentences() const {
    std::vector<std::string> sentences;
    for (const auto& [kind, entry] : fEntries) {
        std::string sentence = "in " + std::to_string(entry.fRows) + (entry.fRows == 1 ? " row " : " rows ") + kind;
        std::size_t shown = 0;
        for (const std::string& example : entry.fExamples) {
            if (shown == kExamples) break;
            sentence += (shown++ == 0 ? " (" : ", ") + ("\"" + example + "\"");
        }
        if (shown > 0) sentence += entry.fExamples.size() > kExamples ? ", ...)" : ")";
        sentences.push_back(sentence);
    }
    return sentences;
}

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct Prediction {
    const char* fName;
    ScoreType fType;
    bool fWhole;  ///< of fixed and random effects together
};
constexpr std::array<Prediction, 6> kPredictions{{{"FXPRED_1", 10, false},
                                                  {"SEFIXP_1", 11, false},
                                                  {"DFFIXP_1", 19, false},
                                                  {"PRED_1", 0, true},
                                                  {"SEPRED_1", 1, true},
                                                  {"DFPRED_1", 9, true}}};

/// A column of the record, read from the data block by block.
class Source {
public:
    Source(const host::Table& table, const engine::StoredModel::Column& column)
        : fpTable(&table), fpColumn(&column), fVariable(table.Find(column.fName)) {
        if (fVariable < 0) return;
        const bool text = table.GetVariable(fVariable).IsText();
        fChanged = text != column.fText && (column.fCategorical || text);
        if (fChanged || !column.fCategorical) return;
        for (std::size_t code = 0; code < column.fCategories.size(); ++code)
            AddCategory(column.fCategories[code], static_cast<int>(code));
    }

    const engine::StoredModel::Column& Column() const { return *fpColumn; }
    bool IsAbsent() const { return fVariable < 0; }
    bool IsChanged() const { return fChanged; }
    bool IsReadable() const { return fVariable >= 0 && !fChanged; }

    void ReadBlock(std::uint64_t first, std::size_t count) {
        if (!IsReadable()) return;
        if (fpColumn->fText) {
            fCodes.resize(count);
            fpTable->ReadCodes(fVariable, first, count, fCodes.data());
        } else {
            fCells.resize(count);
            fpTable->ReadNumbers(fVariable, first, count, fCells.data());
        }
    }

    bool IsMissing(std::size_t i) const {
        const host::Variable& variable = fpTable->GetVariable(fVariable);
        if (fpColumn->fText) {
            return fCodes[i] == 0 || std::binary_search(variable.fMissingTexts.begin(), variable.fMissingTexts.end(),
                                                        fpTable->Pool(fVariable).Text(fCodes[i]));
        }
        return std::isnan(fCells[i]) ||
               std::binary_search(variable.fMissingNumbers.begin(), variable.fMissingNumbers.end(), fCells[i]);
    }

    /// A number, or a category's code, -1 for one that the model doesn't have.
    double Value(std::size_t i) const {
        if (!fpColumn->fCategorical) return fCells[i];
        if (fpColumn->fText) {
            const auto at = fByText.find(fCodes[i]);
            return at == fByText.end() ? -1.0 : at->second;
        }
        const auto at = fByNumber.find(fCells[i]);
        return at == fByNumber.end() ? -1.0 : at->second;
    }

    std::string Shown(std::size_t i) const {
        if (fpColumn->fText) return std::string(fpTable->Pool(fVariable).Text(fCodes[i]));
        char text[32];
        std::snprintf(text, sizeof text, "%.10g", fCells[i]);
        return text;
    }

private:
    void AddCategory(const std::string& text, int code) {
        double number = 0.0;
        if (fpColumn->fText) {
            const std::uint32_t found = fpTable->Pool(fVariable).Find(text);
            if (found != host::StringPool::kAbsent) fByText[found] = code;
        } else if (host::ReadNumber(text, false, number) == host::NumberReading::kNumber) {
            fByNumber[number] = code;
        }
    }

    const host::Table* fpTable;
    const engine::StoredModel::Column* fpColumn;
    int fVariable;
    bool fChanged = false;
    std::unordered_map<std::uint32_t, int> fByText;
    std::unordered_map<double, int> fByNumber;
    std::vector<std::uint32_t> fCodes;
    std::vector<double> fCells;
};

/// What rows met that were predicted together.
struct Met {
    Misfits fGrave;
    Misfits fLight;
    bool fPredicted = false;

    void Add(const Met& other) {
        fGrave.Add(other.fGrave);
        fLight.Add(other.fLight);
        fPredicted = fPredicted || other.fPredicted;
    }
};

using Sources = std::deque<Source>;

/// Predicts rows of the block that the sources hold, for one thread.
class RowPredictor {
public:
    RowPredictor(const engine::StoredModel& model, const Sources& sources, const Sources& splits,
                 std::deque<host::SavedColumn>& columns)
        : fSources(sources),
          fSplits(splits),
          fColumns(columns),
          fFixed(model.MakeScorer(Types(false))),
          fWhole(model.MakeScorer(Types(true))),
          fRecord(sources.size()) {}

    const Met& What() const { return fMet; }

    /// i: the row's place in the block.
    void Predict(std::uint64_t row, std::size_t i) {
        bool fixed = IsOfSplit(i);
        bool random = fixed;
        for (std::size_t c = 0; c < fSources.size(); ++c) {
            const engine::StoredModel::Column& column = fSources[c].Column();
            fRecord[c] = column.fCategorical ? -1.0 : 0.0;
            if (!column.fFixed && !column.fRandom && !column.fSubject) continue;
            const bool usable = Fetch(fSources[c], i, &fRecord[c]);
            if (!usable && column.fFixed) fixed = random = false;
            if (!usable && column.fRandom) random = false;
        }
        if (!fixed) return;
        fMet.fPredicted = true;
        if (random && !fWhole.KnowsSubjects(fRecord.data()))
            fMet.fLight.Count(
                "the subject is one that the model has not seen; the population's prediction stands there");
        (random ? fWhole : fFixed).Score(fRecord.data(), fScores, nullptr);
        for (std::size_t k = 0; k < fScores.size(); ++k)
            fColumns[k].Set(row, MCMV::IsMissing(fScores[k]) ? kNaN : fScores[k]);
    }

private:
    static std::vector<ScoreType> Types(bool whole) {
        std::vector<ScoreType> types;
        for (const Prediction& prediction : kPredictions) {
            if (whole || !prediction.fWhole) types.push_back(prediction.fType);
        }
        return types;
    }

    bool IsOfSplit(std::size_t i) {
        for (const Source& source : fSplits) {
            if (source.Value(i) == 0.0) continue;
            fMet.fGrave.Count("the split is not the model's, " + source.Column().fName + " = " +
                              source.Column().fCategories.front() + "; the prediction is missing");
            return false;
        }
        return true;
    }

    /// False, with the reason counted, when the row has no value that the model can use.
    bool Fetch(const Source& source, std::size_t i, double* value) {
        const engine::StoredModel::Column& column = source.Column();
        const bool subjectOnly = !column.fFixed && !column.fRandom;
        if (source.IsReadable() && !source.IsMissing(i)) {
            *value = source.Value(i);
            if (!column.fCategorical || *value >= 0.0 || subjectOnly) return true;
        }
        const std::string name = "\"" + column.fName + "\"";
        const std::string outcome =
            subjectOnly ? "the population's prediction stands there" : "the prediction is missing";
        if (source.IsAbsent()) {
            fMet.fGrave.Count("the column " + name + " is not there; " + outcome);
        } else if (source.IsChanged()) {
            fMet.fGrave.Count("the column " + name + " has " + (column.fText ? "numbers" : "texts") +
                              " where the model has " + (column.fText ? "texts" : "numbers") + "; " + outcome);
        } else if (source.IsMissing(i)) {
            fMet.fLight.Count("the value of " + name + " is missing; " + outcome);
        } else {
            fMet.fGrave.Count("the category of " + name + " is one that the model has not seen; " + outcome,
                              source.Shown(i));
        }
        return false;
    }

    const Sources& fSources;
    const Sources& fSplits;
    std::deque<host::SavedColumn>& fColumns;
    engine::Scorer fFixed, fWhole;
    std::vector<double> fRecord;
    std::vector<double> fScores;
    Met fMet;
};

}  // namespace

class Predictor::Walk {
public:
    Walk(const engine::StoredModel& model, const host::Table& table, int threads)
        : fModel(model), fTable(table), fCrew(threads) {
        for (const engine::StoredModel::Column& column : model.Columns())
            fSources.emplace_back(table, column);
        for (const auto& [name, value] : model.Split()) {
            const int variable = table.Find(name);
            const bool text = variable >= 0 && table.GetVariable(variable).IsText();
            fSplitColumns.push_back({{name, text, {value}, true}, false, false, false});
        }
        for (const engine::StoredModel::Column& column : fSplitColumns) {
            if (table.Find(column.fName) >= 0) fSplits.emplace_back(table, column);
        }
        for (std::size_t k = 0; k < kPredictions.size(); ++k)
            fColumns.emplace_back(table.InputRowCount(), host::ScratchPlace());
    }

    /// What the rows met doesn't depend on the number of threads.
    void Run() {
        const std::uint64_t rows = fTable.RowCount();
        for (std::uint64_t first = 0; first < rows; first += fTable.BlockRows()) {
            const std::size_t count = std::min<std::uint64_t>(fTable.BlockRows(), rows - first);
            for (Sources* sources : {&fSources, &fSplits}) {
                for (Source& source : *sources)
                    source.ReadBlock(first, count);
            }
            std::vector<Met> parts((count + kRun - 1) / kRun);
            fCrew.Run(static_cast<int>(parts.size()), [&](int part) {
                RowPredictor predictor(fModel, fSources, fSplits, fColumns);
                for (std::size_t i = part * kRun; i < std::min(count, (part + 1) * kRun); ++i)
                    predictor.Predict(first + i, i);
                parts[part] = predictor.What();
            });
            for (const Met& part : parts)
                fMet.Add(part);
            fTable.ForgetBlock(first);
        }
    }

    const Met& What() const { return fMet; }

    std::vector<host::AddedColumn> Columns() const {
        std::vector<host::AddedColumn> columns;
        for (std::size_t k = 0; k < kPredictions.size(); ++k)
            columns.push_back({FreeName(kPredictions[k].fName), fColumns[k].Cells(), nullptr});
        return columns;
    }
    std::string Problem() const {
        for (const host::SavedColumn& column : fColumns) {
            if (!column.Error().empty()) return column.Error();
        }
        return {};
    }

private:
    static constexpr std::size_t kRun = 8192;  // rows that a thread takes at once

    /// "PRED_2" when the data have a "PRED_1".
    std::string FreeName(std::string name) const {
        for (int number = 2; fTable.Find(name) >= 0; ++number)
            name = name.substr(0, name.rfind('_') + 1) + std::to_string(number);
        return name;
    }

    const engine::StoredModel& fModel;
    const host::Table& fTable;
    engine::Workers fCrew;
    Sources fSources;
    std::deque<engine::StoredModel::Column> fSplitColumns;
    Sources fSplits;
    std::deque<host::SavedColumn> fColumns;
    Met fMet;
};

Predictor::Predictor(const engine::StoredModel& model, const host::Table& table, int threads)
    : fpWalk(std::make_unique<Walk>(model, table, threads)) {}

Predictor::~Predictor() = default;

void Predictor::Run() {
    fpWalk->Run();
}

const Misfits& Predictor::Grave() const {
    return fpWalk->What().fGrave;
}

const Misfits& Predictor::Light() const {
    return fpWalk->What().fLight;
}

bool Predictor::PredictedAny() const {
    return fpWalk->What().fPredicted;
}

std::vector<host::AddedColumn> Predictor::Columns() const {
    return fpWalk->Columns();
}

std::string Predictor::Problem() const {
    return fpWalk->Problem();
}

}  // namespace app
