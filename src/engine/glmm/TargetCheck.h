#pragma once

#include "engine/glmm/TargetSpec.h"
#include "engine/lmm/FitResult.h"
#include "engine/model/ModelSpec.h"

#include <vector>

namespace engine {

struct TargetVerdict {
    FitStatus fRefusal{0, Severity::kOk, {}};  ///< an error when the model can't be fitted to the data
    std::vector<FitStatus> fWarnings;
};

/// Looks at the target before anything is fitted: whether distribution, link and model go together, and every record's
/// value. A refusal says which variable, which value, and where the first record in question stands: in the user's data
/// when the target knows them, else among the records.
TargetVerdict CheckTarget(const ModelSpec& spec, const TargetSpec& target, const RecordView& view);

}  // namespace engine
