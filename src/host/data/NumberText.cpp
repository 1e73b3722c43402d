#include "host/data/NumberText.h"

#include "host/data/DateText.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace host {
namespace {

constexpr int kMostDecimals = 20;
constexpr int kMostWidth = 40;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

bool NamesSpecial(std::string_view text) {
    std::string lower;
    for (const char c : text)
        lower += static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    return lower == "nan" || lower == "inf" || lower == "infinity" || lower == "-nan" || lower == "-inf" ||
           lower == "-infinity" || lower == "1.#qnan" || lower == "1.#inf" || lower == "-1.#inf" || lower == "-1.#ind";
}

// Of a number that isn't within a double's range: whether it is too small rather than too large.
bool IsTiny(std::string_view text) {
    long exponent = 0;
    std::size_t end = text.find_first_of("eE");
    if (end == std::string_view::npos) end = text.size();
    if (end < text.size()) {
        const std::size_t from = end + 1 + (text[end + 1] == '+' ? 1 : 0);
        if (std::from_chars(text.data() + from, text.data() + text.size(), exponent).ec != std::errc())
            return text[from] == '-';
    }
    const std::size_t point = std::min(text.find('.'), end);
    const std::size_t lead = text.find_first_of("123456789");
    const long place = lead < point ? static_cast<long>(point - lead) : -static_cast<long>(lead - point - 1);
    return place + exponent < 0;
}

}  // namespace

NumberReading ReadNumber(std::string_view text, bool decimalComma, double& value) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    if (text.size() > 1 && text.front() == '+' && text[1] != '-') text.remove_prefix(1);
    std::string pointed;
    if (decimalComma) {
        if (text.find('.') != std::string_view::npos) return NumberReading::kNone;
        pointed = text;
        std::replace(pointed.begin(), pointed.end(), ',', '.');
        text = pointed;
    }
    const std::size_t lead = !text.empty() && text.front() == '-' ? 1 : 0;
    if (text.size() <= lead) return NumberReading::kNone;
    if (!IsDigit(text[lead]) && text[lead] != '.')
        return NamesSpecial(text) ? NumberReading::kSpecial : NumberReading::kNone;
    const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (end != text.data() + text.size()) return NamesSpecial(text) ? NumberReading::kSpecial : NumberReading::kNone;
    if (code == std::errc::result_out_of_range) {
        if (!IsTiny(text)) return NumberReading::kSpecial;
        value = 0.0;
    } else if (code != std::errc()) {
        return NumberReading::kNone;
    }
    value += 0.0;
    return NumberReading::kNumber;
}

NumberReading ReadCell(std::string_view text, int dateFormat, bool decimalComma, double& value) {
    if (dateFormat == 0) return ReadNumber(text, decimalComma, value);
    const std::optional<double> read = ReadDate(text, dateFormat);
    if (!read) return NumberReading::kNone;
    value = *read;
    return NumberReading::kNumber;
}

void NumberShape::Widen(double value) {
    char text[40] = {};
    const char* end = std::to_chars(text, text + sizeof(text), std::abs(value), std::chars_format::scientific).ptr;
    const char* mark = std::find(static_cast<const char*>(text), end, 'e');
    const int digits = static_cast<int>(mark - text) - (mark - text > 1 ? 1 : 0);
    const int exponent = std::atoi(mark + 1);
    Widen(std::max(exponent, 0) + 1 + (value < 0 ? 1 : 0), std::max(digits - 1 - exponent, 0));
}

PrintFormat NumberShape::Format() const {
    const int width = fWhole + (fDecimals > 0 ? fDecimals + 1 : 0);
    if (fDecimals > kMostDecimals || width > kMostWidth) return {17, kMostWidth, 16};
    return {5, width, fDecimals};
}

}  // namespace host
