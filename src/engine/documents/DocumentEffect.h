#pragma once

#include "engine/documents/XmlWriter.h"
#include "engine/model/ModelSpec.h"
#include "engine/seam/Namer.h"

#include <string>
#include <vector>

namespace engine {

/// Writes an effect, or a list of fields, as a StructuredValue with its Fields and NestingLevels. A covariate stands as
/// often as its multiplicity.
void WriteEffect(XmlWriter& xml, const Namer& namer, const ModelEffect& effect);
void WriteFields(XmlWriter& xml, const Namer& namer, const std::vector<int>& variables);

/// Writes a RegressionParameter: the intercept, or an effect at levels of its factors.
void WriteRegressionParameter(XmlWriter& xml, const Namer& namer, const ModelEffect& effect,
                              const std::vector<int>& levels, const std::string& name);

/// Writes a SegmentInfo of fields and category values.
void WriteSegment(XmlWriter& xml, const Namer& namer, const std::vector<int>& variables, const std::vector<int>& codes);

/// Label of a parameter as the viewer builds it: "x*x*[a=1]*[b=2]".
std::string ParameterLabel(const Namer& namer, const ModelEffect& effect, const std::vector<int>& levels);

}  // namespace engine
