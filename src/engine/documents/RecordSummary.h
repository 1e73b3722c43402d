#pragma once

#include "engine/glmm/TargetSpec.h"
#include "engine/lmm/FitResult.h"

#include <functional>
#include <vector>

namespace engine {

/// What the documents tell of the records themselves, taken in one pass while they are there.
struct RecordSummary {
    double fTotalFrequency = 0.0;
    double fMean = kMissing;
    double fDeviation = kMissing;
    std::vector<double> fObserved;   ///< target: bin centres, or the categories' numbers
    std::vector<double> fFrequency;  ///< weight in each bin

    std::vector<double> fPairObserved;  ///< predicted by observed: centres of the bins that hold records
    std::vector<double> fPairPredicted;
    std::vector<double> fPairFrequency;

    /// Weights of the records by observed and predicted category: of a categorical target by code, of events of trials
    /// other trials and events. The predicted category is the most probable one. Empty for other targets.
    std::vector<std::vector<double>> fClassified;

    /// The first common subject, at most ten records: per record all values of the record.
    std::vector<std::vector<double>> fFirstSubject;
    int fFirstSubjectTotal = 0;  ///< records that the subject has
};

/// The predictions of so many records of a view, from the first one on, on the target's scale and with random effects.
/// Called by several threads at once.
using FittedRun = std::function<void(std::size_t first, std::size_t count, double* fitted)>;

/// target: null for a linear mixed model. fitted: as WorkingModel::Fitted has it for a generalized one. The records are
/// read twice, on spec.fThreads threads, and nothing is kept of each.
RecordSummary SummariseRecords(const FitResult& fit, const ModelSpec& spec, const TargetSpec* target,
                               const RecordView& view, const FittedRun& fitted);

/// X beta + Z u + offset. The fit, spec and records outlive the function.
FittedRun LinearPredictor(const FitResult& fit, const ModelSpec& spec, const RecordView& view);

}  // namespace engine
