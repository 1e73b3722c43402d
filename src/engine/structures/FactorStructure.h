#pragma once

#include "engine/structures/Structure.h"

#include <memory>

namespace engine {

/// Factor-analytic structures of one factor: V = l l' + D, the sign of l being free. FA1: D = d I; FAH1: D diagonal.
/// Parameters: "FA1 loading(1)" ... and "FA1 diagonal", or "FAH1 loading(1)" ... and "FAH1 diagonal(1)" ...
std::unique_ptr<Structure> MakeFactor(int dimension, bool heterogeneous);

}  // namespace engine
