#include "contracts/HostOutput.h"
#include "contracts/Parser.h"
#include "host/output/FigureText.h"
#include "host/output/OutputDocument.h"
#include "host/output/Pattern.h"
#include "host/strings/Catalogue.h"
#include "run/RunValue.h"

#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <nlohmann/json.hpp>

namespace {

constexpr double kMissing = -1.7976931348623157e308;

std::string Shown(const BpCellText& text) {
    return text.Node()->Show(host::Catalogue::Current());
}

TEST(OutputPattern, FillsPlacesAndLists) {
    struct Case {
        const char* fPattern;
        std::vector<host::PatternPlace> fPlaces;
        const char* fText;
    };
    const host::PatternPlace pairs{{"region", "north", "year", "1"}, true};
    const host::PatternPlace one{{"7"}, false};
    const Case cases[] = {
        {"Target ^1/^2", {{{"y"}, false}, {{"n"}, false}}, "Target y/n"},
        {"in split [%1 = %2:,^1 = ^2:]1 ...", {pairs}, "in split region = north,year = 1 ..."},
        {"request ^1 for [%1 = %2:, ^1 = ^2:]2.", {one, pairs}, "request 7 for region = north, year = 1."},
        {"[:^1:]1", {{{"long ", "text"}, true}}, "long text"},
        {"[%1:\n^1:]1", {{{"a", "b", "c"}, true}}, "a\nb\nc"},
        {"Structure^1.[\n%1:\n^1:]2", {one}, "Structure7."},
        {"Target\\: ^1", {one}, "Target: 7"},
        {"list ^1", {pairs}, "list region, north, year, 1"},
        {"UN(1,1) [sex=1] ^2|", {one}, "UN(1,1) [sex=1] |"},
        {"[%1:unfinished", {pairs}, "[%1:unfinished"},
        {"^1", {{{"^2 [%1:,^1:]1"}, false}, one}, "^2 [%1:,^1:]1"},
        {"100% ^", {one}, "100% ^"},
    };
    for (const auto& test : cases)
        EXPECT_EQ(host::FillPattern(test.fPattern, test.fPlaces), test.fText);
}

TEST(OutputPattern, CompositesFillInOrderTranslateTheirPatternAndNameTheSplit) {
    run::RunValue run;
    run.fSplit = {{"region", "north"}, {"year", "2"}};
    const run::Scope scope(run);

    BpComposite split("Perfect fit [%1=%2:,^1=^2:]1 ...", true);
    split.Sublist();
    split.SplitList();
    split.EndSublist();
    split.Finish();
    EXPECT_THAT(Shown(split), testing::EndsWith("split region = north, year = 2."));

    // Never finished, as the line that the procedure continues.
    BpComposite continues("^1 procedure continues ...", true);
    continues.Add(BpString("MIXED", false));
    EXPECT_THAT(Shown(continues), testing::StartsWith("The MIXED procedure continues"));

    BpComposite plain("^1: ^2", false);
    plain.Add(BpString("B0", true));
    plain.Add(BpNumber(2.0 / 3, BpProcedure::GeneralStat()));
    plain.Finish();
    EXPECT_EQ(Shown(plain), "Estimate: 0.667");

    OmComposite outside("[%1 = %2:, ^1 = ^2:]1");
    outside.BeginRepeatList();
    for (const char* text : {"a", "1", "b", "x:y]1"})
        outside.Add(OmStringCell(text, text, text));
    outside.EndRepeatList();
    outside.End();
    outside.Substitute();
    EXPECT_EQ(outside.AsString(), "a = 1, b = x:y]1");
}

TEST(OutputFigures, ShowTheDigitsOfTheirKind) {
    struct Case {
        double fValue;
        BpFormatSpec fFormat;
        const char* fText;
    };
    const auto coefficient = BpProcedure::Coefficient();
    const auto general = BpProcedure::GeneralStat();
    const auto significance = BpProcedure::Significance();
    const auto count = BpProcedure::Count();
    const BpFormatSpec twoDecimals(QVTA_Format{12, kFormatNumeric, 2});
    const Case cases[] = {
        {251.40510484848, coefficient, "251.405"},
        {0.034211, coefficient, "0.03421"},
        {0.00034211, coefficient, "0.0003421"},
        {-3.4211e-6, coefficient, "-3.421e-06"},
        {0.0, coefficient, "0.000"},
        {123456789.123, coefficient, "123456789.1"},
        {2.5e13, coefficient, "2.500e+13"},
        {1743.62827, general, "1743.628"},
        {0.0012345, general, "0.00123"},
        {kMissing, general, "."},
        {std::numeric_limits<double>::quiet_NaN(), count, "."},
        {std::numeric_limits<double>::infinity(), general, "inf"},
        {1.17e-17, significance, "<.001"},
        {0.0005, significance, ".001"},
        {0.0499999, significance, ".050"},
        {1.0, significance, "1.000"},
        {-0.1376, BpProcedure::Correlation(), "-.138"},
        {-0.0001, BpProcedure::Correlation(), ".000"},
        {17.0, count, "17"},
        {16.99999999, count, "17"},
        {30.0471, count, "30.047"},
        {-0.0, count, "0"},
        {87.345, BpProcedure::Percent(), "87.3%"},
        {95.0, BpProcedure::SigDigit(95.0), "95"},
        {0.975 * 100, BpProcedure::SigDigit(97.5), "97.5"},
        {3.14159, twoDecimals, "3.14"},
        {0.00314, twoDecimals, "3.14e-03"},
        {0.0, twoDecimals, "0.00"},
        {2.0 / 3, BpFormatSpec(QVTA_Format{}), "0.667"},
        {19782.4, BpFormatSpec(QVTA_Format{10, 20, 0}), "2024-02-29"},
        {kMissing, BpFormatSpec(QVTA_Format{10, 20, 0}), "."},
    };
    for (const auto& test : cases)
        EXPECT_EQ(host::FigureText(test.fValue, test.fFormat), test.fText) << test.fValue;
}

TEST(OutputTexts, ShowVariablesAndValuesUnderTheUsersOptions) {
    host::OutputDocument document("Linear Mixed Model");
    const host::OutputScope scope(document);
    QVTA_Variable variable;
    variable.SetName("days");
    variable.SetFormat(QVTA_Format{8, kFormatNumeric, 0});
    EXPECT_EQ(Shown(BpVariable(variable, BpVariable::kLabel)), "days");
    variable.SetLabel("Days without sleep");
    EXPECT_EQ(Shown(BpVariable(variable, BpVariable::kName)), "days");
    EXPECT_EQ(Shown(BpVariable(variable, BpVariable::kLabel)), "Days without sleep");
    const std::pair<int, const char*> options[] = {
        {1, "days"}, {2, "Days without sleep"}, {3, "days Days without sleep"}};
    for (const auto& [option, text] : options) {
        document.fDisplay.fTableVariables = option;
        EXPECT_EQ(Shown(BpVariable(variable, BpVariable::kPreferred)), text);
        int got[4] = {};
        GETDISPLAYOPTIONS(&got[0], &got[1], &got[2], &got[3]);
        EXPECT_THAT(got, testing::ElementsAre(option, 2, 2, 2));
    }

    OBS cell;
    cell.fNumber = 9.0;
    const BpDataValue value(variable, &cell, BpDataValue::kPreferred);
    EXPECT_EQ(Shown(value), "9");
    EXPECT_EQ(value.Node()->AsFigure()->fValue, 9.0);
    cell.fNumber = kMissing;
    EXPECT_EQ(Shown(BpDataValue(variable, &cell, BpDataValue::kValue)), ".");

    QVTA_Variable text;
    text.SetName("name");
    text.SetType(11);
    OBS cells[2];
    std::memcpy(cells, "north-west      ", 16);
    EXPECT_EQ(Shown(BpDataValue(text, cells, BpDataValue::kValue)), "north-west");
}

/// Places that a pattern asks for, in its lists and outside of them.
std::string Places(const std::string& pattern) {
    std::string places;
    for (char place = '1'; place <= '9'; ++place) {
        if (pattern.find(std::string("]") + place) != std::string::npos) places += place;
    }
    return places;
}

TEST(OutputStrings, EnglishResolvesEveryKeyToASentence) {
    std::ifstream file(std::string(HIERFIT_SOURCE_DIR) + "/share/strings/en.json");
    const auto json = nlohmann::json::parse(file);
    EXPECT_EQ(json, nlohmann::json::parse(host::kBuiltInCatalogue));
    EXPECT_GT(json["texts"].size(), 150U);
    for (const auto& [key, value] : json["texts"].items()) {
        const std::string text = value;
        EXPECT_THAT(text, testing::Not(testing::HasSubstr("..."))) << key;
        EXPECT_FALSE(text.empty() || text.front() == ' ' || text.back() == ' ') << key;
        // Whoever asks by a key with a list gives a list.
        if (!Places(key).empty()) EXPECT_EQ(Places(text), Places(key)) << key;
    }
    for (int number = 15902; number <= 15908; ++number) {
        char buffer[256];
        ERRTXN(number, buffer);
        const std::string text(buffer, sizeof buffer);
        EXPECT_NE(text.find_first_not_of(' '), std::string::npos) << number;
        EXPECT_EQ(text.back(), ' ') << number;
    }
    char unknown[256];
    ERRTXN(1, unknown);
    EXPECT_EQ(std::string(unknown, sizeof unknown), std::string(256, ' '));
}

TEST(OutputStrings, ADirectorysCatalogueGoesFirstAndAProceduresOwnBeforeAll) {
    const std::string directory = testing::TempDir() + "catalogue";
    ASSERT_EQ(system(("mkdir -p " + directory).c_str()), 0);
    std::ofstream(directory + "/en.json")
        << R"({"texts": {"B0": "Coefficient"}, "procedures": {"Mixed": {"B0": "Mixed coefficient", "bad": 1}}})";
    FacSTDictionary dictionary(directory);
    unsigned long status = 9;
    EXPECT_EQ(dictionary.LookUp("B0", status), "Coefficient");
    EXPECT_EQ(status, 0U);
    dictionary.SetProcedure("Mixed");
    EXPECT_EQ(dictionary.LookUp("B0"), "Mixed coefficient");
    EXPECT_EQ(dictionary.LookUp("Akaike IC"), "Akaike (AIC)");
    EXPECT_EQ(dictionary.LookUp("no such key ...", status), "no such key ...");
    EXPECT_NE(status, 0U);
    EXPECT_EQ(FacSTDictionary("/nowhere").LookUp("E60868"), "Count");

    ParserMessage message;
    message.SetCommandName("HIERFIT");
    EXPECT_EQ(message.GetTranslatedText("EMMEANS Effect ^1 ...", {"a*b"}), "Estimated Means: a*b");
    run::RunValue run;
    const run::Scope scope(run);
    host::OutputDocument document("Linear Mixed Model");
    const host::OutputScope output(document);
    message.ParamNeedParamInSubCom("REPEATED_MEASURES", "KRONECKER_MEASURES", "DATA_STRUCTURE");
    message.GenericError("kKroneckerNeedType");
    EXPECT_TRUE(run.fFatal);
    ASSERT_EQ(document.Root().fvBlocks.size(), 2U);
    const auto& first = dynamic_cast<const output::Message&>(*document.Root().fvBlocks[0]);
    EXPECT_EQ(first.fLevel, kLevelError);
    EXPECT_EQ(first.fpText->Show(host::Catalogue::Current()),
              "DATA_STRUCTURE: the keyword KRONECKER_MEASURES needs the keyword REPEATED_MEASURES as well. Add "
              "REPEATED_MEASURES to DATA_STRUCTURE.");
}

}  // namespace
