#pragma once

#include "contracts/HostOutput.h"

#include <optional>
#include <string>

namespace host {

/// What stands for a number that doesn't exist.
inline constexpr const char* kMissingFigure = ".";

/// Whether the number is the missing value or not a number at all.
bool IsMissingFigure(double value);

/// A number as a reader sees it. Digits by kind:
/// coefficients and their errors show three decimals and at least four significant digits, general statistics three
/// decimals and at least three significant digits; significances and correlations three decimals without a leading
/// zero, a significance that would round to zero as "<.001"; counts no decimals unless they have some; percents one
/// decimal; SigDigit as many digits as the number needs, six at most. A print format shows its decimals, dates by the
/// host's rendering. A number that the decimals would reduce to zero is shown with an exponent. Never depends on the
/// locale.
std::string FigureText(double value, const BpFormatSpec& format);

/// How clocks say a figure of a date's or time's format.
struct ClockForm {
    double fSeconds;       ///< that one unit of the figure lasts, since the day 1970-01-01 began
    const char* fPattern;  ///< by strftime's letters
};

/// The clock form of a format; nothing for plain numbers.
std::optional<ClockForm> ClockFormOf(QVTA_Format format);

}  // namespace host
