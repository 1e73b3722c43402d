// What a result document holds, and what of it is refused.
#include "results/Reading.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace reading_test;
using testing::IsEmpty;
using testing::SizeIs;
using Texts = std::vector<std::string>;
using Ints = std::vector<int>;
using Doubles = std::vector<double>;

struct Heard : output::Visitor {
    void Show(const output::Message& message) override {
        fvTexts.push_back(message.fpText->Identity() + " " + std::to_string(message.fLevel));
    }
    Texts fvTexts;
};

Texts MessagesOf(Reading& reading) {
    Heard heard;
    reading.Document().Root().Visit(heard);
    return heard.fvTexts;
}

const Texts kRefused{"k:StatXML parsing error ... 3"};

TEST(Reader, SettingsHaveTheirPlaces) {
    Reading reading;
    ASSERT_TRUE(reading.Read(FullDocument()));
    EXPECT_THAT(MessagesOf(reading), IsEmpty());
    const BuildSettings& settings = reading.Settings();
    EXPECT_EQ(settings.fTargetName, "y");
    EXPECT_EQ(settings.fTargetIndex, kY);
    EXPECT_FALSE(settings.fUseTrials);
    EXPECT_EQ(settings.fTrialsIndex, -1);
    EXPECT_EQ(settings.fTrialsValue, 0);
    EXPECT_EQ(settings.fDistributionName, "NORMAL");
    EXPECT_EQ(settings.fDistribution, 6);
    EXPECT_EQ(settings.fLinkName, "IDENTITY");
    EXPECT_EQ(settings.fLink, 1);
    EXPECT_EQ(settings.fLinkParam, SYSMIS);
    EXPECT_EQ(settings.fAlgorithmName, "GLMM");
    EXPECT_EQ(settings.fConfidenceLevel, 0.9);
    EXPECT_EQ(settings.fResidualCovType, 1);
    EXPECT_FALSE(settings.fKronecker);
    EXPECT_EQ(settings.fResidualCovTBand, 3);
    EXPECT_EQ(settings.fResidualSubject.fvFieldIndices, Ints{kS});
    EXPECT_EQ(settings.fResidualSubject.fvNestingLevels, Ints{0});
    EXPECT_EQ(settings.fRepeatedMeasure.fvFieldIndices, Ints{kT});
    EXPECT_THAT(settings.fRepeatedMeasure.fvNestingLevels, IsEmpty());
    EXPECT_EQ(settings.fPAdjustment, 2);

    ASSERT_THAT(settings.fvFixedEffectList, SizeIs(2));
    EXPECT_EQ(settings.fvFixedEffectList[0].fvFieldNames, (Texts{"a", "u"}));
    EXPECT_EQ(settings.fvFixedEffectList[0].fvFieldIndices, (Ints{kA, kU}));
    EXPECT_EQ(settings.fvFixedEffectList[0].fvNestingLevels, (Ints{0, 1}));
    EXPECT_EQ(settings.fvFixedEffectList[1].fvFieldNames, Texts{"x"});

    ASSERT_THAT(settings.fvRandomSpecs, SizeIs(1));
    const RandomSpec& random = settings.fvRandomSpecs[0];
    EXPECT_TRUE(random.fIntercept);
    ASSERT_THAT(random.fvEffectList, SizeIs(1));
    EXPECT_EQ(random.fvEffectList[0].fvFieldIndices, Ints{kX});
    EXPECT_EQ(random.fSubject.fvFieldIndices, Ints{kS});
    EXPECT_THAT(random.fvGroup, IsEmpty());
    EXPECT_EQ(random.fCovType, 9);
    EXPECT_EQ(random.fCovTBand, 2);

    ASSERT_THAT(settings.fvEMMeansSpecs, SizeIs(1));
    const EMMeansSpec& means = settings.fvEMMeansSpecs[0];
    EXPECT_EQ(means.fFactors.fvFieldIndices, (Ints{kA, kU}));
    EXPECT_TRUE(means.fEstimateMeans);
    EXPECT_EQ(means.fCompareFactor, "u");
    EXPECT_EQ(means.fContrastType, 2);
    EXPECT_EQ(means.fReferenceType, 1);
    EXPECT_EQ(means.fReferenceValue, "lo");
}

TEST(Reader, DiagnosticsHaveTheirPlaces) {
    Reading reading;
    ASSERT_TRUE(reading.Read(FullDocument()));
    const ModelDiagnostics& diagnostics = *reading.Stats().GetModelDiagnostics();
    EXPECT_EQ((Doubles{diagnostics.fAICC, diagnostics.fBIC, diagnostics.fMinus2LogLikelihood,
                       diagnostics.fClassificationAccuracy}),
              (Doubles{10.5, 11.5, -62.5, 0.75}));
    EXPECT_EQ((Ints{diagnostics.fNumOfCovParamOfRepeated, diagnostics.fNumOfCovParamOfRandom,
                    diagnostics.fNumOfColsOfFixed, diagnostics.fNumOfColsOfRandom, diagnostics.fNumOfCommonSubjects}),
              (Ints{2, 3, 7, 2, 3}));
    EXPECT_EQ((Doubles{diagnostics.fGrandMean, diagnostics.fGrandMeanStdErr, diagnostics.fGrandMeanCILower,
                       diagnostics.fGrandMeanCIUpper}),
              (Doubles{4.5, 0.5, 3.5, 5.5}));

    const TargetDistData& target = diagnostics.fTargetDist;
    EXPECT_EQ(target.fTotalFreq, 12);
    EXPECT_EQ((Doubles{target.fMean, target.fStdDeviation, target.fShape, target.fRate, target.fR, target.fP}),
              (Doubles{5, 2, 1.5, 2.5, 3.5, 0}));
    EXPECT_EQ(target.fvObserved, (Doubles{1, 2, SYSMIS}));
    EXPECT_EQ(target.fvFrequency, (Doubles{5, 6, 1}));

    const PredByObservedData& pairs = diagnostics.fPredByObserved;
    EXPECT_EQ(pairs.fDescription, "observedByPredicted");
    EXPECT_EQ(pairs.fTotalFreq, 12);
    EXPECT_EQ(pairs.fvObserved, (Doubles{2, 5}));
    EXPECT_EQ(pairs.fvStatistic, (Doubles{1, 4}));
    EXPECT_EQ(pairs.fvFrequency, (Doubles{7, 5}));
    EXPECT_EQ(pairs.fMinValue, 1);
    EXPECT_EQ(pairs.fMaxValue, 5);

    const EffectTest& tests = *reading.Stats().GetEffectTest();
    const auto figures = [](const EffectTestStat& test) {
        return Doubles{double(test.fTestID), double(test.fTestType), test.fFStatistic, test.fSig, test.fDf1, test.fDf2};
    };
    EXPECT_EQ(figures(tests.fCorrectedModel), (Doubles{0, 3, 3, 0.04, 2, 8.5}));
    ASSERT_THAT(tests.fvFixedEffectTests, SizeIs(2));
    EXPECT_EQ(figures(tests.fvFixedEffectTests[0]), (Doubles{0, 3, 4, 0.03, 1, SYSMIS}));
    EXPECT_EQ(figures(tests.fvFixedEffectTests[1]), (Doubles{0, 0, SYSMIS, 0.02, SYSMIS, SYSMIS}));
}

TEST(Reader, StructuredDataHaveTheirPlaces) {
    Reading reading;
    ASSERT_TRUE(reading.Read(FullDocument()));
    const StructuredData& data = *reading.Stats().GetStructuredData();
    EXPECT_EQ(data.fTotalFreq, 11);
    EXPECT_EQ(data.fSubjectData.fvFieldNames, Texts{"s"});
    EXPECT_EQ(data.fSubjectData.fvFieldIndices, Ints{kS});
    EXPECT_EQ(TextsOf(data.fSubjectData.fSubjectValues), Texts{"s 1"});
    EXPECT_EQ(data.fSubjectData.fvCategoryCounts, Ints{3});
    ASSERT_THAT(data.fvRepeatedMeasures, SizeIs(2));
    EXPECT_EQ(data.fvRepeatedMeasures[0].fRepMeasInd, kT);
    EXPECT_EQ(data.fvRepeatedMeasures[0].fNumLevels, 3);
    EXPECT_EQ(data.fvRepeatedMeasures[1].fFieldName, "u");
    EXPECT_EQ(TextsOf(data.fvRepeatedMeasures[1].fvValues), (Texts{"lo", "hi"}));
    EXPECT_EQ(TextsOf(data.fvTargetValues), (Texts{"1.5", "2.5"}));
    EXPECT_EQ(data.fvTargetValues[1].GetObsValue()->fNumber, 2.5);
    EXPECT_THAT(data.fvTrialsValues, IsEmpty());  // n is no trials field here

    ASSERT_THAT(data.fvRandEffCovars, SizeIs(1));
    const RandEffCovars& covars = data.fvRandEffCovars[0];
    EXPECT_EQ(covars.fName, "blockNumber");
    EXPECT_EQ(covars.fValue, 0);
    // The last label stands in no map, and stays empty.
    EXPECT_EQ(covars.fvEffectLabels, (Texts{"Intercept", "x*x*[u=hi]", ""}));
    ASSERT_THAT(covars.fMatrixValues, SizeIs(1));
    ASSERT_THAT(covars.fSimpleSubjects, SizeIs(1));
    EXPECT_THAT(covars.fSimpleSubjects[0].fvFieldNames, IsEmpty());
    const MatrixData& matrix = covars.fMatrixValues[0];
    ASSERT_THAT(matrix.fvRows, SizeIs(3));
    EXPECT_EQ(matrix.fvRows[0].fvValues, (Doubles{1, 2, 4}));
    EXPECT_EQ(matrix.fvRows[2].fvValues, (Doubles{4, 5, 6}));
    EXPECT_EQ(matrix.fvRows[1].fRowSum, 10);

    const MatrixData& table = *reading.Stats().GetClassifMatrixData();
    EXPECT_EQ(table.fNRows, 2);
    ASSERT_THAT(table.fvLabels, SizeIs(2));
    EXPECT_EQ(table.fvLabels[0].GetObsValue()->fNumber, 1);
    EXPECT_EQ(table.fvLabels[1].GetObsValue(), nullptr);  // "red" is no value of a number, which is ignored
    EXPECT_EQ(table.fvRows[0].fvValues, (Doubles{3, 1}));
    EXPECT_EQ(table.fvRows[1].fRowSum, 0);
}

TEST(Reader, EstimatesHaveTheirPlaces) {
    Reading reading;
    ASSERT_TRUE(reading.Read(FullDocument()));
    const ParamCollect& collect = *reading.Stats().GetParamCollect();
    const auto figures = [](const ParameterStatsData& stats) {
        return Doubles{stats.fEstimate,          stats.fStdError,    stats.fDf,         stats.fConfIntervalLower,
                       stats.fConfIntervalUpper, stats.fTTest,       stats.fZTest,      stats.fSig,
                       stats.fChiSquare,         stats.fExpEstimate, stats.fExpCILower, stats.fExpCIUpper};
    };
    ASSERT_THAT(collect.fvFixedParamEstim, SizeIs(1));
    EXPECT_EQ(collect.fvFixedParamEstim[0].fNumUNParam, -1);
    ASSERT_THAT(collect.fvFixedParamEstim[0].fvParameterStats, SizeIs(2));
    const ParameterStatsData& intercept = collect.fvFixedParamEstim[0].fvParameterStats[0];
    EXPECT_EQ(figures(intercept), (Doubles{1.25, 0.25, 9, 1, 1.5, 5, SYSMIS, 0.001, SYSMIS, 3.5, 2.5, 4.5}));
    EXPECT_TRUE(intercept.fRegrParam.fIsIntercept);
    EXPECT_EQ(intercept.fStatisticInt, -1);
    EXPECT_FALSE(intercept.fIsRedundant);
    const ParameterStatsData& slope = collect.fvFixedParamEstim[0].fvParameterStats[1];
    Doubles none(12, SYSMIS);
    none[8] = 25;
    EXPECT_EQ(figures(slope), none);
    EXPECT_TRUE(slope.fIsRedundant);
    EXPECT_EQ(slope.fParamName, "P2");
    EXPECT_EQ(slope.fParamLabel, "a=1");
    EXPECT_EQ(slope.fStatisticName, "fixedEffectIndex");
    EXPECT_EQ(slope.fStatisticValue, "0");
    EXPECT_EQ(slope.fStatisticInt, 0);
    ASSERT_THAT(slope.fRegrParam.fvCovariates, SizeIs(1));
    EXPECT_EQ(slope.fRegrParam.fvCovariates[0].fVarIndex, kX);
    EXPECT_EQ(slope.fRegrParam.fvCovariates[0].fPower, 0);
    ASSERT_THAT(slope.fRegrParam.fvFactors, SizeIs(1));
    EXPECT_TRUE(slope.fRegrParam.fvFactors[0].fNest);
    EXPECT_EQ(slope.fRegrParam.fvFactors[0].fValue.GetObsValue()->fNumber, 1);

    ASSERT_THAT(collect.fvRepeatedParamEstim, SizeIs(1));
    const ParamEstimData& repeated = collect.fvRepeatedParamEstim[0];
    EXPECT_EQ(repeated.fNumUNParam, 2);
    EXPECT_EQ(repeated.fFiledData.fvFieldIndices, Ints{kA});
    const PrintableList& list = repeated.fvParameterStats.at(0).fPrintableList;
    EXPECT_EQ(list.fPattern, "Variance ");
    EXPECT_TRUE(list.fIsKey);
    EXPECT_EQ(list.fMapId, -1);
    ASSERT_THAT(list.fvLists, SizeIs(1));
    EXPECT_EQ(list.fvLists[0].fPattern, "inner");
    ASSERT_THAT(list.fvValues, SizeIs(2));
    EXPECT_EQ(list.fvValues[0].fStorage, 2);
    EXPECT_TRUE(list.fvValues[0].fIsNull);
    EXPECT_EQ(list.fvValues[0].fLabel, "L");
    EXPECT_EQ(list.fvValues[1].fStorage, 0);

    ASSERT_THAT(collect.fvRandomParamEstim, SizeIs(1));
    EXPECT_EQ(collect.fvRandomParamEstim[0].fBlock, 0);
    EXPECT_EQ(collect.fvRandomParamEstim[0].fvParamEstim.at(0).fvParameterStats.at(0).fZTest, 3);

    // The message with an empty pattern is skipped.
    ASSERT_THAT(reading.Stats().GetWarningList(), SizeIs(1));
    EXPECT_EQ(reading.Stats().GetWarningList()[0].fMessage, "kGLMM_C28");
    EXPECT_EQ(reading.Stats().GetWarningList()[0].fWarningParameters, (Texts{"one", "two"}));
}

TEST(Reader, MapsAreSearchedInOrder) {
    Reading reading;
    ASSERT_TRUE(reading.Read(FullDocument()));
    const HRFTOutputStats& stats = reading.Stats();
    ASSERT_THAT(*stats.GetStringMapCollect(), SizeIs(3));
    EXPECT_EQ(stats.GetStringMapCollect()->at(2).fMapId, -1);
    RegrParamInfo param;
    param.fName = "kept";
    EXPECT_EQ(stats.LookUpMapEntry(2, "P1", param), 2);
    EXPECT_EQ(stats.LookUpMapEntry(1, "P3", param), 3);  // it stands in the second map of that number
    EXPECT_EQ(param.fName, "kept");
    EXPECT_EQ(stats.LookUpMapEntry(1, "P2", param), 0);
    EXPECT_EQ(param.fName, "P2");
    EXPECT_EQ(param.fvCovariates.at(0).fPower, 2);
    EXPECT_EQ(HRFTOutputStats().LookUpMapEntry(1, "P2", param), 1);

    std::string text = "as it was";
    PrintableList list;
    list.fPattern = "P9";
    list.fMapId = 1;
    EXPECT_FALSE(stats.PrintableListText(list, text));
    list.fMapId = -1;
    EXPECT_TRUE(stats.PrintableListText(list, text));
    EXPECT_EQ(text, "P9");
}

TEST(Reader, MeansHaveTheirPlaces) {
    Reading reading;
    ASSERT_TRUE(reading.Read(FullDocument()));
    ASSERT_THAT(*reading.Stats().GetEmmeansEstimates(), SizeIs(1));
    const EmmeansEstimates& top = reading.Stats().GetEmmeansEstimates()->at(0);
    EXPECT_EQ(top.fMean.fvValues, (Texts{"3.5", "4.5"}));  // the later one of the name
    EXPECT_EQ(top.fMean.fFeature, 2);
    EXPECT_EQ(top.fStdErr.fvValues, (Texts{"0.5", "__MISSING__"}));
    ASSERT_THAT(top.fvCoordinates, SizeIs(1));
    EXPECT_EQ(top.fvCoordinates[0].fField, "a");
    EXPECT_EQ(top.fvCoordinates[0].fFeature, 3);

    ASSERT_THAT(*reading.Stats().GetEmmeansData(), SizeIs(1));
    const EmmeansData& custom = reading.Stats().GetEmmeansData()->at(0);
    EXPECT_EQ(custom.fEmmeansIndex, 0);
    ASSERT_THAT(custom.fvLabels, SizeIs(1));
    EXPECT_EQ(custom.fvLabels[0].fPattern, "x");
    EXPECT_EQ(custom.fvLabels[0].fValue.GetObsValue()->fNumber, 2.25);
    EXPECT_EQ(custom.fEstimates.fConfIntervalLower.fvValues, (Texts{"0", "1", "2", "3"}));
    EXPECT_EQ(custom.fEstimates.fConfIntervalUpper.fvValues, (Texts{"2", "3", "4", "5"}));
    const EmmeansContrasts& contrasts = custom.fContrasts;
    EXPECT_EQ(contrasts.fAdjustedSigLevel, 0.1);
    EXPECT_EQ(contrasts.fContrastKind, 2);
    EXPECT_THAT(contrasts.fvCoordinates, SizeIs(3));
    EXPECT_EQ(contrasts.fContrastEstimate.fvValues, (Texts{"-1", "-1.5"}));
    EXPECT_EQ(contrasts.fStdErr.fvValues, (Texts{"0.3", "0.4"}));
    EXPECT_EQ(contrasts.fTTest.fvValues, (Texts{"-3.3", "-3.4"}));
    EXPECT_EQ(contrasts.fDf.fvValues, (Texts{"8", "9"}));
    EXPECT_EQ(contrasts.fAdjustedSig.fvValues, (Texts{"0.01", "0.02"}));
    EXPECT_EQ(contrasts.fConfIntervalLower.fvValues, (Texts{"-2", "-2.5"}));
    EXPECT_EQ(contrasts.fConfIntervalUpper.fvValues, (Texts{"0", "0.5"}));
    ASSERT_THAT(custom.fvOverallTests, SizeIs(2));
    EXPECT_EQ(custom.fvOverallTests[0].fTestID, 3);
    EXPECT_EQ(custom.fvOverallTests[0].fSegment.fvFieldIndices, Ints{kA});
    const auto figures = [](const EmmeansOverallTest& test) {
        return Doubles{test.fFStatistic, test.fSig, test.fDf1, test.fDf2};
    };
    EXPECT_EQ(figures(custom.fvOverallTests[0]), (Doubles{6, 0.05, 1, 7}));
    EXPECT_EQ(custom.fvOverallTests[1].fTestID, -1);
    EXPECT_EQ(figures(custom.fvOverallTests[1]), Doubles(4, SYSMIS));
    ASSERT_THAT(custom.fvWarningList, SizeIs(1));
    EXPECT_EQ(custom.fvWarningList[0].fMessage, "kGLMM_C20");
    EXPECT_EQ(custom.fvWarningList[0].fWarningParameters, Texts{"u"});
}

/// Every one of these ends the reading, with one message.
TEST(Reader, BrokenDocumentsAreRefusedWithOneMessage) {
    const std::string subject = "<SegmentInfo><FieldInfo fieldName=\"s\" fieldValue=\"s 1\"/></SegmentInfo>";
    const std::string times = "<Coordinates field=\"t\"><Array>1 2</Array></Coordinates>";
    const std::string labels = "<Label><PrintableList pattern=\"P1\" isKey=\"true\" mapId=\"1\"/></Label>";
    const std::string size = "<Matrix nbRows=\"3\" kind=\"symmetric\">";
    const std::string table = "<Matrix description=\"classificationTable\" nbRows=\"2\" nbCols=\"2\">";
    const std::string overall = "<FTest fStatistic=\"6\" sig=\"0.05\" df1=\"1\" df2=\"7\"/>";
    const Change cases[] = {
        // the outer shape
        {{"</StatXML>", ""}},
        {{"<PredictiveSummary algorithmName=\"GLMM\"/>", ""}},
        {{"algorithmName=\"GLMM\"", ""}},
        {{"algorithmName=\"GLMM\"", "algorithmName=\"Glmm\""}},
        {{"BuildSettings>", "Settings>"}},
        {{"ModelDiagnostics>", "Diagnostics>"}},
        {{"StringMap", "Map"}},
        {{"<MapEntry name=\"P3\"><Label>", "<MapEntry name=\"P3\"><Label><Inner/></Label><Label>"}},
        {{"TrainingSummary>", "Summary>"}},
        // settings
        {{"<Parameter name=\"CIn\"", "<Parameter"}},
        {{"name=\"TargetField\" value=\"y\"", "name=\"TargetField\" value=\"ghost\""}},
        {{"name=\"TargetField\" value=\"y\"", "name=\"TargetField\""}},
        {{"name=\"Colour\" value=\"green\"", "name=\"TrialsField\" value=\"ghost\""}},
        {{"<ListValue><Value value=\"t\"/>", "<ListValue><Value value=\"ghost\"/>"}},
        {{"<ListValue><Value value=\"t\"/>", "<ListValue><Value/>"}},
        {{"<Attribute name=\"Colour\"><ListValue><Value value=\"ghost\"/></ListValue>", "<Attribute name=\"Colour\">"}},
        {{"<Attribute name=\"Fields\"><ListValue><Value value=\"t\"/></ListValue></Attribute>", ""}},
        {{"name=\"RandomSpecs\"><ListValue>", "name=\"RandomSpecs\"><List>"},
         {"</ListValue></Parameter>\n    <Parameter name=\"EMM", "</List></Parameter>\n    <Parameter name=\"EMM"}},
        {{"name=\"RandomSpecs\"><ListValue>", "name=\"RandomSpecs\"><ListValue><StructuredValue/>"}},
        {{"name=\"Colour\" value=\"green\"", "name=\"EMMEANS\""}},
        // diagnostics
        {{"<Statistic name=\"BIC\" value=\"11.5\"/>", "<Statistic name=\"BIC\"/>"}},
        {{"<Statistic name=\"BIC\" value=\"11.5\"/>", "<Statistic value=\"11.5\"/>"}},
        {{"<Statistic name=\"mean\" value=\"5\"/>", "<Statistic name=\"mean\"/>"}},
        {{"<Coordinates feature=\"colour\">", "<Coordinates>"}},
        {{"<Array>5 6 1</Array>", ""}},
        {{"<Array>7 5</Array>", ""}},
        {{"<Coordinates feature=\"frequency\"><Array>7", "<Coordinates><Array>7"}},
        {{"<StructuredData description=\"colour\"/>", "<StructuredData/>"}},
        {{"<Counts totalFreq=\"11\"/>", ""}},
        {{subject, ""}},
        {{subject, "<SegmentInfo><FieldInfo fieldName=\"ghost\" fieldValue=\"1\"/></SegmentInfo>"}},
        {{subject, "<SegmentInfo><FieldInfo fieldName=\"x\" fieldValue=\"1\"/></SegmentInfo>"}},    // no categories
        {{subject, "<SegmentInfo><FieldInfo fieldName=\"w\" fieldValue=\"1\"/></SegmentInfo>"}},    // no entry
        {{subject, "<SegmentInfo><FieldInfo fieldName=\"a\" fieldValue=\"red\"/></SegmentInfo>"}},  // no number
        {{subject, "<SegmentInfo><FieldInfo fieldName=\"s\"/></SegmentInfo>"}},
        {{subject, "<SegmentInfo><FieldInfo fieldValue=\"s 1\"/></SegmentInfo>"}},
        {{times, "<Coordinates><Array>1 2</Array></Coordinates>"}},
        {{times, "<Coordinates field=\"ghost\"><Array>1 2</Array></Coordinates>"}},
        {{times, "<Coordinates field=\"w\"><Array>1 2</Array></Coordinates>"}},
        {{times, "<Coordinates field=\"t\"/>"}},
        {{times, "<Coordinates field=\"t\"><Array>1 red</Array></Coordinates>"}},
        {{"<Array>\"lo\" hi</Array>", "<Array>\"lo hi</Array>"}},
        {{"<Array>1.5 2.5</Array></Coordinates>\n              <Coordinates field=\"x\"",
          "<Array>1.5 red</Array></Coordinates><Coordinates field=\"x\""}},
        {{"<Coordinates field=\"n\"><Array>20 30</Array>", "<Coordinates field=\"n\">"}},
        {{"<Statistic name=\"blockNumber\" value=\"0\"/>", ""}},
        {{"<Statistic name=\"blockNumber\"", "<Statistic"}},
        {{labels, "<Label/>"}},
        {{labels, "<Label><PrintableList><PrintableValue value=\"1\"/></PrintableList></Label>"}},
        {{labels, "<Label><PrintableList><PrintableValue storage=\"real\"/></PrintableList></Label>"}},
        {{"<SegmentData><SegmentInfo/>", "<SegmentData>"}},
        {{size + "<Array>1 2 3 4 5 6</Array></Matrix>", ""}},
        {{size, "<Matrix kind=\"symmetric\">"}},
        {{size, "<Matrix nbRows=\"4\" kind=\"symmetric\">"}},
        {{size, "<Matrix nbRows=\"5\" kind=\"diagonal\">"}},
        {{size, "<Matrix nbRows=\"3\" nbCols=\"3\">"}},
        {{size, "<Matrix nbRows=\"2\" nbCols=\"3\">"}},  // more columns than a row can hold
        {{size, "<Matrix nbRows=\"-1\" kind=\"symmetric\">"}},
        {{size, "<Matrix nbRows=\"2000000000\" kind=\"symmetric\">"}},
        {{"<Label label=\"red\"/>", "<Label/>"}},
        {{table, "<Matrix description=\"classificationTable\" nbRows=\"2\" nbCols=\"-2\">"}},
        // means
        {{"<DataGroup description=\"colour\"/>", "<DataGroup description=\"Emmeans\"/>"}},
        {{"<DataGroup description=\"colour\"/>", "<DataGroup description=\"customEmmeans\"/>"}},
        {{"statistic=\"colour\"><Array>9 9</Array>", "statistic=\"colour\">"}},
        {{"<PrintableList pattern=\"x\">", "<PrintableList pattern=\"ghost\">"}},
        {{"<PrintableList pattern=\"x\">", "<PrintableList>"}},
        {{"<PrintableList pattern=\"2.25\"/>", ""}},
        {{"<PrintableList pattern=\"2.25\"/>", "<PrintableList/>"}},
        {{"<PrintableList pattern=\"2.25\"/>", "<PrintableList pattern=\"red\"/>"}},
        {{"<Label><PrintableList><PrintableList pattern=\"x\"><PrintableList pattern=\"2.25\"/></PrintableList>",
          "<Label><PrintableList>"}},
        {{"<Statistic name=\"EMMEANSIndex\" value=\"0\"/>", "<Statistic name=\"EMMEANSIndex\"/>"}},
        {{"<Statistic name=\"EMMEANSIndex\"", "<Statistic"}},
        {{"<MultivariateData description=\"colour\"/>", "<MultivariateData/>"}},
        {{"<Array>-2 -2.5</Array>", ""}},
        {{overall, ""}},
        {{overall, "<FTest fStatistic=\"6\" sig=\"0.05\" df1=\"1\"/>"}},
        {{"<ModelTestStats testID=\"3\"><SegmentInfo><FieldInfo fieldName=\"a\"",
          "<ModelTestStats><SegmentInfo><FieldInfo fieldName=\"x\""}},
        {{"<Message><PrintableList pattern=\"kGLMM_C20\">", "<Message><PrintableList>"}},
        // A message that can't be read undoes estimates that can.
        {{"<Message><PrintableList pattern=\"\"/></Message>", "<Message/>"}},
        {{"<Message><PrintableList pattern=\"\"/></Message>", "<Message><PrintableList/></Message>"}},
    };
    for (const Change& change : cases) {
        Reading reading;
        EXPECT_FALSE(reading.Read(Changed(FullDocument(), change)))
            << change.front().first << " -> " << change.front().second;
        EXPECT_EQ(MessagesOf(reading), kRefused) << change.front().first << " -> " << change.front().second;
    }
}

TEST(Reader, WhatARefusedDocumentLeaves) {
    Reading empty;
    EXPECT_FALSE(empty.Read(""));
    EXPECT_THAT(MessagesOf(empty), IsEmpty());
    EXPECT_EQ(empty.Stats().GetBuildSettings(), nullptr);
    EXPECT_NE(empty.Stats().GetVarList(), nullptr);

    for (const std::string pmml : {"", "<PMML/>", "<PMML><DataDictionary>", "no document"}) {
        Reading unread;
        EXPECT_FALSE(unread.Read(FullDocument(), pmml)) << pmml;
        EXPECT_THAT(MessagesOf(unread), IsEmpty());
        EXPECT_EQ(unread.Stats().GetVarList(), nullptr);
        EXPECT_EQ(unread.Stats().GetBuildSettings(), nullptr);
    }

    Reading settings;
    EXPECT_FALSE(settings.Read(
        Changed(FullDocument(), {{"name=\"TargetField\" value=\"y\"", "name=\"TargetField\" value=\"no\""}})));
    EXPECT_EQ(settings.Stats().GetBuildSettings(), nullptr);
    EXPECT_EQ(settings.Stats().GetStringMapCollect(), nullptr);

    Reading late;
    EXPECT_FALSE(late.Read(Changed(FullDocument(), {{"TrainingSummary>", "Summary>"}})));
    EXPECT_EQ(late.Stats().GetParamCollect(), nullptr);
    EXPECT_NE(late.Stats().GetModelDiagnostics(), nullptr);
    // A second document replaces the first and never merges with it.
    ASSERT_TRUE(late.Read(FullDocument()));
    EXPECT_THAT(*late.Stats().GetStringMapCollect(), SizeIs(3));
    EXPECT_THAT(late.Stats().GetStructuredData()->fvRandEffCovars, SizeIs(1));
    EXPECT_THAT(*late.Stats().GetEmmeansData(), SizeIs(1));
}

/// The engine can't estimate a model, writes no estimates that can be read, and says why.
TEST(Reader, EstimatesThatCannotBeReadAreForgivenWhenMessagesAreThere) {
    const std::string random = "parameterType=\"random\" block=\"0\"";
    const Change cases[] = {
        {{"ParameterEstimates", "Estimates"}},
        {{"parameterType=\"fixed\"", ""}},
        {{random, "parameterType=\"random\" block=\"2000000000\""}},
        {{random, "parameterType=\"random\" block=\"99999999999999999999\""}},
        {{random, "parameterType=\"random\" block=\"-1\""}},
        {{"paramLabel=\"a=1\"", ""}},
        {{"paramName=\"P1\"", ""}},
        {{"zTest=\"\" sig=\"0.001\"", "sig=\"0.001\""}},
        {{"estimate=\"1.25\"", ""}},
        {{"expCIUpper=\"4.5\" isRedundant=\"false\"", "expCIUpper=\"4.5\""}},
        {{"<RegressionParameter isIntercept=\"true\" name=\"P1\"/>",
          "<RegressionParameter isIntercept=\"true\" name=\"P1\"/><Statistic name=\"n\" value=\"1\"/>"}},
        {{"<RegressionParameter isIntercept=\"false\" name=\"P2\"><Factor field=\"a\"",
          "<RegressionParameter isIntercept=\"false\"><Factor field=\"a\""}},
        {{"field=\"x\" power=\"\"", "field=\"x\""}},
        {{"<Factor field=\"a\" value=\"1\"", "<Factor field=\"a\" value=\"red\""}},
        {{"<Factor field=\"a\" value=\"1\"", "<Factor field=\"ghost\" value=\"1\""}},
        {{"<Factor field=\"a\" value=\"1\"", "<Factor value=\"1\""}},
        {{"<Statistic name=\"fixedEffectIndex\" value=\"0\"/>", "<Statistic name=\"fixedEffectIndex\"/>"}},
        {{"<Statistic name=\"NumUNParam\"", "<Statistic name=\"numUNParam\""}},
        {{"<Statistic name=\"NumUNParam\" value=\"2\"/>", "<Statistic name=\"NumUNParam\"/>"}},
        {{"<PrintableValue storage=\"real\"", "<PrintableValue"}},
        {{"<SegmentInfo><FieldInfo fieldName=\"a\" fieldValue=\"1\"/></SegmentInfo>\n        <Stat",
          "<SegmentInfo><FieldInfo fieldName=\"a\"/></SegmentInfo><Stat"}},
    };
    for (const Change& change : cases) {
        Reading reading;
        EXPECT_TRUE(reading.Read(Changed(FullDocument(), change))) << change.front().first;
        EXPECT_THAT(MessagesOf(reading), IsEmpty());
        EXPECT_EQ(reading.Stats().GetParamCollect(), nullptr);
        EXPECT_TRUE(reading.Stats().IsWarningPresent("kGLMM_C28"));
        EXPECT_FALSE(reading.Stats().IsWarningPresent("kglmm_c28"));
        Reading silent;
        Change alone = change;
        alone.emplace_back("<Message><PrintableList pattern=\"kGLMM_C28\">", "<Other><PrintableList pattern=\"\">");
        alone.emplace_back("<PrintableValue value=\"two\"/></PrintableList></Message>", "</PrintableList></Other>");
        alone.emplace_back("<Message><PrintableList pattern=\"\"/></Message>", "");
        EXPECT_FALSE(silent.Read(Changed(FullDocument(), alone))) << change.front().first;
        EXPECT_EQ(MessagesOf(silent), kRefused);
        EXPECT_EQ(silent.Stats().GetParamCollect(), nullptr);
    }
}

}  // namespace
