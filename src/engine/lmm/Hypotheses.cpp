#include "engine/lmm/Hypotheses.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

namespace engine {

namespace {

constexpr double kRankTolerance = 1e-8;

bool Contains(const ModelEffect& outer, const ModelEffect& inner) {
    const auto covariates = [](const ModelEffect& effect) {
        std::map<int, int> powers;
        for (const EffectCovariate& covariate : effect.fCovariates)
            powers[covariate.fVariable] += covariate.fMultiplicity;
        return powers;
    };
    if (outer.fFactors.size() <= inner.fFactors.size() || covariates(outer) != covariates(inner)) return false;
    return std::all_of(inner.fFactors.begin(), inner.fFactors.end(), [&](int factor) {
        return std::find(outer.fFactors.begin(), outer.fFactors.end(), factor) != outer.fFactors.end();
    });
}

Eigen::MatrixXd ColumnsOf(const Eigen::MatrixXd& matrix, const std::vector<int>& columns) {
    Eigen::MatrixXd part(matrix.rows(), columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i)
        part.col(static_cast<Eigen::Index>(i)) = matrix.col(columns[i]);
    return part;
}

// Rows t with t * matrix = 0, as the rows of the answer.
Eigen::MatrixXd LeftNull(const Eigen::MatrixXd& matrix) {
    if (matrix.cols() == 0) return Eigen::MatrixXd::Identity(matrix.rows(), matrix.rows());
    Eigen::FullPivLU<Eigen::MatrixXd> lu(matrix.transpose());
    lu.setThreshold(kRankTolerance);
    if (lu.dimensionOfKernel() == 0) return Eigen::MatrixXd(0, matrix.rows());
    return lu.kernel().transpose();
}

// Reduced row echelon form without zero rows.
Eigen::MatrixXd Reduced(Eigen::MatrixXd rows) {
    Eigen::Index rank = 0;
    const double size = rows.size() > 0 ? rows.cwiseAbs().maxCoeff() : 0.0;
    for (Eigen::Index j = 0; j < rows.cols() && rank < rows.rows(); ++j) {
        Eigen::Index pivot;
        const double largest = rows.col(j).tail(rows.rows() - rank).cwiseAbs().maxCoeff(&pivot);
        if (largest <= kRankTolerance * size) {
            rows.col(j).tail(rows.rows() - rank).setZero();
            continue;
        }
        rows.row(rank).swap(rows.row(rank + pivot));
        rows.row(rank) /= rows(rank, j);
        for (Eigen::Index i = 0; i < rows.rows(); ++i) {
            if (i != rank) rows.row(i) -= rows(i, j) * Eigen::RowVectorXd(rows.row(rank));
        }
        ++rank;
    }
    rows.conservativeResize(rank, Eigen::NoChange);
    return rows;
}

// The rows as a reader would write them: the largest coefficient is 1.
Eigen::MatrixXd Readable(Eigen::MatrixXd rows) {
    if (rows.size() > 0) rows /= rows.cwiseAbs().maxCoeff();
    for (double& value : rows.reshaped()) {
        const double whole = std::round(value);
        if (std::abs(value - whole) < 1e-10) value = whole;
    }
    return rows;
}

// Rows of the same span whose part in the own columns is the projection of unit vectors on the span of that part.
Eigen::MatrixXd Deviations(const Eigen::MatrixXd& rows, const std::vector<int>& own) {
    const Eigen::MatrixXd part = ColumnsOf(rows, own);
    const Eigen::MatrixXd weights = (part * part.transpose()).ldlt().solve(part);  // column j makes row j
    Eigen::MatrixXd deviations(rows.rows(), rows.cols());
    Eigen::MatrixXd orthonormal(rows.rows(), rows.rows());
    Eigen::Index rank = 0;
    for (Eigen::Index j = 0; j < part.cols() && rank < rows.rows(); ++j) {
        const auto before = orthonormal.leftCols(rank);
        const Eigen::VectorXd left = part.col(j) - before * (before.transpose() * part.col(j));
        if (left.norm() <= kRankTolerance * part.col(j).norm()) continue;
        deviations.row(rank) = weights.col(j).transpose() * rows;
        orthonormal.col(rank++) = left.normalized();
    }
    deviations.conservativeResize(rank, Eigen::NoChange);
    return deviations;
}

}  // namespace

Eigen::MatrixXd TypeIRows(const FixedBasis& basis, int effect) {
    const EffectDesign& design = basis.Design();
    std::vector<int> own;
    for (int k = 0; k < basis.Rank(); ++k) {
        if (design.EffectOf(basis.Kept()[k]) == effect) own.push_back(k);
    }
    Eigen::MatrixXd rows(own.size(), basis.NumColumns());
    for (std::size_t i = 0; i < own.size(); ++i)
        rows.row(static_cast<Eigen::Index>(i)) = basis.CrossFactor().row(own[i]) * basis.Span();
    return Readable(std::move(rows));
}

Eigen::MatrixXd TypeIIIRows(const FixedBasis& basis, int effect) {
    const EffectDesign& design = basis.Design();
    const std::vector<ModelEffect>& effects = design.Effects();
    std::vector<int> foreign, own;
    for (int e = 0; e < design.NumEffects(); ++e) {
        const bool containing = e != effect && Contains(effects[e], effects[effect]);
        if (containing) continue;
        for (int c = 0; c < design.Columns(e); ++c)
            (e == effect ? own : foreign).push_back(design.Offset(e) + c);
    }
    const Eigen::MatrixXd& span = basis.Span();
    const Eigen::MatrixXd allowed = LeftNull(ColumnsOf(span, foreign)) * span;  // this effect and its containers
    if (allowed.rows() == 0) return Eigen::MatrixXd(0, basis.NumColumns());
    const Eigen::MatrixXd inner = LeftNull(ColumnsOf(allowed, own)) * allowed;  // the containers alone
    Eigen::MatrixXd rows = allowed;
    if (inner.rows() > 0) {
        // Rows of `allowed` less their projections on the rows of `inner`.
        const Eigen::MatrixXd orthonormal = Eigen::HouseholderQR<Eigen::MatrixXd>(inner.transpose()).householderQ() *
                                            Eigen::MatrixXd::Identity(inner.cols(), inner.rows());
        rows -= (rows * orthonormal) * orthonormal.transpose();
    }
    return Readable(Deviations(Reduced(std::move(rows)), own));
}

bool IsNegligible(const Eigen::VectorXd& difference, double size) {
    return difference.size() == 0 || difference.cwiseAbs().maxCoeff() <= kRankTolerance * std::max(size, 1e-300);
}

bool IsEstimableRow(const FixedBasis& basis, const Eigen::VectorXd& row) {
    if (row.size() != basis.NumColumns()) return false;
    Eigen::RowVectorXd kept(basis.Rank());
    for (int k = 0; k < basis.Rank(); ++k)
        kept[k] = row[basis.Kept()[k]];
    const double size = row.size() > 0 ? row.cwiseAbs().maxCoeff() : 0.0;
    return IsNegligible((kept * basis.Span() - row.transpose()).transpose(), size);
}

}  // namespace engine
