#pragma once

#include "engine/glmm/TargetSpec.h"
#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/FitResult.h"
#include "engine/model/ModelSpec.h"

#include <memory>

namespace engine {

/// A fitted generalized model.
struct GlmmResult {
    /// Of the last working linear model, with its parameters in the terms of the model that was asked for. Its
    /// likelihood is that of the last working responses. Contrasts and predictions are on the scale of the predictor.
    FitResult fFit;
    std::shared_ptr<const WorkingModel> fModel;  ///< null when there are no estimates
    std::vector<double> fFitted;                 ///< per record, WorkingModel::Fitted
};

/// Fits a generalized linear mixed model by restricted or full pseudo-likelihood: the target is expanded about the
/// current predictions, random effects included, the resulting linear mixed model solved, and so on until the
/// predictions settle (Wolfinger and O'Connell 1993; Breslow and Clayton 1993, section 2.3). Without random effects the
/// expansion is about the fixed part alone, and a residual structure makes the model a marginal one.
///
/// Records as for FitLmm. Never throws for what is in the data.
GlmmResult FitGlmm(const ModelSpec& spec, const TargetSpec& target, const RecordView& view);

}  // namespace engine
