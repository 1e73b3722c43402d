#pragma once

#include "engine/structures/Structure.h"

#include <memory>

namespace engine {

/// The scale on which unstructured matrices are estimated: V = L L', L lower triangular, its entries stored row by row
/// as L(1,1), L(2,1), L(2,2), L(3,1) ... No entry is bounded: a diagonal entry that passes through zero gives the
/// mirror image of the same matrix, and zero itself is loss of rank (Pinheiro and Bates 1996, "Unconstrained
/// parametrizations for variance-covariance matrices", section 2.1). With fixedFirst, L(1,1) is held at 1.
std::unique_ptr<Structure> MakeCholesky(int dimension, bool fixedFirst);

/// The lower triangle row by row.
Eigen::VectorXd PackTriangle(const Eigen::MatrixXd& matrix);

/// The matrix whose lower triangle the values are: zero above it, or symmetric.
Eigen::MatrixXd UnpackLower(const Eigen::VectorXd& values, int dimension);
Eigen::MatrixXd UnpackSymmetric(const Eigen::VectorXd& values, int dimension);

/// L with L L' = matrix and no negative diagonal entry, for a positive semidefinite matrix; a column whose pivot is
/// zero to rounding is zero.
Eigen::MatrixXd SemidefiniteCholesky(const Eigen::MatrixXd& matrix);

/// Derivatives of the triangle of L L' (rows) in the entries of L (columns).
Eigen::MatrixXd CholeskyJacobian(const Eigen::MatrixXd& factor);

}  // namespace engine
