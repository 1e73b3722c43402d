#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/Objective.h"

#include <vector>

namespace engine {

/// Why the iterations ended.
enum class SolverEnd { kConverged, kLimit, kHalvings, kBadStart, kCancelled, kRunsDown, kRunsUp, kCycles };

struct SolverOutcome {
    SolverEnd fEnd = SolverEnd::kBadStart;
    Eigen::VectorXd fTheta;   ///< working scale
    Evaluation fAt;           ///< with derivatives, working scale
    std::vector<char> fHeld;  ///< per parameter: at a bound, or without influence because another is
    std::vector<char> fAtBound;
    bool fHessianMet = true;  ///< false: the Hessian criterion is on and isn't met although the others are
    bool fSingular = false;   ///< a singular Hessian was met on the way, and stepped over
    double fSmallestEigenvalue = kMissing;  ///< of the free parameters' Hessian, unit diagonal
    double fDecrement = kMissing;
    double fScaledGradient = kMissing;
    std::vector<IterationRecord> fHistory;
};

/// Newton-Raphson with analytic derivatives, scoring steps first, on the structures' working scale; active bounds are
/// held while the gradient presses against them (Bertsekas 1982, "Projected Newton methods").
///
/// The iterations go on past the criteria of the settings, as long as Newton steps still improve the gradient, to near
/// machine precision.
class NewtonSolver {
public:
    /// targetScale: the target's spread, by which the absolute parameter criterion is scaled.
    NewtonSolver(const Objective& objective, const ModelSpec& spec, double targetScale)
        : fObjective(objective), fLayout(objective.Layout()), fSpec(spec), fTargetScale(targetScale) {}

    /// start: working scale.
    SolverOutcome Solve(const Eigen::VectorXd& start) const;

private:
    struct Step {
        Eigen::VectorXd fMove;
        double fDecrement = 0.0;
        double fSmallest = 0.0;
        bool fSingular = false;
        Eigen::VectorXd fWorst;  // eigenvector of the smallest eigenvalue, all parameters
    };

    void MarkHeld(const Eigen::VectorXd& theta, const Evaluation& at, SolverOutcome* outcome) const;
    Step Propose(const Evaluation& at, const std::vector<char>& held, bool fisher) const;
    Eigen::VectorXd Clamped(const Eigen::VectorXd& theta) const;
    bool Search(const Step& step, int most, bool strict, SolverOutcome* outcome, IterationRecord* record) const;
    bool CriteriaMet(const Eigen::VectorXd& before, double valueBefore, const Step& next, const SolverOutcome& outcome,
                     bool* hessianMet) const;
    double ParamScale(int k) const;
    void Record(const SolverOutcome& outcome, const Eigen::VectorXd& before, IterationRecord* record) const;
    bool LeaveSaddle(const Step& step, SolverOutcome* outcome) const;
    void Polish(SolverOutcome* outcome) const;

    const Objective& fObjective;
    const ParameterLayout& fLayout;
    const ModelSpec& fSpec;
    const double fTargetScale;
};

}  // namespace engine
