#pragma once

#include "contracts/Adapter.h"
#include "host/adapter/SplitCategories.h"
#include "host/adapter/ValueIndex.h"
#include "host/data/DataSource.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace host {

/// A variable of the table that records are made from, read once a block whatever the number of its uses.
struct SourceVariable {
    explicit SourceVariable(const Table& table, int column) : fValues(table, column) {}

    ValueIndex fValues;
    bool fAsCategories = false;         ///< some use needs codes
    bool fUserMissingInvalid = false;   ///< some use doesn't take user-missing values
    std::vector<bool> fMissingCodes;    ///< of texts: by pool code, user-missing values
    std::vector<double> fCells;         ///< of the block: numbers
    std::vector<std::uint32_t> fCodes;  ///< of the block: a text's global code; 0 missing
    /// By global code: the number of the split walk in which it was last seen, and its place of appearance there.
    struct Seen {
        std::uint32_t fWalk = 0;
        std::uint32_t fPlace = 0;
    };
    std::vector<Seen> fSeen;
    std::vector<std::uint32_t> fPlaces;  ///< of the block's usable cases: places of appearance
};

/// One value of a record.
struct RecordColumn {
    enum class Kind { kNumber, kCategory, kWeight };
    enum class Order { kAppearance, kAscending, kDescending };
    Kind fKind = Kind::kNumber;
    int fSource = -1;                   ///< index of the source variable
    Order fOrder = Order::kAppearance;  ///< of a category: how it is put at the end of the first pass
};

}  // namespace host

/// The adapter's state: the layout of records, the present split, the present block of cases.
struct ACAInputAdapter::Impl {
    Impl(ACAInputAdapter& self, ACAVarValidSpecs* specs, ProcedureDataSource& source);

    /// Back before the first split.
    void Rewind();
    /// To the next split, of which nothing is read yet; false at the end.
    bool NextSplit();
    /// To the next block of the present split that has usable cases; false at its end.
    bool NextBlock();

    std::size_t Stride() const { return fColumns.size(); }
    const double* BlockRecord(std::size_t index) const { return fRecords.data() + index * Stride(); }
    std::uint64_t InputRow(std::size_t index);
    /// Input row of the present split's first record that fits, from 1; 0 for none. The stream must be at the split's
    /// end, and is again.
    std::uint64_t FindRow(const std::function<bool(const double* record)>& fits);

    host::SplitCategories* Present() { return fSplit >= 0 ? &fSplits[fSplit] : nullptr; }
    const host::SplitCategories* Present() const { return fSplit >= 0 ? &fSplits[fSplit] : nullptr; }
    /// Whether a declared record variable has categories in the present split.
    bool HasCategories(int column) const;
    const std::vector<std::uint32_t>& Appeared(int column) const {
        return fSplits[fSplit].fAppeared[fColumns[column].fSource];
    }

    // Steps of a block, in order.
    void ReadBlock();
    void JudgeCases();
    void FillNumbers();
    void FillCategories();
    void CloseSplit();

    ACAInputAdapter& fSelf;
    ACAVarValidSpecs* fpSpecs;
    ProcedureDataSource* fpSource;
    const host::Table* fpTable;
    bool fSplitFile = false;

    std::vector<std::unique_ptr<host::SourceVariable>> fSources;
    std::vector<host::RecordColumn> fColumns;  ///< declared first, then hidden
    int fDeclared = 0;
    int fWeightSource = -1;
    int fTargetColumn = -1;  ///< record column of a categorical target, -1 none

    std::vector<host::SplitCategories> fSplits;  ///< per split of the table
    std::vector<std::unique_ptr<host::ValueIndex>> fSplitValues;
    std::vector<OBS*> fPresentSplitValues;
    int fSplit = -1;
    std::uint32_t fWalk = 0;

    std::uint64_t fFirst = 0, fEnd = 0;      ///< rows of the block
    std::uint64_t fNext = 0, fSplitEnd = 0;  ///< rows of the split that are still to be read
    std::vector<std::uint8_t> fUsable;       ///< per case of the block
    std::vector<std::uint32_t> fKept;        ///< the usable cases of the block
    std::vector<double> fWeights;            ///< per case of the block, rounded
    std::vector<double> fRecords;            ///< usable cases, row-major
    std::vector<double> fInputRows;
    bool fInputRowsRead = false;
    std::size_t fAt = 0;  ///< record of the block that is next

    double fCases = 0, fInvalid = 0, fWeightCases = 0, fWeightInvalid = 0;

private:
    int AddSource(int column);
    void AddColumn(int column, bool category, bool userMissingInvalid, host::RecordColumn::Order order);
    void AddHidden();
    void Publish();
    std::size_t BlockCases() const { return static_cast<std::size_t>(fEnd - fFirst); }
};
