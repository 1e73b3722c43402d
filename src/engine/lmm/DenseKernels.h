#pragma once

#include "engine/model/Matrices.h"
#include "engine/model/Workers.h"

namespace engine {

/// Dense kernels that go to the tuned library where the order makes that worth while. From an order of some hundreds on
/// the crew, if there is one, shares the work; the result is the same without.

/// Lower Cholesky factor in place of the lower triangle; false when the matrix isn't positive definite. The upper
/// triangle becomes zero.
bool FactorInPlace(Eigen::MatrixXd& matrix, Workers* crew = nullptr);

/// The full symmetric inverse from the lower factor that FactorInPlace left.
void InverseFromFactor(const Eigen::MatrixXd& factor, Eigen::MatrixXd& inverse, Workers* crew = nullptr);

/// out = left * right.
void Multiply(const Eigen::MatrixXd& left, const Eigen::MatrixXd& right, Eigen::MatrixXd& out);

/// The same for a symmetric left.
void MultiplySymmetric(const Eigen::MatrixXd& left, const Eigen::MatrixXd& right, Eigen::MatrixXd& out, Workers* crew);

/// right becomes factor^-1 right, for a lower factor.
void SolveLower(const Eigen::MatrixXd& factor, Eigen::MatrixXd& right);

}  // namespace engine
