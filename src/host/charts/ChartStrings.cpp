#include "contracts/ChartService.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

/// The character at a place, and the place behind it.
char32_t Decode(const std::string& text, std::size_t& at) {
    const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at++);
    if (lead < 0x80) return lead;
    const int more = lead >= 0xF0 && lead < 0xF5 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC2 ? 1 : 0;
    if (more == 0 || lead >= 0xF5) return kReplacement;
    char32_t character = lead & (0x3F >> more);
    const std::size_t start = at;
    for (int i = 0; i < more; ++i) {
        if (at >= text.size() || (byte(at) & 0xC0) != 0x80) {
            at = start;
            return kReplacement;
        }
        character = character << 6 | (byte(at++) & 0x3F);
    }
    const char32_t least[] = {0, 0x80, 0x800, 0x10000};
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < least[more] || character > 0x10FFFF || surrogate) return kReplacement;
    return character;
}

std::u32string Wide(const std::string& text) {
    std::u32string wide;
    for (std::size_t at = 0; at < text.size();)
        wide += Decode(text, at);
    return wide;
}

}  // namespace

ChartString& ChartString::append(char32_t character) {
    fText += character;
    return *this;
}

ChartString& ChartString::append(const std::string& narrow) {
    fText += Wide(narrow);
    return *this;
}

ChartString& ChartString::append(const ChartString& text) {
    fText += text.fText;
    return *this;
}

ChartString& ChartString::replaceSubstring(const ChartString& from, const ChartString& to) {
    if (from.fText.empty()) return *this;
    for (std::size_t at = fText.find(from.fText); at != std::u32string::npos;
         at = fText.find(from.fText, at + to.fText.size()))
        fText.replace(at, from.fText.size(), to.fText);
    return *this;
}

std::string ChartString::toUTF8() const {
    std::string text;
    const auto add = [&text](char32_t bits) { text += static_cast<char>(bits); };
    for (const char32_t c : fText) {
        if (c < 0x80) {
            add(c);
        } else if (c < 0x800) {
            add(0xC0 | c >> 6), add(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            add(0xE0 | c >> 12), add(0x80 | (c >> 6 & 0x3F)), add(0x80 | (c & 0x3F));
        } else {
            add(0xF0 | c >> 18), add(0x80 | (c >> 12 & 0x3F)), add(0x80 | (c >> 6 & 0x3F)), add(0x80 | (c & 0x3F));
        }
    }
    return text;
}

ChartString XUtility::ChartStringFromLocalCodePage(const std::string& text) {
    return ChartString(Wide(text));
}

ChartString XUtility::ChartStringFromOLANG(const std::string& text) {
    return ChartString(Wide(text));
}
