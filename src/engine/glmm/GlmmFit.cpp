#include "engine/glmm/GlmmFit.h"

#include "engine/glmm/Family.h"
#include "engine/glmm/LinearPredictor.h"
#include "engine/glmm/TargetCheck.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/LmmFit.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace engine {

namespace {

constexpr long kNoRecords = 230024;
constexpr long kBadStart = 130025;
constexpr long kStopped = 130032;
constexpr long kNotBuilt = 130018;
constexpr long kHalvingsReached = 130024;
constexpr long kNearsZero = 130044;
constexpr long kSeparation = 130045;
constexpr long kIterationLimit = 230036;

constexpr double kSettled = 1e-7;     // relative change of predictors and parameters that ends the outer iteration
constexpr double kGlmSettled = 1e-4;  // the same of the starting fit
constexpr int kGlmIterations = 12;
constexpr int kUndamped = 6;   // outer iterations before damping is thought of
constexpr double kSlow = 0.7;  // ratio of changes from which on it is tried
constexpr double kLeastDamping = 0.125;
constexpr int kBeforeSeparation = 8;  // outer iterations before predictors at the edge count as on their way out
constexpr double kRunsAway = 0.05;    // change of a predictor, an iteration, that does

FitStatus Fine() {
    return {0, Severity::kOk, {}};
}

bool IsCancelled(const ModelSpec& spec) {
    return spec.fCancelled && spec.fCancelled();
}

/// The outer iteration of one fit.
class PseudoLikelihood {
public:
    PseudoLikelihood(const ModelSpec& spec, std::shared_ptr<WorkingModel> model)
        : fSpec(spec), fModel(std::move(model)), fCrew(spec.fThreads), fFit(Inner(), fModel->View(), fModel) {}

    FitResult Fit() {
        FitResult failed;
        failed.fStatus = Start();
        if (!failed.fStatus.IsError()) failed.fStatus = Iterate();
        if (failed.fStatus.IsError()) {
            failed.fHistory = fHistory;
            return failed;
        }
        FitResult result = fFit.Conclude();
        result.fHistory = fHistory;
        result.fIterations = static_cast<int>(fHistory.size());
        if (fEnd.fCode != 0) result.fWarnings.push_back(fEnd);
        if (!result.fStatus.IsError() && !result.fWarnings.empty()) result.fStatus = result.fWarnings.back();
        fModel->Translate(result);
        return result;
    }

    std::vector<double> Fitted() const {
        std::vector<double> fitted(fModel->Records());
        for (std::size_t i = 0; i < fitted.size(); ++i)
            fitted[i] = fModel->Fitted(i, fEta.data() + i * fModel->Predictors());
        return fitted;
    }

private:
    ModelSpec Inner() const {
        ModelSpec inner = fModel->Spec();
        inner.fProgress = nullptr;
        return inner;
    }

    /// A generalized linear model without random effects, by iterated least squares.
    FitStatus Start() {
        fModel->Start(fEta);
        if (!fModel->Linearise(fEta, fCrew)) {
            return {kBadStart, Severity::kError,
                    "The target's values have no starting point on the scale of the link."};
        }
        for (int i = 0; i < kGlmIterations; ++i) {
            const FixedBasis basis(fModel->Spec(), fModel->View(), fCrew, fModel->Data());
            const Eigen::VectorXd beta = AllCoefficients(basis, Eigen::VectorXd::Zero(basis.Rank()));
            int halvings = 0;
            const double change = Move(PredictFixed(*fModel, basis.Design(), beta, fCrew), 1.0, &halvings);
            if (!(change > kGlmSettled) || halvings > fSpec.fMaxHalvings) break;
            if (IsCancelled(fSpec)) return {kStopped, Severity::kError, {}};
        }
        return Fine();
    }

    FitStatus Iterate() {
        double damping = 1.0;
        double before = 0.0;
        Eigen::VectorXd last;
        for (int iteration = 1; iteration <= fSpec.fMaxIterations; ++iteration) {
            const Eigen::VectorXd theta = iteration > 1 ? fFit.Theta() : Eigen::VectorXd();
            if (const FitStatus status = fFit.Solve(fModel->Data()); status.IsError()) return status;
            const Eigen::VectorXd aim = PredictFrom(fFit, *fModel, fCrew);
            Eigen::Index fastest = 0;
            Eigen::VectorXd move = aim - fEta;
            const double drift = move.cwiseAbs().maxCoeff(&fastest);
            const bool alternates = last.size() > 0 && move.dot(last) < 0.0;
            last = std::move(move);
            IterationRecord record;
            record.fDamping = damping;
            const double change = Move(aim, damping, &record.fHalvings);
            Record(theta, &record);
            if (fSpec.fProgress) fSpec.fProgress({iteration, record.fObjective});
            if (record.fHalvings > fSpec.fMaxHalvings) {
                fEnd = {kHalvingsReached, Severity::kWarning,
                        "The means would leave the range of the target: use a link that keeps them within it."};
                return Fine();
            }
            if (change <= kSettled && ThetaSettled(theta)) return Fine();
            if (iteration > kBeforeSeparation && drift > kRunsAway && AtEdge(fastest)) return Separated();
            if (iteration > kUndamped && alternates && change > kSlow * before)
                damping = std::max(kLeastDamping, 0.5 * damping);
            before = change / damping;
            if (IsCancelled(fSpec)) return {kStopped, Severity::kError, {}};
        }
        fEnd = {kIterationLimit, Severity::kWarning, {}};
        return Fine();
    }

    /// Goes from eta to aim, or part of the way, half as far as long as a mean is out of range; the largest relative
    /// change of a predictor. More halvings than allowed: there was no way, and eta is where it was.
    double Move(const Eigen::VectorXd& aim, double length, int* halvings) {
        const Eigen::VectorXd from = fEta;
        for (*halvings = 0; *halvings <= fSpec.fMaxHalvings; ++*halvings, length *= 0.5) {
            fEta = from + length * (aim - from);
            if (!fEta.allFinite() || !fModel->Linearise(fEta, fCrew)) continue;
            return ((fEta - from).array().abs() / (1.0 + from.array().abs())).maxCoeff();
        }
        fEta = from;
        fModel->Linearise(fEta, fCrew);
        return 0.0;
    }

    bool ThetaSettled(const Eigen::VectorXd& before) const {
        if (before.size() == 0) return fFit.Outcome().fTheta.size() == 0;
        const Eigen::VectorXd now = fFit.Theta();
        for (Eigen::Index k = 0; k < now.size(); ++k) {
            if (std::abs(now[k] - before[k]) > kSettled * (std::abs(before[k]) + 1e-6)) return false;
        }
        return true;
    }

    void Record(const Eigen::VectorXd& before, IterationRecord* record) {
        record->fObjective = fFit.Outcome().fAt.fValue;
        record->fTheta = fFit.Theta();
        const Eigen::VectorXd beta = AllCoefficients(fFit.Model().Basis(), fFit.Outcome().fAt.fBeta);
        if (before.size() > 0) record->fMaxChange = (record->fTheta - before).cwiseAbs().maxCoeff();
        if (fBeta.size() == beta.size() && beta.size() > 0) {
            record->fMaxChange = std::max(record->fMaxChange, (beta - fBeta).cwiseAbs().maxCoeff());
        }
        fBeta = beta;
        fHistory.push_back(std::move(*record));
        *record = fHistory.back();
    }

    bool AtEdge(Eigen::Index predictor) const {
        return fModel->AtEdge(fEta, static_cast<std::size_t>(predictor) / fModel->Predictors());
    }

    FitStatus Separated() {
        std::size_t count = 0;
        for (std::size_t i = 0; i < fModel->Records(); ++i)
            count += fModel->AtEdge(fEta, i) ? 1 : 0;
        if (count == fModel->Records()) {
            fEnd = {kNearsZero, Severity::kWarning,
                    "The predictors tell the target's categories apart without error: its coefficients have no end."};
        } else {
            fEnd = {kSeparation, Severity::kWarning,
                    "The fitted probabilities of " + std::to_string(count) +
                        " records go to 0 or 1: a coefficient has no end. Look for a category of a predictor in which "
                        "the target is always the same."};
        }
        return Fine();
    }

    const ModelSpec& fSpec;
    std::shared_ptr<WorkingModel> fModel;
    Workers fCrew;
    RepeatedFit fFit;
    Eigen::VectorXd fEta;
    Eigen::VectorXd fBeta;
    std::vector<IterationRecord> fHistory;
    FitStatus fEnd = Fine();
};

}  // namespace

GlmmResult FitGlmm(const ModelSpec& spec, const TargetSpec& target, const RecordView& view) {
    GlmmResult result;
    if (view.fCount == 0) {
        result.fFit.fStatus = {kNoRecords, Severity::kError, "There are no valid records."};
        return result;
    }
    const TargetVerdict verdict = CheckTarget(spec, target, view);
    if (verdict.fRefusal.IsError()) {
        result.fFit.fStatus = verdict.fRefusal;
        return result;
    }
    try {
        const std::shared_ptr<WorkingModel> model = MakeWorkingModel(spec, target, view);
        PseudoLikelihood pseudo(spec, model);
        result.fFit = pseudo.Fit();
        result.fFit.fWarnings.insert(result.fFit.fWarnings.begin(), verdict.fWarnings.begin(), verdict.fWarnings.end());
        if (result.fFit.HasEstimates()) {
            result.fModel = model;
            result.fFitted = pseudo.Fitted();
        }
    } catch (const std::bad_alloc&) {
        result = GlmmResult{};
        result.fFit.fStatus = {kNotBuilt, Severity::kError, "There is not enough memory for this model."};
    }
    return result;
}

}  // namespace engine
