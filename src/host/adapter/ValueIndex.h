#pragma once

#include "contracts/HostData.h"
#include "host/data/NumberIndex.h"
#include "host/data/Table.h"

#include <memory>
#include <string>
#include <vector>

namespace host {

/// The distinct values of one variable over a whole run, each with a global code: the pool's code of a text, or a
/// number's in order of first appearance. Missing values have none.
class ValueIndex {
public:
    ValueIndex(const Table& table, int column) : fTable(table), fColumn(column) {}

    bool IsText() const { return GetVariable().IsText(); }
    const Variable& GetVariable() const { return fTable.GetVariable(fColumn); }
    int Column() const { return fColumn; }

    std::uint32_t OfNumber(double value) { return fNumbers.Intern(value); }

    /// The global code of a value in cells (a text blank-padded to the variable's width), or NumberIndex::kAbsent.
    std::uint32_t Find(const OBS* value) const;

    /// The value in cells, which stay in place for the index's life; kMissing gives the missing value.
    OBS* Cells(std::uint32_t global);

    /// The value as a text that reads back to it.
    std::string Text(std::uint32_t global) const;
    /// The value's label, or its text.
    std::string LabelText(std::uint32_t global) const;

    /// Numbers by value, texts by bytes.
    bool Less(std::uint32_t a, std::uint32_t b) const;

    /// One more than the highest global code so far.
    std::size_t Size() const { return IsText() ? fTable.Pool(fColumn).Size() : fNumbers.Values().size(); }

    static constexpr std::uint32_t kMissing = 0xFFFFFFFE;

private:
    OBS* MakeCells(std::string_view text, double number);

    const Table& fTable;
    int fColumn;
    NumberIndex fNumbers;
    std::vector<OBS*> fCells;  ///< by global code, null until asked for
    OBS* fMissingCells = nullptr;
    std::vector<std::unique_ptr<OBS[]>> fChunks;
    std::size_t fChunkUsed = 0;
};

}  // namespace host
