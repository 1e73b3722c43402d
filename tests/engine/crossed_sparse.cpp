#include "engine/crossed/CrossedEquations.h"
#include "engine/crossed/TiledCholesky.h"
#include "engine/crossed_oracle.h"

#include <gtest/gtest.h>

namespace {

using crossedtest::Oracle;
using crossedtest::Term;
using engine::CovarianceType;
using engine::CrossedOrder;

/// The rest factored as a sparse matrix gives what the dense one gives, blocks, groups and zero variances included.
TEST(SparseSchur, AgreesWithTheDenseFactor) {
    const std::vector<std::vector<Term>> designs{
        {{40, CovarianceType::kID, 1, 1, {0.6}}, {30, CovarianceType::kID, 1, 1, {1.3}}},
        {{40, CovarianceType::kUN, 2, 1, {0.8, 0.1, 0.4}},
         {25, CovarianceType::kUN, 2, 2, {0.5, 0.1, 0.9, 0.3, 0.0, 0.2}},
         {9, CovarianceType::kID, 1, 1, {0.7}}},
        {{40, CovarianceType::kID, 1, 1, {0.6}},
         {30, CovarianceType::kID, 1, 1, {0.0}},
         {20, CovarianceType::kAR1, 2, 1, {0.5, 0.3}}},
    };
    for (std::size_t d = 0; d < designs.size(); ++d) {
        SCOPED_TRACE(d);
        const Oracle oracle(11 + static_cast<unsigned>(d), 80, designs[d], true, false, true);
        const Eigen::VectorXd theta = oracle.Theta();
        const auto statistics = oracle.Statistics();
        const int params = static_cast<int>(theta.size());
        auto sparse = engine::MakeSparseSchur(*statistics);
        ASSERT_NE(sparse, nullptr);
        engine::CrossedEquations thin(statistics, oracle.Covariances(), params, true, nullptr, std::move(sparse));
        engine::CrossedEquations full(statistics, oracle.Covariances(), params, true, nullptr,
                                      engine::MakeDenseSchur(statistics->fRest));
        EXPECT_FALSE(thin.HasExactHessian());
        const auto one = thin.Evaluate(theta, CrossedOrder::kAverage);
        const auto other = full.Evaluate(theta, CrossedOrder::kAverage);
        EXPECT_NEAR(one.fObjective, other.fObjective, 1e-11 * std::abs(other.fObjective));
        EXPECT_LE((one.fGradient - other.fGradient).norm(), 1e-10 * other.fGradient.norm());
        EXPECT_LE((one.fHessian - other.fHessian).norm(), 1e-10 * other.fHessian.norm());
        for (int t = 0; t < statistics->Terms(); ++t)
            EXPECT_LE((thin.PredictionCovariances(t) - full.PredictionCovariances(t)).norm(), 1e-11);
    }
}

/// Orders around the tiles' edges; one thread and three give the same bits.
TEST(TiledCholesky, InvertsAlikeOnAnyNumberOfThreads) {
    for (int n : {1, 7, 128, 129, 300, 517}) {
        const Eigen::MatrixXd random = Eigen::MatrixXd::Random(n, n);
        const Eigen::MatrixXd matrix = Eigen::MatrixXd::Identity(n, n) + random * random.transpose() / n;
        engine::Workers three(3);
        Eigen::MatrixXd one = matrix, other = matrix;
        ASSERT_TRUE(engine::TiledFactor(one.data(), n, nullptr));
        ASSERT_TRUE(engine::TiledFactor(other.data(), n, &three));
        engine::TiledInvert(one.data(), n, nullptr);
        engine::TiledInvert(other.data(), n, &three);
        EXPECT_EQ(Eigen::MatrixXd(one.triangularView<Eigen::Lower>()),
                  Eigen::MatrixXd(other.triangularView<Eigen::Lower>()));
        Eigen::MatrixXd product(n, n);
        engine::TiledMultiply(one.data(), n, matrix.data(), n, product.data(), &three);
        EXPECT_LE((product - Eigen::MatrixXd::Identity(n, n)).cwiseAbs().maxCoeff(), 1e-11) << n;
    }
    Eigen::MatrixXd indefinite = Eigen::MatrixXd::Identity(200, 200);
    indefinite(150, 150) = -1.0;
    EXPECT_FALSE(engine::TiledFactor(indefinite.data(), 200, nullptr));
}

}  // namespace
