#include "contracts/HostData.h"
#include "host/DataSupport.h"
#include "host/data/DataSource.h"
#include "host/data/FrontEnd.h"
#include "run/RunValue.h"

#include <clocale>
#include <cstring>
#include <gmock/gmock.h>

using namespace testing_data;
using testing::ElementsAre;

namespace {

OBS Number(double value) {
    OBS cell;
    cell.fNumber = value;
    return cell;
}

std::string Print(double value, QVTA_Format format) {
    const OBS cell = Number(value);
    return ToString(&cell, format);
}

TEST(HostData, ValuesPrintInTheirFormats) {
    EXPECT_EQ(Print(1234.5678, {10, kFormatNumeric, 2}), "   1234.57");
    EXPECT_EQ(Print(-0.001, {6, kFormatNumeric, 2}), "  0.00");
    EXPECT_EQ(Print(-1.7976931348623157e308, {4, kFormatNumeric, 2}), "   .");
    EXPECT_EQ(Print(1e30, {12, kFormatNumeric, 2}), "       1e+30");
    EXPECT_EQ(Print(123456, {3, kFormatNumeric, 0}), "***");
    EXPECT_EQ(Print(0.1, {40, 17, 16}).substr(35), "1e-01");
    OBS text[2];
    std::memcpy(text, "Zo\xC3\xAB and b  ", 16 - 4);
    std::memset(text[1].fText + 4, ' ', 4);
    EXPECT_EQ(ToString(text, {10, kFormatA, 0}), "Zo\xC3\xAB and b");
    EXPECT_EQ(ToString(text, {4, kFormatAHEX, 0}), "5A6F");
    char buffer[8];
    std::memset(buffer, '#', 8);
    const OBS cell = Number(2.5);
    EXPECT_EQ(ToString(&cell, {6, kFormatNumeric, 1}, buffer), 0);
    EXPECT_EQ(std::string(buffer, 8), "   2.5##");
    EXPECT_NE(ToString(nullptr, {6, kFormatNumeric, 1}, buffer), 0);
}

TEST(HostData, PackedFormatsUnpackByTheirRules) {
    EXPECT_EQ(UnpackFormat(0x00052802), (QVTA_Format{40, 5, 2}));
    EXPECT_EQ(UnpackFormat(0x0005FF03), (QVTA_Format{40, 5, 3}));
    EXPECT_EQ(UnpackFormat(0x00012C01), (QVTA_Format{0x2C + 256, 1, 0}));
    EXPECT_EQ(UnpackFormat(0x0002FF00), (QVTA_Format{255, 2, 0}));
}

TEST(HostData, TextHelpersKnowUtf8) {
    char text[] = "  a b  ";
    EXPECT_STREQ(QVTAMBstrtrim_A(text), "a b");
    EXPECT_EQ(QVTAMBmbclen_A("\xE2\x82\xAC"), 3);
    EXPECT_EQ(QVTAMBmbclen_A("\xE2z"), 1);
    EXPECT_EQ(GetUpperString("ab\xC3\xA9z1"), "AB\xC3\xA9Z1");
    std::vector<std::pair<bool, std::string>> seen;
    auto before = host::SetFrontEnd([&](bool line, const std::string& piece) { seen.emplace_back(line, piece); });
    BP_ToFront(1, " ");
    BP_ToFront(0, "piece");
    host::SetFrontEnd(before);
    BP_ToFront(1, "dropped");
    EXPECT_EQ(seen, (std::vector<std::pair<bool, std::string>>{{true, " "}, {false, "piece"}}));
}

TEST(HostData, ADataSourceShowsItsTable) {
    host::TableBuilder builder;
    builder.Numbers("x", {2, 1}).Texts("a long text", {"yes", "no longer"});
    builder.Last().fLabel = "Label";
    builder.Last().fTextLabels = {{"yes", "Agreed"}};
    host::DataOptions options;
    options.fSplitBy = {"x"};
    options.fWeight = "x";
    const auto table = *builder.Finish(options);
    ProcedureDataSource source(host::MakeDataSource(table));
    EXPECT_EQ(source.ColumnCount(), 2u);
    EXPECT_EQ(source.GetSplitCount(), 1u);
    EXPECT_EQ(source.GetSplitVarIndex(0), 0);
    EXPECT_EQ(source.GetSplitVarIndex(1), -1);
    EXPECT_FALSE(source.GetSplitLayering());
    EXPECT_EQ(source.GetWeightVarIndex(), 0);
    EXPECT_EQ(source.VarIndex(1), 1);
    EXPECT_EQ(source.VarIndex(2), -1);
    EXPECT_EQ(source.FindVarIndex("x", 0), 0);
    EXPECT_LT(source.FindVarIndex("x", 1), 0);
    const QVTA_Variable& text = source.GetVariable(1);
    EXPECT_EQ(text.GetType(), 9);
    EXPECT_EQ(text.GetPreferredLabel(), "Label");
    EXPECT_EQ(source.GetVariable(0).GetLabel(), nullptr);
    OBS cells[2];
    std::memcpy(cells, "yes             ", 16);
    EXPECT_STREQ(QVTA_ValueLabelMap(text.GetValueLabels()).GetLabel(cells), "Agreed");
    EXPECT_EQ(QVTA_ValueLabelMap(text.GetValueLabels()).GetLabel(std::string("no longer")), nullptr);

    EXPECT_FALSE(source.FatalError());
    run::RunValue run;
    const run::Scope scope(run);
    run.fFatal = true;
    EXPECT_TRUE(source.FatalError());

    const QVTA_Variable& kept = source.GetVariable(0);
    unsigned index = 0;
    for (int i = 0; i < 100; ++i)
        source.MakeVariable(0, index).SetName(("S" + std::to_string(i)).c_str());
    EXPECT_EQ(index, 101u);
    EXPECT_STREQ(kept.GetName(), "x");
    source.Impl().SetCell(101, 1, 5.0);
    source.Impl().SetCell(0, 0, 9.0);
    EXPECT_EQ(source.Impl().Saved(99).Cells()[1], 5.0);
    EXPECT_TRUE(std::isnan(source.Impl().Saved(99).Cells()[0]));
    EXPECT_THAT(Numbers(*table, "x"), ElementsAre(1, 2));
}

TEST(HostData, SavedColumnsMayLieInAFile) {
    host::SavedColumn column(1000, {.fMemoryBudget = 10, .fDirectory = {}});
    column.Set(999, 3.0);
    column.Set(1000, 4.0);
    EXPECT_EQ(column.Cells()[999], 3.0);
    EXPECT_TRUE(std::isnan(column.Cells()[0]));
    host::SavedColumn nowhere(1000, {.fMemoryBudget = 10, .fDirectory = "/nowhere"});
    nowhere.Set(0, 1.0);
    EXPECT_FALSE(nowhere.Error().empty());
}

TEST(ObsVecMap, KeepsRowsInPlaceAndSortsByValue) {
    ObsVecMap map({0, 12}, 1);
    ASSERT_EQ(map.CellSize(), 4u);
    std::vector<OBS*> stored;
    for (int i = 0; i < 500; ++i) {
        OBS row[4];
        row[0] = Number(static_cast<double>((i * 7) % 50) - 25.0);
        std::memset(static_cast<void*>(row + 1), ' ', 16);
        const std::string text = "key " + std::to_string(i % 10);
        std::memcpy(row[1].fText, text.data(), text.size());
        row[3] = Number(i);
        stored.push_back(map.Insert(row));
        ASSERT_EQ(map.Contains(row), stored.back());
    }
    EXPECT_EQ(map.Size(), 50u);
    EXPECT_EQ(stored[0], stored[50]);
    EXPECT_EQ(stored[50][3].fNumber, 0.0);
    EXPECT_EQ(map[0], stored[0]);
    std::vector<OBS*> rows;
    map.Sort(rows);
    for (std::size_t i = 1; i < rows.size(); ++i) {
        const bool numbers = rows[i - 1][0].fNumber < rows[i][0].fNumber;
        const bool texts =
            rows[i - 1][0].fNumber == rows[i][0].fNumber && std::memcmp(rows[i - 1] + 1, rows[i] + 1, 16) < 0;
        ASSERT_TRUE(numbers || texts);
    }
    ObsVecMap single({}, 2);
    EXPECT_EQ(single.CellSize(), 3u);
}

}  // namespace
