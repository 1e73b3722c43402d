#include "report/JsonRenderer.h"

#include "report/ChartDrawing.h"
#include "report/FiguresJson.h"
#include "report/Layout.h"

namespace report {

namespace {

/// Writes blocks as objects with a "kind".
class BlockWriter : public output::Visitor {
public:
    explicit BlockWriter(const host::Catalogue& strings) : fStrings(strings) {}

    Json Write(const Item& item) {
        fJson = Json::object();
        fJson["headings"] = item.fvHeadings;
        item.fpBlock->Visit(*this);
        return std::move(fJson);
    }

    void Show(const output::Message& message) override {
        fJson["kind"] = "message";
        fJson["level"] = message.fLevel >= kLevelError ? "error" : "warning";
        fJson["text"] = Shown(message.fpText);
    }

    void Show(const output::Chart& chart) override {
        const output::ChartModel& model = *chart.fpModel;
        fJson["kind"] = "chart";
        fJson["chart"] = model.fKind;
        fJson["title"] = model.fTitle;
        if (!model.fSubtitle.empty()) fJson["subtitle"] = model.fSubtitle;
        fJson["description"] = ChartSummary(model);
        fJson["caption"] = model.fCaption.empty() ? Json(nullptr) : Json(model.fCaption);
        fJson["footnotes"] = model.fvFootnotes;
        fJson["axes"] = Json::object();
        for (const auto& axis : model.fvAxes) {
            if (axis.fVisible) fJson["axes"][axis.fAlong] = axis.fTitle;
        }
        fJson["columns"] = model.ColumnTitles();
        fJson["rows"] = model.RowTexts();
    }

    void Show(const output::Table& table) override {
        fJson["kind"] = "table";
        fJson["title"] = Shown(table.fpTitle);
        fJson["sub_type"] = Shown(table.fpSubType);
        fJson["notes"] = Texts(table.fvNotes);
        fJson["caption"] = table.fpCaption ? Json(Shown(table.fpCaption)) : Json(nullptr);
        auto dimensions = table.DimensionsAt(BpDimension::kRow);
        const auto columns = table.DimensionsAt(BpDimension::kColumn);
        dimensions.insert(dimensions.end(), columns.begin(), columns.end());
        WriteDimensions(table, dimensions);
        WriteCells(table, dimensions);
    }

private:
    std::string Shown(const output::Text& text) const { return text->Show(fStrings); }

    Json Texts(const std::vector<output::Text>& texts) const {
        Json json = Json::array();
        for (const auto& text : texts)
            json.push_back(Shown(text));
        return json;
    }

    /// The dimensions, rows then columns, each from the outside in; a category by its groups and its own text.
    void WriteDimensions(const output::Table& table, const std::vector<const output::Dimension*>& dimensions) {
        fPositions.assign(dimensions.size(), {});
        fJson["dimensions"] = Json::array();
        for (std::size_t d = 0; d < dimensions.size(); ++d) {
            const output::Dimension& dimension = *dimensions[d];
            Json categories = Json::array();
            for (const auto& entry : table.Entries({&dimension})) {
                fPositions[d][entry.front()] = categories.size();
                categories.push_back(CategoryJson(*entry.front()));
            }
            fJson["dimensions"].push_back({{"name", Shown(dimension.fpText)},
                                           {"place", dimension.fPlace == BpDimension::kColumn ? "column" : "row"},
                                           {"title_hidden", dimension.fHideTitle},
                                           {"labels_hidden", dimension.fHideLabels},
                                           {"categories", std::move(categories)}});
        }
    }

    Json CategoryJson(const output::Category& category) const {
        Json groups = Json::array();
        for (const output::Group* group = category.fpGroup; group->fpGroup; group = group->fpGroup) {
            groups.insert(groups.begin(), Shown(group->fpText));
        }
        Json json{{"groups", std::move(groups)}, {"text", Shown(category.fpText)}};
        if (!category.fvNotes.empty()) json["notes"] = Texts(category.fvNotes);
        return json;
    }

    /// The cells in reading order; "at" is the position of the category in every dimension.
    void WriteCells(const output::Table& table, const std::vector<const output::Dimension*>& dimensions) {
        Json cells = Json::array();
        for (const auto& entry : table.Entries(dimensions)) {
            const output::Cell& cell = *table.At(entry);
            if (!cell.fpText) continue;
            Json json;
            json["at"] = Json::array();
            for (std::size_t d = 0; d < entry.size(); ++d)
                json["at"].push_back(fPositions[d][entry[d]]);
            const output::Figure* figure = cell.fpText->AsFigure();
            json["value"] = figure ? Number(figure->fValue) : Json(nullptr);
            json["text"] = CellText(cell, entry, fStrings);
            if (!cell.fvNotes.empty()) json["notes"] = Texts(cell.fvNotes);
            cells.push_back(std::move(json));
        }
        fJson["cells"] = std::move(cells);
    }

    const host::Catalogue& fStrings;
    Json fJson;
    std::vector<std::map<const output::Category*, std::size_t>> fPositions;
};

}  // namespace

std::string RenderJson(const run::RunValue& run, const host::OutputDocument& document, const Selection& selection,
                       const std::string& version, const std::string& command) {
    const auto& strings = host::Catalogue::Current();
    Json json{{"schema", "hierfit.result/1"}, {"version", version}, {"command", command}};
    json["splits"] = Json::array();
    for (const auto& split : run.fvResults)
        json["splits"].push_back(SplitJson(split));
    json["tables"] = Json::array();
    BlockWriter writer(strings);
    for (const auto& item : Collect(document, selection, strings))
        json["tables"].push_back(writer.Write(item));
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace report
