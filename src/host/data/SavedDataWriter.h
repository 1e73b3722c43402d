#pragma once

#include "host/data/DataError.h"
#include "host/data/DataSource.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// A column to put behind those of a data file: one cell for each row of the file, rows that a filter left out
/// included.
struct AddedColumn {
    std::string fName;
    const double* fNumbers = nullptr;                  ///< NaN is missing, an empty field
    const std::vector<std::string>* fTexts = nullptr;  ///< instead of numbers
};

/// Writes the table's data file anew with further columns: its rows in their order, each as it is spelt, in the file's
/// own separator, decimal sign and line ends. file empty: to the standard output. The file is written beside its name
/// and moved there once it is whole. The error, if any: nothing is left of the file then.
std::optional<DataError> WriteWithColumns(const Table& table, const std::vector<AddedColumn>& columns,
                                          const std::string& file);

/// The same with the columns that a run has made.
std::optional<DataError> WriteWithSaved(QVTA_DataSourceImpl& source, const std::string& file);

}  // namespace host
