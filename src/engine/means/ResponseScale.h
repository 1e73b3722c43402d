#pragma once

#include "run/RunValue.h"

#include <functional>

namespace engine {

/// The way from the linear predictor to the target's scale. Empty functions: the two are the same.
struct ResponseScale {
    std::function<double(double)> fMean;   ///< inverse link
    std::function<double(double)> fSlope;  ///< its derivative
    bool IsIdentity() const { return !fMean; }
};

/// The scale of a target with a single mean.
ResponseScale TargetScale(const run::Target& target);

}  // namespace engine
