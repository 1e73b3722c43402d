#pragma once

#include "host/data/DataFile.h"

#include <memory>
#include <string>
#include <vector>

namespace host {

/// Makes a table from vectors, for programs that embed the library and for tests.
class TableBuilder {
public:
    explicit TableBuilder(ScratchPlace place = {}) : fPlace(std::move(place)) {}

    /// A numeric column; NaN is missing. The format is inferred from the values.
    TableBuilder& Numbers(const std::string& name, std::vector<double> cells);

    /// A text column; the empty text is missing. Trailing blanks don't count.
    TableBuilder& Texts(const std::string& name, const std::vector<std::string>& cells);

    /// Metadata of the column added last.
    Variable& Last() { return fColumns.back().fVariable; }

    /// The table, once; options serve as in OpenDataFile (those about reading don't). An error if columns differ in
    /// length or share a name.
    Outcome<std::shared_ptr<Table>> Finish(const DataOptions& options = {});

private:
    struct Cells {
        Variable fVariable;
        std::vector<double> fNumbers;
        std::vector<std::uint32_t> fCodes;
        std::shared_ptr<StringPool> fPool;
        std::size_t Count() const { return fPool ? fCodes.size() : fNumbers.size(); }
    };
    ScratchPlace fPlace;
    std::vector<Cells> fColumns;
};

}  // namespace host
