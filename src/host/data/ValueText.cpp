#include "contracts/HostData.h"
#include "host/data/DateText.h"
#include "host/data/FrontEnd.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace {

constexpr int kFormatExponent = 17;

bool IsMissing(double value) {
    return std::isnan(value) || value == std::numeric_limits<double>::lowest();
}

// The digits of a number, not padded; empty if the width doesn't hold them in any form.
std::string Digits(double value, QVTA_Format format) {
    char digits[512];
    char* const end = digits + sizeof(digits);
    const auto spell = [&](auto... how) {
        const auto [last, code] = std::to_chars(digits, end, value, how...);
        return code == std::errc() ? std::string(digits, last) : std::string();
    };
    if (IsMissing(value)) return ".";
    std::string text;
    if (format.fType != kFormatExponent) {
        text = spell(std::chars_format::fixed, static_cast<int>(format.fDecimals));
        if (!text.empty() && text.front() == '-' && text.find_first_of("123456789") == std::string::npos)
            text.erase(0, 1);
    }
    if (text.empty() || text.size() > format.fWidth) text = spell(std::chars_format::scientific);
    return text.size() > format.fWidth ? std::string() : text;
}

std::string Hexadecimal(const char* bytes, std::size_t count) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        const auto byte = static_cast<unsigned char>(bytes[i]);
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

host::FrontEndSink& Sink() {
    static host::FrontEndSink sink;
    return sink;
}

}  // namespace

std::string ToString(OBS const* value, QVTA_Format format) {
    if (format.fType == kFormatA) return std::string(value->fText, format.fWidth);
    if (format.fType == kFormatAHEX) return Hexadecimal(value->fText, format.fWidth / 2);
    const bool date = host::IsDateFormat(format.fType) && !IsMissing(value->fNumber);
    const std::string text = date ? host::DateText(value->fNumber, format) : Digits(value->fNumber, format);
    if (text.empty()) return std::string(format.fWidth, '*');
    return text.size() < format.fWidth ? std::string(format.fWidth - text.size(), ' ') + text : text;
}

long ToString(OBS const* value, QVTA_Format format, char* buffer) {
    if (value == nullptr || buffer == nullptr) return 1;
    const std::string text = ToString(value, format);
    std::memset(buffer, ' ', format.fWidth);
    std::copy_n(text.begin(), std::min<std::size_t>(text.size(), format.fWidth), buffer);
    return 0;
}

char* QVTAMBstrtrim_A(char* text) {
    std::size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == ' ')
        --length;
    std::size_t lead = 0;
    while (lead < length && text[lead] == ' ')
        ++lead;
    std::memmove(text, text + lead, length - lead);
    text[length - lead] = '\0';
    return text;
}

struct QVTAMBConverter {};

QVTAMBConverter* QVTAMBConverterNew_A() {
    return new QVTAMBConverter;
}

void QVTAMBConverterDelete_A(QVTAMBConverter* converter) {
    delete converter;
}

std::string QVTAMBU8ToGeneric(QVTAMBConverter*, const std::string& text) {
    return text;
}

std::string QVTAMBGenericToU8(QVTAMBConverter*, const std::string& text) {
    return text;
}

int QVTAMBmbclen_A(const char* text) {
    const auto lead = static_cast<unsigned char>(*text);
    const int length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 1;
    for (int i = 1; i < length; ++i)
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 1;
    return length;
}

std::string GetUpperString(const std::string& text) {
    std::string upper = text;
    for (char& c : upper)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return upper;
}

void BP_ToFront(long long const& flag, BP_Character const& text) {
    if (Sink()) Sink()(flag == 1, text.Text());
}

host::FrontEndSink host::SetFrontEnd(FrontEndSink sink) {
    return std::exchange(Sink(), std::move(sink));
}
