#pragma once

#include "contracts/EngineVariables.h"
#include "engine/documents/RecordSummary.h"
#include "engine/documents/ScoringDocument.h"
#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/FitResult.h"
#include "engine/means/MeansResults.h"
#include "run/RunValue.h"

#include <ostream>

namespace engine {

/// What the documents of a split are written from. Nothing is owned.
struct DocumentSource {
    const FitResult& fFit;
    const ModelSpec& fSpec;
    const MCVarList& fVariables;
    const run::RunValue& fRun;
    const RecordSummary& fSummary;
    const MeansResults& fMeans;
    const TargetSpec& fTarget;                   ///< of a generalized model
    const WorkingModel* fGeneralized = nullptr;  ///< null for a linear mixed model
    const ScoringContent* fpScoring = nullptr;   ///< what a model file carries for scoring; null: none
};

/// Writes the result document: build settings, string maps, diagnostics, estimates, messages. docs/documents.md has its
/// grammar. Numbers round-trip exactly; a statistic that was not computed is an empty attribute.
void WriteStatXml(const DocumentSource& source, std::ostream& stream);

}  // namespace engine
