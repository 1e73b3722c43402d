// A host's output in its smallest form: whatever the procedure writes becomes lines of text. A table is a title, and a
// line for each cell: the categories that cross there, and the value. This file defines the whole output contract; the
// program's other contracts are met by the parts that it links.

#include "contracts/HostOutput.h"
#include "run/RunValue.h"

#include <cstdio>

namespace {

struct Words {
    std::string fText;
    std::vector<std::vector<std::string>> fPlaces;  // of a composite: one text a place, or a list's texts
    bool fInList = false;
};

// One object stands for every node of the output; a category, group or dimension knows its table and its place in it.
struct Place {
    std::shared_ptr<Place> fpTable;  // null for a heading and for the table itself
    int fDimension = -1;
    std::vector<std::string> fPath;  // of a table: the current category of each dimension
};

// The contract keeps texts and nodes behind types that are the host's own; this host has no use for their names.
std::shared_ptr<output::TextNode> Wrap(std::string text) {
    auto words = std::make_shared<Words>(Words{std::move(text), {}});
    return {words, reinterpret_cast<output::TextNode*>(words.get())};
}
Words& WordsOf(const BpCellText& text) {
    return *reinterpret_cast<Words*>(text.Node().get());
}
std::shared_ptr<output::Node> Wrap(const Place& place) {
    auto node = std::make_shared<Place>(place);
    return {node, reinterpret_cast<output::Node*>(node.get())};
}
std::shared_ptr<Place> PlaceOf(const BpHandle& handle) {
    return {handle.Node(), reinterpret_cast<Place*>(handle.Node().get())};
}

std::string Replaced(std::string pattern, const std::string& what, const std::string& by) {
    for (std::size_t at = pattern.find(what); at != std::string::npos; at = pattern.find(what, at + by.size()))
        pattern.replace(at, what.size(), by);
    return pattern;
}

}  // namespace

BpCellText::BpCellText(std::shared_ptr<output::TextNode> node) : fpNode(std::move(node)) {}
BpCellText::~BpCellText() = default;
long BpCellText::Replicate() const {
    return 0;
}
BpString::BpString(const std::string& text, bool) : BpCellText(Wrap(text)) {}
BpString::BpString(const std::string& text, bool, bool) : BpCellText(Wrap(text)) {}
BpNumber::BpNumber(double value, const BpFormatSpec&) : BpCellText(Wrap("")) {
    char text[40];
    std::snprintf(text, sizeof text, "%.6g", value);
    const bool missing = value == std::numeric_limits<double>::lowest();
    WordsOf(*this).fText = missing ? "." : text;
}
BpVariable::BpVariable(const QVTA_Variable& variable, Show) : BpCellText(Wrap(variable.GetName())) {}
BpDataValue::BpDataValue(const QVTA_Variable& variable, OBS const* value, Preference)
    : BpCellText(Wrap(ToString(value, variable.GetWriteFormat()))) {}

BpComposite::BpComposite(const std::string& pattern, bool) : BpCellText(Wrap(pattern)) {}
void BpComposite::Add(const BpCellText& text) {
    Words& words = WordsOf(*this);
    if (words.fInList)
        words.fPlaces.back().push_back(WordsOf(text).fText);
    else
        words.fPlaces.push_back({WordsOf(text).fText});
}
void BpComposite::Sublist() {
    WordsOf(*this).fPlaces.emplace_back();
    WordsOf(*this).fInList = true;
}
void BpComposite::EndSublist() {
    WordsOf(*this).fInList = false;
}
void BpComposite::SplitList() {
    for (const auto& [name, value] : run::Current()->fSplit) {
        WordsOf(*this).fPlaces.back().push_back(name);
        WordsOf(*this).fPlaces.back().push_back(value);
    }
}
void BpComposite::Finish() {
    Words& words = WordsOf(*this);
    for (std::size_t i = 0; i < words.fPlaces.size(); ++i) {
        std::string joined;
        for (const std::string& text : words.fPlaces[i])
            joined += (joined.empty() ? "" : ", ") + text;
        words.fText = Replaced(words.fText, "^" + std::to_string(i + 1), joined);
    }
}

long BpHandle::Replicate() const {
    return 0;
}
BpHeading::~BpHeading() = default;
BpHeading BpHeading::Heading(const BpCellText& text) {
    std::printf("== %s\n", WordsOf(text).fText.c_str());
    return BpHeading(Wrap(Place{}));
}
BpPivotTable BpHeading::PivotTable(const BpCellText& title, const BpCellText&, bool) {
    std::printf("-- %s\n", WordsOf(title).fText.c_str());
    return BpPivotTable(Wrap(Place{}));
}
BpDimension BpPivotTable::Dimension(const BpCellText&, Sort) {
    const std::shared_ptr<Place> table = PlaceOf(*this);
    table->fPath.emplace_back();
    return BpDimension(Wrap(Place{table, static_cast<int>(table->fPath.size()) - 1, {}}));
}
void BpPivotTable::Caption(const BpCellText&) {}
void BpPivotTable::Note(const BpAnnotation&) {}
void BpPivotTable::MinDataColumnWidth(int) {}
void BpDimension::Position(Place, int, bool, bool) {}
BpGroup BpGroup::Group(const BpCellText& text, bool, Sort) {
    ::Place group = *PlaceOf(*this);
    group.fPath.push_back(WordsOf(text).fText);
    return BpGroup(Wrap(group));
}
BpCategory BpGroup::Category(const BpCellText& text) {
    const std::shared_ptr<Place> group = PlaceOf(*this);
    std::string path;
    for (const std::string& part : group->fPath)
        path += part + " / ";
    group->fpTable->fPath[group->fDimension] = path + WordsOf(text).fText;
    return BpCategory(Wrap(*group));
}
void BpCategory::Cell(const BpCellText& text) {
    for (const std::string& path : PlaceOf(*this)->fpTable->fPath)
        if (!path.empty()) std::printf("%s | ", path.c_str());
    std::printf("%s\n", WordsOf(text).fText.c_str());
}
void BpCategory::CellNote(const BpAnnotation&) {}
void BpCategory::Note(const BpAnnotation&) {}

void BpError(const BpCellText& text, BpErrorShow, BpErrorLevel level) {
    std::printf("%s: %s\n", level == kLevelError ? "error" : "warning", WordsOf(text).fText.c_str());
    if (level == kLevelError) run::Current()->fFatal = true;
}
void AddNotes(int, const BpCellText& label, const BpCellText& value) {
    std::printf("note: %s: %s\n", WordsOf(label).fText.c_str(), WordsOf(value).fText.c_str());
}
void GETDISPLAYOPTIONS(int* tableVariables, int* tableValues, int* outlineVariables, int* outlineValues) {
    *tableVariables = *tableValues = *outlineVariables = *outlineValues = 1;
}
