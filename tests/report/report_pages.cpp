#include "report/Approved.h"
#include "report/HtmlRenderer.h"
#include "report/HtmlText.h"
#include "report/JsonRenderer.h"
#include "report/SampleDocument.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <pugixml.hpp>

namespace {

using testing::HasSubstr;
using testing::Not;

std::string Body(const std::string& page) {
    const auto from = page.find("<body>");
    return page.substr(from, page.find("<footer>") - from);
}

/// The page's elements; it is written as well-formed XML apart from what HTML leaves open in the head.
pugi::xml_document Parsed(const std::string& body) {
    pugi::xml_document document;
    const auto result = document.load_string((body + "</body>").c_str(), pugi::parse_default | pugi::parse_ws_pcdata);
    EXPECT_TRUE(result) << result.description() << " near " << body.substr(std::max<long>(0, result.offset - 40), 80);
    return document;
}

/// Columns that each row of a table takes, spans from above counted; all are equal in a table that holds together.
std::vector<int> RowWidths(const pugi::xml_node& part) {
    std::vector<int> widths;
    std::vector<int> below;  // columns that come down into the following rows
    for (const auto& row : part.children("tr")) {
        int width = below.empty() ? 0 : below.front();
        if (!below.empty()) below.erase(below.begin());
        for (const auto& cell : row.children()) {
            const int columns = cell.attribute("colspan").as_int(1);
            const int rows = cell.attribute("rowspan").as_int(1);
            width += columns;
            if (static_cast<int>(below.size()) < rows - 1) below.resize(rows - 1, 0);
            for (int r = 0; r + 1 < rows; ++r)
                below[r] += columns;
        }
        widths.push_back(width);
    }
    EXPECT_TRUE(std::all_of(below.begin(), below.end(), [](int columns) { return columns == 0; }));
    return widths;
}

TEST(ReportHtml, APageReadsAsItWasApprovedAndItsTablesHoldTogether) {
    SampleDocument sample;
    sample.InformationCriteria();
    sample.Estimates();
    sample.Nested();
    BpError(BpString("Model validity is uncertain ...", true), 2, 2);
    const std::string page = report::RenderHtml(sample.fDocument, {}, {"", "reaction ~ days", "0.1.0"});
    const std::string body = Body(page);
    ExpectApproved("page_body.html", body);
    const auto document = Parsed(body);
    const auto tables = document.select_nodes("//table");
    ASSERT_EQ(tables.size(), 3U);
    for (const auto& table : tables) {
        std::vector<int> widths;
        for (const auto& part : table.node().children()) {
            if (std::string(part.name()) == "caption") continue;
            const auto more = RowWidths(part);
            widths.insert(widths.end(), more.begin(), more.end());
        }
        EXPECT_THAT(widths, testing::Each(widths.front()));
    }
    EXPECT_EQ(document.select_nodes("//thead//th[@scope='colgroup'][@colspan='2']").size(), 1U);
    EXPECT_EQ(document.select_nodes("//th[@scope='row'][@rowspan='3']").size(), 1U);
    EXPECT_EQ(document.select_nodes("//td[@data-v='251.40510484848']").size(), 1U);
    // Every outline entry leads somewhere, and the outline follows the headings.
    const auto links = document.select_nodes("//nav//a");
    EXPECT_EQ(links.size(), 4U);
    for (const auto& link : links) {
        const std::string id = link.node().attribute("href").as_string() + 1;
        EXPECT_EQ(document.select_nodes(("//*[@id='" + id + "']").c_str()).size(), 1U) << id;
    }
    EXPECT_THAT(page, HasSubstr("<title>Linear Mixed Model</title>"));
    EXPECT_THAT(page, HasSubstr("default-src 'none'; style-src 'sha256-"));
    EXPECT_THAT(page, Not(HasSubstr("unsafe")));
    EXPECT_THAT(page, Not(HasSubstr("http:")));
    EXPECT_THAT(page, Not(HasSubstr("https:")));
}

TEST(ReportHtml, ColumnsOfWordsLeanLeftPValuesReadAlikeAndLongTablesAreCut) {
    SampleDocument sample;
    auto table = sample.fRoot.PivotTable(BpString("Levels", false), BpString("Levels", false), true);
    auto rows = table.Dimension(BpString("Row", false), 2);
    rows.Position(0, 1, false, false);
    auto columns = table.Dimension(BpString("Column", false), 2);
    columns.Position(1, 1, true, false);
    for (int r = 0; r < 3001; ++r) {
        rows.Category(BpNumber(r, BpProcedure::Count()));
        auto name = columns.Category(BpString("name", false));
        if (r == 1) {
            name.Cell(BpNumber(18, BpProcedure::Count()));
        } else {
            name.Cell(BpString("s308", false));
        }
        columns.Category(BpString("Adj. Sig.", true)).Cell(BpNumber(3.5e-10, BpProcedure::Coefficient()));
        columns.Category(BpString("t", true)).Cell(BpNumber(3.5e-10, BpProcedure::Coefficient()));
    }
    const std::string page = report::RenderHtml(sample.fDocument, {}, {"", "", "0.1.0"});
    EXPECT_THAT(page, HasSubstr("<th scope=\"col\" class=\"t\">name</th>"));
    EXPECT_THAT(page, HasSubstr("<td data-v=\"18\">18</td><td class=\"n\" data-v=\"3.5e-10\">&lt;.001</td>"
                                "<td class=\"n\" data-v=\"3.5e-10\">3.500e-10</td>"));
    EXPECT_THAT(page, HasSubstr("The first 3000 of 3001 rows."));
    EXPECT_EQ(Parsed(Body(page)).select_nodes("//tbody/tr").size(), 3000U);
    const std::string json = report::RenderJson(sample.fRun, sample.fDocument, {}, "", "");
    EXPECT_THAT(json, HasSubstr("\"text\": \"<.001\""));
}

constexpr const char* kHostile = "<script>alert(\"1\")</script>&'\u202E";

/// A chart whose texts all try to break out.
std::shared_ptr<output::ChartModel> HostileChart() {
    auto chart = std::make_shared<output::ChartModel>();
    chart->fTitle = chart->fSubtitle = chart->fDescription = chart->fCaption = kHostile;
    chart->fvFootnotes = {kHostile};
    output::ChartSource& source = chart->fvSources.emplace_back();
    source.fName = kHostile;
    source.fvFields.resize(3);
    source.fvFields[0] = {kHostile, kHostile, true, {}, kHostile, {}};
    source.fvFields[1].fName = "y";
    source.fvFields[2] = {"panel", kHostile, true, {}, kHostile, {}};
    source.fvRows = {{std::string("</script><!--"), 1.0, std::string(kHostile)}};
    chart->fvFacets = {"panel"};
    output::ChartLayer& layer = chart->fvLayers.emplace_back();
    layer.fSource = kHostile;
    layer.fvChannels.resize(3);
    layer.fvChannels[0].fRole = "x";
    layer.fvChannels[0].fField = kHostile;
    layer.fvChannels[1].fRole = "y";
    layer.fvChannels[1].fField = "y";
    layer.fvChannels[2].fRole = "color";
    layer.fvChannels[2].fField = kHostile;
    chart->fvAxes = {{"x", kHostile, true, {}, {}}, {"y", kHostile, true, {}, {}}};
    chart->fvLegends = {{"color", kHostile, true}};
    chart->fvColumns = {{kHostile, kHostile, 0, kHostile}};
    return chart;
}

TEST(ReportHtml, TextOfTheDataStaysText) {
    SampleDocument sample;
    const std::string hostile = kHostile;
    sample.fRun.fSplitName = hostile;
    auto table = sample.fRoot.PivotTable(BpString(hostile, false), BpString(hostile, false), true);
    table.Note(BpAnnotation(BpString(hostile, false)));
    table.Caption(BpString(hostile, false));
    auto rows = table.Dimension(BpString(hostile, false), 2);
    auto columns = table.Dimension(BpString(hostile, false), 2);
    columns.Position(1, 1, false, false);
    auto group = rows.Group(BpString(hostile, false), true, 2);
    columns.Category(BpString(std::string(10000, 'x'), false));
    auto category = group.Category(BpString(hostile, false));
    category.Cell(BpString("\xff" + hostile, false));
    category.CellNote(BpAnnotation(BpString(hostile, false)));
    BpError(BpString(hostile, false), 2, 3);
    auto chart = std::make_shared<output::Chart>();
    chart->fpModel = HostileChart();
    sample.fDocument.Add(static_cast<output::Heading&>(*sample.fRoot.Node()), chart, true);
    const std::string page = report::RenderHtml(sample.fDocument, {}, {hostile, hostile, hostile});
    EXPECT_THAT(page, Not(HasSubstr("<script>alert")));
    EXPECT_THAT(page, Not(HasSubstr("\u202E")));
    EXPECT_THAT(page, HasSubstr("\\u003c/script\\u003e\\u003c!--"));
    const auto document = Parsed(Body(page));
    // The chart's document, and what draws it where this build has that; each a single element.
    EXPECT_EQ(document.select_nodes("//script").size(), 1U);
    EXPECT_EQ(document.select_nodes("//th[contains(@class, 'long')]").size(), 1U);
    const std::string shown = hostile.substr(0, hostile.size() - 3);
    EXPECT_EQ(document.select_node("//figcaption").node().first_child().value(), shown);
    EXPECT_EQ(document.select_node("//h1").node().text().as_string(), shown);
    EXPECT_EQ(document.select_node("//td[text()]").node().text().as_string(), "\uFFFD" + shown);
    EXPECT_EQ(report::Escaped("a<b>\"'&\n\x01"), "a&lt;b&gt;&quot;&#39;&amp;\n");
}

TEST(ReportJson, FiguresRoundTripAndTheTreeFollows) {
    SampleDocument sample;
    sample.Estimates();
    sample.Nested();
    BpError(BpString("Model validity is uncertain ...", true), 2, 2);
    auto& split = sample.fRun.fvResults.emplace_back();
    split.fSplit = {{"region", "no\"rth\xff"}, {"year", "1"}};
    auto& figures = split.fFigures;
    figures.fConverged = true;
    figures.fIterations = 7;
    figures.fMessages = {{"warning", 130024, "text"}};
    figures.fRecordsUsed = 180;
    figures.fMinus2LL = 1743.6282719599013;
    figures.fAIC = -1.7976931348623157e308;
    figures.fFixed = {{"days", "days", {}, 0.1 + 0.2, 1e-300, 17, 5e-324, 2.2250738585072014e-308, -0.1, 1e308, false}};
    figures.fFixedCovariance = {{1.0 / 3, -1.0 / 7}, {-1.0 / 7, 2.0 / 3}};
    figures.fTests = {{"days", 3, 1, 17, 45.85, 3e-6}};
    figures.fCovariance = {{"1", "subject", {}, "yes", "UN", "UN(1,1)", 612.09}};
    figures.fMeans.emplace_back().fEstimates = {{{{"a", "1"}}, 3.5, 0.5, 12, 2.5, 4.5, true}};
    const std::string text = report::RenderJson(sample.fRun, sample.fDocument, {}, "0.1.0", "HIERFIT");
    const auto json = nlohmann::ordered_json::parse(text);
    EXPECT_EQ(json["schema"], "hierfit.result/1");
    std::vector<std::string> keys;
    for (const auto& [key, value] : json["splits"][0].items())
        keys.push_back(key);
    EXPECT_THAT(keys, testing::ElementsAre("split", "status", "data", "fit", "certificate", "fixed", "fixed_covariance",
                                           "tests", "covariance", "random_effects", "emmeans"));
    const auto& first = json["splits"][0];
    EXPECT_EQ(first["split"]["region"], "no\"rth\uFFFD");
    EXPECT_EQ(first["data"]["records_used"].dump(), "180");
    EXPECT_EQ(first["fit"]["minus2_log_likelihood"].get<double>(), 1743.6282719599013);
    EXPECT_TRUE(first["fit"]["aic"].is_null());
    EXPECT_TRUE(first["fit"]["bic"].is_null());
    const auto& fixed = first["fixed"][0];
    const std::pair<const char*, double> doubles[] = {{"estimate", 0.1 + 0.2},
                                                      {"std_error", 1e-300},
                                                      {"t", 5e-324},
                                                      {"p", 2.2250738585072014e-308},
                                                      {"upper", 1e308}};
    for (const auto& [key, value] : doubles)
        EXPECT_EQ(fixed[key].get<double>(), value) << key;
    EXPECT_TRUE(fixed["target_category"].is_null());
    EXPECT_EQ(first["covariance"][0]["target_category"], "yes");
    EXPECT_TRUE(first["covariance"][0]["std_error"].is_null());
    EXPECT_EQ(first["fixed_covariance"][0][1].get<double>(), -1.0 / 7);
    EXPECT_EQ(first["emmeans"][0]["estimates"][0]["levels"]["a"], "1");

    const auto& table = json["tables"][0];
    EXPECT_EQ(table["headings"], nlohmann::json::array({"Fixed Effects"}));
    EXPECT_EQ(table["sub_type"], "Parameter Estimates");
    EXPECT_EQ(table["dimensions"][1]["categories"][5]["groups"][0], "95% Confidence Interval");
    const auto& cell = table["cells"][0];
    EXPECT_EQ(cell["at"], nlohmann::json::array({0, 0}));
    EXPECT_EQ(cell["value"].get<double>(), 251.40510484848);
    EXPECT_EQ(cell["text"], "251.405");
    EXPECT_TRUE(table["cells"].back()["value"].is_null());
    EXPECT_EQ(json["tables"][2]["kind"], "message");
    EXPECT_EQ(json["tables"][2]["level"], "warning");
}

}  // namespace
