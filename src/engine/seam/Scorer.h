#pragma once

#include "contracts/EngineSettings.h"
#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/FitResult.h"
#include "engine/lmm/RowEstimator.h"

#include <vector>

namespace engine {

/// What records are scored with. Nothing is owned.
struct ScoreSource {
    const FitResult& fFit;
    const ModelSpec& fSpec;
    const WorkingModel* fGeneralized = nullptr;  ///< null for a linear mixed model
};

/// Scores records, one after another, on the scale of the target. Each thread has one of its own.
class Scorer {
public:
    /// The source outlives this object.
    Scorer(const ScoreSource& source, const std::vector<ScoreType>& types);

    /// One score a type; one that does not exist is the system's missing value. probabilities, unless null, gets one
    /// list, of the target's categories by code, when it has categories.
    void Score(const double* record, std::vector<double>& scores, std::vector<std::vector<double>>* probabilities);
    /// Whether the subjects of all of the model's random blocks are known.
    bool KnowsSubjects(const double* record) {
        return fEstimator.KnowsSubjects(record, static_cast<int>(fSource.fSpec.fRandom.size()));
    }

private:
    class Predictions;
    using Rule = double (*)(Predictions&);

    TargetPrediction Predict(const double* record, bool whole);

    ScoreSource fSource;
    RowEstimator fEstimator;
    std::vector<Rule> fRules;  ///< one a type; null for one that isn't known
    bool fErrors = false;
};

}  // namespace engine
