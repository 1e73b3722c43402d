#pragma once

#include "engine/model/EffectDesign.h"
#include "engine/model/Matrices.h"
#include "engine/model/ModelSpec.h"

#include <vector>

namespace engine {

/// Averages over a split's records that estimated means are taken at.
struct RecordMeans {
    std::vector<double> fVariables;  ///< per record variable; 0 for those that are no covariates of a fixed effect
    double fOffset = 0.0;            ///< mean of the offset, 0 without one
};

/// One pass over the records; each counts as often as its frequency weight says.
RecordMeans AverageRecords(const ModelSpec& spec, const RecordView& view);

/// Coefficients of estimated marginal means over all fixed parameters (Searle, Speed and Milliken 1980, The American
/// Statistician 34, 216-221): a factor that is asked for stands at its level, every other factor's levels have equal
/// weights, a covariate stands at its value, and a product of covariates is the product of their values. The averages
/// are taken column by column; no grid of all factors is built.
class MeanRows {
public:
    /// covariates: a value for each record variable.
    MeanRows(const ModelSpec& spec, std::vector<double> covariates);

    /// The row at the given levels of the given factors (record variables).
    Eigen::VectorXd Row(const std::vector<int>& factors, const std::vector<int>& levels) const;

private:
    EffectDesign fDesign;
    std::vector<int> fLevels;
    std::vector<double> fCovariates;
};

/// All combinations of the factors' level codes, the first factor slowest; one empty combination without factors.
std::vector<std::vector<int>> LevelCombinations(const ModelSpec& spec, const std::vector<int>& factors);

}  // namespace engine
