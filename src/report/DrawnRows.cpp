#include "report/DrawnRows.h"

#include "report/DisplayText.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace report {

using Json = nlohmann::ordered_json;
using output::ChartLayer;
using output::ChartModel;
using output::ChartSource;
using output::Datum;

namespace {

constexpr std::size_t kMostMarks = 2000;  ///< of one source
constexpr std::size_t kMostPanels = 36;

bool IsCategorical(const ChartSource& source, int field) {
    if (source.fvFields[static_cast<std::size_t>(field)].fCategorical) return true;
    for (std::size_t row = 0; row < source.fvRows.size(); ++row) {
        if (std::holds_alternative<std::string>(source.At(row, field))) return true;
    }
    return false;
}

}  // namespace

DrawnPanels::DrawnPanels(const ChartModel& chart) {
    for (const auto& name : chart.fvFacets)
        AddField(chart, name);
    Limit();
}

void DrawnPanels::AddField(const ChartModel& chart, const std::string& name) {
    std::string lost;
    for (const ChartSource& source : chart.fvSources) {
        const int field = source.Find(name);
        if (field < 0) continue;
        const output::ChartField& facet = source.fvFields[static_cast<std::size_t>(field)];
        if (!source.HasValues(field)) {
            lost = facet.fLabel;
            continue;
        }
        fvPanels.push_back({name, facet.fLabel, facet.fPrefix, {source, field}});
        return;
    }
    // The rows lack one of the two variables that make the panels.
    if (!lost.empty()) fNote += "The panels do not tell the levels of " + Clean(lost) + " apart; the table does. ";
}

/// Of very many panels the first are drawn.
void DrawnPanels::Limit() {
    std::size_t panels = 1;
    for (const Panel& panel : fvPanels)
        panels *= std::max<std::size_t>(1, panel.fLevels.Size());
    if (panels <= kMostPanels) return;
    fLimit = fvPanels.size() == 1 ? kMostPanels : 6;
    fNote += "Only the first panels are drawn; the table has all rows. ";
}

std::vector<Datum> DrawnPanels::PanelOf(const ChartSource& source, std::size_t row) const {
    std::vector<Datum> panel;
    for (const Panel& facet : fvPanels)
        panel.push_back(source.At(row, source.Find(facet.fField)));
    return panel;
}

Json DrawnPanels::Facet(std::size_t k) const {
    Json sort = Json::array();
    for (const Datum& value : fvPanels[k].fLevels.Order())
        sort.push_back(Text(k, value));
    // Values without a prefix stand under their variable's name.
    const bool named = fvPanels[k].fPrefix.empty() && !fvPanels[k].fLabel.empty();
    return {{"field", fmt::format("p{}", k)},
            {"type", "nominal"},
            {"sort", std::move(sort)},
            {"header", {{"title", named ? Json(Clean(fvPanels[k].fLabel)) : Json(nullptr)}, {"labelLimit", 260}}}};
}

std::string DrawnPanels::Text(std::size_t k, const Datum& value) const {
    return Clean(fvPanels[k].fPrefix) + fvPanels[k].fLevels.Text(value);
}

bool DrawnPanels::Set(const ChartSource& source, std::size_t row, Json& json) const {
    for (std::size_t k = 0; k < fvPanels.size(); ++k) {
        const Datum& value = source.At(row, source.Find(fvPanels[k].fField));
        if (output::IsUnset(value)) return false;
        const auto& order = fvPanels[k].fLevels.Order();
        const auto place = std::find(order.begin(), order.end(), value) - order.begin();
        if (fLimit > 0 && static_cast<std::size_t>(place) >= fLimit) return false;
        json[fmt::format("p{}", k)] = Text(k, value);
    }
    return true;
}

bool DrawnPanels::Place(const output::ChartGuide& guide, Json& json) const {
    for (std::size_t k = 0; k < fvPanels.size(); ++k) {
        const auto& order = fvPanels[k].fLevels.Order();
        const auto found = std::find_if(order.begin(), order.end(), [&](const Datum& value) {
            return k < guide.fvFacetTexts.size() && output::Spells(guide.fvFacetTexts[k], value);
        });
        if (found == order.end()) return false;
        if (fLimit > 0 && static_cast<std::size_t>(found - order.begin()) >= fLimit) return false;
        json[fmt::format("p{}", k)] = Text(k, *found);
    }
    return true;
}

DrawnRows::Rows& DrawnRows::Of(const ChartSource& source) {
    for (Rows& rows : fvRowSets) {
        if (rows.fpSource == &source) return rows;
    }
    Rows& rows = fvRowSets.emplace_back(Rows{&source, static_cast<int>(fvRowSets.size()), fRows.size(), {}, {}});
    for (std::size_t c = 0; c < source.Cases(); ++c) {
        const std::size_t first = c * source.fRowsPerCase;
        const auto& cells = source.fvRows[first];
        if (std::all_of(cells.begin(), cells.end(), output::IsUnset)) continue;
        Json json{{"s", rows.fNumber}};
        if (!fPanels.Set(source, first, json)) continue;
        if (rows.fvCases.size() == kMostMarks) {
            fNote += fmt::format("Only the first {} marks are drawn; the table has more rows. ", kMostMarks);
            break;
        }
        rows.fvCases.push_back(first);
        fRows.push_back(std::move(json));
    }
    return rows;
}

const DrawnRows::Column& DrawnRows::ColumnOf(Rows& rows, const std::string& name, std::size_t row) {
    const int field = rows.fpSource->Find(name);
    for (const Column& column : rows.fvColumns) {
        if (column.fField == field && column.fRow == row) return column;
    }
    Column column{fmt::format("v{}", fColumns++), field, row, IsCategorical(*rows.fpSource, field), nullptr};
    if (column.fCategorical) column.fpLevels = std::make_shared<Levels>(*rows.fpSource, field);
    for (std::size_t c = 0; c < rows.fvCases.size(); ++c) {
        const Datum& value = rows.fpSource->At(rows.fvCases[c] + row, field);
        if (output::IsUnset(value)) continue;
        Json& json = fRows[rows.fFirst + c];
        if (column.fCategorical) {
            json[column.fKey] = column.fpLevels->Text(value);
        } else if (const double number = std::get<double>(value); std::isfinite(number)) {
            json[column.fKey] = number;
        }
    }
    rows.fvColumns.push_back(std::move(column));
    return rows.fvColumns.back();
}

Json DrawnRows::Tooltip(Rows& rows, const ChartLayer& layer) {
    const int field = layer.fTooltip.empty() ? -1 : rows.fpSource->Find(layer.fTooltip);
    if (field >= 0) {
        for (std::size_t c = 0; c < rows.fvCases.size(); ++c) {
            const Datum& value = rows.fpSource->At(rows.fvCases[c], field);
            fRows[rows.fFirst + c][fmt::format("m{}", field)] =
                Clean(rows.fpSource->fvFields[static_cast<std::size_t>(field)].Shown(value));
        }
        return {{"field", fmt::format("m{}", field)}, {"type", "nominal"}};
    }
    Json tooltip = Json::array();
    std::size_t number = 0;
    for (const auto& column : fChart.fvColumns) {
        if (column.fSource != rows.fpSource->fName) continue;
        const int at = rows.fpSource->Find(column.fField);
        const std::string key = fmt::format("t{}", number++);
        for (std::size_t c = 0; c < rows.fvCases.size() && !rows.fHasColumns; ++c) {
            const Datum& value = rows.fpSource->At(rows.fvCases[c] + column.fRow, at);
            fRows[rows.fFirst + c][key] = Clean(rows.fpSource->fvFields[static_cast<std::size_t>(at)].Shown(value));
        }
        tooltip.push_back({{"field", key}, {"type", "nominal"}, {"title", Clean(column.fLabel)}});
    }
    rows.fHasColumns = true;
    return tooltip;
}

}  // namespace report
