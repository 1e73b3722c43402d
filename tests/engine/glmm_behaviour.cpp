// What generalized fits do where no outside figures exist: models that are one another's equal, data that can't carry
// the model, and predictions on the scale of the target.
#include "engine/documents/MomentFit.h"
#include "engine/glmm/Family.h"
#include "engine/glmm_models.h"
#include "engine/means/CustomTests.h"
#include "engine/means/EstimatedMeans.h"

#include <cmath>
#include <gtest/gtest.h>

namespace engine::testing {
namespace {

using run::Distribution;
using Link = run::Link;

void ExpectSame(const FitResult& a, const FitResult& b, double tolerance) {
    ASSERT_TRUE(a.HasEstimates() && b.HasEstimates()) << a.fStatus.fDetail << b.fStatus.fDetail;
    std::vector<std::pair<double, double>> left, right;
    for (const FixedParameter& parameter : a.fFixed)
        if (!parameter.fRedundant) left.emplace_back(parameter.fEstimate, parameter.fStdError);
    for (const FixedParameter& parameter : b.fFixed)
        if (!parameter.fRedundant) right.emplace_back(parameter.fEstimate, parameter.fStdError);
    ASSERT_EQ(left.size(), right.size());
    for (std::size_t i = 0; i < left.size(); ++i) {
        EXPECT_NEAR(left[i].first, right[i].first, tolerance) << i;
        EXPECT_NEAR(left[i].second, right[i].second, tolerance) << i;
    }
    ASSERT_EQ(a.fCovariance.size(), b.fCovariance.size());
    for (std::size_t k = 0; k < a.fCovariance.size(); ++k)
        EXPECT_NEAR(a.fCovariance[k].fEstimate, b.fCovariance[k].fEstimate, 10 * tolerance) << k;
}

TEST(GlmmBehaviour, LinksInvertAndDiffer) {
    for (const Link name : {Link::kIdentity, Link::kLog, Link::kLogComplement, Link::kLogit, Link::kProbit,
                            Link::kComplementaryLogLog, Link::kNegativeLogLog, Link::kPower, Link::kCauchit}) {
        const auto link = MakeLink(name, -2.0);
        for (const double mu : {1e-6, 0.02, 0.4, 0.5, 0.93}) {
            const double eta = link->Predictor(mu);
            EXPECT_NEAR(link->Mean(eta), mu, 1e-12) << NameOf(name);
            EXPECT_NEAR(link->Complement(eta), 1.0 - mu, 1e-12) << NameOf(name);
            const double step = 1e-5 * std::max(1.0, std::abs(eta));
            const double difference = (link->Mean(eta + step) - link->Mean(eta - step)) / (2.0 * step);
            EXPECT_NEAR(link->Slope(eta), difference, 1e-6 * std::max(1e-3, std::abs(difference))) << NameOf(name);
        }
    }
}

// The parameters give the moments back.
TEST(GlmmBehaviour, HistogramsHaveTheirDistributionsMoments) {
    const double mean = 2.5, deviation = 3.0;
    const auto gamma = FitByMoments(Distribution::kGamma, mean, deviation);
    EXPECT_DOUBLE_EQ(gamma.at(0).second / gamma.at(1).second, mean);
    EXPECT_DOUBLE_EQ(std::sqrt(gamma[0].second) / gamma[1].second, deviation);
    const auto inverse = FitByMoments(Distribution::kInverseGaussian, mean, deviation);
    EXPECT_DOUBLE_EQ(std::sqrt(std::pow(mean, 3) / inverse.at(0).second), deviation);
    const auto counts = FitByMoments(Distribution::kNegativeBinomial, mean, deviation);
    const double r = counts.at(0).second, p = counts.at(1).second;
    EXPECT_NEAR(r * (1.0 - p) / p, mean, 1e-12);
    EXPECT_NEAR(r * (1.0 - p) / (p * p), deviation * deviation, 1e-12);
    EXPECT_TRUE(FitByMoments(Distribution::kNegativeBinomial, mean, 1.0).empty());
    EXPECT_TRUE(FitByMoments(Distribution::kPoisson, mean, deviation).empty());
}

TEST(GlmmBehaviour, NormalTargetWithIdentityLinkIsTheLinearModel) {
    CsvRecords data = ReadData("penicillin", {"plate", "sample"});
    ModelSpec spec = Spec(data, data["diameter"], {});
    AddIntercept(spec, data["plate"]);
    AddIntercept(spec, data["sample"]);
    const RecordView view = data.View(spec);
    ExpectSame(FitGlmm(spec, Target(Distribution::kNormal, Link::kIdentity), view).fFit, FitLmm(spec, view), 1e-6);
}

// Crossed random effects, and the same as effects of one common subject, go different ways in the engine: so does a
// dispersion, which is an effect of each record there and a part of the residual variance here.
TEST(GlmmBehaviour, CrossedCountsAgreeWithOneSubject) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    data.Add("all", std::vector<double>(data.Count(), 0.0), 1);
    ModelSpec crossed = Seizures(data);
    crossed.fFixed.erase(crossed.fFixed.begin() + 3);
    ModelSpec common = crossed;
    for (const char* name : {"subject", "period"}) {
        AddIntercept(crossed, data[name]);
        RandomBlock block;
        block.fEffects.push_back(Factor(data[name]));
        block.fSubjects = {data["all"]};
        common.fRandom.push_back(block);
    }
    for (const Distribution distribution : {Distribution::kPoisson, Distribution::kNegativeBinomial}) {
        SCOPED_TRACE(NameOf(distribution));
        const TargetSpec target = Target(distribution, Link::kLog);
        const FitResult one = FitGlmm(common, target, data.View(common)).fFit;
        ExpectSame(FitGlmm(crossed, target, data.View(crossed)).fFit, one, 1e-5);
    }
    // A structure that isn't linear in its parameters, and an adjustment that takes everything from the data.
    for (ModelSpec* spec : {&crossed, &common}) {
        RandomBlock& block = spec->fRandom.front();
        block.fEffects = {Factor(data["period"])};
        block.fSubjects = {data["subject"]};
        if (spec == &common) block.fSubjects.insert(block.fSubjects.begin(), data["all"]);
        block.fType = CovarianceType::kAR1;
        spec->fDf = DfMethod::kKenwardRoger;
    }
    const TargetSpec target = Target(Distribution::kNegativeBinomial, Link::kLog);
    const FitResult one = FitGlmm(common, target, data.View(common)).fFit;
    const FitResult other = FitGlmm(crossed, target, data.View(crossed)).fFit;
    ExpectSame(other, one, 1e-5);
    for (std::size_t k = 0; k < one.fCovariance.size(); ++k) {
        if (std::isnan(one.fCovariance[k].fStdError)) continue;
        EXPECT_NEAR(other.fCovariance[k].fStdError, one.fCovariance[k].fStdError, 1e-4) << k;
    }
    for (std::size_t k = 0; k < one.fFixed.size(); ++k) {
        if (one.fFixed[k].fRedundant) continue;
        EXPECT_NEAR(other.fFixed[k].fDf / one.fFixed[k].fDf, 1.0, 1e-3) << k;
    }
}

// Given its own estimate, the dispersion is part of a known variance: the rest stays where it is, whatever the weights.
TEST(GlmmBehaviour, ADispersionHeldAtItsEstimateChangesNothing) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    std::vector<double> weights(data.Count());
    for (std::size_t i = 0; i < weights.size(); ++i)
        weights[i] = 0.5 + static_cast<double>(i % 3);
    data.Add("w", weights);
    ModelSpec spec = Seizures(data);
    for (const bool weighted : {false, true}) {
        if (weighted) spec.fRegressionWeight = data["w"];
        spec.fRandom.clear();
        for (const bool mixed : {false, true}) {
            SCOPED_TRACE(std::string(weighted ? "weighted " : "") + (mixed ? "mixed" : "fixed"));
            if (mixed) AddIntercept(spec, data["subject"]);
            const RecordView view = data.View(spec);
            TargetSpec target = Target(Distribution::kNegativeBinomial, Link::kLog);
            const FitResult free = FitGlmm(spec, target, view).fFit;
            ASSERT_TRUE(free.fStatus.IsOk()) << free.fStatus.fDetail;
            const std::size_t at = free.fCovariance.size() - 2;
            ASSERT_EQ(free.fCovariance[at].fName, "Dispersion");
            target.fDispersion = free.fCovariance[at].fEstimate;
            const FitResult held = FitGlmm(spec, target, view).fFit;
            for (std::size_t k = 0; k < free.fFixed.size(); ++k)
                EXPECT_NEAR(held.fFixed[k].fEstimate, free.fFixed[k].fEstimate, 1e-6) << k;
            if (mixed) {
                EXPECT_NEAR(held.fCovariance[0].fEstimate, free.fCovariance[0].fEstimate, 1e-6);
                EXPECT_NEAR(held.Predictions(0)[3].fStdError[0], free.Predictions(0)[3].fStdError[0], 1e-6);
            }
            EXPECT_NEAR(held.fMinus2LogLikelihood, free.fMinus2LogLikelihood, 1e-4);
        }
    }
}

TEST(GlmmBehaviour, TwoCategoriesAreTheSameInEveryGuise) {
    CsvRecords data = ReadData("bacteria", {"ID", "trt"});
    ModelSpec spec = Spec(data, data["y"], {Covariate(data["week"])});
    AddIntercept(spec, data["ID"]);
    const RecordView view = data.View(spec);
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fCategories = 2;
    const FitResult binary = FitGlmm(spec, target, view).fFit;
    target.fReference = 0;
    target.fDistribution = Distribution::kNominal;
    ExpectSame(FitGlmm(spec, target, view).fFit, binary, 1e-6);
    // An ordinal target's predictor is threshold less eta, and its event the lower category.
    target.fDistribution = Distribution::kOrdinal;
    const FitResult ordinal = FitGlmm(spec, target, view).fFit;
    EXPECT_NEAR(ordinal.fFixed[0].fEstimate, -binary.fFixed[0].fEstimate, 1e-6);
    EXPECT_NEAR(ordinal.fFixed[1].fEstimate, binary.fFixed[1].fEstimate, 1e-6);
    EXPECT_NEAR(ordinal.fMinus2LogLikelihood, binary.fMinus2LogLikelihood, 1e-5);
    target.fDistribution = Distribution::kBinomial;
    target.fReference = 1;
    const FitResult turned = FitGlmm(spec, target, view).fFit;
    EXPECT_NEAR(turned.fFixed[1].fEstimate, -binary.fFixed[1].fEstimate, 1e-6);
    target.fCategories = 0;
    target.fTrialsValue = 1.0;
    ExpectSame(FitGlmm(spec, target, view).fFit, binary, 1e-8);
}

TEST(GlmmBehaviour, FrequenciesRepeatRecords) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    std::vector<double> twos(data.Count(), 2.0);
    data.Add("twice", twos);
    ModelSpec spec = Seizures(data);
    AddIntercept(spec, data["subject"]);
    spec.fFrequencyWeight = data["twice"];
    ModelSpec doubled = spec;
    doubled.fFrequencyWeight = -1;
    for (const Distribution distribution : {Distribution::kPoisson, Distribution::kNegativeBinomial}) {
        const TargetSpec target = Target(distribution, Link::kLog);
        const FitResult weighted = FitGlmm(spec, target, data.View(spec)).fFit;
        const RecordView view = data.View(spec);
        std::vector<double> rows;
        for (std::size_t i = 0; i < 2 * view.fCount; ++i)
            rows.insert(rows.end(), view.Row(i / 2), view.Row(i / 2) + view.fStride);
        ExpectSame(weighted, FitGlmm(doubled, target, {rows.data(), 2 * view.fCount, view.fStride}).fFit, 1e-6);
    }
}

TEST(GlmmBehaviour, SeparationIsSaid) {
    CsvRecords data = ReadData("separation", {"arm", "g"});
    ModelSpec spec = Spec(data, data["y"], {Factor(data["arm"]), Covariate(data["x"])});
    AddIntercept(spec, data["g"]);
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fCategories = 2;
    const FitResult quasi = FitGlmm(spec, target, data.View(spec)).fFit;
    EXPECT_EQ(quasi.fStatus.fCode, 130045);
    EXPECT_EQ(quasi.fStatus.fSeverity, Severity::kWarning);

    for (std::size_t i = 0; i < data.Count(); ++i)
        data.At(i, "y") = data.At(i, "arm");
    EXPECT_EQ(FitGlmm(spec, target, data.View(spec)).fFit.fStatus.fCode, 130044);
}

TEST(GlmmBehaviour, RefusesWhatTheTargetCannotBe) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    ModelSpec spec = Seizures(data);
    AddIntercept(spec, data["subject"]);
    const auto refusal = [&](const TargetSpec& target) {
        const FitResult fit = FitGlmm(spec, target, data.View(spec)).fFit;
        EXPECT_TRUE(fit.fStatus.IsError());
        return fit.fStatus.fDetail;
    };
    const auto has = [](const std::string& text, const char* part) { return text.find(part) != std::string::npos; };
    TargetSpec target = Target(Distribution::kPoisson, Link::kLogit);
    target.fName = "seizures";
    EXPECT_TRUE(has(refusal(target), "logit"));
    target = Target(Distribution::kGamma, Link::kLog);
    target.fName = "seizures";
    EXPECT_TRUE(has(refusal(target), "seizures is not above zero in record"));
    target = Target(Distribution::kBinomial, Link::kLogit);
    target.fTrialsValue = 3.0;
    EXPECT_TRUE(has(refusal(target), "more events than trials in record 1:"));
    target = Target(Distribution::kBinomial, Link::kLogit);
    target.fCategories = 3;
    std::vector<double> categories(data.Count());
    for (std::size_t i = 0; i < categories.size(); ++i)
        categories[i] = static_cast<double>(i % 2 == 0 ? 0 : 2);
    data.Add("category", categories);
    spec.fDependent = data["category"];
    spec.fLevels = data.Levels();
    EXPECT_TRUE(has(refusal(target), "3 categories instead of two"));
    target.fDistribution = Distribution::kNominal;
    EXPECT_TRUE(has(refusal(target), "category 2 of the target"));
    target.fDistribution = Distribution::kOrdinal;
    spec.fResidual.fSubjects = {data["subject"]};
    EXPECT_TRUE(has(refusal(target), "no residual structure"));
    spec = Seizures(data);
    data.At(4, "y") = 2.5;
    EXPECT_TRUE(has(refusal(Target(Distribution::kPoisson, Link::kLog)), "not whole"));
}

// A step that would take a mean out of range is halved, and the solution is the one inside.
TEST(GlmmBehaviour, IdentityLinkKeepsMeansInRange) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    ModelSpec spec = Spec(data, data["y"], {Factor(data["trt"])});
    AddIntercept(spec, data["subject"]);
    const GlmmResult result = FitGlmm(spec, Target(Distribution::kPoisson, Link::kIdentity), data.View(spec));
    ASSERT_TRUE(result.fFit.HasEstimates()) << result.fFit.fStatus.fDetail;
    EXPECT_TRUE(std::all_of(result.fFitted.begin(), result.fFitted.end(), [](double mean) { return mean > 0.0; }));
}

// Where the best means lie beyond the range the estimates stay those of the last step inside, and that is said. A
// normal target's values may lie outside the means' range.
TEST(GlmmBehaviour, MeansThatLeaveTheirRangeAreSaid) {
    CsvRecords data = ReadData("epil", {"trt", "subject", "period"});
    ModelSpec spec = Spec(data, data["y"], {Covariate(data["lbase"])});
    AddIntercept(spec, data["subject"]);
    for (const Distribution distribution : {Distribution::kPoisson, Distribution::kNegativeBinomial}) {
        const FitResult fit = FitGlmm(spec, Target(distribution, Link::kIdentity), data.View(spec)).fFit;
        ASSERT_TRUE(fit.HasEstimates()) << fit.fStatus.fDetail;
        EXPECT_EQ(fit.fStatus.fCode, 130024);
        EXPECT_NE(fit.fStatus.fDetail.find("leave the range"), std::string::npos) << fit.fStatus.fDetail;
        EXPECT_LT(std::abs(fit.fFixed[1].fEstimate), 100.0);
    }
    for (std::size_t i = 0; i < data.Count(); ++i)
        data.At(i, "y") = std::exp(1.0 + 0.5 * data.At(i, "lbase")) + (i % 2 == 0 ? 2.0 : -2.0);
    const FitResult normal = FitGlmm(spec, Target(Distribution::kNormal, Link::kLog), data.View(spec)).fFit;
    ASSERT_TRUE(normal.HasEstimates()) << normal.fStatus.fDetail;
    EXPECT_NEAR(normal.fFixed[1].fEstimate, 0.5, 0.2);
}

TEST(GlmmBehaviour, PredictionsAreOnTheScaleOfTheTarget) {
    CsvRecords data = ReadData("wine", {"rating", "temp", "contact", "judge"});
    ModelSpec spec = Spec(data, data["rating"], {Factor(data["temp"]), Factor(data["contact"])});
    AddIntercept(spec, data["judge"]);
    const RecordView view = data.View(spec);
    for (const Distribution distribution : {Distribution::kOrdinal, Distribution::kNominal}) {
        TargetSpec target = Target(distribution, Link::kLogit);
        target.fCategories = 5;
        if (distribution == Distribution::kNominal) spec.fFixed.clear();
        const GlmmResult result = FitGlmm(spec, target, view);
        ASSERT_NE(result.fModel, nullptr) << result.fFit.fStatus.fDetail;
        const double* record = view.Row(7);
        const TargetPrediction whole = result.fModel->Predict(result.fFit, record, true);
        double sum = 0.0;
        for (double share : whole.fProbabilities)
            sum += share;
        EXPECT_NEAR(sum, 1.0, 1e-9);
        EXPECT_EQ(whole.fValue, result.fFitted[7] + 1.0);
        EXPECT_GT(whole.fStdError, 0.0);
        EXPECT_LT(whole.fStdError, 0.5);
        const double observed = whole.fProbabilities[static_cast<std::size_t>(record[spec.fDependent])];
        EXPECT_EQ(result.fModel->Residual(record, whole), 1.0 - observed);
    }

    CsvRecords cbpp = ReadData("cbpp", {"herd", "period"});
    spec = Spec(cbpp, cbpp["incidence"], {Factor(cbpp["period"])});
    AddIntercept(spec, cbpp["herd"]);
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fTrials = cbpp["size"];
    const RecordView herds = cbpp.View(spec);
    const GlmmResult result = FitGlmm(spec, target, herds);
    const double* record = herds.Row(3);
    const TargetPrediction fixed = result.fModel->Predict(result.fFit, record, false);
    const ContrastResult linear = result.fFit.Contrast(result.fFit.FixedRow(record));
    const double mean = 1.0 / (1.0 + std::exp(-linear.fEstimate));
    const double size = record[cbpp["size"]];
    EXPECT_NEAR(fixed.fValue, size * mean, 1e-10);
    EXPECT_NEAR(fixed.fStdError, size * mean * (1.0 - mean) * linear.fStdError, 1e-10);
    EXPECT_NEAR(result.fModel->Predict(result.fFit, record, true).fValue, result.fFitted[3], 1e-6);
}

// With one factor the means of categories are the fixed predictions of a level's records.
void ExpectMeansOfCategories(Distribution distribution, CsvRecords data, const std::string& target,
                             const std::string& factor, const std::string& subject) {
    SCOPED_TRACE(NameOf(distribution));
    ModelSpec spec = Spec(data, data[target], {Factor(data[factor])});
    AddIntercept(spec, data[subject]);
    const RecordView view = data.View(spec);
    TargetSpec categories = Target(distribution, Link::kLogit);
    categories.fCategories = spec.fLevels[data[target]];
    const GlmmResult result = FitGlmm(spec, categories, view);
    ASSERT_NE(result.fModel, nullptr) << result.fFit.fStatus.fDetail;
    const RecordMeans averages = AverageRecords(spec, view);
    MeansRequest request;
    request.fFactors = {data[factor]};
    request.fCompare = 0;
    request.fContrast = run::ContrastKind::kPairwise;
    ResponseScale scale;
    scale.fpMultinomial = result.fModel.get();
    double difference = 0.0;
    for (scale.fCategory = 0; scale.fCategory < categories.fCategories; ++scale.fCategory) {
        const EstimatedMeans means = MeansEstimator(result.fFit, spec, averages, scale).Estimate(request);
        for (std::size_t i = 0; i < view.fCount; i += 7) {
            const double* record = view.Row(i);
            const ContrastResult& mean = means.fMeans[static_cast<std::size_t>(record[data[factor]])].fResult;
            const TargetPrediction fixed = result.fModel->Predict(result.fFit, record, false);
            EXPECT_NEAR(mean.fEstimate, fixed.fProbabilities[scale.fCategory], 1e-12);
            EXPECT_TRUE(0.0 < mean.fLower && mean.fLower < mean.fEstimate && mean.fUpper < 1.0);
            if (fixed.fValue == scale.fCategory + 1.0) {
                EXPECT_NEAR(mean.fStdError, fixed.fStdError, 1e-12);
            }
        }
        difference += means.fContrasts.at(0).fResult.fEstimate;
    }
    EXPECT_NEAR(difference, 0.0, 1e-12);
    request.fLinkScale = true;
    for (scale.fPredictor = 0; scale.fPredictor < categories.fCategories - 1; ++scale.fPredictor) {
        const EstimatedMeans means = MeansEstimator(result.fFit, spec, averages, scale).Estimate(request);
        const bool ordinal = distribution == Distribution::kOrdinal;
        const int column = ordinal ? categories.fCategories - 1 : 3 * scale.fPredictor + 1;
        const FixedParameter& first = result.fFit.fFixed[static_cast<std::size_t>(column)];
        const ContrastResult& contrast = means.fContrasts.at(0).fResult;
        EXPECT_NEAR(contrast.fEstimate, ordinal ? -first.fEstimate : first.fEstimate, 1e-10);
        EXPECT_NEAR(contrast.fStdError, first.fStdError, 1e-10);
    }
}

TEST(GlmmBehaviour, MeansOfCategoriesAreTheirProbabilities) {
    ExpectMeansOfCategories(Distribution::kOrdinal, ReadData("wine", {"rating", "temp", "judge"}), "rating", "temp",
                            "judge");
    ExpectMeansOfCategories(Distribution::kNominal, ReadData("verbagg6", {"resp", "Gender", "id"}), "resp", "Gender",
                            "id");
}

void ExpectSameRow(const ContrastResult& a, double sign, const ContrastResult& b) {
    EXPECT_NEAR(a.fEstimate, sign * b.fEstimate, 1e-6);
    EXPECT_NEAR(a.fStdError, b.fStdError, 1e-6);
    EXPECT_NEAR(a.fDf / b.fDf, 1.0, 1e-4);
}

// A target of two categories is binomial, whatever it is called: an ordinal one's threshold is the intercept with the
// other sign. Rows are combinations of both fixed effects and a predicted random one.
TEST(GlmmBehaviour, CustomTestsOfTwoCategoriesAreBinomial) {
    CsvRecords data = ReadData("bacteria", {"ID", "trt"});
    ModelSpec spec = Spec(data, data["y"], {Factor(data["trt"]), Covariate(data["week"])});
    AddIntercept(spec, data["ID"]);
    const RecordView view = data.View(spec);
    run::CustomTest test;
    test.fvFixedCounts = {1, 3, 1};
    test.fvRandomCounts = {2};
    test.fvRows = {{0, 1, -1, 0, 2, 0, 0}, {1, 0, 0, 1, 4, 0, 1}};
    test.fvK = {0.5, 0.0};
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fCategories = 2;
    const GlmmResult binary = FitGlmm(spec, target, view);
    const CustomTestResult want = RunCustomTest(binary.fFit, spec, test);
    for (const Distribution distribution : {Distribution::kNominal, Distribution::kOrdinal}) {
        SCOPED_TRACE(NameOf(distribution));
        const bool ordinal = distribution == Distribution::kOrdinal;
        target.fDistribution = distribution;
        target.fReference = 0;
        const GlmmResult fit = FitGlmm(spec, target, view);
        if (ordinal) test.fvRows[1][0] = -1.0;
        const CustomTestResult got = RunCustomTest(fit.fFit, spec, test, fit.fModel.get());
        ASSERT_EQ(got.fRows.size(), 2U);
        for (std::size_t r = 0; r < 2; ++r)
            ExpectSameRow(got.fRows[r].fResult, 1.0, want.fRows[r].fResult);
        EXPECT_EQ(got.fRows[0].fTarget, ordinal ? -1 : 1);
        EXPECT_EQ(got.fRows[1].fTarget, ordinal ? 0 : 1);
        EXPECT_NEAR(got.fJoint.fF, want.fJoint.fF, 1e-5);
        EXPECT_EQ(got.fJoint.fDf1, 2.0);
    }
}

// One row is a coefficient of every category, together the effect's own test; all columns reach between categories.
TEST(GlmmBehaviour, CustomTestsOfSeveralCategories) {
    CsvRecords data = ReadData("verbagg6", {"resp", "id", "Gender"});
    ModelSpec spec = Spec(data, data["resp"], {Factor(data["Gender"])});
    AddIntercept(spec, data["id"]);
    TargetSpec target = Target(Distribution::kNominal, Link::kLogit);
    target.fCategories = 3;
    GlmmResult fit = FitGlmm(spec, target, data.View(spec));
    run::CustomTest test;
    test.fvFixedCounts = {0, 2};
    test.fvRandomCounts = {0};
    test.fvRows = {{1, -1}};
    CustomTestResult result = RunCustomTest(fit.fFit, spec, test, fit.fModel.get());
    ASSERT_EQ(result.fRows.size(), 2U);
    for (std::size_t c = 0; c < 2; ++c) {
        const FixedParameter& first = fit.fFit.fFixed[3 * c + 1];
        EXPECT_EQ(result.fRows[c].fTarget, first.fTarget);
        EXPECT_NEAR(result.fRows[c].fResult.fEstimate, first.fEstimate, 1e-12);
        EXPECT_NEAR(result.fRows[c].fResult.fP, first.fP, 1e-12);
    }
    EXPECT_NEAR(result.fJoint.fF, fit.fFit.fTests[1].fF, 1e-9);
    test.fAllColumns = true;
    test.fvFixedCounts = {6};
    test.fvRows = {{0, 1, -1, 0, -1, 1}};
    result = RunCustomTest(fit.fFit, spec, test, fit.fModel.get());
    const auto& covariance = fit.fFit.fFixedCovariance;
    ASSERT_EQ(result.fRows.size(), 1U);
    EXPECT_NEAR(result.fRows[0].fResult.fEstimate, fit.fFit.fFixed[1].fEstimate - fit.fFit.fFixed[4].fEstimate, 1e-12);
    EXPECT_NEAR(std::pow(result.fRows[0].fResult.fStdError, 2),
                covariance(1, 1) + covariance(4, 4) - 2.0 * covariance(1, 4), 1e-12);

    CsvRecords wine = ReadData("wine", {"rating", "temp", "judge"});
    spec = Spec(wine, wine["rating"], {Factor(wine["temp"])});
    AddIntercept(spec, wine["judge"]);
    target = Target(Distribution::kOrdinal, Link::kLogit);
    target.fCategories = 5;
    fit = FitGlmm(spec, target, wine.View(spec));
    test.fAllColumns = false;
    test.fvFixedCounts = {1, 2};
    test.fvRows = {{1, 0, -1}};
    result = RunCustomTest(fit.fFit, spec, test, fit.fModel.get());
    ASSERT_EQ(result.fRows.size(), 4U);
    for (std::size_t j = 0; j < 4; ++j) {  // at the last level, whose coefficient is redundant
        EXPECT_EQ(result.fRows[j].fTarget, static_cast<int>(j));
        EXPECT_NEAR(result.fRows[j].fResult.fEstimate, fit.fFit.fFixed[j].fEstimate, 1e-12);
        EXPECT_NEAR(result.fRows[j].fResult.fStdError, fit.fFit.fFixed[j].fStdError, 1e-12);
    }
    test.fvFixedCounts = {1, 3};
    test.fvRows = {{1, 1, -1, 0}};
    result = RunCustomTest(fit.fFit, spec, test, fit.fModel.get());
    EXPECT_FALSE(result.fRows.at(0).fResult.fEstimable);
    EXPECT_NE(result.fProblem.find("3 coefficients are given for the 2 columns"), std::string::npos);
}

TEST(GlmmBehaviour, HistoryAndThreadsAreReproducible) {
    CsvRecords data = ReadData("toenail", {"patientID", "treatment"});
    ModelSpec spec = Spec(data, data["y"], {Covariate(data["time"])});
    AddIntercept(spec, data["patientID"]);
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fCategories = 2;
    const FitResult one = FitGlmm(spec, target, data.View(spec)).fFit;
    spec.fThreads = 4;
    const FitResult four = FitGlmm(spec, target, data.View(spec)).fFit;
    ASSERT_EQ(one.fHistory.size(), four.fHistory.size());
    EXPECT_GE(one.fHistory.size(), 4U);
    EXPECT_EQ(one.fHistory.back().fObjective, four.fHistory.back().fObjective);
    EXPECT_LT(one.fHistory.back().fMaxChange, 1e-6);
    EXPECT_EQ(one.fFixed[1].fEstimate, four.fFixed[1].fEstimate);
}

}  // namespace
}  // namespace engine::testing
