#include "engine/glmm/LinearPredictor.h"

#include "engine/crossed/CrossedProblem.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/RandomEffects.h"

#include <algorithm>
#include <vector>

namespace engine {

namespace {

/// Finds, record after record of one common subject, where the record's random effects of a block stand.
class SlotFinder {
public:
    SlotFinder(const LmmProblem& problem, const RandomEffects::Subject& subject, int blocks)
        : fProblem(problem), fSubject(subject), fSlots(blocks), fLast(blocks, -1) {
        for (std::size_t s = 0; s < subject.fBlocks.size(); ++s) {
            if (subject.fBlocks[s] < blocks) fSlots[subject.fBlocks[s]].push_back(static_cast<int>(s));
        }
    }

    /// First column of the record's effects within the subject; -1 if there are none.
    int Column(int block, const double* record) {
        const std::vector<int>& inner = fProblem.Blocks()[block].fInner;
        const auto matches = [&](int slot) {
            const double* first = fProblem.View().Row(fSubject.fRecords[slot]);
            return std::all_of(inner.begin(), inner.end(), [&](int v) { return first[v] == record[v]; });
        };
        int& last = fLast[block];
        if (last >= 0 && matches(last)) return fSubject.fColumns[last];
        const auto found = std::find_if(fSlots[block].begin(), fSlots[block].end(), matches);
        last = found != fSlots[block].end() ? *found : -1;
        return last >= 0 ? fSubject.fColumns[last] : -1;
    }

private:
    const LmmProblem& fProblem;
    const RandomEffects::Subject& fSubject;
    std::vector<std::vector<int>> fSlots;  // per block
    std::vector<int> fLast;
};

void AddMarginal(const RepeatedFit& fit, const WorkingModel& model, Workers& crew, Eigen::VectorXd& eta) {
    const LmmProblem& problem = *fit.Model().fProblem;
    const int blocks = model.RandomBlocks();
    const int p = model.Predictors();
    const RandomEffects effects(problem, fit.Theta(), fit.Outcome().fAt);
    std::vector<EffectDesign> designs;
    for (int b = 0; b < blocks; ++b)
        designs.push_back(problem.Blocks()[b].fDesign);
    ForRuns(crew, problem.NumCommonSubjects(), [&](std::size_t first, std::size_t end) {
        std::vector<double> scratch;
        std::vector<ColumnHit> hits;
        for (std::size_t s = first; s < end; ++s) {
            const int subject = static_cast<int>(s);
            const RandomEffects::Subject& known = effects.Subjects()[s];
            SlotFinder finder(problem, known, blocks);
            for (std::size_t row = problem.SubjectBegin(subject); row < problem.SubjectEnd(subject); row += p) {
                const double* record = problem.View().Row(row);
                for (int b = 0; b < blocks; ++b) {
                    const int column = finder.Column(b, record);
                    if (column < 0) continue;
                    hits.resize(designs[b].NumEffects());
                    for (int k = 0; k < p; ++k) {
                        designs[b].PlainHits(model.PredictorRow(record, k, scratch), hits.data());
                        for (const ColumnHit& hit : hits)
                            eta[static_cast<Eigen::Index>(row) + k] +=
                                hit.fValue * known.fEstimate[column + hit.fColumn];
                    }
                }
            }
        }
    });
}

void AddCrossed(const RepeatedFit& fit, const WorkingModel& model, Workers& crew, Eigen::VectorXd& eta) {
    const CrossedProblem& problem = *fit.Model().fCrossed;
    const auto& likelihood = static_cast<const CrossedLikelihood&>(*fit.Model().fObjective);
    const CrossedEquations& equations = likelihood.At(fit.Theta(), ThetaScale::kReported);
    const std::vector<CrossedTerm>& terms = problem.Terms();
    std::vector<Eigen::MatrixXd> effects;
    for (std::size_t t = 0; t < terms.size(); ++t)
        effects.push_back(equations.Predictions(static_cast<int>(t)));
    const int p = model.Predictors();
    ForRuns(crew, model.Records(), [&](std::size_t first, std::size_t end) {
        std::vector<double> scratch;
        std::vector<ColumnHit> hits;
        for (std::size_t i = first; i < end; ++i) {
            const double* record = model.View().Row(i * p);
            for (std::size_t t = 0; t < terms.size(); ++t) {
                const CrossedTerm& term = terms[t];
                if (term.fBlock >= model.RandomBlocks()) continue;
                hits.resize(term.fDesign.NumEffects());
                for (int k = 0; k < p; ++k) {
                    term.fDesign.PlainHits(model.PredictorRow(record, k, scratch), hits.data());
                    long key = term.IsDivided() ? hits[0].fColumn : 0;
                    for (std::size_t v = 0; v < term.fVariables.size(); ++v)
                        key += term.fRadix[v] * static_cast<long>(record[term.fVariables[v]]);
                    const int subject = term.Find(key);
                    if (subject < 0) continue;
                    double& sum = eta[static_cast<Eigen::Index>(i * p) + k];
                    for (const ColumnHit& hit : hits)
                        sum += hit.fValue * effects[t](term.IsDivided() ? 0 : hit.fColumn, subject);
                }
            }
        }
    });
}

}  // namespace

Eigen::VectorXd AllCoefficients(const FixedBasis& basis, const Eigen::VectorXd& kept) {
    const Eigen::VectorXd original = basis.ToOriginal(kept);
    Eigen::VectorXd all = Eigen::VectorXd::Zero(basis.NumColumns());
    for (int k = 0; k < basis.Rank(); ++k)
        all[basis.Kept()[k]] = original[k];
    return all;
}

Eigen::VectorXd PredictFixed(const WorkingModel& model, const EffectDesign& design, const Eigen::VectorXd& coefficients,
                             Workers& crew) {
    const int p = model.Predictors();
    Eigen::VectorXd eta(static_cast<Eigen::Index>(model.View().fCount));
    ForRuns(crew, model.Records(), [&](std::size_t first, std::size_t end) {
        std::vector<double> scratch;
        std::vector<ColumnHit> hits(design.NumEffects());
        for (std::size_t i = first; i < end; ++i) {
            const double* record = model.View().Row(i * p);
            for (int k = 0; k < p; ++k) {
                design.PlainHits(model.PredictorRow(record, k, scratch), hits.data());
                double sum = model.Offset(record);
                for (const ColumnHit& hit : hits)
                    sum += hit.fValue * coefficients[hit.fColumn];
                eta[static_cast<Eigen::Index>(i * p) + k] = sum;
            }
        }
    });
    return eta;
}

Eigen::VectorXd PredictFrom(const RepeatedFit& fit, const WorkingModel& model, Workers& crew) {
    const FixedBasis& basis = fit.Model().Basis();
    Eigen::VectorXd eta = PredictFixed(model, basis.Design(), AllCoefficients(basis, fit.Outcome().fAt.fBeta), crew);
    if (model.RandomBlocks() == 0) return eta;
    fit.Model().IsCrossed() ? AddCrossed(fit, model, crew, eta) : AddMarginal(fit, model, crew, eta);
    return eta;
}

}  // namespace engine
