#pragma once

#include <Eigen/Dense>

namespace engine {

/// Dense kernels that go to the tuned library where the order makes that worth while, on one thread.

/// Lower Cholesky factor in place of the lower triangle; false when the matrix isn't positive definite. The upper
/// triangle becomes zero.
bool FactorInPlace(Eigen::MatrixXd& matrix);

/// The full symmetric inverse from the lower factor that FactorInPlace left.
void InverseFromFactor(const Eigen::MatrixXd& factor, Eigen::MatrixXd& inverse);

/// out = left * right.
void Multiply(const Eigen::MatrixXd& left, const Eigen::MatrixXd& right, Eigen::MatrixXd& out);

/// right becomes factor^-1 right, for a lower factor.
void SolveLower(const Eigen::MatrixXd& factor, Eigen::MatrixXd& right);

}  // namespace engine
