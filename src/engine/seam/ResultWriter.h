#pragma once

#include "contracts/EngineResults.h"
#include "contracts/EngineSettings.h"
#include "contracts/EngineVariables.h"
#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/FitResult.h"
#include "run/RunValue.h"

namespace engine {

/// The status in the system's terms.
MCStatus ConvertStatus(const FitStatus& status);

/// The results object of a fit: parameters in the settings' effects, missing values in the system's form.
GLMMOutputStats MakeOutputStats(const FitResult& fit, const ModelSpec& spec, const GLMMSettings& settings);

/// What the figures are written from.
struct FigureSource {
    const FitResult& fFit;
    const ModelSpec& fSpec;
    const MCVarList& fVariables;
    const run::RunValue& fRun;
    const WorkingModel* fGeneralized = nullptr;  ///< null for a linear mixed model, and when there are no estimates
    int fHistoryInterval = 1;                    ///< of the iterations that the history shows, the last besides
};

/// The split's figures, in the user's words.
run::Figures MakeFigures(const FigureSource& source);

}  // namespace engine
