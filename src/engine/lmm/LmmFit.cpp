#include "engine/lmm/LmmFit.h"

#include "engine/lmm/CovarianceReport.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/Hypotheses.h"
#include "engine/lmm/MarginalLikelihood.h"
#include "engine/lmm/NewtonSolver.h"
#include "engine/model/StopScope.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <set>
#include <string>

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
constexpr long kTooManyRecords = 130079;

constexpr double kPerfect = 1e-13;      // residual spread, in spreads of the target, that is rounding
constexpr double kFlatHessian = 1e-7;   // eigenvalue of the unit-diagonal Hessian that counts as zero at the end
constexpr double kVanished = 1e-24;     // residual variance, in variances of the target, that is rounding
constexpr double kStillFalling = 1e-2;  // Newton decrement from which on the objective still falls
constexpr double kVanishing = 1e-8;     // the same at a point where the objective still falls
constexpr double kRankLoss = 1e-9;      // share of the largest eigenvalue below which a matrix has lost rank

void Fail(FitResult& result, long code, const char* detail) {
    result.fStatus = {code, Severity::kError, detail};
}

void Warn(FitResult& result, long code, std::string detail) {
    result.fWarnings.push_back({code, Severity::kWarning, std::move(detail)});
}

void DescribeColumns(const FittedModel& model, FitResult& result) {
    const FixedBasis& basis = model.Basis();
    result.fRecords = basis.Records();
    result.fTotalFrequency = basis.TotalFrequency();
    result.fRank = basis.Rank();
    result.fResidualDf = static_cast<int>(std::lround(basis.TotalFrequency())) - basis.Rank();
    result.fNumCommonSubjects = 1;
    result.fMaxRecordsPerSubject = static_cast<int>(model.fView.fCount);
    for (const RandomBlock& block : model.fSpec.fRandom) {
        const EffectDesign design(block.fEffects, model.fSpec.fLevels);
        result.fNumColumns.push_back(design.NumColumns());
        std::vector<RandomColumn> columns;
        for (int c = 0; c < design.NumColumns(); ++c)
            columns.push_back({design.EffectOf(c), design.LevelsOf(c)});
        result.fRandomColumns.push_back(std::move(columns));
    }
}

void DescribeSubjects(const LmmProblem& problem, FitResult& result) {
    for (std::size_t b = 0; b < problem.Blocks().size(); ++b)
        result.fNumSubjects.push_back(problem.NumSubjects(static_cast<int>(b)));
    result.fNumResidualSubjects = problem.NumResidualSubjects();
    if (!problem.HasSubjects()) return;
    result.fNumCommonSubjects = problem.NumCommonSubjects();
    result.fMaxRecordsPerSubject = 0;
    for (int s = 0; s < problem.NumCommonSubjects(); ++s) {
        const auto size = static_cast<int>(problem.SubjectEnd(s) - problem.SubjectBegin(s));
        result.fMaxRecordsPerSubject = std::max(result.fMaxRecordsPerSubject, size);
    }
    for (std::size_t i = problem.SubjectBegin(0); i < problem.SubjectEnd(0); ++i)
        result.fFirstSubject.push_back(i);
}

// Subjects of a block are those of an undivided term; a divided block's terms have one for each level too.
int CrossedSubjects(const FittedModel& model, int block) {
    const std::vector<int>& variables = model.fSpec.fRandom[block].fSubjects;
    std::set<std::vector<int>> subjects;
    for (const CrossedTerm& term : model.fCrossed->Terms()) {
        if (term.fBlock != block) continue;
        if (!term.IsDivided()) return static_cast<int>(term.fFirstRecords.size());
        for (std::size_t record : term.fFirstRecords) {
            std::vector<int> codes;
            for (int variable : variables)
                codes.push_back(static_cast<int>(model.fView.Row(record)[variable]));
            subjects.insert(std::move(codes));
        }
    }
    return static_cast<int>(subjects.size());
}

// The largest piece of a residual segment that is estimated from records; null when its residuals are independent.
const ResidualPiece* LargestPiece(const LmmProblem& problem, const ParameterLayout& layout, const Segment& segment) {
    const ResidualPiece* largest = nullptr;
    for (const Unit& unit : problem.Units()) {
        for (const ResidualPiece& piece : unit.fPieces) {
            if (&layout[piece.fSegment] != &segment) continue;
            if (largest == nullptr || piece.fPlaces.Size() > largest->fPlaces.Size()) largest = &piece;
        }
    }
    return largest;
}

// Whether a residual variance is down to rounding, so that the likelihood has no end. Where the objective still falls
// much less tells: a variance, or a correlation matrix's eigenvalue, on its way to zero.
bool RunsDown(const FittedModel& model, const SolverOutcome& outcome) {
    if (outcome.fEnd == SolverEnd::kRunsDown) return true;
    if (model.fSpec.fResidual.fUnitScale) return false;
    const bool settled = outcome.fDecrement <= kStillFalling;
    const double spread = model.Basis().TargetScale();
    const double least = (settled ? kVanished : kVanishing) * spread * spread;
    const ParameterLayout& layout = model.Layout();
    const Eigen::VectorXd theta = layout.FromWorking(outcome.fTheta);
    for (const Segment& segment : layout.Segments()) {
        if (segment.fBlock >= 0) continue;
        const Eigen::VectorXd part = segment.Part(theta);
        for (int k = 0; k < segment.fCount; ++k) {
            const bool variance = segment.fReported->Params()[k].fKind == ParamKind::kVariance;
            if (variance && part[k] > 0.0 && part[k] < least) return true;
        }
        const ResidualPiece* piece =
            settled || model.IsCrossed() ? nullptr : LargestPiece(*model.fProblem, layout, segment);
        if (piece == nullptr) continue;
        Eigen::MatrixXd matrix;
        segment.fReported->Matrix(part, piece->fPlaces, matrix);
        if (!(matrix.diagonal().minCoeff() > 0.0)) continue;
        const Eigen::VectorXd scale = matrix.diagonal().cwiseSqrt().cwiseInverse();
        const Eigen::MatrixXd correlation = scale.asDiagonal() * matrix * scale.asDiagonal();
        const Eigen::VectorXd values =
            Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd>(correlation, Eigen::EigenvaluesOnly).eigenvalues();
        if (values[0] < kVanishing) return true;
    }
    return false;
}

void Judge(const SolverOutcome& outcome, int limit, bool runsDown, FitResult& result) {
    const char* const endless =
        "The objective falls without end, as the residual covariance matrix loses rank or a parameter leaves all "
        "bounds: "
        "the model has more parameters than the records can carry. Choose a simpler structure.";
    if (runsDown) return Warn(result, kRunsDown, endless);
    switch (outcome.fEnd) {
        case SolverEnd::kLimit:
            Warn(result, kIterationLimit,
                 "The iterations came to their limit of " + std::to_string(limit) +
                     " before the convergence criteria were met: raise the limit, or choose a simpler model.");
            break;
        case SolverEnd::kHalvings:
            Warn(result, kHalvingsReached,
                 "No part of the last step lowered the objective, although it isn't at its lowest: choose a simpler "
                 "covariance structure, or allow more halvings.");
            break;
        case SolverEnd::kRunsUp:
            Warn(result, kRunsUp,
                 "A covariance parameter grows without end and the objective with it: choose a simpler structure.");
            break;
        case SolverEnd::kCycles:
            Warn(result, kCycles,
                 "The steps go to and fro without lowering the objective: choose a simpler covariance structure.");
            break;
        default:
            break;
    }
    const bool met = outcome.fEnd == SolverEnd::kConverged;
    if (met && !outcome.fHessianMet)
        Warn(result, kNoHessianConvergence, "The convergence criteria are met but for that of the Hessian: loosen it.");
    if (outcome.fSmallestEigenvalue < -kFlatHessian) {
        Warn(result, met ? kNotPositiveButMet : kNotPositive,
             "The Hessian of the covariance parameters isn't positive definite at the end: this may be no lowest point "
             "of the objective. Choose a simpler covariance structure.");
    } else if (outcome.fSmallestEigenvalue < kFlatHessian) {
        Warn(result, met ? kSingularHessian : kUnexpectedSingularity,
             "The data can't tell all covariance parameters apart: leave out a random effect or choose a simpler "
             "covariance structure.");
    }
}

// Whether an unstructured matrix has lost rank: its reported parameters then have no free neighbourhood.
bool HasLostRank(const ParameterLayout& layout, const Eigen::VectorXd& theta) {
    for (const Segment& segment : layout.Segments()) {
        if (segment.fType != CovarianceType::kUN) continue;
        Places places;
        for (int i = 0; i < segment.fReported->Dimension(); ++i)
            places.fPositions.push_back(i);
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
    const ParameterLayout& layout = model.Layout();
    Eigen::MatrixXd jacobian;
    model.fTheta = layout.FromWorking(outcome.fTheta, &jacobian);
    const bool working = HasLostRank(layout, model.fTheta);
    const ThetaScale scale = working ? ThetaScale::kWorking : ThetaScale::kReported;
    bool sameScale = true;
    for (const Segment& segment : layout.Segments())
        sameScale = sameScale && !segment.HasWorkingScale();
    const Eigen::VectorXd theta = working ? outcome.fTheta : model.fTheta;
    // Subjects' derivatives are exact at every step; crossed ones are made so now.
    const bool atHand = (working || sameScale) && !model.IsCrossed();
    Evaluation at = atHand ? outcome.fAt : model.fObjective->Final(theta, scale);
    if (!at.fFeasible) return false;
    const Eigen::MatrixXd covariance = 2.0 * FreeInverse(at.fObserved, outcome.fHeld);
    model.fThetaCovariance = working ? Eigen::MatrixXd(jacobian * covariance * jacobian.transpose()) : covariance;
    const ModelSpec& spec = model.fSpec;
    const Eigen::MatrixXd weight = 2.0 * FreeInverse(at.fExpected, outcome.fHeld);
    model.fInference =
        std::make_unique<Inference>(model.Basis(), spec.fDf, spec.fConfidence, std::move(at), covariance);
    if (spec.fDf == DfMethod::kKenwardRoger) {
        model.fInference->AdjustKenwardRoger(weight, model.fObjective->WeightedCurvature(theta, scale, weight));
    }
    return true;
}

void FillFixed(const FittedModel& model, FitResult& result) {
    const FixedBasis& basis = model.Basis();
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
            Estimated estimated;
            estimated.fEstimate = model.fInference->Beta()[kept];
            model.fInference->AddError(model.fInference->Half().row(kept).transpose(), estimated);
            const ContrastResult contrast = Infer(estimated, model.fSpec.fConfidence);
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

// Multiplies V by the factor that minimises the objective, r'V^-1r / n, and gives the objective there.
double ScaleBest(const FittedModel& model, const Evaluation& at, Eigen::VectorXd* theta) {
    const FixedBasis& basis = model.Basis();
    const double n = model.fSpec.fRestricted ? basis.TotalFrequency() - basis.Rank() : basis.TotalFrequency();
    const double factor = at.fQuadratic / n;
    for (Eigen::Index k = 0; k < theta->size(); ++k) {
        const ParamKind kind = model.Layout().Info(static_cast<int>(k), ThetaScale::kReported).fKind;
        if (kind == ParamKind::kVariance || kind == ParamKind::kCovariance) (*theta)[k] *= factor;
        if (kind == ParamKind::kLoading) (*theta)[k] *= std::sqrt(factor);
    }
    return at.fValue - at.fQuadratic + n + n * std::log(factor);
}

SolverOutcome SolveFromStarts(const FittedModel& model, const Eigen::VectorXd& given = {}) {
    const NewtonSolver solver(*model.fObjective, model.fSpec, model.Basis().TargetScale());
    if (given.size() > 0) return solver.Solve(model.Layout().ToWorking(given));
    const ParameterLayout& layout = model.Layout();
    std::vector<Eigen::VectorXd> starts{model.Start()};
    for (int s = 0; s < layout.NumSegments() && !model.IsCrossed(); ++s) {
        const Segment& segment = layout[s];
        for (const Eigen::VectorXd& part : segment.fReported->StartGrid(model.fProblem->HintOf(s))) {
            starts.push_back(starts.front());
            starts.back().segment(segment.fOffset, segment.fCount) = part;
        }
    }
    if (starts.size() == 1) return solver.Solve(layout.ToWorking(starts.front()));
    // Several optima: the valleys of the grid, each point with the scale that suits it best, are followed to their
    // ends.
    std::vector<double> heights(starts.size(), std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < starts.size(); ++i) {
        const Evaluation at = model.fObjective->Value(starts[i], ThetaScale::kReported);
        if (at.fFeasible) heights[i] = ScaleBest(model, at, &starts[i]);
    }
    const auto lowestStart =
        static_cast<std::size_t>(std::min_element(heights.begin(), heights.end()) - heights.begin());
    std::vector<std::pair<double, int>> order;
    for (std::size_t i = 0; i < starts.size(); ++i) {
        // The first start stands outside the grid, whose plateaus and ends are no valleys unless nothing lies lower.
        const bool falls = i >= 2 && heights[i] < heights[i - 1];
        const bool rises = i >= 2 && i + 1 < starts.size() && heights[i] < heights[i + 1];
        const bool lowest = i == lowestStart;
        if (std::isfinite(heights[i]) && (lowest || (falls && rises)))
            order.emplace_back(heights[i], static_cast<int>(i));
    }
    std::sort(order.begin(), order.end());
    SolverOutcome best;
    constexpr std::size_t kFollowed = 6;
    for (std::size_t i = 0; i < std::min(kFollowed, order.size()); ++i) {
        SolverOutcome outcome = solver.Solve(layout.ToWorking(starts[order[i].second]));
        const bool better = best.fEnd == SolverEnd::kBadStart ||
                            (outcome.fEnd != SolverEnd::kBadStart && outcome.fAt.fValue < best.fAt.fValue - 1e-8);
        if (better) best = std::move(outcome);
        if (best.fEnd == SolverEnd::kCancelled) break;
    }
    return best;
}

bool IsPerfect(const FixedBasis& basis, double residualSs) {
    return basis.TotalFrequency() <= basis.Rank() || residualSs <= kPerfect * kPerfect * basis.TotalSumOfSquares();
}

// Gathers the records into the problem that the model's blocks ask for.
FitStatus Build(FittedModel& model, FitResult& result, const WorkingData& working = {}) {
    const ModelSpec& spec = model.fSpec;
    double residualSs = 0.0;
    if (CommonSubject(spec).empty() && CrossedProblem::Suits(spec)) {
        model.fOwnBasis = std::make_unique<FixedBasis>(spec, model.fView, model.fWorkers, working);
        model.fCrossed = std::make_unique<CrossedProblem>(spec, model.fView, *model.fOwnBasis);
        if (FitStatus status = model.fCrossed->Prepare(); status.IsError()) return status;
        const CrossedStatistics& statistics = *model.fCrossed->Statistics();
        residualSs = statistics.fCross(statistics.fFixed, statistics.fFixed);
        DescribeColumns(model, result);
        for (std::size_t b = 0; b < spec.fRandom.size(); ++b)
            result.fNumSubjects.push_back(CrossedSubjects(model, static_cast<int>(b)));
    } else {
        model.fProblem = std::make_unique<LmmProblem>(spec, model.fView, model.fWorkers);
        if (FitStatus status = model.fProblem->Prepare(working); status.IsError()) return status;
        residualSs = model.fProblem->ResidualSumOfSquares();
        DescribeColumns(model, result);
        DescribeSubjects(*model.fProblem, result);
    }
    const FixedBasis& basis = model.Basis();
    const bool generalized = working.fTarget != nullptr;
    if (!std::isfinite(basis.TotalSumOfSquares()) || !std::isfinite(residualSs)) {
        return {kBadStart, Severity::kError, "The squares of the target are beyond the largest number: rescale it."};
    }
    if (!generalized && basis.TotalSumOfSquares() == 0.0 && spec.fIntercept) {
        return {kZeroScale, Severity::kError,
                "The target is the same in all records: there is no variance to estimate."};
    }
    if (!generalized && IsPerfect(basis, residualSs)) {
        return {kPerfectFit, Severity::kError, "The fixed effects reproduce the target exactly: no residual is left."};
    }
    if (!model.IsCrossed()) {
        model.fObjective = std::make_unique<MarginalLikelihood>(*model.fProblem, spec.fRestricted);
        return {0, Severity::kOk, {}};
    }
    auto crossed = std::make_unique<CrossedLikelihood>(*model.fCrossed, spec.fRestricted, &model.fWorkers);
    if (!crossed->IsWithinReach()) {
        return {kNotBuilt, Severity::kError, "The crossed random effects have too many levels for this machine."};
    }
    model.fObjective = std::move(crossed);
    return {0, Severity::kOk, {}};
}

// Everything that is known at the solution.
void Conclude(const std::shared_ptr<FittedModel>& model, const SolverOutcome& outcome, FitResult& result) {
    const ModelSpec& spec = model->fSpec;
    result.fHistory = outcome.fHistory;
    result.fIterations = std::max(0, static_cast<int>(outcome.fHistory.size()) - 1);
    if (outcome.fEnd == SolverEnd::kBadStart) {
        return Fail(result, kBadStart, "The likelihood can't be computed at the starting values.");
    }
    if (outcome.fEnd == SolverEnd::kCancelled) return Fail(result, kStopped, "");
    StopScope::Check();
    Judge(outcome, spec.fMaxIterations, RunsDown(*model, outcome), result);
    result.fCertificate.fScaledGradient = outcome.fScaledGradient;
    result.fCertificate.fNewtonDecrement = outcome.fDecrement;
    result.fCertificate.fSmallestEigenvalue = outcome.fSmallestEigenvalue;
    if (!InferFrom(*model, outcome)) {
        Warn(result, kPostEstimation, "The covariance matrix of the data isn't positive definite at the solution.");
        result.fStatus = result.fWarnings.back();
        return;
    }
    ReportCovariance(model->Layout(), *model, outcome.fHeld, outcome.fAtBound, result);
    FillFixed(*model, result);
    FillCriteria(spec, outcome.fAt.fValue, result);
    model->fSpec.fCancelled = nullptr;
    model->fSpec.fProgress = nullptr;
    result.fModel = model;
    result.fTests = result.EffectTests(spec.fTypeI);
    result.fStatus = result.fWarnings.empty() ? FitStatus{0, Severity::kOk, {}} : result.fWarnings.back();
}

void Fit(const std::shared_ptr<FittedModel>& model, FitResult& result) {
    const ModelSpec& spec = model->fSpec;
    if (model->fView.fCount == 0) return Fail(result, kNoRecords, "There are no valid records.");
    if (model->fView.fCount > std::numeric_limits<std::int32_t>::max())
        return Fail(result, kTooManyRecords, "There are more than 2147483647 records: fit a part of them, or a split.");
    if (const FitStatus status = Build(*model, result); status.IsError()) {
        result.fStatus = status;
        return;
    }
    if (spec.fCancelled && spec.fCancelled()) return Fail(result, kStopped, "");
    Conclude(model, SolveFromStarts(*model), result);
}

}  // namespace

RepeatedFit::RepeatedFit(const ModelSpec& spec, const RecordView& view, std::shared_ptr<const void> data)
    : fModel(std::make_shared<FittedModel>(spec, view)) {
    fModel->fWorkingData = std::move(data);
}

RepeatedFit::~RepeatedFit() = default;

FitStatus RepeatedFit::Gather(const WorkingData& working) {
    FittedModel& model = *fModel;
    if (!model.fObjective) return Build(model, fResult, working);
    if (!model.IsCrossed()) return model.fProblem->Gather(working);
    FitResult again;
    model.fObjective.reset();
    return Build(model, again, working);
}

FitStatus RepeatedFit::Solve(const WorkingData& working) {
    const Eigen::VectorXd last = fOutcome.fTheta.size() > 0 ? Theta() : Eigen::VectorXd();
    if (FitStatus status = Gather(working); status.IsError()) return status;
    fOutcome = SolveFromStarts(*fModel, last);
    if (fOutcome.fEnd == SolverEnd::kBadStart && last.size() > 0) fOutcome = SolveFromStarts(*fModel);
    if (fOutcome.fEnd == SolverEnd::kBadStart) {
        return {kBadStart, Severity::kError, "The likelihood can't be computed at the starting values."};
    }
    if (fOutcome.fEnd == SolverEnd::kCancelled) return {kStopped, Severity::kError, {}};
    return {0, Severity::kOk, {}};
}

Eigen::VectorXd RepeatedFit::Theta() const {
    return fModel->Layout().FromWorking(fOutcome.fTheta);
}

FitResult RepeatedFit::Conclude() {
    engine::Conclude(fModel, fOutcome, fResult);
    return std::move(fResult);
}

FitResult FitLmm(const ModelSpec& spec, const RecordView& view) {
    FitResult result;
    const StopScope stop(spec.fCancelled);
    try {
        Fit(std::make_shared<FittedModel>(spec, view), result);
    } catch (const StopAsked&) {
        result = FitResult{};
        Fail(result, kStopped, "");
    } catch (const std::bad_alloc&) {
        result = FitResult{};
        Fail(result, kNotBuilt, "There is not enough memory for this model.");
    }
    return result;
}

}  // namespace engine
