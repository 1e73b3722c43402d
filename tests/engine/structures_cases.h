#pragma once

#include "engine/structures/Structure.h"

#include <cmath>
#include <ostream>
#include <random>
#include <string>

namespace engine {

inline void PrintTo(const CovarianceTraits& traits, std::ostream* out) {
    *out << traits.fWord;
}

}  // namespace engine

namespace structure_cases {

using Eigen::MatrixXd;
using Eigen::VectorXd;
using engine::CovarianceTraits;
using engine::CovarianceType;
using engine::Places;
using engine::StartHint;
using engine::Structure;
using engine::StructureShape;

inline constexpr int kLevels = 5, kFirstLevels = 3, kSecondLevels = 4;

inline StructureShape ShapeOf(const CovarianceTraits& traits) {
    StructureShape shape;
    shape.fDimension = traits.fKronecker ? kFirstLevels : kLevels;
    shape.fSecondDimension = kSecondLevels;
    if (traits.fType == CovarianceType::kVC) shape.fEffectColumns = {1, 3, 1};
    shape.fSpaceDimension = 1;
    return shape;
}

/// All rows of the shape; distances from coordinates on a line, all above 1.
inline Places AllPlaces(const CovarianceTraits& traits) {
    const StructureShape shape = ShapeOf(traits);
    Places places;
    for (int p = 0; p < shape.fDimension; ++p) {
        for (int q = 0; q < (traits.fKronecker ? kSecondLevels : 1); ++q) {
            places.fPositions.push_back(p);
            if (traits.fKronecker) places.fSecond.push_back(q);
        }
    }
    if (traits.fNeedsDistances) {
        const VectorXd at = (VectorXd(kLevels) << 0.0, 1.3, 2.9, 5.2, 9.1).finished();
        places.fDistances = (at.replicate(1, kLevels) - at.transpose().replicate(kLevels, 1)).cwiseAbs();
    }
    return places;
}

/// Some of the rows, in another order.
inline Places Subset(const Places& all, const std::vector<int>& rows) {
    Places some;
    for (const int row : rows) {
        some.fPositions.push_back(all.fPositions[row]);
        if (!all.fSecond.empty()) some.fSecond.push_back(all.fSecond[row]);
    }
    if (all.fDistances.size() > 0) some.fDistances = all.fDistances(rows, rows);
    return some;
}

inline MatrixXd MatrixOf(const Structure& structure, const VectorXd& theta, const Places& places) {
    MatrixXd out = MatrixXd::Constant(places.Size(), places.Size(), std::nan(""));
    structure.Matrix(theta, places, out);
    return out;
}

inline double Draw(std::mt19937_64& random, double from, double to) {
    return from + (to - from) * static_cast<double>(random() >> 11) * 0x1p-53;
}

/// Moments as a sum of squares of too few or of many random vectors, in random units.
inline MatrixXd RandomMoments(std::mt19937_64& random, int dimension, double decades) {
    MatrixXd factor(dimension, dimension + 2);
    for (double& value : factor.reshaped())
        value = Draw(random, -1.0, 1.0);
    const MatrixXd moments = factor * factor.transpose();
    VectorXd units(dimension);
    for (double& unit : units)
        unit = std::pow(10.0, Draw(random, -decades, decades));
    return units.asDiagonal() * moments * units.asDiagonal();
}

inline StartHint RandomHint(std::mt19937_64& random, const Structure& structure, double decades) {
    StartHint hint;
    hint.fVariance = std::pow(10.0, Draw(random, -decades, decades));
    hint.fMoments = RandomMoments(random, structure.Dimension(), decades);
    hint.fMinDistance = Draw(random, 1.2, 2.0);
    hint.fMaxDistance = Draw(random, 4.0, 40.0);
    return hint;
}

/// Feasible parameters, varied around the starting values of random moments and away from every bound.
inline VectorXd RandomTheta(std::mt19937_64& random, const Structure& structure) {
    for (;;) {
        VectorXd theta = structure.Start(RandomHint(random, structure, 0.2));
        for (double& value : theta)
            value += Draw(random, -0.15, 0.15) * std::max(std::abs(value), 0.2);
        bool clear = structure.Feasible(theta);
        for (int k = 0; k < structure.NumParams(); ++k) {
            const engine::ParamInfo& info = structure.Params()[k];
            clear = clear && theta[k] > info.fLower + 0.02 && theta[k] < info.fUpper - 0.02;
            if (info.fFixed) theta[k] = structure.Start(StartHint{})[k];
        }
        if (clear) return theta;
    }
}

}  // namespace structure_cases
