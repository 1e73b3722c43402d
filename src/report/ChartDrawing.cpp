#include "report/ChartDrawing.h"

#include "host/output/FigureText.h"
#include "report/ChartLevels.h"
#include "report/ChartStyle.h"
#include "report/DisplayText.h"
#include "report/DrawnRows.h"

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

constexpr std::size_t kMostTraces = 12;                  ///< lines of one chart
constexpr std::size_t kMostNodes = 40;                   ///< of a network: beyond them the edges are a blot
constexpr std::size_t kManyLevels = 12;                  ///< labels along the axis stand upright from here on
constexpr double kCircleWide = 1.6, kCircleHigh = 1.35;  ///< half the plane of a circle of radius 1
constexpr double kLetterWidth = 7.5;                     ///< of labels, about
constexpr double kLeastNodeStep = 9;                     ///< pixels between nodes that have a label each

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
        : fChart(chart), fStrings(strings), fInset(inset), fPanels(chart), fRows(chart, fPanels) {}

    Json Write() {
        if (const std::size_t nodes = NetworkNodes(); nodes > kMostNodes) {
            fTooLarge =
                fmt::format("A network of {} levels can't be read as a picture; the table has the pairs.", nodes);
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
        if (fPanels.Variables() == 0) {
            document = std::move(view);
        } else if (fPanels.Variables() == 1) {
            document["facet"] = fPanels.Facet(0);
            document["columns"] = static_cast<int>(std::min<std::size_t>(3, fPanels.LevelsOf(0).Size()));
            document["spec"] = std::move(view);
        } else {
            document["facet"] = {{"column", fPanels.Facet(0)}, {"row", fPanels.Facet(1)}};
            document["spec"] = std::move(view);
        }
        document["data"] = {{"values", fRows.Take()}};
        return document;
    }

    /// What the picture leaves out.
    std::string Note() const { return fTooLarge.empty() ? fPanels.Note() + fRows.Note() : fTooLarge; }
    bool fDrawn = false;  ///< something is there to draw

private:
    using Rows = DrawnRows::Rows;
    using Column = DrawnRows::Column;

    /// Nodes on the fullest circle; 0 where there is none.
    std::size_t NetworkNodes() const {
        std::size_t most = 0;
        for (const ChartLayer& layer : fChart.fvLayers) {
            const ChartSource* source = layer.fPlace == "around" ? fChart.Source(layer.fSource) : nullptr;
            std::map<std::vector<Datum>, std::size_t> nodes;
            for (std::size_t row = 0; source && row < source->fvRows.size(); ++row) {
                most = std::max(most, ++nodes[fPanels.PanelOf(*source, row)]);
            }
        }
        return most;
    }

    std::string Word(const char* key) const { return fStrings.Text(key); }

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
        const Column column = fRows.ColumnOf(rows, channel->fField, channel->fRow);
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

    void WriteLayer(const ChartLayer& layer, Json& layers) {
        const ChartSource* source = fChart.Source(layer.fSource);
        if (!source || source->fvRows.empty() || !layer.Channel("x") || !layer.Channel("y")) return;
        // Nodes that stand too close for labels say what they are on touch.
        if (layer.fPlace == "before" && NodeStep() < kLeastNodeStep) return;
        fDrawn = true;
        Rows& rows = fRows.Of(*source);
        if (layer.fMark == ChartMark::kLine && !fInset && !MayJoin(layer, rows)) return;
        Json json{{"transform", Json::array({{{"filter", fmt::format("datum.s === {}", rows.fNumber)}}})}};
        json["mark"] = MarkJson(layer, fChart.fDiagram);
        Json encoding;
        for (const char* along : {"x", "y"}) {
            const ChartChannel& channel = *layer.Channel(along);
            encoding[along] = PositionJson(fRows.ColumnOf(rows, channel.fField, channel.fRow), along);
        }
        for (const char* end : {"x2", "y2"}) {
            const ChartChannel* channel = layer.Channel(end);
            if (channel) encoding[end] = {{"field", fRows.ColumnOf(rows, channel->fField, channel->fRow).fKey}};
        }
        WriteColour(layer, rows, encoding, json);
        WriteLooks(layer, rows, encoding, json);
        const Json tooltip = fRows.Tooltip(rows, layer);
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
            const Column& column = fRows.ColumnOf(rows, colour->fField, colour->fRow);
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
        const Column column = fRows.ColumnOf(rows, channel.fField, channel.fRow);
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
            const Column& column = fRows.ColumnOf(rows, channel->fField, channel->fRow);
            encoding["opacity"] = {{"field", column.fKey},
                                   {"type", "quantitative"},
                                   {"scale", {{"range", {0.3, 1.0}}, {"zero", false}}},
                                   {"legend", LegendJson("opacity", "")}};
        }
        if (const ChartChannel* channel = layer.Channel("size")) {
            const Column& column = fRows.ColumnOf(rows, channel->fField, channel->fRow);
            json["mark"].erase("strokeWidth");
            encoding["strokeWidth"] = {
                {"field", column.fKey},
                {"type", "quantitative"},
                {"scale",
                 {{"domain", {1, 9}}, {"range", {std::min(1.2, NodeStep() / 4), std::min(6.5, NodeStep() / 2)}}}},
                {"legend", nullptr}};
        }
        if (const ChartChannel* channel = layer.Channel("shape")) {
            const Column& column = fRows.ColumnOf(rows, channel->fField, channel->fRow);
            if (column.fpLevels) {
                encoding["shape"] = {{"field", column.fKey},
                                     {"type", "nominal"},
                                     {"sort", column.fpLevels->Texts()},
                                     {"legend", LegendJson("shape", "")}};
            }
        }
        if (const ChartChannel* channel = layer.fMark == ChartMark::kText ? layer.Channel("text") : nullptr) {
            encoding["text"] = {{"field", fRows.ColumnOf(rows, channel->fField, channel->fRow).fKey},
                                {"type", "nominal"}};
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
        json["encoding"]["text"] = {{"field", fRows.ColumnOf(rows, channel->fField, channel->fRow).fKey},
                                    {"type", "nominal"}};
        layers.push_back(std::move(json));
    }

    void WriteGuide(const output::ChartGuide& guide, Json& layers) {
        Json row{{"s", fmt::format("g{}", fGuides)}};
        if (!fPanels.Place(guide, row)) return;
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
        fRows.Add(std::move(row));
    }

    double Width() const {
        if (fInset) return 220;
        const bool panels = fPanels.Variables() > 0;
        if (fChart.fDiagram) return panels ? 280 : fChart.fpInset ? 400 : 440;
        if (fLevels == 0) return panels ? 220 : fChart.Legend("opacity") ? 360 : 480;
        const double step = std::max(panels ? 36.0 : 90.0, 24.0 * static_cast<double>(fOffsets));
        return std::clamp(step * static_cast<double>(fLevels), panels ? 170.0 : 320.0, panels ? 280.0 : 700.0);
    }

    double Height() const {
        if (fInset) return 150;
        if (!fChart.fDiagram) return fPanels.Variables() > 0 ? 190 : fChart.Legend("opacity") ? 360 : 300;
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
    DrawnPanels fPanels;
    DrawnRows fRows;
    std::string fTooLarge;  ///< why there is no picture
    int fGuides = 0;
    std::size_t fLevels = 0;   ///< on the axis x; 0: numbers
    std::size_t fOffsets = 1;  ///< groups side by side
    bool fPicks = false, fHasBars = false;
};

}  // namespace

ChartDrawing DrawChart(const ChartModel& chart, const host::Catalogue& strings) {
    Drawing main(chart, strings, false);
    Json view = main.Write();
    if (!main.fDrawn && !main.Note().empty()) return {{}, main.Note()};
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
    document["config"] = ChartConfig();
    return {document.dump(-1, ' ', false, Json::error_handler_t::replace), main.Note()};
}

std::string ChartSummary(const ChartModel& chart) {
    std::string summary = chart.fDescription.empty() ? chart.fTitle : chart.fDescription;
    if (!summary.empty() && !chart.fSummary.empty()) summary += ". ";
    return summary + chart.fSummary;
}

}  // namespace report
