#include "host/data/SavedDataWriter.h"

#include "host/data/DelimitedScanner.h"
#include "host/output/FileStore.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

constexpr std::size_t kWrittenAtOnce = 1 << 16;

/// Fields of the format that the source file has.
class FieldText {
public:
    explicit FieldText(const Table& table) : fSeparator(table.Separator()), fDecimalComma(table.DecimalComma()) {}

    void Append(double value, std::string& line) const {
        line += fSeparator;
        if (std::isnan(value)) return;
        std::array<char, 32> text;
        const auto end = fmt::format_to_n(text.data(), text.size(), "{}", value).out;
        if (fDecimalComma) std::replace(text.data(), end, '.', ',');
        AppendQuoted({text.data(), static_cast<std::size_t>(end - text.data())}, line);
    }
    void Append(std::string_view text, std::string& line) const {
        line += fSeparator;
        AppendQuoted(text, line);
    }

private:
    void AppendQuoted(std::string_view text, std::string& line) const {
        const bool plain = std::none_of(
            text.begin(), text.end(), [this](char c) { return c == fSeparator || c == '"' || c == '\r' || c == '\n'; });
        if (plain) {
            line += text;
            return;
        }
        line += '"';
        for (const char c : text)
            line.append(c == '"' ? 2 : 1, c);
        line += '"';
    }

    char fSeparator;
    bool fDecimalComma;
};

class SourceFile {
public:
    explicit SourceFile(const Table& table) : fFile(open(table.Source().c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat facts {};
        if (fFile < 0) {
            fProblem = std::string("the file can't be opened again: ") + std::strerror(errno);
        } else if (fstat(fFile, &facts) != 0 || !S_ISREG(facts.st_mode)) {
            fProblem = "data that come through a pipe can't be written with further columns; put them into a file";
        }
    }
    ~SourceFile() {
        if (fFile >= 0) close(fFile);
    }
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;
    int Descriptor() const { return fFile; }
    const std::string& Problem() const { return fProblem; }

private:
    int fFile;
    std::string fProblem;
};

void AppendCell(const AddedColumn& column, std::size_t row, const FieldText& field, std::string& line) {
    if (column.fTexts)
        field.Append(std::string_view((*column.fTexts)[row]), line);
    else
        field.Append(column.fNumbers ? column.fNumbers[row] : std::nan(""), line);
}

std::optional<DataError> Copy(const Table& table, const std::vector<AddedColumn>& columns, std::ostream& stream) {
    const SourceFile source(table);
    if (!source.Problem().empty()) return DataError{source.Problem(), table.Source(), 0, {}};
    std::vector<CellSink> sinks(table.VariableCount());
    for (CellSink& sink : sinks)
        sink.fMode = CellSink::Mode::kSkip;
    DelimitedScanner scanner({table.Source(), source.Descriptor(), table.Separator(), table.DecimalComma(), 1, {}},
                             sinks);
    std::vector<std::string> names;
    const bool header = scanner.ReadHeader(names) && names.size() == sinks.size();
    const FieldText field(table);
    std::string lines = scanner.RawHeader();
    for (const AddedColumn& column : columns)
        field.Append(std::string_view(column.fName), lines);
    lines += scanner.LineEnd();
    std::string_view record;
    std::size_t row = 0;
    for (; header && row < table.InputRowCount() && scanner.NextRaw(record); ++row) {
        lines += record;
        for (const AddedColumn& column : columns)
            AppendCell(column, row, field, lines);
        lines += scanner.LineEnd();
        if (lines.size() < kWrittenAtOnce) continue;
        if (!stream.write(lines.data(), static_cast<std::streamsize>(lines.size()))) return std::nullopt;
        lines.clear();
    }
    stream << lines;
    if (scanner.Error()) return *scanner.Error();
    if (!header || row != table.InputRowCount() || scanner.NextRaw(record))
        return DataError{"the file changed while it was read; run again", table.Source(), 0, {}};
    return std::nullopt;
}

}  // namespace

std::optional<DataError> WriteWithColumns(const Table& table, const std::vector<AddedColumn>& columns,
                                          const std::string& file) {
    if (file.empty()) {
        errno = 0;
        std::optional<DataError> error = Copy(table, columns, std::cout);
        if (error) return error;
        if (std::cout.flush() || errno == EPIPE) return std::nullopt;
        return DataError{std::string("the results can't be written: ") + std::strerror(errno), {}, 0, {}};
    }
    FileStore& store = FileStore::Instance();
    std::ofstream stream(store.Begin(file), std::ios::binary | std::ios::trunc);
    std::optional<DataError> error;
    if (stream) {
        error = Copy(table, columns, stream);
        stream.close();
        store.Finish(file, stream.good() && !error);
    } else {
        store.Refuse(file, errno);
    }
    const std::vector<std::string> failures = store.TakeFailures();
    if (!error && !failures.empty()) error = DataError{failures.front(), {}, 0, {}};
    return error;
}

std::optional<DataError> WriteWithSaved(QVTA_DataSourceImpl& source, const std::string& file) {
    std::vector<AddedColumn> columns;
    for (std::size_t i = 0; i < source.SavedCount(); ++i) {
        if (!source.Saved(i).Error().empty()) return DataError{source.Saved(i).Error(), {}, 0, {}};
        const QVTA_Variable& variable = source.Variable(source.GetTable().VariableCount() + i);
        columns.push_back({variable.GetName(), source.Saved(i).Cells(), nullptr});
    }
    return WriteWithColumns(source.GetTable(), columns, file);
}

}  // namespace host
