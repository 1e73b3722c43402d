#include "report/ChartStyle.h"

namespace report {

using Json = nlohmann::ordered_json;
using output::ChartLayer;
using output::ChartMark;

namespace {

constexpr double kPointSize = 70;

}  // namespace

Json MarkJson(const ChartLayer& layer, bool diagram) {
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

Json ChartConfig() {
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

}  // namespace report
