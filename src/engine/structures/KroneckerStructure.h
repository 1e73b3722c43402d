#pragma once

#include "engine/structures/Structure.h"

#include <memory>

namespace engine {

/// The Kronecker product V = A x B of two structures: the entry of two rows is A at their positions in the first factor
/// times B at their positions in the second. Position (p, q) of the full matrix is p * (order of B) + q. The parameters
/// are those of A, their names after "A ", and then those of B after "B ". B's scale has to be held by its parameters:
/// a correlation, or an unstructured matrix whose first variance is fixed at 1.
std::unique_ptr<Structure> MakeKronecker(std::shared_ptr<const Structure> first,
                                         std::shared_ptr<const Structure> second);

}  // namespace engine
