#pragma once

#include "host/output/ChartModel.h"

#include <nlohmann/json.hpp>

namespace report {

/// A palette that readers with any colour vision tell apart (Okabe and Ito, Color Universal Design, 2008), its yellow
/// and black exchanged for tones that show on white and on black.
inline constexpr const char* kPalette[] = {"#0072B2", "#D55E00", "#009E73", "#CC79A7",
                                           "#E69F00", "#56B4E9", "#7A6FBE", "#8C8C8C"};
inline constexpr const char* kPlain = "#0072B2";
inline constexpr const char* kQuiet = "#9AA3AE";
inline constexpr const char* kStrong = "#D55E00";
inline constexpr const char* kInk = "#39465A";

/// How a layer's marks look before its channels say otherwise: a Vega-Lite mark.
nlohmann::ordered_json MarkJson(const output::ChartLayer& layer, bool diagram);

/// Fonts, colours and distances of all charts: Vega-Lite's config.
nlohmann::ordered_json ChartConfig();

}  // namespace report
