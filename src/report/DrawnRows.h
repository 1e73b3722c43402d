#pragma once

#include "host/output/ChartModel.h"
#include "report/ChartLevels.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace report {

/// The panels of a chart: one for each level of a variable, or for each pair of two variables' levels. In the rows of a
/// document the fields p0 and p1 say which.
class DrawnPanels {
public:
    explicit DrawnPanels(const output::ChartModel& chart);

    std::size_t Variables() const { return fvPanels.size(); }
    const Levels& LevelsOf(std::size_t k) const { return fvPanels[k].fLevels; }
    /// The values of a row that make its panel.
    std::vector<output::Datum> PanelOf(const output::ChartSource& source, std::size_t row) const;
    /// Vega-Lite's facet of a variable.
    nlohmann::ordered_json Facet(std::size_t k) const;
    /// Writes a row's panel; false for a row of a panel that isn't drawn.
    bool Set(const output::ChartSource& source, std::size_t row, nlohmann::ordered_json& json) const;
    /// Puts a guide into the panel that it names; false where there is no such panel.
    bool Place(const output::ChartGuide& guide, nlohmann::ordered_json& json) const;
    const std::string& Note() const { return fNote; }

private:
    struct Panel {
        std::string fField;
        std::string fLabel;
        std::string fPrefix;
        Levels fLevels;
    };
    void AddField(const output::ChartModel& chart, const std::string& name);
    void Limit();
    std::string Text(std::size_t k, const output::Datum& value) const;

    std::vector<Panel> fvPanels;
    std::size_t fLimit = 0;  ///< of each variable; 0: none
    std::string fNote;
};

/// The rows of a chart's document: those of all sources in one list, told apart by the field s, with a field for each
/// value that a mark needs.
class DrawnRows {
public:
    DrawnRows(const output::ChartModel& chart, const DrawnPanels& panels) : fChart(chart), fPanels(panels) {}

    /// A field of the document's rows that holds a variable's values; made when it is first asked for.
    struct Column {
        std::string fKey;
        int fField;
        std::size_t fRow;
        bool fCategorical;
        std::shared_ptr<Levels> fpLevels;
    };

    struct Rows {  ///< of one source
        const output::ChartSource* fpSource;
        int fNumber;
        std::size_t fFirst;  ///< position of its first row in the document's
        std::vector<std::size_t> fvCases;
        std::vector<Column> fvColumns;
        bool fHasColumns = false;  ///< the readers' columns are there, as t0, t1, ...
    };

    Rows& Of(const output::ChartSource& source);
    const Column& ColumnOf(Rows& rows, const std::string& name, std::size_t row);
    /// What a mark says on touch: a text of its own, or the readers' columns.
    nlohmann::ordered_json Tooltip(Rows& rows, const output::ChartLayer& layer);
    void Add(nlohmann::ordered_json row) { fRows.push_back(std::move(row)); }

    nlohmann::ordered_json Take() { return std::move(fRows); }
    const std::string& Note() const { return fNote; }

private:
    const output::ChartModel& fChart;
    const DrawnPanels& fPanels;
    nlohmann::ordered_json fRows = nlohmann::ordered_json::array();
    std::vector<Rows> fvRowSets;
    int fColumns = 0;
    std::string fNote;
};

}  // namespace report
