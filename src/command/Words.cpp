#include "command/Words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace command {

std::string Upper(std::string_view text) {
    std::string upper(text);
    for (char& c : upper)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return upper;
}

bool EqualWords(std::string_view a, std::string_view b) {
    return a.size() == b.size() && Upper(a) == Upper(b);
}

namespace {

/// Damerau's distance with adjacent swaps (optimal string alignment), row by row.
std::size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        last[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
        std::swap(before, last);
        std::swap(last, row);
    }
    return last[b.size()];
}

constexpr std::size_t kLongestSuggestion = 64;  ///< longer words are not compared: the cost grows with the square

}  // namespace

std::string NearestWord(std::string_view word, const std::vector<std::string>& candidates) {
    if (word.size() > kLongestSuggestion) return {};
    const std::string upper = Upper(word);
    std::size_t best = std::max<std::size_t>(1, word.size() / 3) + 1;
    std::string nearest;
    for (const std::string& candidate : candidates) {
        if (candidate.size() > kLongestSuggestion) continue;
        const std::size_t distance = EditDistance(upper, Upper(candidate));
        if (distance < best) {
            best = distance;
            nearest = candidate;
        }
    }
    return nearest;
}

std::string JoinOr(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return text;
}

std::string SuggestionText(std::string_view word, const std::vector<std::string>& candidates, bool listAll) {
    const std::string nearest = NearestWord(word, candidates);
    if (!nearest.empty()) return "; did you mean " + nearest + "?";
    if (!listAll || candidates.empty()) return {};
    return "; expected " + JoinOr(candidates);
}

std::string NumberText(double value) {
    std::array<char, 64> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
    return {buffer.data(), end};
}

bool ReadNumber(std::string_view text, double& value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() && result.ptr == text.data() + text.size() && std::isfinite(value);
}

}  // namespace command
