#include "engine/crossed/CrossedProblem.h"
#include "engine/lmm/NewtonSolver.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

using namespace engine;

/// Columns of a comma-separated file; text becomes codes in ascending order.
struct Table {
    std::vector<double> fRecords;
    std::vector<int> fLevels;
    RecordView View() const { return {fRecords.data(), fRecords.size() / fLevels.size(), fLevels.size()}; }
};

Table Read(const std::string& name, const std::vector<std::string>& columns, const std::vector<bool>& categorical) {
    std::ifstream file(std::string(HIERFIT_TEST_DATA "/") + name);
    std::string line;
    std::getline(file, line);
    auto split = [](const std::string& text) {
        std::vector<std::string> cells;
        std::istringstream stream(text);
        for (std::string cell; std::getline(stream, cell, ',');) {
            std::erase(cell, '"');
            std::erase(cell, '\r');
            cells.push_back(cell);
        }
        return cells;
    };
    const auto header = split(line);
    std::vector<std::vector<std::string>> rows;
    std::vector<std::map<std::string, int>> codes(columns.size());
    while (std::getline(file, line)) {
        const auto cells = split(line);
        rows.emplace_back();
        for (std::size_t c = 0; c < columns.size(); ++c) {
            rows.back().push_back(cells[std::find(header.begin(), header.end(), columns[c]) - header.begin()]);
            if (categorical[c]) codes[c][rows.back().back()];
        }
    }
    Table table;
    for (auto& map : codes) {
        int next = 0;
        for (auto& [text, code] : map)
            code = next++;
        table.fLevels.push_back(next);
    }
    for (const auto& row : rows)
        for (std::size_t c = 0; c < columns.size(); ++c)
            table.fRecords.push_back(categorical[c] ? codes[c][row[c]] : std::stod(row[c]));
    return table;
}

struct Fit {
    explicit Fit(const Table& table, ModelSpec model)
        : fSpec(std::move(model)),
          fWorkers(1),
          fView(table.View()),
          fBasis(fSpec, fView, fWorkers),
          fProblem(fSpec, fView, fBasis) {
        EXPECT_FALSE(fProblem.Prepare().IsError());
        fLikelihood = std::make_unique<CrossedLikelihood>(fProblem, fSpec.fRestricted);
        const NewtonSolver solver(*fLikelihood, fSpec, fBasis.TargetScale());
        fOutcome = solver.Solve(fProblem.Layout().ToWorking(fProblem.Start()));
        EXPECT_EQ(fOutcome.fEnd, SolverEnd::kConverged);
        fTheta = fProblem.Layout().FromWorking(fOutcome.fTheta);
        fFinal = fLikelihood->Final(fTheta, ThetaScale::kReported);
        fBeta = fBasis.ToOriginal(fFinal.fBeta);
        fInformation = 2.0 * fFinal.fObserved.inverse();
    }
    ModelSpec fSpec;
    Workers fWorkers;
    RecordView fView;
    FixedBasis fBasis;
    CrossedProblem fProblem;
    std::unique_ptr<CrossedLikelihood> fLikelihood;
    SolverOutcome fOutcome;
    Eigen::VectorXd fTheta, fBeta;
    Evaluation fFinal;
    Eigen::MatrixXd fInformation;
};

ModelSpec Crossed(const Table& table, const std::vector<std::vector<int>>& subjects, bool restricted) {
    ModelSpec spec;
    spec.fDependent = 0;
    spec.fLevels = table.fLevels;
    for (const auto& variables : subjects)
        spec.fRandom.push_back({{ModelEffect{}}, variables, CovarianceType::kVC, -1});
    spec.fRestricted = restricted;
    return spec;
}

double Satterthwaite(const Fit& fit) {
    const Eigen::VectorXd half = fit.fFinal.fHalf.row(0);
    Eigen::VectorXd slope(fit.fTheta.size());
    for (Eigen::Index k = 0; k < slope.size(); ++k)
        slope[k] = half.dot(fit.fFinal.fSlopes[k] * half);
    const double variance = half.squaredNorm();
    return 2.0 * variance * variance / slope.dot(fit.fInformation * slope);
}

// Assays of penicillin, Davies and Goldsmith (1972), "Statistical Methods in Research and Production", table 6.4.
TEST(CrossedReference, Penicillin) {
    const Table table = Read("penicillin.csv", {"diameter", "plate", "sample"}, {false, true, true});
    const Fit reml(table, Crossed(table, {{1}, {2}}, true));
    EXPECT_NEAR(reml.fFinal.fValue, 330.860588991086, 1e-9);
    EXPECT_NEAR(reml.fTheta[0], 0.716908212560388, 1e-9);
    EXPECT_NEAR(reml.fTheta[1], 3.73091787439614, 1e-8);
    EXPECT_NEAR(reml.fTheta[2], 0.302415458937198, 1e-9);
    EXPECT_NEAR(reml.fBeta[0], 22.9722222222222, 1e-11);
    EXPECT_NEAR(reml.fInformation(1, 1), 5.60557513388554, 1e-7);
    EXPECT_NEAR(reml.fInformation(0, 1), 1.10454009256833e-05, 1e-9);
    EXPECT_NEAR(Satterthwaite(reml), 5.4870922658751, 1e-7);
    const Fit ml(table, Crossed(table, {{1}, {2}}, false));
    EXPECT_NEAR(ml.fFinal.fValue, 332.188348668501, 1e-9);
    EXPECT_NEAR(ml.fTheta[1], 3.13518824569487, 1e-7);
    EXPECT_NEAR(std::sqrt(ml.fInformation(1, 1)), 1.81783487096836, 1e-6);
    EXPECT_NEAR(Satterthwaite(ml), 6.68906652019214, 1e-6);
    // The same model as one block of two effects without subjects.
    ModelSpec divided = Crossed(table, {}, true);
    divided.fRandom.push_back({{ModelEffect{{1}, {}}, ModelEffect{{2}, {}}}, {}, CovarianceType::kVC, -1});
    const Fit effects(table, divided);
    EXPECT_NEAR(effects.fFinal.fValue, reml.fFinal.fValue, 1e-9);
    EXPECT_NEAR(effects.fTheta[1], reml.fTheta[1], 1e-8);
    EXPECT_EQ(effects.fProblem.Coefficient(0, {}, 25), effects.fProblem.Statistics()->fOffset[1] + 1);
    EXPECT_EQ(reml.fProblem.Coefficient(1, {1}, 0), reml.fProblem.Statistics()->fOffset[1] + 1);
}

// A balanced layout made for the purpose; the figures are its closed forms in exact arithmetic on the doubles read.
TEST(CrossedReference, OffsetOfAHundredMillion) {
    const Table table = Read("crossed_offset_1e8.csv", {"y", "a", "b"}, {false, true, true});
    const Fit fit(table, Crossed(table, {{1}, {2}}, true));
    auto expect = [](double got, double truth) { EXPECT_NEAR(got / truth, 1.0, 1e-10) << truth; };
    expect(fit.fTheta[0], 0.08712341256070542);
    expect(fit.fTheta[1], 0.027389579093233307);
    expect(fit.fTheta[2], 0.0025890801023359905);
    expect(fit.fBeta[0], 100000000.0661875);
    expect(fit.fFinal.fHalf(0, 0), 0.12439186525610621);
    expect(Satterthwaite(fit), 11.293771518495518);
    expect(fit.fFinal.fValue, -368.42595934098546);
}

// Ratings of lecturers at ETH Zurich (Bates, Maechler, Bolker and Walker 2015, data set InstEval).
TEST(CrossedReference, RatingsOfThreeCrossedFactors) {
    const Table table = Read("insteval.csv", {"y", "service", "s", "d", "dept"}, {false, true, true, true, true});
    ModelSpec spec = Crossed(table, {{2}, {3}, {4}}, true);
    spec.fFixed = {ModelEffect{{1}, {}}};
    const Fit fit(table, spec);
    EXPECT_NEAR(fit.fFinal.fValue, 237733.834127519, 1e-6);
    EXPECT_NEAR(fit.fTheta[0], 0.105997956497783, 1e-6);
    EXPECT_NEAR(fit.fTheta[1], 0.265221226087523, 1e-6);
    EXPECT_NEAR(fit.fTheta[2], 0.00691200283158672, 1e-6);
    EXPECT_NEAR(fit.fTheta[3], 1.3865003578011, 1e-6);
    EXPECT_NEAR(fit.fBeta[1], 0.0926417071458143, 1e-8);
    EXPECT_NEAR(fit.fFinal.fHalf.row(1).norm(), 0.0133891864991355, 1e-8);
}

}  // namespace
