#include "engine/lmm/NewtonSolver.h"

#include "engine/model/StopScope.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

constexpr double kSingular = 1e-10;  // eigenvalue of the unit-diagonal Hessian that counts as zero while stepping
constexpr double kNegative = -1e-7;  // eigenvalue below which a stationary point is a saddle
constexpr int kMaxPolish = 8;
constexpr double kRounding = 1e-13;   // relative noise of the objective
constexpr double kClose = 1e-8;       // Newton decrement from which the gradient is a better guide than the objective,
constexpr double kCloseNoise = 1e-9;  // whose parts may be much larger than their sum, and ill-conditioned
constexpr double kRunaway = 1e12;     // growth of a parameter, in spreads of the target, that has no end
constexpr double kFalling = 1e-2;  // decrement from which on the objective is still falling, whatever the criteria say
constexpr int kStalled = 6;        // steps without any gain after which nothing better will come

bool IsCancelled(const ModelSpec& spec) {
    return spec.fCancelled && spec.fCancelled();
}

bool HessianMet(const ModelSpec& spec, double decrement, double value) {
    const Criterion& criterion = spec.fHessianCriterion;
    const double unit = criterion.fRelative ? std::max(std::abs(value), 1e-8) : 1.0;
    return !criterion.IsOn() || decrement <= criterion.fValue * unit;
}

}  // namespace

double NewtonSolver::ParamScale(int k) const {
    const double scale = fTargetScale > 0.0 ? fTargetScale : 1.0;
    switch (fLayout.Info(k, ThetaScale::kReported).fKind) {
        case ParamKind::kVariance:
        case ParamKind::kCovariance:
            return scale * scale;
        case ParamKind::kLoading:
            return scale;
        default:
            return 1.0;
    }
}

Eigen::VectorXd NewtonSolver::Clamped(const Eigen::VectorXd& theta) const {
    Eigen::VectorXd inside = theta;
    for (Eigen::Index k = 0; k < theta.size(); ++k) {
        const ParamInfo& info = fLayout.Info(static_cast<int>(k), ThetaScale::kWorking);
        inside[k] = std::clamp(inside[k], info.fLower, info.fUpper);
    }
    return inside;
}

void NewtonSolver::MarkHeld(const Eigen::VectorXd& theta, const Evaluation& at, SolverOutcome* outcome) const {
    const Eigen::Index m = theta.size();
    outcome->fHeld.assign(m, 0);
    outcome->fAtBound.assign(m, 0);
    for (Eigen::Index k = 0; k < m; ++k) {
        const ParamInfo& info = fLayout.Info(static_cast<int>(k), ThetaScale::kWorking);
        const bool pressed =
            (theta[k] <= info.fLower && at.fGradient[k] >= 0.0) || (theta[k] >= info.fUpper && at.fGradient[k] <= 0.0);
        const bool idle = at.fExpected(k, k) == 0.0 && at.fGradient[k] == 0.0 && at.fObserved(k, k) == 0.0;
        outcome->fAtBound[k] = !info.fFixed && pressed;
        outcome->fHeld[k] = info.fFixed || pressed || idle;
    }
}

NewtonSolver::Step NewtonSolver::Propose(const Evaluation& at, const std::vector<char>& held, bool fisher) const {
    Step step;
    const int m = static_cast<int>(held.size());
    step.fMove.setZero(m);
    step.fWorst.setZero(m);
    std::vector<int> free;
    for (int k = 0; k < m; ++k) {
        if (!held[k]) free.push_back(k);
    }
    const int f = static_cast<int>(free.size());
    if (f == 0) {
        step.fSmallest = 1.0;
        return step;
    }
    const Eigen::MatrixXd& curvature = fisher ? at.fExpected : at.fObserved;
    Eigen::VectorXd scale(f);
    Eigen::VectorXd gradient(f);
    for (int i = 0; i < f; ++i) {
        const int k = free[i];
        const double diagonal = std::max(std::abs(curvature(k, k)), at.fExpected(k, k));
        scale[i] = diagonal > 0.0 ? 1.0 / std::sqrt(diagonal) : 1.0;
        gradient[i] = scale[i] * at.fGradient[k];
    }
    Eigen::MatrixXd hessian(f, f);
    for (int i = 0; i < f; ++i) {
        for (int j = 0; j < f; ++j)
            hessian(i, j) = scale[i] * scale[j] * curvature(free[i], free[j]);
    }
    const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(hessian);
    const Eigen::VectorXd along = eigen.eigenvectors().transpose() * gradient;
    Eigen::VectorXd move = Eigen::VectorXd::Zero(f);
    for (int i = 0; i < f; ++i) {
        const double value = std::abs(eigen.eigenvalues()[i]);
        if (value <= kSingular * f) {
            step.fSingular = true;
            continue;
        }
        step.fDecrement += along[i] * along[i] / value;
        move -= along[i] / value * eigen.eigenvectors().col(i);
    }
    step.fSmallest = eigen.eigenvalues()[0];
    for (int i = 0; i < f; ++i) {
        step.fMove[free[i]] = scale[i] * move[i];
        step.fWorst[free[i]] = scale[i] * eigen.eigenvectors()(i, 0);
    }
    return step;
}

bool NewtonSolver::Search(const Step& step, int most, bool strict, SolverOutcome* outcome,
                          IterationRecord* record) const {
    const double before = outcome->fAt.fValue;
    const double rounding = kRounding * std::max(1.0, std::abs(before));
    const double noise = step.fDecrement < kClose ? std::max(rounding, kCloseNoise) : rounding;
    double length = 1.0;
    for (int halving = 0; halving <= most; ++halving, length *= 0.5) {
        const Eigen::VectorXd trial = Clamped(outcome->fTheta + length * step.fMove);
        record->fHalvings = halving;
        Evaluation at = halving == 0 ? fObjective.Derivatives(trial, ThetaScale::kWorking)
                                     : fObjective.Value(trial, ThetaScale::kWorking);
        const double wanted = strict ? 1e-4 * length * step.fDecrement : 0.0;
        if (!at.fFeasible || !(at.fValue <= before - wanted + noise)) continue;
        if (halving > 0) at = fObjective.Derivatives(trial, ThetaScale::kWorking);
        if (!at.fFeasible) continue;
        outcome->fTheta = trial;
        outcome->fAt = std::move(at);
        return true;
    }
    return false;
}

void NewtonSolver::Record(const SolverOutcome& outcome, const Eigen::VectorXd& before, IterationRecord* record) const {
    record->fObjective = outcome.fAt.fValue;
    record->fTheta = fLayout.FromWorking(outcome.fTheta);
    const Eigen::VectorXd earlier = fLayout.FromWorking(before);
    record->fMaxChange = record->fTheta.size() > 0 ? (record->fTheta - earlier).cwiseAbs().maxCoeff() : 0.0;
    record->fMaxGradient = 0.0;
    for (std::size_t k = 0; k < outcome.fHeld.size(); ++k) {
        if (!outcome.fHeld[k]) {
            record->fMaxGradient =
                std::max(record->fMaxGradient, std::abs(outcome.fAt.fGradient[static_cast<Eigen::Index>(k)]));
        }
    }
}

bool NewtonSolver::CriteriaMet(const Eigen::VectorXd& before, double valueBefore, const Step& next,
                               const SolverOutcome& outcome, bool* hessianMet) const {
    const double value = outcome.fAt.fValue;
    bool any = false;
    bool met = true;
    if (fSpec.fParameterCriterion.IsOn()) {
        any = true;
        const Eigen::VectorXd now = fLayout.FromWorking(outcome.fTheta);
        const Eigen::VectorXd earlier = fLayout.FromWorking(before);
        for (Eigen::Index k = 0; k < now.size(); ++k) {
            const double change = std::abs(now[k] - earlier[k]);
            const double unit = fSpec.fParameterCriterion.fRelative
                                    ? std::max(std::abs(earlier[k]), 1e-8 * ParamScale(static_cast<int>(k)))
                                    : ParamScale(static_cast<int>(k));
            met = met && change <= fSpec.fParameterCriterion.fValue * unit;
        }
    }
    if (fSpec.fLikelihoodCriterion.IsOn()) {
        any = true;
        const double unit = fSpec.fLikelihoodCriterion.fRelative ? std::max(std::abs(valueBefore), 1e-8) : 1.0;
        met = met && std::abs(value - valueBefore) <= fSpec.fLikelihoodCriterion.fValue * unit;
    }
    *hessianMet = HessianMet(fSpec, next.fDecrement, value);
    if (fSpec.fHessianCriterion.IsOn()) {
        if (!any) met = *hessianMet;
        any = true;
    }
    return any ? met : next.fDecrement <= 1e-10;
}

bool NewtonSolver::LeaveSaddle(const Step& step, SolverOutcome* outcome) const {
    for (double length : {1.0, 0.3, 0.1, 0.03, 0.01}) {
        for (double sign : {1.0, -1.0}) {
            const Eigen::VectorXd trial = Clamped(outcome->fTheta + sign * length * step.fWorst);
            const Evaluation at = fObjective.Value(trial, ThetaScale::kWorking);
            if (!at.fFeasible || !(at.fValue < outcome->fAt.fValue - 1e-7)) continue;
            outcome->fAt = fObjective.Derivatives(trial, ThetaScale::kWorking);
            outcome->fTheta = trial;
            return true;
        }
    }
    return false;
}

void NewtonSolver::Polish(SolverOutcome* outcome) const {
    for (int i = 0; i < kMaxPolish; ++i) {
        MarkHeld(outcome->fTheta, outcome->fAt, outcome);
        const Step step = Propose(outcome->fAt, outcome->fHeld, false);
        if (step.fDecrement <= fObjective.Resolution() || step.fSmallest <= 0.0) return;
        StopScope::Check();
        const Eigen::VectorXd before = outcome->fTheta;
        SolverOutcome next = *outcome;
        IterationRecord record;
        if (!Search(step, 0, false, &next, &record)) return;
        const Step after = Propose(next.fAt, next.fHeld, false);
        if (after.fDecrement >= 0.5 * step.fDecrement) return;
        Record(next, before, &record);
        next.fHistory.push_back(std::move(record));
        *outcome = std::move(next);
    }
}

SolverOutcome NewtonSolver::Solve(const Eigen::VectorXd& start) const {
    SolverOutcome outcome;
    outcome.fTheta = Clamped(start);
    outcome.fAt = fObjective.Derivatives(outcome.fTheta, ThetaScale::kWorking);
    if (!outcome.fAt.fFeasible) return outcome;
    MarkHeld(outcome.fTheta, outcome.fAt, &outcome);
    IterationRecord first;
    Record(outcome, outcome.fTheta, &first);
    first.fMaxChange = kMissing;
    outcome.fHistory.push_back(std::move(first));
    outcome.fEnd = SolverEnd::kLimit;

    Step step = Propose(outcome.fAt, outcome.fHeld, fSpec.fFisherSteps > 0);
    int saddles = 0;
    int stalled = 0;
    for (int iteration = 1; iteration <= fSpec.fMaxIterations; ++iteration) {
        if (IsCancelled(fSpec)) {
            outcome.fEnd = SolverEnd::kCancelled;
            return outcome;
        }
        const Eigen::VectorXd before = outcome.fTheta;
        const double valueBefore = outcome.fAt.fValue;
        IterationRecord record;
        record.fFisher = iteration <= fSpec.fFisherSteps;
        outcome.fSingular = outcome.fSingular || step.fSingular;
        bool moved = Search(step, fSpec.fMaxHalvings, true, &outcome, &record);
        if (!moved) {
            // What the step sends past a bound goes to the bound, and the others step as if it were held there.
            const Eigen::VectorXd inside = Clamped(outcome.fTheta + step.fMove);
            std::vector<char> held = outcome.fHeld;
            for (Eigen::Index k = 0; k < inside.size(); ++k) {
                const bool past = inside[k] != outcome.fTheta[k] + step.fMove[k];
                if (past && outcome.fAt.fGradient[k] * step.fMove[k] < 0.0) held[k] = 1;
            }
            if (held != outcome.fHeld) {
                step = Propose(outcome.fAt, held, record.fFisher);
                for (Eigen::Index k = 0; k < inside.size(); ++k) {
                    if (held[k] && !outcome.fHeld[k]) step.fMove[k] = inside[k] - outcome.fTheta[k];
                }
                moved = Search(step, fSpec.fMaxHalvings, false, &outcome, &record);
            }
        }
        if (!moved) {
            // The other matrix often gives a better direction; what is left then is rounding, or a wall.
            step = Propose(outcome.fAt, outcome.fHeld, !record.fFisher);
            record.fFisher = !record.fFisher;
            moved = Search(step, fSpec.fMaxHalvings, false, &outcome, &record);
        }
        MarkHeld(outcome.fTheta, outcome.fAt, &outcome);
        Record(outcome, before, &record);
        outcome.fHistory.push_back(record);
        if (fSpec.fProgress) fSpec.fProgress({iteration, outcome.fAt.fValue});
        step = Propose(outcome.fAt, outcome.fHeld, iteration < fSpec.fFisherSteps);
        const double noise = kRounding * std::max(1.0, std::abs(valueBefore));
        stalled = valueBefore - outcome.fAt.fValue > noise ? 0 : stalled + 1;
        if (!moved || stalled == kStalled) {
            const bool stationary = step.fDecrement <= std::max(1e-8, 1e2 * noise);
            const SolverEnd end = moved ? SolverEnd::kCycles : SolverEnd::kHalvings;
            outcome.fEnd = stationary ? SolverEnd::kConverged : end;
            if (!stationary) break;
        } else if (CriteriaMet(before, valueBefore, step, outcome, &outcome.fHessianMet)) {
            // A parameter that is small in the target's units has not settled while the objective still falls.
            if (step.fDecrement <= kFalling) outcome.fEnd = SolverEnd::kConverged;
        }
        if (outcome.fEnd == SolverEnd::kConverged) {
            Polish(&outcome);
            MarkHeld(outcome.fTheta, outcome.fAt, &outcome);
            step = Propose(outcome.fAt, outcome.fHeld, false);
            outcome.fHessianMet = HessianMet(fSpec, step.fDecrement, outcome.fAt.fValue);
            if (step.fSmallest > kNegative || saddles >= 5 || !LeaveSaddle(step, &outcome)) break;
            ++saddles;
            outcome.fEnd = SolverEnd::kLimit;
            MarkHeld(outcome.fTheta, outcome.fAt, &outcome);
            step = Propose(outcome.fAt, outcome.fHeld, false);
        }
        const Eigen::VectorXd theta = fLayout.FromWorking(outcome.fTheta);
        for (Eigen::Index k = 0; k < theta.size(); ++k) {
            if (std::abs(theta[k]) > kRunaway * ParamScale(static_cast<int>(k))) {
                outcome.fEnd = outcome.fAt.fValue < outcome.fHistory.front().fObjective ? SolverEnd::kRunsDown
                                                                                        : SolverEnd::kRunsUp;
            }
        }
        if (outcome.fEnd == SolverEnd::kRunsDown || outcome.fEnd == SolverEnd::kRunsUp) break;
    }
    const Step last = Propose(outcome.fAt, outcome.fHeld, false);
    outcome.fDecrement = last.fDecrement;
    outcome.fSmallestEigenvalue = last.fSmallest;
    outcome.fScaledGradient = 0.0;
    for (Eigen::Index k = 0; k < outcome.fTheta.size(); ++k) {
        // The expected information of a factor's element vanishes with the element, the curvature doesn't.
        const double curvature = std::max(outcome.fAt.fExpected(k, k), std::abs(outcome.fAt.fObserved(k, k)));
        if (!outcome.fHeld[k] && curvature > 0.0) {
            outcome.fScaledGradient =
                std::max(outcome.fScaledGradient, std::abs(outcome.fAt.fGradient[k]) / std::sqrt(curvature));
        }
    }
    return outcome;
}

}  // namespace engine
