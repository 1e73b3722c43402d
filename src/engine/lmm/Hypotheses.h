#pragma once

#include "engine/lmm/FixedBasis.h"
#include "engine/model/Matrices.h"

namespace engine {

/// Rows of the Type I hypothesis of an effect: what the effect's columns add to those before it. They are rows of the
/// Cholesky factor of X'X, times a number that all of them share.
Eigen::MatrixXd TypeIRows(const FixedBasis& basis, int effect);

/// Rows of the Type III hypothesis of an effect: the estimable functions that involve no effect but this one and those
/// that contain it, orthogonal to those that involve the containing effects alone (Goodnight 1978, "Tests of hypotheses
/// in fixed effects linear models"). An effect contains another when it has the same covariates and more factors, all
/// of the other's among them. Empty when there are none. They depend on which cells have records, not on how many.
/// They are written as deviations from the mean: in the effect's own columns a row is the projection of a column's unit
/// vector on the hypothesis, for the first columns that give independent rows, times a number that all of them share.
Eigen::MatrixXd TypeIIIRows(const FixedBasis& basis, int effect);

/// Whether what should vanish does, for coefficients of the given size.
bool IsNegligible(const Eigen::VectorXd& difference, double size);

/// Whether l = l[kept] * span within tolerance.
bool IsEstimableRow(const FixedBasis& basis, const Eigen::VectorXd& row);

}  // namespace engine
