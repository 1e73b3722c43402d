#pragma once

#include "host/output/ChartModel.h"
#include "report/DisplayText.h"

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace report {

/// The values of a field in order, each with a text of its own.
class Levels {
public:
    Levels(const output::ChartSource& source, int field);

    std::string Text(const output::Datum& value) const {
        const auto found = fTexts.find(value);
        return found == fTexts.end() ? std::string() : found->second;
    }
    std::size_t Size() const { return fvOrder.size(); }
    const std::vector<output::Datum>& Order() const { return fvOrder; }
    nlohmann::ordered_json Texts() const {
        nlohmann::ordered_json texts = nlohmann::ordered_json::array();
        for (const output::Datum& value : fvOrder)
            texts.push_back(Text(value));
        return texts;
    }

private:
    std::string Shown(const output::Datum& value) const { return Clean(fField.Shown(value)); }

    const output::ChartField& fField;
    std::map<output::Datum, std::string> fTexts;
    std::vector<output::Datum> fvOrder;
};

/// Letters of the longest text of a field, as wide ones count.
double LongestText(const Levels& levels);

}  // namespace report
