#pragma once

#include "report/Layout.h"

#include <string>

namespace report {

/// One table as HTML: a caption, column headers with their scopes and spans, row headers, footnotes and the caption's
/// lines below. A number's cell holds the full double in data-v.
std::string HtmlTable(const Layout& layout);

/// A label with its footnote marks.
std::string HtmlLabel(const Label& label);

}  // namespace report
