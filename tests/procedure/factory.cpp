#include "procedure/CommandRun.h"
#include "procedure/DebugSwitches.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXParameterAggregator.h"
#include "scripted/ScriptedEngine.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace {

using namespace procedure_test;

host::DataOptions SplitByRegion() {
    host::DataOptions options;
    options.fSplitBy = {"region"};
    return options;
}

/// Three regions of four rows, of which the one in the middle has no valid record.
host::TableBuilder RegionsWithAGap() {
    host::TableBuilder data;
    data.Numbers("y", {1, 2, 3, 4, kNaN, kNaN, kNaN, kNaN, 9, 10, 11, 12});
    data.Numbers("a", {1, 1, 2, 2, 1, 1, 2, 2, 1, 2, 1, 2});
    data.Texts("region", {"m", "m", "m", "m", "n", "n", "n", "n", "s", "s", "s", "s"});
    return data;
}

scripted::Outcome Fitted(const GLMMSettings& settings, const MCVarList& variables) {
    scripted::Outcome outcome;
    outcome.fStats = scripted::FullResults(settings, variables);
    return outcome;
}

/// A factory at work on a command, walked as the driver walks it.
struct Walk {
    explicit Walk(CommandRun& run) : fSpecs(run.CompletedSpecs()), fFactory(&fSpecs, run.Source(), &run.Procedure()) {}

    void MetaDataPass() {
        while (fFactory.StartNewSplit(true)) {
            fFactory.ProcedureDataPass(true);
            fFactory.CompleteMetaData();
        }
        fFactory.CreateParamAggregators();
    }
    /// What RunGLMMComponent says, split by split.
    Flags Fit() {
        MetaDataPass();
        Flags results;
        if (!fFactory.PrepareComponentRun(true)) return results;
        while (fFactory.StartNewSplit(true))
            results.push_back(fFactory.RunGLMMComponent());
        return results;
    }

    MIXValidSpecs& fSpecs;
    MIXFactory fFactory;
};

void OneFactor(CommandRun& run) {
    run.Factors({1});
    run.FixedRows(1, {1});
}

TEST(Factory, ASplitWithoutRecordsKeepsItsPlace) {
    const scripted::Scope engine(Fitted);
    CommandRun run(RegionsWithAGap(), SplitByRegion());
    OneFactor(run);
    Walk walk(run);
    MIXFactory& factory = walk.fFactory;
    EXPECT_EQ(walk.Fit(), (Flags{true, false, true}));
    EXPECT_EQ(factory.GetNRecords(), (Ints{4, 0, 4}));
    EXPECT_EQ(factory.GetSplitIndex(), 2);
    EXPECT_TRUE(factory.GetStatus().IsOK());
    EXPECT_EQ(run.Messages().size(), 1u);
    EXPECT_TRUE(factory.AggregateParameters());
    EXPECT_EQ(walk.fSpecs.GetValidSplits(), (Flags{true, false, true}));
    EXPECT_EQ(factory.GetFixParamAggr()->GetAllParameters().size(), 3u);
    EXPECT_TRUE(factory.GetRandomParamAggrs().empty());

    // The output walk: every split's objects are still there, and the empty one's are null.
    ASSERT_TRUE(factory.PrepareComponentRun(true));
    EXPECT_EQ(factory.GetGLMMAlgorithm(), nullptr);
    std::vector<bool> hasSettings, hasAlgorithm, hasRecords;
    while (factory.StartNewSplit(true)) {
        hasRecords.push_back(factory.ProcedureDataPass(false));
        hasSettings.push_back(factory.GetGLMMSettings() != nullptr);
        hasAlgorithm.push_back(factory.GetGLMMAlgorithm() != nullptr);
        EXPECT_EQ(factory.GetStatus().IsError(), !hasRecords.back());
    }
    const Flags expected = {true, false, true};
    EXPECT_EQ(hasRecords, expected);
    EXPECT_EQ(hasSettings, expected);
    EXPECT_EQ(hasAlgorithm, expected);
}

TEST(Factory, WithoutSplitsAnErrorStaysAndStopsTheRun) {
    const scripted::Scope engine(Fitted);
    host::TableBuilder data;
    data.Numbers("y", {kNaN, kNaN});
    data.Numbers("a", {1, 2});
    CommandRun run(std::move(data));
    OneFactor(run);
    Walk walk(run);
    EXPECT_TRUE(walk.Fit().empty());
    EXPECT_EQ(walk.fFactory.GetStatus().GetErrorCode(), 230024);
    EXPECT_FALSE(walk.fFactory.StartNewSplit(true));
    EXPECT_TRUE(walk.fFactory.GetStatus().IsError());
    EXPECT_FALSE(walk.fFactory.PrepareScoringPass());
    EXPECT_FALSE(run.Messages().empty());
}

TEST(Factory, AFailedFitLeavesTheNextSplitAtItsFirstRecord) {
    int split = 0;
    const scripted::Scope engine([&](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        if (split++ == 0) outcome.fConstruction = MCStatus(130018, false);
        return outcome;
    });
    CommandRun run(UsualData(), SplitByRegion());
    OneFactor(run);
    Walk walk(run);
    EXPECT_EQ(walk.Fit(), (Flags{false, true}));
    EXPECT_NE(walk.fFactory.GetOutputStats(), nullptr);
    EXPECT_EQ(run.Messages(), (std::vector<Said>{{2, "Error building model for split [%1 = %2:,^1 = ^2:]1..."}}));
}

/// What the user is told of a fit that ends with the statuses: in a run without splits, or in the first of two splits.
std::vector<Said> SaidOf(const MCStatus& build, const std::vector<MCStatus>& warnings, bool bySplit) {
    bool first = true;
    const scripted::Scope engine([&](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        if (first) {
            outcome.fBuild = build;
            outcome.fWarnings = warnings;
        }
        first = false;
        return outcome;
    });
    CommandRun run(UsualData(), bySplit ? SplitByRegion() : host::DataOptions());
    OneFactor(run);
    Walk walk(run);
    walk.Fit();
    return run.Messages();
}

TEST(FactoryMessages, LevelAndTextFollowSeverityAndSplits) {
    const MCStatus ok;
    const auto error = [](long code) { return MCStatus(code, false); };
    const auto warning = [](long code) { return MCStatus(code, true); };
    using All = std::vector<Said>;
    EXPECT_EQ(SaidOf(ok, {}, false), All{});
    EXPECT_EQ(SaidOf(error(130018), {}, false), (All{{3, "Error building model..."}}));
    EXPECT_EQ(SaidOf(error(130018), {}, true), (All{{2, "Error building model for split [%1 = %2:,^1 = ^2:]1..."}}));
    EXPECT_EQ(SaidOf(ok, {warning(130018)}, false), (All{{2, "Warning building model..."}}));
    EXPECT_EQ(SaidOf(error(230092), {}, true), (All{{2, "Perfect fit [%1=%2:,^1=^2:]1 ..."}}));
    for (const long code : {130032, 130051, 130075})
        EXPECT_EQ(SaidOf(error(code), {}, false), All{}) << code;
    for (const long code : {230036, 230038, 230087, 230094, 230095})
        EXPECT_EQ(SaidOf(ok, {warning(code)}, false), (All{{2, "Model validity is uncertain ..."}})) << code;
    EXPECT_EQ(SaidOf(ok, {warning(130070)}, false).at(0).fKey,
              "All convergence criteria are satisfied. but the final Hessian matrix is not positive definite.");
    EXPECT_EQ(SaidOf(error(999999), {}, false), (All{{3, "Internal error ..."}}));
    EXPECT_EQ(SaidOf(error(999999), {}, true), (All{{2, "Internal warning for split [%1 = %2:,^1 = ^2:]1 ..."}}));
    EXPECT_EQ(SaidOf(ok, {warning(999999)}, false), (All{{2, "Internal warning ..."}}));
}

TEST(FactoryMessages, TheProcedureSaysOnceThatItContinues) {
    const MCStatus halvings(130024, true);
    EXPECT_EQ(SaidOf(MCStatus(), {halvings, halvings}, false),
              (std::vector<Said>{{2, "Max number of step-halving reached ..."},
                                 {2, "Max number of step-halving reached ..."},
                                 {2, "^1 procedure continues ..."}}));
}

TEST(FactoryMessages, AMeansRequestIsNamedByItsNumberBeforeTheSplit) {
    MCStatus status(130035, true);
    status.AddDiscreteDatum(4);
    const scripted::Scope engine([&](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        outcome.fWarnings = {status};
        return outcome;
    });
    CommandRun run(UsualData(), SplitByRegion());
    OneFactor(run);
    Walk walk(run);
    walk.Fit();
    const Listener heard = run.Heard();
    ASSERT_EQ(heard.fvTexts.size(), 2u);
    const auto& message = dynamic_cast<const output::CompositeNode&>(*heard.fvTexts[1]);
    ASSERT_EQ(message.fvPlaces.size(), 2u);
    EXPECT_EQ(message.fvPlaces[0].fvTexts.at(0)->AsFigure()->fValue, 4.0);
    EXPECT_TRUE(message.fvPlaces[1].fList);
    const std::string shown = heard.fvTexts[1]->Show(host::Catalogue());
    EXPECT_NE(shown.find("4 for split file"), std::string::npos) << shown;
    EXPECT_NE(shown.find("region = s"), std::string::npos) << shown;
}

class FactoryFiles : public testing::Test {
protected:
    void SetUp() override {
        const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
        fDirectory = std::filesystem::path(testing::TempDir()) / (std::string("hierfit_") + test.name());
        std::filesystem::create_directories(fDirectory);
    }
    void TearDown() override { std::filesystem::remove_all(fDirectory); }
    std::string Path(const char* name) const { return (fDirectory / name).string(); }
    static std::string Content(const std::string& path) {
        std::ifstream stream(path);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::filesystem::path fDirectory;
};

TEST_F(FactoryFiles, TheJsonDocumentIsWrittenOrAnOldOneRemoved) {
    const scripted::Scope engine([](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        outcome.fStatJSON = "{}";
        return outcome;
    });
    for (const bool solution : {true, false}) {
        std::ofstream(Path("stat.json")) << "of an earlier run";
        CommandRun run;
        OneFactor(run);
        run.RandomBlock({0}, 17, {kSubject}, solution);
        run.Slot(1848, 1);
        run.Field(295, Path("stat.json"));
        run.Field(550, Path("stat.xml"));
        Walk walk(run);
        EXPECT_EQ(walk.Fit(), Flags{true});
        EXPECT_EQ(std::filesystem::exists(Path("stat.json")), solution);
        EXPECT_TRUE(std::filesystem::exists(Path("stat.xml")));
        if (solution) {
            EXPECT_EQ(Content(Path("stat.json")), "{}");
        }
    }
}

TEST_F(FactoryFiles, NothingIsWrittenForAFitThatFailed) {
    const scripted::Scope engine([](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        outcome.fBuild = MCStatus(130025, false);
        return outcome;
    });
    CommandRun run;
    OneFactor(run);
    run.Slot(1848, 2);
    run.Field(40, Path("model.xml"));
    run.Field(550, Path("stat.xml"));
    Walk walk(run);
    EXPECT_EQ(walk.Fit(), Flags{false});
    EXPECT_TRUE(std::filesystem::is_empty(fDirectory));
    EXPECT_EQ(walk.fFactory.GetGLMMAlgorithm()->GetOutputStats(), nullptr);
}

TEST(FactoryScoring, SavedVariablesGetFreeNamesAndATableEach) {
    const scripted::Scope engine(Fitted);
    host::TableBuilder data = UsualData();
    data.Numbers("PRED_1", std::vector<double>(12, 0.0));
    CommandRun run(std::move(data));
    OneFactor(run);
    const std::string longName(60, 'n');
    run.Slot(592, 3);
    for (const auto& [i, type] : {std::pair{0, 2}, {1, 3}, {2, 6}})
        run.Slot(1736 + 8 * i, type);
    run.Slot(1792 + 8, static_cast<std::int64_t>(run.Texts(longName + "    ")));
    Walk walk(run);
    EXPECT_EQ(walk.Fit(), Flags{true});
    const int firstMade = static_cast<int>(run.Source().ColumnCount());
    ASSERT_TRUE(walk.fFactory.PrepareScoringPass());
    EXPECT_EQ(walk.fFactory.GetSplitIndex(), -1);
    const auto made = [&](int i) -> const QVTA_Variable& { return run.Source().GetVariable(firstMade + i); };
    EXPECT_STREQ(made(0).GetName(), "PRED_2");
    EXPECT_EQ(made(1).GetName(), longName);
    EXPECT_STREQ(made(2).GetName(), "DFFIXP_1");
    EXPECT_EQ(made(0).GetDisplayWidth(), 42);
    EXPECT_EQ(made(1).GetDisplayWidth(), 50);
    EXPECT_EQ(made(2).GetDisplayWidth(), 10);
    EXPECT_EQ(made(0).GetMeasurementLevel(), QVTA_Variable_Enumerations::kScale);
    EXPECT_EQ(run.Heard().fvTables.size(), 3u);
}

TEST(FactoryScoring, EveryRecordGetsItsScores) {
    const scripted::Scope engine([](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        outcome.fScores = {0.25, 8.0};
        return outcome;
    });
    CommandRun run;
    OneFactor(run);
    run.Slot(592, 2);
    run.Slot(1736, 2);
    run.Slot(1744, 3);
    Walk walk(run);
    walk.Fit();
    ASSERT_TRUE(walk.fFactory.PrepareScoringPass());
    ASSERT_TRUE(walk.fFactory.StartNewSplit(true));
    EXPECT_TRUE(walk.fFactory.ScoringDataPass());
    for (int row = 0; row < 12; ++row) {
        EXPECT_EQ(run.Source().Impl().Saved(0).Cells()[row], 0.25) << row;
        EXPECT_EQ(run.Source().Impl().Saved(1).Cells()[row], 8.0) << row;
    }
}

TEST(FactoryDebug, RandomBlocksAreAggregatedOnlyUnderTheSwitch) {
    const scripted::Scope engine([](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome = Fitted(settings, variables);
        MCRegrParameter parameter;
        parameter.SetupFromEffect(settings.GetRandomSpecs()[0].GetEffects()[0], 0, false);
        parameter.GetCategories() = {0};
        outcome.fStats.fvGamma = {{parameter}};
        return outcome;
    });
    for (const bool on : {false, true}) {
        gbAggregateRandom = on;
        CommandRun run;
        OneFactor(run);
        run.RandomBlock({1}, 17, {kSubject});
        Walk walk(run);
        EXPECT_EQ(walk.Fit(), Flags{true});
        EXPECT_TRUE(walk.fFactory.AggregateParameters());
        EXPECT_EQ(walk.fFactory.GetRandomParamAggrs().at(0)->GetAllParameters().empty(), !on);
    }
    gbAggregateRandom = false;
}

}  // namespace
