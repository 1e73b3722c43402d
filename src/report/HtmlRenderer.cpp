#include "report/HtmlRenderer.h"

#include "report/ChartDrawing.h"
#include "report/DisplayText.h"
#include "report/HtmlTable.h"
#include "report/HtmlText.h"
#include "report/Layout.h"
#include "report/PageAssets.h"

#include <algorithm>
#include <fmt/format.h>
#include <string_view>

namespace report {

namespace {

constexpr std::size_t kDeepestHeading = 5;    ///< h2 to h6 stand for headings of the tree
constexpr std::size_t kMostChartRows = 1000;  ///< of a chart's table; a page stays readable
constexpr std::size_t kOutlineLetters = 80;   ///< an outline entry is cut behind this many bytes

/// A hash in hexadecimal digits as a content security policy writes it, in base 64 (RFC 4648).
std::string PolicyHash(std::string_view hex) {
    static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto digit = [](char c) { return static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10); };
    std::string text;
    unsigned bits = 0;
    int count = 0;
    for (const char c : hex) {
        bits = bits << 4 | digit(c);
        count += 4;
        if (count >= 6) text += kLetters[bits >> (count -= 6) & 63];
    }
    if (count > 0) text += kLetters[bits << (6 - count) & 63];
    while (text.size() % 4 != 0)
        text += '=';
    return "'sha256-" + text + "'";
}

/// charts: the page carries the script that draws them.
std::string Policy(bool charts) {
    std::string scripts = PolicyHash(kPageScriptHash);
    if (charts) scripts += " " + PolicyHash(kChartScriptHash);
    return fmt::format(
        "default-src 'none'; style-src {}; script-src {}; img-src data: blob:; base-uri 'none'; form-action 'none'",
        PolicyHash(kPageStyleHash), scripts);
}

/// The first letters of a text, whole characters only.
std::string Shortened(const std::string& text) {
    if (text.size() <= kOutlineLetters) return text;
    std::size_t end = kOutlineLetters;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end) + "…";
}

/// The outline and the page's body, written side by side.
class PageWriter : public output::Visitor {
public:
    explicit PageWriter(const host::Catalogue& strings) : fStrings(strings) {}

    void WriteItem(const Item& item, std::size_t shared) {
        CloseTo(shared);
        while (fDepth < item.fvHeadings.size())
            OpenHeading(item.fvHeadings[fDepth]);
        item.fpBlock->Visit(*this);
    }

    void Finish() { CloseTo(0); }

    void Show(const output::Table& table) override {
        const Layout layout = MakeLayout(table, fStrings);
        const std::string id = NextId();
        AddEntry(id, layout.fTitle, "table");
        fBody += fmt::format("<section class=\"block\" id=\"{}\">\n{}</section>\n", id, HtmlTable(layout));
    }

    void Show(const output::Message& message) override {
        const bool error = message.fLevel >= kLevelError;
        fBody += fmt::format("<p class=\"message {}\" role=\"note\"><strong>{}</strong> {}</p>\n",
                             error ? "error" : "warning", error ? "Error." : "Warning.",
                             Escaped(message.fpText->Show(fStrings)));
    }

    void Show(const output::Chart& chart) override {
        const output::ChartModel& model = *chart.fpModel;
        const ChartDrawing drawing = DrawChart(model, fStrings);
        const std::string id = NextId();
        AddEntry(id, Clean(model.fTitle), "chart");
        fHasCharts |= !drawing.fDocument.empty();
        fBody += fmt::format("<figure class=\"block chart\" id=\"{}\">\n<figcaption>{}", id, Escaped(model.fTitle));
        if (!model.fSubtitle.empty()) fBody += "<span class=\"note\">" + Escaped(model.fSubtitle) + "</span>";
        fBody += "</figcaption>\n";
        if (!drawing.fDocument.empty()) {
            fBody += fmt::format("<div class=\"drawing\" role=\"img\" aria-label=\"{}\"></div>\n",
                                 Escaped(ChartSummary(model)));
            fBody += fmt::format("<script type=\"application/json\" class=\"drawing-data\">{}</script>\n",
                                 ScriptSafe(drawing.fDocument));
        }
        std::vector<std::string> notes{model.fCaption};
        notes.insert(notes.end(), model.fvFootnotes.begin(), model.fvFootnotes.end());
        notes.push_back(drawing.fNote);
        for (const auto& note : notes) {
            if (!note.empty()) fBody += "<p class=\"legend\">" + Escaped(note) + "</p>\n";
        }
        WriteRows(model);
        fBody += "</figure>\n";
    }

    std::string fOutline;
    std::string fBody;
    bool fHasCharts = false;

private:
    std::string NextId() { return fmt::format("b{}", ++fBlocks); }

    void AddEntry(const std::string& id, const std::string& title, const char* kind) {
        fOutline += fmt::format("<li class=\"{}\"><a href=\"#{}\">{}</a></li>\n", kind, id, Escaped(Shortened(title)));
    }

    void OpenHeading(const std::string& title) {
        const std::string id = NextId();
        const std::size_t level = std::min(fDepth, kDeepestHeading - 1) + 2;
        fOutline += fmt::format("<li class=\"heading\"><a href=\"#{}\">{}</a>\n<ul>\n", id, Escaped(Shortened(title)));
        fBody += fmt::format("<section id=\"{}\">\n<h{}>{}</h{}>\n", id, level, Escaped(title), level);
        ++fDepth;
    }

    void CloseTo(std::size_t depth) {
        for (; fDepth > depth; --fDepth) {
            fOutline += "</ul></li>\n";
            fBody += "</section>\n";
        }
    }

    /// The rows that a chart draws. Open, so that they stand there where no script draws; the script closes it.
    void WriteRows(const output::ChartModel& model) {
        fBody +=
            "<details class=\"rows\" open=\"\"><summary>Data of this chart</summary>\n<div class=\"scroll\"><table>\n";
        fBody += fmt::format("<caption>{}</caption>\n<thead><tr>", Escaped(ChartSummary(model)));
        const auto rows = model.RowTexts();
        const auto titles = model.ColumnTitles();
        for (std::size_t c = 0; c < titles.size(); ++c) {
            const bool words = std::any_of(rows.begin(), rows.end(),
                                           [c](const auto& row) { return !row[c].empty() && !LooksNumeric(row[c]); });
            fBody += (words ? "<th scope=\"col\" class=\"t\">" : "<th scope=\"col\">") + Escaped(titles[c]) + "</th>";
        }
        fBody += "</tr></thead>\n<tbody>\n";
        const std::size_t shown = std::min(rows.size(), kMostChartRows);
        for (std::size_t r = 0; r < shown; ++r) {
            fBody += "<tr>";
            for (const auto& cell : rows[r])
                fBody += (LooksNumeric(cell) ? "<td class=\"n\">" : "<td>") + Escaped(cell) + "</td>";
            fBody += "</tr>\n";
        }
        fBody += "</tbody></table></div>\n";
        if (rows.size() > shown) {
            fBody +=
                fmt::format("<p class=\"legend\">The first {} of {} rows. The results as JSON have them all.</p>\n",
                            shown, rows.size());
        }
        fBody += "</details>\n";
    }

    const host::Catalogue& fStrings;
    std::size_t fDepth = 0;
    int fBlocks = 0;
};

std::string Head(const std::string& title, bool charts) {
    return fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"{}\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light dark\">\n<title>{}</title>\n<style>{}</style>\n</head>\n",
        Policy(charts), Escaped(title), kPageStyle);
}

}  // namespace

std::string RenderHtml(const host::OutputDocument& document, const Selection& selection, const PageInfo& info) {
    const auto& strings = host::Catalogue::Current();
    PageWriter writer(strings);
    Item before;
    for (const auto& item : Collect(document, selection, strings)) {
        writer.WriteItem(item, SharedHeadings(before, item));
        before = item;
    }
    writer.Finish();
    const std::string title = info.fTitle.empty() ? document.Title()->Show(strings) : info.fTitle;
    const bool charts = writer.fHasCharts && *kChartScript;
    std::string page = Head(title, charts) + "<body>\n<header>\n<h1>" + Escaped(title) + "</h1>\n";
    if (!info.fCommand.empty()) page += "<pre class=\"command\">" + Escaped(info.fCommand) + "</pre>\n";
    page += "</header>\n<div class=\"page\">\n<details class=\"outline\" open=\"\"><summary>Contents</summary>\n";
    page += "<nav aria-label=\"Contents\"><ul>\n" + writer.fOutline + "</ul></nav></details>\n";
    page += "<main>\n" + writer.fBody + "</main>\n</div>\n";
    page += "<footer>hierfit " + Escaped(info.fVersion) + "</footer>\n";
    if (charts) page += "<script>" + std::string(kChartScript) + "</script>\n";
    page += "<script>" + std::string(kPageScript) + "</script>\n</body>\n</html>\n";
    return page;
}

}  // namespace report
