#include "report/TextTable.h"

#include "host/output/FigureText.h"
#include "report/DisplayText.h"

#include <algorithm>

namespace report {

namespace {

constexpr int kGap = 2;             ///< blanks between columns
constexpr int kIndent = 2;          ///< blanks of a row inside a group
constexpr int kHeaderWidth = 14;    ///< a header beyond this is broken where it can be
constexpr int kSpanWidth = 26;      ///< the same for a header over several columns
constexpr int kLongestWord = 24;    ///< a word beyond this is broken
constexpr int kLeastHeading = 12;   ///< a column of row headings isn't made narrower
constexpr int kLeastCell = 8;       ///< nor a column of texts
constexpr int kMinWidthUnits = 10;  ///< units of a table's minimum column width in a character

int LongestWord(const std::string& text) {
    int longest = 0;
    std::size_t at = 0;
    while (at <= text.size()) {
        const std::size_t end = std::min(text.find_first_of(" \n", at), text.size());
        longest = std::max(longest, DisplayWidth(std::string_view(text).substr(at, end - at)));
        at = end + 1;
    }
    return std::min(longest, kLongestWord);
}

int LongestLine(std::string_view text) {
    int longest = 0;
    while (true) {
        const std::size_t end = text.find('\n');
        longest = std::max(longest, DisplayWidth(text.substr(0, end)));
        if (end == std::string_view::npos) return longest;
        text.remove_prefix(end + 1);
    }
}

bool IsMissing(const DataCell& cell) {
    return cell.fLabel.fText == host::kMissingFigure;
}

std::string Trimmed(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

/// Footnote marks: raised letters, or letters in brackets.
std::string MarkText(const std::string& marks, bool unicode) {
    static const char* const kRaised[] = {"ᵃ", "ᵇ", "ᶜ", "ᵈ", "ᵉ", "ᶠ", "ᵍ", "ʰ", "ⁱ", "ʲ", "ᵏ", "ˡ", "ᵐ",
                                          "ⁿ", "ᵒ", "ᵖ", "q", "ʳ", "ˢ", "ᵗ", "ᵘ", "ᵛ", "ʷ", "ˣ", "ʸ", "ᶻ"};
    if (marks.empty()) return marks;
    if (!unicode) return "[" + marks + "]";
    std::string raised;
    for (const char c : marks)
        raised += c == ',' ? "˒" : kRaised[c - 'a'];
    return raised;
}

class TextTableWriter {
public:
    TextTableWriter(const Layout& layout, const TextStyle& style) : fLayout(layout), fStyle(style) {
        MeasureHeadings();
        MeasureColumns();
    }

    std::string Write() {
        WriteTitle();
        int first = 0;
        do {
            const int end = PanelEnd(first);
            if (first > 0) fOut += '\n';
            WritePanel(first, end);
            first = end;
        } while (first < fLayout.fColumns);
        const int width = fStyle.fWidth > 0 ? fStyle.fWidth : 1 << 20;
        for (const auto& note : fLayout.fvFootnotes)
            WriteParagraph(note.fMark + ". " + note.fText, width);
        for (const auto& line : fLayout.fvCaption)
            WriteParagraph(line, width);
        return std::move(fOut);
    }

private:
    std::string LabelText(const Label& label) const { return label.fText + MarkText(label.fMarks, fStyle.fUnicode); }

    void MeasureHeadings() {
        const std::size_t columns = fLayout.fvHeadingTitles.size();
        fHeadingWidths.assign(columns, 0);
        for (std::size_t s = 0; s < columns; ++s)
            fHeadingWidths[s] = LongestLine(LabelText(fLayout.fvHeadingTitles[s]));
        for (const auto& row : fLayout.fvRows) {
            for (std::size_t s = 0; s < columns; ++s) {
                const auto& cell = row.fvHeadings[s];
                fHeadingWidths[s] =
                    std::max(fHeadingWidths[s], LongestLine(LabelText(cell.fLabel)) + kIndent * cell.fIndent);
            }
        }
        if (fStyle.fWidth <= 0) return;
        // The row headings leave at least half of the line to the cells; the widest column gives way.
        const int most = std::max(kLeastHeading, fStyle.fWidth / 2);
        while (HeadingWidth() > most) {
            auto widest = std::max_element(fHeadingWidths.begin(), fHeadingWidths.end());
            if (*widest <= kLeastHeading) break;
            --*widest;
        }
    }

    int HeadingWidth() const {
        int width = 0;
        for (const int column : fHeadingWidths)
            width += column + kGap;
        return std::max(0, width - kGap);
    }

    void MeasureColumns() {
        fWidths.assign(fLayout.fColumns, std::min(fLayout.fMinDataColumnWidth / kMinWidthUnits, 2 * kLeastCell));
        fBehind.assign(fLayout.fColumns, 0);
        fMarks.assign(fLayout.fColumns, 0);
        std::vector<int> before(fLayout.fColumns, 0);
        std::vector<int> words(fLayout.fColumns, 0);
        for (const auto& row : fLayout.fvRows) {
            for (std::size_t c = 0; c < row.fvCells.size(); ++c) {
                if (!row.fvCells[c]) continue;
                const DataCell& cell = *row.fvCells[c];
                const int width = LongestLine(cell.fLabel.fText);
                const int marks = DisplayWidth(MarkText(cell.fLabel.fMarks, fStyle.fUnicode));
                if (cell.fNumber) {
                    // A missing figure is a lone point: it stands under the others' points, if they have any.
                    const int behind = IsMissing(cell) ? 0 : cell.fBehindPoint;
                    fBehind[c] = std::max(fBehind[c], behind);
                    before[c] = std::max(before[c], width - behind);
                    fMarks[c] = std::max(fMarks[c], marks);
                } else {
                    words[c] = std::max(words[c], width + marks);
                }
            }
        }
        const int most = fStyle.fWidth > 0 ? std::max(kLeastCell, fStyle.fWidth - HeadingWidth() - kGap) : 1 << 20;
        for (int c = 0; c < fLayout.fColumns; ++c) {
            const int numbers = before[c] + fBehind[c] + fMarks[c];
            fWidths[c] = std::max({fWidths[c], numbers, std::min(words[c], most)});
        }
        MeasureHeader();
    }

    void MeasureHeader() {
        for (auto row = fLayout.fvHeader.rbegin(); row != fLayout.fvHeader.rend(); ++row) {
            for (const auto& cell : *row) {
                const std::string text = LabelText(cell.fLabel);
                const int most = cell.fSpan > 1 ? kSpanWidth : kHeaderWidth;
                const int wanted = std::max(LongestWord(text), std::min(LongestLine(text), most));
                while (SpanWidth(cell.fFirst, cell.fFirst + cell.fSpan) < wanted) {
                    // The narrowest of the columns below grows.
                    ++*std::min_element(fWidths.begin() + cell.fFirst, fWidths.begin() + cell.fFirst + cell.fSpan);
                }
            }
        }
    }

    int SpanWidth(int first, int end) const {
        int width = -kGap;
        for (int c = first; c < end; ++c)
            width += fWidths[c] + kGap;
        return width;
    }

    int PanelEnd(int first) const {
        int width = HeadingWidth();
        int end = first;
        while (end < fLayout.fColumns) {
            width += fWidths[end] + (width > 0 ? kGap : 0);
            if (fStyle.fWidth > 0 && width > fStyle.fWidth && end > first) break;
            ++end;
        }
        end = std::max(end, std::min(first + 1, fLayout.fColumns));
        // A header over several columns keeps them together where a panel of its own can hold them.
        for (const auto& row : fLayout.fvHeader) {
            for (const auto& cell : row) {
                if (cell.fFirst > first && cell.fFirst < end && cell.fFirst + cell.fSpan > end &&
                    HeadingWidth() + kGap + SpanWidth(cell.fFirst, cell.fFirst + cell.fSpan) <= fStyle.fWidth) {
                    return cell.fFirst;
                }
            }
        }
        return end;
    }

    std::string Rule(int width, bool heavy = false) const {
        std::string rule;
        const char* piece = !fStyle.fUnicode ? (heavy ? "=" : "-") : (heavy ? "━" : "─");
        for (int i = 0; i < width; ++i)
            rule += piece;
        return rule;
    }

    void WriteLine(std::string line) { fOut += Trimmed(std::move(line)) + '\n'; }

    void WriteParagraph(const std::string& text, int width) {
        for (auto& line : Wrap(text, width))
            WriteLine(std::move(line));
    }

    void WriteTitle() {
        const int width = fStyle.fWidth > 0 ? fStyle.fWidth : 1 << 20;
        for (const auto& line : Wrap(fLayout.fTitle, width)) {
            WriteLine(fStyle.fEmphasis ? "\x1b[1m" + line + "\x1b[0m" : line);
        }
        for (const auto& note : fLayout.fvNotes)
            WriteParagraph(note, width);
    }

    void WritePanel(int first, int end) {
        const int heading = HeadingWidth();
        const int width = heading + (heading > 0 && end > first ? kGap : 0) + std::max(0, SpanWidth(first, end));
        WriteLine(Rule(width, true));
        if (!fLayout.fvHeader.empty() || HasHeadingTitle()) {
            WriteHeader(first, end);
            WriteLine(Rule(width));
        }
        for (const auto& row : fLayout.fvRows)
            WriteRow(row, first, end);
        WriteLine(Rule(width, true));
    }

    bool HasHeadingTitle() const {
        return std::any_of(fLayout.fvHeadingTitles.begin(), fLayout.fvHeadingTitles.end(),
                           [](const Label& title) { return !title.fText.empty(); });
    }

    /// Lines of blocks that stand side by side, each aligned to the bottom or the top.
    void WriteBlocks(const std::vector<std::vector<std::string>>& blocks, const std::vector<int>& widths, bool bottom) {
        std::size_t height = 1;
        for (const auto& block : blocks)
            height = std::max(height, block.size());
        for (std::size_t i = 0; i < height; ++i) {
            std::string line;
            for (std::size_t b = 0; b < blocks.size(); ++b) {
                const std::size_t skip = bottom ? height - blocks[b].size() : 0;
                const bool has = i >= skip && i - skip < blocks[b].size();
                if (b > 0) line.append(kGap, ' ');
                line += PadRight(has ? blocks[b][i - skip] : std::string(), widths[b]);
            }
            WriteLine(std::move(line));
        }
    }

    void WriteHeader(int first, int end) {
        const std::size_t height = fLayout.fvHeader.size();
        for (std::size_t row = 0; row < std::max<std::size_t>(height, 1); ++row) {
            const bool last = row + 1 >= height;
            std::vector<std::vector<std::string>> blocks;
            std::vector<int> widths;
            for (std::size_t s = 0; s < fHeadingWidths.size(); ++s) {
                blocks.push_back(last ? Wrap(LabelText(fLayout.fvHeadingTitles[s]), fHeadingWidths[s])
                                      : std::vector<std::string>());
                widths.push_back(fHeadingWidths[s]);
            }
            for (int c = first; c < end;) {
                const HeaderCell* cell = HeaderAt(row, c, height);
                const int stop = cell ? std::min(end, cell->fFirst + cell->fSpan) : c + 1;
                widths.push_back(SpanWidth(c, stop));
                blocks.push_back(cell ? HeaderLines(*cell, widths.back(), last) : std::vector<std::string>());
                c = stop;
            }
            if (last || std::any_of(blocks.begin(), blocks.end(), [](const auto& block) { return !block.empty(); })) {
                WriteBlocks(blocks, widths, true);
            }
        }
    }

    /// The cell whose label is written in a header row: its own row, or the last that it reaches down to.
    const HeaderCell* HeaderAt(std::size_t row, int column, std::size_t height) const {
        for (std::size_t r = 0; r <= row && r < height; ++r) {
            for (const auto& cell : fLayout.fvHeader[r]) {
                if (r + cell.fDepth - 1 == row && column >= cell.fFirst && column < cell.fFirst + cell.fSpan) {
                    return &cell;
                }
            }
        }
        return nullptr;
    }

    std::vector<std::string> HeaderLines(const HeaderCell& cell, int width, bool leaf) const {
        std::vector<std::string> lines = Wrap(LabelText(cell.fLabel), width);
        for (auto& line : lines) {
            line = !leaf             ? Centre(line, width)
                   : IsText(cell)    ? line
                   : cell.fSpan == 1 ? PadLeft(line, width - fMarks[cell.fFirst])
                                     : Centre(line, width);
        }
        if (!leaf) lines.push_back(Rule(width));
        return lines;
    }

    /// A column of texts stands to the left, header too.
    bool IsText(const HeaderCell& cell) const { return fBehind[cell.fFirst] == 0 && !HasNumber(cell.fFirst); }

    bool HasNumber(int column) const {
        return std::any_of(fLayout.fvRows.begin(), fLayout.fvRows.end(), [&](const Row& row) {
            return !row.fGroup && row.fvCells[column] && row.fvCells[column]->fNumber;
        });
    }

    void WriteRow(const Row& row, int first, int end) {
        std::vector<std::vector<std::string>> blocks;
        std::vector<int> widths;
        for (std::size_t s = 0; s < fHeadingWidths.size(); ++s) {
            const RowHeading& cell = row.fvHeadings[s];
            const std::string indent(static_cast<std::size_t>(kIndent * cell.fIndent), ' ');
            auto lines = cell.fRows > 0 ? Wrap(LabelText(cell.fLabel), fHeadingWidths[s] - kIndent * cell.fIndent)
                                        : std::vector<std::string>();
            for (auto& line : lines)
                line.insert(0, indent);
            blocks.push_back(std::move(lines));
            widths.push_back(fHeadingWidths[s]);
        }
        for (int c = first; c < end && !row.fGroup; ++c) {
            blocks.push_back(row.fvCells[c] ? CellLines(*row.fvCells[c], c) : std::vector<std::string>());
            widths.push_back(fWidths[c]);
        }
        WriteBlocks(blocks, widths, false);
    }

    std::vector<std::string> CellLines(const DataCell& cell, int column) const {
        if (!cell.fNumber) return Wrap(LabelText(cell.fLabel), fWidths[column]);
        const std::string marks = PadRight(MarkText(cell.fLabel.fMarks, fStyle.fUnicode), fMarks[column]);
        const int behind = fBehind[column] - std::min(fBehind[column], cell.fBehindPoint);
        const std::string number = cell.fLabel.fText + (cell.fLabel.fMarks.empty() ? std::string() : marks);
        const int filled = behind + (cell.fLabel.fMarks.empty() ? fMarks[column] : 0);
        return {PadLeft(number + std::string(static_cast<std::size_t>(std::max(0, filled)), ' '), fWidths[column])};
    }

    const Layout& fLayout;
    const TextStyle& fStyle;
    std::vector<int> fHeadingWidths;  ///< width of each column of row headings
    std::vector<int> fWidths;         ///< width of each data column
    std::vector<int> fBehind;         ///< characters from the point on, per data column
    std::vector<int> fMarks;          ///< columns kept for marks behind numbers
    std::string fOut;
};

}  // namespace

std::string TextTable(const Layout& layout, const TextStyle& style) {
    return TextTableWriter(layout, style).Write();
}

}  // namespace report
