#include "procedure/CommandRun.h"
#include "scripted/ScriptedEngine.h"
#include "tables/MIXParamEstimateOutput.h"
#include "tables/TreeReading.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

struct MIXParamEstimateOutputPeer {
    static double FindCorrelation(int row, int column, const MCSymMatrix& matrix) {
        return MIXParamEstimateOutput(nullptr).FindCorrelation(0, 0, row, column, matrix);
    }
};

namespace {

using namespace procedure_test;
using reading::TableView;
using testing::ElementsAre;
using testing::IsEmpty;
using Texts = std::vector<std::string>;
using Change = std::function<void(GLMMOutputStats&)>;

const double kMissing = MCMV::Missing();
constexpr int kCorb = 1928, kCovb = 1936, kSolution = 1992;

/// A run of the whole procedure, and what it wrote.
struct Finished {
    Finished(CommandRun& run, const scripted::Script& script) {
        const scripted::Scope engine(script);
        MixDriver(run.Block(), run.Procedure(), run.Source());
        static_cast<const output::Heading&>(*run.Procedure().Node()).Visit(fList);
    }
    TableView Table(const std::string& path) const {
        for (std::size_t i = 0; i < fList.fvPaths.size(); ++i) {
            if (fList.fvPaths[i] == path) return TableView(*fList.fvTables[i]);
        }
        ADD_FAILURE() << "no table " << path;
        return TableView(fNone);
    }
    reading::TableList fList;
    output::Table fNone;
};

scripted::Script Changed(const Change& change) {
    return [change](const GLMMSettings& settings, const MCVarList& variables) {
        scripted::Outcome outcome;
        outcome.fStats = scripted::FullResults(settings, variables);
        change(outcome.fStats);
        return outcome;
    };
}

void Nothing(GLMMOutputStats&) {}

/// y by a (1, 2) and x: parameters intercept, a=1, a=2, x.
void Model(CommandRun& run) {
    run.Factors({kA});
    run.Covariates({kX});
    run.FixedRows(3, {0, 0, 1, 0, 0, 1});
    run.Slot(136, 5 << 16 | 12 << 8 | 3);
    run.Slot(144, 5 << 16 | 11 << 8 | 6);
}

void AskForAll(CommandRun& run) {
    Model(run);
    for (const int option : {kCorb, kCovb, kSolution})
        run.Slot(option, 1);
}

TEST(ClassicTables, StandInTheirOrderAndOnlyWhereAsked) {
    CommandRun plain;
    Model(plain);
    EXPECT_THAT(Finished(plain, Changed(Nothing)).fList.fvPaths,
                ElementsAre("Information Criteria", "Fixed Effects > Type III Tests of Fixed Effects"));
    CommandRun all;
    AskForAll(all);
    all.Slot(1856, 1);
    const Finished finished(all, Changed(Nothing));
    EXPECT_THAT(finished.fList.fvPaths,
                ElementsAre("Information Criteria", "Fixed Effects > Type I Tests of Fixed Effects",
                            "Fixed Effects > Fixed Parameter Estimates", "Fixed Effects > Fixed Correlation Matrix",
                            "Fixed Effects > Fixed Covariance Matrix"));
    Texts subTypes;
    for (const auto* table : finished.fList.fvTables) {
        subTypes.push_back(reading::Shown(table->fpSubType));
        EXPECT_THAT(reading::Shown(table->fvNotes), ElementsAre("Dep variable is ^1 <y>"));
    }
    EXPECT_THAT(subTypes, ElementsAre("Information Criteria", "Tests of Fixed Effects", "Parameter Estimates",
                                      "Correlation Matrix", "Covariance Matrix"));
}

TEST(ClassicTables, InformationCriteriaFollowTheEstimationMethod) {
    struct {
        int fTheta;  ///< slot 320: 1 full, 2 restricted
        double fWeight, fL, fAkaike, fBozdogan;
    } const cases[] = {
        {2, 20, 100, 104, (std::log(17.0) + 1) * 2 + 100},
        {1, 20, 100, 110, (std::log(20.0) + 1) * 5 + 100},
        {2, 3, 100, 104, kMissing},
        {1, 0, 100, 110, kMissing},
        {2, 20, kMissing, kMissing, kMissing},
    };
    for (const auto& entry : cases) {
        CommandRun run;
        Model(run);
        run.Slot(320, entry.fTheta);
        const Finished finished(run, Changed([&](GLMMOutputStats& stats) {
                                    stats.fTotalFreqWeight = entry.fWeight;
                                    stats.fMinus2LogLikelihood = entry.fL;
                                    stats.fvTheta = {1.5, 2.5};
                                    stats.fKept.Set(2, false);
                                }));
        const TableView table = finished.Table("Information Criteria");
        const std::string first = entry.fTheta == 2 ? "-2 Restricted Log Likelihood" : "-2 Log Likelihood";
        EXPECT_EQ(reading::Shown(table.Table().fpCaption), "Smaller is better ...");
        EXPECT_TRUE(table.Dimension(0).fHideTitle);
        ASSERT_THAT(table.Categories(0),
                    ElementsAre(first, "Akaike IC", "Hurvich Tsai IC", "Bozdogan IC", "Bayesian IC"));
        EXPECT_EQ(table.Value({first}), entry.fL);
        EXPECT_EQ(table.Value({"Akaike IC"}), entry.fAkaike);
        EXPECT_EQ(table.Value({"Hurvich Tsai IC"}), 105);
        EXPECT_DOUBLE_EQ(table.Value({"Bozdogan IC"}), entry.fBozdogan);
        EXPECT_EQ(table.Value({"Bayesian IC"}), 110);
        EXPECT_EQ(table.At({first})->fpText->AsFigure()->fFormat.GetFormat(), (QVTA_Format{12, 5, 3}));
    }
}

TEST(ClassicTables, TestsHaveARowAnEffect) {
    CommandRun run;
    Model(run);
    const Finished finished(run, Changed([](GLMMOutputStats& stats) {
                                stats.fTypeIII = MCModelTestStats();
                                for (const double df : {12.0, 12.5, kMissing}) {
                                    stats.fTypeIII.Add({{1, df, 4.5, 0.04}, {}, {}, MCStatus()});
                                }
                            }));
    const TableView table = finished.Table("Fixed Effects > Type III Tests of Fixed Effects");
    EXPECT_THAT(table.Categories(0), ElementsAre("(Intercept)", "a", "x"));
    EXPECT_THAT(table.Categories(1), ElementsAre("Numerator DF", "Denominator DF", "F Value", "Significance"));
    EXPECT_EQ(table.Kind({"a", "Numerator DF"}), BpFormatSpec::kCount);
    EXPECT_EQ(table.Kind({"(Intercept)", "Denominator DF"}), BpFormatSpec::kCount);
    EXPECT_EQ(table.Kind({"a", "Denominator DF"}), BpFormatSpec::kGeneralStat);
    EXPECT_EQ(table.Value({"a", "Denominator DF"}), 12.5);
    EXPECT_EQ(table.Kind({"x", "Denominator DF"}), BpFormatSpec::kGeneralStat);
    EXPECT_EQ(table.Value({"x", "F Value"}), 4.5);
    EXPECT_EQ(table.Value({"x", "Significance"}), 0.04);

    CommandRun interceptOnly;
    interceptOnly.FixedRows(1, {});
    EXPECT_THAT(Finished(interceptOnly, Changed(Nothing))
                    .Table("Fixed Effects > Type III Tests of Fixed Effects")
                    .Categories(0),
                ElementsAre("(Intercept)"));
    CommandRun nothing;
    nothing.Slot(1896, 0);
    nothing.FixedRows(0, {});
    EXPECT_THAT(Finished(nothing, Changed(Nothing)).fList.fvPaths, ElementsAre("Information Criteria"));
}

TEST(ClassicTables, EstimatesShowWhatCouldBeComputed) {
    const std::string lower = "^1 Confidence Interval <95> / Lower Bound";
    const std::string upper = "^1 Confidence Interval <95> / Upper Bound";
    CommandRun run;
    AskForAll(run);
    const Finished finished(run, Changed([](GLMMOutputStats& stats) {
                                stats.fvBetaStats[0].fDF = 12.5;
                                stats.fvBetaStats[1].fDF = 0.0;
                                stats.fvBetaStats[1].fStdError = kMissing;
                                stats.fvBetaStats[2].fRedundant = true;
                                stats.fvBetaStats[3].fStdError = 0.0;
                                stats.fvWarnings = {MCStatus(230036, true), MCStatus(130070, true)};
                            }));
    const TableView table = finished.Table("Fixed Effects > Fixed Parameter Estimates");
    EXPECT_THAT(table.Categories(0), ElementsAre("(Intercept)", "[a=1]", "[a=2]", "x"));
    EXPECT_THAT(table.Categories(1),
                ElementsAre("B0", "Standard Error", "Degrees of Freedom", "t Statistic", "Significance", lower, upper));
    struct {
        std::string fRow;
        Doubles fValues;
    } const rows[] = {
        {"(Intercept)", {1, 0.1, 12.5, 10, 0.001, 0.5, 1.5}},
        {"[a=1]", {2, kMissing, kMissing, 10, 0.001, 1.5, 2.5}},
        {"[a=2]", {0, 0, kMissing, kMissing, kMissing, kMissing, kMissing}},
        {"x", {4, 0, kMissing, kMissing, kMissing, 3.5, 4.5}},
    };
    for (const auto& row : rows) {
        Doubles values;
        for (const auto& column : table.Categories(1))
            values.push_back(table.Value({row.fRow, column}));
        EXPECT_EQ(values, row.fValues) << row.fRow;
    }
    EXPECT_EQ(table.Kind({"(Intercept)", "B0"}), BpFormatSpec::kFormat);
    EXPECT_EQ(table.Kind({"[a=2]", "B0"}), BpFormatSpec::kCount);
    EXPECT_EQ(table.Kind({"(Intercept)", "Degrees of Freedom"}), BpFormatSpec::kGeneralStat);
    EXPECT_THAT(table.Notes({"[a=2]", "B0"}), ElementsAre("Redundant parameter ..."));
    EXPECT_THAT(table.Notes({"[a=1]", "B0"}), ElementsAre("Parameter caused Hessian singularity ..."));
    EXPECT_THAT(table.Notes({"x", "B0"}), IsEmpty());

    CommandRun regular;
    AskForAll(regular);
    const Finished without(regular, Changed([](GLMMOutputStats& stats) {
                               stats.fvBetaStats[1].fStdError = kMissing;
                               stats.fvWarnings = {MCStatus(230036, true)};
                           }));
    const TableView second = without.Table("Fixed Effects > Fixed Parameter Estimates");
    EXPECT_THAT(second.Notes({"[a=1]", "B0"}), IsEmpty());
    EXPECT_EQ(second.Kind({"[a=1]", "Degrees of Freedom"}), BpFormatSpec::kCount);
}

TEST(ClassicTables, MatricesMarkRedundantParameters) {
    CommandRun run;
    AskForAll(run);
    const Finished finished(run, Changed([](GLMMOutputStats& stats) {
                                stats.fvBetaStats[2].fRedundant = true;
                                stats.fCovBeta.SetElem(0, 0, 4.0);
                                stats.fCovBeta.SetElem(1, 1, 9.0);
                                stats.fCovBeta.SetElem(3, 3, 0.0);
                                stats.fCovBeta.SetElem(0, 1, -3.0);
                            }));
    const TableView corr = finished.Table("Fixed Effects > Fixed Correlation Matrix");
    EXPECT_DOUBLE_EQ(corr.Value({"(Intercept)", "[a=1]"}), -0.5);
    EXPECT_DOUBLE_EQ(corr.Value({"[a=1]", "(Intercept)"}), -0.5);
    EXPECT_EQ(corr.Kind({"[a=1]", "(Intercept)"}), BpFormatSpec::kCorrelation);
    EXPECT_EQ(corr.Value({"[a=1]", "[a=1]"}), 1.0);
    EXPECT_EQ(corr.Kind({"[a=1]", "[a=1]"}), BpFormatSpec::kCount);
    EXPECT_EQ(corr.Value({"[a=2]", "[a=2]"}), kMissing);
    EXPECT_THAT(corr.Notes({"[a=1]", "[a=2]"}), ElementsAre("Redundant correlation ..."));
    EXPECT_EQ(corr.Value({"x", "x"}), kMissing) << "a variance of 0";
    EXPECT_TRUE(corr.Dimension(0).fHideTitle && corr.Dimension(1).fHideTitle);
    const TableView cov = finished.Table("Fixed Effects > Fixed Covariance Matrix");
    EXPECT_EQ(cov.Value({"[a=1]", "(Intercept)"}), -3.0);
    EXPECT_EQ(cov.Value({"x", "x"}), 0.0);
    EXPECT_EQ(cov.Kind({"x", "x"}), BpFormatSpec::kFormat);
    EXPECT_EQ(cov.Kind({"[a=2]", "x"}), BpFormatSpec::kCount);
    EXPECT_THAT(cov.Notes({"[a=2]", "x"}), ElementsAre("Redundant covariance ..."));
}

TEST(ClassicTables, CorrelationsNeedVariancesAndACovariance) {
    MCSymMatrix matrix(3);
    matrix.SetElem(0, 0, 1e-300);
    matrix.SetElem(1, 1, 1e-300);
    matrix.SetElem(2, 2, -1.0);
    matrix.SetElem(0, 1, -5e-301);
    const auto find = MIXParamEstimateOutputPeer::FindCorrelation;
    EXPECT_DOUBLE_EQ(find(0, 1, matrix), -0.5) << "no underflow on the way";
    EXPECT_EQ(find(0, 0, matrix), 1.0);
    EXPECT_EQ(find(2, 2, matrix), kMissing);
    EXPECT_EQ(find(0, 2, matrix), kMissing);
    matrix.SetElem(0, 1, 0.0);
    EXPECT_EQ(find(0, 1, matrix), kMissing);
}

/// Three regions; the one in the middle has no valid record, and the others share one category of a.
CommandRun SplitRun() {
    host::TableBuilder data;
    data.Numbers("y", {1, 2, 3, kNaN, 5, 6, 7});
    data.Numbers("a", {1, 2, 2, 2, 3, 2, 3});
    data.Texts("region", {"n", "n", "n", "o", "s", "s", "s"});
    host::DataOptions options;
    options.fSplitBy = {"region"};
    return CommandRun(data, options);
}

void SplitModel(CommandRun& run) {
    run.Factors({1});
    run.FixedRows(2, {0, 1});
    for (const int option : {kCorb, kCovb, kSolution})
        run.Slot(option, 1);
}

const char* const kDocument = R"({"tables": [{"dimensions": [{"name": "Effects", "place": "row",
  "categories": ["Intercept"]}], "cells": [1.5]}]})";

TEST(ClassicTables, OfAllSplitsDeclareTheSameRows) {
    CommandRun run = SplitRun();
    SplitModel(run);
    const Finished finished(run, Changed(Nothing));
    ASSERT_EQ(finished.fList.fvTables.size(), 10u) << "five tables a split, none for the split without records";
    for (const char* region : {"region = n", "region = s"}) {
        const TableView table = finished.Table(std::string(region) + " > Fixed Effects > Fixed Parameter Estimates");
        EXPECT_THAT(table.Categories(0), ElementsAre("(Intercept)", "[a=1]", "[a=2]", "[a=3]"));
        const bool isNorth = region[9] == 'n';
        EXPECT_EQ(table.At({"[a=1]", "B0"}) != nullptr, isNorth);
        EXPECT_EQ(table.At({"[a=3]", "B0"}) != nullptr, !isNorth);
    }
}

TEST(ClassicTables, ASplitThatFailsShowsNothingAndStopsNothing) {
    const std::vector<std::function<void(scripted::Outcome&)>> failures = {
        [](scripted::Outcome& outcome) { outcome.fConstruction = MCStatus(130025, false); },
        [](scripted::Outcome& outcome) { outcome.fBuild = MCStatus(230092, false); },
        [](scripted::Outcome& outcome) { outcome.fHasStats = false; },
    };
    for (const auto& fail : failures) {
        CommandRun run = SplitRun();
        SplitModel(run);
        run.RandomBlock({1}, 17, {1}, 1);
        int splits = 0;
        const Finished finished(run, [&](const GLMMSettings& settings, const MCVarList& variables) {
            scripted::Outcome outcome;
            outcome.fStats = scripted::FullResults(settings, variables);
            outcome.fStatJSON = kDocument;
            if (splits++ == 0) fail(outcome);
            return outcome;
        });
        EXPECT_EQ(splits, 2);
        EXPECT_EQ(finished.fList.fvPaths.size(), 6u);
        for (const auto& path : finished.fList.fvPaths)
            EXPECT_EQ(path.rfind("region = s > ", 0), 0u) << path;
    }
    CommandRun single;
    AskForAll(single);
    const Finished finished(single, [](const GLMMSettings&, const MCVarList&) {
        scripted::Outcome outcome;
        outcome.fBuild = MCStatus(230092, false);
        return outcome;
    });
    EXPECT_THAT(finished.fList.fvPaths, IsEmpty());
}

TEST(ClassicTables, PredictionsComeFromTheDocument) {
    const std::string table = "Random Effects Parameters > Empirical Best Linear Unbiased Predictions";
    for (const bool isError : {false, true}) {
        CommandRun run;
        Model(run);
        run.RandomBlock({1, 0}, 17, {kSubject}, 1);
        const Finished finished(run, [&](const GLMMSettings& settings, const MCVarList& variables) {
            scripted::Outcome outcome;
            outcome.fStats = scripted::FullResults(settings, variables);
            outcome.fStatJSON = kDocument;
            if (isError) outcome.fStatJSONStatus = MCStatus(130009, false);
            return outcome;
        });
        EXPECT_EQ(finished.fList.fvPaths.size(), isError ? 2u : 3u);
        if (isError) continue;
        EXPECT_EQ(finished.Table(table).Value({"Intercept"}), 1.5);
    }
}

}  // namespace
