// Requests for estimated means and custom tests: what they become where cells are empty, scales bend, levels lack, and
// how the result document tells of it.
#include "engine/documents/MeansXml.h"
#include "engine/lmm_csv.h"
#include "engine/means/MeansResults.h"

#include <cmath>
#include <gtest/gtest.h>
#include <pugixml.hpp>

namespace engine::testing {
namespace {

struct Fitted {
    explicit Fitted(const std::string& name, bool interaction = true)
        : fData(HIERFIT_TEST_DATA "/" + name + ".csv", {"nitro"}) {
        fSpec = Model(fData, "yield");
        fSpec.fFixed = {Factors(fData, {"Variety"}), Factors(fData, {"nitro"})};
        if (interaction) fSpec.fFixed.push_back(Factors(fData, {"Variety", "nitro"}));
        fSpec.fRandom = {Block(fData, {{}}, {"Block"})};
        fSpec.fDf = DfMethod::kResidual;
        fView = fData.View(fSpec);
        fFit = FitLmm(fSpec, fView);
        fMeans = AverageRecords(fSpec, fView);
    }
    MeansEstimator Estimator(ResponseScale scale = {}) const { return {fFit, fSpec, fMeans, std::move(scale)}; }
    MeansRequest Request(const std::vector<std::string>& factors, run::ContrastKind kind) const {
        MeansRequest request;
        for (const std::string& factor : factors)
            request.fFactors.push_back(fData[factor]);
        request.fCompare = kind == run::ContrastKind::kNoContrast ? -1 : 0;
        request.fContrast = kind;
        return request;
    }

    CsvRecords fData;
    ModelSpec fSpec;
    RecordView fView;
    FitResult fFit;
    RecordMeans fMeans;
};

TEST(PAdjustment, StepsDownMonotonelyAndLeavesMissingValuesOut) {
    const std::vector<double> p{0.04, kMissing, 0.01, 0.03};
    const AdjustedFamily holm = Adjust(p, PAdjustment::kSequentialBonferroni, 0.9);
    EXPECT_DOUBLE_EQ(holm.fP[2], 0.03);
    EXPECT_DOUBLE_EQ(holm.fP[3], 0.06);
    EXPECT_DOUBLE_EQ(holm.fP[0], 0.06);  // 0.04 alone would be below the step before
    EXPECT_TRUE(std::isnan(holm.fP[1]));
    EXPECT_DOUBLE_EQ(holm.fConfidence[2], 1.0 - 0.1 / 3);
    EXPECT_DOUBLE_EQ(holm.fConfidence[0], 0.9);
    const AdjustedFamily sidak = Adjust(p, PAdjustment::kSequentialSidak, 0.9);
    EXPECT_NEAR(sidak.fP[2], 1.0 - std::pow(0.99, 3), 1e-15);
    EXPECT_NEAR(sidak.fConfidence[3], std::sqrt(0.9), 1e-15);
    EXPECT_EQ(Adjust({0.7, 0.6}, PAdjustment::kSequentialBonferroni, 0.95).fP[1], 1.0);
}

TEST(MeanRows, AveragesCountFrequenciesAndProductsTakeMeans) {
    Fitted oats("oats");
    ModelSpec spec = oats.fSpec;
    std::vector<double> x, weight;
    for (std::size_t i = 0; i < oats.fData.Count(); ++i) {
        x.push_back(1e9 + static_cast<double>(i % 2));
        weight.push_back(i % 2 == 0 ? 1.0 : 3.0);
    }
    oats.fData.Add("x", x);
    oats.fData.Add("w", weight);
    spec.fLevels = oats.fData.Levels();
    spec.fFrequencyWeight = oats.fData["w"];
    spec.fFixed.push_back({{oats.fData["Variety"]}, {{oats.fData["x"], 2}}});
    spec.fOffset = oats.fData["x"];
    const RecordMeans means = AverageRecords(spec, oats.fData.View(spec));
    EXPECT_NEAR(means.fVariables[oats.fData["x"]] - 1e9, 0.75, 1e-6);
    EXPECT_NEAR(means.fOffset - 1e9, 0.75, 1e-6);

    std::vector<double> values(spec.fLevels.size(), 0.0);
    values[oats.fData["x"]] = 3.0;
    const Eigen::VectorXd row = MeanRows(spec, values).Row({oats.fData["nitro"]}, {1});
    const Eigen::Index first = row.size() - 3;  // slopes of the three varieties
    EXPECT_DOUBLE_EQ(row[0], 1.0);
    EXPECT_DOUBLE_EQ(row[1], 1.0 / 3);      // a variety
    EXPECT_DOUBLE_EQ(row[4], 0.0);          // the first dose
    EXPECT_DOUBLE_EQ(row[5], 1.0);          // the second one
    EXPECT_DOUBLE_EQ(row[8 + 1], 1.0 / 3);  // its cells
    EXPECT_DOUBLE_EQ(row[8 + 2], 0.0);
    EXPECT_DOUBLE_EQ(row[first], 9.0 / 3);
}

TEST(EstimatedMeans, EmptyCellsLeaveMeansOutAndTestsGoOn) {
    const Fitted oats("oats_redundant");
    ASSERT_TRUE(oats.fFit.HasEstimates());
    MeansRequest request = oats.Request({"Variety"}, run::ContrastKind::kPairwise);
    request.fAdjustment = PAdjustment::kSequentialBonferroni;
    const EstimatedMeans means = oats.Estimator().Estimate(request);
    ASSERT_EQ(means.fMeans.size(), 3u);
    EXPECT_TRUE(means.fMeans[0].fResult.fEstimable && means.fMeans[1].fResult.fEstimable);
    EXPECT_FALSE(means.fMeans[2].fResult.fEstimable);
    EXPECT_TRUE(std::isnan(means.fMeans[2].fResult.fEstimate));
    EXPECT_FALSE(means.AllEstimable());
    ASSERT_EQ(means.fContrasts.size(), 3u);
    EXPECT_EQ(means.fContrasts[0].fAdjustedP, means.fContrasts[0].fResult.fP);  // alone in its family
    EXPECT_TRUE(std::isnan(means.fContrasts[1].fAdjustedP));
    EXPECT_EQ(means.fOverall.at(0).fTest.fDf1, 1.0);
    EXPECT_NEAR(means.fOverall.at(0).fTest.fF, std::pow(means.fContrasts[0].fResult.fT, 2), 1e-9);
    // Where the model is additive, the empty cell is known from its margins.
    const Fitted additive("oats_redundant", false);
    EXPECT_TRUE(additive.Estimator().Estimate(additive.Request({"Variety", "nitro"}, {})).AllEstimable());
}

TEST(EstimatedMeans, BentScalesTransformLimitsAndLineariseDifferences) {
    const Fitted oats("oats");
    const MeansRequest request = oats.Request({"Variety"}, run::ContrastKind::kSimple);
    const EstimatedMeans plain = oats.Estimator().Estimate(request);
    const ResponseScale bent{[](double eta) { return std::exp(eta / 100.0); },
                             [](double eta) { return std::exp(eta / 100.0) / 100.0; }};
    const EstimatedMeans means = oats.Estimator(bent).Estimate(request);
    for (std::size_t i = 0; i < 3; ++i) {
        const ContrastResult& from = plain.fMeans[i].fResult;
        const ContrastResult& to = means.fMeans[i].fResult;
        EXPECT_DOUBLE_EQ(to.fEstimate, std::exp(from.fEstimate / 100.0));
        EXPECT_DOUBLE_EQ(to.fLower, std::exp(from.fLower / 100.0));
        EXPECT_NEAR(to.fStdError, to.fEstimate / 100.0 * from.fStdError, 1e-12);
    }
    // Variance of a difference of exponentials from the covariance of the two means.
    const auto rows = [&](int level) {
        return MeanRows(oats.fSpec, oats.fMeans.fVariables).Row(request.fFactors, {level});
    };
    const Eigen::VectorXd gradient =
        (means.fMeans[0].fResult.fEstimate * rows(0) - means.fMeans[2].fResult.fEstimate * rows(2)) / 100.0;
    const ContrastResult& contrast = means.fContrasts.at(0).fResult;
    EXPECT_NEAR(contrast.fEstimate, means.fMeans[0].fResult.fEstimate - means.fMeans[2].fResult.fEstimate, 1e-12);
    EXPECT_NEAR(contrast.fStdError, std::sqrt(gradient.dot(oats.fFit.fFixedCovariance * gradient)), 1e-9);
    EXPECT_NEAR(contrast.fT, contrast.fEstimate / contrast.fStdError, 1e-12);
    EXPECT_EQ(means.fOverall.at(0).fTest.fDf1, 2.0);
    // Of two levels the overall test is the square of the contrast's.
    MeansRequest two = oats.Request({"Variety"}, run::ContrastKind::kSimple);
    two.fLinkScale = true;
    EXPECT_EQ(oats.Estimator(bent).Estimate(two).fContrasts[0].fResult.fT, plain.fContrasts[0].fResult.fT);

    const ResponseScale falling{[](double eta) { return -eta; }, [](double) { return -1.0; }};
    const ContrastResult mirrored = oats.Estimator(falling).Estimate(request).fMeans[0].fResult;
    EXPECT_DOUBLE_EQ(mirrored.fLower, -plain.fMeans[0].fResult.fUpper);
    EXPECT_GT(mirrored.fUpper, mirrored.fLower);
}

TEST(EstimatedMeans, TopEffectsAreTheSignificantOnes) {
    const Fitted oats("oats");
    const std::vector<EstimatedMeans> top = oats.Estimator().TopEffects();
    ASSERT_EQ(top.size(), 2u);  // the interaction isn't significant
    EXPECT_EQ(top[0].fRequest.fFactors, std::vector<int>{oats.fData["nitro"]});
    EXPECT_NEAR(oats.Estimator().GrandMean().fEstimate, 103.972222222222, 1e-9);  // balanced: the mean of the yields
}

TEST(CustomTests, RowsReachTheModelsColumns) {
    const Fitted oats("oats");
    run::CustomTest test;
    test.fvFixedCounts = {0, 3, 0, 0};
    test.fvRandomCounts = {0};
    test.fvRows = {{1, 0, -1}, {0, 1, -1}, {1, -1, 0}, {1, 0, 0}};
    const CustomTestResult bare = RunCustomTest(oats.fFit, oats.fSpec, test);
    for (const CustomTestResult::Row& row : bare.fRows)
        EXPECT_FALSE(row.fResult.fEstimable);  // the interaction is left out of the rows
    test.fvFixedCounts = {0, 3, 0, 12};
    const double q = 0.25;
    test.fvRows = {{1, 0, -1, q, q, q, q, 0, 0, 0, 0, -q, -q, -q, -q},
                   {0, 1, -1, 0, 0, 0, 0, q, q, q, q, -q, -q, -q, -q},
                   {1, -1, 0, q, q, q, q, -q, -q, -q, -q}};
    test.fvK = {2.0, 0.0, 2.0};
    const CustomTestResult result = RunCustomTest(oats.fFit, oats.fSpec, test);
    const EstimatedMeans means = oats.Estimator().Estimate(oats.Request({"Variety"}, run::ContrastKind::kSimple));
    const ContrastResult& want = means.fContrasts[0].fResult;
    EXPECT_NEAR(result.fRows[0].fResult.fEstimate, want.fEstimate, 1e-10);
    EXPECT_NEAR(result.fRows[0].fResult.fLower, want.fLower, 1e-10);
    EXPECT_NEAR(result.fRows[0].fResult.fT, (want.fEstimate - 2.0) / want.fStdError, 1e-10);
    EXPECT_EQ(result.fJoint.fDf1, 2.0);  // the third row is the first less the second
    test.fvK.clear();
    EXPECT_NEAR(RunCustomTest(oats.fFit, oats.fSpec, test).fJoint.fF, means.fOverall[0].fTest.fF, 1e-9);
}

TEST(CustomTests, RandomCoefficientsRunOverSubjectsAndTooManyAreSaid) {
    const Fitted oats("oats");
    const std::vector<SubjectPrediction> blocks = oats.fFit.Predictions(0);
    run::CustomTest test;
    test.fvFixedCounts = {1, 0, 0, 0};
    test.fvRandomCounts = {2};
    test.fvRows = {{0, 0, 1}};
    CustomTestResult result = RunCustomTest(oats.fFit, oats.fSpec, test);
    EXPECT_NEAR(result.fRows[0].fResult.fEstimate, blocks[1].fEstimate[0], 1e-10);
    EXPECT_NEAR(result.fRows[0].fResult.fStdError, blocks[1].fStdError[0], 1e-9);

    test.fvRandomCounts = {7};
    test.fvRows = {{0, 0, 0, 0, 0, 0, 0, 1}};
    result = RunCustomTest(oats.fFit, oats.fSpec, test);
    EXPECT_FALSE(result.fRows[0].fResult.fEstimable);
    EXPECT_NE(result.fProblem.find("7 coefficients are given for the 6 columns of random effect 1"), std::string::npos)
        << result.fProblem;

    test.fAllColumns = true;
    test.fvFixedCounts = {8};
    test.fvRandomCounts = {0};
    test.fvRows = {{1, 0, 0, 1, 0, 0, 0, 1}};
    EXPECT_FALSE(RunCustomTest(oats.fFit, oats.fSpec, test).fRows[0].fResult.fEstimable);
    test.fvFixedCounts = {21};
    test.fvRows = {std::vector<double>(21, 0.0)};
    EXPECT_FALSE(RunCustomTest(oats.fFit, oats.fSpec, test).fProblem.empty());
}

class NamedVariable : public IMCVariable {
public:
    NamedVariable(std::string name, std::vector<std::string> levels)
        : fName(std::move(name)), fvLevels(std::move(levels)) {}
    std::string GetName() const override { return fName; }
    VariableRole GetRole() const override { return kPredictorRole; }
    MeasurementLevel GetMeasurementLevel() const override { return kNominalLevel; }
    bool IsCategorical() const override { return !fvLevels.empty(); }
    int GetCategoryCount() const override { return static_cast<int>(fvLevels.size()); }
    std::string GetCategoryText(int code) const override { return fvLevels[code]; }
    bool IsString() const override { return true; }

private:
    std::string fName;
    std::vector<std::string> fvLevels;
};

/// Requests as the settings hold them, over the oats data with a factor of one level.
struct Requested {
    Requested() : fOats("oats") {
        fOats.fData.Add("one", std::vector<double>(fOats.fData.Count(), 0.0), 1);
        fOats.fSpec.fLevels = fOats.fData.Levels();
        for (const char* name : {"yield", "Block", "Variety", "nitro"})
            fVariables.Add(std::make_unique<NamedVariable>(
                name, name == std::string("Variety") ? std::vector<std::string>{"Golden Rain", "<M>", "\"V\""}
                                                     : fOats.fData.LevelNames(name)));
        fVariables.Add(std::make_unique<NamedVariable>("one", std::vector<std::string>{"only"}));
    }
    void Add(const std::vector<std::string>& factors, const std::string& compare, run::MeansChoice choice,
             int reference = -1) {
        MCEmmeansSpec request;
        for (const std::string& factor : factors)
            request.AddFactor(fOats.fData[factor], 0);
        if (!compare.empty()) request.AddCompareFactor(fOats.fData[compare]);
        request.SetContrastType(choice.fContrast == run::ContrastKind::kSimple ? 0 : 6);
        request.SetRefCateg(reference);
        request.SetPAdjust(3);
        fvRequests.push_back(request);
        fRun.fvMeans.push_back(choice);
    }
    MeansResults Results() {
        GLMMSettings settings;
        settings.SetEmmeans(fvRequests);
        return EstimateMeans(fOats.fFit, fOats.fSpec, fOats.fMeans, {}, settings, fRun, true);
    }

    Fitted fOats;
    MCVarList fVariables;
    run::RunValue fRun;
    std::vector<MCEmmeansSpec> fvRequests;
};

TEST(MeansResults, DocumentTellsOfEveryRequest) {
    Requested requested;
    requested.Add({"nitro", "Variety"}, "Variety", {run::ContrastKind::kSimple}, 0);
    requested.Add({}, "", {});
    requested.Add({"one"}, "one", {run::ContrastKind::kPairwise});
    requested.Add({"Variety"}, "Variety", {run::ContrastKind::kSimple, false, false, true});
    const MeansResults results = requested.Results();
    ASSERT_EQ(results.Warnings().size(), 1u);
    EXPECT_EQ(results.Warnings()[0].GetErrorCode(), 130035);
    EXPECT_EQ(results.Warnings()[0].GetDiscreteDatum(0), 3);

    const Namer namer(requested.fVariables);
    run::Figures figures;
    results.AddFigures(requested.fRun, 0, namer, figures);
    ASSERT_EQ(figures.fMeans.size(), 4u);
    EXPECT_EQ(figures.fMeans[0].fContrasts[0].fContrast, "<M> - Golden Rain");
    EXPECT_EQ(figures.fMeans[1].fEstimates.size(), 1u);
    EXPECT_TRUE(figures.fMeans[3].fEstimates.empty());
    EXPECT_EQ(figures.fMessages.size(), 2u);

    std::ostringstream stream;
    {
        XmlWriter xml(stream);
        const XmlElement root(xml, "Root");
        const MeansXml means(xml, namer, results, 0.95);
        means.Settings();
        means.GrandMean();
        means.Groups();
        EXPECT_TRUE(means.MessageKeys().empty());
    }
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(stream.str().c_str()));
    const pugi::xml_node root = document.child("Root");
    const auto count = [&](const char* path) { return root.select_nodes(path).size(); };
    EXPECT_EQ(count("Parameter[@name='EMMEANS']/ListValue/StructuredValue"), 4u);
    EXPECT_EQ(count("Parameter[@name='pAdjustment'][@value='SEQSIDAK']"), 1u);
    EXPECT_EQ(count("//Attribute[@name='ReferenceValue'][@value='Golden Rain']"), 1u);
    EXPECT_EQ(count("DataGroup[@description='Emmeans']"), 2u);
    EXPECT_EQ(count("DataGroup[@description='customEmmeans']"), 3u);
    EXPECT_EQ(root.select_node("Statistic[@name='grandMean']").node().attribute("value").as_double(),
              results.fGrandMean.fEstimate);

    const pugi::xml_node first = root.select_node("DataGroup[Statistic[@name='EMMEANSIndex'][@value='0']]").node();
    const pugi::xml_node contrasts = first.select_node("MultivariateData[@description='contrasts']").node();
    const pugi::xml_node group = contrasts.child("CoordinatesGroup");
    EXPECT_STREQ(group.attribute("description").value(), "simpleContrast");
    std::vector<std::string> fields;
    for (const pugi::xml_node axis : group.children("Coordinates"))
        fields.push_back(axis.attribute("field").value());
    EXPECT_EQ(fields, (std::vector<std::string>{"nitro", "Variety", "Variety"}));
    EXPECT_STREQ(group.last_child().child_value("Array"),
                 "\"Golden Rain\" \"Golden Rain\" \"Golden Rain\" \"Golden Rain\" \"Golden Rain\" \"Golden Rain\" "
                 "\"Golden Rain\" \"Golden Rain\"");
    EXPECT_EQ(first.select_nodes("ModelTestStats/SegmentInfo/FieldInfo[@fieldName='nitro']").size(), 4u);

    const auto keys = [&](const char* index) {
        std::vector<std::string> found;
        const std::string path = std::string("DataGroup[Statistic[@value='") + index + "']]/Message/PrintableList";
        for (const pugi::xpath_node list : root.select_nodes(path.c_str()))
            found.push_back(list.node().attribute("pattern").value());
        return found;
    };
    EXPECT_TRUE(keys("0").empty());
    EXPECT_EQ(keys("2"), std::vector<std::string>{"kGLMM_C19_1"});
    EXPECT_EQ(count("//Message/PrintableList[@pattern='kGLMM_C19_1']/PrintableValue[@value='one']"), 1u);
    EXPECT_EQ(keys("3"), std::vector<std::string>{"kGLMM_C25"});
    EXPECT_EQ(count("DataGroup[Statistic[@value='3']]/MultivariateData"), 1u);
}

TEST(MeansResults, ManyRequestsAreCutShortInTheDocumentAlone) {
    Requested requested;
    for (int i = 0; i < 21; ++i)
        requested.Add({"one"}, "", {});
    const MeansResults results = requested.Results();
    EXPECT_EQ(results.fRequests.size(), 21u);
    const Namer namer(requested.fVariables);
    std::ostringstream stream;
    XmlWriter xml(stream);
    const MeansXml means(xml, namer, results, 0.95);
    EXPECT_EQ(means.MessageKeys(), std::vector<std::string>{"kGLMM_C24"});
    {
        const XmlElement root(xml, "Root");
        means.Groups();
    }
    pugi::xml_document document;
    ASSERT_TRUE(document.load_string(stream.str().c_str()));
    EXPECT_EQ(document.select_nodes("//DataGroup[@description='customEmmeans']").size(), 20u);
}

}  // namespace
}  // namespace engine::testing
