#pragma once

#include "engine/structures/Structure.h"

#include <memory>
#include <vector>

namespace engine {

/// Structures whose matrix is a sum of parameters times constant matrices; all second derivatives are zero.

/// One variance for each group of positions, zero off the diagonal: VC, ID and DIAG. groups has the variance's index of
/// each position, 0-based and without gaps. fixed: the variances are held where they start.
std::unique_ptr<Structure> MakeVariances(std::vector<int> groups, bool fixed = false);

/// Every variance and covariance free: UN(1,1), UN(2,1), UN(2,2), UN(3,1) ... Estimated through its Cholesky factor.
/// With fixedFirst the first variance is held at 1, as the second factor of a Kronecker product needs it.
std::unique_ptr<Structure> MakeUnstructured(int dimension, bool fixedFirst = false);

/// CS: a diagonal offset d and a common covariance c, V = d I + c J; positive semidefinite for d >= 0 and d + n c >= 0.
/// Estimated through these two eigenvalues.
std::unique_ptr<Structure> MakeCompoundSymmetry(int dimension);

/// TP: a variance and a covariance for each lag.
std::unique_ptr<Structure> MakeToeplitz(int dimension);

/// HF: variances v_i and lambda, covariances (v_i + v_j)/2 - lambda (Huynh and Feldt 1970, condition for exact F
/// tests).
std::unique_ptr<Structure> MakeHuynhFeldt(int dimension);

}  // namespace engine
