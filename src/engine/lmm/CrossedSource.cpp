#include "engine/crossed/CrossedProblem.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/RandomSource.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace engine {

namespace {

class CrossedSource : public RandomSource {
public:
    explicit CrossedSource(const FittedModel& model)
        : fModel(model),
          fProblem(*model.fCrossed),
          fEquations(static_cast<const CrossedLikelihood&>(*model.fObjective).At(model.fTheta, ThetaScale::kReported)) {
        fEquations.Evaluate(model.fTheta, CrossedOrder::kGradient);
    }

    bool Knows(int block, const std::vector<int>& codes) const override {
        return fProblem.Coefficient(block, codes, 0) >= 0;
    }

    Combination Combine(const Eigen::MatrixXd& kept, const std::vector<MixedRow>& rows, bool slopes) const override {
        // Centred columns = original ones N^-1, so that l' b = (N^-T l)' b centred.
        const Eigen::MatrixXd centred =
            fModel.Basis().KeptTransform().transpose().triangularView<Eigen::Lower>().solve(kept);
        std::vector<CrossedEquations::Row> wanted(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i) {
            wanted[i].fFixed = centred.col(static_cast<Eigen::Index>(i));
            for (const MixedRow::RandomTerm& term : rows[i].fRandom) {
                const int at = fProblem.Coefficient(term.fBlock, term.fSubject, term.fColumn);
                if (at >= 0) wanted[i].fRandom.emplace_back(at, term.fCoefficient);
            }
        }
        const CrossedEquations::Combination combined = fEquations.Combine(wanted);
        Combination result;
        result.fRandom = combined.fEstimate - centred.transpose() * fEquations.FixedEffects();
        result.fCovariance = combined.fCovariance;
        if (slopes) result.fSlopes = combined.fDerivatives;
        return result;
    }

    std::vector<SubjectPrediction> Predictions(int block) const override {
        const std::vector<CrossedTerm>& terms = fProblem.Terms();
        const RandomBlock& spec = fModel.fSpec.fRandom[block];
        const EffectDesign design(spec.fEffects, fModel.fSpec.fLevels);
        std::map<std::vector<int>, SubjectPrediction> bySubject;
        for (std::size_t t = 0; t < terms.size(); ++t) {
            const CrossedTerm& term = terms[t];
            if (term.fBlock != block) continue;
            const int index = static_cast<int>(t);
            const Eigen::MatrixXd estimates = fEquations.Predictions(index);
            const Eigen::MatrixXd covariances = fEquations.PredictionCovariances(index);
            const Eigen::Index width = estimates.rows();
            for (Eigen::Index j = 0; j < estimates.cols(); ++j) {
                const double* record = fModel.fView.Row(term.fFirstRecords[j]);
                SubjectPrediction& prediction = Subject(bySubject, spec, design, record);
                Eigen::Index first = 0;
                if (term.IsDivided()) {
                    ColumnHit hit;
                    term.fDesign.PlainHits(record, &hit);
                    first = design.Offset(term.fEffect) + hit.fColumn;
                }
                for (Eigen::Index c = 0; c < width; ++c) {
                    prediction.fEstimate[first + c] = estimates(c, j);
                    prediction.fStdError[first + c] = std::sqrt(std::max(0.0, covariances(c, j * width + c)));
                }
            }
        }
        std::vector<SubjectPrediction> predictions;
        for (auto& [codes, prediction] : bySubject)
            predictions.push_back(std::move(prediction));
        return predictions;
    }

private:
    // The subject's entry; a new one has the prediction 0 of what no record touches, with all of its variance.
    SubjectPrediction& Subject(std::map<std::vector<int>, SubjectPrediction>& bySubject, const RandomBlock& spec,
                               const EffectDesign& design, const double* record) const {
        std::vector<int> codes;
        for (int variable : spec.fSubjects)
            codes.push_back(static_cast<int>(record[variable]));
        const auto [at, added] = bySubject.try_emplace(codes);
        if (!added) return at->second;
        SubjectPrediction& prediction = at->second;
        prediction.fSubject = codes;
        prediction.fGroup = spec.fGroup >= 0 ? static_cast<int>(record[spec.fGroup]) : -1;
        prediction.fEstimate.setZero(design.NumColumns());
        const int block = static_cast<int>(&spec - fModel.fSpec.fRandom.data());
        prediction.fStdError = fModel.RandomCovariance(block, prediction.fGroup).diagonal().cwiseSqrt();
        return prediction;
    }

    const FittedModel& fModel;
    const CrossedProblem& fProblem;
    CrossedEquations& fEquations;
};

}  // namespace

std::unique_ptr<RandomSource> MakeCrossedSource(const FittedModel& model) {
    return std::make_unique<CrossedSource>(model);
}

}  // namespace engine
