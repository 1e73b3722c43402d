#pragma once

#include "command/BlockLayout.h"
#include "command/Specification.h"
#include "contracts/Parser.h"
#include "run/RunValue.h"

#include <array>
#include <cstdint>
#include <vector>

namespace command {

/// The three memory areas in which a command reaches the procedure. They must outlive the run.
class ParsedBlock {
public:
    ParsedBlock();

    CmnMix_map* Slots() { return reinterpret_cast<CmnMix_map*>(fvSlots.data()); }
    CmaMix_map* Texts() { return reinterpret_cast<CmaMix_map*>(fvTexts.data()); }
    void* Cells() { return fvCells.data(); }

    const std::vector<std::int64_t>& SlotCells() const { return fvSlots; }
    const std::vector<char>& TextBytes() const { return fvTexts; }
    const std::vector<std::int64_t>& CellArray() const { return fvCells; }

    void SetSlot(int offset, std::int64_t value) { fvSlots[offset / 8] = value; }
    void SetSlotDouble(int offset, double value);
    /// Fills a text field, padded with blanks. The text must fit.
    void SetText(std::size_t offset, const std::string& text);

    /// Appends cells and gives the one-based position of the first.
    std::int64_t Append(const std::vector<std::int64_t>& cells);
    std::int64_t AppendDoubles(const std::vector<double>& values);
    /// Appends a text in as many cells as it takes, at least width bytes, padded with blanks.
    std::int64_t AppendText(const std::string& text, std::size_t width);
    /// Appends a link to a record; previous is the position of the link before it, 0 for the first. Gives its position.
    std::int64_t AppendLink(std::int64_t record, std::int64_t previous);

private:
    std::vector<std::int64_t> fvSlots;
    std::vector<char> fvTexts;
    std::vector<std::int64_t> fvCells;
};

/// Writes a command into the memory areas. A variable's number is its position plus one.
ParsedBlock WriteBlock(const Specification& specification);

/// Puts into the run value what the block has no slot for.
void FillRunValue(const Specification& specification, run::RunValue& value);

}  // namespace command
