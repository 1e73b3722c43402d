#pragma once

#include "engine/lmm/Inference.h"
#include "engine/lmm/LmmProblem.h"
#include "engine/lmm/Objective.h"
#include "engine/model/Workers.h"

#include <memory>
#include <mutex>

namespace engine {

class MixedContrasts;

/// What a finished fit keeps alive for the calls of FitResult: its own copy of the model, the gathered problem, and the
/// inference. Made by LmmFit.
struct FittedModel {
    FittedModel(const ModelSpec& spec, const RecordView& view);
    ~FittedModel();
    /// Made with the first call, which reads the records.
    const MixedContrasts& Mixed() const;

    ModelSpec fSpec;
    Workers fWorkers;
    RecordView fView;
    std::unique_ptr<LmmProblem> fProblem;
    std::unique_ptr<Objective> fObjective;
    std::unique_ptr<Inference> fInference;
    Eigen::VectorXd fTheta;            ///< reported scale
    Eigen::MatrixXd fThetaCovariance;  ///< reported scale

private:
    mutable std::once_flag fOnce;
    mutable std::unique_ptr<MixedContrasts> fMixed;
};

}  // namespace engine
