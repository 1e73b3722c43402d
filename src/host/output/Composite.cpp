#include "contracts/HostOutput.h"
#include "host/output/Pattern.h"

#include <fmt/format.h>
#include <iostream>

/// Composites that are put together outside of the output tree.

OmComposite::OmComposite(const std::string& pattern) : fPattern(pattern) {}

void OmComposite::BeginRepeatList() {
    fvLists.emplace_back();
    fInList = true;
}

void OmComposite::Add(const OmStringCell& cell) {
    if (!fInList) fvLists.emplace_back();
    fvLists.back().push_back(cell);
}

void OmComposite::EndRepeatList() {
    fInList = false;
}

void OmComposite::End() {
    fInList = false;
}

void OmComposite::Substitute() {
    std::vector<host::PatternPlace> places;
    for (const auto& cells : fvLists) {
        host::PatternPlace place{{}, true};
        for (const auto& cell : cells)
            place.fvTexts.push_back(cell.GetDisplay());
        places.push_back(std::move(place));
    }
    fText = host::FillPattern(fPattern, places);
}

std::string OmComposite::AsString() const {
    return fText;
}

void OmComposite::Print(int indent) const {
    for (const auto& cells : fvLists) {
        for (const auto& cell : cells)
            cell.Print(indent);
    }
}

void OmStringCell::Print(int indent) const {
    std::string line(static_cast<std::size_t>(indent), '\t');
    line += '"' + fDisplay + '"';
    if (!fvFootnotes.empty()) line += fmt::format(", Footnotes = {}", fmt::join(fvFootnotes, ", "));
    if (!fvMarkers.empty()) line += fmt::format(", Markers = {}", fmt::join(fvMarkers, ", "));
    std::cout << line << '\n';
}
