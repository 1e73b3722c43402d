#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Texts as a terminal shows them: widths in columns, lines broken at blanks.
namespace report {

/// The text as valid UTF-8 without control characters: broken bytes become U+FFFD, tabs and carriage returns blanks,
/// other controls and the marks that reorder a line nothing. Line feeds stay.
std::string Clean(std::string_view text);

/// Columns that a line takes: two for wide East Asian characters and emoji, none for combining marks.
int DisplayWidth(std::string_view text);

/// Breaks a text into lines of at most width columns, at line feeds, then blanks, then anywhere.
std::vector<std::string> Wrap(std::string_view text, int width);

/// The text with blanks to fill the width, before it (right) or behind it.
std::string PadLeft(std::string_view text, int width);
std::string PadRight(std::string_view text, int width);
std::string Centre(std::string_view text, int width);

}  // namespace report
