// Pseudo-likelihood fits of published data against figures from an independent program; see
// tests/data/glmm_reference.json.
#include "engine/glmm_models.h"

#include <cmath>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace engine::testing {
namespace {

using nlohmann::json;
using run::Distribution;
using Link = run::Link;
using Type = CovarianceType;

constexpr double kEstimate = 1e-5;
constexpr double kTheta = 1e-4;
constexpr double kObjective = 1e-6;
constexpr double kDf = 1e-2;
constexpr double kInfiniteDf = 1e9;  // of an estimate that no covariance parameter has a say in: rounding

const json& Reference() {
    static const json facts = [] {
        std::ifstream file(HIERFIT_TEST_DATA "/glmm_reference.json");
        return json::parse(file);
    }();
    return facts;
}

void ExpectNear(double got, double want, double relative, const std::string& what) {
    EXPECT_LE(std::abs(got - want), relative * std::max(std::abs(want), 1e-6))
        << what << ": " << got << " not " << want;
}

// Estimates with their standard errors and degrees of freedom, sorted: the reference orders interactions differently.
std::vector<std::array<double, 3>> Kept(const FitResult& fit) {
    std::vector<std::array<double, 3>> kept;
    for (const FixedParameter& parameter : fit.fFixed) {
        if (!parameter.fRedundant) kept.push_back({parameter.fEstimate, parameter.fStdError, parameter.fDf});
    }
    std::sort(kept.begin(), kept.end());
    return kept;
}

void ExpectReference(const FitResult& fit, const std::string& key) {
    SCOPED_TRACE(key);
    const json& want = Reference().at(key);
    ASSERT_TRUE(fit.HasEstimates()) << fit.fStatus.fCode << fit.fStatus.fDetail;
    EXPECT_TRUE(fit.fStatus.IsOk()) << fit.fStatus.fCode << fit.fStatus.fDetail;
    EXPECT_LT(fit.fCertificate.fScaledGradient, 1e-6);
    ExpectNear(fit.fMinus2LogLikelihood, want["minus2ll"], kObjective, "-2 log likelihood");
    ExpectNear(fit.fAicc, want["aicc"], kObjective, "AICC");
    ExpectNear(fit.fBic, want["bic"], kObjective, "BIC");
    std::vector<const CovarianceParameter*> theta;
    for (const CovarianceParameter& parameter : fit.fCovariance) {
        if (!parameter.fRedundant) theta.push_back(&parameter);
    }
    ASSERT_EQ(theta.size(), want["theta"].size());
    for (std::size_t k = 0; k < theta.size(); ++k) {
        ExpectNear(theta[k]->fEstimate, want["theta"][k], kTheta, theta[k]->fName);
        ExpectNear(theta[k]->fStdError, want["theta_se"][k], 10 * kTheta, "se of " + theta[k]->fName);
    }
    std::vector<std::array<double, 3>> fixed;
    for (std::size_t i = 0; i < want["estimate"].size(); ++i)
        fixed.push_back({want["estimate"][i], want["se"][i], want["df"][i]});
    std::sort(fixed.begin(), fixed.end());
    const auto got = Kept(fit);
    ASSERT_EQ(got.size(), fixed.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_NEAR(got[i][0], fixed[i][0], kEstimate * std::max(std::abs(fixed[i][0]), fixed[i][1]));
        ExpectNear(got[i][1], fixed[i][1], kEstimate, "standard error");
        if (fixed[i][2] < kInfiniteDf) ExpectNear(got[i][2], fixed[i][2], kDf, "degrees of freedom");
    }
    for (std::size_t i = 0; want.contains("random") && i < want["random"].size(); ++i) {
        const SubjectPrediction effect = fit.Predictions(0)[i];
        EXPECT_NEAR(effect.fEstimate[0], want["random"][i], 1e-4) << i;
        EXPECT_NEAR(effect.fStdError[0], want["random_se"][i], 1e-4) << i;
    }
}

// The scale estimated for a distribution whose scale is 1: an identity residual structure takes its place.
ModelSpec WithScale(ModelSpec spec) {
    spec.fResidual.fSubjects = spec.fRandom.front().fSubjects;
    return spec;
}

void ExpectBothMethods(ModelSpec spec, const TargetSpec& target, CsvRecords& data, const std::string& key,
                       bool withScale) {
    for (const bool restricted : {true, false}) {
        spec.fRestricted = restricted;
        const std::string method = key + (restricted ? "_reml" : "_ml");
        ExpectReference(FitGlmm(spec, target, data.View(spec)).fFit, method);
        if (withScale) ExpectReference(FitGlmm(WithScale(spec), target, data.View(spec)).fFit, method + "_scale");
    }
}

TEST(GlmmReference, Binary) {
    CsvRecords bacteria = ReadData("bacteria", {"ID", "trt"});
    std::vector<double> late = bacteria.Column("week");
    for (double& week : late)
        week = week > 2.0 ? 1.0 : 0.0;
    bacteria.Add("late", late);
    ModelSpec spec = Spec(bacteria, bacteria["y"], {Factor(bacteria["trt"]), Covariate(bacteria["late"])});
    AddIntercept(spec, bacteria["ID"]);
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fCategories = 2;
    ExpectBothMethods(spec, target, bacteria, "bacteria", true);

    CsvRecords toenail = ReadData("toenail", {"patientID", "treatment"});
    ModelEffect both = Factor(toenail["treatment"]);
    both.fCovariates = {{toenail["time"], 1}};
    spec = Spec(toenail, toenail["y"], {Factor(toenail["treatment"]), Covariate(toenail["time"]), both});
    AddIntercept(spec, toenail["patientID"]);
    ExpectBothMethods(spec, target, toenail, "toenail", true);
}

TEST(GlmmReference, EventsOfTrials) {
    CsvRecords data = ReadData("cbpp", {"herd", "period"});
    ModelSpec spec = Spec(data, data["incidence"], {Factor(data["period"])});
    AddIntercept(spec, data["herd"]);
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fTrials = data["size"];
    ExpectBothMethods(spec, target, data, "cbpp", true);
    target.fLink = Link::kProbit;
    ExpectReference(FitGlmm(spec, target, data.View(spec)).fFit, "cbpp_reml_probit");
    target.fLink = Link::kComplementaryLogLog;
    ExpectReference(FitGlmm(spec, target, data.View(spec)).fFit, "cbpp_reml_cloglog");
}

TEST(GlmmReference, Counts) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    ModelSpec spec = Seizures(data);
    AddIntercept(spec, data["subject"]);
    ExpectBothMethods(spec, Target(Distribution::kPoisson, Link::kLog), data, "epil", true);

    ModelSpec offset = Spec(data, data["y"], {Factor(data["trt"]), Covariate(data["lage"]), Covariate(data["V4"])});
    AddIntercept(offset, data["subject"]);
    offset.fOffset = data["lbase"];
    ExpectReference(FitGlmm(offset, Target(Distribution::kPoisson, Link::kLog), data.View(offset)).fFit,
                    "poisson_offset");

    TargetSpec dispersed = Target(Distribution::kNegativeBinomial, Link::kLog);
    ExpectBothMethods(spec, dispersed, data, "negbin", false);
    for (const double k : {0.1, 1.0}) {
        dispersed.fDispersion = k;
        ExpectReference(FitGlmm(spec, dispersed, data.View(spec)).fFit, k == 1.0 ? "negbin_k1" : "negbin_k01");
    }
}

TEST(GlmmReference, ResidualStructures) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    ModelSpec spec = Seizures(data);
    spec.fResidual.fRepeated = {data["period"]};
    spec.fResidual.fSubjects = {data["subject"]};
    const std::pair<Type, const char*> cases[] = {{Type::kID, "marginal_id"},
                                                  {Type::kAR1, "marginal_ar1"},
                                                  {Type::kCS, "marginal_cs"},
                                                  {Type::kUN, "marginal_un"},
                                                  {Type::kARMA11, "marginal_arma11"}};
    for (const auto& [type, key] : cases) {
        spec.fResidual.fType = type;
        ExpectReference(FitGlmm(spec, Target(Distribution::kPoisson, Link::kLog), data.View(spec)).fFit, key);
    }
}

TEST(GlmmReference, SkewedTargets) {
    CsvRecords data = ReadData("sleepstudy", {"Subject"});
    ModelSpec spec = Spec(data, data["Reaction"], {Covariate(data["Days"])});
    AddIntercept(spec, data["Subject"]);
    ExpectBothMethods(spec, Target(Distribution::kGamma, Link::kLog), data, "gamma", false);
    ExpectBothMethods(spec, Target(Distribution::kInverseGaussian, Link::kLog), data, "invgauss", false);
}

TEST(GlmmReference, OrderedCategories) {
    CsvRecords data = ReadData("wine", {"rating", "temp", "contact", "judge"});
    ModelSpec spec = Spec(data, data["rating"], {Factor(data["temp"]), Factor(data["contact"])});
    AddIntercept(spec, data["judge"]);
    TargetSpec target = Target(Distribution::kOrdinal, Link::kLogit);
    target.fCategories = 5;
    ExpectBothMethods(spec, target, data, "wine", false);
    const FitResult fit = FitGlmm(spec, target, data.View(spec)).fFit;
    for (int j = 0; j < 4; ++j) {
        EXPECT_TRUE(fit.fFixed[j].fThreshold && fit.fFixed[j].fTarget == j);
        EXPECT_NEAR(fit.fFixed[j].fEstimate, Reference()["wine_reml"]["estimate"][j], 1e-5);
    }
    ASSERT_EQ(fit.fTests.size(), 2U);
    EXPECT_NEAR(fit.fTests[0].fF, std::pow(fit.fFixed[4].fT, 2), 1e-6);
    target.fLink = Link::kProbit;
    ExpectReference(FitGlmm(spec, target, data.View(spec)).fFit, "wine_reml_probit");
}

TEST(GlmmReference, UnorderedCategories) {
    CsvRecords data = ReadData("verbagg6", {"resp", "id", "Gender", "situ", "mode"});
    ModelSpec spec = Spec(data, data["resp"], {Factor(data["Gender"]), Factor(data["mode"]), Factor(data["situ"])});
    AddIntercept(spec, data["id"]);
    TargetSpec target = Target(Distribution::kNominal, Link::kLogit);
    target.fCategories = 3;
    ExpectBothMethods(spec, target, data, "verbagg", false);
    const FitResult fit = FitGlmm(spec, target, data.View(spec)).fFit;
    EXPECT_EQ(fit.fCovariance[0].fTarget, 0);
    EXPECT_EQ(fit.fCovariance[1].fTarget, 1);
    EXPECT_EQ(fit.fFixed.back().fTarget, 1);
    EXPECT_EQ(fit.fTests[1].fDf1, 2);
}

}  // namespace
}  // namespace engine::testing
