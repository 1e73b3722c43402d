#include "engine/lmm/MixedContrasts.h"

#include "engine/lmm/Distributions.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/RowEstimator.h"

#include <cmath>

namespace engine {

namespace {

constexpr double kDependent = 1e-10;  // eigenvalue, as a share of the largest, of rows that depend on one another

}  // namespace

Eigen::MatrixXd FixedPart(const std::vector<MixedRow>& rows, int columns) {
    Eigen::MatrixXd fixed = Eigen::MatrixXd::Zero(static_cast<Eigen::Index>(rows.size()), columns);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (const ColumnHit& hit : rows[i].fFixed)
            fixed(static_cast<Eigen::Index>(i), hit.fColumn) += hit.fValue;
    }
    return fixed;
}

double MixedContrasts::Df(const Eigen::VectorXd& direction, double variance,
                          const RandomSource::Combination& combined) const {
    if (fModel.fSpec.fDf == DfMethod::kResidual) return fModel.Basis().TotalFrequency() - fModel.Basis().Rank();
    if (fModel.fSpec.fDf != DfMethod::kSatterthwaite) return kMissing;
    Eigen::VectorXd slope = Eigen::VectorXd::Zero(fModel.fTheta.size());
    for (std::size_t k = 0; k < combined.fSlopes.size(); ++k) {
        const Eigen::MatrixXd& change = combined.fSlopes[k];
        if (change.size() > 0) slope[static_cast<Eigen::Index>(k)] = QuadraticForm(change, direction);
    }
    const double spread = QuadraticForm(fModel.fThetaCovariance, slope);
    return spread > 0.0 ? 2.0 * variance * variance / spread : kMissing;
}

void MixedContrasts::AddError(const Eigen::MatrixXd& kept, const MixedRow& row, RandomSource::Combination& room,
                              Estimated& result) const {
    fSource->Combine(kept, {&row, 1}, fModel.fSpec.fDf == DfMethod::kSatterthwaite, room);
    const double variance = room.fCovariance(0, 0);
    if (!(variance > 0.0)) return;
    result.fStdError = std::sqrt(variance);
    result.fDf = Df(Eigen::VectorXd::Ones(1), variance, room);
}

FTestResult MixedContrasts::Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values) const {
    FTestResult result;
    const FixedBasis& basis = fModel.Basis();
    const auto size = static_cast<Eigen::Index>(rows.size());
    result.fL = FixedPart(rows, basis.NumColumns());
    Eigen::VectorXd estimate(size);
    RowEstimator estimator(fModel);
    result.fEstimable = size > 0;
    for (Eigen::Index i = 0; i < size && result.fEstimable; ++i) {
        const Estimated row = estimator.Estimate(rows[i], false);
        estimate[i] = row.fEstimate;
        result.fEstimable = row.fEstimable;
    }
    if (!result.fEstimable) return result;
    if (values.size() > 0) estimate -= values;
    const Eigen::MatrixXd kept = result.fL(Eigen::all, basis.Kept()).transpose();
    RandomSource::Combination combined;
    fSource->Combine(kept, rows, fModel.fSpec.fDf == DfMethod::kSatterthwaite, combined);
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(combined.fCovariance);
    const Eigen::VectorXd along = eigen.eigenvectors().transpose() * estimate;
    const double largest = eigen.eigenvalues()[size - 1];
    double sum = 0.0;
    double spread = 0.0;
    double single = kMissing;
    for (Eigen::Index i = 0; i < size; ++i) {
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
