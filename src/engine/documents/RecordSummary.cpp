#include "engine/documents/RecordSummary.h"

#include "engine/glmm/TargetValues.h"
#include "engine/model/EffectDesign.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <unordered_map>

namespace engine {

namespace {

constexpr int kMostBins = 30;
constexpr int kPairBins = 25;
constexpr std::size_t kMostFirstRecords = 10;

/// Equal bins over a range; a range of one point is one bin.
class Bins {
public:
    Bins(double low, double high, int count)
        : fLow(low), fWidth(high > low ? (high - low) / count : 0.0), fCount(fWidth > 0.0 ? count : 1) {}
    int Count() const { return fCount; }
    int Of(double value) const {
        return fWidth > 0.0 ? std::clamp(static_cast<int>((value - fLow) / fWidth), 0, fCount - 1) : 0;
    }
    double Centre(int bin) const { return fWidth > 0.0 ? fLow + (bin + 0.5) * fWidth : fLow; }

private:
    double fLow;
    double fWidth;
    int fCount;
};

/// Number of bins by the rule of Sturges (1926), J. American Statistical Association 21, 65-66, doubled since targets
/// are rarely normal.
int HistogramBins(double records) {
    return std::clamp(2 * static_cast<int>(std::ceil(std::log2(records + 1.0))), 1, kMostBins);
}

double Frequency(const ModelSpec& spec, const double* row) {
    return spec.fFrequencyWeight < 0 ? 1.0 : std::floor(row[spec.fFrequencyWeight] + 0.5);
}

/// Predictions of one block by subject, found by the subject's codes.
class BlockPredictions {
public:
    BlockPredictions(const FitResult& fit, const RandomBlock& block, const ModelSpec& spec, int index)
        : fSubjects(block.fSubjects), fDesign(block.fEffects, spec.fLevels), fHits(fDesign.NumEffects()) {
        for (SubjectPrediction& prediction : fit.Predictions(index)) {
            fPredictions.emplace(Key(prediction.fSubject), std::move(prediction.fEstimate));
        }
    }

    double Of(const double* row) {
        if (!IsLast(row)) Look(row);
        if (!fpLast) return 0.0;
        fDesign.PlainHits(row, fHits.data());
        double sum = 0.0;
        for (const ColumnHit& hit : fHits)
            sum += hit.fValue * (*fpLast)[hit.fColumn];
        return sum;
    }

private:
    /// Records stand sorted by subject, so that a record's subject is mostly that of the one before.
    bool IsLast(const double* row) const {
        if (!fLooked) return false;
        for (std::size_t i = 0; i < fSubjects.size(); ++i) {
            if (static_cast<int>(row[fSubjects[i]]) != fLastCodes[i]) return false;
        }
        return true;
    }

    void Look(const double* row) {
        fLastCodes.clear();
        for (int subject : fSubjects)
            fLastCodes.push_back(static_cast<int>(row[subject]));
        const auto found = fPredictions.find(Key(fLastCodes));
        fpLast = found == fPredictions.end() ? nullptr : &found->second;
        fLooked = true;
    }

    static std::string Key(const std::vector<int>& codes) {
        return std::string(reinterpret_cast<const char*>(codes.data()), codes.size() * sizeof(int));
    }

    std::vector<int> fSubjects;
    EffectDesign fDesign;
    std::vector<ColumnHit> fHits;
    std::unordered_map<std::string, Eigen::VectorXd> fPredictions;
    std::vector<int> fLastCodes;
    const Eigen::VectorXd* fpLast = nullptr;
    bool fLooked = false;
};

void CountCategories(const TargetSpec& target, const ModelSpec& spec, const RecordView& view, RecordSummary& summary) {
    summary.fFrequency.assign(target.fCategories, 0.0);
    for (std::size_t i = 0; i < view.fCount; ++i)
        summary.fFrequency[static_cast<std::size_t>(view.Row(i)[spec.fDependent])] += Frequency(spec, view.Row(i));
    for (int code = 0; code < target.fCategories; ++code)
        summary.fObserved.push_back(target.ValueOfCategory(code));
}

void CountBins(const ModelSpec& spec, const RecordView& view, double low, double high, RecordSummary& summary) {
    const Bins bins(low, high, HistogramBins(summary.fTotalFrequency));
    summary.fFrequency.assign(bins.Count(), 0.0);
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* row = view.Row(i);
        summary.fFrequency[bins.Of(row[spec.fDependent])] += Frequency(spec, row);
    }
    for (int b = 0; b < bins.Count(); ++b)
        summary.fObserved.push_back(bins.Centre(b));
}

bool HasCategories(const TargetSpec* target) {
    return target && target->fCategories > 0;
}

void SummariseTarget(const ModelSpec& spec, const TargetSpec* target, const RecordView& view, RecordSummary& summary) {
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    double mean = 0.0;
    double squares = 0.0;
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* row = view.Row(i);
        const double observed = row[spec.fDependent];
        const double y = HasCategories(target) ? target->ValueOfCategory(static_cast<int>(observed)) : observed;
        const double weight = Frequency(spec, row);
        low = std::min(low, y);
        high = std::max(high, y);
        // Running mean and sum of squares: Welford (1962), Technometrics 4, 419-420, with weights.
        summary.fTotalFrequency += weight;
        const double step = y - mean;
        mean += step * weight / summary.fTotalFrequency;
        squares += weight * step * (y - mean);
    }
    if (view.fCount == 0) return;
    summary.fMean = mean;
    summary.fDeviation =
        summary.fTotalFrequency > 1.0 ? std::sqrt(squares / (summary.fTotalFrequency - 1.0)) : kMissing;
    if (HasCategories(target))
        CountCategories(*target, spec, view, summary);
    else
        CountBins(spec, view, low, high, summary);
}

void SummarisePairs(const ModelSpec& spec, const RecordView& view, const FittedRecord& fitted, RecordSummary& summary) {
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double y = view.Row(i)[spec.fDependent];
        const double prediction = fitted(i);
        low = std::min({low, y, prediction});
        high = std::max({high, y, prediction});
    }
    const Bins bins(low, high, kPairBins);
    std::map<std::pair<int, int>, double> counts;
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* row = view.Row(i);
        counts[{bins.Of(row[spec.fDependent]), bins.Of(fitted(i))}] += Frequency(spec, row);
    }
    for (const auto& [pair, count] : counts) {
        summary.fPairObserved.push_back(bins.Centre(pair.first));
        summary.fPairPredicted.push_back(bins.Centre(pair.second));
        summary.fPairFrequency.push_back(count);
    }
}

/// Of two categories, and of events, the fitted value is the probability of the second.
void Classify(const ModelSpec& spec, const TargetSpec& target, const RecordView& view, const FittedRecord& fitted,
              RecordSummary& summary) {
    const bool events = target.HasTrials();
    if (!events && target.fCategories == 0) return;
    const bool several = target.fDistribution != run::Distribution::kBinomial;
    const std::size_t count = events ? 2 : static_cast<std::size_t>(target.fCategories);
    const TargetValues values(target, spec);
    summary.fClassified.assign(count, std::vector<double>(count, 0.0));
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* row = view.Row(i);
        const double weight = Frequency(spec, row);
        const double share = events ? fitted(i) / values.Trials(row) : fitted(i);
        const auto predicted = several ? static_cast<std::size_t>(share) : static_cast<std::size_t>(share > 0.5);
        if (events) {
            const double y = row[spec.fDependent];
            summary.fClassified[0][predicted] += weight * (values.Trials(row) - y);
            summary.fClassified[1][predicted] += weight * y;
        } else {
            summary.fClassified[static_cast<std::size_t>(row[spec.fDependent])][predicted] += weight;
        }
    }
}

}  // namespace

FittedRecord LinearPredictor(const FitResult& fit, const ModelSpec& spec, const RecordView& view) {
    struct State {
        EffectDesign fDesign;
        std::vector<ColumnHit> fHits;
        std::vector<BlockPredictions> fBlocks;
    };
    auto state = std::make_shared<State>();
    state->fDesign = EffectDesign(spec.FixedEffects(), spec.fLevels);
    state->fHits.resize(state->fDesign.NumEffects());
    for (std::size_t b = 0; b < spec.fRandom.size(); ++b)
        state->fBlocks.emplace_back(fit, spec.fRandom[b], spec, static_cast<int>(b));
    return [state, &fit, &spec, view](std::size_t i) {
        const double* row = view.Row(i);
        double eta = spec.fOffset >= 0 ? row[spec.fOffset] : spec.fOffsetValue;
        state->fDesign.PlainHits(row, state->fHits.data());
        for (const ColumnHit& hit : state->fHits)
            eta += hit.fValue * fit.fFixed[hit.fColumn].fEstimate;
        for (BlockPredictions& block : state->fBlocks)
            eta += block.Of(row);
        return eta;
    };
}

RecordSummary SummariseRecords(const FitResult& fit, const ModelSpec& spec, const TargetSpec* target,
                               const RecordView& view, const FittedRecord& fitted) {
    RecordSummary summary;
    SummariseTarget(spec, target, view, summary);
    if (view.fCount > 0 && !HasCategories(target)) SummarisePairs(spec, view, fitted, summary);
    if (target) Classify(spec, *target, view, fitted, summary);
    summary.fFirstSubjectTotal = static_cast<int>(fit.fFirstSubject.size());
    for (std::size_t i = 0; i < std::min(kMostFirstRecords, fit.fFirstSubject.size()); ++i) {
        const double* row = view.Row(fit.fFirstSubject[i]);
        summary.fFirstSubject.emplace_back(row, row + view.fStride);
    }
    return summary;
}

}  // namespace engine
