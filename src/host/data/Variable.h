#pragma once

#include <map>
#include <string>
#include <vector>

namespace host {

/// Measurement levels, by the numbers that the host's variables carry.
enum class Level { kNominal = 1, kOrdinal = 2, kScale = 3 };

/// How a value is printed. Types: 1 text, 5 fixed decimals, 17 shortest exact exponent form.
struct PrintFormat {
    int fType = 5;
    int fWidth = 8;
    int fDecimals = 2;
    bool operator==(const PrintFormat&) const = default;
};

/// What is known of a column besides its cells.
struct Variable {
    std::string fName;
    std::string fLabel;  ///< empty: none
    int fWidth = 0;      ///< 0: numeric; else the bytes of the longest text, 1 at least
    PrintFormat fFormat;
    Level fLevel = Level::kScale;
    std::vector<double> fMissingNumbers;             ///< user-missing values of a numeric column, ascending
    std::vector<std::string> fMissingTexts;          ///< user-missing values of a text column, ascending
    std::map<double, std::string> fNumberLabels;     ///< value labels of a numeric column
    std::map<std::string, std::string> fTextLabels;  ///< value labels of a text column

    /// Of a column that was read as text although it has numbers too: why, with the line ("line 7 has "n/a""). Empty
    /// else. Said to a user who asks for a number where this column stands.
    std::string fWhyText;

    bool IsText() const { return fWidth > 0; }
};

}  // namespace host
