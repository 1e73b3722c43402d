#pragma once

#include "host/data/DataError.h"
#include "host/data/NumberText.h"
#include "host/data/StringPool.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// What a scanner does with the cells of one column, and what it finds out about them.
struct CellSink {
    enum class Mode : std::uint8_t { kNumber, kText, kSkip };
    Mode fMode = Mode::kNumber;
    bool fDeclaredNumber = false;  ///< a text is an error instead of making the column one of texts
    std::string fName;
    std::vector<std::string> fMissing;  ///< texts that are missing in a column of numbers
    std::vector<double> fNumbers;       ///< cells of the present block
    std::vector<std::uint32_t> fCodes;  ///< cells of the present block of a text column
    std::shared_ptr<StringPool> fPool;  ///< made when the column turns out to be of texts
    int fDateFormat = 0;                ///< type of the format of dates and times; 0: plain numbers
    NumberShape fShape;
    bool fAnyNumber = false;
    bool fAnyContent = false;     ///< a number or a text that means missing: what backfilling has to bring back
    std::uint64_t fTextFrom = 0;  ///< first row whose text was kept
    std::string fWhyText;         ///< of a column with numbers: where it turned to texts
    long fSpecialLine = 0;        ///< first "nan" or the like among numbers, 0 none
    std::string fSpecialText;
    long fInexactLine = 0;  ///< first whole number that a double doesn't hold, 0 none
};

/// Streams a file of separated values block by block into sinks: the one place that knows the format.
class DelimitedScanner {
public:
    struct Setup {
        std::string fFile;  ///< for messages
        int fDescriptor = -1;
        char fSeparator = ',';
        bool fDecimalComma = false;
        std::size_t fBlockRows = 1;
        ScratchPlace fPlace;  ///< of the pools
    };

    DelimitedScanner(const Setup& setup, std::vector<CellSink>& sinks);

    /// The fields of the first line that isn't blank; false at an error or at the end of the file. The separator is
    /// settled by the line itself if it is 0.
    bool ReadHeader(std::vector<std::string>& names);
    char Separator() const { return fSetup.fSeparator; }

    /// Rows of a block; to be set before ReadRows, when the number of columns is known.
    void SetBlockRows(std::size_t rows) { fSetup.fBlockRows = rows; }

    /// Reads the records behind the header, at most maxRows. blockDone(rows in the block) is called with full sinks,
    /// and once more with a last, shorter block; it gives false to stop.
    bool ReadRows(std::uint64_t maxRows, const std::function<bool(std::size_t)>& blockDone);

    /// The header as it stands, without its line end, and that line end.
    const std::string& RawHeader() const { return fRawHeader; }
    const char* LineEnd() const { return fCarriageReturns ? "\r\n" : "\n"; }
    /// The next record as it stands, without its line end, good until the next call; false at the end or at an error.
    /// The sinks skip all columns.
    bool NextRaw(std::string_view& record);

    std::uint64_t BytesRead() const { return fOffset; }
    std::uint64_t RowCount() const { return fRows; }
    const std::optional<DataError>& Error() const { return fError; }

private:
    enum class Step { kDone, kIncomplete, kFailed };

    bool Fill();
    Step NextRecord();
    Step ParseRecord();
    bool ScanNumber(const char*& at, CellSink& sink, double& value) const;
    Step TakeField(const char*& at, std::string_view& text);
    Step TakeQuoted(const char*& at, std::string_view& text);
    bool StoreNumberText(CellSink& sink, std::string_view text);
    bool StoreText(CellSink& sink, std::string_view text);
    std::string NumberRemedy(std::string_view text) const;
    void TurnToText(CellSink& sink, std::string_view text);
    Step FailCount(const char* at, int fields);
    Step Fail(std::string text, long line, const std::string& column = {});

    Setup fSetup;
    std::vector<CellSink>& fSinks;
    std::vector<char> fBuffer;
    const char* fAt = nullptr;  ///< next byte
    const char* fRecordStart = nullptr;
    const char* fLimit = nullptr;  ///< behind the last byte; a line feed stands before it
    std::uint64_t fOffset = 0;     ///< of the next byte to read from the file
    std::size_t fCarry = 0;        ///< bytes behind fLimit that are already read
    bool fEnd = false;
    long fLine = 1;         ///< of the record at fAt
    long fQuotedLines = 0;  ///< line breaks within quotes in the present record
    std::uint64_t fRows = 0;
    std::size_t fInBlock = 0;
    std::string fUnquoted;
    std::string fRawHeader;
    bool fCarriageReturns = false;
    std::optional<DataError> fError;
};

}  // namespace host
