#pragma once

#include "run/RunValue.h"

#include <utility>
#include <vector>

namespace engine {

/// Parameters of a distribution that has the given mean and standard deviation, by the names that the result document
/// has for them: "shape" and "rate" of a gamma distribution (mean shape / rate), "shape" of an inverse Gaussian one
/// (variance mean^3 / shape), "r" and "p" of a negative binomial one (mean r (1 - p) / p, variance mean / p). Empty for
/// other distributions, and when none of the family has these moments.
std::vector<std::pair<const char*, double>> FitByMoments(run::Distribution distribution, double mean, double deviation);

}  // namespace engine
