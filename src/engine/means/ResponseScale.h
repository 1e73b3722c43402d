#pragma once

#include "engine/glmm/WorkingModel.h"
#include "run/RunValue.h"

#include <functional>

namespace engine {

/// The way from the linear predictor to the target's scale. Empty functions: the two are the same.
///
/// A multinomial target has several predictors and no single mean: its model then stands here, and the means are those
/// of one category, its probabilities; on the scale of the link they are those of one predictor.
struct ResponseScale {
    std::function<double(double)> fMean;   ///< inverse link
    std::function<double(double)> fSlope;  ///< its derivative
    const WorkingModel* fpMultinomial = nullptr;
    int fCategory = 0;   ///< code of the category
    int fPredictor = 0;  ///< number of the predictor
    bool IsIdentity() const { return !fMean; }
};

/// The scale of a target. model: the fit's, null for a linear mixed model.
ResponseScale TargetScale(const run::Target& target, const WorkingModel* model);

}  // namespace engine
