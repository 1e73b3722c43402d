// Documents that differ from the full one: defaults, empty numbers, foreign words, other orders.
#include "results/Reading.h"

#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace reading_test;
using testing::IsEmpty;
using testing::SizeIs;
using Texts = std::vector<std::string>;
using Ints = std::vector<int>;
using Doubles = std::vector<double>;

struct Variation {
    Change fChange;
    std::function<void(HRFTOutputStats&)> fCheck;
};

void ExpectAll(const std::vector<Variation>& variations) {
    for (const Variation& variation : variations) {
        SCOPED_TRACE(variation.fChange.front().first + " -> " + variation.fChange.front().second);
        Reading reading;
        EXPECT_TRUE(reading.Read(Changed(FullDocument(), variation.fChange)));
        if (testing::Test::HasFailure()) return;
        variation.fCheck(reading.Stats());
    }
}

TEST(Reader, SettingsTakeTheirDefaults) {
    const std::string residual = "name=\"ResidualCovarianceType\" value=\"AR1\"";
    const auto kronecker = [&](const char* word) {
        return std::string("name=\"ResidualCovarianceType\" value=\"") + word + "\"";
    };
    const std::string free = "name=\"Colour\" value=\"green\"";
    const auto with = [](auto member, auto value) {
        return [=](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetBuildSettings()->*member, value); };
    };
    const auto trials = [&](const char* text, int value) -> Variation {
        return {{{free, std::string("name=\"TrialsValue\" value=\"") + text + "\""}},
                with(&BuildSettings::fTrialsValue, value)};
    };
    const int least = std::numeric_limits<int>::min();
    std::vector<Variation> variations{
        {{{residual, kronecker("ar1")}}, with(&BuildSettings::fResidualCovType, 19)},
        {{{residual, kronecker("SPLINLOG")}}, with(&BuildSettings::fResidualCovType, 17)},
        {{{residual, "name=\"ResidualCovarianceType\""}}, with(&BuildSettings::fResidualCovType, 19)},
        {{{residual, kronecker("UN_AR1")}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetBuildSettings()->fResidualCovType, 9);
             EXPECT_FALSE(stats.GetBuildSettings()->fKronecker);
         }},
        {{{residual, kronecker("UN_CS")},
          {free + "/>",
           "name=\"KroneckerMeasure\"><StructuredValue><Attribute name=\"Fields\"><ListValue>"
           "<Value value=\"u\"/></ListValue></Attribute></StructuredValue></Parameter>"}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetBuildSettings()->fResidualCovType, 12);
             EXPECT_TRUE(stats.GetBuildSettings()->fKronecker);
         }},
        {{{"name=\"ResidualCovarianceTBand\" value=\"3\"", "name=\"ResidualCovarianceTBand\" value=\"\""}},
         with(&BuildSettings::fResidualCovTBand, 2)},
        {{{"value=\"SEQSIDAK\"", "value=\"SEQSIDA\""}}, with(&BuildSettings::fPAdjustment, 3)},
        {{{"value=\"SEQSIDAK\"", "value=\"SEQSIDAKS\""}}, with(&BuildSettings::fPAdjustment, 3)},
        {{{"name=\"pAdjustment\"", "name=\"padjustment\""}}, with(&BuildSettings::fPAdjustment, 3)},
        {{{"value=\"SEQSIDAK\"", "value=\"LSD\""}}, with(&BuildSettings::fPAdjustment, 0)},
        {{{"name=\"CIn\" value=\"0.9\"", "name=\"CIn\" value=\"\""}}, with(&BuildSettings::fConfidenceLevel, SYSMIS)},
        {{{"name=\"CIn\" value=\"0.9\"", "name=\"cin\""}}, with(&BuildSettings::fConfidenceLevel, SYSMIS)},
        {{{"name=\"Intercept\" value=\"true\"/>\n    <P", "name=\"Intercept\" value=\"True\"/>\n    <P"}},
         with(&BuildSettings::fIntercept, false)},
        {{{"value=\"NORMAL\"", "value=\"ORDINAL\""}}, with(&BuildSettings::fDistribution, 4)},
        {{{"value=\"NORMAL\"", "value=\"Normal\""}}, with(&BuildSettings::fDistribution, 8)},
        {{{"value=\"IDENTITY\"", "value=\"CAUCHIT\""}}, with(&BuildSettings::fLink, 8)},
        {{{"value=\"IDENTITY\"", "value=\"\""}}, with(&BuildSettings::fLink, 9)},
        {{{free, "name=\"LinkFunctionParam\" value=\"0.50\""}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetBuildSettings()->fLinkParam, 0.5);
             EXPECT_EQ(stats.GetBuildSettings()->fLinkParamText, "0.50");
         }},
        {{{free, "name=\"LinkFunctionParam\""}}, with(&BuildSettings::fLinkParam, SYSMIS)},
        {{{free + "/>", "name=\"ResidualGroupSpec\"><ListValue><Value value=\"a\"/><Value/></ListValue></Parameter>"}},
         with(&BuildSettings::fvResidualGroup, Texts{"a", ""})},
        {{{"ContrastType\" value=\"Simple\"", "ContrastType\" value=\"simple\""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetBuildSettings()->fvEMMeansSpecs[0].fContrastType, 4); }},
        {{{"<Attribute name=\"ContrastType\" value=\"Simple\"/>", ""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetBuildSettings()->fvEMMeansSpecs[0].fContrastType, 3); }},
        {{{"<Attribute name=\"ReferenceType\" value=\"Value\"/>", ""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetBuildSettings()->fvEMMeansSpecs[0].fReferenceType, 0); }},
        trials("", least),
        trials("1e300", least),
        trials("2147483648", least),
        trials("12.9", 12),
        trials("-3.9", -3),
        // An attribute without its list fails an effect only when it is the last one.
        {{{"<Attribute name=\"Fields\"><ListValue><Value value=\"t\"/>",
           "<Attribute name=\"Fields\"/><Attribute name=\"Fields\"><ListValue><Value value=\"t\"/>"}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetBuildSettings()->fRepeatedMeasure.fvFieldIndices, Ints{kT});
         }},
    };
    ExpectAll(variations);
}

TEST(Reader, EmptyNumbersAndForeignWordsHaveTheirMeanings) {
    const auto block = [](const char* number) {
        return std::string("parameterType=\"random\" block=\"") + number + "\"";
    };
    const std::string size = "<Matrix nbRows=\"3\" kind=\"symmetric\"><Array>1 2 3 4 5 6</Array>";
    const auto matrix = [](HRFTOutputStats& stats) -> MatrixData& {
        return stats.GetStructuredData()->fvRandEffCovars.at(0).fMatrixValues.at(0);
    };
    ExpectAll({
        {{{"name=\"AICC\" value=\"10.5\"", "name=\"AICC\" value=\"\""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetModelDiagnostics()->fAICC, SYSMIS); }},
        {{{"name=\"BIC\"", "name=\"AICC\""}},  // the last of a name
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetModelDiagnostics()->fAICC, 11.5);
             EXPECT_EQ(stats.GetModelDiagnostics()->fBIC, SYSMIS);
         }},
        {{{"name=\"numOfColsOfFixed\" value=\"7\"", "name=\"numOfColsOfFixed\" value=\"\""}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetModelDiagnostics()->fNumOfColsOfFixed, std::numeric_limits<int>::min());
         }},
        {{{"name=\"numOfColsOfFixed\"", "name=\"numofColsOfFixed\""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetModelDiagnostics()->fNumOfColsOfFixed, -1); }},
        {{{"description=\"TargetDistribution\"", "description=\"Another\""}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetModelDiagnostics()->fTargetDist.fDescription, "Another");
             EXPECT_THAT(stats.GetModelDiagnostics()->fTargetDist.fvObserved, IsEmpty());
         }},
        {{{"description=\"observedByPredicted\"", "description=\"Another\""}},
         [](HRFTOutputStats& stats) {
             EXPECT_THAT(stats.GetModelDiagnostics()->fPredByObserved.fvObserved, IsEmpty());
         }},
        // An absent prediction counts as 0 in the bounds.
        {{{"<Array>1 4</Array>", "<Array/>"}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetModelDiagnostics()->fPredByObserved.fMinValue, 0);
             EXPECT_EQ(stats.GetModelDiagnostics()->fPredByObserved.fMaxValue, 5);
         }},
        {{{"<Array>1 4</Array>", "<Array>__MISSING__ 9</Array>"}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetModelDiagnostics()->fPredByObserved.fMinValue, SYSMIS);
             EXPECT_EQ(stats.GetModelDiagnostics()->fPredByObserved.fMaxValue, 9);
         }},
        {{{"ModelTestStats", "OtherTests"}}, [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetEffectTest(), nullptr); }},
        {{{"<StructuredData description=\"firstSubjectRecordsForDataStructure\">",
           "<StructuredData description=\"x\">"}},
         [](HRFTOutputStats& stats) { EXPECT_THAT(stats.GetStructuredData()->fSubjectData.fvFieldNames, IsEmpty()); }},
        {{{"StructuredData", "StructureData"}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetStructuredData(), nullptr); }},
        {{{"\"classificationTable\"", "\"classificationTables\""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetClassifMatrixData(), nullptr); }},
        {{{"name=\"UseTrials\" value=\"false\"", "name=\"UseTrials\" value=\"true\""}},
         [](HRFTOutputStats& stats) { EXPECT_THAT(stats.GetClassifMatrixData()->fvLabels, IsEmpty()); }},
        {{{"name=\"Colour\" value=\"green\"", "name=\"TrialsField\" value=\"n\""}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(TextsOf(stats.GetStructuredData()->fvTrialsValues), (Texts{"20", "30"}));
         }},
        {{{size, "<Matrix nbRows=\"6\" kind=\"diagonal\"><Array>1 2 3 4 5 6</Array>"}},
         [&](HRFTOutputStats& stats) {
             EXPECT_EQ(matrix(stats).fvRows.at(2).fvValues, (Doubles{0, 0, 3, 0, 0, 0}));
             EXPECT_EQ(matrix(stats).fvRows.at(2).fRowSum, 3);
         }},
        {{{size, "<Matrix nbRows=\"3\" nbCols=\"2\"><Array>1 2 3 4 5 6</Array>"}},
         [&](HRFTOutputStats& stats) {
             EXPECT_EQ(matrix(stats).fvRows.at(1).fvValues, (Doubles{3, 4, 0}));
         }},
        {{{size, "<Matrix nbRows=\"2\" kind=\"other\"><Array>1 2 3 4</Array>"}},
         [&](HRFTOutputStats& stats) {
             EXPECT_EQ(matrix(stats).fvRows.at(1).fvValues, (Doubles{3, 4}));
         }},
        {{{size, "<Matrix nbRows=\"0\"><Array/>"}},
         [&](HRFTOutputStats& stats) { EXPECT_THAT(matrix(stats).fvRows, IsEmpty()); }},
        {{{block("0"), block("2")}},
         [](HRFTOutputStats& stats) {
             const auto& blocks = stats.GetParamCollect()->fvRandomParamEstim;
             ASSERT_THAT(blocks, SizeIs(3));
             EXPECT_EQ((Ints{blocks[0].fBlock, blocks[1].fBlock, blocks[2].fBlock}), (Ints{2, 2, 2}));
             EXPECT_THAT(blocks[0].fvParamEstim, IsEmpty());
             EXPECT_THAT(blocks[2].fvParamEstim, SizeIs(1));
         }},
        // Out of order, a lower block lands in the entry that was made to fill the gap.
        {{{block("0"), block("2")}, {"parameterType=\"colour\"", block("1")}},
         [](HRFTOutputStats& stats) {
             const auto& blocks = stats.GetParamCollect()->fvRandomParamEstim;
             ASSERT_THAT(blocks, SizeIs(3));
             EXPECT_EQ(blocks[1].fBlock, 2);
             EXPECT_EQ(blocks[1].fvParamEstim.at(0).fvParameterStats.at(0).fParamName, "z");
         }},
        {{{block("0"), block("")}},
         [](HRFTOutputStats& stats) { EXPECT_THAT(stats.GetParamCollect()->fvRandomParamEstim, SizeIs(1)); }},
        {{{"value=\"0\"/>\n        </ParameterStats>", "value=\"\"/>\n        </ParameterStats>"}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetParamCollect()->fvFixedParamEstim[0].fvParameterStats[1].fStatisticInt, 0);
         }},
        {{{"<MapEntry name=\"P1\"><Label><RegressionParameter isIntercept=\"true\"",
           "<MapEntry name=\"P1\"><Label><RegressionParameter"}},
         [](HRFTOutputStats& stats) { EXPECT_THAT(stats.GetStringMapCollect()->at(0).fvEntries, SizeIs(2)); }},
        {{{"description=\"simpleContrast\"", "description=\"SimpleContrast\""}},
         [](HRFTOutputStats& stats) {
             EXPECT_EQ(stats.GetEmmeansData()->at(0).fContrasts.fContrastKind, 3);
             EXPECT_EQ(stats.GetEmmeansData()->at(0).fContrasts.fDf.fvValues, (Texts{"8", "9"}));
         }},
        {{{"name=\"adjustedSigLevel\" value=\"0.1\"", "name=\"adjustedSigLevel\""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetEmmeansData()->at(0).fContrasts.fAdjustedSigLevel, SYSMIS); }},
        {{{"name=\"EMMEANSIndex\" value=\"0\"", "name=\"EMMEANSIndex\" value=\"\""}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetEmmeansData()->at(0).fEmmeansIndex, -1); }},
        {{{"<MultivariateData description=\"contrasts\">", "<MultivariateData description=\"differences\">"}},
         [](HRFTOutputStats& stats) {
             EXPECT_THAT(stats.GetEmmeansData()->at(0).fContrasts.fvCoordinates, IsEmpty());
         }},
        // A broken axis only cuts the list of axes short.
        {{{"field=\"u\"><Array>hi lo hi lo</Array>", "field=\"u\">"}},
         [](HRFTOutputStats& stats) {
             EXPECT_THAT(stats.GetEmmeansData()->at(0).fEstimates.fvCoordinates, SizeIs(1));
         }},
        {{{"<DataGroup description=\"Emmeans\">", "<DataGroup description=\"EMMEANS\">"}},
         [](HRFTOutputStats& stats) { EXPECT_EQ(stats.GetEmmeansEstimates(), nullptr); }},
    });
}

TEST(Reader, BlocksStandInAnyOrder) {
    // The settings behind the model, the summary of the training before the diagnostics.
    std::string text = FullDocument();
    const auto cut = [&text](const std::string& name) {
        const std::size_t begin = text.find("<" + name + ">");
        const std::size_t end = text.find("</" + name + ">") + name.size() + 3;
        const std::string piece = text.substr(begin, end - begin);
        text.erase(begin, end - begin);
        return piece;
    };
    const std::string settings = cut("BuildSettings");
    const std::string diagnostics = cut("ModelDiagnostics");
    text = Changed(text, {{"</PMMLModel>", diagnostics + "</PMMLModel>" + settings}});
    Reading reading;
    ASSERT_TRUE(reading.Read(text));
    EXPECT_EQ(reading.Settings().fTargetIndex, kY);
    EXPECT_EQ(reading.Stats().GetModelDiagnostics()->fBIC, 11.5);
    EXPECT_EQ(reading.Stats().GetStructuredData()->fvRandEffCovars.at(0).fvEffectLabels.at(1), "x*x*[u=hi]");
    EXPECT_THAT(reading.Stats().GetParamCollect()->fvFixedParamEstim, SizeIs(1));
}

TEST(Reader, VariablesFindTheirFields) {
    Reading reading;
    ASSERT_TRUE(reading.Read(FullDocument()));
    const VarMapInfo& map = reading.Stats().GetVarMapInfo();
    EXPECT_EQ(map.fvFieldToVarList, (Ints{0, 1, 3, 4, 5, 6, 7, 8, -1}));
    EXPECT_EQ(map.fvVarListToField, (Ints{0, 1, -1, 2, 3, 4, 5, 6, 7}));  // the third is in no data
    EXPECT_EQ(map.fvCategoryCount, (Ints{0, 2, 1, 3, 2, 2, 3, 0, 0}));
    EXPECT_EQ(map.fvbCategorical, (std::vector<bool>{false, true, true, true, true, true, true, false, false}));
    EXPECT_EQ(reading.Stats().GetFieldFormat(-1), nullptr);
    EXPECT_EQ(reading.Stats().GetFieldFormat(9), nullptr);
    EXPECT_EQ(*reading.Stats().GetFieldFormat(kY), reading.Source().GetVariable(kY).GetFormat());
    EXPECT_EQ(HRFTOutputStats().GetFieldFormat(0), nullptr);
}

}  // namespace
