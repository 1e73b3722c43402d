// Estimated means, contrasts and their adjusted p values against those of an independent program; see
// tests/data/means_reference.json.
#include "engine/lmm_csv.h"
#include "engine/means/EstimatedMeans.h"

#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace engine::testing {
namespace {

using nlohmann::json;

constexpr double kFigure = 1e-5;
constexpr double kDf = 1e-3;
constexpr double kCancelled = 1e-15;  // the reference takes 1 - (1 - p)^m as it stands
constexpr double kRounded = 1e-3;     // the overall F values have three decimals

const json& Reference() {
    static const json facts = [] {
        std::ifstream file(HIERFIT_TEST_DATA "/means_reference.json");
        return json::parse(file);
    }();
    return facts;
}

class ReferenceFit {
public:
    ReferenceFit(const std::string& name, const std::string& dfMethod)
        : fData(HIERFIT_TEST_DATA "/" + name + ".csv", {"Subject", "Block", "nitro"}) {
        if (name == "oats") {
            fSpec = Model(fData, "yield");
            fSpec.fFixed = {Factors(fData, {"Variety"}), Factors(fData, {"nitro"}),
                            Factors(fData, {"Variety", "nitro"})};
            fSpec.fRandom = {Block(fData, {{}}, {"Block"}), Block(fData, {{}}, {"Block", "Variety"})};
        } else {
            fSpec = Model(fData, "distance");
            fSpec.fFixed = {Factors(fData, {"Sex"}), Factors(fData, {}, {"age"}), Factors(fData, {"Sex"}, {"age"})};
            fSpec.fRandom = {Block(fData, {{}}, {"Subject"})};
        }
        fSpec.fDf = dfMethod == "satterthwaite" ? DfMethod::kSatterthwaite : DfMethod::kKenwardRoger;
        const RecordView view = fData.View(fSpec);
        fFit = FitLmm(fSpec, view);
        fMeans = AverageRecords(fSpec, view);
    }

    MeansRequest Request(const json& wanted) const {
        MeansRequest request;
        for (const json& factor : wanted["factors"])
            request.fFactors.push_back(fData[factor]);
        for (const auto& [name, value] : wanted["at"].items())
            request.fGiven.emplace_back(fData[name], value);
        request.fCompare = 0;
        return request;
    }

    const FitResult& Fit() const { return fFit; }
    EstimatedMeans Answer(const MeansRequest& request) const {
        return MeansEstimator(fFit, fSpec, fMeans, {}).Estimate(request);
    }
    std::string Text(const std::string& factor, int level) const { return fData.LevelNames(factor)[level]; }

private:
    CsvRecords fData;
    ModelSpec fSpec;
    FitResult fFit;
    RecordMeans fMeans;
};

void ExpectFigures(const ContrastResult& got, const json& want, const std::string& what) {
    const double se = want[1];
    EXPECT_NEAR(got.fEstimate, want[0], kFigure * se) << what;
    EXPECT_NEAR(got.fStdError, want[1], kFigure * se) << what;
    EXPECT_NEAR(got.fDf, want[2], kDf * want[2].get<double>()) << what;
    EXPECT_NEAR(got.fLower, want[3], kFigure * std::abs(want[3].get<double>())) << what;
    EXPECT_NEAR(got.fUpper, want[4], kFigure * std::abs(want[4].get<double>())) << what;
}

void ExpectMeans(const ReferenceFit& fit, const EstimatedMeans& got, const json& wanted, const std::string& what) {
    ASSERT_EQ(got.fMeans.size(), wanted["means"].size()) << what;
    for (const EstimatedMean& mean : got.fMeans) {
        std::vector<std::string> levels;
        for (std::size_t f = 0; f < mean.fLevels.size(); ++f)
            levels.push_back(fit.Text(wanted["factors"][f], mean.fLevels[f]));
        const auto row = std::find_if(wanted["means"].begin(), wanted["means"].end(),
                                      [&](const json& candidate) { return candidate["levels"] == json(levels); });
        ASSERT_NE(row, wanted["means"].end()) << what;
        ExpectFigures(mean.fResult, (*row)["figures"], what);
    }
}

/// column: of the p value that the adjustment leads to.
void ExpectContrasts(const EstimatedMeans& got, const json& wanted, int column, const std::string& what) {
    ASSERT_EQ(got.fContrasts.size(), wanted.size()) << what;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const MeansContrast& contrast = got.fContrasts[i];
        const json& figures = wanted[i]["figures"];
        const std::string where = what + " " + wanted[i]["contrast"].get<std::string>();
        if (column == 6) ExpectFigures(contrast.fResult, figures, where);
        EXPECT_NEAR(contrast.fResult.fT, figures[5], kFigure * std::max(1.0, std::abs(figures[5].get<double>())))
            << where;
        EXPECT_NEAR(contrast.fResult.fP, figures[6], kFigure * figures[6].get<double>()) << where;
        EXPECT_NEAR(contrast.fAdjustedP, figures[column], kFigure * figures[column].get<double>() + kCancelled)
            << where;
    }
}

TEST(MeansReference, MeansContrastsAndAdjustedValuesAgree) {
    const std::map<std::string, run::ContrastKind> kinds{{"pairwise", run::ContrastKind::kPairwise},
                                                         {"deviation", run::ContrastKind::kDeviation},
                                                         {"simple_last", run::ContrastKind::kSimple}};
    const std::vector<std::pair<PAdjustment, int>> adjustments{{PAdjustment::kLeastDifference, 6},
                                                               {PAdjustment::kSequentialBonferroni, 7},
                                                               {PAdjustment::kSequentialSidak, 8}};
    for (const std::string data : {"oats", "orthodont"}) {
        for (const std::string method : {"satterthwaite", "kenward-roger"}) {
            const ReferenceFit fit(data, method);
            ASSERT_TRUE(fit.Fit().fStatus.IsOk());
            for (const json& wanted : Reference()["cases"]) {
                if (wanted["data"] != data || wanted["df_method"] != method) continue;
                MeansRequest request = fit.Request(wanted);
                const std::string what = data + " " + method + " " + wanted["factors"].dump() + wanted["at"].dump();
                for (const auto& [name, kind] : kinds) {
                    for (const auto& [adjustment, column] : adjustments) {
                        request.fContrast = kind;
                        request.fAdjustment = adjustment;
                        const EstimatedMeans got = fit.Answer(request);
                        ExpectMeans(fit, got, wanted, what);
                        ExpectContrasts(got, wanted["contrasts"][name], column, what + " " + name);
                        if (wanted["factors"].size() > 1) continue;
                        const FTestResult& overall = got.fOverall.at(0).fTest;
                        const json& test = wanted["overall"][0];
                        EXPECT_NEAR(overall.fF, test["F"], kRounded) << what;
                        EXPECT_EQ(overall.fDf1, test["df1"]) << what;
                        EXPECT_NEAR(overall.fDf2, test["df2"], 1e-2) << what;
                        EXPECT_NEAR(overall.fP, test["p"], kFigure * test["p"].get<double>()) << what;
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace engine::testing
