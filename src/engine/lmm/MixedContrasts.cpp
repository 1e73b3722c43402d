#include "engine/lmm/MixedContrasts.h"

#include "engine/lmm/Distributions.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/Hypotheses.h"

#include <cmath>

namespace engine {

namespace {

constexpr double kDependent = 1e-10;  // eigenvalue, as a share of the largest, of rows that depend on one another

}  // namespace

bool MixedContrasts::Combine(const std::vector<MixedRow>& rows, Eigen::VectorXd* estimate,
                             RandomSource::Combination* combined) const {
    const FixedBasis& basis = fModel.Basis();
    Eigen::MatrixXd kept(basis.Rank(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (!IsEstimableRow(basis, rows[i].fFixed)) return false;
        for (int k = 0; k < basis.Rank(); ++k)
            kept(k, static_cast<Eigen::Index>(i)) = rows[i].fFixed[basis.Kept()[k]];
        for (const MixedRow::RandomTerm& term : rows[i].fRandom) {
            if (!fSource->Knows(term.fBlock, term.fSubject)) return false;
        }
    }
    *combined = fSource->Combine(kept, rows, fModel.fSpec.fDf == DfMethod::kSatterthwaite);
    *estimate = kept.transpose() * fModel.fInference->Beta() + combined->fRandom;
    return true;
}

double MixedContrasts::Df(const Eigen::VectorXd& direction, double variance,
                          const RandomSource::Combination& combined) const {
    if (fModel.fSpec.fDf == DfMethod::kResidual) return fModel.Basis().TotalFrequency() - fModel.Basis().Rank();
    if (fModel.fSpec.fDf != DfMethod::kSatterthwaite) return kMissing;
    Eigen::VectorXd slope = Eigen::VectorXd::Zero(fModel.fTheta.size());
    for (std::size_t k = 0; k < combined.fSlopes.size(); ++k) {
        const Eigen::MatrixXd& change = combined.fSlopes[k];
        if (change.size() > 0) slope[static_cast<Eigen::Index>(k)] = direction.dot(change * direction);
    }
    const double spread = slope.dot(fModel.fThetaCovariance * slope);
    return spread > 0.0 ? 2.0 * variance * variance / spread : kMissing;
}

ContrastResult MixedContrasts::Contrast(const MixedRow& row) const {
    ContrastResult result;
    Eigen::VectorXd estimate;
    RandomSource::Combination combined;
    result.fEstimable = Combine({row}, &estimate, &combined);
    if (!result.fEstimable) return result;
    result.fEstimate = estimate[0];
    const double variance = combined.fCovariance(0, 0);
    if (!(variance > 0.0)) return result;
    result.fStdError = std::sqrt(variance);
    result.fDf = Df(Eigen::VectorXd::Ones(1), variance, combined);
    result.fT = estimate[0] / result.fStdError;
    result.fP = TwoSidedT(result.fT, result.fDf);
    const double margin = UpperT(result.fDf, fModel.fSpec.fConfidence) * result.fStdError;
    result.fLower = estimate[0] - margin;
    result.fUpper = estimate[0] + margin;
    return result;
}

FTestResult MixedContrasts::Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values) const {
    FTestResult result;
    Eigen::VectorXd estimate;
    RandomSource::Combination combined;
    result.fL.resize(rows.size(), fModel.Basis().NumColumns());
    for (std::size_t i = 0; i < rows.size(); ++i)
        result.fL.row(static_cast<Eigen::Index>(i)) = rows[i].fFixed.transpose();
    result.fEstimable = !rows.empty() && Combine(rows, &estimate, &combined);
    if (!result.fEstimable) return result;
    if (values.size() > 0) estimate -= values;
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(combined.fCovariance);
    const Eigen::VectorXd along = eigen.eigenvectors().transpose() * estimate;
    const Eigen::Index count = estimate.size();
    const double largest = eigen.eigenvalues()[count - 1];
    double sum = 0.0;
    double spread = 0.0;
    double single = kMissing;
    for (Eigen::Index i = 0; i < count; ++i) {
        const double variance = eigen.eigenvalues()[i];
        if (!(variance > kDependent * largest)) continue;
        result.fDf1 += 1.0;
        sum += along[i] * along[i] / variance;
        single = Df(eigen.eigenvectors().col(i), variance, combined);
        if (single > 2.0) spread += single / (single - 2.0);
    }
    result.fEstimable = result.fDf1 > 0.0;
    if (!result.fEstimable) return result;
    result.fF = sum / result.fDf1;
    result.fDf2 = single;
    if (fModel.fSpec.fDf == DfMethod::kSatterthwaite && result.fDf1 > 1.0) {
        result.fDf2 = spread > result.fDf1 ? 2.0 * spread / (spread - result.fDf1) : kMissing;
    }
    result.fP = UpperF(result.fF, result.fDf1, result.fDf2);
    return result;
}

}  // namespace engine
