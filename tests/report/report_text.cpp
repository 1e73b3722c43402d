#include "report/Approved.h"
#include "report/DisplayText.h"
#include "report/OwnTables.h"
#include "report/SampleDocument.h"
#include "report/TextRenderer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(ReportText, WidthsAndWrappingCountColumnsNotBytes) {
    const std::pair<const char*, int> widths[] = {{"abc", 3},     {"größe", 5}, {"数据", 4},
                                                  {"e\u0301", 1}, {"", 0},      {"👍", 2}};
    for (const auto& [text, width] : widths)
        EXPECT_EQ(report::DisplayWidth(text), width) << text;
    EXPECT_THAT(report::Wrap("one two three", 8), ElementsAre("one two", "three"));
    EXPECT_THAT(report::Wrap("数据数据", 5), ElementsAre("数据", "数据"));
    EXPECT_THAT(report::Wrap("abcdefgh\n\nij", 3), ElementsAre("abc", "def", "gh", "", "ij"));
    EXPECT_EQ(report::PadLeft("数", 4), "  数");
    EXPECT_EQ(report::Centre("ab", 5), " ab  ");
    EXPECT_EQ(report::Clean("a\x1b[31m\tb\xff\u202E\xc3(\r\nc"), "a[31m b\uFFFD\uFFFD( \nc");
}

TEST(ReportText, ADocumentReadsAsItWasApproved) {
    SampleDocument sample;
    sample.InformationCriteria();
    sample.Estimates();
    sample.Nested();
    AddNotes(4, BpString("Cases Used", true), BpString("Cases used ...", true));
    BpError(BpString("Model validity is uncertain ...", true), 2, 2);
    const std::string text = report::RenderText(sample.fDocument, {}, {});
    ExpectApproved("document.txt", text);
    EXPECT_THAT(text, HasSubstr("days          10.467        1.546  17   6.771    <.001"));
    EXPECT_THAT(text, HasSubstr("a. This parameter is set to zero because it is redundant."));
    EXPECT_THAT(text, testing::Not(HasSubstr("\x1b")));
    // Marks go on in reading order: the header's note, then the cells'; equal notes share one.
    EXPECT_THAT(text, HasSubstr("a. Number of trials: 12\nb. second note\n"));

    const std::string narrow = report::RenderText(sample.fDocument, {}, {48, false, true});
    ExpectApproved("narrow.txt", narrow);
    std::istringstream lines(narrow);
    for (std::string line; std::getline(lines, line);) {
        if (line.find('\x1b') == std::string::npos) EXPECT_LE(report::DisplayWidth(line), 48) << line;
    }
}

TEST(ReportText, TheSelectionLeavesHalvesOutAndShowsPredictionsOnce) {
    SampleDocument sample;
    sample.InformationCriteria();
    const BpString predictions("Empirical Best Linear Unbiased Predictions", true);
    const auto offer = [&] {
        auto table = sample.fRoot.Heading(BpString("Random Effects Parameters", true))
                         .PivotTable(predictions, predictions, false);
        table.Dimension(BpString("r", false), 2).Category(BpString("u", false)).Cell(BpString("x", false));
    };
    offer();
    sample.fDocument.SetHalf(output::Half::kViewer);
    offer();
    offer();
    sample.fRoot.Heading(BpString("Empty", false)).PivotTable(predictions, predictions, true);
    AddNotes(4, BpString("Cases Used", true), BpString("Cases used ...", true));
    const auto titles = [&](const report::Selection& selection) {
        std::vector<std::string> found;
        for (const auto& item : report::Collect(sample.fDocument, selection, host::Catalogue::Current())) {
            found.push_back(static_cast<const output::Table&>(*item.fpBlock).fpTitle->Show(host::Catalogue::Current()));
        }
        return found;
    };
    const std::string table = "Empirical Best Linear Unbiased Predictions";
    EXPECT_THAT(titles({true, true, true}), ElementsAre("Information Criteria", table, "Notes"));
    EXPECT_THAT(titles({false, true, false}), ElementsAre(table));
    EXPECT_THAT(titles({true, false, false}), ElementsAre("Information Criteria", table));
}

TEST(ReportText, OurOwnTablesStandUnderTheirSplits) {
    SampleDocument sample;
    for (const char* region : {"north", "south"}) {
        run::SplitResult split;
        split.fName = std::string("region = ") + region;
        auto& figures = split.fFigures;
        figures.fCovariance = {
            {"residual", {}, {}, {}, "ID", "Variance", 654.941, 77.186, 8.485, 2e-17, 519.8, 825.1, false},
            {"1", "subject", {}, {}, "UN", "UN(1,1)", 612.09, 288.79, 2.12, 0.034, 242.8, 1543.2, false},
            {"1",
             "subject",
             {},
             {},
             "UN",
             "UN(2,1)",
             9.604,
             run::kNone,
             run::kNone,
             run::kNone,
             run::kNone,
             run::kNone,
             true}};
        figures.fAtBound = {"1: UN(2,2)"};
        figures.fFixed = {
            {"x", "x", "yes", 0.5, 0.1, 12, 5, 0.01, 0.3, 0.7, false},
            {"x", "x", "no", 0.0, run::kNone, run::kNone, run::kNone, run::kNone, run::kNone, run::kNone, true}};
        figures.fHistory = {{0, "Fisher", 1800.5, run::kNone, 0, 1.0, {600, 500, 1}},
                            {1, "Newton", 1743.6, -56.9, 2, 1.0, {654.941, 612.09, 9.604}}};
        figures.fMatrices = {{"G Matrix", {"x", "x"}, {"x", "x"}, {{1, 2}, {3, 4}}}};
        figures.fCustomTests = {
            {"slope",
             {{1, {}, 1.5, 0, 0.5, 17, 3, 0.008, 0.4, 2.6, true},
              {2, {}, run::kNone, 0, run::kNone, run::kNone, run::kNone, run::kNone, run::kNone, run::kNone, false}},
             9,
             1,
             17,
             0.008}};
        sample.fRun.fvResults.push_back(split);
    }
    sample.fRun.fvResults.emplace_back().fName = "region = west";  // nothing was fitted: nothing stands there
    sample.fRun.fWishes.fCovarianceTests = true;
    sample.fRun.fWishes.fDocuments = false;  // the viewer's tables would show the covariance parameters
    report::AddOwnTables(sample.fRun, sample.fDocument);
    const std::string text = report::RenderText(sample.fDocument, {}, {});
    ExpectApproved("own_tables.txt", text);
    EXPECT_THAT(text, HasSubstr("══ region = south ══"));
    EXPECT_THAT(text, testing::Not(HasSubstr("west")));
    EXPECT_THAT(text, HasSubstr("Held at a bound: 1: UN(2,2)."));
    // Rows of one name stay apart.
    EXPECT_THAT(text, HasSubstr("x  1.000  2.000\nx  3.000  4.000"));
    EXPECT_EQ(sample.fRun.fSplitName, "");
}

}  // namespace
