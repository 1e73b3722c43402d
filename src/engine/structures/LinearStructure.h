#pragma once

#include "engine/structures/Structure.h"

#include <memory>
#include <vector>

namespace engine {

/// Structures whose matrix is a sum of parameters times constant matrices; all second derivatives are zero.

/// One variance for each group of positions, zero off the diagonal: VC, ID and DIAG. groups has the variance's index of
/// each position, 0-based and without gaps.
std::unique_ptr<Structure> MakeVariances(std::vector<int> groups);

/// Every variance and covariance free: UN(1,1), UN(2,1), UN(2,2), UN(3,1) ... Estimated through its Cholesky factor.
/// With fixedFirst the first variance is held at 1, as the second factor of a Kronecker product needs it.
std::unique_ptr<Structure> MakeUnstructured(int dimension, bool fixedFirst = false);

}  // namespace engine
