#include "procedure/CommandRun.h"

#include <gtest/gtest.h>

namespace {

using namespace procedure_test;

TEST(SpecsStore, HasTheDefaultsOfACommandThatSaysNothing) {
    CommandRun run;
    const MIXValidSpecs& specs = run.Specs();
    EXPECT_EQ(specs.GetCILevelPct(), 95.0);
    EXPECT_EQ(specs.GetMaxIter(), 100);
    EXPECT_EQ(specs.GetMaxStepHalving(), 10);
    EXPECT_EQ(specs.GetIterSep(), 20);
    EXPECT_EQ(specs.GetEstMethod(), 3);
    EXPECT_EQ(specs.GetMaxFisherSteps(), 1);
    EXPECT_EQ(specs.GetTolerance(), 1e-12);
    EXPECT_EQ(specs.GetPConvCrit(), 1e-6);
    for (const int index :
         {specs.GetDependVar(), specs.GetOffsetIndex(), specs.GetQVTAWeightIndex(), specs.GetRegrWeightIndex()})
        EXPECT_EQ(index, -1);
    EXPECT_TRUE(specs.GetInterceptInModel());
    EXPECT_FALSE(specs.GetOutFOptionStatJSON());
    EXPECT_EQ(specs.GetCompSettingsPtr(), nullptr);
    EXPECT_EQ(specs.GetVarValidSpecsPtr(), nullptr);
}

TEST(SpecsStore, FisherStepsDecideTheEstimationMethod) {
    CommandRun run;
    MIXValidSpecs& specs = run.Specs();
    specs.SetMaxFisherSteps(0);
    EXPECT_EQ(specs.GetEstMethod(), 2);
    specs.SetMaxFisherSteps(5);
    EXPECT_EQ(specs.GetEstMethod(), 3);
    EXPECT_EQ(specs.GetMaxFisherSteps(), 5);
}

/// A bad value is a fault of the caller: it stops a debugging build, and any other keeps the value that it has.
TEST(SpecsStore, GuardedSettersKeepTheOldValue) {
    CommandRun run;
    MIXValidSpecs& specs = run.Specs();
    EXPECT_DEBUG_DEATH(specs.SetIterSep(-1), "iterSep >= 0");
    EXPECT_DEBUG_DEATH(specs.SetHConvCrit(-1e-9), "convCrit >= 0.0");
    EXPECT_DEBUG_DEATH(specs.SetLConvCrit(kNaN), "convCrit >= 0.0");
    EXPECT_DEBUG_DEATH(specs.SetPConvCrit(-1.0), "convCrit >= 0.0");
    EXPECT_DEBUG_DEATH(specs.SetMaxIter(-1), "maxIter >= 0");
    EXPECT_DEBUG_DEATH(specs.SetMaxStepHalving(0), "maxStepHalving > 0");
    EXPECT_DEBUG_DEATH(specs.SetCILevelPct(100.0), "ciLevelPct < 100.0");
    EXPECT_DEBUG_DEATH(specs.SetTolerance(0.0), "toler > 0.0");
    EXPECT_DEBUG_DEATH(specs.SetPrintHistPar(0), "printHistPar > 0");
    specs.SetMaxFisherSteps(0);
    EXPECT_DEBUG_DEATH(specs.SetMaxFisherSteps(-3), "maxFisherSteps >= 0");
    EXPECT_DEBUG_DEATH(EXPECT_EQ(specs.GetContrastString(0), ""), "emmeansIndex < GetNEMMeans");
    EXPECT_EQ(specs.GetIterSep(), 20);
    EXPECT_EQ(specs.GetHConvCrit(), 0.0);
    EXPECT_EQ(specs.GetLConvCrit(), 0.0);
    EXPECT_EQ(specs.GetPConvCrit(), 1e-6);
    EXPECT_EQ(specs.GetMaxIter(), 100);
    EXPECT_EQ(specs.GetMaxStepHalving(), 10);
    EXPECT_EQ(specs.GetCILevelPct(), 95.0);
    EXPECT_EQ(specs.GetTolerance(), 1e-12);
    EXPECT_EQ(specs.GetPrintHistPar(), 1);
    EXPECT_EQ(specs.GetMaxFisherSteps(), 0);
    EXPECT_EQ(specs.GetEstMethod(), 2);
}

TEST(SpecsStore, OutcomeClassesFollowTheStatusCode) {
    CommandRun run;
    const MIXValidSpecs& specs = run.Specs();
    const struct {
        long fCode;
        int fClass;
        int fDirection;
    } cases[] = {{230036, 3, 0}, {230037, 4, 0}, {230038, 6, 0}, {230087, 3, -1}, {230092, 8, 0},
                 {230094, 2, 0}, {230095, 3, 1}, {0, 0, 0},      {130024, 0, 0}};
    for (const auto& each : cases) {
        int direction = 99;
        EXPECT_EQ(specs.GetConvCode(each.fCode, &direction), each.fClass) << each.fCode;
        EXPECT_EQ(direction, each.fDirection) << each.fCode;
        EXPECT_EQ(specs.GetConvCode(each.fCode, nullptr), each.fClass) << each.fCode;
    }
}

TEST(SpecsStore, MeansListsAreReplacedTogetherOrNotAtAll) {
    CommandRun run;
    MIXValidSpecs& specs = run.Specs();
    const std::vector<MCEmmeansSpec> two(2);
    const std::vector<MIXValidSpecs::ContrastPair> pairs(2);
    const std::vector<MIXValidSpecs::RefCatTypes> types(2, MIXValidSpecs::RefCatLast);
    specs.SetEMMeansSpec(two, pairs, {"u", "v"}, types, {{}, {}});
    EXPECT_EQ(specs.GetNEMMeans(), 2);
    EXPECT_EQ(specs.GetContrastString(1), "v");
    EXPECT_DEBUG_DEATH(specs.SetEMMeansSpec({}, pairs, {}, {}, {}), "nEMMeans == nContrasts");
    EXPECT_EQ(specs.GetNEMMeans(), 2);
}

}  // namespace
