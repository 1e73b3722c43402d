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

/// Writes to the standard output or, whole or not at all, to the file. Throws Failure.
void WriteResults(const std::string& file, const std::string& text);

}  // namespace app
