#pragma once

#include "host/data/DataError.h"
#include "host/data/ScratchStore.h"
#include "host/data/Table.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace host {

/// How a data file is to be read. Variables are named as the file's header has them.
struct DataOptions {
    std::string fSchemaFile;                ///< Table Schema; empty: the one beside the file, if any
    char fSeparator = '\0';                 ///< 0: by the extension and the header line
    bool fDecimalComma = false;             ///< 1,5 is one and a half
    std::vector<std::string> fMissing;      ///< texts that mean "missing" besides the empty field, in every column
    std::vector<std::string> fNominal;      ///< variables to be taken as nominal
    std::vector<std::string> fOrdinal;      ///< variables to be taken as ordinal
    std::string fWeight;                    ///< the frequency weight; empty: none
    std::vector<std::string> fSplitBy;      ///< split variables, the outermost first
    std::string fFilter;                    ///< a condition that rows have to meet (see Filter); empty: all rows
    std::function<void(double)> fProgress;  ///< told now and then what share of the file is read; may be empty
    ScratchPlace fPlace;
    std::size_t fWindowBytes = std::size_t{64} << 20;  ///< memory for putting rows in split order
};

/// Reads a data file with its metadata into a table, rows selected and in split order.
Outcome<std::shared_ptr<Table>> OpenDataFile(const std::string& file, const DataOptions& options);

/// Settles levels, weight, splits and filter of a table's content, and makes the table. For content from other sources
/// than a file.
Outcome<std::shared_ptr<Table>> FinishTable(TableContent&& content, const DataOptions& options);

}  // namespace host
