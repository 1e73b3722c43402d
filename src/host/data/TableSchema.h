#pragma once

#include "host/data/DataError.h"
#include "host/data/Variable.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

/// What a schema says of one column. Values stand as texts; the column's type decides how they are read.
struct FieldSchema {
    enum class Type { kAny, kNumber, kText };

    std::string fName;
    Type fType = Type::kAny;  ///< kAny: inferred from the cells
    std::string fLabel;
    int fDateFormat = 0;  ///< type of the print format of dates and times, which are read as numbers; 0: none
    std::optional<Level> fLevel;
    std::optional<PrintFormat> fFormat;
    std::vector<std::pair<std::string, std::string>> fLabels;  ///< value and its label
    std::optional<std::vector<std::string>> fMissing;          ///< in place of the schema's
};

/// Metadata of a data file: a Frictionless Table Schema (JSON). Understood are, per field, `name`, `title`, `type`,
/// `format` (a print format such as "F8.2" on numbers; dates in another form than ISO 8601 stay texts), `categories`
/// (texts, or objects of `value` and `label`), `categoriesOrdered` and `missingValues`, and `missingValues` of the
/// whole. Other properties are passed over.
struct TableSchema {
    std::string fFile;
    std::vector<FieldSchema> fFields;
    std::vector<std::string> fMissing;  ///< texts that mean "missing" besides the empty field

    const FieldSchema* Find(const std::string& name) const;
};

/// Reads a schema file.
Outcome<TableSchema> ReadTableSchema(const std::string& file);

/// The schema that stands beside a data file: FILE.schema.json, else the file with its extension replaced by
/// .schema.json; empty if there is neither.
std::string FindTableSchema(const std::string& dataFile);

}  // namespace host
