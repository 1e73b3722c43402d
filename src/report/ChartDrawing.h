#pragma once

#include "host/output/ChartModel.h"
#include "host/strings/Catalogue.h"

#include <string>

namespace report {

/// A chart as a Vega-Lite document, and what the picture leaves out.
struct ChartDrawing {
    std::string fDocument;  ///< JSON, schema Vega-Lite 6; colours are the light theme's. Empty: nothing to draw
    std::string fNote;      ///< empty, or that not all marks are drawn
};

/// Vega-Lite from a chart model. A chart of very many marks or panels draws the first ones and says so.
ChartDrawing DrawChart(const output::ChartModel& chart, const host::Catalogue& strings);

/// What a chart shows, in a sentence or two, for those who can't see it.
std::string ChartSummary(const output::ChartModel& chart);

}  // namespace report
