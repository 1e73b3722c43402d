#include "embed/hierfit.h"

#include <atomic>
#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

/// The header for other programs, through the library as it is installed.
namespace {

using hierfit::Error;
using testing::HasSubstr;

/// Five groups of four, y = 1 + 2 x + group + noise.
hierfit::Data Groups() {
    std::vector<double> x, y;
    std::vector<std::string> g, half;
    for (int i = 0; i < 20; ++i) {
        x.push_back(i % 4 + 0.1 * (i % 3));
        y.push_back(1 + 2 * x.back() + (i / 4 * 7 % 5) + 0.3 * ((i * 11) % 7) - 0.9);
        g.push_back(std::string(1, static_cast<char>('a' + i / 4)));
        half.push_back(i % 2 ? "odd" : "even");
    }
    return hierfit::Data().Numbers("x", x).Numbers("y", y).Texts("g", g).Texts("half", half);
}

TEST(Embed, FitsScoresAndPredictsAlike) {
    hierfit::Options options;
    options.fTexts = {{"scores", "fxpred,pred"}, {"emmeans", "half"}};
    const hierfit::Data data = Groups();
    const auto fit = hierfit::Fit(data, "y ~ x + half + (1 | g)", options);
    ASSERT_TRUE(fit) << fit.Error().fText;
    const hierfit::Figures& figures = fit->Only().fFigures;
    EXPECT_TRUE(fit->Only().fHasModel);
    EXPECT_TRUE(figures.fConverged);
    ASSERT_EQ(figures.fMeans.size(), 1u);
    EXPECT_EQ(figures.fMeans[0].fEstimates.size(), 2u);
    EXPECT_EQ(figures.fRandomEffects.size(), 5u);

    const auto predicted = hierfit::Predict(fit->Only().fModel, data);
    ASSERT_TRUE(predicted) << predicted.Error().fText;
    ASSERT_EQ(fit->fScores.size(), 2u);
    for (const hierfit::Column& score : fit->fScores) {
        bool found = false;
        for (const hierfit::Column& column : predicted->fColumns) {
            if (column.fName != score.fName) continue;
            found = true;
            for (std::size_t i = 0; i < 20; ++i)
                EXPECT_NEAR(column.fNumbers.at(i), score.fNumbers.at(i), 1e-10 * std::fabs(score.fNumbers[i]));
        }
        EXPECT_TRUE(found) << score.fName;
    }
}

TEST(Embed, SplitsComeApart) {
    hierfit::Options options;
    options.fTexts = {{"split-by", "half"}};
    const auto fit = hierfit::Fit(Groups(), "y ~ x", options);
    ASSERT_TRUE(fit) << fit.Error().fText;
    ASSERT_EQ(fit->fSplits.size(), 2u);
    EXPECT_EQ(fit->fSplits[1].fName, "half = odd");
    EXPECT_EQ(fit->fSplits[1].fFigures.fRecordsUsed, 10);
}

Error Refused(const hierfit::Data& data, const std::string& formula, const hierfit::Options& options = {}) {
    const auto fit = hierfit::Fit(data, formula, options);
    EXPECT_FALSE(fit) << formula;
    return fit ? Error{} : fit.Error();
}

TEST(Embed, MistakesComeBackAsValues) {
    Error error = Refused(Groups(), "y ~ xx + (1 | g)");
    EXPECT_EQ(error.fKind, Error::Kind::kUse);
    EXPECT_THAT(error.fText, HasSubstr("did you mean x?"));

    hierfit::Options options;
    options.fTexts = {{"familly", "poisson"}};
    EXPECT_THAT(Refused(Groups(), "y ~ x", options).fText, HasSubstr("did you mean family?"));
    options.fTexts = {{"data", "d.csv"}};
    EXPECT_EQ(Refused(Groups(), "y ~ x", options).fKind, Error::Kind::kUse);

    EXPECT_EQ(Refused(Groups().Numbers("z", {1, 2}), "y ~ z").fKind, Error::Kind::kData);
    EXPECT_EQ(Refused(Groups().Numbers("x", std::vector<double>(20)), "y ~ x").fKind, Error::Kind::kData);

    error = Refused(Groups().Numbers("none", std::vector<double>(20, std::nan(""))), "y ~ none");
    EXPECT_EQ(error.fKind, Error::Kind::kNotFitted);
    EXPECT_FALSE(error.fText.empty());
    EXPECT_EQ(error.fCode, 230024);

    options.fTexts.clear();
    options.fStop = [] { return true; };
    EXPECT_EQ(Refused(Groups(), "y ~ x + (1 | g)", options).fKind, Error::Kind::kStopped);

    EXPECT_FALSE(hierfit::Predict("<PMML/>", Groups()));
    EXPECT_FALSE(hierfit::Predict("", hierfit::Data()));
}

TEST(Embed, ThreadsMayCallAtOnce) {
    const auto alone = hierfit::Fit(Groups(), "y ~ x + (1 | g)");
    ASSERT_TRUE(alone);
    std::atomic<int> same = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            const auto fit = hierfit::Fit(Groups(), "y ~ x + (1 | g)");
            if (fit && fit->Only().fFigures.fMinus2LL == alone->Only().fFigures.fMinus2LL) ++same;
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(same, 4);
}

}  // namespace
