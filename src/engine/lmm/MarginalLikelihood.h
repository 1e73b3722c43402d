#pragma once

#include "engine/lmm/LmmProblem.h"
#include "engine/lmm/Objective.h"

namespace engine {

class ThetaState;
class UnitKernel;

/// The likelihood from a problem's units: dense algebra of each unit's order, units in parallel.
class MarginalLikelihood : public Objective {
public:
    /// The problem stays where it is and owned elsewhere; restricted: REML, else the full likelihood.
    MarginalLikelihood(const LmmProblem& problem, bool restricted) : fProblem(problem), fRestricted(restricted) {}

    const ParameterLayout& Layout() const override { return fProblem.Layout(); }
    Evaluation Value(const Eigen::VectorXd& theta, ThetaScale scale) const override;
    Evaluation Derivatives(const Eigen::VectorXd& theta, ThetaScale scale) const override;
    Eigen::MatrixXd WeightedCurvature(const Eigen::VectorXd& theta, ThetaScale scale,
                                      const Eigen::MatrixXd& weight) const override;

private:
    /// alone: of the state, used when the units are one chunk.
    Evaluation ValueAt(const ThetaState& state, UnitKernel& alone) const;

    const LmmProblem& fProblem;
    bool fRestricted;
};

}  // namespace engine
