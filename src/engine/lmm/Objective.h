#pragma once

#include "engine/lmm/ParameterLayout.h"
#include "engine/model/Matrices.h"

#include <vector>

namespace engine {

/// The restricted or full likelihood at one theta. Sizes: p kept fixed columns, m covariance parameters.
///
/// With V the marginal covariance matrix, V_k its derivatives, C = (X'V^-1X)^-1 = H H', r = y - X beta:
///   value     = log|V| + log|X'V^-1X| + r'V^-1r + (n - p) log 2 pi; the full likelihood has no second term, and n.
///   gradient  = tr(P V_k) - r'V^-1 V_k V^-1 r
///   expected  = tr(P V_k P V_l)
///   observed  = -expected + 2 r'V^-1 V_k P V_l V^-1 r + tr(P V_kl) - r'V^-1 V_kl V^-1 r
/// with P = V^-1 - V^-1 X C X'V^-1, or P = V^-1 in the traces of the full likelihood
/// (Lindstrom and Bates 1988; Searle, Casella and McCulloch 1992, chapter 6).
struct Evaluation {
    bool fFeasible = false;  ///< false: V isn't positive definite there; nothing else holds then
    double fValue = 0.0;
    Eigen::VectorXd fBeta;    ///< p, centred basis, relative to the least squares fit
    Eigen::MatrixXd fHalf;    ///< p x p: H, centred basis
    double fQuadratic = 0.0;  ///< r'V^-1r
    // With derivatives:
    Eigen::VectorXd fGradient;
    Eigen::MatrixXd fExpected;
    Eigen::MatrixXd fObserved;
    std::vector<Eigen::MatrixXd> fSlopes;  ///< per parameter, H' X'V^-1 V_k V^-1X H, so that dC = H slope H'
};

/// A likelihood that the optimizer and the inference can work with.
class Objective {
public:
    virtual ~Objective() = default;
    virtual const ParameterLayout& Layout() const = 0;
    /// Value, beta and H at theta.
    virtual Evaluation Value(const Eigen::VectorXd& theta, ThetaScale scale) const = 0;
    /// The same with all derivatives. Rows of fixed parameters are zero.
    virtual Evaluation Derivatives(const Eigen::VectorXd& theta, ThetaScale scale) const = 0;
    /// Derivatives on which inference may rest, where those of Derivatives are dear and only as good as stepping needs.
    virtual Evaluation Final(const Eigen::VectorXd& theta, ThetaScale scale) const { return Derivatives(theta, scale); }
    /// Newton decrement below which further steps are not worth their cost.
    virtual double Resolution() const { return 1e-22; }
    /// Sum over k and l of weight(k, l) H' (X'V^-1 V_k V^-1 V_l V^-1X - 1/4 X'V^-1 V_kl V^-1X) H, p x p: the part of
    /// the Kenward-Roger adjustment that needs the data.
    virtual Eigen::MatrixXd WeightedCurvature(const Eigen::VectorXd& theta, ThetaScale scale,
                                              const Eigen::MatrixXd& weight) const = 0;
};

}  // namespace engine
