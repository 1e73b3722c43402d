#include "report/TextRenderer.h"

#include "report/DisplayText.h"

#include <algorithm>

namespace report {

namespace {

class TextWriter : public output::Visitor {
public:
    TextWriter(const TextStyle& style, const host::Catalogue& strings) : fStyle(style), fStrings(strings) {}

    void WriteItem(const Item& item, std::size_t shared) {
        for (std::size_t h = shared; h < item.fvHeadings.size(); ++h)
            WriteHeading(item.fvHeadings[h], h);
        if (!fOut.empty()) fOut += '\n';
        item.fpBlock->Visit(*this);
    }

    void Show(const output::Table& table) override { fOut += TextTable(MakeLayout(table, fStrings), fStyle); }
    void Show(const output::Message& message) override { WriteParagraph(MessageText(message, fStrings)); }
    void Show(const output::Chart& chart) override {
        const output::ChartModel& model = *chart.fpModel;
        const std::string subtitle = model.fSubtitle.empty() ? "" : " (" + model.fSubtitle + ")";
        WriteParagraph("[Chart: " + Clean(model.fTitle + subtitle) + "] " + Clean(model.fSummary));
    }

    std::string fOut;

private:
    void WriteParagraph(const std::string& text) {
        for (const auto& line : Wrap(text, fStyle.fWidth > 0 ? fStyle.fWidth : 1 << 20))
            fOut += line + '\n';
    }

    /// A rule with the title in it; heavier for the outermost headings.
    void WriteHeading(const std::string& title, std::size_t depth) {
        if (!fOut.empty()) fOut += '\n';
        const char* piece = fStyle.fUnicode ? (depth == 0 ? "═" : "─") : (depth == 0 ? "=" : "-");
        const int width = fStyle.fWidth > 0 ? fStyle.fWidth : kHeadingWidth;
        auto lines = Wrap(title, width - 6);
        const int left = std::max(0, width - 4 - DisplayWidth(lines.front()));
        std::string rule = Repeat(piece, 2) + " " + lines.front();
        if (lines.size() == 1) rule += " " + Repeat(piece, left);
        fOut += (fStyle.fEmphasis ? "\x1b[1m" + rule + "\x1b[0m" : rule) + '\n';
        for (std::size_t i = 1; i < lines.size(); ++i)
            fOut += "   " + lines[i] + '\n';
    }

    static std::string Repeat(const char* piece, int count) {
        std::string text;
        while (count-- > 0)
            text += piece;
        return text;
    }

    static constexpr int kHeadingWidth = 80;  ///< where the terminal has no width

    const TextStyle& fStyle;
    const host::Catalogue& fStrings;
};

}  // namespace

std::string MessageText(const output::Message& message, const host::Catalogue& strings) {
    const char* lead = message.fLevel >= kLevelError ? "Error: " : "Warning: ";
    return lead + Clean(message.fpText->Show(strings));
}

std::string RenderText(const host::OutputDocument& document, const Selection& selection, const TextStyle& style) {
    const auto& strings = host::Catalogue::Current();
    TextWriter writer(style, strings);
    Item before;
    for (const auto& item : Collect(document, selection, strings)) {
        writer.WriteItem(item, SharedHeadings(before, item));
        before = item;
    }
    return std::move(writer.fOut);
}

}  // namespace report
