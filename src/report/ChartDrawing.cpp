#include "report/ChartDrawing.h"

#include "host/output/FigureText.h"
#include "report/ChartLevels.h"
#include "report/DisplayText.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>

namespace report {

namespace {

using Json = nlohmann::ordered_json;
using output::ChartChannel;
using output::ChartLayer;
using output::ChartMark;
using output::ChartModel;
using output::ChartSource;
using output::Datum;

constexpr std::size_t kMostMarks = 2000;  ///< of one source
constexpr std::size_t kMostPanels = 36;
constexpr std::size_t kMostTraces = 12;  ///< lines of one chart
constexpr std::size_t kMostNodes = 40;   ///< of a network: beyond them the edges are a blot
constexpr std::size_t kManyLevels = 12;  ///< labels along the axis stand upright from here on
constexpr double kPointSize = 70;
constexpr double kCircleWide = 1.6, kCircleHigh = 1.35;  ///< half the plane of a circle of radius 1
constexpr double kLetterWidth = 7.5;                     ///< of labels, about
constexpr double kLeastNodeStep = 9;                     ///< pixels between nodes that have a label each

/// A palette that readers with any colour vision tell apart (Okabe and Ito, Color Universal Design, 2008), its yellow
/// and black exchanged for tones that show on white and on black.
const char* const kPalette[] = {"#0072B2", "#D55E00", "#009E73", "#CC79A7", "#E69F00", "#56B4E9", "#7A6FBE", "#8C8C8C"};
const char* const kPlain = "#0072B2";
const char* const kQuiet = "#9AA3AE";
const char* const kStrong = "#D55E00";
const char* const kInk = "#39465A";

constexpr double kLargestPlain = 1e7, kSmallestPlain = 1e-4;

struct Span {
    double fLeast = std::numeric_limits<double>::infinity();
    double fMost = -std::numeric_limits<double>::infinity();

    void Widen(double value) {
        fLeast = std::min(fLeast, value);
        fMost = std::max(fMost, value);
    }
    double Length() const { return fMost > fLeast ? fMost - fLeast : 0.0; }
};

/// Numbers along an axis all have the digits that tell the ticks apart, as tables write them: no marks between
/// thousands, an exponent only where the plain form is long.
const char* AxisFormat(const Span& span) {
    const double largest = std::max(std::fabs(span.fLeast), std::fabs(span.fMost));
    return largest >= kLargestPlain || (span.Length() > 0 && span.Length() < kSmallestPlain) ? "e" : "f";
}

/// One chart's document.
class Drawing {
public:
    Drawing(const ChartModel& chart, const host::Catalogue& strings, bool inset)
        : fChart(chart), fStrings(strings), fInset(inset) {
        for (const auto& name : chart.fvFacets)
            AddPanelField(name);
        LimitPanels();
    }

    Json Write() {
        if (const std::size_t nodes = NetworkNodes(); nodes > kMostNodes) {
            fNote = fmt::format("A network of {} levels can't be read as a picture; the table has the pairs.", nodes);
            return {};
        }
        Json layers = Json::array();
        for (const auto& guide : fChart.fvGuides)
            WriteGuide(guide, layers);
        for (const ChartLayer& layer : fChart.fvLayers)
            WriteLayer(layer, layers);
        Json view{{"layer", std::move(layers)}};
        view["width"] = Width();
        view["height"] = Height();
        Json document;
        if (fvPanels.empty()) {
            document = std::move(view);
        } else if (fvPanels.size() == 1) {
            document["facet"] = PanelJson(0);
            document["columns"] = static_cast<int>(std::min<std::size_t>(3, fvPanels[0].fLevels.Size()));
            document["spec"] = std::move(view);
        } else {
            document["facet"] = {{"column", PanelJson(0)}, {"row", PanelJson(1)}};
            document["spec"] = std::move(view);
        }
        document["data"] = {{"values", std::move(fRows)}};
        return document;
    }

    std::string fNote;
    bool fDrawn = false;  ///< something is there to draw

private:
    struct Panel {
        std::string fField;
        std::string fLabel;
        std::string fPrefix;
        Levels fLevels;
    };

    void AddPanelField(const std::string& name) {
        std::string lost;
        for (const ChartSource& source : fChart.fvSources) {
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

    /// Nodes on the fullest circle; 0 where there is none.
    std::size_t NetworkNodes() const {
        std::size_t most = 0;
        for (const ChartLayer& layer : fChart.fvLayers) {
            const ChartSource* source = layer.fPlace == "around" ? fChart.Source(layer.fSource) : nullptr;
            std::map<std::vector<Datum>, std::size_t> nodes;
            for (std::size_t row = 0; source && row < source->fvRows.size(); ++row) {
                std::vector<Datum> panel;
                for (const Panel& facet : fvPanels)
                    panel.push_back(source->At(row, source->Find(facet.fField)));
                most = std::max(most, ++nodes[panel]);
            }
        }
        return most;
    }

    /// Of very many panels the first are drawn.
    void LimitPanels() {
        std::size_t panels = 1;
        for (const Panel& panel : fvPanels)
            panels *= std::max<std::size_t>(1, panel.fLevels.Size());
        if (panels <= kMostPanels) return;
        fPanelLimit = fvPanels.size() == 1 ? kMostPanels : 6;
        fNote += "Only the first panels are drawn; the table has all rows. ";
    }

    Json PanelJson(std::size_t k) const {
        Json sort = Json::array();
        for (const Datum& value : fvPanels[k].fLevels.Order())
            sort.push_back(PanelText(k, value));
        // Values without a prefix stand under their variable's name.
        const bool named = fvPanels[k].fPrefix.empty() && !fvPanels[k].fLabel.empty();
        return {{"field", fmt::format("p{}", k)},
                {"type", "nominal"},
                {"sort", std::move(sort)},
                {"header", {{"title", named ? Json(Clean(fvPanels[k].fLabel)) : Json(nullptr)}, {"labelLimit", 260}}}};
    }

    std::string PanelText(std::size_t k, const Datum& value) const {
        return Clean(fvPanels[k].fPrefix) + fvPanels[k].fLevels.Text(value);
    }

    /// Writes a row's panels; false for a row of a panel that isn't drawn.
    bool SetPanels(const ChartSource& source, std::size_t row, Json& json) const {
        for (std::size_t k = 0; k < fvPanels.size(); ++k) {
            const Datum& value = source.At(row, source.Find(fvPanels[k].fField));
            if (output::IsUnset(value)) return false;
            const auto& order = fvPanels[k].fLevels.Order();
            const auto place = std::find(order.begin(), order.end(), value) - order.begin();
            if (fPanelLimit > 0 && static_cast<std::size_t>(place) >= fPanelLimit) return false;
            json[fmt::format("p{}", k)] = PanelText(k, value);
        }
        return true;
    }

    bool IsCategorical(const ChartSource& source, int field) const {
        if (source.fvFields[static_cast<std::size_t>(field)].fCategorical) return true;
        for (std::size_t row = 0; row < source.fvRows.size(); ++row) {
            if (std::holds_alternative<std::string>(source.At(row, field))) return true;
        }
        return false;
    }

    /// A field of the document's rows that holds a variable's values; made when it is first asked for.
    struct Column {
        std::string fKey;
        int fField;
        std::size_t fRow;
        bool fCategorical;
        std::shared_ptr<Levels> fpLevels;
    };

    struct Rows {
        const ChartSource* fpSource;
        int fNumber;
        std::size_t fFirst;  ///< position of its first row in the document's
        std::vector<std::size_t> fvCases;
        std::vector<Column> fvColumns;
        bool fHasColumns = false;  ///< the readers' columns are there, as t0, t1, ...
        std::size_t fNColumns = 0;
    };

    Rows& RowsOf(const ChartSource& source) {
        for (Rows& rows : fvRowSets) {
            if (rows.fpSource == &source) return rows;
        }
        Rows& rows = fvRowSets.emplace_back(Rows{&source, static_cast<int>(fvRowSets.size()), fRows.size(), {}, {}});
        for (std::size_t c = 0; c < source.Cases(); ++c) {
            const std::size_t first = c * source.fRowsPerCase;
            const auto& cells = source.fvRows[first];
            if (std::all_of(cells.begin(), cells.end(), output::IsUnset)) continue;
            Json json{{"s", rows.fNumber}};
            if (!SetPanels(source, first, json)) continue;
            if (rows.fvCases.size() == kMostMarks) {
                fNote += fmt::format("Only the first {} marks are drawn; the table has more rows. ", kMostMarks);
                break;
            }
            rows.fvCases.push_back(first);
            fRows.push_back(std::move(json));
        }
        return rows;
    }

    const Column& ColumnOf(Rows& rows, const std::string& name, std::size_t row) {
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

    std::string Word(const char* key) const { return fStrings.Text(key); }

    /// What a mark says on touch: a text of its own, or the readers' columns.
    Json TooltipJson(Rows& rows, const ChartLayer& layer) {
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

    /// How far the numbers along an axis reach, over all layers.
    Span AxisSpan(const std::string& along) const {
        Span span;
        for (const ChartLayer& layer : fChart.fvLayers) {
            const ChartSource* source = fChart.Source(layer.fSource);
            for (const ChartChannel& channel : layer.fvChannels) {
                if (!source || (channel.fRole != along && channel.fRole != along + "2")) continue;
                for (std::size_t row = 0; row < source->fvRows.size(); ++row) {
                    const auto* number = std::get_if<double>(&source->At(row, source->Find(channel.fField)));
                    if (number && std::isfinite(*number)) span.Widen(*number);
                }
            }
        }
        return span;
    }

    /// How an axis writes its numbers: dates as such.
    void WriteNumbers(const std::string& along, Json& axis) const {
        if (const auto clock = ClockAlong(along)) {
            axis["labelExpr"] =
                fmt::format("utcFormat(datum.value * {}, '{}')", 1000 * clock->fSeconds, clock->fPattern);
        } else {
            axis["format"] = AxisFormat(AxisSpan(along));
        }
    }

    std::optional<host::ClockForm> ClockAlong(const std::string& along) const {
        for (const ChartLayer& layer : fChart.fvLayers) {
            const ChartSource* source = fChart.Source(layer.fSource);
            const ChartChannel* channel = layer.Channel(along);
            const int field = source && channel ? source->Find(channel->fField) : -1;
            if (field < 0) continue;
            const auto& format = source->fvFields[static_cast<std::size_t>(field)].fFormat;
            if (const auto clock = format ? host::ClockFormOf(*format) : std::nullopt) return clock;
        }
        return std::nullopt;
    }

    Json AxisJson(const std::string& along, const Levels* levelsOrNull) const {
        const std::size_t levels = levelsOrNull ? levelsOrNull->Size() : 0;
        const output::ChartAxis* axis = fChart.Axis(along);
        if (fChart.fDiagram || (axis && !axis->fVisible)) return nullptr;
        Json json{{"title", axis && !axis->fTitle.empty() ? Json(Clean(axis->fTitle)) : Json(nullptr)}};
        json["labelLimit"] = along == "x" && levels > kManyLevels ? 110 : 160;
        if (levels == 0) WriteNumbers(along, json);
        if (along == "x" && levels > 0) {
            const bool tight = LongestText(*levelsOrNull) * kLetterWidth * levels > Width();
            json["labelAngle"] = levels > kManyLevels ? -60 : tight ? -35 : 0;
            json["labelOverlap"] = levels > kManyLevels ? Json("greedy") : Json(false);
            json["grid"] = false;
        }
        json["titleLimit"] = along == "y" ? Height() : std::max(Width(), 160.0);
        return json;
    }

    Json PositionJson(const Column& column, const std::string& along) {
        Json json{{"field", column.fKey}, {"type", column.fCategorical ? "nominal" : "quantitative"}};
        const output::ChartAxis* axis = fChart.Axis(along);
        if (column.fCategorical) {
            json["sort"] = column.fpLevels->Texts();
            if (along == "x") fLevels = column.fpLevels->Size();
        } else {
            json["scale"] = Json{{"zero", fInset && along == "y"}, {"nice", !fChart.fDiagram}};
            if (axis && axis->fMin && axis->fMax && *axis->fMin < *axis->fMax)
                json["scale"]["domain"] = {*axis->fMin, *axis->fMax};
            if (fChart.fDiagram) json["scale"]["domain"] = DiagramDomain(along);
        }
        json["axis"] = AxisJson(along, column.fpLevels.get());
        return json;
    }

    /// The plane of a diagram: a circle's with room for the labels around it; an arc's as far as its nodes go.
    Json DiagramDomain(const std::string& along) const {
        const output::ChartAxis* axis = fChart.Axis(along);
        if (!axis || !axis->fMax) {
            const double half = along == "x" ? kCircleWide : kCircleHigh;
            return {-half, half};
        }
        Span span = AxisSpan(along);
        if (along == "x") span.Widen(*axis->fMax);
        if (span.fMost < span.fLeast) return {0.0, 1.0};
        return {span.fLeast - 0.5, span.fMost + 0.5};
    }

    Json ColourScale(const ChartChannel& channel, const Levels& levels) const {
        Json domain = Json::array(), range = Json::array();
        std::size_t next = 0;
        for (const Datum& value : levels.Order()) {
            domain.push_back(levels.Text(value));
            if (channel.fPalette == "significance") {
                range.push_back(value == Datum(0.0) ? kQuiet : kPlain);
            } else if (channel.fPalette == "sign") {
                range.push_back(levels.Text(value) == Word("Negative") ? kStrong : kPlain);
            } else {
                range.push_back(kPalette[next++ % std::size(kPalette)]);
            }
        }
        return {{"domain", std::move(domain)}, {"range", std::move(range)}};
    }

    Json LegendJson(const std::string& role, const std::string& otherwise) const {
        const output::ChartLegend* legend = fChart.Legend(role);
        if (!legend || !legend->fVisible) return nullptr;
        const std::string title = legend->fTitle.empty() ? otherwise : legend->fTitle;
        Json json{{"title", title.empty() ? Json(nullptr) : Json(Clean(title))}, {"symbolLimit", 24}};
        if (fChart.fDiagram && role == "color") json.update({{"symbolSize", 900}, {"symbolStrokeWidth", 2.5}});
        return json;
    }

    void WriteColour(const ChartLayer& layer, Rows& rows, Json& encoding, Json& json) {
        const ChartChannel* channel = layer.Channel("color");
        if (!channel) return;
        const Column column = ColumnOf(rows, channel->fField, channel->fRow);
        if (!column.fCategorical || !column.fpLevels) return;
        const bool lines = layer.fMark == ChartMark::kEdge;
        const Json legend =
            LegendJson("color", rows.fpSource->fvFields[static_cast<std::size_t>(column.fField)].fLabel);
        encoding["color"] = {{"field", column.fKey},
                             {"type", "nominal"},
                             {"sort", column.fpLevels->Texts()},
                             {"scale", ColourScale(*channel, *column.fpLevels)},
                             {"legend", legend}};
        if (lines && !channel->fPalette.empty()) {
            // What the colour says, the line says too.
            Json scale = ColourScale(*channel, *column.fpLevels);
            for (Json& look : scale["range"])
                look = look == kPlain ? Json{1, 0} : Json{8, 3};
            encoding["strokeDash"] = {{"field", column.fKey},
                                      {"type", "nominal"},
                                      {"sort", column.fpLevels->Texts()},
                                      {"scale", std::move(scale)},
                                      {"legend", legend}};
        }
        if (layer.Channel("x") && channel->fPalette.empty() && fLevels > 0) {
            encoding["xOffset"] = {{"field", column.fKey}, {"type", "nominal"}, {"sort", column.fpLevels->Texts()}};
            fOffsets = column.fpLevels->Size();
        }
        if (!fPicks && !legend.is_null()) {
            json["params"] = Json::array(
                {{{"name", "pick"}, {"select", {{"type", "point"}, {"fields", {column.fKey}}}}, {"bind", "legend"}}});
            fPicks = true;
        }
        if (fPicks) {
            encoding["opacity"] = {{"condition", {{"param", "pick"}, {"value", 1.0}}}, {"value", 0.12}};
        }
    }

    static Json MarkJson(const ChartLayer& layer, bool diagram) {
        switch (layer.fMark) {
            case ChartMark::kPoint:
                return {{"type", "point"},
                        {"filled", true},
                        {"opacity", 1},
                        {"size", diagram ? 150 : kPointSize},
                        {"color", kPlain}};
            case ChartMark::kBar:
                return {{"type", "bar"}, {"width", {{"band", 0.6}}}, {"color", kPlain}};
            case ChartMark::kInterval:
            case ChartMark::kEdge:
                return {{"type", "rule"}, {"strokeWidth", 2}, {"color", kPlain}};
            case ChartMark::kText:
                if (layer.fPlace == "before") {
                    return {{"type", "text"},   {"fontSize", 12}, {"limit", 210},
                            {"align", "right"}, {"dx", 30},       {"color", kInk}};
                }
                return {{"type", "text"}, {"fontSize", 12}, {"limit", 110}, {"color", kInk}};
            case ChartMark::kTarget:
                return {{"type", "point"}, {"filled", true}, {"opacity", 1}, {"size", 420}, {"color", kInk}};
            case ChartMark::kLine:
                break;
        }
        return {{"type", "line"}, {"strokeWidth", 1.5}, {"strokeOpacity", 0.55}, {"color", kPlain}};
    }

    void WriteLayer(const ChartLayer& layer, Json& layers) {
        const ChartSource* source = fChart.Source(layer.fSource);
        if (!source || source->fvRows.empty() || !layer.Channel("x") || !layer.Channel("y")) return;
        // Nodes that stand too close for labels say what they are on touch.
        if (layer.fPlace == "before" && NodeStep() < kLeastNodeStep) return;
        fDrawn = true;
        Rows& rows = RowsOf(*source);
        if (layer.fMark == ChartMark::kLine && !fInset && !MayJoin(layer, rows)) return;
        Json json{{"transform", Json::array({{{"filter", fmt::format("datum.s === {}", rows.fNumber)}}})}};
        json["mark"] = MarkJson(layer, fChart.fDiagram);
        Json encoding;
        for (const char* along : {"x", "y"}) {
            const ChartChannel& channel = *layer.Channel(along);
            encoding[along] = PositionJson(ColumnOf(rows, channel.fField, channel.fRow), along);
        }
        for (const char* end : {"x2", "y2"}) {
            const ChartChannel* channel = layer.Channel(end);
            if (channel) encoding[end] = {{"field", ColumnOf(rows, channel->fField, channel->fRow).fKey}};
        }
        WriteColour(layer, rows, encoding, json);
        WriteLooks(layer, rows, encoding, json);
        const Json tooltip = TooltipJson(rows, layer);
        if (!tooltip.empty()) encoding["tooltip"] = tooltip;
        json["encoding"] = std::move(encoding);
        if (layer.fPlace == "around") {
            AddAround(json, layers);
            return;
        }
        if (json["encoding"].contains("xOffset") && layer.fMark == ChartMark::kLine) {
            AddTraces(layer, rows, json, layers);
            return;
        }
        layers.push_back(json);
        if (layer.fMark == ChartMark::kTarget) AddTargetLabel(layer, rows, json, layers);
    }

    /// Whether a line through the means says something: along numbers how they run, of several groups whether they run
    /// alike. Between the levels of a single factor there is nothing.
    bool MayJoin(const ChartLayer& layer, Rows& rows) {
        const ChartChannel* colour = layer.Channel("color");
        if (colour) {
            const Column& column = ColumnOf(rows, colour->fField, colour->fRow);
            return column.fpLevels && column.fpLevels->Size() <= kMostTraces;
        }
        const ChartChannel& x = *layer.Channel("x");
        const int field = rows.fpSource->Find(x.fField);
        if (!rows.fpSource->fvFields[static_cast<std::size_t>(field)].fvRelabels.empty()) return false;
        return std::none_of(rows.fvCases.begin(), rows.fvCases.end(), [&](std::size_t row) {
            return std::holds_alternative<std::string>(rows.fpSource->At(row + x.fRow, field));
        });
    }

    /// A line for each group, moved aside as its points are. One layer of several lines can't be moved so: it would
    /// break at every level.
    void AddTraces(const ChartLayer& layer, Rows& rows, const Json& json, Json& layers) {
        const ChartChannel& channel = *layer.Channel("color");
        const Column column = ColumnOf(rows, channel.fField, channel.fRow);
        for (const Datum& value : column.fpLevels->Order()) {
            const std::string text = column.fpLevels->Text(value);
            Json trace = json;
            trace["transform"].push_back({{"filter", {{"field", column.fKey}, {"equal", text}}}});
            trace["encoding"]["xOffset"] = {{"datum", text}, {"type", "nominal"}};
            if (value != column.fpLevels->Order().front()) trace.erase("params");
            layers.push_back(std::move(trace));
        }
    }

    /// Labels on a circle stand outside of it: left of what is left, and above or below the rest.
    void AddAround(const Json& json, Json& layers) const {
        const std::string x = json["encoding"]["x"]["field"], y = json["encoding"]["y"]["field"];
        const std::string own = json["transform"][0]["filter"];
        const struct {
            std::string fWhere;
            const char* fAlign;
            int fDx, fDy;
        } kSides[] = {{fmt::format("datum.{} < -0.1", x), "right", -12, 0},
                      {fmt::format("datum.{} > 0.1", x), "left", 12, 0},
                      {fmt::format("abs(datum.{}) <= 0.1 && datum.{} >= 0", x, y), "center", 0, -18},
                      {fmt::format("abs(datum.{}) <= 0.1 && datum.{} < 0", x, y), "center", 0, 18}};
        for (const auto& side : kSides) {
            Json part = json;
            part["transform"][0]["filter"] = own + " && " + side.fWhere;
            part["mark"].update({{"align", side.fAlign}, {"dx", side.fDx}, {"dy", side.fDy}});
            layers.push_back(std::move(part));
        }
    }

    /// Opacity, size, shape and text, and what a mark's place in the chart asks for.
    void WriteLooks(const ChartLayer& layer, Rows& rows, Json& encoding, Json& json) {
        if (const ChartChannel* channel = layer.Channel("opacity")) {
            const Column& column = ColumnOf(rows, channel->fField, channel->fRow);
            encoding["opacity"] = {{"field", column.fKey},
                                   {"type", "quantitative"},
                                   {"scale", {{"range", {0.3, 1.0}}, {"zero", false}}},
                                   {"legend", LegendJson("opacity", "")}};
        }
        if (const ChartChannel* channel = layer.Channel("size")) {
            const Column& column = ColumnOf(rows, channel->fField, channel->fRow);
            json["mark"].erase("strokeWidth");
            encoding["strokeWidth"] = {
                {"field", column.fKey},
                {"type", "quantitative"},
                {"scale",
                 {{"domain", {1, 9}}, {"range", {std::min(1.2, NodeStep() / 4), std::min(6.5, NodeStep() / 2)}}}},
                {"legend", nullptr}};
        }
        if (const ChartChannel* channel = layer.Channel("shape")) {
            const Column& column = ColumnOf(rows, channel->fField, channel->fRow);
            if (column.fpLevels) {
                encoding["shape"] = {{"field", column.fKey},
                                     {"type", "nominal"},
                                     {"sort", column.fpLevels->Texts()},
                                     {"legend", LegendJson("shape", "")}};
            }
        }
        if (const ChartChannel* channel = layer.fMark == ChartMark::kText ? layer.Channel("text") : nullptr) {
            encoding["text"] = {{"field", ColumnOf(rows, channel->fField, channel->fRow).fKey}, {"type", "nominal"}};
        }
        const bool overBars = layer.fMark == ChartMark::kInterval && fHasBars;
        if (overBars) {
            encoding.erase("color");
            json["mark"]["color"] = kInk;
            json["mark"]["strokeWidth"] = 1.5;
        }
        fHasBars |= layer.fMark == ChartMark::kBar;
        if (layer.fMark == ChartMark::kBar && encoding["x"]["type"] == "quantitative") {
            json["mark"]["color"] = kQuiet;
            json["mark"].erase("width");
            encoding["y"]["stack"] = nullptr;
            encoding["y2"] = {{"datum", 0}};
        }
        if (layer.fMark == ChartMark::kLine && fInset) {
            json["mark"]["color"] = kPlain;
            json["mark"]["strokeOpacity"] = 1.0;
        }
    }

    /// The target's name beside its node.
    void AddTargetLabel(const ChartLayer& layer, Rows& rows, const Json& node, Json& layers) {
        const ChartChannel* channel = layer.Channel("text");
        if (!channel) return;
        Json json = node;
        json["mark"] = {{"type", "text"}, {"align", "left"}, {"dx", 16},     {"fontWeight", "bold"},
                        {"fontSize", 13}, {"limit", 90},     {"color", kInk}};
        json["encoding"]["text"] = {{"field", ColumnOf(rows, channel->fField, channel->fRow).fKey},
                                    {"type", "nominal"}};
        layers.push_back(std::move(json));
    }

    void WriteGuide(const output::ChartGuide& guide, Json& layers) {
        Json row{{"s", fmt::format("g{}", fGuides)}};
        if (!PlaceGuide(guide, row)) return;
        Json encoding;
        const output::ChartAxis* x = fChart.Axis("x");
        if (guide.fDiagonal) {
            if (!x || !x->fMin || !x->fMax) return;
            row["g0"] = *x->fMin;
            row["g1"] = *x->fMax;
            for (const char* along : {"x", "y"}) {
                encoding[along] = {{"field", "g0"}, {"type", "quantitative"}};
                encoding[std::string(along) + "2"] = {{"field", "g1"}};
            }
        } else {
            row["g0"] = guide.fHeight;
            encoding["y"] = {{"field", "g0"}, {"type", "quantitative"}};
        }
        layers.push_back({{"transform", Json::array({{{"filter", fmt::format("datum.s === 'g{}'", fGuides)}}})},
                          {"mark",
                           {{"type", "rule"},
                            {"strokeDash", guide.fDiagonal ? Json{5, 4} : Json{1, 0}},
                            {"strokeWidth", 1.2},
                            {"color", kInk}}},
                          {"encoding", std::move(encoding)}});
        ++fGuides;
        fRows.push_back(std::move(row));
    }

    /// Puts a guide into the panel that it names; false where there is no such panel.
    bool PlaceGuide(const output::ChartGuide& guide, Json& row) const {
        for (std::size_t k = 0; k < fvPanels.size(); ++k) {
            const auto& order = fvPanels[k].fLevels.Order();
            const auto found = std::find_if(order.begin(), order.end(), [&](const Datum& value) {
                return k < guide.fvFacetTexts.size() && output::Spells(guide.fvFacetTexts[k], value);
            });
            if (found == order.end()) return false;
            if (fPanelLimit > 0 && static_cast<std::size_t>(found - order.begin()) >= fPanelLimit) return false;
            row[fmt::format("p{}", k)] = PanelText(k, *found);
        }
        return true;
    }

    double Width() const {
        if (fInset) return 220;
        const bool panels = !fvPanels.empty();
        if (fChart.fDiagram) return panels ? 280 : fChart.fpInset ? 400 : 440;
        if (fLevels == 0) return panels ? 220 : fChart.Legend("opacity") ? 360 : 480;
        const double step = std::max(panels ? 36.0 : 90.0, 24.0 * static_cast<double>(fOffsets));
        return std::clamp(step * static_cast<double>(fLevels), panels ? 170.0 : 320.0, panels ? 280.0 : 700.0);
    }

    double Height() const {
        if (fInset) return 150;
        if (!fChart.fDiagram) return !fvPanels.empty() ? 190 : fChart.Legend("opacity") ? 360 : 300;
        const output::ChartAxis* y = fChart.Axis("y");
        return y && y->fMax ? std::max(150.0, 20.0 + NodeStep() * *y->fMax) : Width() * kCircleHigh / kCircleWide;
    }

    /// Pixels between the nodes of an arc: the more nodes, the closer.
    double NodeStep() const {
        const output::ChartAxis* y = fChart.Axis("y");
        const double nodes = y && y->fMax ? std::max(1.0, *y->fMax) : 1.0;
        return std::clamp(1200.0 / nodes, 1.0, nodes > 16 ? std::max(14.0, 500.0 / nodes) : 32.0);
    }

    const ChartModel& fChart;
    const host::Catalogue& fStrings;
    bool fInset;
    std::vector<Panel> fvPanels;
    std::size_t fPanelLimit = 0;  ///< of each field; 0: none
    Json fRows = Json::array();
    std::vector<Rows> fvRowSets;
    int fColumns = 0, fGuides = 0;
    std::size_t fLevels = 0;   ///< on the axis x; 0: numbers
    std::size_t fOffsets = 1;  ///< groups side by side
    bool fPicks = false, fHasBars = false;
};

/// Gathers the charts of a document.
Json Config() {
    return {
        {"font", "system-ui, -apple-system, 'Segoe UI', Roboto, 'Noto Sans', 'Liberation Sans', sans-serif"},
        {"view", {{"stroke", nullptr}}},
        {"scale", {{"bandWithNestedOffsetPaddingInner", 0.5}, {"bandWithNestedOffsetPaddingOuter", 0.25}}},
        {"axis",
         {{"labelFontSize", 12},
          {"titleFontSize", 12},
          {"titleFontWeight", 600},
          {"titlePadding", 10},
          {"labelColor", "#5b6675"},
          {"titleColor", "#1c2430"},
          {"gridColor", "#e3e8ee"},
          {"domainColor", "#9aa7b6"},
          {"tickColor", "#9aa7b6"}}},
        {"legend",
         {{"labelFontSize", 12},
          {"titleFontSize", 12},
          {"titleFontWeight", 600},
          {"labelLimit", 180},
          {"titleLimit", 200},
          {"labelColor", "#1c2430"},
          {"titleColor", "#1c2430"},
          {"layout", {{"right", {{"anchor", "start"}, {"direction", "vertical"}, {"margin", 14}}}}}}},
        {"header", {{"labelFontSize", 12}, {"labelFontWeight", 600}, {"labelColor", "#1c2430"}}},
        {"title", {{"anchor", "start"}, {"fontSize", 14}, {"fontWeight", 600}, {"color", "#1c2430"}, {"limit", 640}}}};
}

}  // namespace

ChartDrawing DrawChart(const ChartModel& chart, const host::Catalogue& strings) {
    Drawing main(chart, strings, false);
    Json view = main.Write();
    if (!main.fDrawn && !main.fNote.empty()) return {{}, main.fNote};
    if (!main.fDrawn && !chart.fpInset) return {{}, "There is nothing to draw: all values are missing."};
    Json document{{"$schema", "https://vega.github.io/schema/vega-lite/v6.json"}};
    document["description"] = Clean(ChartSummary(chart));
    document["title"] = {{"text", Clean(chart.fTitle)}};
    if (!chart.fSubtitle.empty()) document["title"]["subtitle"] = Clean(chart.fSubtitle);
    document["background"] = nullptr;
    document["padding"] = 4;
    if (chart.fpInset) {
        Drawing inset(*chart.fpInset, strings, true);
        document["hconcat"] = Json::array();
        if (main.fDrawn) document["hconcat"].push_back(std::move(view));
        document["hconcat"].push_back(inset.Write());
        document["resolve"] = {{"scale",
                                {{"color", "independent"},
                                 {"strokeDash", "independent"},
                                 {"strokeWidth", "independent"},
                                 {"shape", "independent"}}}};
        document["spacing"] = 36;
        document["align"] = "none";
        document["center"] = true;
    } else {
        document.update(view);
    }
    document["config"] = Config();
    return {document.dump(-1, ' ', false, Json::error_handler_t::replace), main.fNote};
}

std::string ChartSummary(const ChartModel& chart) {
    std::string summary = chart.fDescription.empty() ? chart.fTitle : chart.fDescription;
    if (!summary.empty() && !chart.fSummary.empty()) summary += ". ";
    return summary + chart.fSummary;
}

}  // namespace report
