#include "host/data/DelimitedScanner.h"

#include "host/data/DelimitedReader.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <unistd.h>

namespace host {
namespace {

constexpr std::size_t kChunk = std::size_t{1} << 19;
constexpr std::size_t kLongestRecord = std::size_t{256} << 20;
constexpr std::size_t kLongestMissing = 12;  ///< bytes of a text that may well mean "missing"
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

constexpr std::array<double, 20> kPowers = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,
                                            1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19};

// Björn Höhrmann's table-free reading of RFC 3629: no overlong forms, no surrogates, nothing beyond U+10FFFF.
bool IsUtf8(std::string_view text) {
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        const unsigned char lead = *p++;
        if (lead < 0x80) continue;
        const int more = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        if (lead < 0xC2 || lead > 0xF4 || end - p < more) return false;
        const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
        const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
        if (*p < low || *p > high) return false;
        for (int i = 1; i < more; ++i)
            if ((p[i] & 0xC0) != 0x80) return false;
        p += more;
    }
    return true;
}

std::string Shorten(std::string_view text) {
    constexpr std::size_t kShown = 40;
    if (text.size() <= kShown) return std::string(text);
    std::size_t end = kShown;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return std::string(text.substr(0, end)) + "...";
}

std::string Quote(std::string_view text) {
    return std::string(1, '"').append(Shorten(text)).append(1, '"');
}

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

// Whether a double holds the whole number that the digits spell.
bool HoldsInteger(std::string_view text, double value) {
    if (std::abs(value) <= 9007199254740992.0) return true;
    char spelled[400];
    const auto end = std::to_chars(spelled, spelled + sizeof(spelled), value, std::chars_format::fixed).ptr;
    std::string_view digits = TrimBlanks(text);
    const std::size_t lead = digits.find_first_not_of("+0");
    if (lead != std::string_view::npos) digits.remove_prefix(lead);
    return digits == std::string_view(spelled, static_cast<std::size_t>(end - spelled));
}

}  // namespace

DelimitedScanner::DelimitedScanner(const Setup& setup, std::vector<CellSink>& sinks)
    : fSetup(setup), fSinks(sinks), fBuffer(2 * kChunk + 2) {
    fAt = fLimit = fBuffer.data();
}

DelimitedScanner::Step DelimitedScanner::Fail(std::string text, long line, const std::string& column) {
    fError = DataError{std::move(text), fSetup.fFile, line, column};
    return Step::kFailed;
}

// Moves what isn't parsed to the front and reads on, until a whole line stands in the buffer. False at the end of the
// file or at an error.
bool DelimitedScanner::Fill() {
    const std::size_t keep = static_cast<std::size_t>(fLimit - fAt) + fCarry;
    if (fEnd && fCarry == 0) {
        if (fAt == fLimit) return false;
        Fail("the text in quotes has no closing quote; close it, or double the quotes within it", fLine);
        return false;
    }
    if (keep > 0) std::memmove(fBuffer.data(), fAt, keep);
    std::size_t size = keep;
    std::size_t whole = 0;
    while (whole == 0 && !fEnd) {
        if (size + kChunk + 2 > fBuffer.size()) fBuffer.resize(2 * fBuffer.size());
        if (size > kLongestRecord) {
            Fail("the record is longer than 256 MiB; is a closing quote missing?", fLine);
            return false;
        }
        ssize_t got = 0;
        do {
            got = pread(fSetup.fDescriptor, fBuffer.data() + size, kChunk, static_cast<off_t>(fOffset));
        } while (got < 0 && errno == EINTR);
        if (got < 0) {
            Fail(std::string("the file can't be read: ") + std::strerror(errno), 0);
            return false;
        }
        const std::size_t before = size;
        size += static_cast<std::size_t>(got);
        fOffset += static_cast<std::uint64_t>(got);
        if (got == 0) {
            fEnd = true;
            if (size > 0 && fBuffer[size - 1] != '\n') fBuffer[size++] = '\n';
            whole = size;
        } else if (const void* last = memrchr(fBuffer.data() + before, '\n', size - before); last != nullptr) {
            whole = static_cast<std::size_t>(static_cast<const char*>(last) - fBuffer.data()) + 1;
        }
    }
    fAt = fBuffer.data();
    fLimit = fAt + whole;
    fCarry = size - whole;
    return whole > 0;
}

bool DelimitedScanner::ReadHeader(std::vector<std::string>& names) {
    if (!Fill()) return false;
    if (fLimit - fAt >= 2 && (std::memcmp(fAt, "\xFF\xFE", 2) == 0 || std::memcmp(fAt, "\xFE\xFF", 2) == 0)) {
        Fail("the file is UTF-16; save it as UTF-8", 1);
        return false;
    }
    if (fLimit - fAt >= 3 && std::memcmp(fAt, "\xEF\xBB\xBF", 3) == 0) fAt += 3;
    while (*fAt == '\n' || (*fAt == '\r' && fAt[1] == '\n')) {
        fAt += *fAt == '\r' ? 2 : 1;
        ++fLine;
        if (fAt == fLimit && !Fill()) return false;
    }
    if (fSetup.fSeparator == '\0') {
        const std::string_view line(fAt, static_cast<std::size_t>(std::find(fAt, fLimit, '\n') - fAt));
        const bool semicolon = line.find(';') != std::string_view::npos;
        const bool tab = line.find('\t') != std::string_view::npos;
        const bool comma = line.find(',') != std::string_view::npos;
        fSetup.fSeparator = comma && !(fSetup.fDecimalComma && (semicolon || tab)) ? ','
                            : semicolon                                            ? ';'
                            : tab                                                  ? '\t'
                                                                                   : ',';
    }
    for (;;) {
        names.clear();
        fQuotedLines = 0;
        const char* at = fAt;
        Step step = Step::kDone;
        for (;;) {
            std::string_view text;
            step = TakeField(at, text);
            if (step != Step::kDone) break;
            names.emplace_back(TrimBlanks(text));
            const bool lineEnds = *at == '\n';
            ++at;
            if (lineEnds) break;
        }
        if (step == Step::kFailed) return false;
        if (step == Step::kIncomplete) {
            if (!Fill()) return false;
            continue;
        }
        fCarriageReturns = at - fAt >= 2 && at[-2] == '\r';
        fRawHeader.assign(fAt, at - (fCarriageReturns ? 2 : 1));
        fAt = at;
        const long line = fLine;
        fLine += 1 + fQuotedLines;
        for (const std::string& name : names) {
            if (name.find('\r') != std::string::npos)
                Fail("lines end in a carriage return alone; save the file with line feeds", line);
            else if (name.find('\0') != std::string::npos || !IsUtf8(name))
                Fail("the header isn't UTF-8 text; save the file as UTF-8", line);
            if (fError) return false;
        }
        return true;
    }
}

// Parses one record, passing over blank lines. Incomplete stands for the end of the file too; fError tells.
DelimitedScanner::Step DelimitedScanner::NextRecord() {
    const bool several = fSinks.size() > 1;
    for (;;) {
        if (fAt == fLimit && !Fill()) return Step::kIncomplete;
        if (several && (*fAt == '\n' || (*fAt == '\r' && fAt[1] == '\n'))) {
            fAt += *fAt == '\r' ? 2 : 1;
            ++fLine;
            continue;
        }
        fRecordStart = fAt;
        const Step step = ParseRecord();
        if (step != Step::kIncomplete) return step;
        if (!Fill()) return Step::kIncomplete;
    }
}

bool DelimitedScanner::NextRaw(std::string_view& record) {
    if (NextRecord() != Step::kDone) return false;
    ++fRows;
    const char* end = fAt - 1;
    if (end > fRecordStart && end[-1] == '\r') --end;
    record = std::string_view(fRecordStart, static_cast<std::size_t>(end - fRecordStart));
    return true;
}

bool DelimitedScanner::ReadRows(std::uint64_t maxRows, const std::function<bool(std::size_t)>& blockDone) {
    while (fRows < maxRows) {
        const Step step = NextRecord();
        if (step == Step::kFailed) return false;
        if (step == Step::kIncomplete) break;
        ++fRows;
        if (++fInBlock == fSetup.fBlockRows) {
            if (!blockDone(fInBlock)) return false;
            fInBlock = 0;
        }
    }
    if (fError) return false;
    if (fInBlock > 0 && !blockDone(fInBlock)) return false;
    fInBlock = 0;
    return true;
}

// One record from fAt on. An incomplete one leaves fAt where it is: its cells are written over by the next try.
DelimitedScanner::Step DelimitedScanner::ParseRecord() {
    const char* at = fAt;
    const char separator = fSetup.fSeparator;
    const int last = static_cast<int>(fSinks.size()) - 1;
    fQuotedLines = 0;
    for (int field = 0; field <= last; ++field) {
        CellSink& sink = fSinks[field];
        double value;
        if (sink.fMode == CellSink::Mode::kNumber && ScanNumber(at, sink, value)) {
            sink.fNumbers[fInBlock] = value;
        } else {
            std::string_view text;
            const Step step = TakeField(at, text);
            if (step == Step::kFailed && fError->fColumn.empty()) fError->fColumn = sink.fName;
            if (step != Step::kDone) return step;
            const bool stored = sink.fMode == CellSink::Mode::kText     ? StoreText(sink, text)
                                : sink.fMode == CellSink::Mode::kNumber ? StoreNumberText(sink, text)
                                                                        : true;
            if (!stored) return Step::kFailed;
        }
        if (*at == separator) {
            if (field == last) return FailCount(at, field + 1);
            ++at;
        } else {
            if (field < last) return FailCount(at, field + 1);
            ++at;
        }
    }
    fAt = at;
    fLine += 1 + fQuotedLines;
    return Step::kDone;
}

// The usual number, in one go over its bytes: sign, at most 19 digits with a point among them, and the field's end.
// Digits that fit 2^53 and a power of ten that a double holds give the nearest double by one division (Clinger 1990).
inline bool DelimitedScanner::ScanNumber(const char*& at, CellSink& sink, double& value) const {
    const char* p = at;
    const bool negative = *p == '-';
    p += negative ? 1 : 0;
    const char* const first = p;
    std::uint64_t digits = 0;
    unsigned digit;
    while ((digit = static_cast<unsigned char>(*p) - unsigned{'0'}) < 10) {
        digits = digits * 10 + digit;
        ++p;
    }
    const long whole = p - first;
    long decimals = 0;
    if (*p == (fSetup.fDecimalComma ? ',' : '.') && *p != fSetup.fSeparator) {
        const char* const point = ++p;
        while ((digit = static_cast<unsigned char>(*p) - unsigned{'0'}) < 10) {
            digits = digits * 10 + digit;
            ++p;
        }
        decimals = p - point;
    }
    const char* end = p;
    if (*p == '\r' && p[1] == '\n') ++p;
    if (*p != fSetup.fSeparator && *p != '\n') return false;
    if (whole + decimals == 0) {
        if (end != at) return false;
        value = kNaN;
        at = p;
        return true;
    }
    if (whole + decimals > 19) return false;
    if (digits <= (std::uint64_t{1} << 53)) {
        value = static_cast<double>(digits);
        if (decimals > 0) value /= kPowers[static_cast<std::size_t>(decimals)];
        if (negative) value = 0.0 - value;
    } else {
        if (fSetup.fDecimalComma || decimals == 0) return false;
        std::from_chars(at, end, value);
    }
    sink.fShape.Widen(static_cast<int>(whole) + (negative ? 1 : 0), static_cast<int>(decimals));
    sink.fAnyNumber = sink.fAnyContent = true;
    at = p;
    return true;
}

// The text of the field at `at`, which then stands on the separator or the line feed behind it.
DelimitedScanner::Step DelimitedScanner::TakeField(const char*& at, std::string_view& text) {
    if (*at == '"') return TakeQuoted(at, text);
    const char* p = at;
    const char separator = fSetup.fSeparator;
    while (*p != separator && *p != '\n')
        ++p;
    const char* end = p;
    if (*p == '\n' && end > at && end[-1] == '\r') --end;
    text = std::string_view(at, static_cast<std::size_t>(end - at));
    at = p;
    return Step::kDone;
}

DelimitedScanner::Step DelimitedScanner::TakeQuoted(const char*& at, std::string_view& text) {
    const char* p = at + 1;
    const char* piece = p;
    long lines = 0;
    fUnquoted.clear();
    bool pieces = false;
    for (;;) {
        while (p < fLimit && *p != '"')
            lines += *p++ == '\n' ? 1 : 0;
        if (p >= fLimit) return Step::kIncomplete;
        if (p + 1 < fLimit && p[1] == '"') {
            fUnquoted.append(piece, p + 1);
            pieces = true;
            p += 2;
            piece = p;
            continue;
        }
        break;
    }
    if (pieces) {
        fUnquoted.append(piece, p);
        text = fUnquoted;
    } else {
        text = std::string_view(piece, static_cast<std::size_t>(p - piece));
    }
    ++p;
    if (*p == '\r' && p[1] == '\n') ++p;
    if (*p != fSetup.fSeparator && *p != '\n')
        return Fail("text follows the closing quote; put the whole field in quotes and double the quotes within it",
                    fLine + fQuotedLines + lines);
    fQuotedLines += lines;
    at = p;
    return Step::kDone;
}

bool DelimitedScanner::StoreNumberText(CellSink& sink, std::string_view text) {
    double value = kNaN;
    const std::string_view trimmed = TrimBlanks(text);
    const NumberReading reading =
        trimmed.empty() ? NumberReading::kNone : ReadCell(trimmed, sink.fDateFormat, fSetup.fDecimalComma, value);
    if (reading == NumberReading::kNumber && sink.fDateFormat != 0) {
        sink.fAnyNumber = sink.fAnyContent = true;
    } else if (reading == NumberReading::kNumber) {
        sink.fAnyNumber = sink.fAnyContent = true;
        const bool exponent = trimmed.find_first_of("eE") != std::string_view::npos;
        const std::size_t point = trimmed.find(fSetup.fDecimalComma ? ',' : '.');
        const bool plain = !exponent && trimmed.size() <= 20;
        if (plain && point != std::string_view::npos)
            sink.fShape.Widen(static_cast<int>(point), static_cast<int>(trimmed.size() - point - 1));
        else
            sink.fShape.Widen(value);
        if (!exponent && point == std::string_view::npos && sink.fInexactLine == 0 && !HoldsInteger(trimmed, value))
            sink.fInexactLine = fLine;
    } else if (trimmed.empty()) {
        value = kNaN;
    } else if (std::find(sink.fMissing.begin(), sink.fMissing.end(), trimmed) != sink.fMissing.end()) {
        sink.fAnyContent = true;
        value = kNaN;  // the text may begin like a number
    } else if (reading == NumberReading::kSpecial) {
        sink.fAnyContent = true;
        value = kNaN;
        if (sink.fSpecialLine == 0) {
            sink.fSpecialLine = fLine;
            sink.fSpecialText = trimmed;
        }
    } else if (sink.fDeclaredNumber) {
        Fail(Quote(trimmed) +
                 (sink.fDateFormat != 0 ? " isn't a date or time as the schema declares (2024-02-29, 13:05:09)"
                                        : " isn't a number, and the schema declares one") +
                 "; correct it, or list it under \"missingValues\"",
             fLine, sink.fName);
        return false;
    } else {
        TurnToText(sink, trimmed);
        return StoreText(sink, text);
    }
    sink.fNumbers[fInBlock] = value;
    return true;
}

bool DelimitedScanner::StoreText(CellSink& sink, std::string_view text) {
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    const std::uint32_t known = sink.fPool->Size();
    const std::uint32_t code = sink.fPool->Intern(text);
    sink.fCodes[fInBlock] = code;
    if (sink.fPool->Size() == known) return true;
    if (text.size() > kMaxTextBytes)
        Fail("a text has " + std::to_string(text.size()) + " bytes, more than 32767; shorten it", fLine, sink.fName);
    else if (text.find('\0') != std::string_view::npos)
        Fail("a NUL byte stands in the text; is this a text file in UTF-8?", fLine, sink.fName);
    else if (!IsUtf8(text))
        Fail("the text isn't UTF-8; save the file as UTF-8", fLine, sink.fName);
    else if (!sink.fPool->Error().empty())
        Fail(sink.fPool->Error(), 0);
    return !fError;
}

/// How a text would be read as a number after all; empty when it wouldn't.
std::string DelimitedScanner::NumberRemedy(std::string_view text) const {
    double number = 0.0;
    if (ReadNumber(text, !fSetup.fDecimalComma, number) == NumberReading::kNumber)
        return fSetup.fDecimalComma ? "; with a decimal point, leave --decimal-comma out"
                                    : "; if that is a decimal comma, say --decimal-comma yes";
    std::string whole(text);
    std::erase(whole, fSetup.fDecimalComma ? '.' : ',');
    if (whole.size() < text.size() && ReadNumber(whole, fSetup.fDecimalComma, number) == NumberReading::kNumber)
        return "; take the marks between thousands out of the numbers";
    return {};
}

// Rows before this one are filled in later, from the file; if there was nothing in them but empty fields, now.
void DelimitedScanner::TurnToText(CellSink& sink, std::string_view text) {
    sink.fMode = CellSink::Mode::kText;
    sink.fTextFrom = sink.fAnyContent ? fRows : 0;
    const std::string remedy = NumberRemedy(text);
    if (sink.fAnyNumber || !remedy.empty()) {
        sink.fWhyText = "line " + std::to_string(fLine) + " has " + Quote(text);
        if (!remedy.empty())
            sink.fWhyText += remedy;
        else if (text.size() <= kLongestMissing)
            sink.fWhyText += "; if that means missing, say --missing '" + std::string(text) + "'";
    }
    sink.fPool = std::make_shared<StringPool>(fSetup.fPlace);
    sink.fCodes.assign(fSetup.fBlockRows, 0);
    std::vector<double>().swap(sink.fNumbers);
}

// A record with too few or too many fields; `at` stands behind field number `fields`.
DelimitedScanner::Step DelimitedScanner::FailCount(const char* at, int fields) {
    while (*at == fSetup.fSeparator) {
        ++at;
        std::string_view text;
        const Step step = TakeField(at, text);
        if (step != Step::kDone) return step;
        ++fields;
    }
    const std::size_t columns = fSinks.size();
    return Fail("the line has " + std::to_string(fields) + (fields == 1 ? " field" : " fields") +
                    ", but the header has " + std::to_string(columns) +
                    "; correct the line, or put fields that contain the separator in quotes",
                fLine);
}

}  // namespace host
