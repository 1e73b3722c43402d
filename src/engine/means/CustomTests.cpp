#include "engine/means/CustomTests.h"

#include "engine/lmm/Distributions.h"
#include "engine/model/EffectDesign.h"

#include <algorithm>

namespace engine {

namespace {

/// A stretch of the model's columns that takes coefficients: of a fixed effect, or of a random one for all subjects.
struct Stretch {
    int fBlock = -1;  // -1: fixed
    int fOffset = 0;  // among the columns of the fixed effects, or of one subject
    int fColumns = 0;
};

void AddStretches(const std::vector<ModelEffect>& effects, const ModelSpec& spec, int block, bool allColumns,
                  std::vector<Stretch>& stretches) {
    const EffectDesign design(effects, spec.fLevels);
    if (allColumns) {
        stretches.push_back({block, 0, design.NumColumns()});
        return;
    }
    for (int e = 0; e < design.NumEffects(); ++e)
        stretches.push_back({block, design.Offset(e), design.Columns(e)});
}

class TestRunner {
public:
    /// spec: of the columns that the coefficients stand for. model: what makes the fit's of them; null: they are.
    TestRunner(const FitResult& fit, const ModelSpec& spec, const WorkingModel* model, const run::CustomTest& test)
        : fFit(fit), fpModel(model), fTest(test), fSubjects(spec.fRandom.size()) {
        AddStretches(spec.FixedEffects(), spec, -1, test.fAllColumns, fFixed);
        for (std::size_t b = 0; b < spec.fRandom.size(); ++b)
            AddStretches(spec.fRandom[b].fEffects, spec, static_cast<int>(b), test.fAllColumns, fRandom);
    }

    CustomTestResult Run() {
        for (std::size_t r = 0; r < fTest.fvRows.size(); ++r) {
            const double value = r < fTest.fvK.size() ? fTest.fvK[r] : 0.0;
            MixedRow row;
            const bool fits = Fill(fTest.fvRows[r], row);
            std::vector<WorkingModel::CategoryRow> rows =
                fits && fpModel ? fpModel->CategoryRows(row)
                                : std::vector<WorkingModel::CategoryRow>{{-1, std::move(row)}};
            for (auto& [target, combination] : rows) {
                NumberSubjects(combination);
                Add({static_cast<int>(r), target, value, {}}, fits, combination);
            }
        }
        fResult.fJoint.fEstimable = !fEstimable.empty();
        if (!fEstimable.empty())
            fResult.fJoint = fFit.Test(fEstimable, Eigen::Map<const Eigen::VectorXd>(
                                                       fValues.data(), static_cast<Eigen::Index>(fValues.size())));
        return std::move(fResult);
    }

private:
    void Add(CustomTestResult::Row row, bool fits, const MixedRow& combination) {
        row.fResult.fEstimable = false;
        if (fits) row.fResult = fFit.Contrast(combination);
        if (row.fResult.fEstimable) {
            row.fResult.fT = (row.fResult.fEstimate - row.fHypothesised) / row.fResult.fStdError;
            row.fResult.fP = TwoSidedT(row.fResult.fT, row.fResult.fDf);
            fEstimable.push_back(combination);
            fValues.push_back(row.fHypothesised);
        }
        fResult.fRows.push_back(row);
    }

    bool Fill(const std::vector<double>& values, MixedRow& row) {
        std::size_t next = 0;
        return FillPart(fFixed, fTest.fvFixedCounts, values, next, row) &&
               FillPart(fRandom, fTest.fvRandomCounts, values, next, row);
    }

    bool FillPart(const std::vector<Stretch>& stretches, const std::vector<int>& counts,
                  const std::vector<double>& values, std::size_t& next, MixedRow& row) {
        std::size_t s = 0;
        for (std::size_t part = 0; part < counts.size(); ++part) {
            if (!fTest.fAllColumns) s = part;
            int index = 0;
            for (int i = 0; i < counts[part]; ++i, ++index) {
                while (fTest.fAllColumns && s < stretches.size() && index >= Size(stretches[s])) {
                    index = 0;
                    ++s;
                }
                if (s >= stretches.size() || index >= Size(stretches[s])) return TooMany(counts[part], part, stretches);
                if (next >= values.size()) return true;
                Put(stretches[s], index, values[next++], row);
            }
        }
        return true;
    }

    void Put(const Stretch& stretch, int index, double value, MixedRow& row) {
        const int column = stretch.fOffset + index % stretch.fColumns;
        if (stretch.fBlock < 0) {
            row.fFixed.push_back({column, value});
        } else if (value != 0.0) {
            row.fRandom.push_back({stretch.fBlock, index / stretch.fColumns, column, value});
        }
    }

    /// From places among a block's sorted subjects to the numbers that the fit knows them by. Blocks of further
    /// categories have the subjects of the model's own.
    void NumberSubjects(MixedRow& row) {
        for (MixedRow::RandomTerm& term : row.fRandom) {
            const int own = term.fBlock % static_cast<int>(fSubjects.size());
            term.fSubject = fFit.FindSubject(term.fBlock, Subjects(own)[term.fSubject].fSubject);
        }
    }

    int Size(const Stretch& stretch) {
        return stretch.fBlock < 0 ? stretch.fColumns
                                  : stretch.fColumns * static_cast<int>(Subjects(stretch.fBlock).size());
    }

    const std::vector<SubjectPrediction>& Subjects(int block) {
        std::vector<SubjectPrediction>& subjects = fSubjects[block];
        if (subjects.empty()) {
            subjects = fFit.Predictions(block);
            std::stable_sort(subjects.begin(), subjects.end(),
                             [](const auto& a, const auto& b) { return a.fSubject < b.fSubject; });
        }
        return subjects;
    }

    bool TooMany(int given, std::size_t part, const std::vector<Stretch>& stretches) {
        int size = 0;
        for (std::size_t s = 0; s < stretches.size(); ++s)
            size += fTest.fAllColumns || s == part ? Size(stretches[s]) : 0;
        const bool random = &stretches == &fRandom;
        fResult.fProblem =
            std::to_string(given) + " coefficients are given for the " + std::to_string(size) + " columns of " +
            (fTest.fAllColumns ? std::string(random ? "all random effects" : "all fixed effects")
                               : (random ? "random effect " : "fixed effect ") + std::to_string(part + 1));
        return false;
    }

    const FitResult& fFit;
    const WorkingModel* const fpModel;
    const run::CustomTest& fTest;
    std::vector<Stretch> fFixed;
    std::vector<Stretch> fRandom;
    std::vector<std::vector<SubjectPrediction>> fSubjects;  // per random block, when they are needed
    std::vector<MixedRow> fEstimable;
    std::vector<double> fValues;  // hypothesised, of the estimable rows
    CustomTestResult fResult;
};

}  // namespace

CustomTestResult RunCustomTest(const FitResult& fit, const ModelSpec& spec, const run::CustomTest& test,
                               const WorkingModel* multinomial) {
    if (multinomial && test.fAllColumns) return TestRunner(fit, multinomial->Spec(), nullptr, test).Run();
    return TestRunner(fit, spec, multinomial, test).Run();
}

}  // namespace engine
