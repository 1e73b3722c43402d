#include "engine/lmm/MixedContrasts.h"

#include "engine/lmm/Distributions.h"
#include "engine/lmm/Hypotheses.h"

#include <cmath>

namespace engine {

namespace {

constexpr double kDifference = 1e-3;  // step of the differences, in standard errors of the parameter

}  // namespace

MixedContrasts::Point MixedContrasts::At(const FittedModel& model, const Eigen::VectorXd& theta) {
    const Evaluation at = model.fObjective->Value(theta, ThetaScale::kReported);
    const Eigen::MatrixXd half = model.fProblem->Basis().KeptTransform().triangularView<Eigen::Upper>().solve(at.fHalf);
    return {half, RandomEffects(*model.fProblem, theta, at)};
}

MixedContrasts::MixedContrasts(const FittedModel& model) : fModel(model), fHere(At(model, model.fTheta)) {
    if (model.fSpec.fDf != DfMethod::kSatterthwaite) return;
    const Eigen::MatrixXd& covariance = model.fThetaCovariance;
    for (Eigen::Index k = 0; k < covariance.rows(); ++k) {
        if (!(covariance(k, k) > 0.0)) continue;
        const double step = kDifference * std::min(std::sqrt(covariance(k, k)), std::abs(model.fTheta[k]) + 1e-300);
        Eigen::VectorXd up = model.fTheta;
        Eigen::VectorXd down = model.fTheta;
        up[k] += step;
        down[k] -= step;
        fSides.push_back({static_cast<int>(k), step, At(model, up), At(model, down)});
    }
}

bool MixedContrasts::Place(const MixedRow& row, Eigen::VectorXd* kept, std::vector<Term>* terms,
                           double* estimate) const {
    const FixedBasis& basis = fModel.fProblem->Basis();
    if (!IsEstimableRow(basis, row.fFixed)) return false;
    kept->resize(basis.Rank());
    for (int k = 0; k < basis.Rank(); ++k)
        (*kept)[k] = row.fFixed[basis.Kept()[k]];
    *estimate = kept->dot(fModel.fInference->Beta());
    for (const MixedRow::RandomTerm& wanted : row.fRandom) {
        const RandomEffects::Place place = fHere.fEffects.Find(wanted.fBlock, wanted.fSubject);
        if (place.fSubject < 0) return false;
        const RandomEffects::Subject& subject = fHere.fEffects.Subjects()[place.fSubject];
        auto term = terms->begin();
        while (term != terms->end() && term->fSubject != place.fSubject)
            ++term;
        if (term == terms->end()) {
            terms->push_back({place.fSubject, Eigen::VectorXd::Zero(subject.fEstimate.size())});
            term = terms->end() - 1;
        }
        term->fCoefficients[place.fColumn + wanted.fColumn] += wanted.fCoefficient;
        *estimate += wanted.fCoefficient * subject.fEstimate[place.fColumn + wanted.fColumn];
    }
    return true;
}

Eigen::MatrixXd MixedContrasts::Covariance(const Eigen::MatrixXd& kept, const std::vector<std::vector<Term>>& terms,
                                           const Point& point) const {
    const auto& subjects = point.fEffects.Subjects();
    Eigen::MatrixXd half = point.fHalf.transpose() * kept;
    const auto rows = static_cast<std::size_t>(kept.cols());
    for (std::size_t i = 0; i < rows; ++i) {
        for (const Term& term : terms[i])
            half.col(static_cast<Eigen::Index>(i)) -= subjects[term.fSubject].fPull.transpose() * term.fCoefficients;
    }
    Eigen::MatrixXd covariance = half.transpose() * half;
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < rows; ++j) {
            for (const Term& left : terms[i]) {
                for (const Term& right : terms[j]) {
                    if (left.fSubject != right.fSubject) continue;
                    covariance(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) +=
                        left.fCoefficients.dot(subjects[left.fSubject].fOwn * right.fCoefficients);
                }
            }
        }
    }
    return covariance;
}

std::vector<Eigen::MatrixXd> MixedContrasts::Slopes(const Eigen::MatrixXd& kept,
                                                    const std::vector<std::vector<Term>>& terms) const {
    std::vector<Eigen::MatrixXd> slopes;
    for (const Side& side : fSides) {
        slopes.push_back((Covariance(kept, terms, side.fUp) - Covariance(kept, terms, side.fDown)) /
                         (2.0 * side.fStep));
    }
    return slopes;
}

double MixedContrasts::Df(const Eigen::VectorXd& direction, double variance,
                          const std::vector<Eigen::MatrixXd>& slopes) const {
    const FixedBasis& basis = fModel.fProblem->Basis();
    if (fModel.fSpec.fDf == DfMethod::kResidual) return basis.TotalFrequency() - basis.Rank();
    if (fModel.fSpec.fDf != DfMethod::kSatterthwaite) return kMissing;
    double spread = 0.0;
    for (std::size_t k = 0; k < fSides.size(); ++k) {
        for (std::size_t l = 0; l < fSides.size(); ++l) {
            spread += fModel.fThetaCovariance(fSides[k].fParam, fSides[l].fParam) *
                      direction.dot(slopes[k] * direction) * direction.dot(slopes[l] * direction);
        }
    }
    return spread > 0.0 ? 2.0 * variance * variance / spread : kMissing;
}

ContrastResult MixedContrasts::Contrast(const MixedRow& row) const {
    ContrastResult result;
    Eigen::VectorXd kept;
    std::vector<std::vector<Term>> terms(1);
    double estimate = 0.0;
    result.fEstimable = Place(row, &kept, &terms[0], &estimate);
    if (!result.fEstimable) return result;
    result.fEstimate = estimate;
    const double variance = Covariance(kept, terms, fHere)(0, 0);
    if (!(variance > 0.0)) return result;
    result.fStdError = std::sqrt(variance);
    result.fDf = Df(Eigen::VectorXd::Ones(1), variance, Slopes(kept, terms));
    result.fT = estimate / result.fStdError;
    result.fP = TwoSidedT(result.fT, result.fDf);
    const double margin = UpperT(result.fDf, fModel.fSpec.fConfidence) * result.fStdError;
    result.fLower = estimate - margin;
    result.fUpper = estimate + margin;
    return result;
}

FTestResult MixedContrasts::Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values) const {
    FTestResult result;
    const auto count = static_cast<Eigen::Index>(rows.size());
    Eigen::MatrixXd kept(fModel.fProblem->Basis().Rank(), count);
    Eigen::VectorXd estimate(count);
    std::vector<std::vector<Term>> terms(rows.size());
    result.fL.resize(count, fModel.fProblem->Basis().NumColumns());
    for (Eigen::Index i = 0; i < count; ++i) {
        Eigen::VectorXd row;
        if (!Place(rows[i], &row, &terms[i], &estimate[i])) {
            result.fEstimable = false;
            return result;
        }
        kept.col(i) = row;
        result.fL.row(i) = rows[i].fFixed.transpose();
        if (values.size() > 0) estimate[i] -= values[i];
    }
    const std::vector<Eigen::MatrixXd> slopes = Slopes(kept, terms);
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(Covariance(kept, terms, fHere));
    const Eigen::VectorXd along = eigen.eigenvectors().transpose() * estimate;
    const double largest = count > 0 ? eigen.eigenvalues()[count - 1] : 0.0;
    double sum = 0.0;
    double spread = 0.0;
    double single = kMissing;
    for (Eigen::Index i = 0; i < count; ++i) {
        const double variance = eigen.eigenvalues()[i];
        if (!(variance > 1e-10 * largest)) continue;
        result.fDf1 += 1.0;
        sum += along[i] * along[i] / variance;
        single = Df(eigen.eigenvectors().col(i), variance, slopes);
        if (single > 2.0) spread += single / (single - 2.0);
    }
    if (result.fDf1 == 0.0) {
        result.fEstimable = false;
        return result;
    }
    result.fF = sum / result.fDf1;
    if (fModel.fSpec.fDf == DfMethod::kSatterthwaite && result.fDf1 > 1.0) {
        result.fDf2 = spread > result.fDf1 ? 2.0 * spread / (spread - result.fDf1) : kMissing;
    } else {
        result.fDf2 = single;
    }
    result.fP = UpperF(result.fF, result.fDf1, result.fDf2);
    return result;
}

}  // namespace engine
