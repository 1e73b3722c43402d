#include "engine/crossed/CrossedEquations.h"
#include "engine/crossed_oracle.h"

#include <gtest/gtest.h>

namespace {

using crossedtest::Oracle;
using crossedtest::Term;
using Eigen::MatrixXd;
using Eigen::VectorXd;
using engine::CovarianceType;
using engine::CrossedOrder;

constexpr double kAgreement = 1e-9;  // two routes to one figure, relative to the greatest element

void ExpectClose(const MatrixXd& got, const MatrixXd& truth, const char* what) {
    ASSERT_EQ(got.rows(), truth.rows()) << what;
    ASSERT_EQ(got.cols(), truth.cols()) << what;
    const double scale = std::max(truth.cwiseAbs().maxCoeff(), 1e-12);
    EXPECT_LE((got - truth).cwiseAbs().maxCoeff(), kAgreement * scale) << what << "\n" << got << "\n\n" << truth;
}

struct Design {
    const char* fName;
    std::vector<Term> fTerms;
};

const CovarianceType kId = CovarianceType::kID, kUn = CovarianceType::kUN, kAr1 = CovarianceType::kAR1;

const std::vector<Design>& Designs() {
    static const std::vector<Design> designs{
        {"two crossed intercepts", {{12, kId, 1, 1, {0.6}}, {7, kId, 1, 1, {1.3}}}},
        {"three, smallest first", {{3, kId, 1, 1, {0.2}}, {7, kId, 1, 1, {2.0}}, {11, kId, 1, 1, {0.4}}}},
        {"slopes eliminated", {{10, kUn, 2, 1, {0.8, -0.2, 0.5}}, {8, kId, 1, 1, {0.3}}}},
        {"slopes in the rest", {{14, kId, 1, 1, {0.4}}, {5, kUn, 2, 1, {0.8, 0.3, 0.6}}}},
        {"slopes on both sides", {{9, kUn, 2, 1, {1.8, 0.2, 0.5}}, {7, kUn, 2, 1, {0.5, 0.1, 0.9}}}},
        {"not linear", {{9, kAr1, 3, 1, {0.9, 0.4}}, {7, kAr1, 2, 1, {0.5, -0.3}}}},
        {"groups", {{12, kId, 1, 3, {0.5, 1.0, 2.0}}, {6, kAr1, 2, 2, {0.4, 0.2, 0.9, 0.6}}, {4, kId, 1, 1, {0.3}}}},
        {"one subject", {{1, kId, 3, 1, {0.7}}, {9, kId, 1, 1, {0.4}}}},
        {"one term", {{9, kUn, 2, 1, {0.7, 0.1, 0.4}}}},
        {"zero in the eliminated term", {{12, kId, 1, 1, {0.0}}, {7, kId, 1, 1, {1.3}}, {4, kId, 1, 1, {0.2}}}},
        {"zero in the rest", {{12, kId, 1, 1, {0.6}}, {7, kId, 1, 1, {0.0}}, {4, kId, 1, 1, {0.2}}}},
        {"all zero", {{12, kId, 1, 1, {0.0}}, {7, kId, 1, 1, {0.0}}}},
        {"loss of rank", {{10, kUn, 2, 1, {0.9, 0.3, 0.1}}, {7, kUn, 2, 1, {0.4, -0.2, 0.1}}}},
        {"tiny", {{12, kId, 1, 1, {1e-9}}, {7, kId, 1, 1, {1e-9}}, {5, kId, 2, 1, {0.3}}}},
        {"large", {{12, kId, 1, 1, {20.0}}, {7, kId, 1, 1, {50.0}}}},
    };
    return designs;
}

class CrossedEquations : public testing::TestWithParam<std::tuple<std::size_t, int>> {};

TEST_P(CrossedEquations, AgreesWithTheMarginalCovarianceMatrix) {
    const auto [index, variant] = GetParam();
    const Design& design = Designs()[index];
    SCOPED_TRACE(design.fName);
    const bool restricted = variant % 2 == 0, weighted = variant >= 2;
    const Oracle oracle(7 + static_cast<unsigned>(index), 60, design.fTerms, weighted, weighted, restricted);
    const VectorXd theta = oracle.Theta();
    const Oracle::Truth truth = oracle.At(theta);
    engine::CrossedEquations equations = oracle.Equations();
    const engine::CrossedValue value = equations.Evaluate(theta, CrossedOrder::kExact);
    ASSERT_TRUE(value.fFeasible);
    EXPECT_NEAR(value.fObjective, truth.fObjective, kAgreement * std::abs(truth.fObjective));
    ExpectClose(equations.FixedEffects(), truth.fBeta, "fixed effects");
    ExpectClose(equations.FixedCovariance(), truth.fCovariance, "their covariance");
    // Per element: gradients of tiny and huge components have scales of their own.
    for (Eigen::Index k = 0; k < theta.size(); ++k)
        EXPECT_NEAR(value.fGradient[k], truth.fGradient[k],
                    kAgreement * (std::abs(truth.fGradient[k]) + std::sqrt(truth.fExpected(k, k))))
            << "gradient " << k;
    const VectorXd unit = truth.fExpected.diagonal().cwiseSqrt().cwiseInverse();
    auto scaled = [&](const MatrixXd& m) { return MatrixXd(unit.asDiagonal() * m * unit.asDiagonal()); };
    ExpectClose(scaled(value.fExpected), scaled(truth.fExpected), "expected information");
    ExpectClose(scaled(value.fHessian), scaled(truth.fHessian), "Hessian");
    const auto slopes = equations.FixedCovarianceDerivatives();
    const auto adjustment = equations.KenwardRoger();
    for (Eigen::Index k = 0; k < theta.size(); ++k) {
        ExpectClose(slopes[k], truth.fSlopes[k], "derivative of the covariance of the fixed effects");
        ExpectClose(adjustment.fP[k], truth.fP[k], "P");
    }
    for (std::size_t i = 0; i < truth.fQ.size(); ++i) {
        ExpectClose(adjustment.fQ[i], truth.fQ[i], "Q");
        ExpectClose(adjustment.fR[i], truth.fR[i], "R");
    }
    int base = 0;
    for (std::size_t t = 0; t < design.fTerms.size(); ++t) {
        const int q = design.fTerms[t].fColumns, size = design.fTerms[t].fSubjects * q;
        const MatrixXd predictions = equations.Predictions(static_cast<int>(t));
        ExpectClose(VectorXd::Map(predictions.data(), size), truth.fPredictions.middleRows(base, size), "predictions");
        const MatrixXd covariances = equations.PredictionCovariances(static_cast<int>(t));
        for (int j = 0; j < design.fTerms[t].fSubjects; ++j)
            ExpectClose(covariances.middleCols(j * q, q),
                        truth.fPredictionCovariance.block(base + j * q, base + j * q, q, q), "prediction covariance");
        base += size;
    }
    const auto average = equations.Evaluate(theta, CrossedOrder::kAverage);
    ExpectClose(scaled(average.fExpected), scaled(truth.fAverage), "average");
    ExpectClose(scaled(average.fHessian), scaled(truth.fHessian - truth.fAverage + truth.fExpected), "for stepping");
}

INSTANTIATE_TEST_SUITE_P(Designs, CrossedEquations,
                         testing::Combine(testing::Range<std::size_t>(0, 15), testing::Range(0, 4)));

TEST(CrossedEquationsRows, CombinationsOfFixedAndRandomCoefficientsFollowTheirDerivatives) {
    const Oracle oracle(3, 60, {{12, kId, 1, 1, {0.6}}, {6, kAr1, 2, 1, {0.5, 0.3}}}, true, false, true);
    const VectorXd theta = oracle.Theta();
    engine::CrossedEquations equations = oracle.Equations();
    const std::vector<engine::CrossedEquations::Row> rows{{VectorXd::Unit(3, 1), {{2, 1.0}, {5, -1.0}, {15, 0.5}}},
                                                          {VectorXd::Ones(3), {{13, 1.0}}},
                                                          {VectorXd::Zero(3), {{4, 1.0}}}};
    equations.Evaluate(theta, CrossedOrder::kGradient);
    const auto here = equations.Combine(rows);
    EXPECT_NEAR(here.fEstimate[2], equations.Predictions(0)(0, 4), 1e-12);
    EXPECT_NEAR(here.fCovariance(2, 2), equations.PredictionCovariances(0)(0, 4), 1e-12);
    for (Eigen::Index k = 0; k < theta.size(); ++k) {
        const double step = 1e-5;
        VectorXd there = theta;
        there[k] += step;
        equations.Evaluate(there, CrossedOrder::kGradient);
        MatrixXd difference = equations.Combine(rows).fCovariance;
        there[k] -= 2 * step;
        equations.Evaluate(there, CrossedOrder::kGradient);
        difference = (difference - equations.Combine(rows).fCovariance) / (2 * step);
        EXPECT_LE((difference - here.fDerivatives[k]).cwiseAbs().maxCoeff(), 1e-8) << k;
    }
}

TEST(CrossedEquationsHessian, DifferencedGradientsComeCloseToTheExactOne) {
    for (const auto& terms : {std::vector<Term>{{12, kId, 1, 1, {0.6}}, {7, kId, 1, 1, {1.3}}},
                              std::vector<Term>{{12, kId, 1, 1, {0.6}}, {6, kAr1, 2, 1, {0.5, 0.3}}}}) {
        const Oracle oracle(5, 60, terms, false, false, true);
        engine::CrossedEquations equations = oracle.Equations();
        const MatrixXd exact = equations.Evaluate(oracle.Theta(), CrossedOrder::kExact).fHessian;
        const MatrixXd covariances = equations.PredictionCovariances(0);
        const auto differenced = equations.DifferencedHessian(oracle.Theta());
        EXPECT_LE((differenced.fHessian - exact).cwiseAbs().maxCoeff(), 1e-6 * exact.cwiseAbs().maxCoeff());
        ExpectClose(equations.PredictionCovariances(0), covariances, "state after differencing");
    }
}

}  // namespace
