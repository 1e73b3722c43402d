#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/model/ModelSpec.h"

namespace engine {

/// Fits a linear mixed model to the records of one split, which are sorted by SortVariables(spec). Never throws for
/// what is in the data; a result with an error status has no estimates. The records must stay in place as long as the
/// result is asked for predictions.
FitResult FitLmm(const ModelSpec& spec, const RecordView& view);

}  // namespace engine
