#include "engine/lmm/LmmFit.h"

#include "engine/lmm/CovarianceReport.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/Hypotheses.h"
#include "engine/lmm/MarginalLikelihood.h"
#include "engine/lmm/NewtonSolver.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace engine {

namespace {

constexpr long kNoRecords = 230024;
constexpr long kPerfectFit = 230092;
constexpr long kBadStart = 130025;
constexpr long kStopped = 130032;
constexpr long kNotBuilt = 130018;
constexpr long kZeroScale = 130074;
constexpr long kIterationLimit = 230036;
constexpr long kSingularHessian = 230037;
constexpr long kNotPositive = 230038;
constexpr long kNotPositiveButMet = 130070;
constexpr long kHalvingsReached = 130024;
constexpr long kUnexpectedSingularity = 130069;
constexpr long kNoHessianConvergence = 130088;
constexpr long kPostEstimation = 130090;
constexpr long kRunsDown = 230087;
constexpr long kRunsUp = 230095;
constexpr long kCycles = 230094;

constexpr double kPerfect = 1e-13;     // residual spread, in spreads of the target, that is rounding
constexpr double kFlatHessian = 1e-7;  // eigenvalue of the unit-diagonal Hessian that counts as zero at the end
constexpr double kRankLoss = 1e-9;     // share of the largest eigenvalue below which a matrix has lost rank

void Fail(FitResult& result, long code, const char* detail) {
    result.fStatus = {code, Severity::kError, detail};
}

void Warn(FitResult& result, long code) {
    result.fWarnings.push_back({code, Severity::kWarning, {}});
}

void DescribeData(const LmmProblem& problem, FitResult& result) {
    const FixedBasis& basis = problem.Basis();
    result.fRecords = basis.Records();
    result.fTotalFrequency = basis.TotalFrequency();
    result.fRank = basis.Rank();
    result.fResidualDf = static_cast<int>(std::lround(basis.TotalFrequency())) - basis.Rank();
    for (std::size_t b = 0; b < problem.Blocks().size(); ++b) {
        const EffectDesign& design = problem.Blocks()[b].fDesign;
        result.fNumSubjects.push_back(problem.NumSubjects(static_cast<int>(b)));
        result.fNumColumns.push_back(design.NumColumns());
        std::vector<RandomColumn> columns;
        for (int c = 0; c < design.NumColumns(); ++c)
            columns.push_back({design.EffectOf(c), design.LevelsOf(c)});
        result.fRandomColumns.push_back(std::move(columns));
    }
    result.fNumResidualSubjects = problem.NumResidualSubjects();
    result.fNumCommonSubjects = problem.HasSubjects() ? problem.NumCommonSubjects() : 1;
    if (!problem.HasSubjects()) {
        result.fMaxRecordsPerSubject = static_cast<int>(problem.View().fCount);
        return;
    }
    for (int s = 0; s < problem.NumCommonSubjects(); ++s) {
        const auto size = static_cast<int>(problem.SubjectEnd(s) - problem.SubjectBegin(s));
        result.fMaxRecordsPerSubject = std::max(result.fMaxRecordsPerSubject, size);
    }
    for (std::size_t i = problem.SubjectBegin(0); i < problem.SubjectEnd(0); ++i)
        result.fFirstSubject.push_back(i);
}

void Judge(const SolverOutcome& outcome, FitResult& result) {
    switch (outcome.fEnd) {
        case SolverEnd::kLimit:
            Warn(result, kIterationLimit);
            break;
        case SolverEnd::kHalvings:
            Warn(result, kHalvingsReached);
            break;
        case SolverEnd::kRunsDown:
            Warn(result, kRunsDown);
            break;
        case SolverEnd::kRunsUp:
            Warn(result, kRunsUp);
            break;
        case SolverEnd::kCycles:
            Warn(result, kCycles);
            break;
        default:
            break;
    }
    const bool met = outcome.fEnd == SolverEnd::kConverged;
    if (met && !outcome.fHessianMet) Warn(result, kNoHessianConvergence);
    if (outcome.fSmallestEigenvalue < -kFlatHessian) {
        Warn(result, met ? kNotPositiveButMet : kNotPositive);
    } else if (outcome.fSmallestEigenvalue < kFlatHessian) {
        Warn(result, met ? kSingularHessian : kUnexpectedSingularity);
    }
}

// Whether an unstructured matrix has lost rank: its reported parameters then have no free neighbourhood.
bool HasLostRank(const ParameterLayout& layout, const Eigen::VectorXd& theta) {
    for (const Segment& segment : layout.Segments()) {
        if (!segment.HasWorkingScale()) continue;
        Places places;
        for (int i = 0; i < segment.fReported->Dimension(); ++i)
            places.fPositions.push_back(i);
        if (segment.fType >= CovarianceType::kUN_UN) continue;
        Eigen::MatrixXd matrix;
        segment.fReported->Matrix(segment.Part(theta), places, matrix);
        const Eigen::VectorXd scale =
            matrix.diagonal().unaryExpr([](double v) { return v > 0.0 ? 1.0 / std::sqrt(v) : 0.0; });
        const Eigen::MatrixXd correlation = scale.asDiagonal() * matrix * scale.asDiagonal();
        const Eigen::VectorXd values =
            Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd>(correlation, Eigen::EigenvaluesOnly).eigenvalues();
        if (values[0] < kRankLoss * std::max(1.0, values[values.size() - 1])) return true;
    }
    return false;
}

// Inverse of the matrix over the parameters that aren't held; zeros elsewhere. Flat directions are left out.
Eigen::MatrixXd FreeInverse(const Eigen::MatrixXd& matrix, const std::vector<char>& held) {
    const Eigen::Index m = matrix.rows();
    std::vector<int> free;
    for (Eigen::Index k = 0; k < m; ++k) {
        if (!held[k] && std::abs(matrix(k, k)) > 0.0) free.push_back(static_cast<int>(k));
    }
    const auto f = static_cast<Eigen::Index>(free.size());
    Eigen::VectorXd scale(f);
    for (Eigen::Index i = 0; i < f; ++i)
        scale[i] = 1.0 / std::sqrt(std::abs(matrix(free[i], free[i])));
    Eigen::MatrixXd part(f, f);
    for (Eigen::Index i = 0; i < f; ++i) {
        for (Eigen::Index j = 0; j < f; ++j)
            part(i, j) = matrix(free[i], free[j]) * scale[i] * scale[j];
    }
    Eigen::MatrixXd inverse = Eigen::MatrixXd::Zero(m, m);
    if (f == 0) return inverse;
    const Eigen::LLT<Eigen::MatrixXd> llt(part);
    Eigen::MatrixXd small;
    if (llt.info() == Eigen::Success && llt.rcond() > kFlatHessian * 1e-2) {
        small = llt.solve(Eigen::MatrixXd::Identity(f, f));
    } else {
        const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(part);
        const Eigen::VectorXd values =
            eigen.eigenvalues().unaryExpr([](double v) { return v > kFlatHessian ? 1.0 / v : 0.0; });
        small = eigen.eigenvectors() * values.asDiagonal() * eigen.eigenvectors().transpose();
    }
    for (Eigen::Index i = 0; i < f; ++i) {
        for (Eigen::Index j = 0; j < f; ++j)
            inverse(free[i], free[j]) = scale[i] * scale[j] * small(i, j);
    }
    return inverse;
}

bool InferFrom(FittedModel& model, const SolverOutcome& outcome) {
    const ParameterLayout& layout = model.fProblem->Layout();
    Eigen::MatrixXd jacobian;
    model.fTheta = layout.FromWorking(outcome.fTheta, &jacobian);
    const bool working = HasLostRank(layout, model.fTheta);
    const ThetaScale scale = working ? ThetaScale::kWorking : ThetaScale::kReported;
    bool sameScale = true;
    for (const Segment& segment : layout.Segments())
        sameScale = sameScale && !segment.HasWorkingScale();
    const Eigen::VectorXd theta = working ? outcome.fTheta : model.fTheta;
    Evaluation at = working || sameScale ? outcome.fAt : model.fObjective->Derivatives(theta, scale);
    if (!at.fFeasible) return false;
    const Eigen::MatrixXd covariance = 2.0 * FreeInverse(at.fObserved, outcome.fHeld);
    model.fThetaCovariance = working ? Eigen::MatrixXd(jacobian * covariance * jacobian.transpose()) : covariance;
    const ModelSpec& spec = model.fSpec;
    const Eigen::MatrixXd weight = 2.0 * FreeInverse(at.fExpected, outcome.fHeld);
    model.fInference =
        std::make_unique<Inference>(model.fProblem->Basis(), spec.fDf, spec.fConfidence, std::move(at), covariance);
    if (spec.fDf == DfMethod::kKenwardRoger) {
        model.fInference->AdjustKenwardRoger(weight, model.fObjective->WeightedCurvature(theta, scale, weight));
    }
    return true;
}

void FillFixed(const FittedModel& model, FitResult& result) {
    const FixedBasis& basis = model.fProblem->Basis();
    const EffectDesign& design = basis.Design();
    const Eigen::MatrixXd covariance = model.fInference->Covariance();
    result.fFixedCovariance.setZero(basis.NumColumns(), basis.NumColumns());
    for (int i = 0; i < basis.Rank(); ++i) {
        for (int j = 0; j < basis.Rank(); ++j)
            result.fFixedCovariance(basis.Kept()[i], basis.Kept()[j]) = covariance(i, j);
    }
    for (int j = 0; j < basis.NumColumns(); ++j) {
        FixedParameter parameter;
        parameter.fEffect = design.EffectOf(j);
        parameter.fLevels = design.LevelsOf(j);
        const int kept = basis.KeptIndex(j);
        parameter.fRedundant = kept < 0;
        if (kept >= 0) {
            const Eigen::VectorXd half = model.fInference->Half().row(kept);
            const ContrastResult contrast = model.fInference->Contrast(half, model.fInference->Beta()[kept]);
            parameter.fEstimate = contrast.fEstimate;
            parameter.fStdError = contrast.fStdError;
            parameter.fDf = contrast.fDf;
            parameter.fT = contrast.fT;
            parameter.fP = contrast.fP;
            parameter.fLower = contrast.fLower;
            parameter.fUpper = contrast.fUpper;
        }
        result.fFixed.push_back(std::move(parameter));
    }
}

void FillCriteria(const ModelSpec& spec, double value, FitResult& result) {
    const int covariance = static_cast<int>(std::count_if(
        result.fCovariance.begin(), result.fCovariance.end(),
        [](const CovarianceParameter& parameter) { return !parameter.fRedundant && !parameter.fAtBound; }));
    const double q = spec.fRestricted ? covariance : covariance + result.fRank;
    const double n = spec.fRestricted ? result.fTotalFrequency - result.fRank : result.fTotalFrequency;
    result.fMinus2LogLikelihood = value;
    result.fAic = value + 2.0 * q;
    if (n - q - 1.0 > 0.0) result.fAicc = value + 2.0 * q * n / (n - q - 1.0);
    result.fCaic = value + q * (std::log(n) + 1.0);
    result.fBic = value + q * std::log(n);
}

SolverOutcome SolveFromStarts(const FittedModel& model) {
    const LmmProblem& problem = *model.fProblem;
    const NewtonSolver solver(*model.fObjective, model.fSpec, problem.Basis().TargetScale());
    const ParameterLayout& layout = problem.Layout();
    std::vector<Eigen::VectorXd> starts{problem.Start()};
    for (int s = 0; s < layout.NumSegments(); ++s) {
        const Segment& segment = layout[s];
        for (const Eigen::VectorXd& part : segment.fReported->StartGrid(problem.HintOf(s))) {
            starts.push_back(starts.front());
            starts.back().segment(segment.fOffset, segment.fCount) = part;
        }
    }
    if (starts.size() == 1) return solver.Solve(layout.ToWorking(starts.front()));
    // Several optima: the best points of the grid are followed to their ends.
    std::vector<std::pair<double, int>> order;
    for (std::size_t i = 0; i < starts.size(); ++i) {
        const Evaluation at = model.fObjective->Value(starts[i], ThetaScale::kReported);
        if (at.fFeasible) order.emplace_back(at.fValue, static_cast<int>(i));
    }
    std::sort(order.begin(), order.end());
    SolverOutcome best;
    constexpr std::size_t kFollowed = 5;
    for (std::size_t i = 0; i < std::min(kFollowed, order.size()); ++i) {
        SolverOutcome outcome = solver.Solve(layout.ToWorking(starts[order[i].second]));
        const bool better = best.fEnd == SolverEnd::kBadStart ||
                            (outcome.fEnd != SolverEnd::kBadStart && outcome.fAt.fValue < best.fAt.fValue - 1e-8);
        if (better) best = std::move(outcome);
        if (best.fEnd == SolverEnd::kCancelled) break;
    }
    return best;
}

void Fit(const std::shared_ptr<FittedModel>& model, FitResult& result) {
    const ModelSpec& spec = model->fSpec;
    const RecordView& view = model->fView;
    if (view.fCount == 0) return Fail(result, kNoRecords, "There are no valid records.");
    model->fProblem = std::make_unique<LmmProblem>(spec, view, model->fWorkers);
    LmmProblem& problem = *model->fProblem;
    if (const FitStatus status = problem.Prepare(); status.IsError()) {
        result.fStatus = status;
        return;
    }
    if (spec.fCancelled && spec.fCancelled()) return Fail(result, kStopped, "");
    DescribeData(problem, result);
    const FixedBasis& basis = problem.Basis();
    if (basis.TotalSumOfSquares() == 0.0 && spec.fIntercept) {
        return Fail(result, kZeroScale, "The target is the same in all records: there is no variance to estimate.");
    }
    if (basis.TotalFrequency() <= basis.Rank() ||
        problem.ResidualSumOfSquares() <= kPerfect * kPerfect * basis.TotalSumOfSquares()) {
        return Fail(result, kPerfectFit, "The fixed effects reproduce the target exactly: no residual is left.");
    }
    model->fObjective = std::make_unique<MarginalLikelihood>(problem, spec.fRestricted);
    const SolverOutcome outcome = SolveFromStarts(*model);
    result.fHistory = outcome.fHistory;
    result.fIterations = std::max(0, static_cast<int>(outcome.fHistory.size()) - 1);
    if (outcome.fEnd == SolverEnd::kBadStart) {
        return Fail(result, kBadStart, "The likelihood can't be computed at the starting values.");
    }
    if (outcome.fEnd == SolverEnd::kCancelled) return Fail(result, kStopped, "");
    Judge(outcome, result);
    result.fCertificate.fScaledGradient = outcome.fScaledGradient;
    result.fCertificate.fNewtonDecrement = outcome.fDecrement;
    result.fCertificate.fSmallestEigenvalue = outcome.fSmallestEigenvalue;
    if (!InferFrom(*model, outcome)) {
        Warn(result, kPostEstimation);
        result.fStatus = result.fWarnings.back();
        return;
    }
    ReportCovariance(problem.Layout(), *model, outcome.fHeld, outcome.fAtBound, result);
    FillFixed(*model, result);
    FillCriteria(spec, outcome.fAt.fValue, result);
    model->fSpec.fCancelled = nullptr;
    model->fSpec.fProgress = nullptr;
    result.fModel = model;
    result.fTests = result.EffectTests(spec.fTypeI);
    result.fStatus = result.fWarnings.empty() ? FitStatus{0, Severity::kOk, {}} : result.fWarnings.back();
}

}  // namespace

FitResult FitLmm(const ModelSpec& spec, const RecordView& view) {
    FitResult result;
    try {
        Fit(std::make_shared<FittedModel>(spec, view), result);
    } catch (const std::bad_alloc&) {
        result = FitResult{};
        Fail(result, kNotBuilt, "There is not enough memory for this model.");
    }
    return result;
}

}  // namespace engine
