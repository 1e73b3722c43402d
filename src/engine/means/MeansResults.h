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
    std::vector<CustomTestResult> fTests;   ///< one a custom test of the run
    bool fUnavailable = false;  ///< something was asked for, but the target's several categories have no single mean

    /// Warnings for the engine's list: a compared factor without contrasts, with its request's number from 1.
    std::vector<MCStatus> Warnings() const;
    /// The requests and the tests as figures, appended, with messages on those that could not be answered as asked.
    void AddFigures(const std::vector<run::CustomTest>& tests, const Namer& namer, run::Figures& figures) const;
};

/// The settings' requests with what the run says beyond them.
std::vector<MeansRequest> ReadMeansRequests(const GLMMSettings& settings, const run::RunValue& run);

/// records: averages over the split's records. Top effects are left out when topEffects is false. Ordinal and nominal
/// targets get no results.
MeansResults EstimateMeans(const FitResult& fit, const ModelSpec& spec, const RecordMeans& records,
                           const ResponseScale& scale, const GLMMSettings& settings, const run::RunValue& run,
                           bool topEffects);

}  // namespace engine
