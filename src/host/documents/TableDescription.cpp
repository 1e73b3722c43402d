#include "host/documents/TableDescription.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace host {

namespace {

using nlohmann::json;

constexpr int kMaxDepth = 32;
constexpr double kSystemMissing = std::numeric_limits<double>::lowest();

/// What is wrong with a description stays inside: Read turns it into "none".
struct Malformed {};

const json* Find(const json& node, const char* key) {
    const auto found = node.find(key);
    return found == node.end() ? nullptr : &*found;
}

const json& Need(const json& node, const char* key) {
    const json* found = node.is_object() ? Find(node, key) : nullptr;
    if (!found) throw Malformed();
    return *found;
}

std::string NeedString(const json& node) {
    if (!node.is_string()) throw Malformed();
    return node.get<std::string>();
}

double FigureOf(const json& node) {
    if (node.is_null()) return kSystemMissing;
    if (!node.is_number()) throw Malformed();
    return node.get<double>();
}

bool FlagOf(const json& node, const char* key) {
    const json* found = Find(node, key);
    if (!found) return false;
    if (!found->is_boolean()) throw Malformed();
    return found->get<bool>();
}

template <class T>
T FieldOf(const json& node, const char* key) {
    const json& field = Need(node, key);
    if (!field.is_number_unsigned() || field.get<std::uint64_t>() > std::numeric_limits<T>::max()) throw Malformed();
    return field.get<T>();
}

BpFormatSpec FormatOf(const json& node) {
    static const std::pair<const char*, BpFormatSpec::Kind> kNames[] = {
        {"Coefficient", BpFormatSpec::kCoefficient},  {"CoefficientSE", BpFormatSpec::kCoefficientSE},
        {"Correlation", BpFormatSpec::kCorrelation},  {"Count", BpFormatSpec::kCount},
        {"GeneralStat", BpFormatSpec::kGeneralStat},  {"Percent", BpFormatSpec::kPercent},
        {"Significance", BpFormatSpec::kSignificance}};
    if (node.is_object()) {
        if (const json* digits = Find(node, "sigDigit")) return BpProcedure::SigDigit(FigureOf(*digits));
        QVTA_Format format;
        format.fType = FieldOf<std::uint8_t>(node, "type");
        format.fWidth = FieldOf<std::uint16_t>(node, "width");
        format.fDecimals = FieldOf<std::uint8_t>(node, "decimals");
        return BpFormatSpec(format);
    }
    const std::string name = NeedString(node);
    const auto* found =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& entry) { return name == entry.first; });
    if (found == std::end(kNames)) throw Malformed();
    return BpFormatSpec(found->second);
}

/// A value in a variable's cells: strings cut or blank-padded to its width. Empty when the value is of another kind.
std::vector<OBS> CellsOf(const json& value, const QVTA_Variable& variable) {
    std::vector<OBS> cells;
    const int width = variable.GetType();
    if (width == 0 && (value.is_number() || value.is_null())) {
        cells.resize(1);
        cells[0].fNumber = FigureOf(value);
    } else if (width > 0 && value.is_string()) {
        cells.resize(ObsCells(width));
        std::string text = value.get<std::string>();
        text.resize(cells.size() * sizeof(OBS), ' ');
        std::fill(text.begin() + std::min<std::size_t>(width, text.size()), text.end(), ' ');
        std::memcpy(cells.data(), text.data(), text.size());
    }
    return cells;
}

}  // namespace

class TableDescription::Reader {
public:
    Reader(const QVTA_DataSource* source, bool translate) : fpSource(source), fTranslate(translate) {}

    TableDescription Read(const json& node) const {
        TableDescription table;
        if (const json* caption = Find(node, "caption")) table.fCaption = TextOf(*caption, 0);
        table.fvNotes = NotesOf(node);
        const json& dimensions = Need(node, "dimensions");
        if (!dimensions.is_array() || dimensions.empty() || dimensions.size() > kMaxDepth) throw Malformed();
        for (const json& dimension : dimensions)
            table.fvDimensions.push_back(DimensionOf(dimension));
        ReadCells(Need(node, "cells"), 0, nullptr, table);
        return table;
    }

private:
    Text TextOf(const json& node, int depth) const {
        if (depth > kMaxDepth) throw Malformed();
        if (node.is_string()) return std::make_shared<BpString>(node.get<std::string>(), fTranslate);
        if (!node.is_object()) throw Malformed();
        if (const json* data = Find(node, "data")) return std::make_shared<BpString>(NeedString(*data), false);
        if (const json* variable = Find(node, "variable")) return VariableText(NeedString(*variable), node);
        if (const json* number = Find(node, "number")) {
            return std::make_shared<BpNumber>(FigureOf(*number), FormatOf(Need(node, "format")));
        }
        return PatternText(node, depth);
    }

    Text VariableText(const std::string& name, const json& node) const {
        const int index = fpSource ? fpSource->FindVarIndex(name.c_str(), 0) : -1;
        const json* value = Find(node, "value");
        if (index < 0 && !value) return std::make_shared<BpString>(name, false);
        if (!value) return std::make_shared<BpVariable>(fpSource->GetVariable(index), BpVariable::kPreferred);
        const std::vector<OBS> cells = index < 0 ? std::vector<OBS>() : CellsOf(*value, fpSource->GetVariable(index));
        if (cells.empty()) {
            return std::make_shared<BpString>(value->is_string() ? value->get<std::string>() : value->dump(), false);
        }
        return std::make_shared<BpDataValue>(fpSource->GetVariable(index), cells.data(), BpDataValue::kPreferred);
    }

    Text PatternText(const json& node, int depth) const {
        auto composite = std::make_shared<BpComposite>(NeedString(Need(node, "pattern")), fTranslate);
        const json& parts = Need(node, "parts");
        if (!parts.is_array()) throw Malformed();
        for (const json& part : parts) {
            if (!part.is_array()) {
                composite->Add(*TextOf(part, depth + 1));
                continue;
            }
            composite->Sublist();
            for (const json& element : part)
                composite->Add(*TextOf(element, depth + 1));
            composite->EndSublist();
        }
        composite->Finish();
        return composite;
    }

    std::vector<Text> NotesOf(const json& node) const {
        std::vector<Text> notes;
        const json* list = Find(node, "notes");
        if (!list) return notes;
        if (!list->is_array()) throw Malformed();
        for (const json& note : *list)
            notes.push_back(TextOf(note, 0));
        return notes;
    }

    Dimension DimensionOf(const json& node) const {
        Dimension dimension;
        dimension.fName = TextOf(Need(node, "name"), 0);
        const std::string place = NeedString(Need(node, "place"));
        if (place != "row" && place != "column" && place != "layer") throw Malformed();
        dimension.fPlace = place == "row"      ? BpDimension::kRow
                           : place == "column" ? BpDimension::kColumn
                                               : BpDimension::kLayer;
        if (Find(node, "order")) dimension.fOrder = FieldOf<std::uint8_t>(node, "order");
        dimension.fHideTitle = FlagOf(node, "hideTitle");
        dimension.fHideLabels = FlagOf(node, "hideLabels");
        AddLeaves(Need(node, "categories"), {}, dimension.fvLeaves);
        return dimension;
    }

    void AddLeaves(const json& list, const std::vector<Text>& path, std::vector<Leaf>& leaves) const {
        if (!list.is_array() || path.size() > kMaxDepth) throw Malformed();
        for (const json& node : list) {
            const json* text = node.is_object() ? Find(node, "text") : nullptr;
            Leaf leaf;
            leaf.fvPath = path;
            leaf.fvPath.push_back(TextOf(text ? *text : node, 0));
            const json* inner = text ? Find(node, "categories") : nullptr;
            if (inner) {
                AddLeaves(*inner, leaf.fvPath, leaves);
                continue;
            }
            if (text && Find(node, "format")) leaf.fFormat = FormatOf(*Find(node, "format"));
            if (text) leaf.fvNotes = NotesOf(node);
            leaves.push_back(std::move(leaf));
        }
    }

    void ReadCells(const json& node, std::size_t depth, const Leaf* last, TableDescription& table) const {
        if (depth == table.fvDimensions.size()) {
            table.fvCells.push_back(CellOf(node, last->fFormat));
            return;
        }
        const std::vector<Leaf>& leaves = table.fvDimensions[depth].fvLeaves;
        if (!node.is_array() || node.size() != leaves.size()) throw Malformed();
        for (std::size_t i = 0; i < leaves.size(); ++i)
            ReadCells(node[i], depth + 1, &leaves[i], table);
    }

    Cell CellOf(const json& node, const BpFormatSpec& format) const {
        Cell cell;
        if (node.is_null()) return cell;
        if (node.is_number()) {
            cell.fText = std::make_shared<BpNumber>(node.get<double>(), format);
            return cell;
        }
        if (node.is_object()) cell.fvNotes = NotesOf(node);
        const bool isFigure = node.is_object() && Find(node, "value") && !Find(node, "variable");
        if (isFigure) {
            const json* own = Find(node, "format");
            cell.fText = std::make_shared<BpNumber>(FigureOf(*Find(node, "value")), own ? FormatOf(*own) : format);
        } else {
            const json* text = node.is_object() ? Find(node, "text") : nullptr;
            cell.fText = TextOf(text ? *text : node, 0);
        }
        return cell;
    }

    const QVTA_DataSource* fpSource;
    bool fTranslate;
};

std::optional<TableDescription> TableDescription::Read(const json& node, const QVTA_DataSource* source,
                                                       bool translate) {
    if (!node.is_object()) return std::nullopt;
    try {
        return Reader(source, translate).Read(node);
    } catch (const Malformed&) {
        return std::nullopt;
    }
}

namespace {

BpCategory CategoryAt(BpGroup group, const std::vector<std::shared_ptr<const BpCellText>>& path) {
    for (std::size_t i = 0; i + 1 < path.size(); ++i)
        group = group.Group(*path[i], true, BpGroup::kInsertion);
    return group.Category(*path.back());
}

}  // namespace

void TableDescription::Write(BpPivotTable& table) const {
    for (const Text& note : fvNotes)
        table.Note(*note);
    if (fCaption) table.Caption(*fCaption);
    std::vector<BpDimension> dimensions;
    for (const Dimension& description : fvDimensions) {
        BpDimension dimension = table.Dimension(*description.fName, BpGroup::kInsertion);
        dimension.Position(description.fPlace, description.fOrder, description.fHideTitle, description.fHideLabels);
        for (const Leaf& leaf : description.fvLeaves) {
            BpCategory category = CategoryAt(dimension, leaf.fvPath);
            for (const Text& note : leaf.fvNotes)
                category.Note(*note);
        }
        dimensions.push_back(dimension);
    }
    std::size_t nextCell = 0;
    WriteCells(dimensions, 0, nextCell);
}

void TableDescription::WriteCells(std::vector<BpDimension>& dimensions, std::size_t depth,
                                  std::size_t& nextCell) const {
    const bool isLast = depth + 1 == dimensions.size();
    for (const Leaf& leaf : fvDimensions[depth].fvLeaves) {
        BpCategory category = CategoryAt(dimensions[depth], leaf.fvPath);
        if (!isLast) {
            WriteCells(dimensions, depth + 1, nextCell);
            continue;
        }
        const Cell& cell = fvCells[nextCell++];
        if (!cell.fText) continue;
        category.Cell(*cell.fText);
        for (const Text& note : cell.fvNotes)
            category.CellNote(*note);
    }
}

}  // namespace host
