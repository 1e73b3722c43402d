#pragma once

#include "engine/structures/Structure.h"

#include <limits>
#include <string>
#include <vector>

namespace engine {

inline constexpr double kUnbounded = std::numeric_limits<double>::infinity();

/// "name(i)", i counted from 1.
inline std::string Indexed(const std::string& name, int index) {
    return name + "(" + std::to_string(index + 1) + ")";
}

/// "name(i,j)", both counted from 1.
inline std::string Indexed(const std::string& name, int row, int column) {
    return name + "(" + std::to_string(row + 1) + "," + std::to_string(column + 1) + ")";
}

inline ParamInfo VarianceInfo(const std::string& name) {
    return {name, ParamKind::kVariance, 0.0, kUnbounded};
}

/// "Var(1)" to "Var(n)"; "Variance" when there is only one.
inline std::vector<ParamInfo> VarianceInfos(int count) {
    if (count == 1) return {VarianceInfo("Variance")};
    std::vector<ParamInfo> infos;
    for (int i = 0; i < count; ++i)
        infos.push_back(VarianceInfo(Indexed("Var", i)));
    return infos;
}

inline ParamInfo CovarianceInfo(const std::string& name) {
    return {name, ParamKind::kCovariance, -kUnbounded, kUnbounded};
}

inline ParamInfo CorrelationInfo(const std::string& name, double lower = -1.0, double upper = 1.0) {
    return {name, ParamKind::kCorrelation, lower, upper};
}

}  // namespace engine
