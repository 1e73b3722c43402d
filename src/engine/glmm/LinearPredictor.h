#pragma once

#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/LmmFit.h"
#include "engine/model/Matrices.h"

namespace engine {

/// Predictors of all records by a solution of the working model: fixed effects, predicted random effects, offset.
/// theta: its covariance parameters, reported scale. Reads the records once.
Eigen::VectorXd PredictFrom(const RepeatedFit& fit, const WorkingModel& model, Workers& crew);

/// The same by fixed effects alone: coefficients, one a column.
Eigen::VectorXd PredictFixed(const WorkingModel& model, const EffectDesign& design, const Eigen::VectorXd& coefficients,
                             Workers& crew);

/// Coefficients of all columns, 0 for redundant ones, from those of the kept ones.
Eigen::VectorXd AllCoefficients(const FixedBasis& basis, const Eigen::VectorXd& kept);

}  // namespace engine
