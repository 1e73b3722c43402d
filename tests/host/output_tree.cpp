#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

BpString Plain(const std::string& text) {
    return BpString(text, false);
}

std::string Shown(const output::Text& text) {
    return text->Show(host::Catalogue::Current());
}

class OutputTree : public testing::Test {
protected:
    BpPivotTable MakeTable(bool bySplit = true) { return fRoot.PivotTable(Plain("Title"), Plain("Kind"), bySplit); }

    static const output::Table& Read(const BpPivotTable& table) {
        return static_cast<const output::Table&>(*table.Node());
    }

    /// Row by row, the cells of a table in reading order; "-" where none was written.
    static std::vector<std::string> Cells(const BpPivotTable& handle) {
        const auto& table = Read(handle);
        std::vector<std::string> lines;
        const auto columns = table.Entries(table.DimensionsAt(BpDimension::kColumn));
        for (const auto& row : table.Entries(table.DimensionsAt(BpDimension::kRow))) {
            lines.emplace_back();
            for (const auto* category : row)
                lines.back() += Shown(category->fpText) + " ";
            for (const auto& column : columns) {
                auto at = row;
                at.insert(at.end(), column.begin(), column.end());
                const output::Cell* cell = table.At(at);
                lines.back() += "|" + (cell ? Shown(cell->fpText) : std::string("-"));
            }
        }
        return lines;
    }

    /// The tree as lines, headings with what stands under them indented.
    static void Outline(const output::Heading& heading, int depth, std::vector<std::string>& lines) {
        for (const auto& block : heading.fvBlocks) {
            const std::string indent(depth, ' ');
            if (const auto* inner = dynamic_cast<const output::Heading*>(block.get())) {
                lines.push_back(indent + Shown(inner->fpTitle));
                Outline(*inner, depth + 1, lines);
            } else if (const auto* table = dynamic_cast<const output::Table*>(block.get())) {
                lines.push_back(indent + "table " + Shown(table->fpTitle));
            } else {
                lines.push_back(indent + "message");
            }
        }
    }

    void InSplit(int ordinal) {
        fRun.fSplitOrdinal = ordinal;
        fRun.fSplitName = ordinal < 0 ? "" : "g = " + std::to_string(ordinal);
    }

    run::RunValue fRun;
    run::Scope fRunScope{fRun};
    host::OutputDocument fDocument{"Linear Mixed Model"};
    host::OutputScope fScope{fDocument};
    BpProcedure fRoot = fDocument.Procedure();
};

TEST_F(OutputTree, EqualTextsUnderOneGroupAreOneCategoryAndCellsCrossTheCurrentOnes) {
    auto table = MakeTable();
    auto rows = table.Dimension(Plain("Source"), 2);
    rows.Position(0, 1, false, false);
    auto columns = table.Dimension(Plain("Statistics"), 2);
    columns.Position(1, 1, true, false);
    rows.Category(Plain("declared, never filled"));
    for (const char* source : {"b", "a"}) {
        rows.Category(Plain(source));
        columns.Category(Plain("F")).Cell(Plain(std::string("F ") + source));
        auto limits = columns.Group(Plain("Limits"), true, 2);
        limits.Category(Plain("F")).Cell(Plain("lower"));
    }
    auto again = rows.Category(Plain("b"));
    columns.Category(Plain("df"));
    again.Cell(BpNumber(3.5, BpProcedure::Count()));
    EXPECT_THAT(Cells(table), ElementsAre("b |F b|lower|3.500", "a |F a|lower|-"));
    EXPECT_EQ(Read(table).fvDimensions[0]->fNCategories, 3);

    // A key of the catalogue and the same word from the data are two categories.
    rows.Category(BpString("b", true));
    columns.Category(Plain("df")).Cell(Plain("key"));
    EXPECT_EQ(Cells(table).size(), 3U);
}

TEST_F(OutputTree, ValuesThatShareALabelStayApart) {
    auto table = MakeTable();
    auto rows = table.Dimension(Plain("Level"), 2);
    for (const char* value : {"1", "2", "1"}) {
        rows.Category(output::TextHandle(output::MakeValue("low", value, nullptr))).Cell(Plain(value));
    }
    EXPECT_THAT(Cells(table), ElementsAre("low |1", "low |2"));
}

TEST_F(OutputTree, HigherOrdersStandOutsideAndADimensionWithoutPositionInside) {
    auto table = MakeTable();
    auto inner = table.Dimension(Plain("inner"), 2);
    auto middle = table.Dimension(Plain("middle"), 2);
    auto outer = table.Dimension(Plain("outer"), BpGroup::kDescending);
    middle.Position(0, 1, false, false);
    outer.Position(0, 2, false, false);
    for (const double o : {10.0, 9.0}) {
        for (const char* m : {"z", "y"}) {
            for (const char* i : {"p", "q"}) {
                outer.Category(BpNumber(o, BpProcedure::Count()));
                middle.Category(Plain(m));
                inner.Category(Plain(i)).Cell(Plain("x"));
            }
        }
    }
    EXPECT_THAT(Cells(table), ElementsAre("10 z p |x", "10 z q |x", "10 y p |x", "10 y q |x", "9 z p |x", "9 z q |x",
                                          "9 y p |x", "9 y q |x"));
}

TEST_F(OutputTree, NotesAreKeptOnceWhereTheyWereGiven) {
    auto table = MakeTable();
    table.Note(BpAnnotation(Plain("of the table")));
    table.Caption(Plain("caption"));
    table.MinDataColumnWidth(150);
    auto rows = table.Dimension(Plain("r"), 2);
    auto category = rows.Category(Plain("a"));
    category.Note(BpAnnotation(Plain("of the category")));
    category.Cell(BpNumber(1.0 / 3, BpProcedure::Coefficient()));
    for (int i = 0; i < 2; ++i)
        category.CellNote(BpAnnotation(Plain("of the cell")));
    const auto& read = Read(table);
    EXPECT_EQ(Shown(read.fpCaption), "caption");
    EXPECT_EQ(read.fMinDataColumnWidth, 150);
    ASSERT_EQ(read.fvNotes.size(), 1U);
    const auto entry = read.Entries(read.DimensionsAt(BpDimension::kRow)).front();
    EXPECT_EQ(Shown(entry.front()->fvNotes.at(0)), "of the category");
    const output::Cell& cell = *read.At(entry);
    EXPECT_EQ(cell.fpText->AsFigure()->fValue, 1.0 / 3);
    ASSERT_EQ(cell.fvNotes.size(), 1U);
    EXPECT_EQ(Shown(cell.fvNotes[0]), "of the cell");
}

TEST_F(OutputTree, SplitsGatherWhatAsksForItInTheOrderOfTheData) {
    InSplit(-1);
    MakeTable();
    InSplit(2);
    BpError(Plain("split 2 is first to speak"), 2, 2);
    InSplit(0);
    fRoot.Heading(Plain("Fixed Effects")).PivotTable(Plain("of 0"), Plain("k"), true);
    fRoot.PivotTable(Plain("common"), Plain("k"), false);
    InSplit(2);
    // The system's own split heading says what ours says already.
    fRoot.Heading(Plain("EBLUP")).Heading(Plain("g = 2")).PivotTable(Plain("of 2"), Plain("k"), false);
    InSplit(1);
    fDocument.SetHalf(output::Half::kViewer);
    fRoot.PivotTable(Plain("viewer"), Plain("k"), false);
    std::vector<std::string> lines;
    Outline(fDocument.Root(), 0, lines);
    EXPECT_THAT(lines, ElementsAre("table Title", "g = 0", " Fixed Effects", "  table of 0", "g = 1", " table viewer",
                                   "g = 2", " message", " EBLUP", "  table of 2", "table common"));
    EXPECT_FALSE(fRun.fFatal);
    BpError(Plain("the end"), 2, 3);
    EXPECT_TRUE(fRun.fFatal);
}

TEST_F(OutputTree, NotesTableGroupsItsRowsByKind) {
    EXPECT_EQ(fDocument.Notes(), nullptr);
    AddNotes(4, BpString("Cases Used", true), BpString("Cases used ...", true));
    AddNotes(2, Plain("Model File"), Plain("m.pmml"));
    AddNotes(0, BpString("Weight Handling", true), BpString("not applicable", true));
    const auto& table = *fDocument.Notes();
    std::vector<std::string> rows;
    for (const auto& entry : table.Entries(table.DimensionsAt(BpDimension::kRow))) {
        rows.push_back(Shown(entry[0]->fpGroup->fpText) + ": " + Shown(entry[0]->fpText) + ": " +
                       Shown(table.At(entry)->fpText));
    }
    EXPECT_THAT(rows, ElementsAre(testing::HasSubstr("Input: Cases Used: Statistics are based"),
                                  "Input: Weight Handling: Not applicable", "Output Files: Model File: m.pmml"));
}

}  // namespace
