#pragma once

#include "report/Layout.h"

#include <string>

namespace report {

struct TextStyle {
    int fWidth = 80;         ///< columns of the terminal; 0: as wide as it takes
    bool fUnicode = true;    ///< rules drawn with box characters and marks raised; false: plain ASCII for what we add
    bool fEmphasis = false;  ///< titles in bold, for a terminal
};

/// One table as text: title, notes, header, rows, footnotes, caption. A table wider than the style's width is broken
/// into panels of columns, the row headings repeated in each.
std::string TextTable(const Layout& layout, const TextStyle& style);

}  // namespace report
