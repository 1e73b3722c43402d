#pragma once

#include "contracts/EngineSettings.h"
#include "engine/lmm/FitResult.h"

#include <vector>

namespace engine {

/// Scores of a record by a fitted model, one a score type. A score that does not exist is the system's missing value.
std::vector<double> ScoreRecord(const FitResult& fit, const ModelSpec& spec, const std::vector<ScoreType>& types,
                                const double* record);

}  // namespace engine
