// Published data against figures from independent programs and from closed forms; see tests/data/lmm_reference.json.
#include "engine/lmm_csv.h"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace engine::testing {
namespace {

using nlohmann::json;
using Type = CovarianceType;

constexpr double kObjective = 1e-9;  // relative
constexpr double kEstimate = 1e-6;
constexpr double kTheta = 1e-5;
constexpr double kDf = 1e-3;
constexpr double kPeer = 1e-4;  // programs that stop at looser criteria
constexpr double kClosedForm = 1e-10;

const json& Reference() {
    static const json facts = [] {
        std::ifstream file(HIERFIT_TEST_DATA "/lmm_reference.json");
        return json::parse(file);
    }();
    return facts;
}

CsvRecords Read(const std::string& name, const std::vector<std::string>& categorical) {
    return CsvRecords(HIERFIT_TEST_DATA "/" + name + ".csv", categorical);
}

void ExpectNear(double got, double want, double relative, const std::string& what) {
    EXPECT_LE(std::abs(got - want), relative * std::max(std::abs(want), 1e-8))
        << what << ": " << got << " not " << want;
}

// Estimate, standard error and degrees of freedom, sorted: the reference orders interactions differently.
using Triples = std::vector<std::array<double, 3>>;

Triples Sorted(Triples triples) {
    std::sort(triples.begin(), triples.end());
    return triples;
}

Triples Kept(const FitResult& fit) {
    Triples triples;
    for (const FixedParameter& parameter : fit.fFixed) {
        if (!parameter.fRedundant) triples.push_back({parameter.fEstimate, parameter.fStdError, parameter.fDf});
    }
    return Sorted(triples);
}

void ExpectFixed(const FitResult& fit, const json& want, double estimate, double df, const std::string& key) {
    Triples triples;
    for (std::size_t i = 0; i < want["estimate"].size(); ++i)
        triples.push_back({want["estimate"][i], want["se"][i], want["df"][i]});
    triples = Sorted(triples);
    const Triples got = Kept(fit);
    ASSERT_EQ(got.size(), triples.size()) << key;
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_NEAR(got[i][0], triples[i][0], estimate * std::max(std::abs(triples[i][0]), triples[i][1])) << key;
        ExpectNear(got[i][1], triples[i][1], estimate, key + " standard error");
        ExpectNear(got[i][2], triples[i][2], df, key + " degrees of freedom");
    }
}

// Tests of the effects after the intercept.
void ExpectTests(const std::vector<FTestResult>& tests, const json& want, double f, double df, const std::string& key) {
    ASSERT_EQ(tests.size(), want.size() + 1) << key;
    for (std::size_t i = 0; i < want.size(); ++i) {
        ExpectNear(tests[i + 1].fF, want[i]["F"], f, key + " F");
        EXPECT_EQ(tests[i + 1].fDf1, want[i]["df1"].get<double>()) << key;
        ExpectNear(tests[i + 1].fDf2, want[i]["df2"], df, key + " denominator");
    }
}

void ExpectReference(const FitResult& fit, const std::string& key) {
    const json& want = Reference().at(key);
    ASSERT_TRUE(fit.HasEstimates()) << key << " " << fit.fStatus.fCode << fit.fStatus.fDetail;
    EXPECT_TRUE(fit.fStatus.IsOk()) << key << " " << fit.fStatus.fCode;
    EXPECT_LT(fit.fCertificate.fScaledGradient, 1e-6) << key;
    ExpectNear(fit.fMinus2LogLikelihood, want["minus2ll"], kObjective, key + " -2 log likelihood");
    ExpectNear(fit.fAic, want["aic"], kObjective, key + " AIC");
    ExpectNear(fit.fAicc, want["aicc"], kObjective, key + " AICC");
    ExpectNear(fit.fBic, want["bic"], kObjective, key + " BIC");
    // Bozdogan's criterion adds the number of parameters, half of what Akaike's adds, to the Bayesian one.
    const double parameters = (want["aic"].get<double>() - want["minus2ll"].get<double>()) / 2;
    ExpectNear(fit.fCaic, want["bic"].get<double>() + parameters, kObjective, key + " CAIC");
    ASSERT_EQ(fit.fCovariance.size(), want["theta"].size()) << key;
    for (std::size_t k = 0; k < fit.fCovariance.size(); ++k) {
        const CovarianceParameter& parameter = fit.fCovariance[k];
        ExpectNear(parameter.fEstimate, want["theta"][k], kTheta, key + " " + parameter.fName);
        if (want["theta_se"][k] != 0.0) {
            ExpectNear(parameter.fStdError, want["theta_se"][k], 10 * kTheta, key + " se of " + parameter.fName);
        } else {
            EXPECT_TRUE(parameter.fAtBound || parameter.fRedundant) << key;
        }
    }
    ExpectFixed(fit, want, kEstimate, kDf, key);
    if (want.contains("type3")) ExpectTests(fit.EffectTests(false), want["type3"], kEstimate, kDf, key);
    if (want.contains("type1")) ExpectTests(fit.EffectTests(true), want["type1"], kEstimate, kDf, key);
}

void ExpectRestrictedAndFull(ModelSpec spec, CsvRecords& data, const std::string& key) {
    const RecordView view = data.View(spec);
    ExpectReference(FitLmm(spec, view), key + "_reml");
    spec.fRestricted = false;
    ExpectReference(FitLmm(spec, view), key + "_ml");
}

void ExpectKenwardRoger(ModelSpec spec, CsvRecords& data, const std::string& key) {
    spec.fDf = DfMethod::kKenwardRoger;
    const FitResult fit = FitLmm(spec, data.View(spec));
    const json& want = Reference().at(key + "_kr");
    ExpectFixed(fit, want, kPeer, kPeer, key);
    if (want.contains("type3") && !want["type3"].empty()) ExpectTests(fit.fTests, want["type3"], kPeer, kPeer, key);
}

ModelSpec SleepModel(const CsvRecords& data, Type type) {
    ModelSpec spec = Model(data, "Reaction");
    spec.fFixed = {Factors(data, {}, {"Days"})};
    spec.fRandom = {Block(data, {Factors(data, {}), Factors(data, {}, {"Days"})}, {"Subject"}, type)};
    return spec;
}

TEST(LmmReference, RandomInterceptAndSlope) {
    CsvRecords data = Read("sleepstudy", {"Subject"});
    ModelSpec spec = SleepModel(data, Type::kUN);
    ExpectRestrictedAndFull(spec, data, "sleepstudy");
    ExpectKenwardRoger(spec, data, "sleepstudy");
    ModelSpec diagonal = SleepModel(data, Type::kDIAG);
    ExpectReference(FitLmm(diagonal, data.View(diagonal)), "sleepstudy_diag");

    const FitResult fit = FitLmm(spec, data.View(spec));
    const auto predictions = fit.Predictions(0);
    const json& want = Reference()["sleepstudy_reml"];
    ASSERT_EQ(2 * predictions.size(), want["blup"].size());
    for (std::size_t i = 0; i < predictions.size(); ++i) {
        for (int c = 0; c < 2; ++c) {
            EXPECT_NEAR(predictions[i].fEstimate[c], want["blup"][2 * i + c].get<double>(), 1e-6);
            ExpectNear(predictions[i].fStdError[c], want["blup_se"][2 * i + c], kEstimate, "prediction error");
        }
    }
}

TEST(LmmReference, NestedCrossedAndWeighted) {
    CsvRecords pastes = Read("pastes", {"batch", "cask"});
    ModelSpec spec = Model(pastes, "strength");
    spec.fRandom = {Block(pastes, {{}}, {"batch"}), Block(pastes, {{}}, {"batch", "cask"})};
    ExpectRestrictedAndFull(spec, pastes, "pastes");

    CsvRecords penicillin = Read("penicillin", {"plate", "sample"});
    spec = Model(penicillin, "diameter");
    spec.fRandom = {Block(penicillin, {{}}, {"plate"}), Block(penicillin, {{}}, {"sample"})};
    ExpectRestrictedAndFull(spec, penicillin, "penicillin");
    ExpectKenwardRoger(spec, penicillin, "penicillin");

    CsvRecords oats = Read("oats", {"Block", "Variety", "nitro"});
    spec = Model(oats, "yield");
    spec.fFixed = {Factors(oats, {"Variety"}), Factors(oats, {"nitro"}), Factors(oats, {"Variety", "nitro"})};
    spec.fRandom = {Block(oats, {{}}, {"Block"}), Block(oats, {{}}, {"Block", "Variety"})};
    ExpectRestrictedAndFull(spec, oats, "oats");
    ExpectKenwardRoger(spec, oats, "oats");

    CsvRecords chicks = Read("chickweight", {"Chick", "Diet"});
    std::vector<double> weights;
    for (double time : chicks.Column("Time"))
        weights.push_back(1.0 / (1.0 + time));
    chicks.Add("w", weights);
    spec = Model(chicks, "weight");
    spec.fFixed = {Factors(chicks, {"Diet"}), Factors(chicks, {}, {"Time"}), Factors(chicks, {"Diet"}, {"Time"})};
    spec.fRandom = {Block(chicks, {{}, Factors(chicks, {}, {"Time"})}, {"Chick"}, Type::kUN)};
    ExpectRestrictedAndFull(spec, chicks, "chickweight");
    ExpectKenwardRoger(spec, chicks, "chickweight");
    spec.fRandom = {Block(chicks, {{}}, {"Chick"})};
    spec.fRegressionWeight = chicks["w"];
    ExpectReference(FitLmm(spec, chicks.View(spec)), "chickweight_weighted");
}

TEST(LmmReference, BoundsAndRedundantColumns) {
    CsvRecords dyestuff = Read("dyestuff2", {"Batch"});
    ModelSpec spec = Model(dyestuff, "Yield");
    spec.fRandom = {Block(dyestuff, {{}}, {"Batch"})};
    ExpectRestrictedAndFull(spec, dyestuff, "dyestuff2");
    EXPECT_EQ(FitLmm(spec, dyestuff.View(spec)).fCertificate.fAtBound, std::vector<int>{0});

    CsvRecords oats = Read("oats_redundant", {"Block", "Variety", "dose"});
    spec = Model(oats, "yield");
    spec.fFixed = {Factors(oats, {"Variety"}), Factors(oats, {"dose"}), Factors(oats, {"Variety", "dose"}),
                   Factors(oats, {}, {"nitro"}), Factors(oats, {}, {"nitro2"})};
    spec.fRandom = {Block(oats, {{}}, {"Block"}), Block(oats, {{}}, {"Block", "Variety"})};
    const FitResult fit = FitLmm(spec, oats.View(spec));
    const json& want = Reference()["oats_redundant"];
    EXPECT_EQ(fit.fRank, 11);
    for (std::size_t k = 0; k < fit.fCovariance.size(); ++k)
        ExpectNear(fit.fCovariance[k].fEstimate, want["theta"][k], kTheta, "theta");
    EXPECT_FALSE(fit.fTests.back().fEstimable);
    EXPECT_FALSE(fit.IsEstimable(Eigen::VectorXd::Unit(static_cast<Eigen::Index>(fit.fFixed.size()), 1)));
}

TEST(LmmReference, RepeatedStructures) {
    CsvRecords data = Read("orthodont", {"Subject", "Sex"});
    std::vector<double> occasions;
    for (double age : data.Column("age"))
        occasions.push_back((age - 8) / 2);
    data.Add("occasion", occasions, 4);
    ModelSpec spec = Model(data, "distance");
    spec.fFixed = {Factors(data, {"Sex"}), Factors(data, {}, {"age"}), Factors(data, {"Sex"}, {"age"})};
    spec.fResidual.fSubjects = {data["Subject"]};
    spec.fResidual.fRepeated = {data["occasion"]};
    const std::vector<Type> types{Type::kID,   Type::kDIAG,   Type::kCS, Type::kCSH, Type::kAR1,
                                  Type::kARH1, Type::kARMA11, Type::kTP, Type::kUN};
    for (std::size_t i = 0; i < types.size(); ++i) {
        spec.fResidual.fType = types[i];
        ExpectReference(FitLmm(spec, data.View(spec)), "orthodont_" + std::to_string(i));
    }
    spec.fResidual = ResidualBlock{};
    spec.fResidual.fGroup = data["Sex"];
    spec.fRandom = {Block(data, {{}}, {"Subject"})};
    ExpectReference(FitLmm(spec, data.View(spec)), "orthodont_9");

    spec.fRandom.clear();
    spec.fResidual = ResidualBlock{};
    spec.fResidual.fSubjects = {data["Subject"]};
    spec.fResidual.fSpatial = {data["age"]};
    const std::vector<Type> spatial{Type::kSPEXP, Type::kSPPOW, Type::kSPGAU,
                                    Type::kSPSPH, Type::kSPLIN, Type::kSPLINLOG};
    for (std::size_t i = 0; i < spatial.size(); ++i) {
        spec.fResidual.fType = spatial[i];
        ExpectReference(FitLmm(spec, data.View(spec)), "spatial_" + std::to_string(i));
    }
}

TEST(LmmReference, KroneckerStructures) {
    CsvRecords data = Read("obrienkaiser", {"id", "treatment", "gender", "phase", "hour"});
    ModelSpec spec = Model(data, "score");
    spec.fFixed = {Factors(data, {"treatment"}), Factors(data, {"phase"}), Factors(data, {"gender"}),
                   Factors(data, {"treatment", "phase"})};
    spec.fResidual.fSubjects = {data["id"]};
    spec.fResidual.fRepeated = {data["phase"], data["hour"]};
    spec.fResidual.fFirstMeasures = {0};
    spec.fResidual.fSecondMeasures = {1};
    int index = 0;
    for (Type type : {Type::kUN_UN, Type::kUN_AR1, Type::kUN_CS}) {
        spec.fResidual.fType = type;
        ExpectReference(FitLmm(spec, data.View(spec)), "kronecker_" + std::to_string(index++));
    }
}

TEST(LmmReference, OneSubjectInThePlane) {
    CsvRecords data = Read("wheat2", {"variety", "Block"});
    ModelSpec spec = Model(data, "yield");
    spec.fFixed = {Factors(data, {"variety"})};
    spec.fResidual.fSpatial = {data["latitude"], data["longitude"]};
    int index = 0;
    for (Type type : {Type::kSPEXP, Type::kSPPOW, Type::kSPGAU, Type::kSPSPH}) {
        spec.fResidual.fType = type;
        ExpectReference(FitLmm(spec, data.View(spec)), "wheat_" + std::to_string(index++));
    }
}

// Ratings of lecturers at ETH Zurich (Bates, Maechler, Bolker and Walker 2015, data set InstEval), figures of
// lme4 1.1.31.
TEST(LmmReference, RatingsOfThreeCrossedFactors) {
    CsvRecords data = Read("insteval", {"service", "s", "d", "dept"});
    ModelSpec spec = Model(data, "y");
    spec.fFixed = {Factors(data, {"service"})};
    spec.fRandom = {Block(data, {{}}, {"s"}), Block(data, {{}}, {"d"}), Block(data, {{}}, {"dept"})};
    const RecordView view = data.View(spec);
    struct Figures {
        double fValue, fTheta[4], fService, fStdError;
    };
    const Figures wanted[] = {
        {237733.834127519, {0.105997956, 0.265221226, 0.00691200283, 1.38650036}, 0.0926417071458, 0.0133891864991},
        {237721.768774495, {0.105972676, 0.265204485, 0.00616784656, 1.38648858}, 0.0925886104631, 0.0133831766917}};
    for (const bool restricted : {true, false}) {
        spec.fRestricted = restricted;
        const Figures& want = wanted[restricted ? 0 : 1];
        const FitResult fit = FitLmm(spec, view);
        EXPECT_TRUE(fit.fStatus.IsOk()) << fit.fStatus.fCode;
        EXPECT_LT(fit.fCertificate.fScaledGradient, 1e-5);
        EXPECT_GT(fit.fCertificate.fSmallestEigenvalue, 1e-3);
        ExpectNear(fit.fMinus2LogLikelihood, want.fValue, kObjective, "ratings");
        for (int k = 0; k < 4; ++k)
            ExpectNear(fit.fCovariance[k].fEstimate, want.fTheta[k], kPeer, "ratings " + std::to_string(k));
        ExpectNear(fit.fFixed[1].fEstimate, want.fService, kEstimate, "service");
        ExpectNear(fit.fFixed[1].fStdError, want.fStdError, kEstimate, "service's standard error");
        EXPECT_EQ(fit.fNumSubjects, (std::vector<int>{2972, 1128, 14}));
    }
}

TEST(LmmReference, ClosedFormsAtLargeOffsets) {
    for (const std::string name : {"oneway_offset_1", "oneway_offset_1e6", "oneway_offset_1e12"}) {
        CsvRecords data = Read(name, {"group"});
        const json& want = Reference()["cert_" + name];
        ModelSpec spec = Model(data, "y");
        spec.fRandom = {Block(data, {{}}, {"group"})};
        FitResult fit = FitLmm(spec, data.View(spec));
        const json& random = want["random_REML"];
        ExpectNear(fit.fCovariance[0].fEstimate, random["var_between"], kClosedForm, name + " between");
        ExpectNear(fit.fCovariance[1].fEstimate, random["var_residual"], kClosedForm, name + " residual");
        ExpectNear(fit.fCovariance[0].fStdError, random["se_expected_var_between"], kClosedForm, name);
        ExpectNear(fit.fFixed[0].fStdError, random["se_intercept"], kClosedForm, name + " standard error");
        ExpectNear(fit.fMinus2LogLikelihood, random["minus2_restricted_loglik"], kClosedForm, name);
        EXPECT_DOUBLE_EQ(fit.fFixed[0].fEstimate, want["grand_mean"].get<double>());
        spec.fRestricted = false;
        fit = FitLmm(spec, data.View(spec));
        ExpectNear(fit.fCovariance[0].fEstimate, want["random_ML"]["var_between"], kClosedForm, name + " full");
        spec = Model(data, "y");
        spec.fFixed = {Factors(data, {"group"})};
        fit = FitLmm(spec, data.View(spec));
        ExpectNear(fit.fTests[1].fF, want["fixed_anova"]["F"], kClosedForm, name + " F");
        EXPECT_NEAR(fit.fTests[1].fDf2, 180.0, 1e-9);
    }
    CsvRecords nested = Read("nested_offset_1e7", {"a", "b"});
    ModelSpec spec = Model(nested, "y");
    spec.fRandom = {Block(nested, {{}}, {"a"}), Block(nested, {{}}, {"a", "b"})};
    FitResult fit = FitLmm(spec, nested.View(spec));
    const json& want = Reference()["cert_nested_offset_1e7"]["random_REML"];
    ExpectNear(fit.fCovariance[0].fEstimate, want["var_a"], kClosedForm, "a");
    ExpectNear(fit.fCovariance[1].fEstimate, want["var_b_within_a"], kClosedForm, "b within a");
    ExpectNear(fit.fMinus2LogLikelihood, want["minus2_restricted_loglik"], kClosedForm, "nested");
    CsvRecords crossed = Read("crossed_offset_1e8", {"a", "b"});
    spec = Model(crossed, "y");
    spec.fRandom = {Block(crossed, {{}}, {"a"}), Block(crossed, {{}}, {"b"})};
    fit = FitLmm(spec, crossed.View(spec));
    const json& both = Reference()["cert_crossed_offset_1e8"]["random_REML"];
    ExpectNear(fit.fMinus2LogLikelihood, both["minus2_restricted_loglik"], kClosedForm, "crossed");
    ExpectNear(fit.fCovariance[0].fEstimate, both["var_a"], kClosedForm, "crossed a");
    ExpectNear(fit.fCovariance[2].fEstimate, both["var_residual"], kClosedForm, "crossed residual");
}

}  // namespace
}  // namespace engine::testing
