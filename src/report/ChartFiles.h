#pragma once

#include "report/Outline.h"

#include <string>
#include <vector>

namespace report {

/// The charts of a document in reading order, each as a file: "03-fixed-effects.vl.json" and its text.
struct ChartFile {
    std::string fName;
    std::string fText;
};
std::vector<ChartFile> ChartFiles(const host::OutputDocument& document, const Selection& selection);

}  // namespace report
