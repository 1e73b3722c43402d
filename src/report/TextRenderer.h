#pragma once

#include "report/Outline.h"
#include "report/TextTable.h"

#include <string>

namespace report {

/// A document as text for a terminal or a file: headings, tables, messages; a chart as a line that names it, with its
/// rows.
std::string RenderText(const host::OutputDocument& document, const Selection& selection, const TextStyle& style);

/// A message as one paragraph, led by its level.
std::string MessageText(const output::Message& message, const host::Catalogue& strings);

}  // namespace report
