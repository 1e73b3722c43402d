#pragma once

#include "engine/structures/Structure.h"

#include <memory>

namespace engine {

/// Structures over the Euclidean distance d of the rows: one variance times a correlation that falls with d and is 1 at
/// d = 0. Parameters: "Variance" and the correlation's one, a range t > 0 in the units of d or a rho. Feasible checks
/// the bounds alone, and no dimension is read.

/// rho^d with 0 <= rho <= 1; estimated as exp(-d / t).
std::unique_ptr<Structure> MakeSpatialPower();
/// exp(-d / t)
std::unique_ptr<Structure> MakeSpatialExponential();
/// exp(-d^2 / t^2)
std::unique_ptr<Structure> MakeSpatialGaussian();
/// max(0, 1 - rho d); kinks where rho d = 1. Positive semidefinite in one dimension.
std::unique_ptr<Structure> MakeSpatialLinear();
/// max(0, 1 - rho log d); kinks where rho log d = 1. Needs distances of at least 1 between different rows.
std::unique_ptr<Structure> MakeSpatialLinearLog();
/// 1 - 1.5 d/t + 0.5 (d/t)^3 up to d = t, 0 beyond; the second derivative jumps there. Positive semidefinite in up to
/// three dimensions.
std::unique_ptr<Structure> MakeSpatialSpherical();

}  // namespace engine
