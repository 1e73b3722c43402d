#pragma once

#include <cstddef>
#include <string>

namespace host {

/// A chart document as it was compiled in.
struct BuiltInChart {
    const char* fName;  ///< the file's name; an internal template's name is that without its extension
    const char* fText;
};

inline constexpr std::size_t kBuiltInChartCount = 7;
extern const BuiltInChart kBuiltInCharts[kBuiltInChartCount];

/// The text of a file's document; null for a name that isn't built in.
const char* FindBuiltInChart(const std::string& name);

}  // namespace host
