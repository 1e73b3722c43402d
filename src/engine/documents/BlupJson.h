#pragma once

#include "engine/documents/StatXmlWriter.h"

#include <ostream>

namespace engine {

/// Writes the JSON result document: a table description of the predictions of the random effects for each block that
/// asks for them. docs/documents.md has its form.
void WriteBlupJson(const DocumentSource& source, const std::vector<bool>& wanted, std::ostream& stream);

}  // namespace engine
