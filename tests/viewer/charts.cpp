#include "host/DataSupport.h"
#include "host/data/DataSource.h"
#include "host/data/ValueLabels.h"
#include "host/documents/SourceMetaData.h"
#include "host/output/OutputDocument.h"
#include "viewer/ChartText.h"
#include "viewer/HRFTCharts.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

/// The viewer's charts: documents as they are patched, and the chart models that reach the output.
namespace {

using output::ChartMark;
using output::ChartModel;
using output::Datum;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct ChartList : output::Visitor {
    void Show(const output::Chart& chart) override { fvCharts.push_back(chart.fpModel); }
    std::vector<std::shared_ptr<const ChartModel>> fvCharts;
};

/// A record to be filled by hand over a small data set: a target y with a label, factors a (labelled values), b (texts)
/// and c, a covariate x.
struct Viewer {
    explicit Viewer(const std::string& label = "Yield <t/ha>") {
        fSource.GetVariable(0).SetLabel(label.c_str());
        fSource.GetVariable(0).SetFormat({8, kFormatNumeric, 2});
        host::Variable labels;
        labels.fNumberLabels = {{1.0, "one"}, {2.0, "two & a half"}};
        fSource.GetVariable(1).SetValueLabels(std::make_shared<QVTA_VLImpl>(labels));
        fSource.GetVariable(1).SetLabel("Variety");
        fSource.GetVariable(1).SetMeasurementLevel(QVTA_Variable_Enumerations::kNominal);
        fSource.GetVariable(3).SetMeasurementLevel(QVTA_Variable_Enumerations::kOrdinal);
        fStats.SetMetaData(&fMetaData);
        BuildSettings& settings = *fStats.NewBuildSettings();
        settings.fTargetIndex = 0;
        settings.fDistribution = kNormalTarget;
        settings.fLink = kIdentityLink;
        settings.fPAdjustment = kSeqSidak;
        const auto effect = [](std::vector<std::string> names, std::vector<int> fields) {
            EffectStruct made;
            made.fvNestingLevels.assign(names.size(), 0);
            made.fvFieldNames = std::move(names);
            made.fvFieldIndices = std::move(fields);
            return made;
        };
        settings.fvFixedEffectList = {effect({"a"}, {1}), effect({"b"}, {2}), effect({"a", "b"}, {1, 2}),
                                      effect({"x"}, {4}), effect({"c"}, {3})};
        fStats.NewModelDiagnostics();
    }

    std::vector<std::shared_ptr<const ChartModel>> Drawn() const {
        ChartList list;
        fDocument.Root().Visit(list);
        return list.fvCharts;
    }
    const ChartModel& Last() const {
        static const ChartModel none;
        const auto charts = Drawn();
        EXPECT_FALSE(charts.empty());
        fpKept = charts.empty() ? nullptr : charts.back();
        return fpKept ? *fpKept : none;
    }
    HRFTCharts Charts() { return HRFTCharts(&fHeading, &fSource, &fStats); }

    ProcedureDataSource fSource{host::MakeDataSource(testing_data::Read("y,a,b,c,x\n1,1,u,1,0.5\n2,2,v,2,1.5\n"))};
    host::SourceMetaData fMetaData{fSource};
    host::OutputDocument fDocument{"Mixed Model Analysis"};
    host::OutputScope fScope{fDocument};
    BpProcedure fHeading = fDocument.Procedure();
    HRFTOutputStats fStats;
    mutable std::shared_ptr<const ChartModel> fpKept;
};

CoordinatesData Axis(const std::string& field, std::vector<std::string> values) {
    CoordinatesData axis;
    axis.fField = field;
    axis.fvValues = std::move(values);
    return axis;
}

CoordinatesData Values(std::vector<std::string> values) {
    return Axis("", std::move(values));
}

/// The cells of one variable, row by row: "1", "text", or "-" where nothing was stored.
std::vector<std::string> Cells(const ChartModel& model, const std::string& sourceName, const std::string& variable) {
    const output::ChartSource* source = model.Source(sourceName);
    std::vector<std::string> cells;
    if (!source) return cells;
    const int field = source->Find(variable);
    for (std::size_t row = 0; row < source->fvRows.size(); ++row) {
        const Datum& cell = source->At(row, field);
        cells.push_back(output::IsUnset(cell) ? "-" : output::ChartField().Shown(cell));
    }
    return cells;
}

const output::ChartLayer* Layer(const ChartModel& model, ChartMark mark) {
    for (const auto& layer : model.fvLayers) {
        if (layer.fMark == mark) return &layer;
    }
    return nullptr;
}

TEST(ChartText, EscapesMarksLineEndsAndBoxDrawing) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"a<b & \"c\">'d'", "a&lt;b &amp; &quot;c&quot;&gt;'d'"},
        {"1\r\n2\n\r3\f4", "1<BR/>2<BR/><BR/>3<BR/>4"},
        {"\x0E\x0F\x10\x11\x12\x13\x14\x15\x16\x17\x18",
         "&#9472;&#9474;&#9532;&#9492;&#9484;&#9496;&#9488;&#9500;&#9508;&#9516;&#9524;"},
        {"Grö\xE2\x82\xAC<", "Grö\xE2\x82\xAC&lt;"}};
    for (const auto& [text, escaped] : cases) {
        std::string subject = text;
        viewer::EscapeChartText(subject);
        EXPECT_EQ(subject, escaped);
    }
}

TEST(ChartText, NumbersAreReadWholeAndWrittenShort) {
    bool ok = true;
    EXPECT_EQ(viewer::ValueAsNumber("12x", ok), 12.0);
    EXPECT_FALSE(ok);
    EXPECT_EQ(viewer::ValueAsNumber("__MISSING__", ok), 0.0);
    EXPECT_FALSE(ok);
    EXPECT_EQ(viewer::ValueAsNumber("-1.5e3", ok), -1500.0);
    EXPECT_TRUE(ok);
    viewer::ValueAsNumber("12 ", ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(viewer::NumberText(12.0), "12");
    EXPECT_EQ(viewer::NumberText(1234567.0), "1.23457e+06");
    EXPECT_EQ(viewer::NumberText(1.0 / 3), "0.333333");
    const std::pair<double, double> weights[] = {{SYSMIS, 9}, {0.00009, 9}, {0.0001, 8}, {0.0005, 7},
                                                 {0.001, 6},  {0.005, 5},   {0.01, 4},   {0.05, 3},
                                                 {0.1, 2},    {0.2, 1},     {1.0, 1}};
    for (const auto& [p, weight] : weights)
        EXPECT_EQ(viewer::SigWeight(p), weight) << p;
}

TEST(ChartText, NodesStandOnAnArcFromTheTop) {
    int count = -1;
    EXPECT_TRUE(viewer::ArcLayout(0, count).empty());
    EXPECT_EQ(count, 1);
    const auto one = viewer::ArcLayout(1, count);
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(one[0].fFromX, 0.0);
    EXPECT_EQ(one[0].fToX, 1.0);
    EXPECT_EQ(one[0].fToY, 1.0);
    const auto three = viewer::ArcLayout(3, count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(three[0].fFromY, 3.0);
    EXPECT_NEAR(three[0].fFromX, 3.0 - std::sqrt(5.0), 1e-15);
    EXPECT_EQ(three[1].fFromX, 0.0);
    EXPECT_EQ(three[2].fToY, 2.0);
}

TEST(ChartText, FacetsAreTakenOutWholeOrByHalves) {
    const std::string facets =
        "<x/><faceting><variableReference>f1</variableReference><variableReference>f2</variableReference></faceting>"
        "<facetLayout><facetLevel n=\"1\">1</facetLevel><facetLevel n=\"2\">2</facetLevel></facetLayout><y/>";
    std::string text = facets;
    viewer::DropFaceting(text);
    EXPECT_EQ(text, "<x/><y/>");
    text = facets;
    viewer::DropSecondFacet(text);
    EXPECT_EQ(text,
              "<x/><faceting><variableReference>f1</variableReference></faceting>"
              "<facetLayout><facetLevel n=\"1\">1</facetLevel></facetLayout><y/>");
    // A part that is missing ends the operation; what was erased stays erased.
    text = "<variableReference>1</variableReference><variableReference>2</variableReference><facetLevel n=\"1\"/>";
    viewer::DropSecondFacet(text);
    EXPECT_EQ(text, "<variableReference>1</variableReference><facetLevel n=\"1\"/>");
    text = "<faceting>no end";
    viewer::DropFaceting(text);
    EXPECT_EQ(text, "<faceting>no end");
}

TEST(ChartText, LinesAreFilledInOrderAndTheRestErased) {
    const std::string guide = "<lineGuide y=\"00\"><when>whenText</when></lineGuide>";
    const std::string all = "<a/>" + guide + guide + guide + "<z/>";
    std::map<std::string, viewer::FacetLine> lines;
    std::string text = all;
    viewer::ApplyLineGuides(text, lines);
    EXPECT_EQ(text, "<a/><z/>");
    lines["1u"] = {{"1", "u"}, 12.5, {}};
    lines["2"] = {{"2", ""}, -3.0, {}};
    text = all;
    viewer::ApplyLineGuides(text, lines);
    EXPECT_EQ(text,
              "<a/><lineGuide y=\"12.5\"><when>facet1!=&quot;1&quot;||facet2!=&quot;u&quot;</when></lineGuide>"
              "<lineGuide y=\"-3\"><when>facet1!=&quot;2&quot;</when></lineGuide><z/>");
    lines = {{"", {{"", ""}, 7.0, {}}}};
    text = all;
    viewer::ApplyLineGuides(text, lines);
    EXPECT_EQ(text, "<a/><lineGuide y=\"7\"><when>false</when></lineGuide><z/>");
    // More lines than the document has places for: those there are stay filled.
    lines = {{"a", {{"a", ""}, 1.0, {}}}, {"b", {{"b", ""}, 2.0, {}}}};
    text = guide;
    viewer::ApplyLineGuides(text, lines);
    EXPECT_EQ(text, "<lineGuide y=\"1\"><when>facet1!=&quot;a&quot;</when></lineGuide>");
}

TEST(Charts, PredictedByObservedHasOneRangeAndHidesTheLegendOfFewRecords) {
    for (const int records : {99, 100}) {
        Viewer viewer;
        PredByObservedData& bins = viewer.fStats.GetModelDiagnostics()->fPredByObserved;
        viewer.Charts().DrawPredictedByObserved();
        EXPECT_TRUE(viewer.Drawn().empty());  // without a description there is nothing
        bins.fDescription = "observedByPredicted";
        bins.fTotalFreq = records;
        bins.fvObserved = {1, 2, 3};
        bins.fvStatistic = {1.5, 2.5, 3.5, 4.5};
        bins.fvFrequency = {10, 20};
        bins.fMinValue = 1.0;
        bins.fMaxValue = 1234567.0;
        viewer.Charts().DrawPredictedByObserved();
        const ChartModel& model = viewer.Last();
        EXPECT_EQ(model.fTitle, "Predicted by Observed");
        EXPECT_THAT(Cells(model, "source0", "X"), ElementsAre("1", "2"));
        EXPECT_THAT(Cells(model, "source0", "Y"), ElementsAre("1.5", "2.5"));
        EXPECT_THAT(Cells(model, "source0", "Frequency"), ElementsAre("10", "20"));
        for (const char* along : {"x", "y"}) {
            EXPECT_EQ(model.Axis(along)->fMin, 1.0);
            EXPECT_EQ(model.Axis(along)->fMax, 1.23457e6);  // six digits, as a document's numbers are written
        }
        EXPECT_EQ(model.Axis("x")->fTitle, "Yield <t/ha>");
        EXPECT_EQ(model.Axis("y")->fTitle, "Predicted value");
        EXPECT_EQ(model.Legend("opacity")->fVisible, records == 100);
        EXPECT_EQ(Layer(model, ChartMark::kPoint)->Channel("opacity")->fField, "Frequency");
        ASSERT_EQ(model.fvGuides.size(), 1U);
        EXPECT_TRUE(model.fvGuides[0].fDiagonal);
        EXPECT_THAT(model.RowTexts()[0], ElementsAre("1.00", "1.50", "10"));
    }
}

EffectTestStat EffectTestOf(int id, double sig) {
    EffectTestStat test;
    test.fTestID = id;
    test.fSig = sig;
    return test;
}

TEST(Charts, TheEffectsDiagramDrawsTheFirstPositionsOfItsSelection) {
    Viewer viewer;
    viewer.fStats.NewEffectTest()->fvFixedEffectTests = {EffectTestOf(4, 0.03), EffectTestOf(0, 1e-5),
                                                         EffectTestOf(1, 0.3), EffectTestOf(12, 0.01),
                                                         EffectTestOf(3, 0.04)};
    viewer.Charts().DrawEffectsDiagram();
    const ChartModel& model = viewer.Last();
    // Four are selected: the position of id 12 leaves its row unset, and the fifth position isn't reached.
    EXPECT_THAT(Cells(model, "pointSource", "Nodes"), ElementsAre("c", "a", "b"));
    EXPECT_THAT(Cells(model, "pointSource", "Type"), ElementsAre("ordinal", "categorical", "categorical"));
    EXPECT_THAT(Cells(model, "pointSource", "PointTooltip"), ElementsAre("c", "a\nVariety", "b"));
    EXPECT_THAT(Cells(model, "edgeSource", "Weight"), ElementsAre("4", "9", "1"));
    EXPECT_THAT(Cells(model, "edgeSource", "Weight2"), ElementsAre("-", "-", "-"));
    EXPECT_THAT(Cells(model, "edgeSource", "LineTooltip")[0], testing::EndsWith(" 0.030"));
    EXPECT_THAT(Cells(model, "pointSource", "Label_X")[2], "-0.672983");  // 4 - sqrt(15) - 0.8
    EXPECT_THAT(Cells(model, "targetPointSource", "X"), ElementsAre("4"));
    EXPECT_THAT(Cells(model, "targetPointSource", "Y"), ElementsAre("2.5"));
    EXPECT_THAT(Cells(model, "targetPointSource", "PointTooltip")[0],
                HasSubstr("y\nYield <t/ha>\nProbability distribution: Normal. Link function: Identity."));
    EXPECT_EQ(model.fTitle, "Fixed Effects");
    EXPECT_EQ(model.Axis("x")->fMax, 5.33333);
    EXPECT_EQ(model.Axis("y")->fMax, 4.0);
    EXPECT_FALSE(model.Axis("x")->fMin.has_value());
    EXPECT_FALSE(model.Legend("color")->fVisible);
    EXPECT_EQ(Layer(model, ChartMark::kEdge)->Channel("size")->fHigh, 9.0);
    EXPECT_EQ(Layer(model, ChartMark::kEdge)->Channel("size")->fLow, 1.0);
    // An unused colour is no colour.
    EXPECT_EQ(Layer(model, ChartMark::kEdge)->Channel("color"), nullptr);
}

TEST(Charts, WithoutTestsTheDiagramStandsEmptyAndWithoutSelectionNotAtAll) {
    {
        Viewer viewer;
        viewer.Charts().DrawEffectsDiagram();
        const ChartModel& model = viewer.Last();
        EXPECT_EQ(model.Axis("x")->fMax, 2.0);
        EXPECT_EQ(model.Axis("x")->fMin, 0.0);
        EXPECT_EQ(model.Axis("y")->fMax, 1.0);
        EXPECT_TRUE(Cells(model, "pointSource", "Nodes").empty());
    }
    Viewer viewer;
    viewer.fStats.NewEffectTest()->fvFixedEffectTests = {EffectTestOf(0, 1.0), EffectTestOf(1, SYSMIS),
                                                         EffectTestOf(10, 0.01)};
    viewer.Charts().DrawEffectsDiagram();
    EXPECT_TRUE(viewer.Drawn().empty());
}

ParameterStatsData Parameter(const std::string& label, double estimate, double sig, int effect) {
    ParameterStatsData stats;
    stats.fStatisticName = "fixedEffectIndex";
    stats.fStatisticInt = effect;
    stats.fParamLabel = label;
    stats.fEstimate = estimate;
    stats.fSig = sig;
    return stats;
}

TEST(Charts, TheCoefficientsDiagramShowsSignsAndTheRangeOfBothDiagrams) {
    Viewer viewer;
    viewer.fStats.NewEffectTest()->fvFixedEffectTests = {EffectTestOf(0, 1e-9)};
    auto& parameters = viewer.fStats.NewParamCollect()->fvFixedParamEstim.emplace_back().fvParameterStats;
    ParameterStatsData intercept = Parameter("Intercept", 2.0, SYSMIS, -1);
    intercept.fStatisticName.clear();
    intercept.fRegrParam.fIsIntercept = true;
    parameters.push_back(intercept);
    intercept.fSig = 1.0;
    parameters.push_back(intercept);  // not shown
    ParameterStatsData level = Parameter("a=2", -1.5, 0.02, 0);
    level.fRegrParam.fvFactors.emplace_back().fField = "a";
    level.fRegrParam.fvFactors[0].fValue.SetStringValue("2");
    level.fRegrParam.fvFactors[0].fValue.LoadObsValue(viewer.fSource.GetVariable(1), 0);
    parameters.push_back(level);
    parameters.push_back(Parameter("x", SYSMIS, 0.02, 9));
    parameters.push_back(Parameter("x", 1.0, 0.0, 10));  // not shown
    parameters.push_back(Parameter("b=u", 0.0, 0.02, 1));
    parameters.back().fIsRedundant = true;  // not shown
    parameters.back().fRegrParam.fvFactors.resize(1);
    HRFTCharts charts = viewer.Charts();
    charts.DrawEffectsDiagram();
    charts.DrawCoefficientsDiagram();
    ASSERT_EQ(viewer.Drawn().size(), 2U);
    const ChartModel& model = viewer.Last();
    EXPECT_THAT(Cells(model, "pointSource", "Nodes"), ElementsAre("Intercept", "a=2", "x"));
    EXPECT_THAT(Cells(model, "pointSource", "Type"), ElementsAre("intercept", "categorical", "continuous"));
    EXPECT_THAT(Cells(model, "edgeSource", "Weight2"), ElementsAre("Positive", "Negative", "Positive"));
    EXPECT_THAT(Cells(model, "edgeSource", "Weight"), ElementsAre("9", "4", "4"));
    const std::string tooltip = Cells(model, "pointSource", "PointTooltip")[1];
    EXPECT_THAT(tooltip, testing::StartsWith("a = "));
    EXPECT_THAT(tooltip, testing::EndsWith("\nVariety = two & a half"));
    EXPECT_EQ(Cells(model, "pointSource", "PointTooltip")[2], "x");
    EXPECT_TRUE(model.Legend("color")->fVisible);
    EXPECT_EQ(Layer(model, ChartMark::kEdge)->Channel("size")->fHigh, 9.0);
    EXPECT_EQ(Layer(model, ChartMark::kEdge)->Channel("size")->fLow, 4.0);
}

TEST(Charts, TheHistogramFollowsTheFittedDistribution) {
    struct Case {
        int fDistribution;
        const char* fPatch;
    };
    for (const Case& one : {Case{kNormalTarget, "<distributionStatistic distribution=&quot;normal&quot;"},
                            Case{kBinomialTarget, "<distributionStatistic distribution=&quot;normal&quot;"},
                            Case{kGammaTarget, "parameter=\"2\"  secondaryParameter=\"0.5\" "},
                            Case{kInverseGaussTarget, "parameter=\"4\"  secondaryParameter=\"2\" "},
                            Case{kNegBinTarget, "parameter=\"3\"  secondaryParameter=\"0.25\" "},
                            Case{kPoissonTarget, "parameter=\"4\""}}) {
        Viewer viewer;
        viewer.fStats.GetBuildSettings()->fDistribution = one.fDistribution;
        TargetDistData& target = viewer.fStats.GetModelDiagnostics()->fTargetDist;
        target.fMean = 4.0;
        target.fShape = 2.0;
        target.fRate = 0.5;
        target.fR = 3.0;
        target.fP = 0.25;
        target.fvObserved = {1, 3, 5, 7, 9};
        target.fvFrequency = {4, 8, 6, 2};
        viewer.fStats.NewEffectTest()->fvFixedEffectTests = {EffectTestOf(0, 0.01)};
        viewer.Charts().DrawEffectsDiagram();
        const ChartModel& model = viewer.Last();
        ASSERT_TRUE(model.fpInset) << one.fPatch;
        const ChartModel& histogram = *model.fpInset;
        EXPECT_THAT(Cells(histogram, "source0", "X"), ElementsAre("1", "3", "5", "7"));
        EXPECT_THAT(Cells(histogram, "source0", "bin.from"), ElementsAre("0", "2", "4", "6"));
        const output::ChartSource& curve = *histogram.Source("curve");
        ASSERT_GT(curve.fvRows.size(), 5U);
        // The curve of a density that the bins hold nearly whole has about their area, 20 records by a width of 2.
        double area = 0.0;
        for (std::size_t i = 1; i < curve.fvRows.size(); ++i) {
            const auto at = [&](std::size_t row, int field) { return std::get<double>(curve.At(row, field)); };
            area += (at(i, 0) - at(i - 1, 0)) * (at(i, 1) + at(i - 1, 1)) / 2;
        }
        EXPECT_GT(area, 20.0) << one.fPatch;
        EXPECT_LT(area, 40.5) << one.fPatch;
        // The text that is embedded, and what was patched into it.
        std::string text = "<chart></chart>";
        viewer.fStats.GetBuildSettings()->fDistribution = one.fDistribution;
        HRFTCharts charts = viewer.Charts();
        charts.EmbedTargetHistogram(text);
        EXPECT_THAT(text, HasSubstr("binCount=\"4\""));
    }
    // Without metadata nothing is embedded, and the text stays.
    Viewer viewer;
    viewer.fStats.SetMetaData(nullptr);
    std::string text = "<chart></chart>";
    viewer.Charts().EmbedTargetHistogram(text);
    EXPECT_EQ(text, "<chart></chart>");
}

TEST(Charts, MeansTakeTwoRowsEachAndElevenChartsAtMost) {
    Viewer viewer;
    EmmeansEstimates means;
    means.fvCoordinates = {Axis("a", {"1", "2"})};
    means.fMean = Values({"4.5", "x"});
    means.fConfIntervalLower = Values({"4", "5"});
    means.fConfIntervalUpper = Values({"5", "7"});
    EmmeansEstimates two = means;
    two.fvCoordinates = {Axis("b", {"u", "v"}), Axis("a", {"1", "2"})};
    *viewer.fStats.NewEmmeansEstimates() = {two};
    viewer.fStats.GetEmmeansEstimates()->resize(12, means);
    viewer.Charts().DrawMeansCharts();
    const auto charts = viewer.Drawn();
    ASSERT_EQ(charts.size(), 11U);
    EXPECT_EQ(charts[0]->fTitle, "Yield <t/ha> by b * Variety");
    EXPECT_THAT(Cells(*charts[0], "source0", "effect1"), ElementsAre("u", "u", "v", "v"));
    EXPECT_THAT(Cells(*charts[0], "source0", "effect2"), ElementsAre("1", "1", "2", "2"));
    EXPECT_EQ(charts[0]->Legend("color")->fTitle, "Variety");
    EXPECT_EQ(charts[0]->Axis("x")->fTitle, "b");
    const ChartModel& one = *charts[1];
    EXPECT_EQ(one.fTitle, "Yield <t/ha> by Variety");
    EXPECT_EQ(one.Legend("color"), nullptr);
    EXPECT_EQ(one.Axis("y")->fTitle, "Yield <t/ha>");
    EXPECT_THAT(Cells(one, "source0", "target"), ElementsAre("4.5", "4.5", "0", "0"));
    EXPECT_THAT(Cells(one, "source0", "confMargin"), ElementsAre("4", "5", "5", "7"));
    ASSERT_EQ(one.RowTexts().size(), 2U);
    EXPECT_THAT(one.RowTexts()[0], ElementsAre("one", "4.50", "4.00", "5.00"));
    EXPECT_EQ(one.RowTexts()[1][0], "two & a half");
}

EmmeansData Block() {
    EmmeansData block;
    block.fEstimates.fvCoordinates = {Axis("a", {"1", "2", "3"})};
    block.fEstimates.fMean = Values({"10", "__MISSING__", "16"});
    block.fEstimates.fConfIntervalLower = Values({"9", "1", "__MISSING__"});
    block.fEstimates.fConfIntervalUpper = Values({"11", "2", "17"});
    block.fvOverallTests.resize(1);
    block.fContrasts.fAdjustedSigLevel = 0.05;
    return block;
}

TEST(Charts, ACustomEffectsChartKeepsTheGapOfAMissingMean) {
    Viewer viewer;
    EmmeansData block = Block();
    auto& label = block.fvLabels.emplace_back();
    label.fPattern = "x";
    label.fValue.SetStringValue("1.25");
    label.fValue.LoadObsValue(viewer.fSource.GetVariable(4), 0);
    viewer.fSource.GetVariable(4).SetFormat({8, kFormatNumeric, 2});
    viewer.Charts().DrawCustomEffectsChart(block);
    const ChartModel& one = viewer.Last();
    EXPECT_EQ(one.fTitle, "Estimates");
    EXPECT_EQ(one.fDescription, "Estimated Means: Custom Effects");
    EXPECT_THAT(one.fvFootnotes, ElementsAre("Continuous predictors are held at x = 1.2500."));
    EXPECT_THAT(Cells(one, "source_0", "targetValue"), ElementsAre("10", "10", "-", "-", "16", "16"));
    EXPECT_THAT(Cells(one, "source_0", "confMargin"), ElementsAre("9", "11", "-", "-", "17", "17"));
    EXPECT_THAT(Cells(one, "source_0", "effect2"), ElementsAre("", "", "-", "-", "", ""));
    EXPECT_TRUE(one.fvFacets.empty());
    EXPECT_EQ(one.Legend("color"), nullptr);
    EXPECT_EQ(Layer(one, ChartMark::kPoint)->Channel("color"), nullptr);
    EXPECT_THAT(one.ColumnTitles(), ElementsAre("Variety", "Estimated Mean", "Lower limit", "Upper limit"));
    EXPECT_THAT(one.RowTexts()[0], ElementsAre("one", "10.00", "9.00", "11.00"));

    block.fEstimates.fvCoordinates.push_back(Axis("b", {"u", "u", "v"}));
    viewer.Charts().DrawCustomEffectsChart(block);
    EXPECT_EQ(Layer(viewer.Last(), ChartMark::kPoint)->Channel("color")->fField, "effect2");
    EXPECT_TRUE(viewer.Last().fvFacets.empty());
    block.fEstimates.fvCoordinates.push_back(Axis("c", {"1", "1", "2"}));
    viewer.Charts().DrawCustomEffectsChart(block);
    const ChartModel& three = viewer.Last();
    EXPECT_THAT(three.fvFacets, ElementsAre("effect3"));
    const output::ChartSource& source = *three.Source("source_0");
    EXPECT_EQ(source.fvFields[source.Find("effect3")].fPrefix, "c = ");

    for (const char* warning : {"kGLMM_C20", "kGLMM_C25"}) {
        EmmeansData warned = Block();
        warned.fvWarningList.emplace_back().fMessage = warning;
        const std::size_t before = viewer.Drawn().size();
        viewer.Charts().DrawCustomEffectsChart(warned);
        EXPECT_EQ(viewer.Drawn().size(), before);
    }
}

/// A simple contrast of levels 1 and 2 of a with its last level, 3.
EmmeansData SimpleBlock() {
    EmmeansData block = Block();
    block.fEstimates.fMean = Values({"10", "12", "16"});
    EmmeansContrasts& contrasts = block.fContrasts;
    contrasts.fContrastKind = kSimple;
    contrasts.fvCoordinates = {Axis("a", {"1", "2"}), Axis("a", {"3", "3"})};
    contrasts.fContrastEstimate = Values({"-6", "-4"});
    contrasts.fAdjustedSig = Values({"0.001", "0.05"});
    contrasts.fConfIntervalLower = Values({"-8", "-9"});
    contrasts.fConfIntervalUpper = Values({"-4", "1"});
    return block;
}

TEST(Charts, SimpleContrastsAreBarsFromTheReferenceMean) {
    Viewer viewer;
    viewer.Charts().DrawContrastChart(SimpleBlock());
    const ChartModel& model = viewer.Last();
    EXPECT_EQ(model.fTitle, "Simple Contrasts");
    EXPECT_TRUE(model.fvFacets.empty());
    ASSERT_EQ(model.fvGuides.size(), 1U);
    EXPECT_EQ(model.fvGuides[0].fHeight, 16.0);
    EXPECT_TRUE(model.fvGuides[0].fvFacetTexts.empty());
    EXPECT_THAT(Cells(model, "source", "value"), ElementsAre("16", "10", "16", "12"));
    EXPECT_THAT(Cells(model, "source", "confMargin"), ElementsAre("8", "12", "7", "17"));
    EXPECT_THAT(Cells(model, "source", "type"), ElementsAre("1", "1", "0", "0"));
    EXPECT_EQ(Cells(model, "source", "tooltip")[0],
              "The mean of Yield <t/ha> at one is significantly lower than that at 3.");
    EXPECT_THAT(Cells(model, "source", "tooltip")[2], HasSubstr("two & a half does not differ"));
    EXPECT_EQ(model.fCaption,
              "The line is the estimated mean of Yield <t/ha> at the reference level of Variety, 3. Each bar runs from "
              "it to the estimated mean of another level.");
    EXPECT_THAT(model.fvFootnotes, ElementsAre("p-values are adjusted by the sequential Sidak method.",
                                               "Confidence interval bounds are approximate."));
    EXPECT_EQ(model.Legend("color")->fTitle, "p-value");
    EXPECT_EQ(model.RowTexts()[1].back(), "Not Significant");
}

TEST(Charts, FacetsGetALineEachAndTextsOfTheSecondGoOverTheFirst) {
    Viewer viewer;
    EmmeansData block = SimpleBlock();
    block.fEstimates.fvCoordinates = {Axis("c", {"1", "1", "2", "2"}), Axis("a", {"1", "3", "1", "3"})};
    block.fEstimates.fMean = Values({"10", "16", "20", "21"});
    block.fContrasts.fvCoordinates = {Axis("c", {"1", "2"}), Axis("a", {"1", "1"}), Axis("a", {"3", "3"})};
    block.fContrasts.fContrastEstimate = Values({"-6", "-1"});
    viewer.Charts().DrawContrastChart(block);
    const ChartModel& one = viewer.Last();
    EXPECT_THAT(one.fvFacets, ElementsAre("facet1"));
    ASSERT_EQ(one.fvGuides.size(), 2U);
    EXPECT_EQ(one.fvGuides[1].fHeight, 21.0);
    EXPECT_THAT(one.fvGuides[1].fvFacetTexts, ElementsAre("2"));
    EXPECT_THAT(Cells(one, "source", "facet1"), ElementsAre("1", "1", "2", "2"));

    EmmeansData two = SimpleBlock();
    two.fEstimates.fvCoordinates = {Axis("c", {"1", "1"}), Axis("b", {"u", "u"}), Axis("a", {"1", "3"})};
    two.fEstimates.fMean = Values({"10", "16"});
    two.fContrasts.fvCoordinates = {Axis("c", {"1"}), Axis("b", {"u"}), Axis("a", {"1"}), Axis("a", {"3"})};
    two.fContrasts.fContrastEstimate = Values({"-6"});
    viewer.Charts().DrawContrastChart(two);
    EXPECT_THAT(viewer.Last().fvFacets, ElementsAre("facet1", "facet2"));
    EXPECT_THAT(Cells(viewer.Last(), "source", "facet1"), ElementsAre("u", "u"));
    EXPECT_THAT(Cells(viewer.Last(), "source", "facet2"), ElementsAre("-", "-"));
    EXPECT_THAT(viewer.Last().fvGuides[0].fvFacetTexts, ElementsAre("1", "u"));
}

EmmeansData PairwiseBlock(const std::string& field, std::vector<std::string> j, std::vector<std::string> i,
                          std::vector<std::string> p) {
    EmmeansData block = Block();
    EmmeansContrasts& contrasts = block.fContrasts;
    contrasts.fContrastKind = kPairwise;
    contrasts.fContrastEstimate = Values(std::vector<std::string>(p.size(), "-1"));
    contrasts.fvCoordinates = {Axis(field, std::move(j)), Axis(field, std::move(i))};
    contrasts.fAdjustedSig = Values(std::move(p));
    return block;
}

TEST(Charts, PairwiseContrastsAreANetwork) {
    Viewer viewer;
    viewer.Charts().DrawContrastChart(
        PairwiseBlock("a", {"02", "01", "01", "03"}, {"01", "02", "03", "02"}, {"0.5", "0", "1", "0.01"}));
    const ChartModel& model = viewer.Last();
    EXPECT_EQ(model.fTitle, "Pairwise Contrasts");
    EXPECT_EQ(model.fSubtitle, "Target: Yield <t/ha>");
    // In the order of the I levels, the pair of significance 1 left out.
    EXPECT_THAT(Cells(model, "edgeSource_1", "from"), ElementsAre("1", "2", "2"));
    EXPECT_THAT(Cells(model, "edgeSource_1", "to"), ElementsAre("2", "1", "3"));
    EXPECT_THAT(Cells(model, "edgeSource_1", "weight"), ElementsAre("4", "1", "1.0203"));
    EXPECT_THAT(Cells(model, "edgeSource_1", "weightInPopup"), ElementsAre("0.5", "0", "0.01"));
    EXPECT_THAT(Cells(model, "edgeSource_1", "type"), ElementsAre("0", "1", "1"));
    EXPECT_THAT(Cells(model, "nodeSource_1", "node"), ElementsAre("3", "2", "1"));
    // A negative estimate turns the pair round.
    EXPECT_EQ(Cells(model, "edgeSource_1", "tooltip")[1],
              "The mean of Yield <t/ha> at two & a half is significantly higher than that at one.");
    EXPECT_EQ(model.RowTexts()[0][0], "one");
    EXPECT_EQ(model.RowTexts()[0][1], "two & a half");
    const output::ChartSource& nodes = *model.Source("nodeSource_1");
    const output::ChartSource& edges = *model.Source("edgeSource_1");
    // Every edge ends at its nodes.
    for (std::size_t row = 0; row < edges.fvRows.size(); ++row) {
        for (const auto& [end, x] : {std::pair{"from", "circle.x"}, std::pair{"to", "circle.x2"}}) {
            bool met = false;
            for (std::size_t node = 0; node < nodes.fvRows.size(); ++node) {
                met |= nodes.At(node, nodes.Find("node")) == edges.At(row, edges.Find(end)) &&
                       nodes.At(node, nodes.Find("circle.x")) == edges.At(row, edges.Find(x));
            }
            EXPECT_TRUE(met) << row << end;
        }
    }
}

TEST(Charts, ANetworkOfTextsHasNoWeightsAndOneWithoutEdgesIsSentEmpty) {
    Viewer viewer;
    viewer.Charts().DrawContrastChart(PairwiseBlock("b", {"v"}, {"u"}, {"0.2"}));
    EXPECT_THAT(Cells(viewer.Last(), "edgeSource_1", "from"), ElementsAre("u"));
    EXPECT_THAT(Cells(viewer.Last(), "edgeSource_1", "weight"), ElementsAre("-"));
    EXPECT_THAT(Cells(viewer.Last(), "edgeSource_1", "weightInPopup"), ElementsAre("-"));
    viewer.Charts().DrawContrastChart(PairwiseBlock("a", {"1", "2"}, {"2", "1"}, {"1", "1"}));
    EXPECT_EQ(viewer.Drawn().size(), 2U);
    EXPECT_TRUE(viewer.Last().Source("nodeSource_1")->fvRows.empty());
    // Kinds that aren't known, and blocks without overall tests, draw nothing.
    EmmeansData block = SimpleBlock();
    block.fContrasts.fContrastKind = kUnknownKind;
    viewer.Charts().DrawContrastChart(block);
    block = SimpleBlock();
    block.fvOverallTests.clear();
    viewer.Charts().DrawContrastChart(block);
    EXPECT_EQ(viewer.Drawn().size(), 2U);
}

TEST(Charts, HostileNamesStayTexts) {
    const std::string hostile = "]]<b>\"&lt;'</title>^1]] > &#9;]";
    Viewer viewer(hostile);
    viewer.fSource.GetVariable(1).SetLabel(hostile.c_str());
    viewer.fSource.GetVariable(4).SetName(hostile.c_str());
    EmmeansEstimates means;
    means.fvCoordinates = {Axis("b", {hostile, "<b a=\""}), Axis("a", {"1", "2"})};
    means.fMean = means.fConfIntervalLower = means.fConfIntervalUpper = Values({"1", "2"});
    *viewer.fStats.NewEmmeansEstimates() = {means};
    EmmeansData block = SimpleBlock();
    block.fvLabels.emplace_back().fPattern = hostile;
    block.fContrasts.fvCoordinates.insert(block.fContrasts.fvCoordinates.begin(), Axis("b", {"<f", "\"&"}));
    block.fEstimates.fvCoordinates = {Axis("b", {"<f", "\"&"}), Axis("a", {"1", "2"})};
    viewer.Charts().DrawMeansCharts();
    viewer.Charts().DrawCustomEffectsChart(block);
    viewer.Charts().DrawContrastChart(block);
    block.fContrasts.fContrastKind = kPairwise;
    viewer.Charts().DrawContrastChart(block);
    const auto charts = viewer.Drawn();
    ASSERT_EQ(charts.size(), 4U);
    EXPECT_THAT(charts[0]->fTitle, HasSubstr("]]<b>\"<'</title>"));
    EXPECT_THAT(charts[2]->fvGuides[0].fvFacetTexts, ElementsAre("\"&"));
    EXPECT_THAT(charts[2]->fvGuides[1].fvFacetTexts, ElementsAre("<f"));
}

}  // namespace
