#include "report/DisplayText.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace report {

namespace {

struct Range {
    std::uint32_t fFirst, fLast;
};

/// Combining marks and joiners, which take no column (Unicode general categories Mn, Me, Cf; the common blocks).
constexpr std::array<Range, 30> kNoWidth{{
    {0x0300, 0x036F}, {0x0483, 0x0489}, {0x0591, 0x05BD}, {0x05BF, 0x05BF}, {0x05C1, 0x05C7}, {0x0610, 0x061A},
    {0x064B, 0x065F}, {0x0670, 0x0670}, {0x06D6, 0x06DC}, {0x06DF, 0x06E4}, {0x06E7, 0x06E8}, {0x06EA, 0x06ED},
    {0x0900, 0x0902}, {0x093A, 0x093A}, {0x093C, 0x093C}, {0x0941, 0x0948}, {0x094D, 0x094D}, {0x0E31, 0x0E31},
    {0x0E34, 0x0E3A}, {0x0E47, 0x0E4E}, {0x1AB0, 0x1AFF}, {0x1DC0, 0x1DFF}, {0x200B, 0x200F}, {0x202A, 0x202E},
    {0x2060, 0x2064}, {0x20D0, 0x20FF}, {0x302A, 0x302D}, {0xFE00, 0xFE0F}, {0xFE20, 0xFE2F}, {0xFEFF, 0xFEFF},
}};

/// East Asian wide and fullwidth characters and emoji (Unicode Standard Annex 11).
constexpr std::array<Range, 15> kWide{{
    {0x1100, 0x115F},
    {0x231A, 0x231B},
    {0x2E80, 0x303E},
    {0x3041, 0x33FF},
    {0x3400, 0x4DBF},
    {0x4E00, 0x9FFF},
    {0xA000, 0xA4CF},
    {0xA960, 0xA97F},
    {0xAC00, 0xD7A3},
    {0xF900, 0xFAFF},
    {0xFE30, 0xFE6F},
    {0xFF00, 0xFF60},
    {0xFFE0, 0xFFE6},
    {0x1F300, 0x1FAFF},
    {0x20000, 0x3FFFD},
}};

template <std::size_t N>
bool Within(const std::array<Range, N>& ranges, std::uint32_t code) {
    const auto after = std::upper_bound(ranges.begin(), ranges.end(), code,
                                        [](std::uint32_t value, const Range& range) { return value < range.fFirst; });
    return after != ranges.begin() && code <= std::prev(after)->fLast;
}

struct Character {
    std::uint32_t fCode;
    std::size_t fLength;
    bool fValid;
};

Character Decode(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byte(at);
    if (lead < 0x80) return {lead, 1, true};
    const std::size_t length = lead >= 0xF0 && lead < 0xF5   ? 4
                               : lead >= 0xE0 && lead < 0xF0 ? 3
                               : lead >= 0xC2 && lead < 0xE0 ? 2
                                                             : 0;
    if (length == 0 || at + length > text.size()) return {0xFFFD, 1, false};
    std::uint32_t code = lead & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0) != 0x80) return {0xFFFD, 1, false};
        code = code << 6 | (byte(at + i) & 0x3Fu);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    if (overlong || surrogate || code > 0x10FFFF) return {0xFFFD, 1, false};
    return {code, length, true};
}

int Columns(std::uint32_t code) {
    if (code < kNoWidth.front().fFirst) return 1;
    return Within(kNoWidth, code) ? 0 : Within(kWide, code) ? 2 : 1;
}

bool IsReordering(std::uint32_t code) {
    return code == 0x200E || code == 0x200F || code == 0x061C || (code >= 0x202A && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

bool IsControl(std::uint32_t code) {
    return (code < 0x20 && code != '\n') || (code >= 0x7F && code < 0xA0) || code == 0x2028 || code == 0x2029;
}

/// The longest piece from the start that fits, at least one character; where a blank allows, it ends there.
std::size_t Fitting(std::string_view text, int width) {
    // No character takes more columns than bytes.
    if (text.size() <= static_cast<std::size_t>(width)) return text.size();
    int columns = 0;
    std::size_t blank = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        const Character character = Decode(text, at);
        const int wide = Columns(character.fCode);
        if (columns + wide > width && at > 0) {
            return text[at] == ' ' ? at : blank > 0 ? blank : at;
        }
        if (text[at] == ' ') blank = at;
        columns += wide;
        at += character.fLength;
    }
    return at;
}

void WrapLine(std::string_view line, int width, std::vector<std::string>& lines) {
    do {
        const std::size_t length = Fitting(line, width);
        lines.emplace_back(line.substr(0, length));
        line.remove_prefix(length);
        while (!line.empty() && line.front() == ' ')
            line.remove_prefix(1);
    } while (!line.empty());
}

}  // namespace

std::string Clean(std::string_view text) {
    std::string clean;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = Decode(text, at);
        if (!character.fValid) {
            clean += "\xEF\xBF\xBD";
        } else if (character.fCode == '\t' || character.fCode == '\r') {
            clean += ' ';
        } else if (!IsControl(character.fCode) && !IsReordering(character.fCode)) {
            clean += text.substr(at, character.fLength);
        }
        at += character.fLength;
    }
    return clean;
}

int DisplayWidth(std::string_view text) {
    int width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = Decode(text, at);
        width += Columns(character.fCode);
        at += character.fLength;
    }
    return width;
}

std::vector<std::string> Wrap(std::string_view text, int width) {
    std::vector<std::string> lines;
    while (true) {
        const std::size_t end = text.find('\n');
        WrapLine(text.substr(0, end), std::max(1, width), lines);
        if (end == std::string_view::npos) return lines;
        text.remove_prefix(end + 1);
    }
}

std::string PadLeft(std::string_view text, int width) {
    return std::string(static_cast<std::size_t>(std::max(0, width - DisplayWidth(text))), ' ').append(text);
}

std::string PadRight(std::string_view text, int width) {
    return std::string(text).append(static_cast<std::size_t>(std::max(0, width - DisplayWidth(text))), ' ');
}

std::string Centre(std::string_view text, int width) {
    const int left = std::max(0, width - DisplayWidth(text)) / 2;
    return PadRight(std::string(static_cast<std::size_t>(left), ' ').append(text), width);
}

}  // namespace report
