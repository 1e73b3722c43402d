#pragma once

#include "contracts/EngineAlgorithm.h"
#include "engine/documents/StatXmlWriter.h"

#include <ostream>

namespace engine {

/// Writes the model as a PMML 4.4 GeneralRegressionModel: the fixed part as the standard has it, so that any consumer
/// can score it; covariance parameters, predictions of the random effects and the fit in extensions.
///
/// A field that the model uses in two ways has its first use in the data dictionary and the other in an extension of
/// it.
void WritePmml(const DocumentSource& source, const MCApplicInfo4XML& application, std::ostream& stream);

/// Writes the parameter file: the fixed estimates and their covariance matrix, as a model that can't be scored.
void WriteParameterFile(const DocumentSource& source, const MCApplicInfo4XML& application, std::ostream& stream);

}  // namespace engine
