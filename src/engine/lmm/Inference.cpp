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

double QuadraticForm(const Eigen::MatrixXd& matrix, const Eigen::Ref<const Eigen::VectorXd>& x) {
    double sum = 0.0;
    for (Eigen::Index j = 0; j < x.size(); ++j)
        sum += x[j] * x.dot(matrix.col(j));
    return sum;
}

ContrastResult Infer(const Estimated& estimated, double confidence) {
    ContrastResult result{estimated};
    if (std::isnan(estimated.fStdError)) return result;
    result.fT = estimated.fEstimate / estimated.fStdError;
    result.fP = TwoSidedT(result.fT, estimated.fDf);
    const double margin = UpperT(estimated.fDf, confidence) * estimated.fStdError;
    result.fLower = estimated.fEstimate - margin;
    result.fUpper = estimated.fEstimate + margin;
    return result;
}

// 2 var^2 / var(var). With the covariance of Satterthwaite's rule; and with the weight of Kenward and Roger's, whose
// degrees of freedom are this for one row (section 3 of the paper named below, with l = 1).
double Inference::SingleDf(const Eigen::Ref<const Eigen::VectorXd>& half,
                           const Eigen::MatrixXd& thetaCovariance) const {
    const Eigen::Index m = thetaCovariance.rows();
    Eigen::VectorXd slope(m);
    for (Eigen::Index k = 0; k < m; ++k)
        slope[k] = QuadraticForm(fAt.fSlopes[k], half);
    const double variance = half.squaredNorm();
    const double spread = QuadraticForm(thetaCovariance, slope);
    return spread > 0.0 ? 2.0 * variance * variance / spread : kMissing;
}

void Inference::AddError(const Eigen::Ref<const Eigen::VectorXd>& half, Estimated& result) const {
    double variance = half.squaredNorm();
    switch (fMethod) {
        case DfMethod::kResidual:
            result.fDf = fBasis.TotalFrequency() - fBasis.Rank();
            break;
        case DfMethod::kSatterthwaite:
            result.fDf = SingleDf(half, fThetaCovariance);
            break;
        case DfMethod::kKenwardRoger:
            result.fDf = SingleDf(half, fWeight);
            if (fAdjusted.size() > 0) variance = QuadraticForm(fAdjusted, half);
            break;
    }
    if (variance > 0.0) result.fStdError = std::sqrt(variance);
}

ContrastResult Inference::Contrast(const Eigen::VectorXd& row) const {
    Estimated result;
    result.fEstimable = IsEstimableRow(fBasis, row);
    if (!result.fEstimable) return Infer(result, fConfidence);
    const Eigen::VectorXd kept = Keep(row);
    result.fEstimate = kept.dot(fBeta);
    AddError(fHalf.transpose() * kept, result);
    return Infer(result, fConfidence);
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
        const double v = SingleDf(half * eigen.eigenvectors().col(i), fThetaCovariance);
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
