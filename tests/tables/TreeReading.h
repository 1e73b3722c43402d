#pragma once

#include "host/output/OutputDocument.h"
#include "host/output/Tree.h"
#include "host/strings/Catalogue.h"

#include <limits>
#include <string>
#include <vector>

/// Reads the output tree back as texts and figures.
namespace reading {

/// A text as it was written, before translation: a literal, or a pattern with its places, "Case ^1 <y>".
inline std::string Shown(const output::Text& text) {
    if (!text) return "(none)";
    if (const auto* composite = dynamic_cast<const output::CompositeNode*>(text.get())) {
        std::string shown = composite->fPattern + " <";
        for (const auto& place : composite->fvPlaces) {
            for (const auto& part : place.fvTexts)
                shown += (shown.back() == '<' ? "" : ", ") + Shown(part);
        }
        return shown + ">";
    }
    const std::string identity = text->Identity();
    const bool isString = identity.rfind("k:", 0) == 0 || identity.rfind("t:", 0) == 0;
    return isString ? identity.substr(2) : text->Show(host::Catalogue::Current());
}

inline std::vector<std::string> Shown(const std::vector<output::Text>& texts) {
    std::vector<std::string> shown;
    for (const auto& text : texts)
        shown.push_back(Shown(text));
    return shown;
}

/// A category with its groups: "group / category".
inline std::string PathOf(const output::Category& category) {
    std::string path = Shown(category.fpText);
    for (const output::Group* group = category.fpGroup; group && group->fpGroup; group = group->fpGroup) {
        path = Shown(group->fpText) + " / " + path;
    }
    return path;
}

/// Every table below a heading, with the titles of the headings that it stands under: "Fixed Effects > Title".
struct TableList : output::Visitor {
    void Enter(const output::Heading& heading) override {
        if (heading.fpTitle) fvPath.push_back(Shown(heading.fpTitle));
    }
    void Leave(const output::Heading& heading) override {
        if (heading.fpTitle) fvPath.pop_back();
    }
    void Show(const output::Table& table) override {
        std::string path;
        for (const auto& title : fvPath)
            path += title + " > ";
        fvPaths.push_back(path + Shown(table.fpTitle));
        fvTables.push_back(&table);
    }
    void Show(const output::Message& message) override { fvMessages.push_back(Shown(message.fpText)); }

    std::vector<std::string> fvPath;
    std::vector<std::string> fvPaths;
    std::vector<const output::Table*> fvTables;
    std::vector<std::string> fvMessages;
};

inline TableList ListTables(const output::Heading& root) {
    TableList list;
    root.Visit(list);
    return list;
}

/// One table by the texts of its categories.
class TableView {
public:
    explicit TableView(const output::Table& table) : fpTable(&table) {}

    std::vector<std::string> Categories(int dimension) const {
        std::vector<std::string> paths;
        for (const auto* category : fpTable->fvDimensions[dimension]->Categories())
            paths.push_back(PathOf(*category));
        return paths;
    }
    /// The cell at one category of every dimension; null where none was written.
    const output::Cell* At(const std::vector<std::string>& paths) const {
        std::vector<const output::Category*> categories;
        for (std::size_t i = 0; i < paths.size(); ++i) {
            for (const auto* category : fpTable->fvDimensions[i]->Categories()) {
                if (PathOf(*category) == paths[i]) categories.push_back(category);
            }
        }
        return categories.size() == paths.size() ? fpTable->At(categories) : nullptr;
    }
    /// The cell's number; the missing value is the lowest double. A cell without a number fails the test by not being
    /// equal to anything.
    double Value(const std::vector<std::string>& paths) const {
        const output::Figure* figure = FigureAt(paths);
        return figure ? figure->fValue : std::numeric_limits<double>::quiet_NaN();
    }
    /// How the cell's number wants to look; kMean, which no table here uses, when there is none.
    BpFormatSpec::Kind Kind(const std::vector<std::string>& paths) const {
        const output::Figure* figure = FigureAt(paths);
        return figure ? figure->fFormat.GetKind() : BpFormatSpec::kMean;
    }
    std::vector<std::string> Notes(const std::vector<std::string>& paths) const {
        const output::Cell* cell = At(paths);
        return cell ? Shown(cell->fvNotes) : std::vector<std::string>{"(no cell)"};
    }
    const output::Dimension& Dimension(int index) const { return *fpTable->fvDimensions[index]; }
    const output::Table& Table() const { return *fpTable; }

private:
    const output::Figure* FigureAt(const std::vector<std::string>& paths) const {
        const output::Cell* cell = At(paths);
        return cell && cell->fpText ? cell->fpText->AsFigure() : nullptr;
    }

    const output::Table* fpTable;
};

}  // namespace reading
