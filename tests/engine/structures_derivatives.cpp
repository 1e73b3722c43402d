// Analytic derivatives and changes of scale of every structure against differences of fourth order.

#include "engine/structures_cases.h"

#include <gtest/gtest.h>

namespace structure_cases {
namespace {

constexpr double kStep = 2e-3;         // of a difference, relative to the parameter
constexpr double kDifference = 1e-7;   // error of a fourth-order difference at that step, relative to the largest entry
constexpr double kRoundTrip = 1e-12;   // relative
constexpr double kClearOfKink = 0.05;  // distance, in units of the kink's own place, that a stencil stays away
constexpr int kDraws = 6;

double StepFor(double parameter) {
    return kStep * std::max(0.2, std::abs(parameter));
}

/// (f(-2h) - 8 f(-h) + 8 f(h) - f(2h)) / 12h of a matrix-valued function in parameter k.
template <class Function>
MatrixXd Difference(const Function& function, const VectorXd& theta, int k) {
    const double h = StepFor(theta[k]);
    const auto at = [&](double multiple) {
        VectorXd moved = theta;
        moved[k] += multiple * h;
        return function(moved);
    };
    return (at(-2.0) - 8.0 * at(-1.0) + 8.0 * at(1.0) - at(2.0)) / (12.0 * h);
}

void ExpectClose(const MatrixXd& actual, const MatrixXd& expected, double scale, const std::string& what) {
    ASSERT_EQ(actual.rows(), expected.rows()) << what;
    ASSERT_EQ(actual.cols(), expected.cols()) << what;
    EXPECT_LE((actual - expected).cwiseAbs().maxCoeff(), kDifference * (scale + expected.cwiseAbs().maxCoeff()))
        << what << "\nanalytic\n"
        << actual << "\ndifferences\n"
        << expected;
}

/// Whether a distance lies so near to the place of a kink that a stencil could cross it.
bool NearKink(CovarianceType type, const VectorXd& theta, const MatrixXd& distances) {
    for (const double d : distances.reshaped()) {
        const double share = type == CovarianceType::kSPLIN      ? theta[1] * d
                             : type == CovarianceType::kSPLINLOG ? theta[1] * std::log(std::max(d, 1.0))
                             : type == CovarianceType::kSPSPH    ? d / theta[1]
                                                                 : 0.0;
        if (std::abs(share - 1.0) < kClearOfKink) return true;
    }
    return false;
}

void CheckDerivatives(const Structure& structure, const VectorXd& theta, const Places& places,
                      const std::string& word) {
    const double scale = MatrixOf(structure, theta, places).cwiseAbs().maxCoeff();
    const auto first = [&](const VectorXd& at, int k) {
        MatrixXd out = MatrixXd::Constant(places.Size(), places.Size(), std::nan(""));
        structure.First(at, places, k, out);
        return out;
    };
    for (int k = 0; k < structure.NumParams(); ++k) {
        const std::string name = word + " " + structure.Params()[k].fName;
        ExpectClose(first(theta, k),
                    Difference([&](const VectorXd& at) { return MatrixOf(structure, at, places); }, theta, k), scale,
                    name);
        for (int l = 0; l < structure.NumParams(); ++l) {
            const MatrixXd expected = Difference([&](const VectorXd& at) { return first(at, k); }, theta, l);
            MatrixXd out = MatrixXd::Constant(places.Size(), places.Size(), std::nan(""));
            const bool filled = structure.Second(theta, places, k, l, out);
            EXPECT_FALSE(filled && structure.IsLinear()) << name;
            ExpectClose(filled ? out : MatrixXd::Zero(places.Size(), places.Size()), expected, scale,
                        name + ", " + structure.Params()[l].fName);
        }
    }
}

class EveryStructure : public testing::TestWithParam<CovarianceTraits> {
protected:
    EveryStructure()
        : fStructure(engine::MakeStructure(GetParam().fType, ShapeOf(GetParam()))),
          fAll(AllPlaces(GetParam())),
          fWord(GetParam().fWord) {}

    VectorXd Theta() {
        for (;;) {
            const VectorXd theta = RandomTheta(fRandom, *fStructure);
            if (!NearKink(GetParam().fType, theta, fAll.fDistances)) return theta;
        }
    }

    std::mt19937_64 fRandom{20240917};
    const std::unique_ptr<Structure> fStructure;
    const Places fAll;
    const std::string fWord;
};

TEST_P(EveryStructure, DerivativesAgreeWithDifferences) {
    const Places some = Subset(fAll, {4, 0, 2});
    for (int draw = 0; draw < kDraws; ++draw) {
        const VectorXd theta = Theta();
        CheckDerivatives(*fStructure, theta, fAll, fWord);
        CheckDerivatives(*fStructure, theta, some, fWord + " some rows");
        if (const auto working = fStructure->Working()) {
            CheckDerivatives(*working, fStructure->ToWorking(theta), fAll, fWord + " working");
            CheckDerivatives(*working, fStructure->ToWorking(theta), some, fWord + " working, some rows");
        }
    }
}

TEST_P(EveryStructure, MissingLevelsKeepTheirPlace) {
    const std::vector<int> rows = {4, 0, 2};
    const VectorXd theta = Theta();
    EXPECT_EQ(MatrixOf(*fStructure, theta, Subset(fAll, rows)), MatrixOf(*fStructure, theta, fAll)(rows, rows));
}

TEST_P(EveryStructure, WorkingScaleGivesTheSameMatrixAndItsJacobian) {
    const auto working = fStructure->Working();
    for (int draw = 0; draw < kDraws; ++draw) {
        const VectorXd theta = Theta();
        VectorXd other = fStructure->ToWorking(theta);
        MatrixXd jacobian;
        const VectorXd back = fStructure->FromWorking(other, &jacobian);
        EXPECT_LE((back - theta).cwiseAbs().maxCoeff(), kRoundTrip * theta.cwiseAbs().maxCoeff()) << fWord;
        if (!working) {
            EXPECT_TRUE(jacobian.isIdentity(0.0)) << fWord;
            continue;
        }
        EXPECT_TRUE(working->Feasible(other)) << fWord;
        EXPECT_EQ(working->Working(), nullptr) << fWord;
        for (int k = 0; k < working->NumParams(); ++k) {
            // An unbounded factor may also be reached with the other sign, which the way back has to undo.
            if (working->Params()[k].fFixed) continue;
            if (std::isinf(working->Params()[k].fLower)) other[k] = -other[k];
        }
        const auto reported = [&](const VectorXd& at) -> MatrixXd { return fStructure->FromWorking(at, nullptr); };
        const MatrixXd matrix = MatrixOf(*fStructure, fStructure->FromWorking(other, &jacobian), fAll);
        EXPECT_TRUE(matrix.isApprox(MatrixOf(*working, other, fAll), kRoundTrip)) << fWord;
        for (int k = 0; k < working->NumParams(); ++k) {
            ExpectClose(jacobian.col(k), Difference(reported, other, k), theta.cwiseAbs().maxCoeff(),
                        fWord + " jacobian");
        }
    }
}

TEST_P(EveryStructure, StaysFiniteAtItsBounds) {
    for (int k = 0; k < fStructure->NumParams(); ++k) {
        for (const double bound : {fStructure->Params()[k].fLower, fStructure->Params()[k].fUpper}) {
            if (!std::isfinite(bound)) continue;
            VectorXd theta = Theta();
            theta[k] = bound;
            EXPECT_TRUE(MatrixOf(*fStructure, theta, fAll).allFinite()) << fWord;
            EXPECT_TRUE(fStructure->ToWorking(theta).allFinite()) << fWord;
            for (int a = 0; a < fStructure->NumParams(); ++a) {
                MatrixXd out;
                fStructure->First(theta, fAll, a, out);
                EXPECT_TRUE(out.allFinite()) << fWord << " " << a << "\n" << out;
                for (int b = 0; b <= a; ++b) {
                    if (!fStructure->Second(theta, fAll, a, b, out)) continue;
                    EXPECT_TRUE(out.allFinite()) << fWord << a << b;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Structures, EveryStructure, testing::ValuesIn(engine::AllCovarianceTraits()),
                         [](const auto& instance) { return std::string(instance.param.fWord); });

}  // namespace
}  // namespace structure_cases
