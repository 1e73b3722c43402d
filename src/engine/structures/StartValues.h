#pragma once

#include "engine/model/Matrices.h"
#include "engine/structures/Structure.h"

namespace engine {

/// What rounding may take from a condition that holds exactly on the boundary, relative to the terms compared.
inline constexpr double kRoundingSlack = 1e-12;

/// Whether a symmetric matrix is positive semidefinite to rounding. The test is on the correlation scale, so that
/// variances of very different units are judged alike.
bool IsPositiveSemidefinite(const Eigen::MatrixXd& matrix);

/// Whether all values are finite and within the closed bounds of their parameters.
bool WithinBounds(const std::vector<ParamInfo>& params, const Eigen::VectorXd& theta);

/// The hint's moments, symmetric and made safely positive definite; the hint's variance times the identity where there
/// are none of this dimension.
Eigen::MatrixXd UsableMoments(const StartHint& hint, int dimension);

/// The correlation matrix of a positive definite one.
Eigen::MatrixXd CorrelationOf(const Eigen::MatrixXd& covariance);

/// The hint's variance, or 1 where that is no positive number.
double UsableVariance(const StartHint& hint);

/// A point strictly inside the feasible set on the way from an inner point to a guess, as near to the guess as is safe.
Eigen::VectorXd MoveInside(const Structure& structure, const Eigen::VectorXd& inner, const Eigen::VectorXd& guess);

}  // namespace engine
