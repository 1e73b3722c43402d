#include "engine/seam/Scorer.h"

#include "contracts/EngineStatus.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/MixedContrasts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace engine {

namespace {

/// The two predictions of a record, each made once and only if a score asks for it.
class RecordPredictions {
public:
    /// errors: whether standard errors or degrees of freedom are wanted too.
    RecordPredictions(const ScoreSource& source, const double* record, bool errors)
        : fSource(source), fRecord(record), fErrors(errors) {}

    const TargetPrediction& Fixed() { return Made(fFixed, false); }
    const TargetPrediction& Whole() { return Made(fWhole, true); }
    double Residual() {
        if (fSource.fGeneralized) return fSource.fGeneralized->Residual(fRecord, Whole());
        return fRecord[fSource.fSpec.fDependent] - Whole().fValue;
    }

private:
    const TargetPrediction& Made(std::optional<TargetPrediction>& slot, bool whole) {
        if (!slot)
            slot = fSource.fGeneralized ? fSource.fGeneralized->Predict(fSource.fFit, fRecord, whole) : Linear(whole);
        return *slot;
    }
    TargetPrediction Linear(bool whole) const {
        const FitResult& fit = fSource.fFit;
        const ModelSpec& spec = fSource.fSpec;
        const double offset = spec.fOffset >= 0 ? fRecord[spec.fOffset] : spec.fOffsetValue;
        if (!fErrors) return {Estimate(whole) + offset, kMissing, kMissing, {}};
        const ContrastResult sum = whole ? fit.Contrast(fit.RecordRow(fRecord)) : fit.Contrast(fit.FixedRow(fRecord));
        return {sum.fEstimate + offset, sum.fStdError, sum.fDf, {}};
    }

    /// The estimate that a contrast has, without its error.
    double Estimate(bool whole) const {
        const FittedModel& model = *fSource.fFit.fModel;
        const MixedRow row = whole ? fSource.fFit.RecordRow(fRecord) : MixedRow{fSource.fFit.FixedRow(fRecord), {}};
        if (!fSource.fFit.IsEstimable(row.fFixed)) return kMissing;
        Eigen::MatrixXd kept = row.fFixed(model.Basis().Kept());
        const double fixed = kept.col(0).dot(model.fInference->Beta());
        return row.fRandom.empty() ? fixed : fixed + model.Mixed().Source().Combine(kept, {row}, false).fRandom[0];
    }

    const ScoreSource& fSource;
    const double* fRecord;
    bool fErrors;
    std::optional<TargetPrediction> fFixed;
    std::optional<TargetPrediction> fWhole;
};

struct ScoreRule {
    ScoreType fType;
    bool fError;
    double (*fScore)(RecordPredictions&);
};

constexpr std::array<ScoreRule, 7> kScoreRules{{
    {10, false, [](RecordPredictions& p) { return p.Fixed().fValue; }},
    {0, false, [](RecordPredictions& p) { return p.Whole().fValue; }},
    {6, false, [](RecordPredictions& p) { return p.Residual(); }},
    {11, true, [](RecordPredictions& p) { return p.Fixed().fStdError; }},
    {1, true, [](RecordPredictions& p) { return p.Whole().fStdError; }},
    {19, true, [](RecordPredictions& p) { return p.Fixed().fDf; }},
    {9, true, [](RecordPredictions& p) { return p.Whole().fDf; }},
}};

}  // namespace

std::vector<double> ScoreRecord(const ScoreSource& source, const std::vector<ScoreType>& types, const double* record,
                                std::vector<std::vector<double>>* probabilities) {
    const bool errors = std::any_of(kScoreRules.begin(), kScoreRules.end(), [&types](const ScoreRule& rule) {
        return rule.fError && std::find(types.begin(), types.end(), rule.fType) != types.end();
    });
    RecordPredictions predictions(source, record, errors);
    std::vector<double> scores;
    scores.reserve(types.size());
    for (ScoreType type : types) {
        double score = std::nan("");
        for (const ScoreRule& rule : kScoreRules) {
            if (rule.fType == type) score = rule.fScore(predictions);
        }
        scores.push_back(std::isnan(score) ? MCMV::Missing() : score);
    }
    if (probabilities && source.fGeneralized && !predictions.Whole().fProbabilities.empty()) {
        probabilities->push_back(predictions.Whole().fProbabilities);
    }
    return scores;
}

}  // namespace engine
