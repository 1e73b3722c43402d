#pragma once

#include "engine/glmm/TargetSpec.h"
#include "engine/model/ModelSpec.h"

namespace engine {

/// What a record says of the target.
class TargetValues {
public:
    TargetValues(const TargetSpec& target, const ModelSpec& spec)
        : fDependent(spec.fDependent),
          fWeight(spec.fRegressionWeight),
          fOffset(spec.fOffset),
          fOffsetValue(spec.fOffsetValue),
          fTrials(target.fTrials),
          fNonEvents(target.fNonEvents),
          fTrialsValue(target.fTrialsValue),
          fEvents(target.HasTrials()),
          fReference(target.fCategories > 0 ? (target.fReference < 0 ? 0 : target.fReference) : -1) {}

    double Trials(const double* record) const {
        if (fNonEvents >= 0) return record[fDependent] + record[fNonEvents];
        if (fTrials >= 0) return record[fTrials];
        return fEvents ? fTrialsValue : 1.0;
    }
    /// The value whose mean is modelled: a proportion for events of trials, 1 for the event of two categories.
    double Value(const double* record) const {
        if (fEvents) return record[fDependent] / Trials(record);
        if (fReference >= 0) return static_cast<int>(record[fDependent]) == fReference ? 0.0 : 1.0;
        return record[fDependent];
    }
    /// What a mean is multiplied with to be on the scale of the target: the trials of events, else 1.
    double Size(const double* record) const { return fEvents ? Trials(record) : 1.0; }
    bool IsBinary() const { return fReference >= 0; }
    int Reference() const { return fReference; }
    /// Regression weight.
    double Weight(const double* record) const { return fWeight < 0 ? 1.0 : record[fWeight]; }
    double Offset(const double* record) const { return fOffset >= 0 ? record[fOffset] : fOffsetValue; }

private:
    int fDependent, fWeight, fOffset;
    double fOffsetValue;
    int fTrials, fNonEvents;
    double fTrialsValue;
    bool fEvents;
    int fReference;
};

}  // namespace engine
