#pragma once

#include "app/Options.h"
#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

#include <string>

namespace app {

/// The results in the format that the options ask for.
std::string RenderResults(const Options& options, const run::RunValue& run, const host::OutputDocument& document,
                          const std::string& command);

/// Refuses early an output file that can't be written in the end. Throws Failure.
void CheckOutput(const std::string& file);

/// Makes the directory of --charts-out where there is none. Throws Failure.
void CheckChartsDirectory(const std::string& directory);

/// Writes each chart of the document into the directory as a Vega-Lite document of its own. Throws Failure.
void WriteCharts(const Options& options, const host::OutputDocument& document);

/// Writes to the standard output or, whole or not at all, to the file. Throws Failure.
void WriteResults(const std::string& file, const std::string& text);

}  // namespace app
