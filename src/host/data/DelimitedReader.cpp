#include "host/data/DelimitedReader.h"

#include "host/data/DelimitedScanner.h"
#include "host/data/NumberText.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

namespace host {
namespace {

constexpr std::size_t kBlockBytes = std::size_t{1} << 20;

/// A descriptor that closes itself.
class Descriptor {
public:
    explicit Descriptor(int file) : fFile(file) {}
    ~Descriptor() {
        if (fFile >= 0) close(fFile);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    void Reset(int file) {
        if (fFile >= 0) close(fFile);
        fFile = file;
    }
    int Get() const { return fFile; }

private:
    int fFile;
};

class DelimitedReader {
public:
    DelimitedReader(const std::string& file, const DelimitedOptions& options, const TableSchema& schema)
        : fFile(file), fOptions(options), fSchema(schema) {}

    Outcome<TableContent> Read() {
        Descriptor descriptor(open(fFile.c_str(), O_RDONLY | O_CLOEXEC));
        if (!Open(descriptor)) return *fError;
        Outcome<TableContent> content = ReadFrom(descriptor);
        // Half of the old and half of the new rows would be a table that never was, or an error that isn't there.
        if (Changed(descriptor.Get())) return Fail("the file changed while it was read; run again when it is complete");
        return content;
    }

private:
    Outcome<TableContent> ReadFrom(const Descriptor& descriptor) {
        DelimitedScanner::Setup setup{fFile, descriptor.Get(), Separator(), fOptions.fDecimalComma, 1, fOptions.fPlace};
        DelimitedScanner scanner(setup, fSinks);
        std::vector<std::string> names;
        if (!scanner.ReadHeader(names)) {
            if (scanner.Error()) return *scanner.Error();
            return Fail("the file is empty; it needs a line of column names and lines of data");
        }
        if (!MakeSinks(names)) return *fError;
        fContent.fBlockRows = std::clamp<std::size_t>(kBlockBytes / (8 * names.size()), 64, 16384);
        for (CellSink& sink : fSinks)
            Allocate(sink);
        scanner.SetBlockRows(fContent.fBlockRows);
        if (!scanner.ReadRows(std::numeric_limits<std::uint64_t>::max(), [this, &scanner](std::size_t rows) {
                Report(scanner.BytesRead());
                return WriteBlock(rows);
            }))
            return scanner.Error() ? *scanner.Error() : StoreError();
        fContent.fRows = fContent.fInputRows = scanner.RowCount();
        if (fContent.fRows == 0) return Fail("the file has a header but no rows");
        setup.fSeparator = scanner.Separator();
        if (!SettleSpecials() || !Backfill(setup) || !FinishVariables()) return *fError;
        fContent.fSource = fFile;
        fContent.fSeparator = scanner.Separator();
        fContent.fDecimalComma = fOptions.fDecimalComma;
        return std::move(fContent);
    }

    DataError Fail(std::string text) const { return {std::move(text), fFile, 0, {}}; }
    DataError StoreError() const { return {fContent.fStore.Error(), {}, 0, {}}; }
    bool Refuse(DataError error) {
        fError = std::move(error);
        return false;
    }

    bool Open(Descriptor& descriptor) {
        if (descriptor.Get() < 0) return Refuse(Fail(std::string("the file can't be opened: ") + std::strerror(errno)));
        struct stat facts {};
        if (fstat(descriptor.Get(), &facts) != 0)
            return Refuse(Fail(std::string("the file can't be read: ") + std::strerror(errno)));
        if (S_ISDIR(facts.st_mode)) return Refuse(Fail("this is a directory; name a CSV or TSV file"));
        if (!S_ISREG(facts.st_mode)) return Spool(descriptor);
        fFacts = facts;
        fBytes = static_cast<double>(facts.st_size);
        posix_fadvise(descriptor.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
        return true;
    }

    bool Changed(int file) const {
        struct stat now {};
        if (!S_ISREG(fFacts.st_mode) || fstat(file, &now) != 0) return false;
        return now.st_size != fFacts.st_size || now.st_mtim.tv_sec != fFacts.st_mtim.tv_sec ||
               now.st_mtim.tv_nsec != fFacts.st_mtim.tv_nsec;
    }

    // What can't be read twice (a pipe) is copied to a file that can.
    bool Spool(Descriptor& descriptor) {
        std::string error;
        const int copy = OpenUnnamedFile(fOptions.fPlace.fDirectory, error);
        if (copy < 0) return Refuse({error, {}, 0, {}});
        std::vector<char> buffer(kBlockBytes);
        for (;;) {
            const ssize_t got = read(descriptor.Get(), buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) {
                descriptor.Reset(copy);
                return got == 0 || Refuse(Fail(std::string("the file can't be read: ") + std::strerror(errno)));
            }
            for (ssize_t done = 0; done < got;) {
                const ssize_t wrote = write(copy, buffer.data() + done, static_cast<std::size_t>(got - done));
                if (wrote < 0) {
                    const std::string reason = std::strerror(errno);
                    descriptor.Reset(copy);
                    return Refuse({"cannot write the temporary file: " + reason, {}, 0, {}});
                }
                done += wrote;
            }
        }
    }

    char Separator() const {
        if (fOptions.fSeparator != '\0') return fOptions.fSeparator;
        const std::string extension = std::filesystem::path(fFile).extension().string();
        return extension == ".tsv" || extension == ".tab" ? '\t' : '\0';
    }

    bool MakeSinks(std::vector<std::string>& names) {
        if (names.size() > static_cast<std::size_t>(kMaxColumns))
            return Refuse(Fail("the header has " + std::to_string(names.size()) + " columns, more than " +
                               std::to_string(kMaxColumns)));
        std::unordered_map<std::string, std::size_t> seen;
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (names[i].empty()) continue;
            const auto [before, added] = seen.emplace(names[i], i);
            if (!added)
                return Refuse({"columns " + std::to_string(before->second + 1) + " and " + std::to_string(i + 1) +
                                   " have the same name; rename one of them",
                               fFile, 1, names[i]});
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (!names[i].empty()) continue;
            names[i] = "V" + std::to_string(i + 1);
            while (!seen.emplace(names[i], i).second)
                names[i] += "_";
        }
        fContent.fColumns.resize(names.size());
        for (std::size_t i = 0; i < names.size(); ++i)
            fContent.fColumns[i].fVariable.fName = names[i];
        for (const FieldSchema& field : fSchema.fFields)
            if (seen.count(field.fName) == 0)
                return Refuse({"the data file has no such column" + SuggestVariable(fContent, field.fName),
                               fSchema.fFile, 0, field.fName});
        for (const std::string& name : names)
            fSinks.push_back(MakeSink(name));
        return true;
    }

    CellSink MakeSink(const std::string& name) const {
        CellSink sink;
        sink.fName = name;
        const FieldSchema* field = fSchema.Find(name);
        sink.fMissing = Missing(field);
        sink.fDeclaredNumber = field != nullptr && field->fType == FieldSchema::Type::kNumber;
        sink.fDateFormat = field != nullptr ? field->fDateFormat : 0;
        if (field != nullptr && field->fType == FieldSchema::Type::kText) sink.fMode = CellSink::Mode::kText;
        return sink;
    }

    std::vector<std::string> Missing(const FieldSchema* field) const {
        std::vector<std::string> missing = field != nullptr && field->fMissing ? *field->fMissing : fSchema.fMissing;
        missing.insert(missing.end(), fOptions.fMissing.begin(), fOptions.fMissing.end());
        return missing;
    }

    void Allocate(CellSink& sink) const {
        if (sink.fMode == CellSink::Mode::kNumber) sink.fNumbers.resize(fContent.fBlockRows);
        if (sink.fMode != CellSink::Mode::kText) return;
        sink.fCodes.resize(fContent.fBlockRows);
        if (!sink.fPool) sink.fPool = std::make_shared<StringPool>(fOptions.fPlace);
    }

    void Report(std::uint64_t read) const {
        if (fOptions.fProgress && fBytes > 0) fOptions.fProgress(static_cast<double>(read) / fBytes);
    }

    bool WriteBlock(std::size_t rows) {
        for (std::size_t i = 0; i < fSinks.size(); ++i) {
            const CellSink& sink = fSinks[i];
            fContent.fColumns[i].fBlocks.push_back(sink.fMode == CellSink::Mode::kText
                                                       ? WriteCodes(fContent.fStore, sink.fCodes.data(), rows)
                                                       : WriteNumbers(fContent.fStore, sink.fNumbers.data(), rows));
        }
        return fContent.fStore.Error().empty();
    }

    // "nan" and the like are an error among numbers; a column that has nothing else is one of texts.
    bool SettleSpecials() {
        for (CellSink& sink : fSinks) {
            if (sink.fMode != CellSink::Mode::kNumber || sink.fSpecialLine == 0) continue;
            const bool beyond = sink.fSpecialText.find_first_of("123456789") != std::string::npos &&
                                sink.fSpecialText.find('#') == std::string::npos;
            if (sink.fAnyNumber || sink.fDeclaredNumber || beyond)
                return Refuse({"\"" + sink.fSpecialText + "\" " +
                                   (beyond ? "is beyond the range of numbers that can be held"
                                           : "isn't a number that can be used") +
                                   "; correct it, leave the field empty, or declare it missing",
                               fFile, sink.fSpecialLine, sink.fName});
            sink.fMode = CellSink::Mode::kText;
            sink.fTextFrom = fContent.fRows;
            sink.fPool = std::make_shared<StringPool>(fOptions.fPlace);
        }
        return true;
    }

    // Reads the first rows of late text columns again, now as texts.
    bool Backfill(DelimitedScanner::Setup setup) {
        std::uint64_t end = 0;
        std::vector<CellSink> sinks(fSinks.size());
        for (std::size_t i = 0; i < fSinks.size(); ++i) {
            sinks[i].fName = fSinks[i].fName;
            sinks[i].fMode = CellSink::Mode::kSkip;
            if (fSinks[i].fMode != CellSink::Mode::kText) continue;
            for (CellBlock& block : fContent.fColumns[i].fBlocks)
                if (block.fForm < CellForm::kCode8) block = {};
            if (fSinks[i].fTextFrom == 0) continue;
            sinks[i].fMode = CellSink::Mode::kText;
            sinks[i].fPool = fSinks[i].fPool;
            Allocate(sinks[i]);
            end = std::max(end, fSinks[i].fTextFrom);
        }
        if (end == 0) return true;
        setup.fBlockRows = fContent.fBlockRows;
        DelimitedScanner scanner(setup, sinks);
        std::vector<std::string> names;
        scanner.ReadHeader(names);
        std::size_t block = 0;
        const bool done = scanner.ReadRows(end, [&](std::size_t rows) { return FillBlock(block++, rows, sinks); });
        if (scanner.Error()) return Refuse(*scanner.Error());
        if (!done) return Refuse(StoreError());
        return true;
    }

    bool FillBlock(std::size_t block, std::size_t rows, const std::vector<CellSink>& sinks) {
        const std::uint64_t first = block * fContent.fBlockRows;
        const std::size_t full =
            static_cast<std::size_t>(std::min<std::uint64_t>(fContent.fBlockRows, fContent.fRows - first));
        std::vector<std::uint32_t> codes(full);
        for (std::size_t i = 0; i < sinks.size(); ++i) {
            if (sinks[i].fMode != CellSink::Mode::kText || fSinks[i].fTextFrom <= first) continue;
            const std::size_t filled =
                static_cast<std::size_t>(std::min<std::uint64_t>(rows, fSinks[i].fTextFrom - first));
            CellBlock& present = fContent.fColumns[i].fBlocks[block];
            ReadBlockCodes(fContent.fStore, present, full, codes.data());
            std::copy_n(sinks[i].fCodes.begin(), filled, codes.begin());
            present = WriteCodes(fContent.fStore, codes.data(), full);
        }
        return fContent.fStore.Error().empty();
    }

    bool FinishVariables() {
        for (std::size_t i = 0; i < fSinks.size(); ++i) {
            CellSink& sink = fSinks[i];
            Variable& variable = fContent.fColumns[i].fVariable;
            const bool text = sink.fMode == CellSink::Mode::kText;
            if (text) {
                variable.fWidth = static_cast<int>(std::max<std::size_t>(1, sink.fPool->Width()));
                variable.fFormat = {1, variable.fWidth, 0};
                variable.fLevel = Level::kNominal;
                variable.fWhyText = sink.fWhyText;
                fContent.fColumns[i].fPool = sink.fPool;
                if (!sink.fWhyText.empty())
                    fContent.fRemarks.push_back("column \"" + sink.fName + "\" of " + fFile +
                                                " is read as texts although it has numbers, since " + sink.fWhyText);
            } else {
                variable.fFormat = sink.fShape.Format();
                if (sink.fInexactLine > 0)
                    fContent.fRemarks.push_back("column \"" + sink.fName + "\" of " + fFile +
                                                " has whole numbers with more digits than can " +
                                                "be told apart (line " + std::to_string(sink.fInexactLine) +
                                                "); if they are names, declare the column a string in the schema");
            }
            if (!ApplyMissing(sink, variable) || !ApplyField(fSchema.Find(sink.fName), variable)) return false;
        }
        return true;
    }

    bool ApplyMissing(const CellSink& sink, Variable& variable) {
        for (const std::string& text : sink.fMissing) {
            double value = 0;
            if (variable.IsText())
                variable.fMissingTexts.push_back(text);
            else if (ReadCell(text, sink.fDateFormat, fOptions.fDecimalComma, value) == NumberReading::kNumber)
                variable.fMissingNumbers.push_back(value);
        }
        std::sort(variable.fMissingTexts.begin(), variable.fMissingTexts.end());
        std::sort(variable.fMissingNumbers.begin(), variable.fMissingNumbers.end());
        return true;
    }

    bool ApplyField(const FieldSchema* field, Variable& variable) {
        if (field == nullptr) return true;
        variable.fLabel = field->fLabel;
        if (field->fLevel) variable.fLevel = *field->fLevel;
        if (field->fFormat && !variable.IsText()) variable.fFormat = *field->fFormat;
        for (const auto& [text, label] : field->fLabels) {
            double value = 0;
            if (variable.IsText()) {
                variable.fTextLabels[text] = label;
            } else if (ReadCell(text, field->fDateFormat, false, value) == NumberReading::kNumber) {
                variable.fNumberLabels[value] = label;
            } else if (std::find(fSchema.fMissing.begin(), fSchema.fMissing.end(), text) == fSchema.fMissing.end()) {
                return Refuse({"the category \"" + text + "\" isn't a " +
                                   (field->fDateFormat ? "date or time as the column has them"
                                                       : "number, but the column is numeric"),
                               fSchema.fFile, 0, variable.fName});
            }
        }
        return true;
    }

    std::string fFile;
    const DelimitedOptions& fOptions;
    const TableSchema& fSchema;
    struct stat fFacts {};
    double fBytes = 0.0;  ///< of the file; 0 when that isn't known
    std::vector<CellSink> fSinks;
    TableContent fContent{fOptions.fPlace};
    std::optional<DataError> fError;
};

}  // namespace

Outcome<TableContent> ReadDelimited(const std::string& file, const DelimitedOptions& options,
                                    const TableSchema& schema) {
    return DelimitedReader(file, options, schema).Read();
}

}  // namespace host
