#include "engine/structures/StartValues.h"

#include <cmath>

namespace engine {

namespace {

constexpr double kLeastEigenvalue = 0.05;     // of a starting correlation matrix
constexpr double kLeastVarianceShare = 1e-2;  // of the mean variance, put for one that came out zero or negative
constexpr double kDistanceToBoundary = 0.1;   // share of the way back from the boundary
constexpr double kShrink = 0.9;
constexpr int kMaxShrinks = 200;

}  // namespace

bool IsPositiveSemidefinite(const Eigen::MatrixXd& matrix) {
    const Eigen::Index n = matrix.rows();
    if (!matrix.allFinite() || (matrix.diagonal().array() < 0.0).any()) return false;
    Eigen::MatrixXd scaled = matrix;
    for (Eigen::Index i = 0; i < n; ++i) {
        const double deviation = std::sqrt(matrix(i, i));
        if (deviation > 0.0) {
            scaled.row(i) /= deviation;
            scaled.col(i) /= deviation;
            scaled(i, i) = 1.0 + kRoundingSlack * static_cast<double>(n);
            continue;
        }
        // A row without variance is allowed only if it has no covariance either.
        scaled(i, i) = 0.0;
        if (!scaled.row(i).isZero(0.0)) return false;
        scaled(i, i) = 1.0;
    }
    return Eigen::LLT<Eigen::MatrixXd>(scaled).info() == Eigen::Success;
}

bool WithinBounds(const std::vector<ParamInfo>& params, const Eigen::VectorXd& theta) {
    if (theta.size() != static_cast<Eigen::Index>(params.size()) || !theta.allFinite()) return false;
    for (Eigen::Index k = 0; k < theta.size(); ++k) {
        if (theta[k] < params[k].fLower || theta[k] > params[k].fUpper) return false;
    }
    return true;
}

double UsableVariance(const StartHint& hint) {
    return std::isfinite(hint.fVariance) && hint.fVariance > 0.0 ? hint.fVariance : 1.0;
}

Eigen::MatrixXd UsableMoments(const StartHint& hint, int dimension) {
    const double variance = UsableVariance(hint);
    const Eigen::MatrixXd& moments = hint.fMoments;
    if (moments.rows() != dimension || moments.cols() != dimension || !moments.allFinite()) {
        return variance * Eigen::MatrixXd::Identity(dimension, dimension);
    }
    Eigen::VectorXd variances = moments.diagonal();
    const double positives = (variances.array() > 0.0).count();
    const double mean = positives > 0 ? variances.cwiseMax(0.0).sum() / positives : variance / kLeastVarianceShare;
    Eigen::VectorXd inverse(dimension);
    for (int i = 0; i < dimension; ++i) {
        inverse[i] = variances[i] > 0.0 ? 1.0 / std::sqrt(variances[i]) : 0.0;
        if (variances[i] <= 0.0) variances[i] = kLeastVarianceShare * mean;
    }
    Eigen::MatrixXd correlation = inverse.asDiagonal() * (0.5 * (moments + moments.transpose())) * inverse.asDiagonal();
    correlation.diagonal().setOnes();
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(correlation);
    correlation = eigen.eigenvectors() * eigen.eigenvalues().cwiseMax(kLeastEigenvalue).asDiagonal() *
                  eigen.eigenvectors().transpose();
    const Eigen::VectorXd scale = (variances.array() / correlation.diagonal().array()).sqrt();
    return scale.asDiagonal() * correlation * scale.asDiagonal();
}

Eigen::MatrixXd CorrelationOf(const Eigen::MatrixXd& covariance) {
    const Eigen::VectorXd inverse = covariance.diagonal().array().rsqrt();
    return inverse.asDiagonal() * covariance * inverse.asDiagonal();
}

Eigen::VectorXd MoveInside(const Structure& structure, const Eigen::VectorXd& inner, const Eigen::VectorXd& guess) {
    const Eigen::VectorXd way = guess - inner;
    double share = 1.0;
    // The feasible sets are convex on the scales used here: before a feasible point every point is strictly inside.
    for (int i = 0; i < kMaxShrinks; ++i, share *= kShrink) {
        if (structure.Feasible(inner + share * way)) return inner + (1.0 - kDistanceToBoundary) * share * way;
    }
    return inner;
}

}  // namespace engine
