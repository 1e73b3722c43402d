#pragma once

#include "host/data/DataError.h"
#include "host/data/ScratchStore.h"
#include "host/data/StringPool.h"
#include "host/data/Variable.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// Rows that share the values of all split variables. They stand together in the table.
struct SplitRange {
    std::uint64_t fFirst = 0;
    std::uint64_t fCount = 0;
};

/// How a block of cells is stored: in the narrowest form that holds it exactly.
enum class CellForm : std::uint8_t { kMissing, kDouble, kInt8, kInt16, kInt32, kCode8, kCode16, kCode32 };

/// A block of one column's cells in a store.
struct CellBlock {
    std::uint64_t fOffset = 0;
    CellForm fForm = CellForm::kMissing;
};

CellBlock WriteNumbers(ScratchStore& store, const double* cells, std::size_t count);
CellBlock WriteCodes(ScratchStore& store, const std::uint32_t* codes, std::size_t count);
void ReadBlockNumbers(const ScratchStore& store, CellBlock block, std::size_t count, double* cells);
void ReadBlockCodes(const ScratchStore& store, CellBlock block, std::size_t count, std::uint32_t* codes);

/// What a table is made of; filled by a reader, then handed to a Table.
struct TableContent {
    struct Column {
        Variable fVariable;
        std::vector<CellBlock> fBlocks;
        std::shared_ptr<StringPool> fPool;  ///< of a text column
    };

    std::uint64_t fRows = 0;
    std::uint64_t fInputRows = 0;  ///< rows of the data file, those that a filter left out included
    std::size_t fBlockRows = 1;    ///< rows of every block but the last
    std::vector<Column> fColumns;
    std::vector<CellBlock> fInputRowBlocks;  ///< the file's row of each row; empty: they are the same
    ScratchStore fStore;
    int fWeight = -1;
    std::vector<int> fSplitBy;
    std::vector<SplitRange> fSplits;
    std::string fSource;
    char fSeparator = ',';       ///< of the source file
    bool fDecimalComma = false;  ///< of the source file
    std::vector<std::string> fRemarks;

    explicit TableContent(const ScratchPlace& place = {}) : fStore(place) {}
    int Find(std::string_view name) const;
    bool SealAll(std::string& error);
};

/// A data table by columns: numbers as doubles (a missing number is NaN, -0.0 never occurs), texts as codes of the
/// column's pool (0 is the empty text, which is missing). Cells are read in blocks of rows; they live in memory up to a
/// budget and in a file without a name beyond it. A table doesn't change and is read from any thread.
class Table {
public:
    explicit Table(TableContent&& content) : fContent(std::move(content)) {}

    std::uint64_t RowCount() const { return fContent.fRows; }
    int VariableCount() const { return static_cast<int>(fContent.fColumns.size()); }
    const Variable& GetVariable(int index) const { return fContent.fColumns[index].fVariable; }

    /// Position of a variable by its exact name, -1 if there is none.
    int Find(std::string_view name) const { return fContent.Find(name); }

    /// Copies the cells of rows first to first + count - 1.
    void ReadNumbers(int index, std::uint64_t first, std::size_t count, double* cells) const;
    void ReadCodes(int index, std::uint64_t first, std::size_t count, std::uint32_t* codes) const;

    /// The texts behind the codes of a text column.
    const StringPool& Pool(int index) const { return *fContent.fColumns[index].fPool; }

    /// Rows that are stored together: the block size at which reading is cheapest.
    std::size_t BlockRows() const { return fContent.fBlockRows; }

    /// Lets the pages of the block that holds a row leave memory; for readers that have passed it.
    void ForgetBlock(std::uint64_t row) const;

    /// Copies the data file's row numbers (0-based, header not counted) of rows first to first + count - 1: they are
    /// others than the table's where a filter or the split order applies.
    void ReadInputRows(std::uint64_t first, std::size_t count, double* rows) const;
    std::uint64_t InputRowCount() const { return fContent.fInputRows; }

    int WeightIndex() const { return fContent.fWeight; }  ///< the frequency weight, -1 if none
    const std::vector<int>& SplitIndices() const { return fContent.fSplitBy; }
    /// One for each combination of split values that occurs, ascending (missing first, numbers by value, texts by
    /// bytes); one that is the whole table without split variables; none without rows.
    const std::vector<SplitRange>& Splits() const { return fContent.fSplits; }

    const std::string& Source() const { return fContent.fSource; }  ///< the file as named; empty if made in memory
    char Separator() const { return fContent.fSeparator; }          ///< of the source file's fields
    bool DecimalComma() const { return fContent.fDecimalComma; }
    /// Sentences about what was read in a way that may surprise; none is an error.
    const std::vector<std::string>& Remarks() const { return fContent.fRemarks; }

private:
    TableContent fContent;
};

/// `; did you mean "days"?`, or `; the variables are ...` when nothing is near: the tail of a sentence about a name
/// that isn't there.
std::string SuggestVariable(const TableContent& content, std::string_view name);
std::string SuggestVariable(const Table& table, std::string_view name);

}  // namespace host
