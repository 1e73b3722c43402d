#pragma once

#include "contracts/HostData.h"

#include <optional>
#include <string>
#include <string_view>

/// Dates and times of day as numbers, so that they can be covariates: a date is its day since 1970-01-01, a date with a
/// time its second since that day began, a time its second since midnight. Gregorian calendar, no time zones.
namespace host {

constexpr int kFormatDate = 20;
constexpr int kFormatDateTime = 21;
constexpr int kFormatTime = 22;

constexpr bool IsDateFormat(int type) {
    return type >= kFormatDate && type <= kFormatTime;
}

/// What the type is called, as a schema does: "date", "datetime" or "time"; empty for other types.
std::string DateTypeName(int type);

/// The type of that name; 0 without one.
int DateType(std::string_view name);

/// The format that shows all of such values to the second.
QVTA_Format DateFormat(int type);

/// Reads "2024-02-29", "2024-02-29T13:05:09" (or with a blank; seconds and their fraction may be missing, a final "Z"
/// may stand) or "13:05:09", by the format's type; nothing if the text isn't one or the day doesn't exist.
std::optional<double> ReadDate(std::string_view text, int type);

/// The text that ReadDate reads; fractions of seconds with the format's decimals, a date's fraction rounded to the day.
/// Empty outside of the years 0 to 9999.
std::string DateText(double value, QVTA_Format format);

}  // namespace host
