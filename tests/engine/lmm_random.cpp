// Models and data drawn at random: what must not depend on how they are written down doesn't, the two ways through the
// equations meet, and the likelihood's derivatives are those of its values. A failure names the seed of its draw.
#include "engine/lmm/MarginalLikelihood.h"
#include "engine/lmm_csv.h"
#include "engine/structures_cases.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <numeric>
#include <random>

namespace engine::testing {
namespace {

using Type = CovarianceType;

constexpr double kAgreement = 1e-9;   // of converged fits, relative
constexpr double kParameter = 1e-5;   // the same of what moves with the parameters: an objective within 1e-12 of its
                                      // lowest point leaves them 1e-6 standard errors
constexpr double kDifference = 2e-6;  // of a fourth-order difference, in standard errors of the parameter
constexpr double kStep = 1e-3;        // of a difference, relative to the parameter

class Draw {
public:
    explicit Draw(unsigned seed) : fRandom(seed) {}
    double Normal() {
        double sum = -6.0;
        for (int i = 0; i < 12; ++i)
            sum += Uniform();
        return sum;
    }
    double Uniform() { return static_cast<double>(fRandom() >> 11) * 0x1p-53; }
    int Below(int count) { return static_cast<int>(Uniform() * count); }
    template <class T>
    const T& Of(const std::vector<T>& list) {
        return list[Below(static_cast<int>(list.size()))];
    }

private:
    std::mt19937_64 fRandom;
};

struct Drawn {
    CsvRecords fData;
    ModelSpec fSpec;
};

/// Subjects of unequal size with a time, two factors and a covariate, some cells empty.
CsvRecords SubjectRecords(Draw& draw, int subjects, int times) {
    std::vector<double> y, x, s, t, a, b, g, one;
    for (int i = 0; i < subjects; ++i) {
        const double intercept = 1.5 * draw.Normal(), slope = 0.6 * draw.Normal();
        const int arm = i % 3;
        double kept = draw.Normal();
        for (int j = 0; j < times; ++j) {
            kept = 0.5 * kept + draw.Normal();
            if (j > 1 && draw.Uniform() < 0.25) continue;
            const int stage = draw.Below(arm == 2 ? 2 : 3);
            const double at = draw.Uniform();
            x.push_back(at);
            s.push_back(i);
            t.push_back(j);
            a.push_back(arm);
            b.push_back(stage);
            g.push_back(i % 2);
            one.push_back(0);
            y.push_back(10.0 + arm - 0.5 * stage + at + intercept + slope * at + (1.0 + i % 2) * kept);
        }
    }
    CsvRecords data;
    data.Add("y", y);
    data.Add("x", x);
    data.Add("s", s, subjects);
    data.Add("t", t, times);
    data.Add("a", a, 3);
    data.Add("b", b, 3);
    data.Add("g", g, 2);
    data.Add("one", one, 1);
    return data;
}

Drawn DrawModel(Draw& draw) {
    Drawn drawn{SubjectRecords(draw, 15 + draw.Below(15), 3 + draw.Below(3)), {}};
    const CsvRecords& data = drawn.fData;
    ModelSpec& spec = drawn.fSpec;
    spec = Model(data, "y");
    spec.fFixed = {Factors(data, {"a"})};
    if (draw.Below(2) == 0) spec.fFixed.push_back(Factors(data, {"b"}));
    if (spec.fFixed.size() > 1 && draw.Below(2) == 0) spec.fFixed.push_back(Factors(data, {"a", "b"}));
    if (draw.Below(2) == 0) spec.fFixed.push_back(Factors(data, {}, {"x"}));
    if (draw.Below(3) == 0) spec.fFixed.push_back(Factors(data, {"a"}, {"x"}));
    spec.fRestricted = draw.Below(3) > 0;
    const int kind = draw.Below(3);
    if (kind != 1) {
        const bool slope = draw.Below(2) == 0;
        spec.fRandom = {
            slope ? Block(data, {{}, Factors(data, {}, {"x"})}, {"s"}, draw.Of<Type>({Type::kUN, Type::kDIAG}))
                  : Block(data, {{}}, {"s"})};
    }
    if (kind != 0) {
        spec.fResidual.fSubjects = {data["s"]};
        spec.fResidual.fRepeated = {data["t"]};
        spec.fResidual.fType = kind == 2 ? draw.Of<Type>({Type::kDIAG, Type::kID})
                                         : draw.Of<Type>({Type::kAR1, Type::kCS, Type::kARH1, Type::kTP, Type::kUN});
    }
    if (draw.Below(3) == 0) spec.fResidual.fGroup = data["g"];
    return drawn;
}

void ExpectRelative(double got, double want, double relative, const char* what) {
    EXPECT_LE(std::abs(got - want), relative * std::max(1.0, std::abs(want))) << what << ": " << got << " not " << want;
}

class EveryDraw : public ::testing::TestWithParam<unsigned> {};

TEST_P(EveryDraw, WhatIsWrittenOtherwiseFitsAlike) {
    const unsigned seed = GetParam();
    SCOPED_TRACE("seed " + std::to_string(seed));
    Draw draw(seed);
    Drawn drawn = DrawModel(draw);
    CsvRecords& data = drawn.fData;
    const ModelSpec& spec = drawn.fSpec;
    const FitResult fit = FitLmm(spec, data.View(spec));
    ASSERT_TRUE(fit.HasEstimates()) << fit.fStatus.fCode;
    const double value = fit.fMinus2LogLikelihood;
    const auto refit = [&](CsvRecords changed) {
        FitResult again = FitLmm(spec, changed.View(spec));
        EXPECT_EQ(again.fStatus.fCode, fit.fStatus.fCode);
        return again;
    };
    const auto changed = [&](const std::string& name, const std::function<double(double)>& change) {
        CsvRecords other = data;
        for (std::size_t i = 0; i < other.Count(); ++i)
            other.At(i, name) = change(other.At(i, name));
        return other;
    };

    // Rows in another order.
    std::vector<std::size_t> order(data.Count());
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(seed));
    CsvRecords shuffled = data;
    for (const char* name : {"y", "x", "s", "t", "a", "b", "g"}) {
        for (std::size_t i = 0; i < order.size(); ++i)
            shuffled.At(i, name) = data.At(order[i], name);
    }
    ExpectRelative(refit(shuffled).fMinus2LogLikelihood, value, kAgreement, "rows in another order");

    // Other names of the levels: another order and another reference. The kept columns become integer combinations of
    // the old ones and the other way round, so that the determinant of X'V^-1X stays.
    for (const std::string name : {"a", "b", "s", "g"}) {
        const int levels = name == "s" ? data.Levels()[data["s"]] : (name == "g" ? 2 : 3);
        const FitResult other = refit(changed(name, [&](double code) { return levels - 1 - code; }));
        ExpectRelative(other.fMinus2LogLikelihood, value, kAgreement, ("levels of " + name).c_str());
        for (std::size_t e = 1; e < fit.fTests.size(); ++e) {
            EXPECT_EQ(other.fTests[e].fDf1, fit.fTests[e].fDf1);
            ExpectRelative(other.fTests[e].fF, fit.fTests[e].fF, 1e-6, "F under other names");
        }
    }

    // Shift and scale of the target: the density is that of the scaled target.
    const double n = spec.fRestricted ? fit.fTotalFrequency - fit.fRank : fit.fTotalFrequency;
    ExpectRelative(refit(changed("y", [](double y) { return y + 1e4; })).fMinus2LogLikelihood, value, kAgreement,
                   "shift");
    for (const double scale : {1e-8, 1e12}) {
        const FitResult scaled = refit(changed("y", [&](double y) { return scale * y; }));
        ExpectRelative(scaled.fMinus2LogLikelihood, value + 2.0 * n * std::log(scale), kAgreement, "scale");
        for (std::size_t e = 0; e < fit.fTests.size(); ++e)
            ExpectRelative(scaled.fTests[e].fF, fit.fTests[e].fF, 1e-6, "F of the scaled target");
    }

    // A covariate that is fixed only: its shift changes nothing, its scale the determinant of X'V^-1X.
    bool random = false;
    for (const RandomBlock& block : spec.fRandom)
        random = random || block.fEffects.size() > 1;
    if (random) return;
    int columns = 0;
    for (const FixedParameter& parameter : fit.fFixed)
        columns += !parameter.fRedundant && !spec.FixedEffects()[parameter.fEffect].fCovariates.empty() ? 1 : 0;
    const double more = spec.fRestricted ? 2.0 * columns * std::log(7.0) : 0.0;
    ExpectRelative(refit(changed("x", [](double x) { return x + 50.0; })).fMinus2LogLikelihood, value, kAgreement,
                   "shifted covariate");
    ExpectRelative(refit(changed("x", [](double x) { return 7.0 * x; })).fMinus2LogLikelihood, value + more, kAgreement,
                   "scaled covariate");
}

INSTANTIATE_TEST_SUITE_P(Random, EveryDraw, ::testing::Range(1u, 41u));

/// Crossed factors that don't meet in every cell; `one` is a subject that all records share.
CsvRecords CrossedRecords(Draw& draw) {
    const int rows = 5 + draw.Below(8), columns = 4 + draw.Below(6), records = 60 + draw.Below(80);
    std::vector<double> effects(rows + columns), y, x, f, a, b, one, w;
    for (double& effect : effects)
        effect = draw.Normal();
    for (int i = 0; i < records; ++i) {
        a.push_back(i < rows ? i : draw.Below(rows));
        b.push_back(i < columns ? i : draw.Below(columns));
        x.push_back(draw.Uniform());
        f.push_back(i % 3);
        one.push_back(0);
        w.push_back(0.5 + draw.Uniform());
        y.push_back(3.0 + x.back() + effects[static_cast<int>(a.back())] * (1.0 + x.back()) +
                    effects[rows + static_cast<int>(b.back())] + 0.7 * draw.Normal());
    }
    CsvRecords data;
    data.Add("y", y);
    data.Add("x", x);
    data.Add("f", f, 3);
    data.Add("a", a, rows);
    data.Add("b", b, columns);
    data.Add("one", one, 1);
    data.Add("w", w);
    return data;
}

class TwoWays : public ::testing::TestWithParam<unsigned> {};

TEST_P(TwoWays, MeetInEveryFigure) {
    SCOPED_TRACE("seed " + std::to_string(GetParam()));
    Draw draw(GetParam());
    CsvRecords data = CrossedRecords(draw);
    ModelSpec crossed = Model(data, "y");
    crossed.fFixed = {Factors(data, {"f"}), Factors(data, {}, {"x"})};
    crossed.fRestricted = draw.Below(2) == 0;
    crossed.fDf = draw.Of<DfMethod>({DfMethod::kSatterthwaite, DfMethod::kKenwardRoger});
    if (draw.Below(3) == 0) crossed.fRegressionWeight = data["w"];
    const bool slopes = draw.Below(2) == 0;
    crossed.fRandom = {
        slopes ? Block(data, {{}, Factors(data, {}, {"x"})}, {"a"}, draw.Of<Type>({Type::kUN, Type::kDIAG, Type::kAR1}))
               : Block(data, {{}}, {"a"}),
        Block(data, {{}}, {"b"})};
    ModelSpec marginal = crossed;
    for (RandomBlock& block : marginal.fRandom)
        block.fSubjects.insert(block.fSubjects.begin(), data["one"]);
    CsvRecords same = data;
    const FitResult one = FitLmm(crossed, data.View(crossed));
    const FitResult other = FitLmm(marginal, same.View(marginal));
    ASSERT_TRUE(one.HasEstimates() && other.HasEstimates());
    EXPECT_EQ(one.fStatus.fCode, other.fStatus.fCode);
    ExpectRelative(one.fMinus2LogLikelihood, other.fMinus2LogLikelihood, kAgreement, "-2 log likelihood");
    const auto near = [](double got, double want, double unit, const char* what) {
        if (std::isnan(got) && std::isnan(want)) return;
        EXPECT_LE(std::abs(got - want), kParameter * unit) << what << ": " << got << " not " << want;
    };
    for (std::size_t k = 0; k < one.fCovariance.size(); ++k) {
        const double unit = std::max(std::abs(other.fCovariance[k].fEstimate), 1.0);
        near(one.fCovariance[k].fEstimate, other.fCovariance[k].fEstimate, unit, one.fCovariance[k].fName.c_str());
        near(one.fCovariance[k].fStdError, other.fCovariance[k].fStdError, 10 * unit, "its standard error");
        EXPECT_EQ(one.fCovariance[k].fAtBound, other.fCovariance[k].fAtBound);
    }
    for (std::size_t j = 0; j < one.fFixed.size(); ++j) {
        near(one.fFixed[j].fEstimate, other.fFixed[j].fEstimate, 1.0, "coefficient");
        near(one.fFixed[j].fStdError, other.fFixed[j].fStdError, 1.0, "standard error");
        near(one.fFixed[j].fDf, other.fFixed[j].fDf, 10 * std::max(1.0, other.fFixed[j].fDf), "degrees of freedom");
    }
    for (std::size_t e = 0; e < one.fTests.size(); ++e) {
        near(one.fTests[e].fF, other.fTests[e].fF, 10 * std::max(1.0, other.fTests[e].fF), "F");
        near(one.fTests[e].fDf2, other.fTests[e].fDf2, 10 * std::max(1.0, other.fTests[e].fDf2), "denominator");
    }
    for (int block = 0; block < 2; ++block) {
        std::map<int, SubjectPrediction> wanted;
        for (const SubjectPrediction& prediction : other.Predictions(block))
            wanted[prediction.fSubject.back()] = prediction;
        const auto predictions = one.Predictions(block);
        ASSERT_EQ(predictions.size(), wanted.size());
        for (const SubjectPrediction& prediction : predictions) {
            const SubjectPrediction& want = wanted[prediction.fSubject.back()];
            for (Eigen::Index c = 0; c < want.fEstimate.size(); ++c) {
                near(prediction.fEstimate[c], want.fEstimate[c], 1.0, "prediction");
                near(prediction.fStdError[c], want.fStdError[c], 1.0, "prediction error");
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Random, TwoWays, ::testing::Range(1u, 31u));

// Most subjects with one record: against the density of the whole target, its lowest point found by halving intervals.
TEST(SubjectsOfOneRecord, FitAsTheDensitySays) {
    Draw draw(5);
    std::vector<double> y, s, x;
    for (int i = 0; i < 40; ++i) {
        const double level = draw.Normal();
        for (int j = 0; j < (i % 4 == 0 ? 3 : 1); ++j) {
            s.push_back(i);
            x.push_back(draw.Uniform());
            y.push_back(2.0 * x.back() + level + 0.6 * draw.Normal());
        }
    }
    CsvRecords data;
    data.Add("y", y);
    data.Add("s", s, 40);
    data.Add("x", x);
    const auto n = static_cast<Eigen::Index>(y.size());
    Eigen::MatrixXd design = Eigen::MatrixXd::Ones(n, 2), same(n, n);
    design.col(1) = Eigen::Map<const Eigen::VectorXd>(x.data(), n);
    for (Eigen::Index i = 0; i < n; ++i) {
        for (Eigen::Index j = 0; j < n; ++j)
            same(i, j) = s[i] == s[j] ? 1.0 : 0.0;
    }
    const Eigen::Map<const Eigen::VectorXd> target(y.data(), n);
    for (const bool restricted : {true, false}) {
        const double count = static_cast<double>(restricted ? n - 2 : n);
        double variance = 0.0;
        const auto density = [&](double ratio) {
            const Eigen::LLT<Eigen::MatrixXd> v(Eigen::MatrixXd::Identity(n, n) + ratio * same);
            const Eigen::LLT<Eigen::MatrixXd> fixed(design.transpose() * v.solve(design));
            const Eigen::VectorXd rest = target - design * fixed.solve(design.transpose() * v.solve(target));
            variance = rest.dot(v.solve(rest)) / count;
            double logs = 2.0 * v.matrixLLT().diagonal().array().log().sum() + count * std::log(variance);
            if (restricted) logs += 2.0 * fixed.matrixLLT().diagonal().array().log().sum();
            return logs + count * (1.0 + std::log(2.0 * std::numbers::pi));
        };
        double low = 0.0, high = 100.0;
        for (int i = 0; i < 200; ++i) {
            const double third = (high - low) / 3.0;
            if (density(low + third) < density(high - third))
                high -= third;
            else
                low += third;
        }
        ModelSpec spec = Model(data, "y");
        spec.fFixed = {Factors(data, {}, {"x"})};
        spec.fRandom = {Block(data, {{}}, {"s"})};
        spec.fRestricted = restricted;
        const FitResult fit = FitLmm(spec, data.View(spec));
        EXPECT_TRUE(fit.fStatus.IsOk());
        ExpectRelative(fit.fMinus2LogLikelihood, density(0.5 * (low + high)), kAgreement, "-2 log likelihood");
        ExpectRelative(fit.fCovariance[0].fEstimate, 0.5 * (low + high) * variance, 1e-6, "between");
        ExpectRelative(fit.fCovariance[1].fEstimate, variance, 1e-6, "within");
    }
}

/// Every structure where it may stand, with parameters of their own for two groups of subjects.
class GroupedStructure : public ::testing::TestWithParam<CovarianceTraits> {
protected:
    static ModelSpec SpecOf(const CsvRecords& data, const CovarianceTraits& traits, bool random) {
        ModelSpec spec = Model(data, "y");
        spec.fFixed = {Factors(data, {"a"}), Factors(data, {}, {"x"})};
        if (random) {
            spec.fRandom = {Block(data, {Factors(data, {"t"})}, {"s"}, traits.fType)};
            spec.fRandom.front().fGroup = data["g"];
            return spec;
        }
        spec.fRandom = {Block(data, {Factors(data, {}, {"x"})}, {"s"})};
        spec.fResidual.fType = traits.fType;
        spec.fResidual.fSubjects = {data["s"]};
        spec.fResidual.fGroup = data["g"];
        if (traits.fNeedsDistances) {
            spec.fResidual.fSpatial = {data["place"]};
        } else if (traits.fKronecker) {
            spec.fResidual.fRepeated = {data["t"], data["half"]};
            spec.fResidual.fFirstMeasures = {0};
            spec.fResidual.fSecondMeasures = {1};
        } else {
            spec.fResidual.fRepeated = {data["t"]};
        }
        return spec;
    }
};

TEST_P(GroupedStructure, DerivativesAreThoseOfTheValues) {
    const CovarianceTraits& traits = GetParam();
    Draw draw(7);
    for (const bool random : {false, true}) {
        if (!(random ? traits.fInRandom : traits.fInRepeated)) continue;
        CsvRecords data = SubjectRecords(draw, 14, 4);
        std::vector<double> place, half;
        for (std::size_t i = 0; i < data.Count(); ++i) {
            place.push_back(1.7 * data.At(i, "t") + 0.2 * data.At(i, "x"));
            half.push_back(static_cast<double>(i % 2));
        }
        data.Add("place", place);
        data.Add("half", half, 2);
        for (const bool restricted : {true, false}) {
            ModelSpec spec = SpecOf(data, traits, random);
            spec.fRestricted = restricted;
            SCOPED_TRACE(std::string(traits.fWord) + (random ? " random" : " repeated"));
            Workers workers(1);
            LmmProblem problem(spec, data.View(spec), workers);
            const FitStatus status = problem.Prepare();
            ASSERT_FALSE(status.IsError()) << status.fDetail;
            const MarginalLikelihood likelihood(problem, restricted);
            const Eigen::VectorXd theta = problem.Start();
            const Evaluation at = likelihood.Derivatives(theta, ThetaScale::kReported);
            ASSERT_TRUE(at.fFeasible);
            for (Eigen::Index k = 0; k < theta.size(); ++k) {
                if (at.fExpected(k, k) == 0.0) continue;
                const double step = kStep * std::max(0.1, std::abs(theta[k]));
                const auto moved = [&](double steps) {
                    Eigen::VectorXd other = theta;
                    other[k] += steps * step;
                    return likelihood.Derivatives(other, ThetaScale::kReported);
                };
                const Evaluation down2 = moved(-2), down = moved(-1), up = moved(1), up2 = moved(2);
                const double unit = std::sqrt(at.fExpected(k, k));
                const double slope = (down2.fValue - 8.0 * down.fValue + 8.0 * up.fValue - up2.fValue) / (12.0 * step);
                EXPECT_NEAR(at.fGradient[k], slope,
                            kDifference * unit * std::max(1.0, std::abs(at.fGradient[k]) / unit))
                    << "gradient " << k;
                const Eigen::VectorXd bend =
                    (down2.fGradient - 8.0 * down.fGradient + 8.0 * up.fGradient - up2.fGradient) / (12.0 * step);
                for (Eigen::Index l = 0; l < theta.size(); ++l) {
                    const double scale = unit * std::sqrt(at.fExpected(l, l));
                    EXPECT_NEAR(at.fObserved(k, l), bend[l], kDifference * std::max(scale, std::abs(bend[l])))
                        << "Hessian " << k << " " << l;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Structures, GroupedStructure, ::testing::ValuesIn(AllCovarianceTraits()),
                         [](const auto& instance) { return std::string(instance.param.fWord); });

}  // namespace
}  // namespace engine::testing
