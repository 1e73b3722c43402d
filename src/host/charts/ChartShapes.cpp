#include "host/charts/ChartDocument.h"
#include "host/charts/ChartMarkup.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>

/// What the chart service computes itself: a histogram's curve, and the places of a network's nodes.

namespace host {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int kCurvePoints = 101;
constexpr double kMostCounts = 400;  ///< whole numbers that a curve of counts runs through

/// Density or probability by value, and whether the distribution lives on whole numbers.
struct Curve {
    std::function<double(double)> fDensity;
    bool fDiscrete = false;
};

struct Moments {
    double fTotal = 0.0, fMean = 0.0, fDeviation = 0.0, fLeast = 0.0, fMost = 0.0;
    int fBins = 0;  ///< that hold something
};

Moments MomentsOf(const output::ChartSource& bins, int x, int y) {
    Moments m;
    double sum = 0.0, squares = 0.0;
    bool any = false;
    const auto each = [&](auto&& visit) {
        for (std::size_t row = 0; row < bins.fvRows.size(); ++row) {
            const auto* value = std::get_if<double>(&bins.At(row, x));
            const auto* count = std::get_if<double>(&bins.At(row, y));
            if (value && count && std::isfinite(*value) && *count > 0) visit(*value, *count);
        }
    };
    each([&](double value, double count) {
        m.fTotal += count;
        ++m.fBins;
        sum += value * count;
        m.fLeast = any ? std::min(m.fLeast, value) : value;
        m.fMost = any ? std::max(m.fMost, value) : value;
        any = true;
    });
    if (m.fTotal <= 1.0) return m;
    m.fMean = sum / m.fTotal;
    each([&](double value, double count) { squares += count * (value - m.fMean) * (value - m.fMean); });
    m.fDeviation = std::sqrt(squares / (m.fTotal - 1.0));
    return m;
}

Curve CurveOf(const std::string& word, double a, double b, const Moments& m) {
    if (word == "gamma" && a > 0 && b > 0) {
        return {[=](double x) {
            return x <= 0 ? 0.0 : std::exp(a * std::log(b) + (a - 1) * std::log(x) - b * x - std::lgamma(a));
        }};
    }
    if (word == "gaussianinverse" && a > 0 && b > 0) {
        return {[=](double x) {
            return x <= 0 ? 0.0
                          : std::sqrt(b / (2 * kPi * x * x * x)) * std::exp(-b * (x - a) * (x - a) / (2 * a * a * x));
        }};
    }
    if (word == "binomialnegative" && a > 0 && b > 0 && b < 1) {
        return {[=](double k) {
                    return std::exp(std::lgamma(k + a) - std::lgamma(a) - std::lgamma(k + 1) + a * std::log(b) +
                                    k * std::log1p(-b));
                },
                true};
    }
    if (word == "poisson" && a > 0) {
        return {[=](double k) { return std::exp(k * std::log(a) - a - std::lgamma(k + 1)); }, true};
    }
    // Over the two bars of a yes or no a bell says nothing.
    if (word == "normal" && m.fDeviation > 0 && m.fBins > 2) {
        return {[=](double x) {
            const double z = (x - m.fMean) / m.fDeviation;
            return std::exp(-z * z / 2) / (m.fDeviation * std::sqrt(2 * kPi));
        }};
    }
    return {};
}

/// A node's place on the circle by its panel and its id.
using Panel = std::vector<output::Datum>;

Panel PanelOf(const output::ChartSource& source, std::size_t row, const std::vector<std::string>& facets) {
    Panel panel;
    for (const auto& facet : facets)
        panel.push_back(source.At(row, source.Find(facet)));
    return panel;
}

/// What a node is called: its label, else its id without the panel's values, which lead it and stand over the panel.
std::string LabelOf(const output::ChartSource& nodes, int id, const output::Datum& node, const Panel& panel) {
    const output::ChartField plain;
    const std::string text = plain.Shown(node);
    std::string label = nodes.fvFields[static_cast<std::size_t>(id)].Shown(node);
    std::string lead;
    for (const output::Datum& value : panel)
        lead += plain.Shown(value);
    const bool led = !lead.empty() && text.size() > lead.size() && text.compare(0, lead.size(), lead) == 0;
    if (!led || label != text) return label;
    const std::string level = text.substr(lead.size());
    double number = 0.0;
    const auto [end, error] = std::from_chars(level.data(), level.data() + level.size(), number);
    const bool whole = error == std::errc() && end == level.data() + level.size();
    return whole ? nodes.fvFields[static_cast<std::size_t>(id)].Shown(number) : level;
}

/// Adds fields to a source; the position of the first.
std::size_t AddFields(output::ChartSource& source, std::initializer_list<const char*> names) {
    const std::size_t first = source.fvFields.size();
    for (const char* name : names)
        source.fvFields.emplace_back().fName = name;
    for (auto& row : source.fvRows)
        row.resize(source.fvFields.size());
    return first;
}

output::ChartSource* Named(std::vector<output::ChartSource>& sources, const std::string& name) {
    for (auto& source : sources) {
        if (source.fName == name) return &source;
    }
    return nullptr;
}

}  // namespace

double BinWidth(const output::ChartSource& bins, int x) {
    std::vector<double> centres;
    for (std::size_t row = 0; row < bins.fvRows.size(); ++row) {
        if (const auto* value = std::get_if<double>(&bins.At(row, x))) centres.push_back(*value);
    }
    std::sort(centres.begin(), centres.end());
    double width = 0.0;
    for (std::size_t i = 1; i < centres.size(); ++i) {
        const double step = centres[i] - centres[i - 1];
        if (step > 0 && (width == 0.0 || step < width)) width = step;
    }
    return width > 0.0 ? width : 1.0;
}

output::ChartSource DistributionCurve(const pugi::xml_node& statistic, const output::ChartSource& bins, int x, int y) {
    output::ChartSource curve;
    curve.fvFields.emplace_back().fName = "X";
    curve.fvFields.emplace_back().fName = "Y";
    double a = 0.0, b = 0.0;
    NumberAttribute(statistic, "parameter", a);
    NumberAttribute(statistic, "secondaryParameter", b);
    const Moments moments = MomentsOf(bins, x, y);
    const Curve shape = CurveOf(statistic.attribute("distribution").value(), a, b, moments);
    if (!shape.fDensity || moments.fTotal <= 0) return curve;
    const double width = BinWidth(bins, x);
    const double from = moments.fLeast - width / 2, to = moments.fMost + width / 2;
    const auto add = [&](double at) {
        const double height = moments.fTotal * width * shape.fDensity(at);
        if (std::isfinite(height)) curve.fvRows.push_back({at, height});
    };
    if (shape.fDiscrete && to - from <= kMostCounts) {
        const double first = std::max(0.0, std::ceil(from));
        for (int i = 0; first + i <= to; ++i)
            add(first + i);
    } else {
        for (int i = 0; i < kCurvePoints; ++i)
            add(from + (to - from) * i / (kCurvePoints - 1));
    }
    return curve;
}

void LayOutCircle(const pugi::xml_node& circle, const std::vector<std::string>& facets,
                  std::vector<output::ChartSource>& sources) {
    output::ChartSource* nodes = Named(sources, circle.attribute("nodes").value());
    output::ChartSource* edges = Named(sources, circle.attribute("edges").value());
    if (!nodes || !edges) return;
    const int id = nodes->Find(circle.attribute("node").value());
    std::map<Panel, std::vector<std::size_t>> panels;
    for (std::size_t row = 0; row < nodes->fvRows.size(); ++row) {
        if (!output::IsUnset(nodes->At(row, id))) panels[PanelOf(*nodes, row, facets)].push_back(row);
    }
    // Clockwise from the top, two of them side by side; numbers by value and texts by their bytes.
    std::map<std::pair<Panel, output::Datum>, std::pair<double, double>> places;
    const std::size_t at = AddFields(*nodes, {"circle.x", "circle.y", "circle.label"});
    for (auto& [panel, rows] : panels) {
        std::sort(rows.begin(), rows.end(),
                  [&](std::size_t a, std::size_t b) { return nodes->At(a, id) < nodes->At(b, id); });
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const double turn = rows.size() == 2 ? -0.25 : 0.0;
            const double angle = 2 * kPi * (turn + static_cast<double>(i) / static_cast<double>(rows.size()));
            const auto clean = [](double place) { return std::fabs(place) < 1e-12 ? 0.0 : place; };
            const std::pair<double, double> place{clean(std::sin(angle)), clean(std::cos(angle))};
            nodes->fvRows[rows[i]][at] = place.first;
            nodes->fvRows[rows[i]][at + 1] = place.second;
            nodes->fvRows[rows[i]][at + 2] = LabelOf(*nodes, id, nodes->At(rows[i], id), panel);
            places[{panel, nodes->At(rows[i], id)}] = place;
        }
    }
    const std::size_t ends = AddFields(*edges, {"circle.x", "circle.y", "circle.x2", "circle.y2"});
    for (std::size_t row = 0; row < edges->fvRows.size(); ++row) {
        const Panel panel = PanelOf(*edges, row, facets);
        std::size_t field = ends;
        for (const char* end : {"from", "to"}) {
            const int node = edges->Find(circle.attribute(end).value());
            const auto place = places.find({panel, edges->At(row, node)});
            if (place != places.end()) {
                edges->fvRows[row][field] = place->second.first;
                edges->fvRows[row][field + 1] = place->second.second;
            }
            field += 2;
        }
    }
}

}  // namespace host
