#include "command/ParsedBlock.h"

#include <algorithm>
#include <bit>
#include <cstring>

/// A chain's head is the position of its first link; a link holds the position of the next one, or 0, and that of its
/// record.
long long TMCGET(const long long* intCells, const double* /*doubleCells*/, const double* chainHead,
                 const double* ordinal) {
    std::int64_t link = std::bit_cast<std::int64_t>(*chainHead);
    for (int i = 1; i < static_cast<int>(*ordinal); ++i)
        link = intCells[link - 1];
    return intCells[link];
}

namespace command {

ParsedBlock::ParsedBlock() : fvSlots(slot::kRecordSize / 8, 0), fvTexts(text::kRecordSize, ' ') {}

void ParsedBlock::SetSlotDouble(int offset, double value) {
    SetSlot(offset, std::bit_cast<std::int64_t>(value));
}

void ParsedBlock::SetText(std::size_t offset, const std::string& text) {
    std::copy(text.begin(), text.end(), fvTexts.begin() + static_cast<std::ptrdiff_t>(offset));
}

std::int64_t ParsedBlock::Append(const std::vector<std::int64_t>& cells) {
    const std::int64_t position = static_cast<std::int64_t>(fvCells.size()) + 1;
    fvCells.insert(fvCells.end(), cells.begin(), cells.end());
    return position;
}

std::int64_t ParsedBlock::AppendDoubles(const std::vector<double>& values) {
    std::vector<std::int64_t> cells;
    for (const double value : values)
        cells.push_back(std::bit_cast<std::int64_t>(value));
    return Append(cells);
}

std::int64_t ParsedBlock::AppendText(const std::string& text, std::size_t width) {
    std::string padded = text;
    padded.resize(std::max({width, text.size(), std::size_t(1)}), ' ');
    padded.resize((padded.size() + 7) / 8 * 8, ' ');
    std::vector<std::int64_t> cells(padded.size() / 8);
    std::memcpy(cells.data(), padded.data(), padded.size());
    return Append(cells);
}

std::int64_t ParsedBlock::AppendLink(std::int64_t record, std::int64_t previous) {
    const std::int64_t link = Append({0, record});
    if (previous > 0) fvCells[previous - 1] = link;
    return link;
}

}  // namespace command
