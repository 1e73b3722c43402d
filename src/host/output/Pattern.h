#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

/// What stands at one place of a pattern: one text, or the texts of a list.
struct PatternPlace {
    std::vector<std::string> fvTexts;
    bool fList = false;
};

/// Fills a pattern. ^n is place n (a list there is joined by commas, an absent place is empty). [first:rest:]n repeats
/// over the list at place n: "first" takes the list's first texts at %1, %2, ..., "rest" the following ones at
/// ^1, ^2, ...; an empty "first" leaves all to "rest". A backslash makes the next character plain. A bracket that
/// isn't such a list stands for itself, and what is filled in isn't read again.
std::string FillPattern(std::string_view pattern, const std::vector<PatternPlace>& places);

/// A pattern over single texts.
std::string FillPattern(std::string_view pattern, const std::vector<std::string>& texts);

}  // namespace host
