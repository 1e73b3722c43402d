#pragma once

#include "host/output/Tree.h"

#include <optional>
#include <string>
#include <vector>

/// A table as it is read: header rows, row headings, cells and footnotes with their marks. Text and HTML are written
/// from this.
namespace report {

struct Label {
    std::string fText;
    std::string fMarks;  ///< footnote marks, "a" or "a,b"; empty without a note
};

/// A header over columns [fFirst, fFirst + fSpan).
struct HeaderCell {
    Label fLabel;
    int fFirst = 0;
    int fSpan = 1;
    int fDepth = 1;  ///< header rows that it takes; an ungrouped category reaches down to the last
};

struct RowHeading {
    Label fLabel;
    int fIndent = 0;
    int fRows = 1;  ///< rows that it stands for; 0 where the label of a row above still holds
};

struct DataCell {
    Label fLabel;
    bool fNumber = false;          ///< stands to the right, aligned by its point
    int fBehindPoint = 0;          ///< characters from the decimal point on, for alignment
    std::optional<double> fValue;  ///< the full double behind a number that isn't missing
};

struct Row {
    bool fGroup = false;  ///< a line that names a group: its last row heading is the group's label, and it has no cells
    std::vector<RowHeading> fvHeadings;
    std::vector<std::optional<DataCell>> fvCells;
};

struct Footnote {
    std::string fMark;
    std::string fText;
};

struct Layout {
    std::string fTitle;
    std::vector<std::string> fvNotes;    ///< notes of the whole table, without marks
    std::vector<Label> fvHeadingTitles;  ///< a column of row headings each; empty where the title is hidden
    std::vector<std::vector<HeaderCell>> fvHeader;
    std::vector<Row> fvRows;
    std::vector<bool> fvWords;           ///< per column: it holds words, and all of it stands to the left
    std::vector<std::string> fvCaption;  ///< lines
    std::vector<Footnote> fvFootnotes;   ///< in reading order
    int fColumns = 0;
    int fMinDataColumnWidth = 0;
};

/// Whether a figure's text reads as a number: it may be a value label or a date, which read as words.
bool LooksNumeric(const std::string& text);

/// What a cell shows. p-values read alike in every table, whatever digits their format has for coefficients.
std::string CellText(const output::Cell& cell, const std::vector<const output::Category*>& at,
                     const host::Catalogue& strings);

Layout MakeLayout(const output::Table& table, const host::Catalogue& strings);

}  // namespace report
