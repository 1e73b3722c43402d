#pragma once

#include "engine/lmm/FitResult.h"

#include <string>
#include <vector>

namespace engine {

/// What the documents tell of the records themselves, taken in one pass while they are there.
struct RecordSummary {
    double fTotalFrequency = 0.0;
    double fMean = kMissing;
    double fDeviation = kMissing;
    std::vector<double> fObserved;   ///< target: bin centres
    std::vector<double> fFrequency;  ///< weight in each bin

    std::vector<double> fPairObserved;  ///< predicted by observed: centres of the bins that hold records
    std::vector<double> fPairPredicted;
    std::vector<double> fPairFrequency;

    /// The first common subject, at most ten records: per record all values of the record.
    std::vector<std::vector<double>> fFirstSubject;
    int fFirstSubjectTotal = 0;  ///< records that the subject has
};

/// fitted: the prediction of each record of the view on the target's scale, random effects included.
RecordSummary SummariseRecords(const FitResult& fit, const ModelSpec& spec, const RecordView& view,
                               const std::vector<double>& fitted);

/// Predictions X beta + Z u + offset of all records, by one pass over them.
std::vector<double> LinearPredictors(const FitResult& fit, const ModelSpec& spec, const RecordView& view);

}  // namespace engine
