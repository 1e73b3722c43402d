#include "engine/lmm/Inference.h"

#include "engine/lmm/Distributions.h"
#include "engine/lmm/Hypotheses.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

constexpr double kDependent = 1e-10;  // share of a row's variance left by the rows before it that counts as none

// The rows (columns of half) that aren't combinations of those before them.
std::vector<int> IndependentRows(const Eigen::MatrixXd& half) {
    std::vector<int> kept;
    Eigen::MatrixXd orthonormal(half.rows(), std::min(half.rows(), half.cols()));
    for (Eigen::Index j = 0; j < half.cols(); ++j) {
        const auto rank = static_cast<Eigen::Index>(kept.size());
        if (rank == orthonormal.cols()) break;
        Eigen::VectorXd left = half.col(j);
        for (int pass = 0; pass < 2; ++pass)
            left -= orthonormal.leftCols(rank) * (orthonormal.leftCols(rank).transpose() * left);
        const double norm = left.norm();
        if (!(norm > std::sqrt(kDependent) * half.col(j).norm())) continue;
        orthonormal.col(rank) = left / norm;
        kept.push_back(static_cast<int>(j));
    }
    return kept;
}

}  // namespace

Inference::Inference(const FixedBasis& basis, DfMethod method, double confidence, Evaluation at,
                     Eigen::MatrixXd covariance)
    : fBasis(basis),
      fMethod(method),
      fConfidence(confidence),
      fAt(std::move(at)),
      fThetaCovariance(std::move(covariance)) {
    fBeta = basis.ToOriginal(fAt.fBeta);
    fHalf = basis.KeptTransform().triangularView<Eigen::Upper>().solve(fAt.fHalf);
}

namespace {

Evaluation WithSlopes(std::vector<Eigen::MatrixXd> slopes) {
    Evaluation at;
    at.fSlopes = std::move(slopes);
    return at;
}

}  // namespace

Inference::Inference(const FixedBasis& basis, DfMethod method, double confidence, FixedState state)
    : fBasis(basis),
      fMethod(method),
      fConfidence(confidence),
      fAt(WithSlopes(std::move(state.fSlopes))),
      fThetaCovariance(std::move(state.fThetaCovariance)),
      fBeta(std::move(state.fBeta)),
      fHalf(std::move(state.fHalf)),
      fWeight(std::move(state.fWeight)),
      fAdjusted(std::move(state.fAdjusted)) {}

void Inference::AdjustKenwardRoger(Eigen::MatrixXd weight, const Eigen::MatrixXd& curvature) {
    fWeight = std::move(weight);
    const Eigen::Index p = fHalf.cols();
    Eigen::MatrixXd middle = curvature;
    for (Eigen::Index k = 0; k < fWeight.rows(); ++k) {
        Eigen::MatrixXd combined = Eigen::MatrixXd::Zero(p, p);
        for (Eigen::Index l = 0; l < fWeight.cols(); ++l)
            combined += fWeight(k, l) * fAt.fSlopes[l];
        middle -= fAt.fSlopes[k] * combined;
    }
    fAdjusted = Eigen::MatrixXd::Identity(p, p) + (middle + middle.transpose());
}

Eigen::MatrixXd Inference::Covariance() const {
    return fAdjusted.size() > 0 ? Eigen::MatrixXd(fHalf * fAdjusted * fHalf.transpose())
                                : Eigen::MatrixXd(fHalf * fHalf.transpose());
}

Eigen::VectorXd Inference::Keep(const Eigen::VectorXd& row) const {
    Eigen::VectorXd kept(fBasis.Rank());
    for (int k = 0; k < fBasis.Rank(); ++k)
        kept[k] = row[fBasis.Kept()[k]];
    return kept;
}

double Inference::SatterthwaiteDf(const Eigen::VectorXd& half) const {
    const Eigen::Index m = fThetaCovariance.rows();
    Eigen::VectorXd slope(m);
    for (Eigen::Index k = 0; k < m; ++k)
        slope[k] = half.dot(fAt.fSlopes[k] * half);
    const double variance = half.squaredNorm();
    const double spread = slope.dot(fThetaCovariance * slope);
    return spread > 0.0 ? 2.0 * variance * variance / spread : kMissing;
}

ContrastResult Inference::Contrast(const Eigen::VectorXd& half, double estimate) const {
    ContrastResult result;
    result.fEstimate = estimate;
    double variance = half.squaredNorm();
    switch (fMethod) {
        case DfMethod::kResidual:
            result.fDf = fBasis.TotalFrequency() - fBasis.Rank();
            break;
        case DfMethod::kSatterthwaite:
            result.fDf = SatterthwaiteDf(half);
            break;
        case DfMethod::kKenwardRoger:
            if (fAdjusted.size() > 0) variance = half.dot(fAdjusted * half);
            result.fDf = KenwardRogerTest(half, Eigen::VectorXd::Constant(1, estimate)).fDf2;
            break;
    }
    if (!(variance > 0.0)) return result;
    result.fStdError = std::sqrt(variance);
    result.fT = estimate / result.fStdError;
    result.fP = TwoSidedT(result.fT, result.fDf);
    const double margin = UpperT(result.fDf, fConfidence) * result.fStdError;
    result.fLower = estimate - margin;
    result.fUpper = estimate + margin;
    return result;
}

ContrastResult Inference::Contrast(const Eigen::VectorXd& row) const {
    if (!IsEstimableRow(fBasis, row)) {
        ContrastResult result;
        result.fEstimable = false;
        return result;
    }
    const Eigen::VectorXd kept = Keep(row);
    return Contrast(fHalf.transpose() * kept, kept.dot(fBeta));
}

FTestResult Inference::Test(const Eigen::MatrixXd& rows, const Eigen::VectorXd& values) const {
    return TestRows(rows, values, true);
}

FTestResult Inference::TestAsWritten(const Eigen::MatrixXd& rows) const {
    return TestRows(rows, {}, false);
}

FTestResult Inference::TestRows(const Eigen::MatrixXd& rows, const Eigen::VectorXd& values, bool orthonormal) const {
    FTestResult result;
    Eigen::MatrixXd half(fHalf.cols(), rows.rows());
    Eigen::VectorXd estimate(rows.rows());
    bool estimable = rows.rows() > 0;
    for (Eigen::Index i = 0; i < rows.rows() && estimable; ++i) {
        estimable = IsEstimableRow(fBasis, rows.row(i));
        const Eigen::VectorXd kept = Keep(rows.row(i));
        half.col(i) = fHalf.transpose() * kept;
        estimate[i] = kept.dot(fBeta) - (values.size() > 0 ? values[i] : 0.0);
    }
    if (!estimable) {
        result.fEstimable = false;
        result.fL = rows;
        return result;
    }
    const std::vector<int> kept = IndependentRows(half);
    Eigen::MatrixXd usedHalf(half.rows(), kept.size());
    Eigen::VectorXd usedEstimate(kept.size());
    for (std::size_t i = 0; i < kept.size(); ++i) {
        usedHalf.col(static_cast<Eigen::Index>(i)) = half.col(kept[i]);
        usedEstimate[static_cast<Eigen::Index>(i)] = estimate[kept[i]];
    }
    if (orthonormal && kept.size() > 1) {
        Eigen::MatrixXd columns(rows.cols(), kept.size());
        for (std::size_t i = 0; i < kept.size(); ++i)
            columns.col(static_cast<Eigen::Index>(i)) = rows.row(kept[i]).transpose();
        const Eigen::MatrixXd cross = columns.transpose() * columns;
        const Eigen::LLT<Eigen::MatrixXd> factor(cross);
        factor.matrixU().solveInPlace<Eigen::OnTheRight>(usedHalf);
        factor.matrixL().solveInPlace(usedEstimate);
    }
    if (kept.empty()) {
        result.fEstimable = false;
    } else {
        result = fMethod == DfMethod::kKenwardRoger ? KenwardRogerTest(usedHalf, usedEstimate)
                                                    : PlainTest(usedHalf, usedEstimate);
    }
    result.fL = rows;
    return result;
}

FTestResult Inference::PlainTest(const Eigen::MatrixXd& half, const Eigen::VectorXd& estimate) const {
    FTestResult result;
    const Eigen::Index q = half.cols();
    result.fDf1 = static_cast<double>(q);
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(half.transpose() * half);
    const Eigen::VectorXd along = eigen.eigenvectors().transpose() * estimate;
    double sum = 0.0;
    double spread = 0.0;  // sum of v / (v - 2)
    bool missing = false;
    for (Eigen::Index i = 0; i < q; ++i) {
        sum += along[i] * along[i] / eigen.eigenvalues()[i];
        if (fMethod != DfMethod::kSatterthwaite) continue;
        const double v = SatterthwaiteDf(half * eigen.eigenvectors().col(i));
        missing = missing || std::isnan(v);
        if (q == 1) {
            result.fDf2 = v;
        } else if (v > 2.0) {
            spread += std::isinf(v) ? 1.0 : v / (v - 2.0);
        }
    }
    result.fF = sum / static_cast<double>(q);
    if (fMethod == DfMethod::kResidual) {
        result.fDf2 = fBasis.TotalFrequency() - fBasis.Rank();
    } else if (q > 1) {
        result.fDf2 =
            !missing && spread > static_cast<double>(q) ? 2.0 * spread / (spread - static_cast<double>(q)) : kMissing;
    }
    result.fP = UpperF(result.fF, result.fDf1, result.fDf2);
    return result;
}

// Kenward and Roger 1997, "Small sample inference for fixed effects from restricted maximum likelihood", section 3.
FTestResult Inference::KenwardRogerTest(const Eigen::MatrixXd& half, const Eigen::VectorXd& estimate) const {
    FTestResult result;
    const Eigen::Index q = half.cols();
    const double l = static_cast<double>(q);
    result.fDf1 = l;
    const Eigen::MatrixXd orthonormal =
        Eigen::HouseholderQR<Eigen::MatrixXd>(half).householderQ() * Eigen::MatrixXd::Identity(half.rows(), q);
    const Eigen::Index m = fWeight.rows();
    std::vector<Eigen::MatrixXd> slopes(m);
    for (Eigen::Index k = 0; k < m; ++k)
        slopes[k] = orthonormal.transpose() * fAt.fSlopes[k] * orthonormal;
    double a1 = 0.0;
    double a2 = 0.0;
    for (Eigen::Index i = 0; i < m; ++i) {
        for (Eigen::Index j = 0; j < m; ++j) {
            if (fWeight(i, j) == 0.0) continue;
            a1 += fWeight(i, j) * slopes[i].trace() * slopes[j].trace();
            a2 += fWeight(i, j) * slopes[i].cwiseProduct(slopes[j]).sum();
        }
    }
    const Eigen::MatrixXd covariance = half.transpose() * fAdjusted * half;
    const double wald = estimate.dot(covariance.ldlt().solve(estimate)) / l;
    if (!(a2 > 0.0)) {
        result.fF = wald;
        return result;
    }
    const double b = (a1 + 6.0 * a2) / (2.0 * l);
    const double g = ((l + 1.0) * a1 - (l + 4.0) * a2) / ((l + 2.0) * a2);
    const double c = 3.0 * l + 2.0 * (1.0 - g);
    const double v0 = 1.0 + g / c * b;
    const double v1 = 1.0 - (l - g) / c * b;
    const double v2 = 1.0 - (l + 2.0 - g) / c * b;
    const double e = 1.0 - a2 / l;
    // rho is variance over twice the squared mean; where both e and v1 vanish their ratio tends to 1.
    const double ratio = std::abs(e) < 1e-10 && std::abs(v1) < 1e-10 ? 1.0 : e / v1;
    const double rho = ratio * ratio * v0 / v2 / l;
    result.fDf2 = 4.0 + (l + 2.0) / (l * rho - 1.0);
    if (!std::isfinite(result.fDf2) || result.fDf2 <= 0.0) result.fDf2 = kMissing;
    const double factor = std::abs(result.fDf2 - 2.0) < 1e-2 ? 1.0 : result.fDf2 * e / (result.fDf2 - 2.0);
    result.fF = factor * wald;
    result.fP = UpperF(result.fF, result.fDf1, result.fDf2);
    return result;
}

}  // namespace engine
