// What the structures are: their matrices by definition, where they are feasible, where iteration starts.

#include "engine/structures_cases.h"

#include <Eigen/Eigenvalues>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unsupported/Eigen/KroneckerProduct>

namespace structure_cases {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using enum CovarianceType;

constexpr double kKernel = 1e-13;
constexpr double kOnBoundary = 1e-8;  // smallest eigenvalue, relative: too near to the boundary to call

double SmallestEigenvalue(const MatrixXd& matrix) {
    const VectorXd scale = matrix.diagonal().cwiseMax(1e-300).cwiseSqrt().cwiseInverse();
    return Eigen::SelfAdjointEigenSolver<MatrixXd>(scale.asDiagonal() * matrix * scale.asDiagonal())
        .eigenvalues()
        .minCoeff();
}

std::unique_ptr<Structure> Make(CovarianceType type, int dimension, int second = 1) {
    StructureShape shape;
    shape.fDimension = dimension;
    shape.fSecondDimension = second;
    return engine::MakeStructure(type, shape);
}

Places Levels(int count) {
    Places places;
    for (int i = 0; i < count; ++i)
        places.fPositions.push_back(i);
    return places;
}

std::vector<std::string> Names(const Structure& structure) {
    std::vector<std::string> names;
    for (const auto& info : structure.Params())
        names.push_back(info.fName);
    return names;
}

/// Parameters for four levels and the entry (i, j), i > j from 0, that the definition gives them; the diagonal's too.
struct Definition {
    CovarianceType fType;
    std::vector<double> fTheta;
    std::function<double(int, int)> fEntry;
    std::function<double(int)> fDiagonal;
};

TEST(StructureMatrices, FollowTheirDefinitions) {
    const double v[] = {1.0, 4.0, 9.0, 2.25}, s[] = {1.0, 2.0, 3.0, 1.5}, r[] = {0.5, -0.2, 0.3}, l[] = {1, 2, -1, 0.5};
    const double u[] = {2.0, 0.3, 3.0, -0.2, 0.1, 4.0, 0.5, 0.6, 0.7, 5.0}, c[] = {0.1, 0.2, 0.3, -0.1, -0.2, 0.4};
    const auto each = [&](int i) { return v[i]; };
    const auto two = [](int) { return 2.0; };
    const std::vector<Definition> definitions = {
        {kVC, {2}, [](int, int) { return 0.0; }, two},
        {kDIAG, {1, 4, 9, 2.25}, [](int, int) { return 0.0; }, each},
        {kUN,
         {std::begin(u), std::end(u)},
         [&](int i, int j) { return u[i * (i + 1) / 2 + j]; },
         [&](int i) { return u[i * (i + 3) / 2]; }},
        {kCS, {1.5, 0.5}, [](int, int) { return 0.5; }, two},
        {kCSR, {2, 0.4}, [](int, int) { return 0.8; }, two},
        {kCSH, {1, 4, 9, 2.25, 0.4}, [&](int i, int j) { return s[i] * s[j] * 0.4; }, each},
        {kAR1, {2, -0.6}, [](int i, int j) { return 2 * std::pow(-0.6, i - j); }, two},
        {kARH1, {1, 4, 9, 2.25, 0.6}, [&](int i, int j) { return s[i] * s[j] * std::pow(0.6, i - j); }, each},
        {kARMA11, {2, 0.7, 0.4}, [](int i, int j) { return 2 * 0.4 * std::pow(0.7, i - j - 1); }, two},
        {kAD1,
         {1, 4, 9, 2.25, 0.5, -0.2, 0.3},
         [&](int i, int j) {
             double product = s[i] * s[j];
             for (int k = j; k < i; ++k)
                 product *= r[k];
             return product;
         },
         each},
        {kTP, {2, 0.5, -0.2, 0.3}, [&](int i, int j) { return r[i - j - 1]; }, two},
        {kTPH, {1, 4, 9, 2.25, 0.5, -0.2, 0.3}, [&](int i, int j) { return s[i] * s[j] * r[i - j - 1]; }, each},
        {kUNR,
         {1, 4, 9, 2.25, 0.1, 0.2, 0.3, -0.1, -0.2, 0.4},
         [&](int i, int j) { return s[i] * s[j] * c[i * (i - 1) / 2 + j]; },
         each},
        {kHF, {1, 4, 9, 2.25, 1.5}, [&](int i, int j) { return (v[i] + v[j]) / 2 - 1.5; }, each},
        {kFA1,
         {1, 2, -1, 0.5, 0.8},
         [&](int i, int j) { return l[i] * l[j]; },
         [&](int i) { return l[i] * l[i] + 0.8; }},
        {kFAH1,
         {1, 2, -1, 0.5, 1, 4, 9, 2.25},
         [&](int i, int j) { return l[i] * l[j]; },
         [&](int i) { return l[i] * l[i] + v[i]; }},
    };
    for (const Definition& definition : definitions) {
        const auto structure = Make(definition.fType, 4);
        const VectorXd theta = VectorXd::Map(definition.fTheta.data(), definition.fTheta.size());
        ASSERT_EQ(structure->NumParams(), theta.size());
        const MatrixXd matrix = MatrixOf(*structure, theta, Levels(4));
        for (int i = 0; i < 4; ++i) {
            EXPECT_NEAR(matrix(i, i), definition.fDiagonal(i), kKernel * 10)
                << engine::CovarianceWord(definition.fType);
            for (int j = 0; j < i; ++j) {
                EXPECT_NEAR(matrix(i, j), definition.fEntry(i, j), kKernel * 10)
                    << engine::CovarianceWord(definition.fType) << i << j;
                EXPECT_EQ(matrix(i, j), matrix(j, i));
            }
        }
    }
}

TEST(StructureMatrices, SpatialOnesFollowTheirDefinitions) {
    Places pair;
    pair.fPositions = {0, 1};
    const auto covariance = [&](CovarianceType type, double parameter, double d) {
        pair.fDistances = (MatrixXd(2, 2) << 0.0, d, d, 0.0).finished();
        const MatrixXd matrix = MatrixOf(*Make(type, 1), Eigen::Vector2d(3.0, parameter), pair);
        EXPECT_EQ(matrix.diagonal(), Eigen::Vector2d(3.0, 3.0));
        return matrix(1, 0) / 3.0;
    };
    EXPECT_NEAR(covariance(kSPPOW, 0.8, 2.5), std::pow(0.8, 2.5), kKernel);
    EXPECT_NEAR(covariance(kSPEXP, 4.0, 2.5), std::exp(-2.5 / 4.0), kKernel);
    EXPECT_NEAR(covariance(kSPGAU, 4.0, 2.5), std::exp(-2.5 * 2.5 / 16.0), kKernel);
    EXPECT_NEAR(covariance(kSPLIN, 0.25, 2.5), 1.0 - 0.25 * 2.5, kKernel);
    EXPECT_NEAR(covariance(kSPLINLOG, 0.25, 2.5), 1.0 - 0.25 * std::log(2.5), kKernel);
    EXPECT_NEAR(covariance(kSPSPH, 4.0, 2.5), 1.0 - 1.5 * 0.625 + 0.5 * std::pow(0.625, 3), kKernel);
    for (const auto type : {kSPLIN, kSPLINLOG})
        EXPECT_EQ(covariance(type, 2.0, 2.5), 0.0);
    EXPECT_EQ(covariance(kSPSPH, 2.0, 2.5), 0.0);
    EXPECT_NEAR(covariance(kSPPOW, 0.0, 2.5), 0.0, kKernel);
}

// Large matrices are made strip by strip; every entry is that of its own distance alone.
TEST(StructureMatrices, SpatialOnesOfManyPlacesMatchPairs) {
    constexpr int kMany = 150;
    std::mt19937_64 random(5);
    const VectorXd at = VectorXd::NullaryExpr(kMany, [&] { return Draw(random, 0.0, 50.0); });
    Places places = Levels(kMany), pair = Levels(2);
    places.fDistances = (at.replicate(1, kMany) - at.transpose().replicate(kMany, 1)).cwiseAbs();
    const auto structure = Make(kSPGAU, 1);
    const Eigen::Vector2d theta(2.0, 9.0);
    const MatrixXd matrix = MatrixOf(*structure, theta, places);
    MatrixXd first, second, expected;
    structure->First(theta, places, 1, first);
    ASSERT_TRUE(structure->Second(theta, places, 1, 1, second));
    for (int i = 0; i < kMany; ++i) {
        for (int j = 0; j < kMany; ++j) {
            pair.fDistances = MatrixXd::Constant(2, 2, places.fDistances(i, j));
            EXPECT_NEAR(matrix(i, j), MatrixOf(*structure, theta, pair)(0, 1), kKernel);
            structure->First(theta, pair, 1, expected);
            EXPECT_NEAR(first(i, j), expected(0, 1), kKernel);
            structure->Second(theta, pair, 1, 1, expected);
            EXPECT_NEAR(second(i, j), expected(0, 1), kKernel);
        }
    }
}

TEST(StructureMatrices, KroneckerIsTheProductOfItsFactors) {
    const VectorXd a = (VectorXd(6) << 2.0, 0.3, 3.0, -0.2, 0.1, 4.0).finished();
    const MatrixXd first = MatrixOf(*Make(kUN, 3), a, Levels(3));
    const auto check = [&](CovarianceType type, const VectorXd& b, const MatrixXd& second) {
        const int order = static_cast<int>(second.rows());
        const auto structure = Make(type, 3, order);
        VectorXd theta(a.size() + b.size());
        theta << a, b;
        Places all;
        for (int i = 0; i < 3 * order; ++i) {
            all.fPositions.push_back(i / order);
            all.fSecond.push_back(i % order);
        }
        const MatrixXd expected = Eigen::kroneckerProduct(first, second);
        EXPECT_LE((MatrixOf(*structure, theta, all) - expected).cwiseAbs().maxCoeff(), 10 * kKernel);
        EXPECT_EQ(structure->Dimension(), 3 * order);
        EXPECT_EQ(structure->Feasible(theta), SmallestEigenvalue(expected) >= 0.0);
    };
    const MatrixXd free = (MatrixXd(2, 2) << 1.0, 0.4, 0.4, 0.7).finished();
    check(kUN_UN, Eigen::Vector3d(1.0, 0.4, 0.7), free);
    check(kUN_UN, Eigen::Vector3d(1.0, 0.9, 0.7), (MatrixXd(2, 2) << 1.0, 0.9, 0.9, 0.7).finished());
    check(kUN_AR1, VectorXd::Constant(1, 0.6),
          (MatrixXd(3, 3) << 1.0, 0.6, 0.36, 0.6, 1.0, 0.6, 0.36, 0.6, 1.0).finished());
    check(kUN_CS, VectorXd::Constant(1, -0.3), (MatrixXd::Identity(3, 3) * 1.3).array() - 0.3);
    EXPECT_THAT(Names(*Make(kUN_UN, 2, 2)),
                ElementsAre("A UN(1,1)", "A UN(2,1)", "A UN(2,2)", "B UN(1,1)", "B UN(2,1)", "B UN(2,2)"));
    const auto structure = Make(kUN_UN, 2, 2);
    for (int k = 0; k < 6; ++k) {
        EXPECT_EQ(structure->Params()[k].fSecondFactor, k >= 3);
        EXPECT_EQ(structure->Params()[k].fFixed, k == 3);
        EXPECT_EQ(structure->Working()->Params()[k].fFixed, k == 3);
    }
    EXPECT_THAT(Names(*Make(kUN_AR1, 1, 3)), ElementsAre("A UN(1,1)", "B AR1 rho"));
}

// Feasible says no more and no less than that the full matrix is positive semidefinite, for every structure whose
// parameters' set is exactly that.
TEST(StructureFeasibility, IsPositiveSemidefiniteness) {
    std::mt19937_64 random(7);
    for (const auto type : {kVC, kDIAG, kUN, kCS, kCSR, kCSH, kAR1, kARH1, kAD1, kTP, kTPH, kUNR, kHF}) {
        int feasible = 0, infeasible = 0;
        for (int n : {2, 3, 5}) {
            const auto structure = Make(type, n);
            for (int draw = 0; draw < 400; ++draw) {
                // Starting values lie inside; from there in a random direction, far enough to cross the boundary often.
                VectorXd theta = structure->Start(RandomHint(random, *structure, 0.1));
                for (double& value : theta)
                    value += Draw(random, -1.2, 1.2);
                const MatrixXd matrix = MatrixOf(*structure, theta, Levels(n));
                const bool sane = matrix.allFinite() && (matrix.diagonal().array() > 0.0).all();
                if (type == kCS && theta[0] < 0.0) continue;
                const double least = sane ? SmallestEigenvalue(matrix) : -1.0;
                if (std::abs(least) < kOnBoundary) continue;
                const bool within = structure->Feasible(theta);
                EXPECT_EQ(within, least > 0.0) << engine::CovarianceWord(type) << " " << theta.transpose();
                ++(within ? feasible : infeasible);
            }
        }
        EXPECT_GT(feasible, 20) << engine::CovarianceWord(type);
        EXPECT_GT(infeasible, 20) << engine::CovarianceWord(type);
    }
}

TEST(StructureFeasibility, HoldsOnTheBoundaryAndNotBeyond) {
    const auto feasible = [](CovarianceType type, int n, std::initializer_list<double> values) {
        return Make(type, n)->Feasible(VectorXd::Map(std::data(values), values.size()));
    };
    EXPECT_TRUE(feasible(kCS, 3, {3.0, -1.0}));
    EXPECT_FALSE(feasible(kCS, 3, {3.0, -1.001}));
    EXPECT_FALSE(feasible(kCS, 3, {-0.001, 1.0}));
    EXPECT_TRUE(feasible(kUN, 2, {1.0, 1.0, 1.0}));
    EXPECT_TRUE(feasible(kUN, 2, {0.0, 0.0, 1.0}));
    EXPECT_FALSE(feasible(kUN, 2, {0.0, 0.1, 1.0}));
    EXPECT_TRUE(feasible(kUN, 2, {1e-12, 0.9, 1e12}));
    EXPECT_FALSE(feasible(kUN, 2, {1e-12, 1.1, 1e12}));
    EXPECT_TRUE(feasible(kTP, 3, {1.0, 1.0, 1.0}));
    EXPECT_FALSE(feasible(kTP, 3, {1.0, 0.0, -1.1}));
    EXPECT_FALSE(feasible(kAR1, 3, {1.0, std::nan("")}));
    EXPECT_FALSE(feasible(kAR1, 3, {1.0}));
    EXPECT_FALSE(feasible(kSPEXP, 1, {1.0, -0.1}));
}

// The bounds of ARMA11 are those at which the smallest eigenvalue of ever more levels goes to zero.
TEST(StructureFeasibility, MovingAverageBoundsAreThoseOfManyLevels) {
    constexpr int kMany = 150;
    const auto structure = Make(kARMA11, kMany);
    for (const double rho : {-0.6, 0.0, 0.5}) {
        for (const double bound : {-0.5 * (1.0 - rho), 0.5 * (1.0 + rho)}) {
            const Eigen::Vector3d at(1.0, rho, bound), beyond(1.0, rho, 1.02 * bound);
            EXPECT_TRUE(structure->Feasible(at));
            EXPECT_GT(SmallestEigenvalue(MatrixOf(*structure, at, Levels(kMany))), 0.0);
            EXPECT_FALSE(structure->Feasible(beyond));
            EXPECT_LT(SmallestEigenvalue(MatrixOf(*structure, beyond, Levels(kMany))), 0.0);
        }
    }
    // Of two levels every correlation is one of some rho.
    EXPECT_TRUE(Make(kARMA11, 2)->Feasible(Eigen::Vector3d(1.0, 0.0, -0.95)));
    EXPECT_TRUE(Make(kARMA11, 2)->Params()[1].fFixed);
}

TEST(StructureStart, IsStrictlyInsideWhateverTheMoments) {
    std::mt19937_64 random(11);
    for (const CovarianceTraits& traits : engine::AllCovarianceTraits()) {
        const auto structure = engine::MakeStructure(traits.fType, ShapeOf(traits));
        const int n = structure->Dimension();
        std::vector<StartHint> hints(1);
        for (int draw = 0; draw < 60; ++draw)
            hints.push_back(RandomHint(random, *structure, draw < 30 ? 0.5 : 6.0));
        for (int draw = 0; draw < 20; ++draw) {
            hints.push_back(hints[draw + 1]);
            hints.back().fMoments -= 0.5 * MatrixXd::Identity(n, n) * hints.back().fMoments.diagonal().maxCoeff();
        }
        for (const double fill : {0.0, 1.0, std::nan(""), -3.0}) {
            hints.push_back({.fVariance = 1e-8, .fMoments = MatrixXd::Constant(n, n, fill)});
        }
        for (const StartHint& hint : hints) {
            const VectorXd theta = structure->Start(hint);
            ASSERT_TRUE(structure->Feasible(theta)) << traits.fWord << " " << theta.transpose();
            for (int k = 0; k < structure->NumParams(); ++k) {
                const auto& info = structure->Params()[k];
                EXPECT_TRUE(theta[k] > info.fLower && theta[k] < info.fUpper) << traits.fWord << " " << info.fName;
            }
            if (traits.fNeedsDistances) {
                EXPECT_GE(structure->StartGrid(hint).size(), 8u);
                for (const VectorXd& point : structure->StartGrid(hint))
                    EXPECT_TRUE(structure->Feasible(point));
                continue;
            }
            EXPECT_GT(SmallestEigenvalue(MatrixOf(*structure, theta, AllPlaces(traits))), 1e-4) << traits.fWord;
            if (const auto working = structure->Working()) {
                EXPECT_TRUE(working->Feasible(working->Start(hint))) << traits.fWord;
            }
        }
    }
}

// Moments that have the structure's own form are the start's, up to the distance that it keeps from the boundary.
TEST(StructureStart, FollowsMomentsOfItsOwnForm) {
    for (const auto type : {kCS, kCSH, kAR1, kARH1, kTP, kUN, kUNR, kHF, kFA1, kUN_AR1, kUN_UN}) {
        const CovarianceTraits& traits = *engine::FindCovarianceTraits(type);
        const auto structure = engine::MakeStructure(type, ShapeOf(traits));
        std::mt19937_64 random(3);
        const Places all = AllPlaces(traits);
        StartHint hint;
        hint.fMoments = MatrixOf(*structure, structure->Start(RandomHint(random, *structure, 0.3)), all);
        const MatrixXd start = MatrixOf(*structure, structure->Start(hint), all);
        EXPECT_LE((start - hint.fMoments).norm(), 0.25 * hint.fMoments.norm()) << traits.fWord;
    }
}

TEST(StructureTable, HasEveryTypeOnceWithItsNames) {
    const auto traits = engine::AllCovarianceTraits();
    ASSERT_EQ(traits.size(), 26u);
    for (std::size_t i = 1; i < traits.size(); ++i)
        EXPECT_LT(traits[i - 1].fType, traits[i].fType);
    for (const auto& each : traits) {
        EXPECT_EQ(each.fInRandom, !each.fNeedsDistances && !each.fKronecker) << each.fWord;
        EXPECT_TRUE(each.fInRepeated) << each.fWord;
    }
    EXPECT_EQ(engine::CovarianceWord(kUN_CS), "UN_CS");
    EXPECT_EQ(engine::MakeStructure(static_cast<CovarianceType>(6), {}), nullptr);
    EXPECT_EQ(engine::MakeStructure(kVC, {.fDimension = 3, .fEffectColumns = {1, 1}}), nullptr);
    EXPECT_EQ(Make(kAR1, 0), nullptr);

    EXPECT_THAT(Names(*engine::MakeStructure(kVC, {.fDimension = 3, .fEffectColumns = {1, 2}})),
                ElementsAre("Var(1)", "Var(2)"));
    EXPECT_THAT(Names(*Make(kVC, 3)), ElementsAre("Variance"));
    EXPECT_THAT(Names(*Make(kUN, 2)), ElementsAre("UN(1,1)", "UN(2,1)", "UN(2,2)"));
    EXPECT_THAT(Names(*Make(kAD1, 2)), ElementsAre("Var(1)", "Var(2)", "AD1 rho(1)"));
    EXPECT_THAT(Names(*Make(kARMA11, 3)), ElementsAre("Variance", "ARMA11 rho", "ARMA11 gamma"));
    EXPECT_THAT(Names(*Make(kFA1, 2)), ElementsAre("FA1 loading(1)", "FA1 loading(2)", "FA1 diagonal"));
}

TEST(StructureTable, HoldsWhatOnePositionCannotTell) {
    for (const auto type : {kCS, kCSR, kCSH, kAR1, kARH1, kARMA11, kHF, kFA1, kFAH1, kAD1, kTP, kTPH, kUNR, kUN}) {
        const auto structure = Make(type, 1);
        const VectorXd theta = structure->Start(StartHint{});
        EXPECT_TRUE(structure->Feasible(theta)) << engine::CovarianceWord(type);
        EXPECT_GT(MatrixOf(*structure, theta, Levels(1))(0, 0), 0.0) << engine::CovarianceWord(type);
        int open = 0;
        for (int k = 0; k < structure->NumParams(); ++k) {
            if (!structure->Params()[k].fFixed) {
                ++open;
            } else {
                EXPECT_EQ(theta[k], 0.0) << engine::CovarianceWord(type);
            }
        }
        EXPECT_EQ(open, 1) << engine::CovarianceWord(type);
    }
}

TEST(StructureTable, SaysWhyASpaceIsRefused) {
    const auto objection = [](CovarianceType type, int dimension, double distance) {
        return engine::SpaceObjection(type, dimension, distance);
    };
    EXPECT_THAT(objection(kSPLIN, 2, 1.0), HasSubstr("at most 1 coordinate, not 2"));
    EXPECT_THAT(objection(kSPSPH, 4, 1.0), HasSubstr("at most 3 coordinates, not 4"));
    EXPECT_THAT(objection(kSPLINLOG, 1, 0.99), HasSubstr("distances of at least 1"));
    EXPECT_THAT(objection(kSPLINLOG, 1, 1.0), HasSubstr("exceed 1"));
    EXPECT_THAT(objection(kSPEXP, 2, 0.0), HasSubstr("same coordinates"));
    EXPECT_THAT(objection(kSPEXP, 0, 1.0), HasSubstr("coordinate variable"));
    const double alone = std::numeric_limits<double>::infinity();
    for (const auto type : {kSPPOW, kSPEXP, kSPGAU, kSPLINLOG, kAR1})
        EXPECT_EQ(objection(type, 3, alone), "");
    EXPECT_EQ(objection(kSPLIN, 1, 0.1), "");
    EXPECT_EQ(objection(kSPSPH, 3, 0.1), "");
    EXPECT_EQ(objection(kSPLINLOG, 5, 1.01), "");
}

}  // namespace
}  // namespace structure_cases
