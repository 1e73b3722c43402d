#include "engine/lmm/LmmFit.h"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>
#include <random>

namespace engine::testing {
namespace {

/// Fits with one thread and with three, which must not differ in a bit; gives the first.
FitResult FitAlike(ModelSpec spec, const RecordView& view) {
    spec.fThreads = 1;
    FitResult one = FitLmm(spec, view);
    spec.fThreads = 3;
    const FitResult three = FitLmm(spec, view);
    EXPECT_EQ(one.fStatus.fCode, 0);
    EXPECT_EQ(one.fMinus2LogLikelihood, three.fMinus2LogLikelihood);
    EXPECT_EQ(one.fFixedCovariance, three.fFixedCovariance);
    EXPECT_EQ(one.fCovariance.size(), three.fCovariance.size());
    for (std::size_t k = 0; k < one.fCovariance.size(); ++k) {
        EXPECT_EQ(one.fCovariance[k].fEstimate, three.fCovariance[k].fEstimate);
        EXPECT_EQ(one.fCovariance[k].fStdError, three.fCovariance[k].fStdError);
    }
    for (int b = 0; b < static_cast<int>(spec.fRandom.size()); ++b) {
        const auto left = one.Predictions(b), right = three.Predictions(b);
        EXPECT_EQ(left.size(), right.size());
        for (std::size_t s = 0; s < left.size(); ++s) {
            EXPECT_EQ(left[s].fEstimate, right[s].fEstimate);
            EXPECT_EQ(left[s].fStdError, right[s].fStdError);
        }
    }
    return one;
}

/// One subject so large that its matrices are shared out among the threads. The likelihood is that of V itself, and
/// stationary there.
TEST(LmmThreads, OneLargeSubject) {
    constexpr int kPlaces = 540;  // beyond two tiles, and no multiple of their width
    std::mt19937 random(3);
    const auto uniform = [&] { return std::generate_canonical<double, 53>(random); };
    std::vector<double> records;
    for (int i = 0; i < kPlaces; ++i) {
        const double x = uniform(), east = 20.0 * uniform(), north = 20.0 * uniform();
        const double y = 1.0 + x + std::sin(0.4 * east) * std::cos(0.3 * north) + 0.4 * uniform();
        records.insert(records.end(), {y, x, east, north});
    }
    ModelSpec spec;
    spec.fDependent = 0;
    spec.fLevels = {0, 0, 0, 0};
    spec.fFixed = {ModelEffect{{}, {{1, 1}}}};
    spec.fResidual.fSpatial = {2, 3};
    spec.fResidual.fType = CovarianceType::kSPEXP;
    const FitResult fit = FitAlike(spec, {records.data(), kPlaces, 4});

    using Table = Eigen::Matrix<double, kPlaces, 4, Eigen::RowMajor>;
    const auto table = Eigen::Map<const Table>(records.data());
    Eigen::MatrixXd design = Eigen::MatrixXd::Ones(kPlaces, 2);
    design.col(1) = table.col(1);
    const auto restricted = [&](double variance, double range) {
        Eigen::MatrixXd v(kPlaces, kPlaces);
        for (int i = 0; i < kPlaces; ++i) {
            for (int j = 0; j < kPlaces; ++j) {
                const double distance = (table.row(i) - table.row(j)).tail(2).norm();
                v(i, j) = variance * std::exp(-distance / range);
            }
        }
        const Eigen::LLT<Eigen::MatrixXd> factor(v);
        const Eigen::MatrixXd solved = factor.solve(design);
        const Eigen::MatrixXd information = design.transpose() * solved;
        const Eigen::VectorXd beta = information.llt().solve(solved.transpose() * table.col(0));
        const Eigen::VectorXd residual = table.col(0) - design * beta;
        return 2.0 * factor.matrixLLT().diagonal().array().log().sum() + std::log(information.determinant()) +
               residual.dot(factor.solve(residual)) + (kPlaces - 2) * std::log(2.0 * std::numbers::pi);
    };
    const double variance = fit.fCovariance[0].fEstimate, range = fit.fCovariance[1].fEstimate;
    const double lowest = restricted(variance, range);
    EXPECT_NEAR(fit.fMinus2LogLikelihood, lowest, 1e-8);
    for (const double change : {0.999, 1.001}) {
        EXPECT_GT(restricted(variance * change, range), lowest);
        EXPECT_GT(restricted(variance, range * change), lowest);
    }
}

/// Crossed effects, a term of one column and one of two, each once the larger one, which is eliminated. The slope goes
/// with its intercept without fail, so that the estimates lie where the block's matrix loses its rank.
TEST(LmmThreads, CrossedEffects) {
    constexpr int kRecords = 2000, kFirst = 300, kSecond = 140;
    std::mt19937 random(4);
    const auto uniform = [&] { return std::generate_canonical<double, 53>(random); };
    std::vector<double> records;
    for (int i = 0; i < kRecords; ++i) {
        const int a = i < kFirst ? i : static_cast<int>(uniform() * kFirst);
        const int b = i < kSecond ? i : static_cast<int>(uniform() * kSecond);
        const double x = uniform();
        const double y = x + std::sin(5.0 * a) + (0.5 + x) * std::cos(7.0 * b) + 2.0 * uniform();
        records.insert(records.end(), {y, x, static_cast<double>(a), static_cast<double>(b)});
    }
    ModelSpec spec;
    spec.fDependent = 0;
    spec.fLevels = {0, 0, kFirst, kSecond};
    spec.fFixed = {ModelEffect{{}, {{1, 1}}}};
    spec.fRandom = {{{ModelEffect{}}, {2}, CovarianceType::kVC, -1},
                    {{ModelEffect{}, ModelEffect{{}, {{1, 1}}}}, {3}, CovarianceType::kUN, -1}};
    FitAlike(spec, {records.data(), kRecords, 4});
    // The term of two columns is then the larger one.
    spec.fLevels = {0, 0, kSecond, kFirst};
    for (int i = 0; i < kRecords; ++i)
        std::swap(records[4 * i + 2], records[4 * i + 3]);
    FitAlike(spec, {records.data(), kRecords, 4});
}

}  // namespace
}  // namespace engine::testing
