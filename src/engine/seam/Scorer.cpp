#include "engine/seam/Scorer.h"

#include "contracts/EngineStatus.h"

#include <array>
#include <cmath>
#include <optional>

namespace engine {

namespace {

/// The two predictions of a record, each made once and only if a score asks for it.
class RecordPredictions {
public:
    RecordPredictions(const ScoreSource& source, const double* record) : fSource(source), fRecord(record) {}

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
        const ContrastResult sum = whole ? fit.Contrast(fit.RecordRow(fRecord)) : fit.Contrast(fit.FixedRow(fRecord));
        const ModelSpec& spec = fSource.fSpec;
        const double offset = spec.fOffset >= 0 ? fRecord[spec.fOffset] : spec.fOffsetValue;
        return {sum.fEstimate + offset, sum.fStdError, sum.fDf, {}};
    }

    const ScoreSource& fSource;
    const double* fRecord;
    std::optional<TargetPrediction> fFixed;
    std::optional<TargetPrediction> fWhole;
};

struct ScoreRule {
    ScoreType fType;
    double (*fScore)(RecordPredictions&);
};

constexpr std::array<ScoreRule, 7> kScoreRules{{
    {10, [](RecordPredictions& p) { return p.Fixed().fValue; }},
    {0, [](RecordPredictions& p) { return p.Whole().fValue; }},
    {6, [](RecordPredictions& p) { return p.Residual(); }},
    {11, [](RecordPredictions& p) { return p.Fixed().fStdError; }},
    {1, [](RecordPredictions& p) { return p.Whole().fStdError; }},
    {19, [](RecordPredictions& p) { return p.Fixed().fDf; }},
    {9, [](RecordPredictions& p) { return p.Whole().fDf; }},
}};

}  // namespace

std::vector<double> ScoreRecord(const ScoreSource& source, const std::vector<ScoreType>& types, const double* record,
                                std::vector<std::vector<double>>* probabilities) {
    RecordPredictions predictions(source, record);
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
