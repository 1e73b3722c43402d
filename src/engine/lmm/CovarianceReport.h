#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/ParameterLayout.h"

#include <vector>

namespace engine {

/// Fills the covariance parameters, their limits and the certificate's list of bounds. Limits are computed on the log
/// of variances and ranges and on Fisher's z of correlations, elsewhere on the parameter's own scale.
void ReportCovariance(const ParameterLayout& layout, const FittedModel& model, const std::vector<char>& held,
                      const std::vector<char>& atBound, FitResult& result);

}  // namespace engine
