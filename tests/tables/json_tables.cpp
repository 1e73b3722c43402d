#include "contracts/JsonBridge.h"
#include "results/HRFTStatJSON.h"
#include "tables/TreeReading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace {

using reading::ListTables;
using reading::TableView;
using testing::ElementsAre;

constexpr double kMissing = std::numeric_limits<double>::lowest();
const char* const kTitle = "Random Effects Parameters > Empirical Best Linear Unbiased Predictions";

/// A small table: two predictions of one subject, grouped, with a format a column.
const std::string kTable = R"({
  "caption": "Two of them", "notes": [{"pattern": "^1 and ^2", "parts": [{"data": "one"}, {"number": 2, "format": "Count"}]}],
  "dimensions": [
    {"name": "Effects", "place": "row", "hideTitle": true, "categories": [
      {"text": {"variable": "batch", "value": "A"}, "categories": ["Intercept", {"text": {"data": "[s=1]"}}]}]},
    {"name": "Statistics", "place": "column", "categories": [
      {"text": "Prediction", "format": "Coefficient"}, {"text": "Std. Error", "format": {"type": 5, "width": 9, "decimals": 2}}]}],
  "cells": [[2.5, 0.1], [{"text": {"data": "none"}, "notes": ["gone"]}, {"value": null, "format": "Count"}]]})";

/// Writes the tables of a document and lists them.
reading::TableList Display(const std::string& document, host::OutputDocument& output) {
    const host::OutputScope scope(output);
    BpProcedure procedure = output.Procedure();
    HRFTStatJSON(&procedure, nullptr, document).DisplayOutput();
    return ListTables(output.Root());
}

std::string WithTables(const std::string& tables) {
    return R"({"glmm": {"RandomEffectsParameters": {"tables": )" + tables + "}}}";
}

TEST(JsonTables, ShowEveryCellOfADescription) {
    host::OutputDocument output("Mixed");
    const auto list = Display(WithTables("[" + kTable + "]"), output);
    ASSERT_THAT(list.fvPaths, ElementsAre(kTitle));
    const TableView table(*list.fvTables[0]);
    EXPECT_EQ(reading::Shown(table.Table().fpCaption), "Two of them");
    EXPECT_THAT(reading::Shown(table.Table().fvNotes), ElementsAre("^1 and ^2 <one, 2>"));
    EXPECT_TRUE(table.Dimension(0).fHideTitle);
    EXPECT_EQ(table.Dimension(1).fPlace, BpDimension::kColumn);
    EXPECT_THAT(table.Categories(0), ElementsAre("A / Intercept", "A / [s=1]"));
    EXPECT_THAT(table.Categories(1), ElementsAre("Prediction", "Std. Error"));
    EXPECT_EQ(table.Value({"A / Intercept", "Prediction"}), 2.5);
    EXPECT_EQ(table.Kind({"A / Intercept", "Prediction"}), BpFormatSpec::kCoefficient);
    EXPECT_EQ(table.Kind({"A / Intercept", "Std. Error"}), BpFormatSpec::kFormat);
    EXPECT_EQ(table.Value({"A / [s=1]", "Std. Error"}), kMissing);
    EXPECT_EQ(table.Kind({"A / [s=1]", "Std. Error"}), BpFormatSpec::kCount);
    EXPECT_THAT(table.Notes({"A / [s=1]", "Prediction"}), ElementsAre("gone"));
}

TEST(JsonTables, AreFoundOnThreePathsAndNumberedWhenThereAreSeveral) {
    struct {
        std::string fDocument;
        std::vector<std::string> fTitles;
    } const cases[] = {
        {WithTables(kTable), {kTitle}},
        {R"({"tables": [)" + kTable + "]}", {kTitle}},
        {kTable, {kTitle}},
        {R"({"tables": [)" + kTable + "," + kTable + "]}", {kTitle + std::string(" 1"), kTitle + std::string(" 2")}},
        {"[" + kTable + ", 3, " + kTable + "]", {kTitle + std::string(" 1"), kTitle + std::string(" 3")}},
        {R"({"other": 1})", {}},
        {"{\"tables\": [" + kTable, {}},
        {"", {}},
    };
    for (const auto& entry : cases) {
        host::OutputDocument output("Mixed");
        const auto list = Display(entry.fDocument, output);
        EXPECT_EQ(list.fvPaths, entry.fTitles) << entry.fDocument;
        EXPECT_TRUE(list.fvMessages.empty());
    }
}

/// The small table with one part replaced.
std::string Broken(const std::string& part, const std::string& by) {
    std::string text = kTable;
    return text.replace(text.find(part), part.size(), by);
}

TEST(JsonTables, ThatAreMalformedGiveNoTableAtAll) {
    const std::string deep(100000, '[');
    for (const std::string& table :
         {Broken("[2.5, 0.1]", "[2.5]"), Broken("[2.5, 0.1],", ""), Broken("\"row\"", "\"rows\""),
          Broken("\"Coefficient\"", "\"Pretty\""), Broken("\"width\": 9", "\"width\": -9"),
          Broken("\"width\": 9", "\"width\": 99999"), Broken("\"hideTitle\": true", "\"hideTitle\": 1"),
          Broken("\"name\": \"Effects\",", ""), Broken("\"Two of them\"", "{\"pattern\": \"^1\"}"),
          Broken("2.5", "1e400"), Broken("2.5", "true"), std::string("null"), std::string("7"), deep}) {
        host::OutputDocument output("Mixed");
        EXPECT_TRUE(Display(WithTables(table), output).fvPaths.empty()) << table.substr(0, 200);
    }
}

}  // namespace
