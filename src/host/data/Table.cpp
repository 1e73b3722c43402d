#include "host/data/Table.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace host {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::size_t FormSize(CellForm form) {
    switch (form) {
        case CellForm::kMissing:
            return 0;
        case CellForm::kDouble:
            return 8;
        case CellForm::kInt8:
        case CellForm::kCode8:
            return 1;
        case CellForm::kInt16:
        case CellForm::kCode16:
            return 2;
        default:
            return 4;
    }
}

// Whole numbers are stored as the least signed type whose smallest value, which stands for missing, isn't among them.
template <class Int>
CellBlock WriteIntegers(ScratchStore& store, const double* cells, std::size_t count, CellForm form) {
    std::vector<Int> packed(count);
    for (std::size_t i = 0; i < count; ++i)
        packed[i] = std::isnan(cells[i]) ? std::numeric_limits<Int>::min() : static_cast<Int>(cells[i]);
    return {store.Append(packed.data(), count * sizeof(Int)), form};
}

template <class Code>
CellBlock WritePackedCodes(ScratchStore& store, const std::uint32_t* codes, std::size_t count, CellForm form) {
    const std::vector<Code> packed(codes, codes + count);
    return {store.Append(packed.data(), count * sizeof(Code)), form};
}

template <class Int>
void UnpackIntegers(const char* bytes, std::size_t count, double* cells) {
    const Int* packed = reinterpret_cast<const Int*>(bytes);
    for (std::size_t i = 0; i < count; ++i)
        cells[i] = packed[i] == std::numeric_limits<Int>::min() ? kNaN : static_cast<double>(packed[i]);
}

void UnpackNumbers(CellForm form, const char* bytes, std::size_t count, double* cells) {
    switch (form) {
        case CellForm::kDouble:
            std::memcpy(cells, bytes, count * 8);
            break;
        case CellForm::kInt8:
            UnpackIntegers<std::int8_t>(bytes, count, cells);
            break;
        case CellForm::kInt16:
            UnpackIntegers<std::int16_t>(bytes, count, cells);
            break;
        case CellForm::kInt32:
            UnpackIntegers<std::int32_t>(bytes, count, cells);
            break;
        default:
            std::fill(cells, cells + count, kNaN);
    }
}

void UnpackCodes(CellForm form, const char* bytes, std::size_t count, std::uint32_t* codes) {
    switch (form) {
        case CellForm::kCode8: {
            const auto* packed = reinterpret_cast<const std::uint8_t*>(bytes);
            std::copy(packed, packed + count, codes);
            break;
        }
        case CellForm::kCode16: {
            const auto* packed = reinterpret_cast<const std::uint16_t*>(bytes);
            std::copy(packed, packed + count, codes);
            break;
        }
        case CellForm::kCode32:
            std::memcpy(codes, bytes, count * 4);
            break;
        default:
            std::fill(codes, codes + count, 0u);
    }
}

template <class Cell, class Unpack>
void ReadCells(const TableContent& content, const std::vector<CellBlock>& blocks, std::uint64_t first,
               std::size_t count, Cell* cells, Unpack unpack) {
    while (count > 0) {
        const std::uint64_t block = first / content.fBlockRows;
        const std::size_t skip = first % content.fBlockRows;
        const std::size_t take = std::min(count, content.fBlockRows - skip);
        const CellForm form = blocks[block].fForm;
        const std::size_t size = FormSize(form);
        const char* bytes = size == 0 ? nullptr : content.fStore.View(blocks[block].fOffset + skip * size, take * size);
        unpack(form, bytes, take, cells);
        cells += take;
        first += take;
        count -= take;
    }
}

std::size_t EditDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = std::tolower(static_cast<unsigned char>(a[i - 1])) ==
                              std::tolower(static_cast<unsigned char>(b[j - 1]));
            const std::size_t changed = diagonal + (same ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({changed, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row[b.size()];
}

std::string Suggest(const std::vector<std::string_view>& names, std::string_view name) {
    std::string_view best;
    std::size_t least = std::max<std::size_t>(1, name.size() / 3) + 1;
    for (const std::string_view candidate : names) {
        const std::size_t distance = EditDistance(candidate, name);
        if (distance < least) {
            least = distance;
            best = candidate;
        }
    }
    if (!best.empty()) return std::string("; did you mean \"").append(best).append("\"?");
    constexpr std::size_t kShown = 12;
    std::string list;
    for (std::size_t i = 0; i < std::min(names.size(), kShown); ++i)
        list.append(i == 0 ? "" : ", ").append(names[i]);
    if (names.size() > kShown) list += ", ...";
    return "; the variables are " + list;
}

}  // namespace

CellBlock WriteNumbers(ScratchStore& store, const double* cells, std::size_t count) {
    double least = std::numeric_limits<double>::infinity();
    double greatest = -least;
    for (std::size_t i = 0; i < count; ++i) {
        const double cell = cells[i];
        if (std::isnan(cell)) continue;
        if (!(std::abs(cell) < 2147483648.0) || cell != static_cast<double>(static_cast<std::int32_t>(cell)))
            return {store.Append(cells, count * 8), CellForm::kDouble};
        least = std::min(least, cell);
        greatest = std::max(greatest, cell);
    }
    if (least > greatest) return {};
    if (least > -128 && greatest < 128) return WriteIntegers<std::int8_t>(store, cells, count, CellForm::kInt8);
    if (least > -32768 && greatest < 32768) return WriteIntegers<std::int16_t>(store, cells, count, CellForm::kInt16);
    return WriteIntegers<std::int32_t>(store, cells, count, CellForm::kInt32);
}

CellBlock WriteCodes(ScratchStore& store, const std::uint32_t* codes, std::size_t count) {
    std::uint32_t greatest = 0;
    for (std::size_t i = 0; i < count; ++i)
        greatest = std::max(greatest, codes[i]);
    if (greatest == 0) return {};
    if (greatest < 256) return WritePackedCodes<std::uint8_t>(store, codes, count, CellForm::kCode8);
    if (greatest < 65536) return WritePackedCodes<std::uint16_t>(store, codes, count, CellForm::kCode16);
    return WritePackedCodes<std::uint32_t>(store, codes, count, CellForm::kCode32);
}

void ReadBlockNumbers(const ScratchStore& store, CellBlock block, std::size_t count, double* cells) {
    UnpackNumbers(block.fForm, store.View(block.fOffset, count * FormSize(block.fForm)), count, cells);
}

void ReadBlockCodes(const ScratchStore& store, CellBlock block, std::size_t count, std::uint32_t* codes) {
    UnpackCodes(block.fForm, store.View(block.fOffset, count * FormSize(block.fForm)), count, codes);
}

int TableContent::Find(std::string_view name) const {
    for (std::size_t i = 0; i < fColumns.size(); ++i)
        if (fColumns[i].fVariable.fName == name) return static_cast<int>(i);
    return -1;
}

bool TableContent::SealAll(std::string& error) {
    if (!fStore.Seal()) error = fStore.Error();
    for (Column& column : fColumns)
        if (column.fPool && !column.fPool->Seal()) error = column.fPool->Error();
    return error.empty();
}

void Table::ReadNumbers(int index, std::uint64_t first, std::size_t count, double* cells) const {
    ReadCells(fContent, fContent.fColumns[index].fBlocks, first, count, cells, UnpackNumbers);
}

void Table::ReadCodes(int index, std::uint64_t first, std::size_t count, std::uint32_t* codes) const {
    ReadCells(fContent, fContent.fColumns[index].fBlocks, first, count, codes, UnpackCodes);
}

void Table::ReadInputRows(std::uint64_t first, std::size_t count, double* rows) const {
    if (!fContent.fInputRowBlocks.empty())
        ReadCells(fContent, fContent.fInputRowBlocks, first, count, rows, UnpackNumbers);
    else
        for (std::size_t i = 0; i < count; ++i)
            rows[i] = static_cast<double>(first + i);
}

void Table::ForgetBlock(std::uint64_t row) const {
    if (!fContent.fStore.InFile()) return;
    const std::uint64_t block = row / fContent.fBlockRows;
    for (const TableContent::Column& column : fContent.fColumns)
        if (const std::size_t size = FormSize(column.fBlocks[block].fForm); size > 0)
            fContent.fStore.Forget(column.fBlocks[block].fOffset, size * fContent.fBlockRows);
}

std::string SuggestVariable(const TableContent& content, std::string_view name) {
    std::vector<std::string_view> names;
    for (const TableContent::Column& column : content.fColumns)
        names.emplace_back(column.fVariable.fName);
    return Suggest(names, name);
}

std::string SuggestVariable(const Table& table, std::string_view name) {
    std::vector<std::string_view> names;
    for (int i = 0; i < table.VariableCount(); ++i)
        names.emplace_back(table.GetVariable(i).fName);
    return Suggest(names, name);
}

}  // namespace host
