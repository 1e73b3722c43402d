// A data file with its schema, a filter and a split variable: what is read has every cell that it says it has, what
// isn't is refused with a sentence.
#include "fuzz/InMemoryFile.h"
#include "host/data/DataFile.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

void ReadAll(const host::Table& table) {
    const auto rows = static_cast<std::size_t>(table.RowCount());
    for (int i = 0; i < table.VariableCount(); ++i) {
        if (table.GetVariable(i).IsText()) {
            std::vector<std::uint32_t> codes(rows);
            table.ReadCodes(i, 0, rows, codes.data());
            for (const std::uint32_t code : codes)
                Require(code < table.Pool(i).Size(), "a text that isn't there");
        } else {
            std::vector<double> cells(rows);
            table.ReadNumbers(i, 0, rows, cells.data());
            for (const double cell : cells)
                Require(!std::isinf(cell), "a number beyond the range");
        }
    }
    std::uint64_t inSplits = 0;
    for (const host::SplitRange& split : table.Splits())
        inSplits += split.fCount;
    Require(inSplits == rows, "the splits are not the table");
}

}  // namespace

// The parts of the input end in a zero byte: the schema, the filter, the data. The first byte chooses the options.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const unsigned choice = data[0];
    std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto part = [&text] {
        const std::size_t end = text.find('\0');
        const std::string_view taken = text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        return taken;
    };
    const std::string_view schema = (choice & 1U) != 0 ? part() : std::string_view();
    const InMemoryFile schemaFile(schema);
    host::DataOptions options;
    if (!schema.empty()) options.fSchemaFile = schemaFile.Path();
    if ((choice & 2U) != 0) options.fFilter = part();
    if ((choice & 4U) != 0) options.fSplitBy = {"g"};
    if ((choice & 8U) != 0) options.fWeight = "w";
    options.fDecimalComma = (choice & 16U) != 0;
    options.fPlace.fMemoryBudget = (choice & 32U) != 0 ? 0 : 1U << 20U;
    const InMemoryFile file(text);
    const auto table = host::OpenDataFile(file.Path(), options);
    if (table)
        ReadAll(**table);
    else
        Require(!table.Error().Message().empty(), "refused without a message");
    return 0;
}
