#include "contracts/HostOutput.h"
#include "host/output/OutputDocument.h"

#include <optional>

/// The contract's headings, tables and their parts: handles on nodes of the output tree.

namespace {

using host::OutputDocument;

template <class T>
T& As(const RefCountPtr<output::Node>& node) {
    return static_cast<T&>(*node);
}

output::Text NoteText(const BpAnnotation& note) {
    const OutputDocument* document = OutputDocument::Current();
    return document ? document->Kept(note.fText) : nullptr;
}

void AddNoteOnce(std::vector<output::Text>& notes, const BpAnnotation& note) {
    const output::Text text = NoteText(note);
    if (!text) return;
    for (const auto& known : notes) {
        if (known->Identity() == text->Identity()) return;
    }
    notes.push_back(text);
}

output::Dimension& DimensionOf(output::Member& member) {
    output::Group* group = member.fpGroup;
    while (group->fpGroup)
        group = group->fpGroup;
    return static_cast<output::Dimension&>(*group);
}

/// Where all dimensions' current categories cross; nothing while one has none.
std::optional<std::vector<int>> CurrentPlace(output::Category& category) {
    DimensionOf(category).fpCurrent = &category;
    std::vector<int> key;
    for (const auto& dimension : category.fpTable->fvDimensions) {
        if (!dimension->fpCurrent) return {};
        key.push_back(dimension->fpCurrent->fOrdinal);
    }
    return key;
}

/// Half and split of what stands under a heading that is made now.
void Place(output::Heading& under, const std::shared_ptr<output::Block>& block, bool bySplit) {
    OutputDocument* document = OutputDocument::Current();
    if (!document) {
        block->fpParent = &under;
        under.fvBlocks.push_back(block);
        return;
    }
    block->fHalf = document->GetHalf();
    document->Add(under, block, bySplit || document->GetHalf() == output::Half::kViewer);
}

/// Whether a heading stands for the split of this name or inside of it.
bool StandsInSplit(const output::Heading* heading, const std::string& name) {
    for (; heading; heading = heading->fpParent) {
        if (heading->fSplit && heading->fSplitName == name) return true;
    }
    return false;
}

}  // namespace

long BpHandle::Replicate() const {
    return -1;
}

BpHeading::~BpHeading() = default;

BpHeading BpHeading::Heading(const BpCellText& text) {
    auto& parent = As<output::Heading>(fpNode);
    // The system's own split heading says again what the host's says already.
    if (StandsInSplit(&parent, text.Node()->Show(host::Catalogue::Current()))) return *this;
    auto heading = std::make_shared<output::Heading>();
    heading->fpTitle = text.Node();
    Place(parent, heading, true);
    return BpHeading(heading);
}

BpPivotTable BpHeading::PivotTable(const BpCellText& title, const BpCellText& subType, bool bySplit) {
    auto table = std::make_shared<output::Table>();
    table->fpTitle = title.Node();
    table->fpSubType = subType.Node();
    Place(As<output::Heading>(fpNode), table, bySplit);
    return BpPivotTable(table);
}

BpDimension BpPivotTable::Dimension(const BpCellText& name, Sort sort) {
    auto& table = As<output::Table>(fpNode);
    auto dimension = std::make_shared<output::Dimension>();
    dimension->fpTable = &table;
    dimension->fpText = name.Node();
    dimension->fSort = sort;
    dimension->fIndex = static_cast<int>(table.fvDimensions.size());
    table.fvDimensions.push_back(dimension);
    return BpDimension(dimension);
}

void BpPivotTable::Caption(const BpCellText& text) {
    As<output::Table>(fpNode).fpCaption = text.Node();
}

void BpPivotTable::Note(const BpAnnotation& note) {
    AddNoteOnce(As<output::Table>(fpNode).fvNotes, note);
}

void BpPivotTable::MinDataColumnWidth(int width) {
    As<output::Table>(fpNode).fMinDataColumnWidth = width;
}

void BpDimension::Position(Place place, int order, bool hideTitle, bool hideLabels) {
    auto& dimension = As<output::Dimension>(fpNode);
    dimension.fPlace = place;
    dimension.fOrder = order;
    dimension.fHideTitle = hideTitle;
    dimension.fHideLabels = hideLabels;
}

BpGroup BpGroup::Group(const BpCellText& text, bool show, Sort sort) {
    auto& parent = As<output::Group>(fpNode);
    auto& group = parent.fGroups[text.Node()->Identity()];
    if (!group) {
        group = std::make_shared<output::Group>();
        group->fpTable = parent.fpTable;
        group->fpGroup = &parent;
        group->fpText = text.Node();
        group->fShow = show;
        group->fSort = sort;
        parent.fvMembers.push_back(group);
    }
    return BpGroup(group);
}

BpCategory BpGroup::Category(const BpCellText& text) {
    auto& parent = As<output::Group>(fpNode);
    auto& category = parent.fCategories[text.Node()->Identity()];
    if (!category) {
        category = std::make_shared<output::Category>();
        category->fpTable = parent.fpTable;
        category->fpGroup = &parent;
        category->fpText = text.Node();
        category->fOrdinal = DimensionOf(*category).fNCategories++;
        parent.fvMembers.push_back(category);
    }
    DimensionOf(*category).fpCurrent = category.get();
    return BpCategory(category);
}

void BpCategory::Cell(const BpCellText& text) {
    output::Category& category = As<output::Category>(fpNode);
    if (const auto place = CurrentPlace(category)) category.fpTable->fCells[*place].fpText = text.Node();
}

void BpCategory::CellNote(const BpAnnotation& note) {
    output::Category& category = As<output::Category>(fpNode);
    const auto place = CurrentPlace(category);
    const auto cell = place ? category.fpTable->fCells.find(*place) : category.fpTable->fCells.end();
    // A note that comes before its cell belongs to the row.
    AddNoteOnce(cell != category.fpTable->fCells.end() ? cell->second.fvNotes : category.fvNotes, note);
}

void BpCategory::Note(const BpAnnotation& note) {
    AddNoteOnce(As<output::Category>(fpNode).fvNotes, note);
}
