#pragma once

#include "engine/lmm/FixedBasis.h"

#include <Eigen/Dense>

namespace engine {

/// Rows of the Type I hypothesis of an effect: what the effect's columns add to those before it.
Eigen::MatrixXd TypeIRows(const FixedBasis& basis, int effect);

/// Rows of the Type III hypothesis of an effect: the estimable functions that involve no effect but this one and those
/// that contain it, orthogonal to those that involve the containing effects alone (Goodnight 1978, "Tests of hypotheses
/// in fixed effects linear models"). An effect contains another when it has the same covariates and more factors, all
/// of the other's among them. Empty when there are none. They depend on which cells have records, not on how many.
Eigen::MatrixXd TypeIIIRows(const FixedBasis& basis, int effect);

/// Whether l = l[kept] * span within tolerance.
bool IsEstimableRow(const FixedBasis& basis, const Eigen::VectorXd& row);

}  // namespace engine
