#include "engine/lmm/DenseKernels.h"

#include "engine/crossed/TiledCholesky.h"
#include "engine/model/Blas.h"

#include <cblas.h>
#include <cmath>
#include <lapacke.h>

namespace engine {

namespace {

constexpr Eigen::Index kTuned = 96;    // order from which the library's packing pays
constexpr Eigen::Index kShared = 512;  // order from which there are tiles for several threads

}  // namespace

bool FactorInPlace(Eigen::MatrixXd& matrix, Workers* crew) {
    const Eigen::Index n = matrix.rows();
    if (n >= kTuned) {
        EnterBlas();
        const auto order = static_cast<lapack_int>(n);
        const bool done = n >= kShared ? TiledFactor(matrix.data(), order, crew)
                                       : LAPACKE_dpotrf_work(LAPACK_COL_MAJOR, 'L', order, matrix.data(), order) == 0;
        if (!done) return false;
        matrix.triangularView<Eigen::StrictlyUpper>().setZero();
        return true;
    }
    for (Eigen::Index j = 0; j < n; ++j) {
        double pivot = matrix(j, j);
        for (Eigen::Index k = 0; k < j; ++k)
            pivot -= matrix(j, k) * matrix(j, k);
        if (!(pivot > 0.0)) return false;
        const double root = std::sqrt(pivot);
        matrix(j, j) = root;
        for (Eigen::Index i = j + 1; i < n; ++i)
            matrix(j, i) = 0.0;
        for (Eigen::Index k = 0; k < j; ++k) {
            const double factor = matrix(j, k);
            if (factor == 0.0) continue;
            for (Eigen::Index i = j + 1; i < n; ++i)
                matrix(i, j) -= matrix(i, k) * factor;
        }
        for (Eigen::Index i = j + 1; i < n; ++i)
            matrix(i, j) /= root;
    }
    return true;
}

void InverseFromFactor(const Eigen::MatrixXd& factor, Eigen::MatrixXd& inverse, Workers* crew) {
    const Eigen::Index n = factor.rows();
    if (n >= kTuned) {
        EnterBlas();
        inverse = factor;
        const auto order = static_cast<lapack_int>(n);
        if (n >= kShared) {
            TiledInvert(inverse.data(), order, crew);
        } else {
            LAPACKE_dpotri_work(LAPACK_COL_MAJOR, 'L', order, inverse.data(), order);
        }
        inverse.triangularView<Eigen::StrictlyUpper>() = inverse.transpose();
        return;
    }
    if (n == 1) {
        inverse.resize(1, 1);
        inverse(0, 0) = 1.0 / (factor(0, 0) * factor(0, 0));
        return;
    }
    inverse.setIdentity(n, n);
    factor.triangularView<Eigen::Lower>().solveInPlace(inverse);
    factor.triangularView<Eigen::Lower>().transpose().solveInPlace(inverse);
}

void Multiply(const Eigen::MatrixXd& left, const Eigen::MatrixXd& right, Eigen::MatrixXd& out) {
    out.resize(left.rows(), right.cols());
    if (left.rows() < kTuned || left.cols() < kTuned) {
        if (left.cols() <= 8) {
            out.noalias() = left.lazyProduct(right);
        } else {
            out.noalias() = left * right;
        }
        return;
    }
    EnterBlas();
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, static_cast<int>(left.rows()),
                static_cast<int>(right.cols()), static_cast<int>(left.cols()), 1.0, left.data(),
                static_cast<int>(left.rows()), right.data(), static_cast<int>(right.rows()), 0.0, out.data(),
                static_cast<int>(out.rows()));
}

void MultiplySymmetric(const Eigen::MatrixXd& left, const Eigen::MatrixXd& right, Eigen::MatrixXd& out, Workers* crew) {
    if (left.rows() < kShared) return Multiply(left, right, out);
    out.resize(left.rows(), right.cols());
    TiledMultiply(left.data(), static_cast<int>(left.rows()), right.data(), static_cast<int>(right.cols()), out.data(),
                  crew);
}

void SolveLower(const Eigen::MatrixXd& factor, Eigen::MatrixXd& right) {
    if (factor.rows() < kTuned) {
        factor.triangularView<Eigen::Lower>().solveInPlace(right);
        return;
    }
    EnterBlas();
    cblas_dtrsm(CblasColMajor, CblasLeft, CblasLower, CblasNoTrans, CblasNonUnit, static_cast<int>(right.rows()),
                static_cast<int>(right.cols()), 1.0, factor.data(), static_cast<int>(factor.rows()), right.data(),
                static_cast<int>(right.rows()));
}

}  // namespace engine
