#include "contracts/Engine.h"
#include "contracts/HostOutput.h"
#include "host/output/Text.h"
#include "host/strings/Catalogue.h"
#include "procedure/MIXParameterAggregator.h"
#include "procedure/MIXRegrParameter.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

struct MIXRegrParameterIdentity {
    static bool Same(const MIXRegrParameter& a, const MIXRegrParameter& b) { return a == b; }
};

namespace {

using Ints = std::vector<int>;

OBS Number(double value) {
    OBS cell;
    cell.fNumber = value;
    return cell;
}

/// Factors 1, 2, 3 and covariates 4, 5: 3 outside of 1 and 2, with covariate 5 twice.
MCModelEffect NestedEffect() {
    MCModelEffect effect;
    effect.Setup(3, 2, Ints{1, 2, 3, 4, 5});
    effect.AddNewFactor(1, true);
    effect.AddNewFactor(2, false);
    effect.AddNewFactor(3, true);
    effect.AddCovariate(5);
    effect.AddCovariate(5);
    return effect;
}

TEST(RegrParameter, FactorsStandByRisingLevelAndThenInOrderOfAddition) {
    const OBS p = Number(1), q = Number(2), r = Number(3), s = Number(4);
    MIXRegrParameter parameter;
    EXPECT_TRUE(parameter.IsIntercept());
    EXPECT_EQ(parameter.GetEffectIndex(), -1);
    EXPECT_TRUE(parameter.AddFactor(2, &q, 1));
    EXPECT_TRUE(parameter.AddFactor(3, &p, 0));
    EXPECT_TRUE(parameter.AddFactor(7, &r, 1));
    EXPECT_TRUE(parameter.AddFactor(8, &s, 0));
    EXPECT_EQ(parameter.GetFactors(), (Ints{3, 8, 2, 7}));
    EXPECT_EQ(parameter.GetFactorNestLevels(), (Ints{0, 0, 1, 1}));
    EXPECT_EQ(parameter.GetCategories(), (std::vector<const OBS*>{&p, &s, &q, &r}));
    EXPECT_FALSE(parameter.AddFactor(2, &p, 0));
    EXPECT_FALSE(parameter.AddFactor(-1, &p, 0));
    EXPECT_FALSE(parameter.AddFactor(9, &p, -1));
    EXPECT_EQ(parameter.GetNFactors(), 4);
    EXPECT_EQ(parameter.ContainsFactor(7), &r);
    EXPECT_EQ(parameter.ContainsFactor(9), nullptr);
}

TEST(RegrParameter, CovariatesAddUpTheirMultiplicity) {
    MIXRegrParameter parameter;
    EXPECT_EQ(parameter.AddCovariate(5, 1), 1);
    EXPECT_EQ(parameter.AddCovariate(5, 1), 2);
    EXPECT_EQ(parameter.AddCovariate(6, 3), 3);
    EXPECT_EQ(parameter.AddCovariate(5, 0), 0);
    EXPECT_EQ(parameter.AddCovariate(-2, 1), 0);
    EXPECT_EQ(parameter.GetCovariates(), (Ints{5, 6}));
    EXPECT_EQ(parameter.GetNCovariateMult(), 5);
    EXPECT_EQ(parameter.GetCovariateMult(5), 2);
    EXPECT_EQ(parameter.GetCovariateMult(7), 0);
    EXPECT_FALSE(parameter.IsIntercept());
}

TEST(RegrParameter, TakesOverAnEffectOrRefusesAndStaysAsItWas) {
    const OBS p = Number(1);
    MIXRegrParameter parameter;
    parameter.AddFactor(9, &p, 0);
    EXPECT_FALSE(parameter.SetupFromEffect(NestedEffect(), -1));
    EXPECT_FALSE(parameter.SetupFromEffect(MCModelEffect(), 0));
    EXPECT_EQ(parameter.GetEffectIndex(), -1);
    EXPECT_EQ(parameter.GetFactors(), (Ints{9}));
    EXPECT_TRUE(parameter.SetupFromEffect(NestedEffect(), 4));
    EXPECT_EQ(parameter.GetEffectIndex(), 4);
    EXPECT_EQ(parameter.GetFactors(), (Ints{1, 2, 3}));
    EXPECT_EQ(parameter.GetFactorNestLevels(), (Ints{0, 0, 1}));
    EXPECT_EQ(parameter.GetCategories(), (std::vector<const OBS*>(3, nullptr)));
    EXPECT_EQ(parameter.GetCovariates(), (Ints{5}));
    EXPECT_EQ(parameter.GetCovariateMultiplicities(), (Ints{2}));
}

TEST(RegrParameter, IdentityComparesPlacesOfValuesNotValues) {
    const OBS here = Number(1), there = Number(1);
    const auto make = [](int effect, int factor, const OBS* category, int covariate, const OBS* target) {
        MIXRegrParameter parameter;
        parameter.SetEffectIndex(effect);
        parameter.AddFactor(factor, category, 0);
        parameter.AddCovariate(covariate, 1);
        parameter.SetTargetCategory(target);
        return parameter;
    };
    const MIXRegrParameter one = make(0, 2, &here, 5, nullptr);
    EXPECT_TRUE(MIXRegrParameterIdentity::Same(one, make(0, 2, &here, 5, nullptr)));
    EXPECT_FALSE(MIXRegrParameterIdentity::Same(one, make(0, 2, &there, 5, nullptr)));
    EXPECT_FALSE(MIXRegrParameterIdentity::Same(one, make(1, 2, &here, 5, nullptr)));
    EXPECT_FALSE(MIXRegrParameterIdentity::Same(one, make(0, 3, &here, 5, nullptr)));
    EXPECT_FALSE(MIXRegrParameterIdentity::Same(one, make(0, 2, &here, 6, nullptr)));
    EXPECT_FALSE(MIXRegrParameterIdentity::Same(one, make(0, 2, &here, 5, &there)));
    MIXRegrParameter twice = one;
    twice.AddCovariate(5, 1);
    EXPECT_FALSE(MIXRegrParameterIdentity::Same(one, twice));
}

std::string ShownLongText(const std::string& text) {
    const std::unique_ptr<BpCellText> shown(MIXParameterAggregator::LongStrToComposite(text));
    return shown->Node()->Show(host::Catalogue::Current());
}

bool IsComposite(const std::string& text) {
    const std::unique_ptr<BpCellText> shown(MIXParameterAggregator::LongStrToComposite(text));
    return dynamic_cast<BpComposite*>(shown.get()) != nullptr;
}

TEST(LongTexts, ArePutTogetherFromPiecesOf255Bytes) {
    const std::string limit(255, 'x');
    EXPECT_FALSE(IsComposite(limit));
    EXPECT_TRUE(IsComposite(limit + "y"));
    EXPECT_EQ(ShownLongText(limit), limit);
    EXPECT_EQ(ShownLongText(limit + "y"), limit + "y");
    const std::string umlauts = "a" + [] {
        std::string text;
        for (int i = 0; i < 300; ++i)
            text += "\u00e4";
        return text;
    }();
    EXPECT_EQ(ShownLongText(umlauts), umlauts) << "a piece may end within a character";
    std::string cut(600, 'x');
    cut[300] = '\0';
    EXPECT_EQ(ShownLongText(cut), std::string(300, 'x') + std::string(90, 'x'));
    EXPECT_EQ(ShownLongText(std::string("ab\0cd", 5)), "ab");
    EXPECT_EQ(ShownLongText(""), "");
}

}  // namespace
