#pragma once

#include "engine/crossed/CrossedProblem.h"
#include "engine/lmm/Inference.h"
#include "engine/lmm/LmmProblem.h"
#include "engine/lmm/Objective.h"
#include "engine/model/Workers.h"

#include <memory>
#include <mutex>

namespace engine {

class MixedContrasts;
struct RandomState;

/// What a finished fit keeps alive for the calls of FitResult: its own copy of the model, the gathered problem, and the
/// inference. Made by LmmFit. The problem is one of subjects, or one of crossed random effects; a model that
/// comes from a file has neither.
struct FittedModel {
    FittedModel(const ModelSpec& spec, const RecordView& view);
    ~FittedModel();

    /// Crossed, or with a block of one subject: no subject variable is common to all blocks.
    bool IsCrossed() const { return fCrossed != nullptr; }
    const FixedBasis& Basis() const { return fOwnBasis ? *fOwnBasis : fProblem->Basis(); }
    const ParameterLayout& Layout() const { return IsCrossed() ? fCrossed->Layout() : fProblem->Layout(); }
    /// Starting values, reported scale.
    Eigen::VectorXd Start() const;

    /// Covariance matrix of one subject's effects of a block at a group level (-1: none); 0 x 0 if there is none.
    Eigen::MatrixXd RandomCovariance(int block, int group) const;
    /// Made with the first call, which reads the records.
    const MixedContrasts& Mixed() const;
    /// Lets Mixed answer from a state instead.
    void UseState(RandomState state);

    ModelSpec fSpec;
    Workers fWorkers;
    RecordView fView;
    std::shared_ptr<const void>
        fWorkingData;  ///< what the view and the basis look into, when a generalized fit made it
    std::unique_ptr<LmmProblem> fProblem;
    std::unique_ptr<FixedBasis> fOwnBasis;  ///< of a crossed problem, or of a model without its problem
    std::unique_ptr<CrossedProblem> fCrossed;
    std::unique_ptr<Objective> fObjective;
    std::unique_ptr<Inference> fInference;
    Eigen::VectorXd fTheta;            ///< reported scale
    Eigen::MatrixXd fThetaCovariance;  ///< reported scale

private:
    mutable std::once_flag fOnce;
    mutable std::unique_ptr<MixedContrasts> fMixed;
};

}  // namespace engine
