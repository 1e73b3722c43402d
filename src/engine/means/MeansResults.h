#pragma once

#include "contracts/EngineSettings.h"
#include "contracts/EngineStatus.h"
#include "engine/means/CustomTests.h"
#include "engine/means/EstimatedMeans.h"
#include "engine/seam/Namer.h"
#include "run/RunValue.h"

#include <vector>

namespace engine {

/// Everything of a split that is estimated after the fit, on request.
struct MeansResults {
    ContrastResult fGrandMean;
    std::vector<EstimatedMeans> fTop;       ///< means of the top effects; documents alone show them
    std::vector<EstimatedMeans> fRequests;  ///< one a request of the settings
    /// Of a multinomial target instead of fRequests: the requests in order, category by category.
    struct OfCategory {
        int fRequest = 0;  ///< from 0
        int fTarget = -1;  ///< code of the category
        EstimatedMeans fMeans;
    };
    std::vector<OfCategory> fByCategory;
    std::vector<CustomTestResult> fTests;  ///< one a custom test of the run

    /// Warnings for the engine's list: a compared factor without contrasts, with its request's number from 1.
    std::vector<MCStatus> Warnings() const;
    /// The requests and the tests as figures, appended, with messages on those that could not be answered as asked.
    /// dependent: record variable. A mean of a category has the target and its category as its last level.
    void AddFigures(const run::RunValue& run, int dependent, const Namer& namer, run::Figures& figures) const;
};

/// The settings' requests with what the run says beyond them.
std::vector<MeansRequest> ReadMeansRequests(const GLMMSettings& settings, const run::RunValue& run);

/// records: averages over the split's records. Top effects are left out when topEffects is false. Ordinal and nominal
/// targets get means by category, and neither grand mean nor top effects.
MeansResults EstimateMeans(const FitResult& fit, const ModelSpec& spec, const RecordMeans& records,
                           const ResponseScale& scale, const GLMMSettings& settings, const run::RunValue& run,
                           bool topEffects);

}  // namespace engine
