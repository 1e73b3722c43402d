#include "report/Layout.h"

#include "host/output/FigureText.h"
#include "report/DisplayText.h"

#include <algorithm>
#include <map>

namespace report {

namespace {

using output::Category;
using output::Dimension;
using output::Group;
using output::Table;
using output::Text;

/// The 0-based n-th mark: a ... z, aa, ab, ...
std::string Mark(std::size_t n) {
    std::string mark;
    for (++n; n > 0; n = (n - 1) / 26)
        mark.insert(mark.begin(), static_cast<char>('a' + (n - 1) % 26));
    return mark;
}

/// Groups that are shown around a category, outermost first.
std::vector<const Group*> ShownGroups(const Category& category) {
    std::vector<const Group*> groups;
    for (const Group* group = category.fpGroup; group->fpGroup; group = group->fpGroup) {
        if (group->fShow) groups.insert(groups.begin(), group);
    }
    return groups;
}

/// One label over a category, from the outside in: a dimension's title, a group, the category itself. The key tells
/// which neighbours it spans.
struct Level {
    const void* fpKey = nullptr;
    Text fpText;
    const std::vector<Text>* fpNotes = nullptr;
};

class LayoutBuilder {
public:
    LayoutBuilder(const Table& table, const host::Catalogue& strings) : fTable(table), fStrings(strings) {
        fRowDimensions = table.DimensionsAt(BpDimension::kRow);
        fColumnDimensions = table.DimensionsAt(BpDimension::kColumn);
        fRows = table.Entries(fRowDimensions);
        fColumns = table.Entries(fColumnDimensions);
    }

    Layout Build() {
        fLayout.fTitle = Shown(fTable.fpTitle);
        fLayout.fColumns = static_cast<int>(fColumns.size());
        fLayout.fMinDataColumnWidth = fTable.fMinDataColumnWidth;
        for (const auto& note : fTable.fvNotes)
            fLayout.fvNotes.push_back(Shown(note));
        BuildHeadingTitles();
        BuildHeader();
        BuildRows();
        SettleColumns();
        if (fTable.fpCaption) fLayout.fvCaption = Lines(Shown(fTable.fpCaption));
        return std::move(fLayout);
    }

private:
    std::string Shown(const Text& text) const { return Clean(text->Show(fStrings)); }

    static std::vector<std::string> Lines(const std::string& text) {
        std::vector<std::string> lines(1);
        for (const char c : text) {
            if (c == '\n') {
                lines.emplace_back();
            } else {
                lines.back() += c;
            }
        }
        return lines;
    }

    /// Marks of notes; equal texts share a mark, and new ones get the next.
    std::string Marks(const std::vector<Text>& notes) {
        std::string marks;
        for (const auto& note : notes) {
            const std::string text = Shown(note);
            auto [known, fresh] = fMarks.try_emplace(text, Mark(fMarks.size()));
            if (fresh) fLayout.fvFootnotes.push_back({known->second, text});
            marks += (marks.empty() ? "" : ",") + known->second;
        }
        return marks;
    }

    std::vector<Level> ColumnLevels(const std::vector<const Category*>& entry, const std::vector<int>& depths) const {
        std::vector<Level> levels;
        for (std::size_t d = 0; d < fColumnDimensions.size(); ++d) {
            const Dimension& dimension = *fColumnDimensions[d];
            if (!dimension.fHideTitle) levels.push_back({&dimension, dimension.fpText, nullptr});
            const auto groups = ShownGroups(*entry[d]);
            for (const Group* group : groups)
                levels.push_back({group, group->fpText, nullptr});
            if (!dimension.fHideLabels) levels.push_back({entry[d], entry[d]->fpText, &entry[d]->fvNotes});
            // A category outside of the groups takes the rows that the groups of others need.
            for (int missing = static_cast<int>(groups.size()); missing < depths[d]; ++missing)
                levels.push_back({});
        }
        return levels;
    }

    void BuildHeader() {
        std::vector<int> depths;
        for (std::size_t d = 0; d < fColumnDimensions.size(); ++d) {
            std::size_t depth = 0;
            for (const auto& entry : fColumns)
                depth = std::max(depth, ShownGroups(*entry[d]).size());
            depths.push_back(static_cast<int>(depth));
        }
        std::vector<std::vector<Level>> columns;
        for (const auto& entry : fColumns)
            columns.push_back(ColumnLevels(entry, depths));
        if (columns.empty()) return;
        for (std::size_t row = 0; row < columns.front().size(); ++row) {
            fLayout.fvHeader.emplace_back();
            for (std::size_t c = 0; c < columns.size(); ++c) {
                const Level& level = columns[c][row];
                if (!level.fpKey) continue;
                auto& cells = fLayout.fvHeader.back();
                if (c > 0 && SameUpTo(columns[c - 1], columns[c], row) && !cells.empty()) {
                    ++cells.back().fSpan;
                    continue;
                }
                HeaderCell cell{{Shown(level.fpText), {}}, static_cast<int>(c), 1, 1};
                if (level.fpNotes) cell.fLabel.fMarks = Marks(*level.fpNotes);
                while (row + cell.fDepth < columns[c].size() && !columns[c][row + cell.fDepth].fpKey)
                    ++cell.fDepth;
                cells.push_back(std::move(cell));
            }
        }
    }

    static bool SameUpTo(const std::vector<Level>& a, const std::vector<Level>& b, std::size_t row) {
        for (std::size_t r = 0; r <= row; ++r) {
            if (a[r].fpKey != b[r].fpKey) return false;
        }
        return true;
    }

    void BuildHeadingTitles() {
        for (const Dimension* dimension : fRowDimensions) {
            const auto shows = [](const auto& member) { return member->AsGroup() && member->AsGroup()->fShow; };
            const bool groups = std::any_of(dimension->fvMembers.begin(), dimension->fvMembers.end(), shows);
            if (!dimension->fHideTitle || !dimension->fHideLabels || groups) fHeadingDimensions.push_back(dimension);
        }
        for (const Dimension* dimension : fHeadingDimensions) {
            fLayout.fvHeadingTitles.push_back({dimension->fHideTitle ? std::string() : Shown(dimension->fpText), {}});
        }
    }

    /// The category of an entry in a dimension of the row headings.
    const Category* InHeading(const std::vector<const Category*>& entry, std::size_t heading) const {
        const auto at = std::find(fRowDimensions.begin(), fRowDimensions.end(), fHeadingDimensions[heading]);
        return entry[static_cast<std::size_t>(at - fRowDimensions.begin())];
    }

    void BuildRows() {
        const std::vector<const Category*>* before = nullptr;
        fOpen.assign(fHeadingDimensions.size(), nullptr);
        for (const auto& entry : fRows) {
            AddGroupLines(entry, before);
            Row row;
            row.fvHeadings = NewHeadings();
            for (std::size_t s = 0; s < fHeadingDimensions.size(); ++s)
                OpenLabel(row, s, entry);
            for (const auto& column : fColumns)
                row.fvCells.push_back(MakeCell(entry, column));
            fLayout.fvRows.push_back(std::move(row));
            before = &entry;
        }
    }

    /// Row headings that all continue the labels above; each label that is still open grows by the row.
    std::vector<RowHeading> NewHeadings() {
        std::vector<RowHeading> heading(fHeadingDimensions.size());
        for (std::size_t s = 0; s < heading.size(); ++s) {
            heading[s].fRows = 0;
            if (fOpen[s]) ++fLayout.fvRows[fOpenRow[s]].fvHeadings[s].fRows;
        }
        return heading;
    }

    void Close(std::size_t from) {
        for (std::size_t s = from; s < fOpen.size(); ++s)
            fOpen[s] = nullptr;
    }

    void OpenLabel(Row& row, std::size_t s, const std::vector<const Category*>& entry) {
        const Category* category = InHeading(entry, s);
        if (fOpen[s] == category) return;
        // A label ends what stands inside of it, too; the rows were counted as if all went on.
        for (std::size_t inner = s; inner < fOpen.size(); ++inner) {
            if (fOpen[inner]) --fLayout.fvRows[fOpenRow[inner]].fvHeadings[inner].fRows;
        }
        Close(s);
        RowHeading& cell = row.fvHeadings[s];
        cell.fRows = 1;
        cell.fIndent = static_cast<int>(ShownGroups(*category).size());
        if (!fHeadingDimensions[s]->fHideLabels) {
            cell.fLabel.fText = Shown(category->fpText);
            cell.fLabel.fMarks = Marks(category->fvNotes);
        }
        fOpen[s] = category;
        fOpenRow[s] = fLayout.fvRows.size();
    }

    /// A line for every group that begins with this entry.
    void AddGroupLines(const std::vector<const Category*>& entry, const std::vector<const Category*>* before) {
        bool changed = before == nullptr;
        for (std::size_t s = 0; s < fHeadingDimensions.size(); ++s) {
            const Category* category = InHeading(entry, s);
            const auto groups = ShownGroups(*category);
            const auto old = changed ? std::vector<const Group*>() : ShownGroups(*InHeading(*before, s));
            for (std::size_t g = 0; g < groups.size(); ++g) {
                if (g < old.size() && std::equal(groups.begin(), groups.begin() + g + 1, old.begin())) continue;
                AddGroupLine(entry, s, *groups[g], static_cast<int>(g));
            }
            changed = changed || InHeading(*before, s) != category;
        }
    }

    void AddGroupLine(const std::vector<const Category*>& entry, std::size_t s, const Group& group, int indent) {
        Row row;
        row.fGroup = true;
        Close(s);
        row.fvHeadings = NewHeadings();
        for (std::size_t outer = 0; outer < s; ++outer)
            OpenLabel(row, outer, entry);
        row.fvHeadings[s] = {{Shown(group.fpText), {}}, indent, 1};
        fLayout.fvRows.push_back(std::move(row));
    }

    std::optional<DataCell> MakeCell(const std::vector<const Category*>& row,
                                     const std::vector<const Category*>& column) {
        std::vector<const Category*> at = row;
        at.insert(at.end(), column.begin(), column.end());
        const output::Cell* cell = fTable.At(at);
        if (!cell) return std::nullopt;
        DataCell shown;
        if (cell->fpText) {
            shown.fLabel.fText = Clean(CellText(*cell, at, fStrings));
            const output::Figure* figure = cell->fpText->AsFigure();
            shown.fNumber = figure && LooksNumeric(shown.fLabel.fText);
            if (shown.fNumber && !host::IsMissingFigure(figure->fValue)) shown.fValue = figure->fValue;
        }
        shown.fLabel.fMarks = Marks(cell->fvNotes);
        const std::size_t point = shown.fLabel.fText.find_first_of(".e%");
        if (shown.fNumber && point != std::string::npos) {
            shown.fBehindPoint = static_cast<int>(shown.fLabel.fText.size() - point);
        }
        return shown;
    }

    /// A number among words stands as they do.
    void SettleColumns() {
        fLayout.fvWords.assign(fColumns.size(), false);
        for (std::size_t c = 0; c < fColumns.size(); ++c) {
            for (const Row& row : fLayout.fvRows) {
                if (c >= row.fvCells.size() || !row.fvCells[c]) continue;
                const DataCell& cell = *row.fvCells[c];
                if (!cell.fNumber && !cell.fLabel.fText.empty()) fLayout.fvWords[c] = true;
            }
            for (Row& row : fLayout.fvRows) {
                if (fLayout.fvWords[c] && c < row.fvCells.size() && row.fvCells[c]) row.fvCells[c]->fNumber = false;
            }
        }
    }

    const Table& fTable;
    const host::Catalogue& fStrings;
    std::vector<const Dimension*> fRowDimensions, fColumnDimensions, fHeadingDimensions;
    std::vector<std::vector<const Category*>> fRows, fColumns;
    std::map<std::string, std::string> fMarks;
    std::map<std::size_t, std::size_t> fOpenRow;  ///< row in which an open label stands
    std::vector<const Category*> fOpen;           ///< per column of row headings, the category whose label holds
    Layout fLayout;
};

}  // namespace

bool LooksNumeric(const std::string& text) {
    if (text.empty() || text.front() == 'e' || text.find_first_not_of("0123456789+-.,%<e") != std::string::npos)
        return false;
    // A sign within is an exponent's; else it is a date.
    const std::size_t sign = text.find_first_of("+-", 1);
    return sign == std::string::npos || text[sign - 1] == 'e';
}

std::string CellText(const output::Cell& cell, const std::vector<const Category*>& at, const host::Catalogue& strings) {
    const output::Figure* figure = cell.fpText->AsFigure();
    const auto isP = [](const Category* category) {
        const std::string key = category->fpText->Identity();
        return key == "k:Sig." || key == "k:Adj. Sig.";
    };
    if (figure && figure->fFormat.GetKind() == BpFormatSpec::kCoefficient && std::any_of(at.begin(), at.end(), isP))
        return host::FigureText(figure->fValue, BpProcedure::Significance());
    return cell.fpText->Show(strings);
}

Layout MakeLayout(const output::Table& table, const host::Catalogue& strings) {
    return LayoutBuilder(table, strings).Build();
}

}  // namespace report
