#pragma once

#include "report/Outline.h"
#include "run/RunValue.h"

#include <string>

namespace report {

/// The tidy form of a run, schema hierfit.result/1: every split's figures, then the output tree. Doubles are written so
/// that they read back as the same number; what is missing is null. The text ends in a line feed.
std::string RenderJson(const run::RunValue& run, const host::OutputDocument& document, const Selection& selection,
                       const std::string& version, const std::string& command);

}  // namespace report
