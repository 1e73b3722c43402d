#include "host/output/Pattern.h"

#include <algorithm>
#include <optional>

namespace host {

namespace {

bool IsPlace(std::string_view text, std::size_t at, char mark) {
    return at + 1 < text.size() && text[at] == mark && text[at + 1] >= '1' && text[at + 1] <= '9';
}

/// The list form "[first:rest:]n" at the start of a text.
struct ListForm {
    std::string_view fFirst;
    std::string_view fRest;
    std::size_t fPlace;
    std::size_t fLength;
};

std::optional<ListForm> ReadList(std::string_view text) {
    std::size_t colons[2];
    int nColons = 0;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '\\') {
            ++i;
        } else if (text[i] == ':' && nColons < 2) {
            colons[nColons++] = i;
        } else if (nColons == 2) {
            // Only the closing bracket and the place may follow the second colon.
            if (text[i] != ']' || colons[1] + 1 != i || i + 1 >= text.size()) return std::nullopt;
            const char digit = text[i + 1];
            if (digit < '1' || digit > '9') return std::nullopt;
            return ListForm{text.substr(1, colons[0] - 1), text.substr(colons[0] + 1, colons[1] - colons[0] - 1),
                            static_cast<std::size_t>(digit - '0'), i + 2};
        }
    }
    return std::nullopt;
}

std::size_t HighestPlace(std::string_view text, char mark) {
    std::size_t highest = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (IsPlace(text, i, mark)) highest = std::max(highest, static_cast<std::size_t>(text[i + 1] - '0'));
    }
    return highest;
}

void FillElement(std::string_view element, char mark, const std::vector<std::string>& texts, std::size_t from,
                 std::string& out) {
    for (std::size_t i = 0; i < element.size(); ++i) {
        if (element[i] == '\\' && i + 1 < element.size()) {
            out += element[++i];
        } else if (IsPlace(element, i, mark)) {
            const std::size_t at = from + static_cast<std::size_t>(element[++i] - '1');
            if (at < texts.size()) out += texts[at];
        } else {
            out += element[i];
        }
    }
}

void FillList(const ListForm& form, const std::vector<std::string>& texts, std::string& out) {
    const std::size_t step =
        std::max<std::size_t>(1, std::max(HighestPlace(form.fFirst, '%'), HighestPlace(form.fRest, '^')));
    for (std::size_t at = 0; at < texts.size(); at += step) {
        if (at == 0 && !form.fFirst.empty()) {
            FillElement(form.fFirst, '%', texts, at, out);
        } else {
            FillElement(form.fRest, '^', texts, at, out);
        }
    }
}

void FillPlace(const PatternPlace& place, std::string& out) {
    for (std::size_t i = 0; i < place.fvTexts.size(); ++i) {
        if (i > 0) out += ", ";
        out += place.fvTexts[i];
    }
}

}  // namespace

std::string FillPattern(std::string_view pattern, const std::vector<PatternPlace>& places) {
    std::string out;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '\\' && i + 1 < pattern.size()) {
            out += pattern[++i];
        } else if (IsPlace(pattern, i, '^')) {
            const std::size_t at = static_cast<std::size_t>(pattern[++i] - '1');
            if (at < places.size()) FillPlace(places[at], out);
        } else if (const auto list = pattern[i] == '[' ? ReadList(pattern.substr(i)) : std::nullopt) {
            if (list->fPlace <= places.size()) FillList(*list, places[list->fPlace - 1].fvTexts, out);
            i += list->fLength - 1;
        } else {
            out += pattern[i];
        }
    }
    return out;
}

std::string FillPattern(std::string_view pattern, const std::vector<std::string>& texts) {
    std::vector<PatternPlace> places;
    for (const auto& text : texts)
        places.push_back({{text}, false});
    return FillPattern(pattern, places);
}

}  // namespace host
