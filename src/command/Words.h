#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Comparing and suggesting words.
namespace command {

/// In capitals; letters beyond ASCII stay.
std::string Upper(std::string_view text);
bool EqualWords(std::string_view a, std::string_view b);  ///< case ignored

/// The candidate nearest to a misspelt word (case ignored, insertions, deletions, substitutions and swaps of neighbours
/// cost 1 each), or an empty text when none is near: more than a third of the word would have to change.
std::string NearestWord(std::string_view word, const std::vector<std::string>& candidates);

/// "; did you mean SUBJECTS?" for the nearest candidate, else "; expected one of A, B, C" when listAll, else nothing.
std::string SuggestionText(std::string_view word, const std::vector<std::string>& candidates, bool listAll);

/// "A, B or C".
std::string JoinOr(const std::vector<std::string>& words);

/// A double as the shortest text that reads back as the same number.
std::string NumberText(double value);

/// The number that the whole text is, whatever the locale. False if it isn't one or is out of range.
bool ReadNumber(std::string_view text, double& value);

}  // namespace command
