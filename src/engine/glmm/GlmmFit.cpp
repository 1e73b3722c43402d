#include "engine/glmm/GlmmFit.h"

#include "engine/glmm/Family.h"
#include "engine/glmm/LinearPredictor.h"
#include "engine/glmm/TargetCheck.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/LmmFit.h"
#include "engine/model/StopScope.h"

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
constexpr long kPerfectFit = 230092;
constexpr long kNearsZero = 130044;
constexpr long kSeparation = 130045;
constexpr long kIterationLimit = 230036;

constexpr double kSettled = 1e-7;     // relative change of predictors and parameters that ends the outer iteration
constexpr double kGlmSettled = 1e-4;  // the same of the starting fit
constexpr int kGlmIterations = 12;
constexpr int kInnerIterations = 100;  // at least, of each linear mixed model
constexpr double kPerfect = 1e-11;     // residual, in sizes of the largest value, that is rounding
constexpr int kUndamped = 6;           // outer iterations before damping is thought of
constexpr double kSlow = 0.7;          // ratio of changes from which on it is tried
constexpr double kLeastDamping = 0.125;
constexpr int kCalm = 3;  // outer iterations in a row that don't alternate, after which damping is taken back
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
    PseudoLikelihood(const ModelSpec& spec, const TargetSpec& target, std::shared_ptr<WorkingModel> model)
        : fSpec(spec),
          fTarget(target),
          fModel(std::move(model)),
          fCrew(spec.fThreads),
          fFit(Inner(), fModel->View(), fModel) {}

    FitResult Fit() {
        FitResult failed;
        failed.fStatus = Start();
        if (!failed.fStatus.IsError()) failed.fStatus = Iterate();
        if (!failed.fStatus.IsError() && IsPerfect()) {
            failed.fStatus = {kPerfectFit, Severity::kError,
                              "The model reproduces the target exactly: no residual is left."};
        }
        if (failed.fStatus.IsError()) {
            failed.fHistory = fHistory;
            return failed;
        }
        FitResult result = fFit.Conclude();
        result.fHistory = fHistory;
        result.fIterations = static_cast<int>(fHistory.size());
        const std::vector<int> endless = fEnd.fCode == kSeparation ? EndlessColumns() : std::vector<int>();
        fModel->Translate(result);
        if (!endless.empty()) fEnd.fDetail += NamesOf(endless, result);
        const bool told = std::any_of(result.fWarnings.begin(), result.fWarnings.end(),
                                      [&](const FitStatus& warning) { return warning.fCode == fEnd.fCode; });
        if (fEnd.fCode != 0 && !told) result.fWarnings.push_back(fEnd);
        if (!result.fStatus.IsError() && !result.fWarnings.empty()) result.fStatus = result.fWarnings.back();
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
        inner.fMaxIterations = std::max(inner.fMaxIterations, kInnerIterations);
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
        int calm = 0;
        Eigen::VectorXd last;
        for (int iteration = 1; iteration <= fSpec.fMaxIterations; ++iteration) {
            const Eigen::VectorXd theta = iteration > 1 ? fFit.Theta() : Eigen::VectorXd();
            if (FitStatus status = fFit.Solve(fModel->Data()); status.IsError()) return status;
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
            const double whole = change / damping;
            if (iteration > kUndamped && alternates && whole > kSlow * before)
                damping = std::max(kLeastDamping, 0.5 * damping);
            calm = alternates ? 0 : calm + 1;
            if (calm == kCalm) {
                damping = std::min(1.0, 2.0 * damping);
                calm = 0;
            }
            before = whole;
            if (IsCancelled(fSpec)) return {kStopped, Severity::kError, {}};
        }
        fEnd = {kIterationLimit, Severity::kWarning,
                "The outer iterations came to their limit of " + std::to_string(fSpec.fMaxIterations) +
                    " before the predictions settled: raise the limit, or choose another link or a simpler model."};
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

    /// Whether a scale that is estimated has nothing to be estimated from.
    bool IsPerfect() const {
        const ModelSpec& spec = fModel->Spec();
        if (spec.fResidual.fUnitScale || HasResidualStructure(spec)) return false;
        double largest = 0.0, residual = 0.0;
        for (std::size_t i = 0; i < fModel->Records(); ++i) {
            const double value = fModel->View().Row(i)[spec.fDependent];
            largest = std::max(largest, std::abs(value));
            residual = std::max(residual, std::abs(value - fModel->Fitted(i, &fEta[static_cast<Eigen::Index>(i)])));
        }
        return residual <= kPerfect * largest;
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
        if (fBeta.size() == beta.size()) fBetaMove = beta - fBeta;
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
                        " records go to 0 or 1. Look for a category of a predictor in which the target is always the "
                        "same."};
        }
        return Fine();
    }

    /// Columns whose coefficients still moved some record's predictor by a step of their own when the iteration ended.
    std::vector<int> EndlessColumns() {
        const EffectDesign& design = fFit.Model().Basis().Design();
        Eigen::VectorXd reach = Eigen::VectorXd::Zero(design.NumColumns());
        std::vector<ColumnHit> hits(design.NumEffects());
        std::vector<double> scratch;
        const int p = fModel->Predictors();
        for (std::size_t i = 0; i < fModel->Records(); ++i) {
            for (int k = 0; k < p; ++k) {
                design.PlainHits(fModel->PredictorRow(fModel->View().Row(i * p), k, scratch), hits.data());
                for (const ColumnHit& hit : hits)
                    reach[hit.fColumn] = std::max(reach[hit.fColumn], std::abs(hit.fValue));
            }
        }
        std::vector<int> endless;
        for (Eigen::Index j = 0; j < std::min(reach.size(), fBetaMove.size()); ++j) {
            if (reach[j] * std::abs(fBetaMove[j]) > kRunsAway) endless.push_back(static_cast<int>(j));
        }
        return endless;
    }

    /// " These coefficients have no end: ..."; empty when the target can't name them.
    std::string NamesOf(const std::vector<int>& columns, const FitResult& result) const {
        if (!fTarget.fTermName) return {};
        std::string names;
        for (int column : columns) {
            const FixedParameter& parameter = result.fFixed[column];
            std::string name =
                parameter.fThreshold ? "the threshold" : fTarget.fTermName(parameter.fEffect, parameter.fLevels);
            if (parameter.fTarget >= 0 && parameter.fTarget < static_cast<int>(fTarget.fCategoryNames.size()))
                name += " of category " + fTarget.fCategoryNames[parameter.fTarget];
            names += (names.empty() ? "" : ", ") + name;
        }
        return " These coefficients have no end: " + names + ".";
    }

    const ModelSpec& fSpec;
    const TargetSpec& fTarget;
    std::shared_ptr<WorkingModel> fModel;
    Workers fCrew;
    RepeatedFit fFit;
    Eigen::VectorXd fEta;
    Eigen::VectorXd fBeta;
    Eigen::VectorXd fBetaMove;  ///< change of fBeta in the last iteration
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
    const StopScope stop(spec.fCancelled);
    try {
        const std::shared_ptr<WorkingModel> model = MakeWorkingModel(spec, target, view);
        PseudoLikelihood pseudo(spec, target, model);
        result.fFit = pseudo.Fit();
        result.fFit.fWarnings.insert(result.fFit.fWarnings.begin(), verdict.fWarnings.begin(), verdict.fWarnings.end());
        if (result.fFit.HasEstimates()) {
            result.fModel = model;
            result.fFitted = pseudo.Fitted();
        }
    } catch (const StopAsked&) {
        result = GlmmResult{};
        result.fFit.fStatus = {kStopped, Severity::kError, {}};
    } catch (const std::bad_alloc&) {
        result = GlmmResult{};
        result.fFit.fStatus = {kNotBuilt, Severity::kError, "There is not enough memory for this model."};
    }
    return result;
}

}  // namespace engine
