#pragma once

#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/FitResult.h"
#include "run/RunValue.h"

#include <string>
#include <vector>

namespace engine {

/// What a custom test found, on the scale of the linear predictor.
struct CustomTestResult {
    struct Row {
        int fNumber = 0;   ///< of the test's row, from 0
        int fTarget = -1;  ///< code of the category of a multinomial target that the row is of, or -1
        double fHypothesised = 0.0;
        ContrastResult fResult;  ///< an estimate with its own limits; t and p are against the hypothesised value
    };
    std::vector<Row> fRows;
    FTestResult fJoint;    ///< of all estimable rows
    std::string fProblem;  ///< why rows have no place in the model ("a has 3 columns, ..."); empty when all have
};

/// Estimates and tests the rows of coefficients of a custom test.
///
/// Coefficients of a fixed effect stand for its columns, redundant ones included, the first factor slowest. Those of a
/// random effect stand for its columns of the first subject, then of the second, and so on, subjects ascending. Columns
/// that have no coefficient behind them count as 0. In the form of all columns, effects (and the random blocks) follow
/// one another without gap.
///
/// multinomial: the working model of a nominal or an ordinal target, else null. A row is then estimated once for each
/// of WorkingModel::CategoryRows, and all are tested together; the form of all columns runs over the fit's own columns:
/// a nominal target's category by category, an ordinal one's thresholds first.
CustomTestResult RunCustomTest(const FitResult& fit, const ModelSpec& spec, const run::CustomTest& test,
                               const WorkingModel* multinomial = nullptr);

}  // namespace engine
