#include "host/output/OutputDocument.h"

#include "run/RunValue.h"

#include <algorithm>

namespace host {

namespace {

/// The group of the Notes table that a kind of row stands in.
const char* NotesGroup(int kind) {
    return kind == 2 ? "Output Files" : "Input";
}

bool UnderSplit(const output::Heading* heading, const std::string& name) {
    for (; heading; heading = heading->fpParent) {
        if (heading->fSplit && heading->fSplitName == name) return true;
    }
    return false;
}

}  // namespace

OutputDocument::OutputDocument(const std::string& title)
    : fTitle(output::MakeString(title, true)), fpRoot(std::make_shared<output::Heading>()) {}

OutputDocument*& OutputDocument::Slot() {
    static OutputDocument* current = nullptr;
    return current;
}

OutputDocument* OutputDocument::Current() {
    return Slot();
}

std::shared_ptr<output::Heading> OutputDocument::SplitHeading(int ordinal, const std::string& name) {
    std::shared_ptr<output::Heading>& heading = fSplits[name];
    if (heading) return heading;
    // Splits stand in the order of the data, also when a later one was the first to speak.
    auto& blocks = fpRoot->fvBlocks;
    auto place = blocks.end();
    for (auto at = blocks.end(); at != blocks.begin();) {
        const auto* before = dynamic_cast<const output::Heading*>((--at)->get());
        if (!before || !before->fSplit) continue;
        if (before->fSplitOrdinal <= ordinal) break;
        place = at;
    }
    heading = std::make_shared<output::Heading>();
    heading->fpParent = fpRoot.get();
    heading->fpTitle = output::MakeString(name, false);
    heading->fSplit = true;
    heading->fSplitOrdinal = ordinal;
    heading->fSplitName = name;
    blocks.insert(place, heading);
    return heading;
}

BpProcedure OutputDocument::SplitProcedure() {
    const run::RunValue* run = run::Current();
    if (!run || run->fSplitName.empty()) return Procedure();
    return BpProcedure(SplitHeading(run->fSplitOrdinal, run->fSplitName));
}

void OutputDocument::Add(output::Heading& under, std::shared_ptr<output::Block> block, bool bySplit) {
    output::Heading* parent = &under;
    const run::RunValue* run = run::Current();
    if (bySplit && run && !run->fSplitName.empty() && !UnderSplit(parent, run->fSplitName)) {
        output::Heading& split = *SplitHeading(run->fSplitOrdinal, run->fSplitName);
        // A heading that was made outside of the split keeps its title inside of it.
        if (parent != fpRoot.get()) {
            auto inner = std::make_shared<output::Heading>();
            inner->fpTitle = under.fpTitle;
            inner->fHalf = fHalf;
            inner->fpParent = &split;
            split.fvBlocks.push_back(inner);
            parent = inner.get();
        } else {
            parent = &split;
        }
    }
    block->fpParent = parent;
    auto* heading = dynamic_cast<output::Heading*>(block.get());
    fpPosition = heading ? heading : parent;
    parent->fvBlocks.push_back(std::move(block));
}

void OutputDocument::AddChart(std::shared_ptr<const output::ChartModel> model) {
    auto chart = std::make_shared<output::Chart>();
    chart->fHalf = fHalf;
    chart->fpModel = std::move(model);
    Add(fpPosition ? *fpPosition : *fpRoot, chart, true);
}

void OutputDocument::AddMessage(const output::Text& text, BpErrorLevel level) {
    auto message = std::make_shared<output::Message>();
    message->fpText = text;
    message->fLevel = level;
    output::Heading* const position = fpPosition;
    Add(*fpRoot, message, true);
    fpPosition = position;
}

void OutputDocument::AddNote(int kind, const output::Text& label, const output::Text& value) {
    const OutputScope scope(*this);
    if (!fpNotes) {
        fpNotes = std::make_shared<output::Table>();
        fpNotes->fpParent = fpRoot.get();
        fpNotes->fpTitle = output::MakeString("Notes", true);
        fpNotes->fpSubType = output::MakeString("Notes", false);
        BpPivotTable(fpNotes).Dimension(BpString("Contents", true), BpGroup::kInsertion).Position(0, 1, true, false);
    }
    BpDimension rows(fpNotes->fvDimensions.front());
    BpGroup group = rows.Group(BpString(NotesGroup(kind), true), true, BpGroup::kInsertion);
    group.Category(output::TextHandle(label)).Cell(output::TextHandle(value));
}

long OutputDocument::Keep(output::Text text) {
    fvKept.push_back(std::move(text));
    return static_cast<long>(fvKept.size()) - 1;
}

output::Text OutputDocument::Kept(long handle) const {
    return handle >= 0 && handle < static_cast<long>(fvKept.size()) ? fvKept[handle] : nullptr;
}

}  // namespace host
