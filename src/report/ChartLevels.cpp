#include "report/ChartLevels.h"

#include <algorithm>
#include <set>

namespace report {

Levels::Levels(const output::ChartSource& source, int field)
    : fField(source.fvFields[static_cast<std::size_t>(field)]) {
    std::set<output::Datum> values;
    for (std::size_t row = 0; row < source.fvRows.size(); ++row) {
        if (!output::IsUnset(source.At(row, field))) values.insert(source.At(row, field));
    }
    std::map<std::string, int> uses;
    for (const output::Datum& value : values)
        ++uses[Shown(value)];
    for (const output::Datum& value : values) {
        std::string text = Shown(value);
        // Two values that share a label stay two.
        if (uses[text] > 1) text += " (" + output::ChartField().Shown(value) + ")";
        fTexts[value] = text;
        fvOrder.push_back(value);
    }
}

double LongestText(const Levels& levels) {
    int longest = 0;
    for (const output::Datum& value : levels.Order())
        longest = std::max(longest, DisplayWidth(levels.Text(value)));
    return longest;
}

}  // namespace report
