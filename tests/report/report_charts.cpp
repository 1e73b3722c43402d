#include "report/ChartDrawing.h"
#include "report/ChartFiles.h"
#include "report/SampleDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>

/// Chart models as Vega-Lite documents.
namespace {

using Json = nlohmann::json;
using output::ChartMark;
using testing::ElementsAre;
using testing::HasSubstr;

/// Points with limits over levels, two rows each, in panels of a second field.
output::ChartModel Means(int levels, int panels) {
    output::ChartModel chart;
    chart.fTitle = "Yield by Variety";
    chart.fSummary = "Means.";
    output::ChartSource& source = chart.fvSources.emplace_back();
    source.fName = "s";
    source.fRowsPerCase = 2;
    source.fvFields.resize(4);
    source.fvFields[0] = {"level", "Variety", true, {}, "", {}};
    source.fvFields[1] = {"mean", "Yield", false, QVTA_Format{8, kFormatNumeric, 2}, "", {}};
    source.fvFields[2] = {"limit", "", false, {}, "", {}};
    source.fvFields[3] = {"panel", "Block", true, {}, "Block = ", {}};
    for (int p = 0; p < panels; ++p) {
        for (int i = 0; i < levels; ++i) {
            for (int row = 0; row < 2; ++row)
                source.fvRows.push_back({1.0 * i, 10.0 + i, 9.0 + i + 2 * row, 1.0 * p});
        }
    }
    const auto layer = [&chart](ChartMark mark, std::initializer_list<std::pair<const char*, const char*>> channels) {
        output::ChartLayer& made = chart.fvLayers.emplace_back();
        made.fMark = mark;
        made.fSource = "s";
        for (const auto& [role, field] : channels) {
            auto& channel = made.fvChannels.emplace_back();
            channel.fRole = role;
            channel.fField = field;
            channel.fRow = std::string(role) == "y2" ? 1 : 0;
        }
    };
    layer(ChartMark::kInterval, {{"x", "level"}, {"y", "limit"}, {"y2", "limit"}});
    layer(ChartMark::kPoint, {{"x", "level"}, {"y", "mean"}});
    chart.fvAxes = {{"x", "Variety", true, {}, {}}, {"y", "Yield", true, {}, {}}};
    chart.fvColumns = {{"s", "level", 0, "Variety"}, {"s", "mean", 0, "Mean"}, {"s", "limit", 1, "Upper"}};
    if (panels > 1) chart.fvFacets = {"panel"};
    return chart;
}

Json Drawn(const output::ChartModel& chart) {
    return Json::parse(report::DrawChart(chart, host::Catalogue::Current()).fDocument);
}

TEST(ChartDrawing, MarksEncodeTheRowsAndTooltipsTellThem) {
    output::ChartModel chart = Means(2, 1);
    chart.fvSources[0].fvFields[0].fvRelabels = {{0.0, "same"}, {1.0, "same"}};
    chart.fvGuides = {{false, 10.5, {}}};
    const Json json = Drawn(chart);
    const Json& rows = json["data"]["values"];
    ASSERT_EQ(rows.size(), 3U);
    const Json& limits = json["layer"][1]["encoding"];
    EXPECT_EQ(rows[1][limits["y"]["field"].get<std::string>()], 9.0);
    EXPECT_EQ(rows[1][limits["y2"]["field"].get<std::string>()], 11.0);
    // Values that share a label stay apart, in the order of the values.
    EXPECT_EQ(rows[1][limits["x"]["field"].get<std::string>()], "same (0)");
    EXPECT_EQ(limits["x"]["sort"], Json::array({"same (0)", "same (1)"}));
    std::vector<std::string> said;
    for (const Json& line : limits["tooltip"])
        said.push_back(line["title"].get<std::string>() + " " +
                       rows[2][line["field"].get<std::string>()].get<std::string>());
    EXPECT_THAT(said, ElementsAre("Variety same", "Mean 11.00", "Upper 12"));
    EXPECT_EQ(json["layer"][2]["encoding"]["y"]["axis"]["format"], "f");
    EXPECT_EQ(limits["y"]["scale"]["zero"], false);
    // The line has a row of its own.
    EXPECT_EQ(rows[0]["g0"], 10.5);
    EXPECT_EQ(json["title"]["text"], "Yield by Variety");
    EXPECT_THAT(json["description"].get<std::string>(), HasSubstr("Means."));
}

TEST(ChartDrawing, PanelsHoldTheirOwnRowsAndLines) {
    output::ChartModel chart = Means(2, 3);
    chart.fvGuides = {{false, 5.0, {"1"}}, {false, 6.0, {"7"}}};
    const Json json = Drawn(chart);
    EXPECT_EQ(json["facet"]["field"], "p0");
    EXPECT_EQ(json["facet"]["sort"], Json::array({"Block = 0", "Block = 1", "Block = 2"}));
    int guides = 0;
    for (const Json& row : json["data"]["values"]) {
        EXPECT_TRUE(row.contains("p0"));
        if (!row.contains("g0")) continue;
        ++guides;
        EXPECT_EQ(row["p0"], "Block = 1");
    }
    EXPECT_EQ(guides, 1);  // a line of a panel that doesn't exist is none
    // A second variable of panels that no row has is owned up to.
    chart.fvFacets.push_back("lost");
    chart.fvSources[0].fvFields.push_back({"lost", "Gender", true, {}, "", {}});
    EXPECT_THAT(report::DrawChart(chart, host::Catalogue::Current()).fNote, HasSubstr("the levels of Gender apart"));
}

TEST(ChartDrawing, ManyMarksAndPanelsAreDrawnInPartAndTold) {
    const output::ChartModel many = Means(300, 1);
    EXPECT_EQ(Drawn(many)["data"]["values"].size(), 300U);
    EXPECT_EQ(many.RowTexts().size(), 300U);
    EXPECT_LE(Drawn(many)["width"].get<double>(), 700.0);

    const auto marks = report::DrawChart(Means(3000, 1), host::Catalogue::Current());
    EXPECT_EQ(Json::parse(marks.fDocument)["data"]["values"].size(), 2000U);
    EXPECT_THAT(marks.fNote, HasSubstr("first 2000 marks"));

    const auto panels = report::DrawChart(Means(1, 300), host::Catalogue::Current());
    std::set<std::string> drawn;
    const Json document = Json::parse(panels.fDocument);
    for (const Json& row : document["data"]["values"])
        drawn.insert(row["p0"]);
    EXPECT_EQ(drawn.size(), 36U);
    EXPECT_THAT(panels.fNote, HasSubstr("first panels"));
}

/// Adds a line through the means, of groups by a second field or of none.
output::ChartModel Joined(int groups) {
    output::ChartModel chart = Means(3, groups);
    chart.fvFacets.clear();
    output::ChartLayer line = chart.fvLayers[1];
    line.fMark = ChartMark::kLine;
    chart.fvLayers.insert(chart.fvLayers.begin(), line);
    for (output::ChartLayer& layer : chart.fvLayers) {
        if (groups == 1) break;
        auto& colour = layer.fvChannels.emplace_back();
        colour.fRole = "color";
        colour.fField = "panel";
    }
    if (groups > 1) chart.fvLegends = {{"color", "", true}};
    return chart;
}

TEST(ChartDrawing, LinesJoinTheMeansOfGroupsAndOfNumbers) {
    // One line for each group, moved as the group's points are; the legend's picks are declared once.
    const Json groups = Drawn(Joined(3));
    std::vector<std::string> moved;
    int picks = 0;
    for (const Json& layer : groups["layer"]) {
        picks += layer.contains("params");
        if (layer["mark"]["type"] != "line") continue;
        moved.push_back(layer["encoding"]["xOffset"]["datum"]);
        EXPECT_EQ(layer["transform"][1]["filter"]["equal"], moved.back());
    }
    EXPECT_THAT(moved, ElementsAre("0", "1", "2"));
    EXPECT_EQ(picks, 1);
    // Along numbers the means of one group are joined, between the levels of a factor not.
    EXPECT_EQ(Drawn(Joined(1))["layer"][0]["mark"]["type"], "line");
    output::ChartModel levels = Joined(1);
    levels.fvSources[0].fvFields[0].fvRelabels = {{0.0, "none"}, {1.0, "some"}};
    EXPECT_NE(Drawn(levels)["layer"][0]["mark"]["type"], "line");
}

TEST(ChartDrawing, AxesWriteNumbersAndDates) {
    output::ChartModel chart = Means(2, 1);
    const auto axis = [&chart] { return Drawn(chart)["layer"][1]["encoding"]["y"]["axis"]; };
    for (auto& row : chart.fvSources[0].fvRows)
        row[1] = 2.5e9;
    EXPECT_EQ(axis()["format"], "e");
    chart.fvSources[0].fvFields[1].fFormat = QVTA_Format{10, 20, 0};
    EXPECT_EQ(axis()["labelExpr"], "utcFormat(datum.value * 86400000, '%Y-%m-%d')");
    EXPECT_FALSE(axis().contains("format"));
}

TEST(ChartDrawing, ANetworkOfTooManyNodesGivesWayToItsTable) {
    const auto network = [](int levels, int panels) {
        output::ChartModel chart = Means(levels, panels);  // two rows a level, each a node here
        chart.fvLayers[1].fPlace = "around";
        return report::DrawChart(chart, host::Catalogue::Current());
    };
    EXPECT_NE(network(20, 2).fDocument, "");  // a panel counts by itself
    EXPECT_EQ(network(21, 1).fDocument, "");
    EXPECT_THAT(network(21, 1).fNote, HasSubstr("A network of 42 levels"));
}

TEST(ChartDrawing, RowsThatSayNothingAndNumbersThatAreNoneAreLeftOut) {
    output::ChartModel chart = Means(2, 1);
    auto& rows = chart.fvSources[0].fvRows;
    rows.insert(rows.begin(), 2, {});
    rows[2][1] = std::numeric_limits<double>::quiet_NaN();
    const Json json = Drawn(chart);
    ASSERT_EQ(json["data"]["values"].size(), 2U);
    const std::string mean = json["layer"][1]["encoding"]["y"]["field"];
    EXPECT_FALSE(json["data"]["values"][0].contains(mean));
    EXPECT_EQ(chart.RowTexts().size(), 2U);
    // A mean has more digits than the values that it is made of; a value has its own.
    chart.fvSources[0].fvFields[1].fFormat = QVTA_Format{8, kFormatNumeric, 0};
    rows[4][1] = 0.7345;
    EXPECT_EQ(chart.fvSources[0].fvFields[1].Shown(12.0), "12");
    chart.fvSources[0].SettleDigits();
    EXPECT_EQ(chart.fvSources[0].fvFields[1].Shown(0.7345), "0.7345");
    EXPECT_EQ(chart.fvSources[0].fvFields[1].Shown(12.0), "12.000");
    // Nothing at all is no document, and said.
    const auto nothing = report::DrawChart(output::ChartModel(), host::Catalogue::Current());
    EXPECT_EQ(nothing.fDocument, "");
    EXPECT_THAT(nothing.fNote, HasSubstr("nothing to draw"));
}

TEST(ChartDrawing, AChartIsAFileWithASafeName) {
    SampleDocument sample;
    for (const char* title : {"Fixed Effects", "../../<Ertrag> \xC3\xBC", "\xE2\x82\xAC"}) {
        auto model = std::make_shared<output::ChartModel>(Means(2, 1));
        model->fTitle = title;
        sample.fDocument.AddChart(model);
    }
    const auto files = report::ChartFiles(sample.fDocument, {});
    ASSERT_EQ(files.size(), 3U);
    EXPECT_EQ(files[0].fName, "01-fixed-effects.vl.json");
    EXPECT_EQ(files[1].fName, "02-ertrag.vl.json");
    EXPECT_EQ(files[2].fName, "03-chart.vl.json");
    EXPECT_THAT(files[0].fText, HasSubstr("https://vega.github.io/schema/vega-lite/v6.json"));
}

}  // namespace
