// Which targets and links go together, with closed forms for those that do; and every way in which a generalized fit
// ends otherwise than well.
#include "engine/glmm/Family.h"
#include "engine/glmm_models.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace engine::testing {
namespace {

using run::Distribution;
using Link = run::Link;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Field;
using ::testing::HasSubstr;

constexpr double kClosedForm = 1e-7;  // where the outer iteration ends

constexpr Distribution kDistributions[] = {
    Distribution::kNormal,          Distribution::kBinomial,         Distribution::kPoisson, Distribution::kGamma,
    Distribution::kInverseGaussian, Distribution::kNegativeBinomial, Distribution::kOrdinal, Distribution::kNominal};
constexpr Link kLinks[] = {Link::kIdentity,       Link::kLog,    Link::kLogComplement,
                           Link::kLogit,          Link::kProbit, Link::kComplementaryLogLog,
                           Link::kNegativeLogLog, Link::kPower,  Link::kCauchit};

/// Records of a target y, a covariate x, an offset, trials, a weight and a subject; six in all subjects but the last.
struct Records {
    enum { kY, kX, kOffset, kTrials, kWeight, kSubject, kWidth };
    explicit Records(const std::vector<double>& targets) {
        for (std::size_t i = 0; i < targets.size(); ++i) {
            const auto n = static_cast<double>(i);
            fRows.insert(fRows.end(), {targets[i], std::sin(n), 0.1 * std::cos(n), 4.0 + static_cast<double>(i % 3),
                                       1.0 + static_cast<double>(i % 4), std::floor(n / 6.0)});
        }
    }
    RecordView View() const { return {fRows.data(), fRows.size() / kWidth, kWidth}; }
    double& At(std::size_t row, int column) { return fRows[row * kWidth + static_cast<std::size_t>(column)]; }
    ModelSpec Model() const {
        ModelSpec spec;
        spec.fLevels = {0, 0, 0, 0, 0, static_cast<int>(fRows.size()) / kWidth / 6 + 1};
        spec.fDependent = kY;
        return spec;
    }
    ModelSpec MixedModel() const {
        ModelSpec spec = Model();
        spec.fFixed = {Covariate(kX)};
        AddIntercept(spec, kSubject);
        return spec;
    }
    std::vector<double> fRows;
};

bool IsMultinomial(Distribution distribution) {
    return distribution == Distribution::kOrdinal || distribution == Distribution::kNominal;
}

Records Sample(Distribution distribution, int count = 30) {
    std::vector<double> targets;
    for (int i = 0; i < count; ++i) {
        const int n = i * 7 % 11;
        if (IsMultinomial(distribution)) targets.push_back(n % 3);
        if (distribution == Distribution::kBinomial) targets.push_back(n < 4 ? 1 : 0);
        if (distribution == Distribution::kPoisson || distribution == Distribution::kNegativeBinomial)
            targets.push_back(n);
        if (targets.size() == static_cast<std::size_t>(i)) targets.push_back(0.4 + 0.3 * n);
    }
    return Records(targets);
}

TargetSpec TargetFor(Distribution distribution, Link link) {
    TargetSpec target = Target(distribution, link);
    target.fLinkPower = 0.5;
    if (IsMultinomial(distribution)) target.fCategories = 3;
    if (distribution == Distribution::kBinomial) target.fCategories = 2;
    if (distribution == Distribution::kNegativeBinomial) target.fDispersion = 0.4;
    return target;
}

bool Takes(Distribution distribution, Link link) {
    const bool general = link == Link::kIdentity || link == Link::kLog || link == Link::kPower;
    switch (distribution) {
        case Distribution::kBinomial:
            return true;
        case Distribution::kOrdinal:
            return !general && link != Link::kLogComplement;
        case Distribution::kNominal:
            return link == Link::kLogit;
        default:
            return general;
    }
}

// With an intercept alone the estimating equation has the same solution for every distribution and link: the mean, or
// the share of each category.
TEST(GlmmStatuses, EveryPairOfTargetAndLinkIsFittedOrRefused) {
    for (const Distribution distribution : kDistributions) {
        const Records records = Sample(distribution);
        const RecordView view = records.View();
        std::vector<double> shares(3, 0.0);
        double mean = 0.0;
        for (std::size_t i = 0; i < view.fCount; ++i) {
            mean += view.Row(i)[0] / static_cast<double>(view.fCount);
            if (IsMultinomial(distribution)) shares[static_cast<std::size_t>(view.Row(i)[0])] += 1.0 / 30.0;
        }
        for (const Link link : kLinks) {
            SCOPED_TRACE(NameOf(distribution) + ", " + NameOf(link));
            const GlmmResult result = FitGlmm(records.Model(), TargetFor(distribution, link), view);
            EXPECT_EQ(IsAdmissible(distribution, link), Takes(distribution, link));
            if (!Takes(distribution, link)) {
                EXPECT_TRUE(result.fFit.fStatus.IsError());
                EXPECT_THAT(result.fFit.fStatus.fDetail,
                            AllOf(HasSubstr(NameOf(distribution)), HasSubstr("The " + NameOf(link) + " link")));
                continue;
            }
            ASSERT_TRUE(result.fFit.HasEstimates()) << result.fFit.fStatus.fCode << result.fFit.fStatus.fDetail;
            EXPECT_TRUE(result.fFit.fStatus.IsOk());
            const TargetPrediction prediction = result.fModel->Predict(result.fFit, view.Row(0), false);
            if (IsMultinomial(distribution)) {
                for (int c = 0; c < 3; ++c)
                    EXPECT_NEAR(prediction.fProbabilities[c], shares[c], kClosedForm);
            } else {
                EXPECT_NEAR(prediction.fValue, mean, kClosedForm);
            }
        }
    }
}

// Closed forms of the intercept of log-linear counts.
TEST(GlmmStatuses, WeightsAndOffsetsEnterTheMean) {
    const Records records = Sample(Distribution::kPoisson);
    const RecordView view = records.View();
    double weighted = 0.0, weights = 0.0, sum = 0.0, exposed = 0.0;
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* row = view.Row(i);
        weighted += row[Records::kWeight] * row[0];
        weights += row[Records::kWeight];
        sum += row[0];
        exposed += std::exp(row[Records::kOffset]);
    }
    const TargetSpec target = Target(Distribution::kPoisson, Link::kLog);
    ModelSpec spec = records.Model();
    spec.fRegressionWeight = Records::kWeight;
    EXPECT_NEAR(FitGlmm(spec, target, view).fFit.fFixed[0].fEstimate, std::log(weighted / weights), kClosedForm);
    spec = records.Model();
    spec.fOffset = Records::kOffset;
    const GlmmResult offset = FitGlmm(spec, target, view);
    EXPECT_NEAR(offset.fFit.fFixed[0].fEstimate, std::log(sum / exposed), kClosedForm);
    EXPECT_NEAR(offset.fModel->Predict(offset.fFit, view.Row(3), false).fValue,
                sum / exposed * std::exp(view.Row(3)[Records::kOffset]), 1e-6);
    spec.fOffset = -1;
    spec.fOffsetValue = 0.7;
    EXPECT_NEAR(FitGlmm(spec, target, view).fFit.fFixed[0].fEstimate, std::log(sum / 30.0) - 0.7, kClosedForm);
}

// With equal means and independent residuals the scale is Pearson's: squares over a(mu), divided by n - 1.
TEST(GlmmStatuses, AResidualStructureTakesTheScale) {
    const auto variance = [](Distribution distribution, double mu) {
        switch (distribution) {
            case Distribution::kNormal:
                return 1.0;
            case Distribution::kBinomial:
                return mu * (1.0 - mu);
            case Distribution::kPoisson:
                return mu;
            case Distribution::kGamma:
                return mu * mu;
            case Distribution::kInverseGaussian:
                return mu * mu * mu;
            default:
                return mu + 0.4 * mu * mu;
        }
    };
    for (const Distribution distribution : kDistributions) {
        SCOPED_TRACE(NameOf(distribution));
        const Records records = Sample(distribution);
        const RecordView view = records.View();
        ModelSpec spec = records.Model();
        spec.fResidual.fSubjects = {Records::kSubject};
        const TargetSpec target = TargetFor(distribution, Link::kLog);
        if (IsMultinomial(distribution)) {
            TargetSpec logits = TargetFor(distribution, Link::kLogit);
            EXPECT_THAT(FitGlmm(spec, logits, view).fFit.fStatus.fDetail, HasSubstr("takes no residual structure"));
            continue;
        }
        double mean = 0.0, squares = 0.0;
        for (std::size_t i = 0; i < view.fCount; ++i)
            mean += view.Row(i)[0] / 30.0;
        for (std::size_t i = 0; i < view.fCount; ++i)
            squares += std::pow(view.Row(i)[0] - mean, 2);
        const FitResult independent = FitGlmm(spec, target, view).fFit;
        ASSERT_TRUE(independent.HasEstimates()) << independent.fStatus.fDetail;
        EXPECT_NEAR(independent.fCovariance[0].fEstimate / (squares / variance(distribution, mean) / 29.0), 1.0, 1e-6);
        // Equal correlation in equal clusters leaves the mean where it is.
        spec.fResidual.fType = CovarianceType::kCS;
        const GlmmResult correlated = FitGlmm(spec, target, view);
        ASSERT_TRUE(correlated.fModel) << correlated.fFit.fStatus.fDetail;
        EXPECT_NEAR(correlated.fModel->Predict(correlated.fFit, view.Row(0), false).fValue, mean, 1e-6);
    }
}

TEST(GlmmStatuses, EventsAreTheSameInEveryForm) {
    Records records = Sample(Distribution::kBinomial);
    double events = 0.0, trials = 0.0;
    for (std::size_t i = 0; i < 30; ++i) {
        records.At(i, Records::kTrials) = 6.0;
        records.At(i, Records::kY) = static_cast<double>(i * 5 % 7);
        records.At(i, Records::kWeight) = 6.0 - records.At(i, Records::kY);
        events += records.At(i, Records::kY);
        trials += 6.0;
    }
    TargetSpec byField = Target(Distribution::kBinomial, Link::kLogit);
    TargetSpec byNumber = byField, byOthers = byField;
    byField.fTrials = Records::kTrials;
    byNumber.fTrialsValue = 6.0;
    byOthers.fNonEvents = Records::kWeight;
    const ModelSpec spec = records.MixedModel();
    const FitResult fit = FitGlmm(spec, byField, records.View()).fFit;
    ASSERT_TRUE(fit.HasEstimates());
    for (const TargetSpec& other : {byNumber, byOthers}) {
        const FitResult same = FitGlmm(spec, other, records.View()).fFit;
        for (std::size_t k = 0; k < 2; ++k) {
            EXPECT_DOUBLE_EQ(same.fFixed[k].fEstimate, fit.fFixed[k].fEstimate);
            EXPECT_DOUBLE_EQ(same.fFixed[k].fStdError, fit.fFixed[k].fStdError);
        }
    }
    const FitResult mean = FitGlmm(records.Model(), byField, records.View()).fFit;
    EXPECT_NEAR(mean.fFixed[0].fEstimate, std::log(events / (trials - events)), kClosedForm);
    EXPECT_NEAR(mean.fFixed[0].fStdError, std::sqrt(1.0 / events + 1.0 / (trials - events)), 1e-6);
}

FitStatus StatusOf(const ModelSpec& spec, const TargetSpec& target, const Records& records) {
    return FitGlmm(spec, target, records.View()).fFit.fStatus;
}

TEST(GlmmStatuses, ErrorsLeaveNoEstimates) {
    const TargetSpec counts = Target(Distribution::kPoisson, Link::kLog);
    const TargetSpec gamma = Target(Distribution::kGamma, Link::kLog);
    Records records = Sample(Distribution::kPoisson);
    EXPECT_EQ(StatusOf(records.MixedModel(), counts, Records({})).fCode, 230024);

    ModelSpec stopped = records.MixedModel();
    stopped.fCancelled = [] { return true; };
    EXPECT_EQ(StatusOf(stopped, counts, records).fCode, 130032);

    // Repeated measures: the trials variable stands for a time that occurs twice, the weight for one that doesn't.
    ModelSpec repeated = records.Model();
    repeated.fLevels[Records::kTrials] = 7;
    repeated.fResidual.fRepeated = {Records::kTrials};
    repeated.fResidual.fSubjects = {Records::kSubject};
    repeated.fResidual.fType = CovarianceType::kCS;
    EXPECT_EQ(StatusOf(repeated, counts, records).fCode, 230025);
    for (std::size_t i = 0; i < 30; ++i)
        records.At(i, Records::kTrials) = static_cast<double>(i % 6);
    repeated.fFrequencyWeight = Records::kWeight;
    EXPECT_EQ(StatusOf(repeated, counts, records).fCode, 130077);

    const FitStatus same = StatusOf(records.MixedModel(), gamma, Records(std::vector<double>(30, 5.0)));
    EXPECT_EQ(same.fCode, 130074);
    EXPECT_TRUE(same.IsError());
    Records perfect = Sample(Distribution::kGamma);
    for (std::size_t i = 0; i < 30; ++i)
        perfect.At(i, 0) = std::exp(0.3 + 0.2 * perfect.At(i, Records::kX));
    EXPECT_EQ(StatusOf(perfect.MixedModel(), gamma, perfect).fCode, 230092);
    EXPECT_EQ(StatusOf(perfect.MixedModel(), Target(Distribution::kInverseGaussian, Link::kLog), perfect).fCode,
              230092);
    EXPECT_EQ(StatusOf(records.MixedModel(), Target(Distribution::kInverseGaussian, Link::kLog),
                       Records(std::vector<double>{1e-300, 2e-300, 3e-300, 1e-300}))
                  .fCode,
              130025);
}

// Warnings come with estimates, and each stands once in the list.
TEST(GlmmStatuses, WarningsComeWithEstimates) {
    const auto expect = [](const ModelSpec& spec, const TargetSpec& target, const Records& records, long code) {
        const FitResult fit = FitGlmm(spec, target, records.View()).fFit;
        EXPECT_TRUE(fit.HasEstimates()) << code << " came as " << fit.fStatus.fCode << fit.fStatus.fDetail;
        EXPECT_EQ(std::count_if(fit.fWarnings.begin(), fit.fWarnings.end(),
                                [&](const FitStatus& warning) { return warning.fCode == code; }),
                  1)
            << code << " came as " << fit.fStatus.fCode;
        return fit;
    };
    const TargetSpec counts = Target(Distribution::kPoisson, Link::kLog);
    const Records records = Sample(Distribution::kPoisson);

    ModelSpec spec = records.MixedModel();
    spec.fMaxIterations = 1;
    expect(spec, counts, records, 230036);

    spec = records.MixedModel();
    AddIntercept(spec, Records::kSubject);
    Records clustered = records;
    for (std::size_t i = 0; i < 30; ++i)
        clustered.At(i, 0) = std::floor(std::exp(clustered.At(i, Records::kSubject)));
    expect(spec, counts, clustered, 230037);

    spec = clustered.MixedModel();
    spec.fHessianCriterion = {1e-300, false};
    expect(spec, counts, clustered, 130088);

    // No way stays within the range of the means when steps may not be shortened.
    Records falling = records;
    for (std::size_t i = 0; i < 30; ++i) {
        falling.At(i, Records::kX) = static_cast<double>(i);
        falling.At(i, 0) = i < 3 ? 40.0 : 0.0;
    }
    spec = falling.MixedModel();
    spec.fMaxHalvings = 0;
    expect(spec, Target(Distribution::kPoisson, Link::kIdentity), falling, 130024);
}

// Undamped, this iteration goes to and fro between two points for ever.
TEST(GlmmStatuses, IterationsThatAlternateAreDamped) {
    std::vector<double> targets;
    for (int i = 0; i < 60; ++i)
        targets.push_back(0.05 + 0.3 * (i * 7 % 11) * std::exp(0.5 * std::sin(i) + 0.4 * std::cos(i / 6)));
    const Records records(targets);
    const FitResult fit =
        FitGlmm(records.MixedModel(), Target(Distribution::kGamma, Link::kIdentity), records.View()).fFit;
    EXPECT_TRUE(fit.fStatus.IsOk()) << fit.fStatus.fDetail;
    EXPECT_LT(fit.fHistory.back().fMaxChange, 1e-6);
    EXPECT_THAT(fit.fHistory, Contains(Field(&IterationRecord::fDamping, ::testing::Lt(1.0))));
}

TEST(GlmmStatuses, SeparationNamesItsCoefficients) {
    CsvRecords data = ReadData("separation", {"arm", "g"});
    ModelSpec spec = Spec(data, data["y"], {Factor(data["arm"]), Covariate(data["x"])});
    AddIntercept(spec, data["g"]);
    TargetSpec target = Target(Distribution::kBinomial, Link::kLogit);
    target.fCategories = 2;
    target.fTermName = [&](int effect, const std::vector<int>& levels) {
        if (effect == 0) return std::string("(Intercept)");
        return effect == 2 ? std::string("x") : "arm=" + data.LevelNames("arm")[static_cast<std::size_t>(levels[0])];
    };
    for (const Distribution distribution : {Distribution::kBinomial, Distribution::kNominal}) {
        target.fDistribution = distribution;
        const FitStatus status = FitGlmm(spec, target, data.View(spec)).fFit.fStatus;
        EXPECT_EQ(status.fCode, 130045);
        EXPECT_THAT(status.fDetail, AllOf(HasSubstr("arm=a"), Not(HasSubstr("x."))));
    }
}

TEST(GlmmStatuses, RefusalsSayWhereAndWhat) {
    Records records = Sample(Distribution::kPoisson);
    records.At(17, 0) = -3.0;
    TargetSpec target = Target(Distribution::kPoisson, Link::kLog);
    target.fName = "seizures";
    EXPECT_THAT(StatusOf(records.MixedModel(), target, records).fDetail,
                HasSubstr("seizures is a count below zero in record 18: -3."));
    // The host knows the user's rows; of several bad ones it finds the first.
    records.At(4, 0) = 2.25;
    target.fFindRow = [&](const std::function<bool(const double*)>& fits) {
        return fits(records.View().Row(4)) ? 101L : 0L;
    };
    EXPECT_THAT(StatusOf(records.MixedModel(), target, records).fDetail,
                HasSubstr("seizures is a count that is not whole in row 101 of the data: 2.25."));
    TargetSpec events = Target(Distribution::kBinomial, Link::kLogit);
    events.fTrials = Records::kTrials;
    records = Sample(Distribution::kBinomial);
    records.At(2, 0) = 9.0;
    EXPECT_THAT(StatusOf(records.MixedModel(), events, records).fDetail,
                HasSubstr("more events than trials in record 3: 9 of 6."));
    records.At(2, 0) = 1.0;
    records.At(1, Records::kTrials) = 4.5;
    EXPECT_THAT(StatusOf(records.MixedModel(), events, records).fDetail, HasSubstr("trials that is not whole"));
    events.fTrials = -1;
    events.fTrialsValue = 1.0;
    EXPECT_THAT(StatusOf(Records({}).Model(), events, Records(std::vector<double>(12, 1.0))).fDetail,
                HasSubstr("at its upper limit in all records"));
}

TEST(GlmmStatuses, RareCategoriesAreSaid) {
    Records records = Sample(Distribution::kNominal);
    for (std::size_t i = 0; i < 30; ++i)
        records.At(i, 0) = i == 11 ? 2.0 : static_cast<double>(i % 2);
    TargetSpec target = TargetFor(Distribution::kOrdinal, Link::kLogit);
    target.fCategoryNames = {"low", "middle", "high"};
    const FitResult fit = FitGlmm(records.MixedModel(), target, records.View()).fFit;
    EXPECT_TRUE(fit.HasEstimates());
    EXPECT_THAT(fit.fWarnings,
                Contains(Field(&FitStatus::fDetail,
                               HasSubstr("category high of the target target occurs in one record only (record 12)"))));
}

}  // namespace
}  // namespace engine::testing
