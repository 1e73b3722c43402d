// Ends of the iterations that a likelihood, which every accepted step lowers, doesn't come to by itself.
#include "engine/lmm/NewtonSolver.h"

#include <gtest/gtest.h>

namespace engine {
namespace {

/// One variance and an objective made of a slope and a bend that it doesn't live up to.
class Pretence : public Objective {
public:
    Pretence(double gain, double gradient, double curvature) : fGain(gain), fGradient(gradient), fCurvature(curvature) {
        fLayout.Add(-1, -1, CovarianceType::kID, MakeStructure(CovarianceType::kID, StructureShape{}), nullptr);
    }
    const ParameterLayout& Layout() const override { return fLayout; }
    Evaluation Value(const Eigen::VectorXd& theta, ThetaScale) const override {
        Evaluation at;
        at.fFeasible = true;
        at.fValue = 100.0 - fGain * theta[0];
        at.fGradient = Eigen::VectorXd::Constant(1, fGradient);
        at.fExpected = at.fObserved = Eigen::MatrixXd::Constant(1, 1, fCurvature);
        return at;
    }
    Evaluation Derivatives(const Eigen::VectorXd& theta, ThetaScale scale) const override {
        return Value(theta, scale);
    }
    Eigen::MatrixXd WeightedCurvature(const Eigen::VectorXd&, ThetaScale, const Eigen::MatrixXd&) const override {
        return {};
    }

private:
    ParameterLayout fLayout;
    double fGain, fGradient, fCurvature;
};

SolverEnd EndOf(const Pretence& objective, const ModelSpec& spec = {}) {
    return NewtonSolver(objective, spec, 1.0).Solve(Eigen::VectorXd::Constant(1, 1e3)).fEnd;
}

TEST(SolverEnds, StepsWithoutGainCycleOrRunOff) {
    EXPECT_EQ(EndOf({0.0, 1.0, 1.0}), SolverEnd::kCycles);
    EXPECT_EQ(EndOf({0.0, -1.0, 1e-14}), SolverEnd::kRunsUp);
    EXPECT_EQ(EndOf({1e-12, -1.0, 1e-14}), SolverEnd::kRunsDown);
    EXPECT_EQ(EndOf({1.0, 1.0, 1.0}), SolverEnd::kHalvings);
    // Nothing is to be gained, and nothing is promised: as low as it gets, whatever the criteria.
    ModelSpec strict;
    strict.fParameterCriterion = {1e-300, false};
    EXPECT_EQ(EndOf({0.0, 1e-5, 1.0}, strict), SolverEnd::kConverged);
    ModelSpec brief;
    brief.fMaxIterations = 2;
    EXPECT_EQ(EndOf({0.0, 1.0, 1.0}, brief), SolverEnd::kLimit);
}

}  // namespace
}  // namespace engine
