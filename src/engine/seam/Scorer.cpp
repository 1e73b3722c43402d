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
    RecordPredictions(const FitResult& fit, const ModelSpec& spec, const double* record)
        : fFit(fit), fRecord(record), fOffset(spec.fOffset >= 0 ? record[spec.fOffset] : spec.fOffsetValue) {
        fTarget = record[spec.fDependent];
    }

    const ContrastResult& Fixed() {
        if (!fFixed) fFixed = fFit.Contrast(fFit.FixedRow(fRecord));
        return *fFixed;
    }
    const ContrastResult& Whole() {
        if (!fWhole) fWhole = fFit.Contrast(fFit.RecordRow(fRecord));
        return *fWhole;
    }
    double Offset() const { return fOffset; }
    double Target() const { return fTarget; }

private:
    const FitResult& fFit;
    const double* fRecord;
    double fOffset;
    double fTarget = 0.0;
    std::optional<ContrastResult> fFixed;
    std::optional<ContrastResult> fWhole;
};

struct ScoreRule {
    ScoreType fType;
    double (*fScore)(RecordPredictions&);
};

constexpr std::array<ScoreRule, 7> kScoreRules{{
    {10, [](RecordPredictions& p) { return p.Fixed().fEstimate + p.Offset(); }},
    {0, [](RecordPredictions& p) { return p.Whole().fEstimate + p.Offset(); }},
    {6, [](RecordPredictions& p) { return p.Target() - p.Whole().fEstimate - p.Offset(); }},
    {11, [](RecordPredictions& p) { return p.Fixed().fStdError; }},
    {1, [](RecordPredictions& p) { return p.Whole().fStdError; }},
    {19, [](RecordPredictions& p) { return p.Fixed().fDf; }},
    {9, [](RecordPredictions& p) { return p.Whole().fDf; }},
}};

}  // namespace

std::vector<double> ScoreRecord(const FitResult& fit, const ModelSpec& spec, const std::vector<ScoreType>& types,
                                const double* record) {
    RecordPredictions predictions(fit, spec, record);
    std::vector<double> scores;
    scores.reserve(types.size());
    for (ScoreType type : types) {
        double score = std::nan("");
        for (const ScoreRule& rule : kScoreRules) {
            if (rule.fType == type) score = rule.fScore(predictions);
        }
        scores.push_back(std::isnan(score) ? MCMV::Missing() : score);
    }
    return scores;
}

}  // namespace engine
