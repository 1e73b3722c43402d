#include "host/data/DateText.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <fmt/format.h>

namespace host {
namespace {

constexpr double kDaySeconds = 86400.0;

/// Takes digits of a fixed or open count from the front of a text.
bool TakeDigits(std::string_view& text, std::size_t least, std::size_t most, int& value) {
    std::size_t count = 0;
    while (count < text.size() && count < most && text[count] >= '0' && text[count] <= '9')
        ++count;
    if (count < least) return false;
    std::from_chars(text.data(), text.data() + count, value);
    text.remove_prefix(count);
    return true;
}

bool Take(std::string_view& text, char c) {
    if (text.empty() || text.front() != c) return false;
    text.remove_prefix(1);
    return true;
}

bool TakeDay(std::string_view& text, double& day) {
    int year = 0, month = 0, date = 0;
    if (!TakeDigits(text, 4, 4, year) || !Take(text, '-') || !TakeDigits(text, 1, 2, month) || !Take(text, '-') ||
        !TakeDigits(text, 1, 2, date))
        return false;
    const std::chrono::year_month_day known{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                            std::chrono::day(static_cast<unsigned>(date))};
    if (!known.ok()) return false;
    day = static_cast<double>(std::chrono::sys_days(known).time_since_epoch().count());
    return true;
}

bool TakeTime(std::string_view& text, double& seconds) {
    int hour = 0, minute = 0, second = 0;
    if (!TakeDigits(text, 1, 2, hour) || !Take(text, ':') || !TakeDigits(text, 2, 2, minute)) return false;
    double fraction = 0.0;
    if (Take(text, ':')) {
        if (!TakeDigits(text, 2, 2, second)) return false;
        if (!text.empty() && text.front() == '.') {
            const auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), fraction);
            if (code != std::errc()) return false;
            text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        }
    }
    if (hour > 23 || minute > 59 || second > 59 || !(fraction < 1.0)) return false;
    seconds = hour * 3600.0 + minute * 60.0 + second + fraction;
    return true;
}

std::string DayText(double day) {
    const std::chrono::year_month_day known{std::chrono::sys_days(std::chrono::days(static_cast<int>(day)))};
    return fmt::format("{:04}-{:02}-{:02}", static_cast<int>(known.year()), static_cast<unsigned>(known.month()),
                       static_cast<unsigned>(known.day()));
}

std::string TimeText(double seconds, int decimals) {
    const int minutes = static_cast<int>(seconds / 60.0);
    return fmt::format("{:02}:{:02}:{:0{}.{}f}", minutes / 60, minutes % 60, seconds - 60.0 * minutes,
                       decimals > 0 ? 3 + decimals : 2, decimals);
}

}  // namespace

std::string DateTypeName(int type) {
    return type == kFormatDate ? "date" : type == kFormatDateTime ? "datetime" : type == kFormatTime ? "time" : "";
}

int DateType(std::string_view name) {
    for (const int type : {kFormatDate, kFormatDateTime, kFormatTime}) {
        if (DateTypeName(type) == name) return type;
    }
    return 0;
}

QVTA_Format DateFormat(int type) {
    const int width = type == kFormatDate ? 10 : type == kFormatDateTime ? 19 : 8;
    return {static_cast<std::uint16_t>(width), static_cast<std::uint8_t>(type), 0};
}

std::optional<double> ReadDate(std::string_view text, int type) {
    double day = 0.0, seconds = 0.0;
    if (type != kFormatTime && !TakeDay(text, day)) return std::nullopt;
    if (type == kFormatDateTime && !Take(text, 'T') && !Take(text, ' ')) return std::nullopt;
    if (type != kFormatDate && !TakeTime(text, seconds)) return std::nullopt;
    if (type == kFormatDateTime) Take(text, 'Z');
    if (!text.empty()) return std::nullopt;
    return type == kFormatDate ? day : day * kDaySeconds + seconds;
}

std::string DateText(double value, QVTA_Format format) {
    constexpr double kFirstDay = -719528, kLastDay = 2932896;  // years 0 and 9999
    const int decimals = std::min<int>(format.fDecimals, 6);
    // Rounded first, so that no seconds come to 60.
    const double unit = format.fType == kFormatDate ? 1.0 : std::pow(10.0, -decimals);
    const double rounded = std::round(value / unit) * unit;
    if (format.fType == kFormatTime) {
        return rounded >= 0 && rounded < kDaySeconds ? TimeText(rounded, decimals) : std::string();
    }
    const double day = format.fType == kFormatDate ? rounded : std::floor(rounded / kDaySeconds);
    if (!(day >= kFirstDay && day <= kLastDay)) return {};
    if (format.fType == kFormatDate) return DayText(day);
    return DayText(day) + " " + TimeText(rounded - day * kDaySeconds, decimals);
}

}  // namespace host
