#include "report/HtmlTable.h"

#include "report/HtmlText.h"

#include <algorithm>
#include <fmt/format.h>

namespace report {

namespace {

constexpr std::size_t kMostRows = 3000;  ///< a page with more takes its reader's browser minutes to lay out
constexpr int kMostBehindPoint = 9;      ///< classes p1 to p9 of the page's style

std::string Span(const char* name, int count) {
    return count > 1 ? fmt::format(" {}=\"{}\"", name, count) : std::string();
}

/// A long label may be broken anywhere; a short one only between words.
std::string Class(const std::string& name, const Label& label) {
    constexpr std::size_t kLong = 40;
    std::string classes = name;
    if (label.fText.size() > kLong) classes += classes.empty() ? "long" : " long";
    return classes.empty() ? classes : " class=\"" + classes + "\"";
}

class HtmlTableWriter {
public:
    explicit HtmlTableWriter(const Layout& layout)
        : fLayout(layout),
          fHeadingColumns(static_cast<int>(layout.fvHeadingTitles.size())),
          fBehind(layout.fColumns, 0) {
        for (const auto& row : layout.fvRows) {
            for (std::size_t c = 0; c < row.fvCells.size(); ++c) {
                // A missing figure is a lone point and asks for no room behind it.
                if (row.fvCells[c] && row.fvCells[c]->fValue) {
                    fBehind[c] = std::max(fBehind[c], row.fvCells[c]->fBehindPoint);
                }
            }
        }
    }

    std::string Write() {
        fOut += fmt::format("<div class=\"scroll\" tabindex=\"0\"><table{}>\n",
                            fLayout.fMinDataColumnWidth > 0 ? " class=\"wide\"" : "");
        fOut += "<caption>" + Escaped(fLayout.fTitle);
        for (const auto& note : fLayout.fvNotes)
            fOut += "<span class=\"note\">" + Escaped(note) + "</span>";
        fOut += "</caption>\n";
        WriteHead();
        WriteBody();
        fOut += "</table></div>\n";
        WriteFoot();
        return std::move(fOut);
    }

private:
    bool HasHead() const {
        const auto titled = [](const Label& title) { return !title.fText.empty(); };
        return !fLayout.fvHeader.empty() ||
               std::any_of(fLayout.fvHeadingTitles.begin(), fLayout.fvHeadingTitles.end(), titled);
    }

    void WriteHead() {
        if (!HasHead()) return;
        const int rows = std::max<int>(1, static_cast<int>(fLayout.fvHeader.size()));
        std::vector<std::vector<bool>> taken(rows, std::vector<bool>(fLayout.fColumns, false));
        fOut += "<thead>\n";
        for (int row = 0; row < rows; ++row) {
            fOut += "<tr>";
            if (row == 0) WriteHeadingTitles(rows);
            if (!fLayout.fvHeader.empty()) WriteHeaderRow(row, taken);
            fOut += "</tr>\n";
        }
        fOut += "</thead>\n";
    }

    void WriteHeadingTitles(int rows) {
        for (const auto& title : fLayout.fvHeadingTitles) {
            const char* tag = title.fText.empty() ? "td" : "th";
            const char* scope = title.fText.empty() ? "" : " scope=\"col\"";
            fOut += fmt::format("<{0}{1}{2}{3}>{4}</{0}>", tag, scope, Span("rowspan", rows), Class("rowhead", title),
                                HtmlLabel(title));
        }
        if (fLayout.fvHeader.empty() && fLayout.fColumns > 0) {
            fOut += fmt::format("<td{}></td>", Span("colspan", fLayout.fColumns));
        }
    }

    /// Header cells, and an empty cell wherever a column has none in this row and none reaches down to it.
    void WriteHeaderRow(int row, std::vector<std::vector<bool>>& taken) {
        const auto& cells = fLayout.fvHeader[row];
        auto cell = cells.begin();
        for (int column = 0; column < fLayout.fColumns;) {
            if (cell != cells.end() && cell->fFirst == column) {
                fOut += fmt::format("<th scope=\"{}\"{}{}{}>{}</th>", cell->fSpan > 1 ? "colgroup" : "col",
                                    Span("colspan", cell->fSpan), Span("rowspan", cell->fDepth),
                                    Class(Leans(*cell) ? "t" : "", cell->fLabel), HtmlLabel(cell->fLabel));
                for (int r = row; r < row + cell->fDepth; ++r) {
                    for (int c = column; c < column + cell->fSpan; ++c)
                        taken[r][c] = true;
                }
                column += cell->fSpan;
                ++cell;
            } else {
                if (!taken[row][column]) fOut += "<td></td>";
                ++column;
            }
        }
    }

    /// A header over words stands to the left as they do.
    bool Leans(const HeaderCell& cell) const {
        const auto first = fLayout.fvWords.begin() + cell.fFirst;
        return std::all_of(first, first + cell.fSpan, [](bool words) { return words; });
    }

    void WriteBody() {
        fOut += "<tbody>\n";
        bool inGroup = false;
        for (std::size_t r = 0; r < std::min(fLayout.fvRows.size(), kMostRows); ++r) {
            const Row& row = fLayout.fvRows[r];
            // With one column of row headings a group is a body of its own, which its header spans by its scope.
            const bool outer = fHeadingColumns == 1 && row.fvHeadings[0].fRows > 0 && row.fvHeadings[0].fIndent == 0;
            if (outer && r > 0 && (row.fGroup || inGroup)) fOut += "</tbody>\n<tbody>\n";
            if (outer) inGroup = row.fGroup;
            fOut += row.fGroup ? "<tr class=\"group\">" : "<tr>";
            WriteRowHeadings(row);
            for (std::size_t c = 0; c < row.fvCells.size(); ++c)
                WriteCell(row.fvCells[c], c);
            fOut += "</tr>\n";
        }
        fOut += "</tbody>\n";
    }

    void WriteRowHeadings(const Row& row) {
        const int last = LastLabel(row);
        for (int s = 0; s < fHeadingColumns; ++s) {
            const RowHeading& cell = row.fvHeadings[s];
            if (cell.fRows == 0) continue;
            const std::string indent =
                Class(cell.fIndent > 0 ? fmt::format("i{}", std::min(cell.fIndent, 4)) : std::string(), cell.fLabel);
            if (row.fGroup && s == last) {
                fOut += fmt::format("<th scope=\"{}\"{}{}>{}</th>", fHeadingColumns == 1 ? "rowgroup" : "row",
                                    Span("colspan", fHeadingColumns - s + fLayout.fColumns), indent,
                                    HtmlLabel(cell.fLabel));
            } else {
                fOut += fmt::format("<th scope=\"row\"{}{}>{}</th>", Span("rowspan", cell.fRows), indent,
                                    HtmlLabel(cell.fLabel));
            }
        }
    }

    static int LastLabel(const Row& row) {
        int last = -1;
        for (std::size_t s = 0; s < row.fvHeadings.size(); ++s) {
            if (row.fvHeadings[s].fRows > 0) last = static_cast<int>(s);
        }
        return last;
    }

    void WriteCell(const std::optional<DataCell>& cell, std::size_t column) {
        if (!cell) {
            fOut += "<td></td>";
            return;
        }
        std::string attributes;
        if (cell->fNumber) {
            // What the number lacks behind the point is made up by the class's padding.
            const int behind = fBehind[column] - std::min(fBehind[column], cell->fBehindPoint);
            const int lacking = std::min(kMostBehindPoint, behind);
            attributes = lacking > 0 ? fmt::format(" class=\"n p{}\"", lacking) : " class=\"n\"";
        } else {
            attributes = Class("", cell->fLabel);
        }
        if (cell->fValue) attributes += fmt::format(" data-v=\"{}\"", *cell->fValue);
        fOut += fmt::format("<td{}>{}</td>", attributes, HtmlLabel(cell->fLabel));
    }

    void WriteFoot() {
        if (fLayout.fvRows.size() > kMostRows) {
            fOut += fmt::format(
                "<p class=\"legend\">The first {} of {} rows. The results as text or JSON have them all.</p>\n",
                kMostRows, fLayout.fvRows.size());
        }
        if (!fLayout.fvFootnotes.empty()) {
            fOut += "<ol class=\"footnotes\">\n";
            for (const auto& note : fLayout.fvFootnotes) {
                fOut += fmt::format("<li><sup>{}</sup>{}</li>\n", note.fMark, Escaped(note.fText));
            }
            fOut += "</ol>\n";
        }
        for (const auto& line : fLayout.fvCaption)
            fOut += "<p class=\"legend\">" + Escaped(line) + "</p>\n";
    }

    const Layout& fLayout;
    int fHeadingColumns;
    std::vector<int> fBehind;
    std::string fOut;
};

}  // namespace

std::string HtmlLabel(const Label& label) {
    std::string text = Escaped(label.fText);
    if (!label.fMarks.empty()) text += "<sup>" + label.fMarks + "</sup>";
    return text;
}

std::string HtmlTable(const Layout& layout) {
    return HtmlTableWriter(layout).Write();
}

}  // namespace report
