#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/FixedBasis.h"
#include "engine/lmm/NewtonSolver.h"
#include "engine/model/ModelSpec.h"

namespace engine {

/// Fits a linear mixed model to the records of one split, which are sorted by SortVariables(spec). Never throws for
/// what is in the data; a result with an error status has no estimates. The records must stay in place as long as the
/// result is asked for predictions.
FitResult FitLmm(const ModelSpec& spec, const RecordView& view);

/// A linear mixed model solved again and again for other targets and weights of the same records, each time from where
/// the last solution ended. A generalized model is fitted with it.
class RepeatedFit {
public:
    /// data: what view and the working data of Solve point into; kept alive as long as the result.
    RepeatedFit(const ModelSpec& spec, const RecordView& view, std::shared_ptr<const void> data);
    ~RepeatedFit();

    /// Gathers the records with the working data, which must stay in place, and solves. An error status when the data
    /// don't fit the model, no start is feasible, or the user stopped.
    FitStatus Solve(const WorkingData& working);
    const SolverOutcome& Outcome() const { return fOutcome; }
    const FittedModel& Model() const { return *fModel; }
    /// Covariance parameters of the last solution, reported scale.
    Eigen::VectorXd Theta() const;
    /// Everything about the last solution. To be called once, at the end.
    FitResult Conclude();

private:
    FitStatus Gather(const WorkingData& working);

    std::shared_ptr<FittedModel> fModel;
    FitResult fResult;  ///< what is known before a solution
    SolverOutcome fOutcome;
};

}  // namespace engine
