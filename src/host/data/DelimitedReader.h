#pragma once

#include "host/data/DataError.h"
#include "host/data/Table.h"
#include "host/data/TableSchema.h"

#include <functional>
#include <string>
#include <vector>

namespace host {

struct DelimitedOptions {
    char fSeparator = '\0';  ///< 0: a tab for .tsv and .tab; else the comma, or in a header without commas the
                             ///< semicolon or tab that it has, or with a decimal comma the semicolon
    bool fDecimalComma = false;
    std::vector<std::string> fMissing;      ///< texts that mean "missing" besides the empty field and the schema's
    ScratchPlace fPlace;                    ///< of the columns
    std::function<void(double)> fProgress;  ///< see DataOptions
};

/// Reads a file of separated values (RFC 4180: quotes, doubled quotes, line breaks within quotes; lines end in LF or
/// CRLF; UTF-8, with a byte order mark or without) into columns. The first line names them; a column without a name
/// becomes V and its position. The file is streamed once; a column in which a text turns up behind numbers is read a
/// second time, so that its cells keep their spelling.
///
/// Types: a column whose every non-missing cell is a number is numeric, any other is text, unless the schema says so.
/// In a column of numbers "nan", "inf" and numbers beyond a double's range are errors. Texts lose trailing blanks; an
/// empty field is missing, and lines without any character are passed over if there are several columns.
///
/// Labels, levels, formats and user-missing values of the schema are applied.
Outcome<TableContent> ReadDelimited(const std::string& file, const DelimitedOptions& options,
                                    const TableSchema& schema);

/// The most columns a file may have, and the most bytes one text may have.
constexpr int kMaxColumns = 32767;
constexpr std::size_t kMaxTextBytes = 32767;

}  // namespace host
