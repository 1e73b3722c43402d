#include "engine/means/MeanRows.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace engine {

RecordMeans AverageRecords(const ModelSpec& spec, const RecordView& view) {
    std::set<int> covariates;
    for (const ModelEffect& effect : spec.fFixed) {
        for (const EffectCovariate& covariate : effect.fCovariates)
            covariates.insert(covariate.fVariable);
    }
    RecordMeans means;
    means.fVariables.assign(spec.fLevels.size(), 0.0);
    means.fOffset = spec.fOffset >= 0 ? 0.0 : spec.fOffsetValue;
    double total = 0.0;
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* row = view.Row(i);
        const double weight = spec.fFrequencyWeight < 0 ? 1.0 : std::floor(row[spec.fFrequencyWeight] + 0.5);
        if (!(weight > 0.0)) continue;
        total += weight;
        // Running means keep their digits when values lie far from zero.
        const double share = weight / total;
        for (int variable : covariates)
            means.fVariables[variable] += share * (row[variable] - means.fVariables[variable]);
        if (spec.fOffset >= 0) means.fOffset += share * (row[spec.fOffset] - means.fOffset);
    }
    return means;
}

MeanRows::MeanRows(const ModelSpec& spec, std::vector<double> covariates)
    : fDesign(spec.FixedEffects(), spec.fLevels), fLevels(spec.fLevels), fCovariates(std::move(covariates)) {}

Eigen::VectorXd MeanRows::Row(const std::vector<int>& factors, const std::vector<int>& levels) const {
    Eigen::VectorXd row = Eigen::VectorXd::Zero(fDesign.NumColumns());
    for (int e = 0; e < fDesign.NumEffects(); ++e) {
        const ModelEffect& effect = fDesign.Effects()[e];
        double weight = 1.0;
        for (const EffectCovariate& covariate : effect.fCovariates)
            weight *= std::pow(fCovariates[covariate.fVariable], covariate.fMultiplicity);
        std::vector<int> wanted;  // per factor of the effect, its level, or -1 for all of them
        for (int factor : effect.fFactors) {
            const auto at = std::find(factors.begin(), factors.end(), factor);
            wanted.push_back(at == factors.end() ? -1 : levels[at - factors.begin()]);
            if (wanted.back() < 0) weight /= fLevels[factor];
        }
        std::vector<int> columns{0};  // within the effect
        for (std::size_t f = 0; f < wanted.size(); ++f) {
            const int count = fLevels[effect.fFactors[f]];
            std::vector<int> next;
            for (int column : columns) {
                for (int level = std::max(wanted[f], 0); level < (wanted[f] < 0 ? count : wanted[f] + 1); ++level)
                    next.push_back(column * count + level);
            }
            columns = std::move(next);
        }
        for (int column : columns)
            row[fDesign.Offset(e) + column] = weight;
    }
    return row;
}

std::vector<std::vector<int>> LevelCombinations(const ModelSpec& spec, const std::vector<int>& factors) {
    std::vector<std::vector<int>> cells{{}};
    for (int factor : factors) {
        std::vector<std::vector<int>> next;
        for (const std::vector<int>& cell : cells) {
            for (int level = 0; level < spec.fLevels[factor]; ++level) {
                next.push_back(cell);
                next.back().push_back(level);
            }
        }
        cells = std::move(next);
    }
    return cells;
}

}  // namespace engine
