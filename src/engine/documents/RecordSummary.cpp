#include "engine/documents/RecordSummary.h"

#include "engine/glmm/TargetValues.h"
#include "engine/lmm/SubjectIndex.h"
#include "engine/model/EffectDesign.h"
#include "engine/model/Workers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

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
        : fVariables(block.fSubjects), fDesign(block.fEffects, spec.fLevels) {
        for (SubjectPrediction& prediction : fit.Predictions(index)) {
            fNumbers.Add(prediction.fSubject);
            fEstimates.push_back(std::move(prediction.fEstimate));
        }
    }

    /// The subject of the record before: records stand sorted by subject, so that it is mostly that of the next too.
    struct Last {
        std::vector<int> fCodes;
        const Eigen::VectorXd* fpEstimate = nullptr;
        std::vector<ColumnHit> fHits;
    };

    double Of(const double* row, Last& last) const {
        if (!IsSame(row, last)) Look(row, last);
        if (!last.fpEstimate) return 0.0;
        last.fHits.resize(fDesign.NumEffects());
        fDesign.PlainHits(row, last.fHits.data());
        double sum = 0.0;
        for (const ColumnHit& hit : last.fHits)
            sum += hit.fValue * (*last.fpEstimate)[hit.fColumn];
        return sum;
    }

private:
    bool IsSame(const double* row, const Last& last) const {
        if (!last.fpEstimate) return false;
        for (std::size_t i = 0; i < fVariables.size(); ++i) {
            if (static_cast<int>(row[fVariables[i]]) != last.fCodes[i]) return false;
        }
        return true;
    }

    void Look(const double* row, Last& last) const {
        last.fCodes.clear();
        for (int variable : fVariables)
            last.fCodes.push_back(static_cast<int>(row[variable]));
        const int number = fNumbers.Find(last.fCodes);
        last.fpEstimate = number < 0 ? nullptr : &fEstimates[number];
    }

    std::vector<int> fVariables;
    EffectDesign fDesign;
    SubjectIndex fNumbers;
    std::vector<Eigen::VectorXd> fEstimates;
};

/// Calls visit(part, record, fitted value) for all records, on all threads, each run of records with a part of its own.
/// The parts come in the records' order.
template <class Part, class Visit>
std::vector<Part> Gather(Workers& crew, const RecordView& view, const FittedRun& fitted, const Part& empty,
                         const Visit& visit) {
    constexpr std::size_t kRun = 1 << 16;
    constexpr std::size_t kSlice = 1 << 10;
    std::vector<Part> parts(view.fCount / kRun + 1, empty);
    crew.Run(static_cast<int>(parts.size()), [&](int run) {
        std::array<double, kSlice> values;
        const std::size_t end = std::min(view.fCount, (run + 1) * kRun);
        for (std::size_t first = run * kRun; first < end; first += kSlice) {
            const std::size_t count = std::min(kSlice, end - first);
            fitted(first, count, values.data());
            for (std::size_t i = 0; i < count; ++i)
                visit(parts[run], view.Row(first + i), values[i]);
        }
    });
    return parts;
}

struct Range {
    double fLow = std::numeric_limits<double>::infinity();
    double fHigh = -std::numeric_limits<double>::infinity();
    void Take(double value) {
        fLow = std::min(fLow, value);
        fHigh = std::max(fHigh, value);
    }
    void Join(const Range& other) {
        Take(other.fLow);
        Take(other.fHigh);
    }
};

/// Of the target, and the range that fitted values share with it.
struct Moments {
    Range fTarget, fPair;
    double fTotal = 0.0;
    double fMean = 0.0;
    double fSquares = 0.0;

    /// Running mean and sum of squares: Welford (1962), Technometrics 4, 419-420, with weights.
    void Take(double y, double weight) {
        fTarget.Take(y);
        fTotal += weight;
        const double step = y - fMean;
        fMean += step * weight / fTotal;
        fSquares += weight * step * (y - fMean);
    }
    /// Chan, Golub and LeVeque (1983), The American Statistician 37, 242-247, equation 2.1 in means.
    void Join(const Moments& other) {
        if (!(other.fTotal > 0.0)) return;
        fTarget.Join(other.fTarget);
        fPair.Join(other.fPair);
        const double total = fTotal + other.fTotal;
        const double step = other.fMean - fMean;
        fSquares += other.fSquares + step * step * (fTotal * other.fTotal / total);
        fMean += step * (other.fTotal / total);
        fTotal = total;
    }
};

/// Weights of records in the bins of the target, of the target by fitted values, and by category.
struct Counts {
    std::vector<double> fBins, fPairs, fClassified;
    void Join(const Counts& other) {
        Add(other.fBins, fBins);
        Add(other.fPairs, fPairs);
        Add(other.fClassified, fClassified);
    }

private:
    static void Add(const std::vector<double>& from, std::vector<double>& to) {
        for (std::size_t i = 0; i < from.size(); ++i)
            to[i] += from[i];
    }
};

template <class Part>
Part Joined(const std::vector<Part>& parts, const Part& empty) {
    Part whole = empty;
    for (const Part& part : parts)
        whole.Join(part);
    return whole;
}

bool HasCategories(const TargetSpec* target) {
    return target && target->fCategories > 0;
}

Moments TakeMoments(const ModelSpec& spec, const TargetSpec* target, const RecordView& view, const FittedRun& fitted,
                    Workers& crew) {
    return Joined(Gather(crew, view, fitted, Moments(),
                         [&](Moments& part, const double* row, double prediction) {
                             const double observed = row[spec.fDependent];
                             part.fPair.Take(observed);
                             part.fPair.Take(prediction);
                             part.Take(
                                 HasCategories(target) ? target->ValueOfCategory(static_cast<int>(observed)) : observed,
                                 Frequency(spec, row));
                         }),
                  Moments());
}

/// Categories that a record is classified by: of the target, or whether an event came of a trial; 0 for other targets.
std::size_t Classes(const TargetSpec* target) {
    if (!target) return 0;
    return target->HasTrials() ? 2 : static_cast<std::size_t>(target->fCategories);
}

/// Of two categories, and of events, the fitted value is the probability of the second.
class Classifier {
public:
    Classifier(const ModelSpec& spec, const TargetSpec& target)
        : fDependent(spec.fDependent),
          fEvents(target.HasTrials()),
          fSeveral(target.fDistribution != run::Distribution::kBinomial),
          fClasses(Classes(&target)),
          fValues(target, spec) {}

    void Take(const double* row, double fitted, double weight, std::vector<double>& classified) const {
        const double share = fEvents ? fitted / fValues.Trials(row) : fitted;
        const auto predicted = fSeveral ? static_cast<std::size_t>(share) : static_cast<std::size_t>(share > 0.5);
        const double y = row[fDependent];
        if (fEvents) {
            classified[predicted] += weight * (fValues.Trials(row) - y);
            classified[fClasses + predicted] += weight * y;
        } else {
            classified[static_cast<std::size_t>(y) * fClasses + predicted] += weight;
        }
    }

private:
    int fDependent;
    bool fEvents, fSeveral;
    std::size_t fClasses;
    TargetValues fValues;
};

/// The second reading, when the bins are known.
void CountRecords(const Moments& moments, const ModelSpec& spec, const TargetSpec* target, const RecordView& view,
                  const FittedRun& fitted, Workers& crew, RecordSummary& summary) {
    const bool categories = HasCategories(target);
    const Bins bins(moments.fTarget.fLow, moments.fTarget.fHigh, HistogramBins(moments.fTotal));
    const Bins pairs(moments.fPair.fLow, moments.fPair.fHigh, kPairBins);
    const std::size_t classes = Classes(target);
    const std::unique_ptr<const Classifier> classifier =
        classes > 0 ? std::make_unique<const Classifier>(spec, *target) : nullptr;
    Counts empty;
    empty.fBins.assign(categories ? target->fCategories : bins.Count(), 0.0);
    empty.fPairs.assign(categories ? 0 : pairs.Count() * pairs.Count(), 0.0);
    empty.fClassified.assign(classes * classes, 0.0);
    const Counts counts = Joined(Gather(crew, view, fitted, empty,
                                        [&](Counts& part, const double* row, double prediction) {
                                            const double y = row[spec.fDependent];
                                            const double weight = Frequency(spec, row);
                                            part.fBins[categories ? static_cast<int>(y) : bins.Of(y)] += weight;
                                            if (!categories)
                                                part.fPairs[pairs.Of(y) * pairs.Count() + pairs.Of(prediction)] +=
                                                    weight;
                                            if (classifier) classifier->Take(row, prediction, weight, part.fClassified);
                                        }),
                                 empty);

    summary.fFrequency = counts.fBins;
    for (int b = 0; b < static_cast<int>(counts.fBins.size()); ++b)
        summary.fObserved.push_back(categories ? target->ValueOfCategory(b) : bins.Centre(b));
    for (int p = 0; p < static_cast<int>(counts.fPairs.size()); ++p) {
        if (!(counts.fPairs[p] > 0.0)) continue;
        summary.fPairObserved.push_back(pairs.Centre(p / pairs.Count()));
        summary.fPairPredicted.push_back(pairs.Centre(p % pairs.Count()));
        summary.fPairFrequency.push_back(counts.fPairs[p]);
    }
    for (std::size_t c = 0; c < classes; ++c) {
        const auto row = counts.fClassified.begin() + static_cast<std::ptrdiff_t>(c * classes);
        summary.fClassified.emplace_back(row, row + static_cast<std::ptrdiff_t>(classes));
    }
}

}  // namespace

FittedRun LinearPredictor(const FitResult& fit, const ModelSpec& spec, const RecordView& view) {
    struct State {
        EffectDesign fDesign;
        std::vector<BlockPredictions> fBlocks;
    };
    auto state = std::make_shared<State>();
    state->fDesign = EffectDesign(spec.FixedEffects(), spec.fLevels);
    for (std::size_t b = 0; b < spec.fRandom.size(); ++b)
        state->fBlocks.emplace_back(fit, spec.fRandom[b], spec, static_cast<int>(b));
    return [state, &fit, &spec, view](std::size_t first, std::size_t count, double* fitted) {
        std::vector<ColumnHit> hits(state->fDesign.NumEffects());
        std::vector<BlockPredictions::Last> last(state->fBlocks.size());
        for (std::size_t i = 0; i < count; ++i) {
            const double* row = view.Row(first + i);
            double eta = spec.fOffset >= 0 ? row[spec.fOffset] : spec.fOffsetValue;
            state->fDesign.PlainHits(row, hits.data());
            for (const ColumnHit& hit : hits)
                eta += hit.fValue * fit.fFixed[hit.fColumn].fEstimate;
            for (std::size_t b = 0; b < last.size(); ++b)
                eta += state->fBlocks[b].Of(row, last[b]);
            fitted[i] = eta;
        }
    };
}

RecordSummary SummariseRecords(const FitResult& fit, const ModelSpec& spec, const TargetSpec* target,
                               const RecordView& view, const FittedRun& fitted) {
    RecordSummary summary;
    Workers crew(spec.fThreads);
    if (view.fCount > 0) {
        const Moments moments = TakeMoments(spec, target, view, fitted, crew);
        summary.fTotalFrequency = moments.fTotal;
        summary.fMean = moments.fMean;
        if (moments.fTotal > 1.0) summary.fDeviation = std::sqrt(moments.fSquares / (moments.fTotal - 1.0));
        CountRecords(moments, spec, target, view, fitted, crew, summary);
    }
    summary.fFirstSubjectTotal = static_cast<int>(fit.fFirstSubject.size());
    for (std::size_t i = 0; i < std::min(kMostFirstRecords, fit.fFirstSubject.size()); ++i) {
        const double* row = view.Row(fit.fFirstSubject[i]);
        summary.fFirstSubject.emplace_back(row, row + view.fStride);
    }
    return summary;
}

}  // namespace engine
