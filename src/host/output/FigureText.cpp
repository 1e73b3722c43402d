#include "host/output/FigureText.h"

#include "host/data/DateText.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>

namespace host {

namespace {

constexpr double kLargestPlain = 1e12;
constexpr double kSmallestPlain = 1e-5;
constexpr int kWholeDigits = 10;  ///< a number with more digits before the point gives up its decimals

std::string Fixed(double value, int decimals) {
    std::string text = fmt::format("{:.{}f}", value, decimals);
    if (text.front() == '-' && text.find_first_of("123456789") == std::string::npos) text.erase(0, 1);
    return text;
}

std::string Scientific(double value, int significant) {
    return fmt::format("{:.{}e}", value, significant - 1);
}

/// At least so many decimals and so many significant digits.
std::string Digits(double value, int decimals, int significant) {
    const double size = std::fabs(value);
    if (size == 0.0) return Fixed(value, decimals);
    if (size >= kLargestPlain || size < kSmallestPlain) return Scientific(value, significant);
    const int exponent = static_cast<int>(std::floor(std::log10(size)));
    const int wanted = std::max(decimals, significant - 1 - exponent);
    return Fixed(value, std::clamp(kWholeDigits - 1 - exponent, 0, wanted));
}

std::string WithoutLeadingZero(std::string text) {
    const std::size_t at = text.front() == '-' ? 1 : 0;
    if (text.compare(at, 2, "0.") == 0) text.erase(at, 1);
    return text;
}

std::string Significance(double value) {
    if (value >= 0.0 && value < 0.0005) return "<.001";
    return WithoutLeadingZero(Fixed(value, 3));
}

std::string Count(double value) {
    if (std::fabs(value) >= kLargestPlain) return Scientific(value, 6);
    const double whole = std::round(value);
    return std::fabs(value - whole) < 5e-4 ? Fixed(whole, 0) : Fixed(value, 3);
}

std::string Printed(double value, QVTA_Format format) {
    if (format.fType == 0) return Digits(value, 3, 3);
    if (format.fType == kFormatNumeric) {
        const double size = std::fabs(value);
        const double least = 0.5 * std::pow(10.0, -static_cast<int>(format.fDecimals));
        if (size >= kLargestPlain || (size > 0.0 && size < least)) return Scientific(value, 3);
        return Fixed(value, format.fDecimals);
    }
    OBS cell;
    cell.fNumber = value;
    const std::string text = ToString(&cell, format);
    const auto first = text.find_first_not_of(' ');
    return first == std::string::npos ? text : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

bool IsMissingFigure(double value) {
    return std::isnan(value) || value == std::numeric_limits<double>::lowest();
}

std::optional<ClockForm> ClockFormOf(QVTA_Format format) {
    switch (format.fType) {
        case kFormatDate:
            return ClockForm{86400.0, "%Y-%m-%d"};
        case kFormatDateTime:
            return ClockForm{1.0, "%Y-%m-%d %H:%M"};
        case kFormatTime:
            return ClockForm{1.0, "%H:%M"};
        default:
            return std::nullopt;
    }
}

std::string FigureText(double value, const BpFormatSpec& format) {
    if (IsMissingFigure(value)) return kMissingFigure;
    if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
    switch (format.GetKind()) {
        case BpFormatSpec::kCoefficient:
        case BpFormatSpec::kCoefficientSE:
            return Digits(value, 3, 4);
        case BpFormatSpec::kCorrelation:
            return WithoutLeadingZero(Fixed(value, 3));
        case BpFormatSpec::kCount:
            return Count(value);
        case BpFormatSpec::kGeneralStat:
            return Digits(value, 3, 3);
        case BpFormatSpec::kPercent:
            return Fixed(value, 1) + "%";
        case BpFormatSpec::kSignificance:
            return Significance(value);
        case BpFormatSpec::kSigDigit:
        case BpFormatSpec::kMean:
            return fmt::format("{:.6g}", value);
        case BpFormatSpec::kFormat:
            break;
    }
    return Printed(value, format.GetFormat());
}

}  // namespace host
