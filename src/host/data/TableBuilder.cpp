#include "host/data/TableBuilder.h"

#include "host/data/NumberText.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace host {
namespace {

constexpr std::size_t kBlockRows = 16384;

}  // namespace

TableBuilder& TableBuilder::Numbers(const std::string& name, std::vector<double> cells) {
    Cells column;
    NumberShape shape;
    for (double& cell : cells) {
        cell = std::isfinite(cell) ? cell + 0.0 : std::numeric_limits<double>::quiet_NaN();
        if (!std::isnan(cell)) shape.Widen(cell);
    }
    column.fVariable.fName = name;
    column.fVariable.fFormat = shape.Format();
    column.fNumbers = std::move(cells);
    fColumns.push_back(std::move(column));
    return *this;
}

TableBuilder& TableBuilder::Texts(const std::string& name, const std::vector<std::string>& cells) {
    Cells column;
    column.fPool = std::make_shared<StringPool>(fPlace);
    for (std::string_view cell : cells) {
        while (!cell.empty() && cell.back() == ' ')
            cell.remove_suffix(1);
        column.fCodes.push_back(column.fPool->Intern(cell));
    }
    column.fVariable.fName = name;
    column.fVariable.fWidth = static_cast<int>(std::max<std::size_t>(1, column.fPool->Width()));
    column.fVariable.fFormat = {1, column.fVariable.fWidth, 0};
    column.fVariable.fLevel = Level::kNominal;
    fColumns.push_back(std::move(column));
    return *this;
}

Outcome<std::shared_ptr<Table>> TableBuilder::Finish(const DataOptions& options) {
    TableContent content(fPlace);
    content.fBlockRows = kBlockRows;
    content.fRows = content.fInputRows = fColumns.empty() ? 0 : fColumns.front().Count();
    for (Cells& cells : fColumns) {
        if (cells.Count() != content.fRows)
            return DataError{"the columns differ in length", {}, 0, cells.fVariable.fName};
        if (content.Find(cells.fVariable.fName) >= 0)
            return DataError{"two columns have the same name", {}, 0, cells.fVariable.fName};
        TableContent::Column column{std::move(cells.fVariable), {}, cells.fPool};
        for (std::uint64_t first = 0; first < content.fRows; first += kBlockRows) {
            const std::size_t count =
                static_cast<std::size_t>(std::min<std::uint64_t>(kBlockRows, content.fRows - first));
            column.fBlocks.push_back(cells.fPool ? WriteCodes(content.fStore, cells.fCodes.data() + first, count)
                                                 : WriteNumbers(content.fStore, cells.fNumbers.data() + first, count));
        }
        content.fColumns.push_back(std::move(column));
    }
    return FinishTable(std::move(content), options);
}

}  // namespace host
