#pragma once

#include "contracts/HostData.h"
#include "host/data/Table.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace host {

/// Numbers that a run writes, one a row of the data file, missing (NaN) until written: in memory while they are few, in
/// a file without a name beyond that.
class SavedColumn {
public:
    SavedColumn(std::uint64_t rows, const ScratchPlace& place);
    ~SavedColumn();
    SavedColumn(const SavedColumn&) = delete;
    SavedColumn& operator=(const SavedColumn&) = delete;

    /// Null if there was no room; Error says why.
    const double* Cells() const { return fCells; }
    void Set(std::uint64_t row, double value) {
        if (fCells != nullptr && row < fRows) fCells[row] = value;
    }
    const std::string& Error() const { return fError; }

private:
    std::uint64_t fRows;
    double* fCells = nullptr;
    std::string fError;
};

/// The data source of a run on a table: what the host hands to the procedure.
std::shared_ptr<QVTA_DataSourceImpl> MakeDataSource(std::shared_ptr<const Table> table, ScratchPlace place = {});

}  // namespace host

/// The host's side of a data source: a table's variables, and behind them those that the run makes.
class QVTA_DataSourceImpl {
public:
    QVTA_DataSourceImpl(std::shared_ptr<const host::Table> table, host::ScratchPlace place);

    const host::Table& GetTable() const { return *fTable; }
    std::size_t VariableCount() const { return fVariables.size(); }
    QVTA_Variable& Variable(std::size_t index) { return fVariables[index]; }
    QVTA_Variable& Make(int type, unsigned& index);

    /// Columns that the run has made, in the order of their variables behind the table's.
    std::size_t SavedCount() const { return fSaved.size(); }
    const host::SavedColumn& Saved(std::size_t index) const { return fSaved[index]; }
    /// Stores into a made column, the system's missing value as NaN; a variable of the table is left alone.
    void SetCell(int variable, std::uint64_t inputRow, double value);

private:
    std::shared_ptr<const host::Table> fTable;
    host::ScratchPlace fPlace;
    std::deque<QVTA_Variable> fVariables;  ///< a deque: references to variables stay good as it grows
    std::deque<host::SavedColumn> fSaved;
};
