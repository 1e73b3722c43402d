#pragma once

#include "host/data/Variable.h"

#include <algorithm>
#include <string>
#include <string_view>

namespace host {

/// What a text says as a number.
enum class NumberReading {
    kNumber,
    kSpecial,  ///< not a finite double: "nan", "inf", "1e400"
    kNone      ///< no number
};

/// Reads a decimal number: sign, digits with one point (or comma), exponent; blanks around it don't count. A number too
/// small for a double is 0; -0 is 0.
NumberReading ReadNumber(std::string_view text, bool decimalComma, double& value);

/// Reads a cell as a number, or, with the type of a date's or time's format, as one of these.
NumberReading ReadCell(std::string_view text, int dateFormat, bool decimalComma, double& value);

/// What a print format needs to tell a column's numbers apart: the most characters before and behind the point.
struct NumberShape {
    int fWhole = 1;
    int fDecimals = 0;

    void Widen(int whole, int decimals) {
        fWhole = std::max(fWhole, whole);
        fDecimals = std::max(fDecimals, decimals);
    }
    /// Takes in a value by its shortest exact decimal form.
    void Widen(double value);
    /// The fixed format that fits, or the exponent form if none does.
    PrintFormat Format() const;
};

}  // namespace host
