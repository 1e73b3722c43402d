#include "procedure/CommandRun.h"
#include "procedure/DebugSwitches.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXParameterAggregator.h"
#include "procedure/MIXParameterMap.h"
#include "scripted/ScriptedEngine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace procedure_test;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;

const std::string kLong = "a text of more than eight bytes, ";

/// Columns y, a, text, x, subject, other and region; the parameters' categories differ from region to region.
host::TableBuilder Regions(const Doubles& y, const Doubles& a, const Texts& text, const Texts& region) {
    host::TableBuilder data;
    const Doubles count(y.size(), 1.0);
    data.Numbers("y", y);
    data.Numbers("a", a);
    data.Texts("text", text);
    data.Numbers("x", count);
    data.Numbers("subject", count);
    data.Numbers("other", count);
    data.Texts("region", region);
    return data;
}

enum Columns { kTarget, kFactor, kText, kCovariate, kWho, kOther };

/// North has a in (2, 1), middle no record, south a in (2, 3) and another text.
host::TableBuilder ThreeRegions() {
    return Regions({1, 2, 3, kNaN, 5, 6, 7}, {2, 1, 1, 4, 3, 2, 3},
                   {kLong + "1", kLong + "1", kLong + "2", kLong + "9", kLong + "3", kLong + "1", kLong + "1"},
                   {"n", "n", "n", "o", "s", "s", "s"});
}

host::DataOptions ByRegion() {
    host::DataOptions options;
    options.fSplitBy = {"region"};
    return options;
}

scripted::Outcome Fitted(const GLMMSettings& settings, const MCVarList& variables) {
    scripted::Outcome outcome;
    outcome.fStats = scripted::FullResults(settings, variables);
    return outcome;
}

/// A command walked through all splits, up to the labels.
struct Walk {
    explicit Walk(CommandRun& run, int order = 0, scripted::Script script = Fitted)
        : fScript(std::move(script)), fSpecs(run.CompletedSpecs()), fFactory(&fSpecs, run.Source(), &run.Procedure()) {
        fSpecs.SetFactorSortOrder(order);
        while (fFactory.StartNewSplit(true)) {
            fFactory.ProcedureDataPass(true);
            fFactory.CompleteMetaData();
        }
        fFactory.CreateParamAggregators();
        fFactory.PrepareComponentRun(true);
        while (fFactory.StartNewSplit(true))
            fFactory.RunGLMMComponent();
        fOk = fFactory.AggregateParameters();
    }
    const MIXParameterAggregator& Fixed() const { return *fFactory.GetFixParamAggr(); }
    const Texts& Labels() const { return Fixed().GetAllParamLabels(false); }

    scripted::Scope fScript;
    MIXValidSpecs& fSpecs;
    MIXFactory fFactory;
    bool fOk = false;
};

TEST(Aggregation, NumbersTheParametersOfAllSplitsByCategory) {
    CommandRun run(ThreeRegions(), ByRegion());
    run.Factors({kFactor});
    run.FixedRows(2, {0, 1});
    Walk walk(run);
    ASSERT_TRUE(walk.fOk);
    const MIXParameterAggregator& fixed = walk.Fixed();
    EXPECT_THAT(walk.Labels(), ElementsAre("(Intercept)", "[a=1]", "[a=2]", "[a=3]"));
    EXPECT_EQ(fixed.GetAllParamLabels(true), walk.Labels());
    EXPECT_THAT(fixed.GetAllEffectLabels(true), ElementsAre("a"));
    const int kSplits = 3, kGlobals = 4;
    const int local[kSplits][kGlobals] = {{0, 1, 2, -1}, {0, -1, -1, -1}, {0, -1, 1, 2}};
    for (int split = 0; split < kSplits; ++split) {
        for (int global = 0; global < kGlobals; ++global) {
            EXPECT_EQ(fixed.GetLocalParamIndex(split, global), local[split][global]) << split << " " << global;
        }
    }
    EXPECT_EQ(fixed.GetGlobalParamIndex(2, 1), 2);
    EXPECT_EQ(fixed.GetGlobalParamIndex(2, 2), 3);
    for (const auto& [split, index] : {std::pair(1, 0), {0, 10000}, {0, -1}, {-1, 0}, {3, 0}}) {
        EXPECT_EQ(fixed.GetGlobalParamIndex(split, index), -1) << split << " " << index;
    }
    EXPECT_EQ(fixed.GetLocalParamIndex(0, 10000), -1);
    EXPECT_EQ(fixed.GetLocalParamIndex(3, 0), -1);
}

TEST(Aggregation, KeepsLongTextsApartAndOrdersByTheSpecification) {
    struct {
        int fOrder;
        Texts fLabels;
    } const cases[] = {
        {0, {"[text=" + kLong + "1]", "[text=" + kLong + "2]", "[text=" + kLong + "3]"}},
        {1, {"[text=" + kLong + "3]", "[text=" + kLong + "2]", "[text=" + kLong + "1]"}},
        {7, {"[text=" + kLong + "1]", "[text=" + kLong + "2]", "[text=" + kLong + "3]"}},
    };
    for (const auto& entry : cases) {
        CommandRun run(ThreeRegions(), ByRegion());
        run.Slot(1896, 0);
        run.Factors({kText});
        run.FixedRows(1, {1});
        const Walk walk(run, entry.fOrder);
        EXPECT_EQ(walk.Labels(), entry.fLabels);
    }
    CommandRun run(Regions({1, 2, 3}, {2, 3, 1}, {"", "", ""}, {"", "", ""}));
    run.Slot(1896, 0);
    run.Factors({kFactor});
    run.FixedRows(1, {1});
    EXPECT_THAT(Walk(run, 2).Labels(), ElementsAre("[a=2]", "[a=3]", "[a=1]")) << "data order";
}

TEST(Aggregation, PutsTermsTogetherByTheirNestingAndSubjects) {
    struct {
        Cells fRow;  ///< levels of a and text, multiplicities of x and other
        std::string fEffect;
        std::string fParameter;
    } const cases[] = {
        {{1, 0, 0, 0}, "a", "[a=1]"},
        {{1, 1, 0, 0}, "a * text", "[a=1] * [text=t]"},
        {{2, 1, 0, 0}, "a(text)", "[a=1]([text=t])"},
        {{1, 2, 0, 0}, "text(a)", "[text=t]([a=1])"},
        {{0, 0, 2, 0}, "x * x", "x * x"},
        {{0, 0, 1, 1}, "x * other", "x * other"},
        {{2, 1, 2, 1}, "a(text) * x * x * other", "[a=1]([text=t]) * x * x * other"},
    };
    for (const auto& entry : cases) {
        CommandRun run(Regions({1, 2}, {1, 1}, {"t", "t"}, {"n", "s"}), ByRegion());
        run.Slot(1896, 0);
        run.Factors({kFactor, kText});
        run.Covariates({kCovariate, kOther});
        run.FixedRows(1, entry.fRow);
        run.RandomBlock(entry.fRow, 17, {kWho, kOther});
        gbAggregateRandom = true;
        const Walk walk(run);
        gbAggregateRandom = false;
        ASSERT_TRUE(walk.fOk);
        EXPECT_THAT(walk.Labels(), ElementsAre(entry.fParameter));
        EXPECT_THAT(walk.Fixed().GetAllEffectLabels(false), ElementsAre(entry.fEffect));
        const MIXParameterAggregator& random = *walk.fFactory.GetRandomParamAggrs()[0];
        EXPECT_THAT(random.GetAllParamLabels(false), ElementsAre(entry.fParameter));
        EXPECT_THAT(random.GetAllParamLabels(true), ElementsAre(entry.fParameter + " | subject * other"));
        EXPECT_THAT(random.GetAllEffectLabels(true), ElementsAre(entry.fEffect + "[subject = subject * other]"));
    }
}

TEST(Aggregation, GivesTheLabelsThatTheSplitsOwnMapGives) {
    CommandRun run(Regions({1, 2, 3}, {2, 1, 2}, {"t", "u", "u"}, {"", "", ""}));
    run.Factors({kFactor, kText});
    run.Covariates({kCovariate});
    run.FixedRows(4, {0, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0, 1});
    Walk walk(run);
    const MIXParameterAggregator& fixed = walk.Fixed();
    const GLMMSettings& settings = *walk.fFactory.GetGLMMSettings();
    const auto& parameters = walk.fFactory.GetOutputStats()->GetBetaParameters();
    MIXParameterMap map(&walk.fSpecs, run.Source(), walk.fFactory.GetInputAdapter());
    map.CreateParameterMap({}, settings.GetModelEffects());
    EXPECT_EQ(map.GetParamMapSize(), 0);
    map.CreateParameterMap(parameters, settings.GetModelEffects());
    ASSERT_EQ(map.GetParamMapSize(), 8);
    for (int i = 0; i < map.GetParamMapSize(); ++i) {
        EXPECT_EQ((*map.GetParameterMap(false))[i], walk.Labels()[fixed.GetGlobalParamIndex(0, i)]);
    }
    EXPECT_EQ(*map.GetParameterMap(true), *map.GetParameterMap(false));
    EXPECT_THAT((*map.GetParamMapsEff(false))[0], ElementsAre("[a=1]", "[a=2]"));
    EXPECT_THAT((*map.GetParamMapsEff(true))[2], ElementsAre("x"));
    map.CreateEffectMap(settings.GetModelEffects(), {walk.fSpecs.GetVarValidSpecsPtr()->GetRecVarIndex(kCovariate)});
    map.CreateEffectMap(settings.GetModelEffects());
    EXPECT_THAT(*map.GetEffectMap(false), ElementsAre("a", "a * text * x", "x"));
    EXPECT_EQ(map.GetEffectMapSize(), 3);
    EXPECT_EQ((*map.GetEffectMap(true))[0], "a[subject = x]");
}

TEST(Aggregation, EncodesCategoriesOfAnotherSplitOnlyWhereTheyOccur) {
    CommandRun run(ThreeRegions(), ByRegion());
    run.Factors({kFactor});
    run.FixedRows(2, {0, 1});
    Walk walk(run);
    const ACAInputAdapter* south = walk.fFactory.GetInputAdapter();
    const GLMMSettings& settings = *walk.fFactory.GetGLMMSettings();
    const int codes[] = {-1, -1, 0, 1};
    for (int global = 1; global < 4; ++global) {
        MCRegrParameter target;
        const bool occurs = codes[global] >= 0;
        EXPECT_EQ(walk.Fixed().GetAllParameters()[global].EncodeCategories(target, settings, south, -1), occurs);
        if (occurs) {
            EXPECT_THAT(target.GetCategories(), ElementsAre(codes[global]));
        }
    }
    MCRegrParameter unknown;
    unknown.SetupFromEffect(settings.GetModelEffects()[0], 0, false);
    unknown.GetCategories()[0] = 77;
    MIXRegrParameter decoded;
    decoded.SetEffectIndex(0);
    EXPECT_FALSE(decoded.DecodeCategories(unknown, settings, south, -1));
}

TEST(Aggregation, TakesSplitsThatFailAndRunsThatHaveNone) {
    CommandRun failing(ThreeRegions(), ByRegion());
    failing.Factors({kFactor});
    failing.FixedRows(2, {0, 1});
    const Walk walk(failing, 0, [](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        outcome.fBuild = MCStatus(230092, false);
        return outcome;
    });
    EXPECT_TRUE(walk.fOk);
    EXPECT_THAT(walk.Labels(), ElementsAre("(Intercept)"));

    CommandRun empty(Regions({}, {}, {}, {}), ByRegion());
    empty.Factors({kFactor});
    empty.FixedRows(2, {0, 1});
    MIXValidSpecs& specs = empty.CompletedSpecs();
    MIXFactory factory(&specs, empty.Source(), &empty.Procedure());
    MIXParameterAggregator none(specs, factory.GetInputAdapter(), empty.Source(), -1, 0);
    EXPECT_TRUE(none.CreateAggregationMaps());
    EXPECT_EQ(none.GetLocalParamIndex(0, 0), -1);
    EXPECT_THAT(none.GetAllEffectLabels(false), ElementsAre("a"));
#ifdef NDEBUG
    EXPECT_FALSE(none.CreateAggregationMaps());
#else
    EXPECT_DEATH(none.CreateAggregationMaps(), "fbParamAggregated");
#endif
}

}  // namespace
