#pragma once

#include "engine/lmm/FitResult.h"
#include "run/RunValue.h"

#include <string>
#include <vector>

namespace engine {

/// What a custom test found, on the scale of the linear predictor.
struct CustomTestResult {
    std::vector<ContrastResult> fRows;  ///< estimates with their own limits; t and p are against the hypothesised value
    std::vector<double> fHypothesised;
    FTestResult fJoint;    ///< of all estimable rows
    std::string fProblem;  ///< why rows have no place in the model ("a has 3 columns, ..."); empty when all have
};

/// Estimates and tests the rows of coefficients of a custom test.
///
/// Coefficients of a fixed effect stand for its columns, redundant ones included, the first factor slowest. Those of a
/// random effect stand for its columns of the first subject, then of the second, and so on, subjects ascending. Columns
/// that have no coefficient behind them count as 0. In the form of all columns, effects (and the random blocks) follow
/// one another without gap.
CustomTestResult RunCustomTest(const FitResult& fit, const ModelSpec& spec, const run::CustomTest& test);

}  // namespace engine
