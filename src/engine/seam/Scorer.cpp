#include "engine/seam/Scorer.h"

#include "contracts/EngineStatus.h"

#include <cmath>
#include <optional>

namespace engine {

/// The two predictions of a record, each made once and only if a score asks for it.
class Scorer::Predictions {
public:
    Predictions(Scorer& scorer, const double* record) : fScorer(scorer), fRecord(record) {}

    const TargetPrediction& Fixed() { return Made(fFixed, false); }
    const TargetPrediction& Whole() { return Made(fWhole, true); }
    double Residual() {
        const ScoreSource& source = fScorer.fSource;
        if (source.fGeneralized) return source.fGeneralized->Residual(fRecord, Whole());
        return fRecord[source.fSpec.fDependent] - Whole().fValue;
    }

private:
    const TargetPrediction& Made(std::optional<TargetPrediction>& slot, bool whole) {
        if (!slot) slot = fScorer.Predict(fRecord, whole);
        return *slot;
    }

    Scorer& fScorer;
    const double* fRecord;
    std::optional<TargetPrediction> fFixed;
    std::optional<TargetPrediction> fWhole;
};

Scorer::Scorer(const ScoreSource& source, const std::vector<ScoreType>& types)
    : fSource(source), fEstimator(*source.fFit.fModel) {
    struct Known {
        ScoreType fType;
        bool fError;
        Rule fRule;
    };
    static constexpr Known kKnown[] = {
        {10, false, [](Predictions& p) { return p.Fixed().fValue; }},
        {0, false, [](Predictions& p) { return p.Whole().fValue; }},
        {6, false, [](Predictions& p) { return p.Residual(); }},
        {11, true, [](Predictions& p) { return p.Fixed().fStdError; }},
        {1, true, [](Predictions& p) { return p.Whole().fStdError; }},
        {19, true, [](Predictions& p) { return p.Fixed().fDf; }},
        {9, true, [](Predictions& p) { return p.Whole().fDf; }},
    };
    for (const ScoreType type : types) {
        fRules.push_back(nullptr);
        for (const Known& known : kKnown) {
            if (known.fType != type) continue;
            fRules.back() = known.fRule;
            fErrors = fErrors || known.fError;
        }
    }
}

TargetPrediction Scorer::Predict(const double* record, bool whole) {
    if (fSource.fGeneralized) return fSource.fGeneralized->Predict(fEstimator, record, whole, fErrors);
    const ModelSpec& spec = fSource.fSpec;
    const double offset = spec.fOffset >= 0 ? record[spec.fOffset] : spec.fOffsetValue;
    const int blocks = whole ? static_cast<int>(spec.fRandom.size()) : 0;
    const Estimated sum = fEstimator.Estimate(fEstimator.RowOf(record, blocks), fErrors);
    return {sum.fEstimate + offset, sum.fStdError, sum.fDf, {}};
}

void Scorer::Score(const double* record, std::vector<double>& scores, std::vector<std::vector<double>>* probabilities) {
    Predictions predictions(*this, record);
    scores.clear();
    for (const Rule rule : fRules) {
        const double score = rule ? rule(predictions) : std::nan("");
        scores.push_back(std::isnan(score) ? MCMV::Missing() : score);
    }
    if (probabilities && fSource.fGeneralized && !predictions.Whole().fProbabilities.empty())
        probabilities->push_back(predictions.Whole().fProbabilities);
}

}  // namespace engine
