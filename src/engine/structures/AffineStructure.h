#pragma once

#include "engine/structures/Structure.h"

#include <memory>
#include <vector>

namespace engine {

/// Another family seen through an affine change of its parameters, theta = matrix * working + offset, so that a
/// boundary that depends on several parameters becomes a box. params has the names and bounds of the working
/// parameters.
std::unique_ptr<Structure> MakeAffine(std::unique_ptr<Structure> inner, std::vector<ParamInfo> params,
                                      Eigen::MatrixXd matrix, Eigen::VectorXd offset);

}  // namespace engine
