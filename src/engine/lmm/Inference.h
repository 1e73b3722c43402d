#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/FixedBasis.h"
#include "engine/lmm/Objective.h"
#include "engine/model/Matrices.h"

#include <memory>
#include <vector>

namespace engine {

class LmmProblem;

/// x' M x for a symmetric M.
double QuadraticForm(const Eigen::MatrixXd& matrix, const Eigen::Ref<const Eigen::VectorXd>& x);

/// What a t test says of an estimate with its error, and the limits at a level of confidence.
ContrastResult Infer(const Estimated& estimated, double confidence);

/// What an inference knows of the fixed effects, free of the data.
struct FixedState {
    Eigen::VectorXd fBeta;                 ///< p kept columns, original parametrisation
    Eigen::MatrixXd fHalf;                 ///< R with cov(beta) = R R', model-based
    std::vector<Eigen::MatrixXd> fSlopes;  ///< per covariance parameter, d cov(beta) = R slope R'
    Eigen::MatrixXd fThetaCovariance;      ///< of the covariance parameters on the scale of the slopes
    Eigen::MatrixXd fWeight, fAdjusted;    ///< Kenward-Roger; else empty
};

/// What is known after the iterations, put so that any contrast can be tested. Immutable.
class Inference {
public:
    /// at: derivatives on the given scale. covariance: of the covariance parameters on that scale, zero rows for those
    /// that are held. The basis outlives this object.
    Inference(const FixedBasis& basis, DfMethod method, double confidence, Evaluation at, Eigen::MatrixXd covariance);

    /// From what Keep gave.
    Inference(const FixedBasis& basis, DfMethod method, double confidence, FixedState state);

    /// Takes up the Kenward-Roger adjustment: weight is the inverse expected information (twice the inverse of
    /// Evaluation::fExpected over the free parameters), curvature is Objective::WeightedCurvature with it.
    void AdjustKenwardRoger(Eigen::MatrixXd weight, const Eigen::MatrixXd& curvature);

    const FixedBasis& Basis() const { return fBasis; }
    const Eigen::VectorXd& Beta() const { return fBeta; }  ///< kept columns, original parametrisation
    const Eigen::MatrixXd& Half() const { return fHalf; }  ///< R with cov(beta) = R R' (model-based)
    const Evaluation& At() const { return fAt; }
    FixedState Keep() const { return {fBeta, fHalf, fAt.fSlopes, fThetaCovariance, fWeight, fAdjusted}; }
    /// Covariance of the kept coefficients, adjusted for Kenward-Roger.
    Eigen::MatrixXd Covariance() const;

    ContrastResult Contrast(const Eigen::VectorXd& row) const;
    /// F test of the rows against values (empty: zeros). Satterthwaite's degrees of freedom of several rows are those
    /// of the eigenvectors of L C L' (Fai and Cornelius 1996, "Approximate F-tests of multiple degree of freedom
    /// hypotheses"), which depend on the rows that span the hypothesis: L is made orthonormal first, so that the answer
    /// doesn't depend on how a hypothesis is written.
    FTestResult Test(const Eigen::MatrixXd& rows, const Eigen::VectorXd& values) const;
    /// The same against zeros with L as it stands: effects have rows of their own (see Hypotheses.h).
    FTestResult TestAsWritten(const Eigen::MatrixXd& rows) const;
    /// Standard error and degrees of freedom of a row l given as Half()' l[kept].
    void AddError(const Eigen::Ref<const Eigen::VectorXd>& half, Estimated& result) const;

private:
    Eigen::VectorXd Keep(const Eigen::VectorXd& row) const;
    FTestResult TestRows(const Eigen::MatrixXd& rows, const Eigen::VectorXd& values, bool orthonormal) const;
    double SingleDf(const Eigen::Ref<const Eigen::VectorXd>& half, const Eigen::MatrixXd& thetaCovariance) const;
    FTestResult KenwardRogerTest(const Eigen::MatrixXd& half, const Eigen::VectorXd& estimate) const;
    FTestResult PlainTest(const Eigen::MatrixXd& half, const Eigen::VectorXd& estimate) const;

    const FixedBasis& fBasis;
    const DfMethod fMethod;
    const double fConfidence;
    const Evaluation fAt;
    const Eigen::MatrixXd fThetaCovariance;
    Eigen::VectorXd fBeta;
    Eigen::MatrixXd fHalf;
    Eigen::MatrixXd fWeight;    // Kenward-Roger
    Eigen::MatrixXd fAdjusted;  // Kenward-Roger: cov(beta) = R fAdjusted R'
};

}  // namespace engine
