#pragma once

#include "contracts/EngineSettings.h"
#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/FitResult.h"

#include <vector>

namespace engine {

/// What records are scored with. Nothing is owned.
struct ScoreSource {
    const FitResult& fFit;
    const ModelSpec& fSpec;
    const WorkingModel* fGeneralized = nullptr;  ///< null for a linear mixed model
};

/// Scores of a record on the scale of the target, one a score type. A score that does not exist is the system's missing
/// value. probabilities, unless null, gets one list, of the target's categories by code, when it has categories.
std::vector<double> ScoreRecord(const ScoreSource& source, const std::vector<ScoreType>& types, const double* record,
                                std::vector<std::vector<double>>* probabilities);

}  // namespace engine
