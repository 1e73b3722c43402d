#include "report/Outline.h"

#include "report/DisplayText.h"

#include <set>

namespace report {

namespace {

class Collector : public output::Visitor {
public:
    Collector(const Selection& selection, const host::Catalogue& strings) : fSelection(selection), fStrings(strings) {}

    void Enter(const output::Heading& heading) override {
        if (heading.fSplit) fSplit = heading.fSplitName;
        if (heading.fpTitle) fHeadings.push_back(Clean(heading.fpTitle->Show(fStrings)));
    }
    void Leave(const output::Heading& heading) override {
        if (heading.fpTitle) fHeadings.pop_back();
        if (heading.fSplit) fSplit.clear();
    }
    void Show(const output::Table& table) override {
        if (IsWanted(table) && !table.fCells.empty() && !IsOfferedAgain(table)) Take(table);
    }
    void Show(const output::Chart& chart) override {
        if (IsWanted(chart) && chart.fpModel) Take(chart);
    }
    void Show(const output::Message& message) override { Take(message); }

    std::vector<Item> fItems;

private:
    bool IsWanted(const output::Block& block) const {
        switch (block.fHalf) {
            case output::Half::kClassic:
                return fSelection.fClassic;
            case output::Half::kViewer:
                return fSelection.fViewer;
            case output::Half::kBoth:
                break;
        }
        return true;
    }
    /// The system offers the predictions of random effects from both of its halves; once is enough.
    bool IsOfferedAgain(const output::Table& table) {
        static const std::string kPredictions = "Empirical Best Linear Unbiased Predictions";
        if (table.fpSubType->Show(fStrings) != fStrings.Text(kPredictions)) return false;
        return !fPredictions.insert(fSplit + '\n' + table.fpTitle->Show(fStrings)).second;
    }

    void Take(const output::Block& block) { fItems.push_back({fHeadings, &block}); }

    const Selection& fSelection;
    const host::Catalogue& fStrings;
    std::vector<std::string> fHeadings;
    std::string fSplit;
    std::set<std::string> fPredictions;
};

}  // namespace

std::vector<Item> Collect(const host::OutputDocument& document, const Selection& selection,
                          const host::Catalogue& strings) {
    Collector collector(selection, strings);
    document.Root().Visit(collector);
    if (selection.fNotes && document.Notes()) collector.Show(*document.Notes());
    return std::move(collector.fItems);
}

std::size_t SharedHeadings(const Item& before, const Item& item) {
    std::size_t shared = 0;
    while (shared < before.fvHeadings.size() && shared < item.fvHeadings.size() &&
           before.fvHeadings[shared] == item.fvHeadings[shared]) {
        ++shared;
    }
    return shared;
}

}  // namespace report
