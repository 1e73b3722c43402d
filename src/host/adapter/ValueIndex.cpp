#include "host/adapter/ValueIndex.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace host {
namespace {

constexpr std::size_t kChunkCells = 1024;

}  // namespace

std::uint32_t ValueIndex::Find(const OBS* value) const {
    if (!IsText()) return fNumbers.Find(value->fNumber + 0.0);
    std::string_view text(value->fText, static_cast<std::size_t>(GetVariable().fWidth));
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    const std::uint32_t code = fTable.Pool(fColumn).Find(text);
    return code == 0 || code == StringPool::kAbsent ? NumberIndex::kAbsent : code;
}

OBS* ValueIndex::Cells(std::uint32_t global) {
    if (global == kMissing) {
        if (fMissingCells == nullptr) fMissingCells = MakeCells({}, std::numeric_limits<double>::lowest());
        return fMissingCells;
    }
    if (global >= fCells.size()) fCells.resize(std::max<std::size_t>(Size(), global + 1), nullptr);
    if (fCells[global] == nullptr)
        fCells[global] =
            IsText() ? MakeCells(fTable.Pool(fColumn).Text(global), 0.0) : MakeCells({}, fNumbers.Values()[global]);
    return fCells[global];
}

OBS* ValueIndex::MakeCells(std::string_view text, double number) {
    const auto cells = static_cast<std::size_t>(ObsCells(GetVariable().fWidth));
    const std::size_t chunk = std::max(kChunkCells, cells);
    if (fChunks.empty() || fChunkUsed + cells > chunk) {
        fChunks.push_back(std::make_unique<OBS[]>(chunk));
        fChunkUsed = 0;
    }
    OBS* const place = fChunks.back().get() + fChunkUsed;
    fChunkUsed += cells;
    if (!IsText()) {
        place->fNumber = number;
        return place;
    }
    char* const bytes = place->fText;
    std::memset(bytes, ' ', cells * sizeof(OBS));
    std::memcpy(bytes, text.data(), text.size());
    return place;
}

std::string ValueIndex::Text(std::uint32_t global) const {
    if (global == kMissing) return IsText() ? "" : ".";
    if (IsText()) return std::string(fTable.Pool(fColumn).Text(global));
    char digits[64];
    const auto end = std::to_chars(digits, digits + sizeof(digits), fNumbers.Values()[global]).ptr;
    return std::string(digits, end);
}

std::string ValueIndex::LabelText(std::uint32_t global) const {
    const std::string text = Text(global);
    if (global == kMissing) return text;
    if (IsText()) {
        const auto found = GetVariable().fTextLabels.find(text);
        return found == GetVariable().fTextLabels.end() ? text : found->second;
    }
    const auto found = GetVariable().fNumberLabels.find(fNumbers.Values()[global]);
    return found == GetVariable().fNumberLabels.end() ? text : found->second;
}

bool ValueIndex::Less(std::uint32_t a, std::uint32_t b) const {
    if (!IsText()) return fNumbers.Values()[a] < fNumbers.Values()[b];
    return fTable.Pool(fColumn).Text(a) < fTable.Pool(fColumn).Text(b);
}

}  // namespace host
