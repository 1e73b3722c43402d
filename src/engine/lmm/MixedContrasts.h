#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/RandomEffects.h"

#include <vector>

namespace engine {

/// Contrasts that involve predicted random effects: their errors are those of prediction. Degrees of freedom by
/// Satterthwaite's rule, with the derivatives of the prediction variances in the covariance parameters by central
/// differences; missing for Kenward-Roger, which has no definition here.
class MixedContrasts {
public:
    /// The model outlives this object.
    explicit MixedContrasts(const FittedModel& model);

    const RandomEffects& Effects() const { return fHere.fEffects; }

    ContrastResult Contrast(const MixedRow& row) const;
    FTestResult Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values) const;

private:
    // Half-width and predictions at one theta.
    struct Point {
        Eigen::MatrixXd fHalf;
        RandomEffects fEffects;
    };
    struct Term {
        int fSubject;
        Eigen::VectorXd fCoefficients;
    };
    struct Side {
        int fParam;
        double fStep;
        Point fUp, fDown;
    };

    static Point At(const FittedModel& model, const Eigen::VectorXd& theta);
    bool Place(const MixedRow& row, Eigen::VectorXd* kept, std::vector<Term>* terms, double* estimate) const;
    Eigen::MatrixXd Covariance(const Eigen::MatrixXd& kept, const std::vector<std::vector<Term>>& terms,
                               const Point& point) const;
    std::vector<Eigen::MatrixXd> Slopes(const Eigen::MatrixXd& kept, const std::vector<std::vector<Term>>& terms) const;
    double Df(const Eigen::VectorXd& direction, double variance, const std::vector<Eigen::MatrixXd>& slopes) const;

    const FittedModel& fModel;
    Point fHere;
    std::vector<Side> fSides;  // empty unless degrees of freedom are Satterthwaite's
};

}  // namespace engine
