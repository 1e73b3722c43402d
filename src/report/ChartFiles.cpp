#include "report/ChartFiles.h"

#include "report/ChartDrawing.h"

#include <fmt/format.h>

namespace report {

namespace {

struct ChartList : output::Visitor {
    void Show(const output::Chart& chart) override { fvCharts.push_back(chart.fpModel.get()); }
    std::vector<const output::ChartModel*> fvCharts;
};

/// A title's letters and digits as a part of a file name, in lower case.
std::string FileStem(const std::string& title) {
    constexpr std::size_t kLongest = 40;
    std::string stem;
    for (const char c : title) {
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (letter) {
            stem += static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
        } else if (!stem.empty() && stem.back() != '-') {
            stem += '-';
        }
        if (stem.size() == kLongest) break;
    }
    while (!stem.empty() && stem.back() == '-')
        stem.pop_back();
    return stem.empty() ? "chart" : stem;
}

}  // namespace

std::vector<ChartFile> ChartFiles(const host::OutputDocument& document, const Selection& selection) {
    const auto& strings = host::Catalogue::Current();
    ChartList list;
    for (const auto& item : Collect(document, selection, strings))
        item.fpBlock->Visit(list);
    std::vector<ChartFile> files;
    for (const output::ChartModel* chart : list.fvCharts) {
        const std::string text = DrawChart(*chart, strings).fDocument;
        if (text.empty()) continue;
        files.push_back({fmt::format("{:02}-{}.vl.json", files.size() + 1, FileStem(chart->fTitle)), text + "\n"});
    }
    return files;
}

}  // namespace report
