#include "contracts/CustomProcedure.h"
#include "host/output/Text.h"
#include "results/HRFTOutputStats.h"
#include "results/Reading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using Texts = std::vector<std::string>;

TEST(Record, MembersAreReplacedWhole) {
    HRFTOutputStats stats;
    EXPECT_NE(stats.GetParserMessage(), nullptr);
    EXPECT_EQ(stats.GetEmmeansData(), nullptr);
    stats.NewEmmeansData()->resize(3);
    EXPECT_EQ(stats.NewEmmeansData()->size(), 0u);
    stats.NewBuildSettings()->fIntercept = false;
    EXPECT_TRUE(stats.NewBuildSettings()->fIntercept);
    stats.DeleteBuildSettings();
    stats.DeleteBuildSettings();
    EXPECT_EQ(stats.GetBuildSettings(), nullptr);

    struct Extra : PrintableExtra {
        explicit Extra(int number) : fNumber(number) {}
        std::unique_ptr<PrintableExtra> Clone() const override { return std::make_unique<Extra>(fNumber + 1); }
        int fNumber;
    };
    PrintableValue value;
    value.fpExtra = std::make_unique<Extra>(1);
    PrintableValue copy = value;
    copy = copy;  // NOLINT: a value survives its own assignment
    value = copy;
    EXPECT_EQ(static_cast<const Extra&>(*value.fpExtra).fNumber, 3);  // a copy clones what the value owns
}

TEST(Record, CodesHaveTheirLabels) {
    const HRFTOutputStats stats;
    Texts covariances;
    for (int kind = -1; kind <= 19; ++kind)
        covariances.push_back(stats.CovarianceLabel(kind, false));
    EXPECT_THAT(
        covariances,
        ElementsAre("Unknown", "Variance components", "First-order autoregressive",
                    "Heterogeneous first-order autoregressive", "Autoregressive moving average (1,1)",
                    "Compound symmetry", "Heterogeneous compound symmetry", "Diagonal", "Scaled Identity", "Toeplitz",
                    "Unstructured", "UN@UN", "UN@AR1", "UN@CS", "Spatial Power", "Spatial Exponential",
                    "Spatial Gaussian", "Spatial Linear", "Spatial Linear-Log", "Spatial Spherical", "Unknown"));
    Texts distributions;
    for (int kind = 0; kind <= 8; ++kind)
        distributions.push_back(stats.DistributionLabel(kind, false));
    EXPECT_THAT(distributions, ElementsAre("Binomial", "Gamma", "Inverse Gaussian", "Multinomial", "Multinomial",
                                           "Negative binomial", "Normal", "Poisson", "Unknown"));
    const auto links = [&](int distribution) {
        Texts labels;
        for (int link = 0; link <= 9; ++link)
            labels.push_back(stats.LinkLabel(link, distribution, false));
        return labels;
    };
    Texts nominal(10, "Unknown");
    nominal[4] = "Generalized logit";
    EXPECT_EQ(links(kNominalTarget), nominal);
    EXPECT_THAT(links(kOrdinalTarget), ElementsAre("Cumulative complementary log-log", "Unknown", "Unknown", "Unknown",
                                                   "Cumulative logit", "Cumulative negative log-log", "Unknown",
                                                   "Cumulative probit", "Cumulative Cauchit", "Unknown"));
    for (const int distribution : {0, 1, 2, 5, 6, 7, 8}) {
        EXPECT_THAT(links(distribution),
                    ElementsAre("Complementary log-log", "Identity", "Log", "Log complement", "Logit",
                                "Negative log-log", "Power", "Probit", "Unknown", "Unknown"));
        EXPECT_EQ(stats.PowerLinkPattern(kPowerLink, distribution), "Power(^1)");
        EXPECT_EQ(stats.PowerLinkPattern(kLogLink, distribution), "");
    }
    EXPECT_EQ(stats.PowerLinkPattern(kPowerLink, kOrdinalTarget), "");
    EXPECT_EQ(stats.PowerLinkPattern(kPowerLink, kNominalTarget), "");
    // At once in the reader's language, or as a key for the cell.
    EXPECT_EQ(stats.CovarianceLabel(kUN_CS, true), "Unstructured by compound symmetry (UN@CS)");
}

RegrParamInfo Param(const std::vector<CovariateTerm>& covariates, const std::vector<FactorTerm>& factors) {
    RegrParamInfo param;
    param.fvCovariates = covariates;
    param.fvFactors = factors;
    return param;
}

TEST(Record, ParametersHaveTheirLabels) {
    const HRFTOutputStats stats;
    const CovariateTerm x{"x", 0, 1}, z{"z", 1, 3};
    const FactorTerm a{"a", 2, {"1"}, false}, b{"b", 3, {"2"}, false}, empty{"e", 4, {""}, false};
    const FactorTerm nestedB{"b", 3, {"2"}, true}, nestedC{"c", 5, {"3"}, true};
    const std::pair<RegrParamInfo, const char*> cases[] = {
        {Param({x}, {}), "x"},
        {Param({z}, {}), "z*z*z"},
        {Param({{"p", 0, 0}}, {}), "p"},
        {Param({x, z}, {}), "x*z*z*z"},
        {Param({}, {a}), "a=1"},
        {Param({}, {empty}), "e"},
        {Param({}, {a, b}), "[a=1]*[b=2]"},
        {Param({}, {a, empty}), "[a=1]*[e=]"},
        {Param({}, {a, nestedB}), "[a=1]([b=2])"},
        {Param({}, {a, nestedB, nestedC}), "[a=1]([b=2]([c=3]))"},
        {Param({x}, {a}), "x*[a=1]"},
        {Param({x}, {nestedB}), "x([b=2])"},
        {Param({x}, {nestedB, a}), "x([b=2]*[a=1])"},
        {Param({}, {}), ""},
    };
    for (const auto& [param, label] : cases) {
        std::string text = "before";
        EXPECT_TRUE(stats.ParameterLabel(param, text));
        EXPECT_EQ(text, label);
    }
    RegrParamInfo intercept = Param({x}, {a});
    intercept.fIsIntercept = true;
    std::string text;
    EXPECT_TRUE(stats.ParameterLabel(intercept, text));
    EXPECT_EQ(text, "Intercept");
}

TEST(Record, RandomEffectsHaveTheirLabels) {
    const HRFTOutputStats stats;
    RandomSpec block;
    block.fvEffectList = {{{"a"}, {0}, {}},
                          {{"a", "b", "c"}, {0, 1, 2}, {0, 0, 1}},
                          {{"a", "b", "c"}, {0, 1, 2}, {0, 1, 2}},
                          {{"a", "b", "c"}, {0, 1, 2}, {0, 1}}};  // a list of levels that is cut short
    const auto label = [&](int index) {
        std::string text = "before";
        EXPECT_TRUE(stats.EffectLabel(block, index, text));
        return text;
    };
    EXPECT_EQ(label(0), "a");
    EXPECT_EQ(label(1), "a * b(c)");
    EXPECT_EQ(label(2), "a(b(c))");
    EXPECT_EQ(label(3), "a(b * c)");
    EXPECT_EQ(label(4), "");
    block.fIntercept = true;
    EXPECT_EQ(label(0), "Intercept");
    EXPECT_EQ(label(1), "a");
    EXPECT_EQ(label(-1), "");
}

PrintableList List(const std::string& pattern, const Texts& nested = {}) {
    PrintableList list;
    list.fPattern = pattern;
    for (const std::string& text : nested)
        list.fvLists.push_back(List(text));
    return list;
}

TEST(Record, MessagesOfListsTakeTheirArguments) {
    HRFTOutputStats stats;
    struct Message {
        bool fResult;
        std::string fKey, fText;
        Texts fvArguments;
        bool operator==(const Message&) const = default;
    };
    const auto message = [&](const PrintableList& list, int block) {
        Message made{false, "key", "text", {}};
        made.fResult = stats.PrintableMessage(list, block, made.fKey, made.fvArguments, made.fText);
        return made;
    };
    PrintableList mapped = List("P1");
    mapped.fMapId = 1;
    EXPECT_TRUE((message(mapped, 0) == Message{true, "key", "text", {}}));
    EXPECT_TRUE((message(List("UN (2,1)"), -1) == Message{true, "UN (2,1)", "UN (2,1)", {}}));
    EXPECT_TRUE((message(List("^1 by ^2", {"a", "b"}), -1) == Message{true, "^1 by ^2", "a by b", {"a", "b"}}));
    EXPECT_TRUE((message(List("^1^2^3", {"a", "b", "c"}), -1) == Message{true, "^1^2^3", "text", {"a", "b", "c"}}));
    EXPECT_TRUE((message(List("VarOfEffect", {"0", "1"}), 0) == Message{true, "VarOfEffect", "Var(^1)", {}}));
    EXPECT_FALSE(message(List("VarOfEffect", {"0"}), 0).fResult);  // no settings
    stats.NewBuildSettings()->fvRandomSpecs.resize(1);
    stats.GetBuildSettings()->fvRandomSpecs[0].fvEffectList = {{{"a", "b"}, {0, 1}, {0, 0}}};
    EXPECT_TRUE((message(List("VarOfEffect", {"0"}), 0) == Message{true, "VarOfEffect", "Var(a * b)", {"a * b"}}));
    for (const char* index : {"", "-1", "-5"})
        EXPECT_TRUE((message(List("VarOfEffect", {index}), 0) == Message{false, "VarOfEffect", "text", {}})) << index;
    for (const int block : {-1, 1})
        EXPECT_FALSE(message(List("VarOfEffect", {"0"}), block).fResult);
}

TEST(Record, LongTextsAreCutInPieces) {
    const auto pieces = [](std::size_t size) {
        const auto cell = HRFTOutputStats::LongTextCell(std::string(size, 'x'));
        const auto* composite = dynamic_cast<const output::CompositeNode*>(cell->Node().get());
        std::vector<std::size_t> sizes;
        if (!composite) return sizes;
        EXPECT_EQ(composite->fPattern, "[:^1:]1");
        for (const auto& place : composite->fvPlaces) {
            for (const auto& part : place.fvTexts)
                sizes.push_back(part->Show(host::Catalogue()).size());
        }
        return sizes;
    };
    EXPECT_THAT(pieces(255), ElementsAre());
    EXPECT_THAT(pieces(256), ElementsAre(255, 1));
    EXPECT_THAT(pieces(600), ElementsAre(255, 255, 90));
}

TEST(XmlAccess, WalksElementsByNameAndPath) {
    SDOMXMLWrapper document, element;
    SDOMXMLIterator iterator;
    ASSERT_EQ(document.LoadFromString("<r><a n='1'/><b><a n='2'/><c/></b><a n=''/></r>"), &document);
    std::string text = "before";
    Texts numbers;
    ASSERT_TRUE(document.GetElementIterator("a", iterator, true));
    while (iterator.Next(element)) {
        EXPECT_TRUE(element.GetAttribute("n", text));
        numbers.push_back(text);
    }
    EXPECT_THAT(numbers, ElementsAre("1", ""));
    EXPECT_FALSE(iterator.Next(element));
    EXPECT_FALSE(document.GetElementIterator("d", iterator, true));
    EXPECT_TRUE(document.GetFirstElement("b/a", element, true));
    EXPECT_TRUE(element.GetAttribute("n", text));
    EXPECT_EQ(text, "2");
    EXPECT_FALSE(element.GetAttribute("m", text));
    EXPECT_EQ(text, "");
    for (const char* path : {"c", "b/d", "a/c", "", "/", "b/", "/b"})
        EXPECT_FALSE(document.GetFirstElement(path, element, true)) << path;
    // An element keeps its document alive.
    {
        SDOMXMLWrapper other;
        ASSERT_TRUE(other.LoadFromString("<r><a n='&lt;&#x4e2d;'/></r>"));
        ASSERT_TRUE(other.GetFirstElement("a", element, true));
    }
    EXPECT_TRUE(element.GetAttribute("n", text));
    EXPECT_EQ(text, "<中");
}

TEST(XmlAccess, RefusesWhatIsNoDocument) {
    std::string deep, wide;
    for (int i = 0; i < 100000; ++i) {
        deep += "<a>";
        wide += "<a></a>";
    }
    const std::string bomb =
        "<!DOCTYPE r [<!ENTITY a \"xxxxxxxxxx\"><!ENTITY b \"&a;&a;&a;&a;\">]><r n=\"&b;\">&b;</r>";
    SDOMXMLWrapper document;
    for (const std::string& text : {std::string(), std::string("text"), std::string("<r>"), std::string("<r></s>"),
                                    std::string("<!-- only -->"), deep})
        EXPECT_EQ(document.LoadFromString(text), nullptr) << text.substr(0, 20);
    EXPECT_NE(document.LoadFromString("<r>" + wide + "</r>"), nullptr);
    ASSERT_NE(document.LoadFromString(bomb), nullptr);
    std::string text;
    EXPECT_TRUE(document.GetAttribute("n", text));
    EXPECT_EQ(text, "&b;");  // no entity is expanded
}

TEST(XmlAccess, ArraysAreTokens) {
    const auto tokens = [](const std::string& text) {
        SDOMXMLWrapper document, array;
        EXPECT_TRUE(document.LoadFromString("<r><Array>" + text + "</Array></r>"));
        EXPECT_TRUE(document.GetFirstElement("Array", array, true));
        Texts list{"before"};
        return array.GetSimpleArray(list) ? list : Texts{"refused"};
    };
    EXPECT_THAT(tokens(" 1\t2\n 3 "), ElementsAre("1", "2", "3"));
    EXPECT_THAT(tokens(""), ElementsAre());
    EXPECT_THAT(tokens(R"("a b" "" "\"q\\" c"d)"), ElementsAre("a b", "", "\"q\\", "c\"d"));
    EXPECT_THAT(tokens("&lt;M&gt; \"multi\nline\""), ElementsAre("<M>", "multi\nline"));
    EXPECT_THAT(tokens("\"open"), ElementsAre("refused"));
    EXPECT_THAT(tokens("\"open\\\""), ElementsAre("refused"));
}

TEST(XmlAccess, TextsSpellNumbers) {
    const std::pair<const char*, int> integers[] = {{"12", 12},
                                                    {" +7", 7},
                                                    {"-3", -3},
                                                    {"", 0},
                                                    {"x", 0},
                                                    {"3.9", 3},
                                                    {"2147483648", std::numeric_limits<int>::max()},
                                                    {"-99999999999999999999", std::numeric_limits<int>::min()}};
    for (const auto& [text, value] : integers)
        EXPECT_EQ(String2Integer(text), value) << text;
    EXPECT_EQ(String2Double("1.7976931348623157e308"), 1.7976931348623157e308);
    EXPECT_EQ(String2Double(" +0.1"), 0.1);
    EXPECT_EQ(String2Double("1,5"), 1.0);  // whatever the locale
    EXPECT_EQ(String2Double("x"), 0.0);
    const std::pair<const char*, int> romans[] = {{"I", 1}, {"III", 3}, {"IV", 4},  {"iii", 3}, {"MCMXCIV", 1994},
                                                  {"", 0},  {"3", 0},   {"IIX", 8}, {"I I", 0}};
    for (const auto& [text, value] : romans)
        EXPECT_EQ(Roman2Integer(text), value) << text;
}

TEST(XmlAccess, ValuesAreLoadedAgainstTheirVariables) {
    reading_test::Reading reading;
    const QVTA_Variable& number = reading.Source().GetVariable(reading_test::kY);
    const QVTA_Variable& text = reading.Source().GetVariable(reading_test::kU);  // two bytes
    CFStatVariableValue value("1.5");
    EXPECT_EQ(value.GetObsValue(), nullptr);
    EXPECT_TRUE(value.LoadObsValue(number, 0));
    EXPECT_EQ(value.GetObsValue()->fNumber, 1.5);
    value.SetStringValue("red");
    EXPECT_EQ(value.GetObsValue(), nullptr);
    EXPECT_FALSE(value.LoadObsValue(number, 0));
    EXPECT_FALSE(value.SetCompleteValue("1.5 red", number, 0));
    EXPECT_EQ(value.GetObsValue(), nullptr);
    for (const char* missing : {"", "."}) {
        EXPECT_TRUE(value.SetCompleteValue(missing, number, 0));
        EXPECT_EQ(value.GetObsValue()->fNumber, SYSMIS);
    }
    EXPECT_TRUE(value.SetCompleteValue("lo", text, 0));
    EXPECT_EQ(std::string(value.GetObsValue()->fText, 8), "lo      ");
    EXPECT_FALSE(value.SetCompleteValue("longer than a cell", text, 0));
}

}  // namespace
