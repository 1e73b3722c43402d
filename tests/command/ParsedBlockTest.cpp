#include "command/Command.h"

#include <bit>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using commandtest::Specify;
using commandtest::Tree;
using testing::ElementsAre;

namespace {

/// A written block, read as its reader would: slots by byte offset, cells by one-based position.
class Block {
public:
    explicit Block(const std::string& text)
        : fBlock(command::WriteBlock(Specify(Tree("HIERFIT /FIELDS TARGET=y " + text)))) {}

    std::int64_t Slot(int offset) const { return fBlock.SlotCells()[offset / 8]; }
    double Real(int offset) const { return std::bit_cast<double>(Slot(offset)); }
    std::int64_t Cell(std::int64_t position) const { return fBlock.CellArray().at(position - 1); }
    double RealCell(std::int64_t position) const { return std::bit_cast<double>(Cell(position)); }

    std::vector<std::int64_t> Cells(std::int64_t position, std::int64_t count) const {
        std::vector<std::int64_t> list;
        for (std::int64_t k = 0; k < count; ++k)
            list.push_back(Cell(position + k));
        return list;
    }
    std::vector<std::int64_t> List(int countOffset, int startOffset) const {
        return Cells(Slot(startOffset), Slot(countOffset));
    }
    std::vector<double> Reals(std::int64_t position, std::int64_t count) const {
        std::vector<double> list;
        for (std::int64_t k = 0; k < count; ++k)
            list.push_back(RealCell(position + k));
        return list;
    }
    std::string TextAt(std::int64_t position, std::size_t length) const {
        return {reinterpret_cast<const char*>(&fBlock.CellArray().at(position - 1)), length};
    }
    std::string Field(std::size_t offset) const {
        return {fBlock.TextBytes().data() + offset, command::text::kFieldLength};
    }
    std::int64_t Record(int headOffset, double ordinal) const {
        const double head = Real(headOffset);
        return TMCGET(reinterpret_cast<const long long*>(fBlock.CellArray().data()),
                      reinterpret_cast<const double*>(fBlock.CellArray().data()), &head, &ordinal);
    }

private:
    command::ParsedBlock fBlock;
};

TEST(ParsedBlock, DefaultsAreWrittenOut) {
    const Block block("");
    EXPECT_EQ(block.Real(0), 95.0);
    EXPECT_EQ(block.Real(8), 0.0);
    EXPECT_EQ(block.Real(16), 0.0);
    EXPECT_EQ(block.Real(64), 1e-6);
    EXPECT_EQ(block.Real(80), 1e-12);
    const std::vector<std::pair<int, int>> integers{{104, 1},   {120, 2},   {152, 1},  {240, 1},  {248, 1},  {280, 1},
                                                    {320, 2},   {344, 100}, {352, 10}, {392, 1},  {400, 0},  {656, 1},
                                                    {1680, 12}, {1720, 0},  {1848, 0}, {1856, 3}, {1896, 1}, {1912, 0}};
    for (const auto& [offset, value] : integers)
        EXPECT_EQ(block.Slot(offset), value) << offset;
    for (int offset = 1920; offset <= 1992; offset += 8)
        EXPECT_EQ(block.Slot(offset), 0) << offset;
    EXPECT_EQ(block.Field(40), std::string(255, ' '));
}

TEST(ParsedBlock, ScalarsReachTheirSlots) {
    const Block block(
        "REGRESSION_WEIGHT=z /BUILD_OPTIONS METHOD=ML DF_METHOD=KENWARD_ROGER ANALYSIS_TYPE=1 CONFIDENCE_LEVEL=90 "
        "MAX_ITERATIONS=7 MAX_STEP_HALVINGS=3 FISHER_STEPS=0 LOGLIKELIHOOD_CONVERGENCE=1e-9 RELATIVE "
        "PARAMETER_CONVERGENCE=1e-5 RELATIVE HESSIAN_CONVERGENCE=1e-10 ABSOLUTE SINGULARITY=1e-11 USER_MISSING=INCLUDE "
        "CRITERIA_FORMAT=F9.1 ESTIMATE_FORMAT=F20.10 /PRINT CPS CORB COVB TESTCOV VARIABLEINFO GMATRIX HISTORY(4) "
        "LMATRIX "
        "RMATRIX SOLUTION /OUTFILE PARAMETER='p.xml' STATXML='s.xml' STATJSON='s.json' /FIXED INTERCEPT=NO EFFECTS=x");
    const std::vector<std::pair<int, double>> reals{{0, 90}, {8, 1e-10}, {16, 1e-9}, {64, 1e-5}, {80, 1e-11}};
    for (const auto& [offset, value] : reals)
        EXPECT_EQ(block.Real(offset), value) << offset;
    const std::vector<std::pair<int, int>> integers{{120, 3},
                                                    {136, 5 << 16 | 9 << 8 | 1},
                                                    {144, 5 << 16 | 20 << 8 | 10},
                                                    {152, 1},
                                                    {240, 4},
                                                    {248, 0},
                                                    {280, 2},
                                                    {320, 1},
                                                    {344, 7},
                                                    {352, 3},
                                                    {392, 1},
                                                    {656, 2},
                                                    {1720, 3},
                                                    {1848, 1},
                                                    {1856, 1},
                                                    {1896, 0},
                                                    {1912, 1}};
    for (const auto& [offset, value] : integers)
        EXPECT_EQ(block.Slot(offset), value) << offset;
    for (int offset = 1920; offset <= 1992; offset += 8)
        EXPECT_EQ(block.Slot(offset), 1) << offset;
    EXPECT_EQ(block.Field(40), "p.xml" + std::string(250, ' '));
    EXPECT_EQ(block.Field(295), "s.json" + std::string(249, ' '));
    EXPECT_EQ(block.Field(550), "s.xml" + std::string(250, ' '));
    EXPECT_EQ(Block("/OUTFILE STATXML=s").Slot(1848), 2);
}

TEST(ParsedBlock, EffectRowsHoldNestingLevelsAndPowers) {
    const Block block("FACTORS=b a c COVARIATES=z x /FIXED EFFECTS=a b(a) c*b(a) c(b(a)) x*x*z x(a) z*a");
    EXPECT_THAT(block.List(416, 792), ElementsAre(5, 4, 6));
    EXPECT_THAT(block.List(368, 672), ElementsAre(3, 2));
    ASSERT_EQ(block.Slot(392), 8);
    const std::vector<std::vector<std::int64_t>> rows{{0, 0, 0, 0, 0},  {0, 1, 0, 0, 0}, {2, 1, 0, 0, 0},
                                                      {2, 1, 2, 0, 0},  {2, 1, 3, 0, 0}, {0, 0, 0, 1, 2},
                                                      {0, 1, 0, 0, -1}, {0, 1, 0, 1, 0}};
    for (std::size_t row = 0; row < rows.size(); ++row)
        EXPECT_EQ(block.Cells(block.Slot(768) + 5 * static_cast<std::int64_t>(row), 5), rows[row]) << row;
}

TEST(ParsedBlock, RandomTablesAreIndexedByBlockOrByRow) {
    const Block block(
        "/RANDOM EFFECTS=INTERCEPT x SUBJECTS=g h COVARIANCE_TYPE=UN "
        "/RANDOM EFFECTS=a COVARIANCE_TYPE=VC SOLUTION=YES /RANDOM EFFECTS=INTERCEPT SUBJECTS=h");
    EXPECT_EQ(block.Slot(400), 4);
    EXPECT_EQ(block.Slot(512), 3);
    EXPECT_THAT(block.Cells(block.Slot(1040), 3), ElementsAre(2, 1, 1));
    EXPECT_THAT(block.Cells(block.Slot(1456), 3), ElementsAre(0, 1, 0));
    EXPECT_EQ(block.Cell(block.Slot(1216) + 0), 15);
    EXPECT_EQ(block.Cell(block.Slot(1216) + 2), 17);
    EXPECT_EQ(block.Cell(block.Slot(1304) + 0), 2);
    EXPECT_EQ(block.Cell(block.Slot(1304) + 2), 0);
    EXPECT_EQ(block.Cell(block.Slot(1304) + 3), 1);
    EXPECT_THAT(block.Cells(block.Cell(block.Slot(1416)), 2), ElementsAre(7, 8));
    EXPECT_THAT(block.Cells(block.Cell(block.Slot(1416) + 3), 1), ElementsAre(8));
    EXPECT_THAT(block.List(608, 1504), ElementsAre(7, 8));
    EXPECT_THAT(block.Cells(block.Slot(784), 8), ElementsAre(0, 0, 0, 1, 1, 0, 0, 0));
}

TEST(ParsedBlock, RepeatedBlockWithPairsAndPlaces) {
    const Block kronecker(
        "/DATA_STRUCTURE SUBJECTS=g REPEATED_MEASURES=a Day b KRONECKER_MEASURES=b a COVARIANCE_TYPE=UN_AR1");
    EXPECT_EQ(kronecker.Slot(1680), 27);
    EXPECT_THAT(kronecker.List(552, 1200), ElementsAre(7));
    EXPECT_THAT(kronecker.List(576, 1384), ElementsAre(4, 9, 5));
    EXPECT_THAT(kronecker.List(560, 1360), ElementsAre(5, 4));
    EXPECT_THAT(kronecker.List(568, 1344), ElementsAre(2));
    EXPECT_THAT(kronecker.Cells(kronecker.Slot(1328), 2), ElementsAre(3, 1));
    const Block places("/DATA_STRUCTURE SPCOORDS=x z COVARIANCE_TYPE=SPGAU");
    EXPECT_EQ(places.Slot(1680), 22);
    EXPECT_THAT(places.List(584, 1376), ElementsAre(2, 3));
    EXPECT_EQ(Block("/DATA_STRUCTURE SUBJECTS=g REPEATED_MEASURES=Day").Slot(1680), 8);
}

TEST(ParsedBlock, SavedVariablesHaveTypesAndPaddedNames) {
    const Block block("/SAVE DFPRED FXPRED(fx) RESID");
    EXPECT_EQ(block.Slot(592), 3);
    EXPECT_EQ(block.Slot(1736), 7);
    EXPECT_EQ(block.Slot(1744), 1);
    EXPECT_EQ(block.Slot(1752), 3);
    EXPECT_EQ(block.Slot(1792), 0);
    EXPECT_EQ(block.TextAt(block.Slot(1800), 64), "fx" + std::string(62, ' '));
}

TEST(ParsedBlock, MeansRecordsHangInAChain) {
    const Block block(
        "FACTORS=b c a COVARIATES=x z /FIXED EFFECTS=a c x z /EMMEANS /EMMEANS TABLES=a*c COMPARE=c CONTRAST=SIMPLE "
        "REFERENCE='mid' AT=z(2.50) ADJUST=LSD /EMMEANS TABLES=b CONTRAST=SIMPLE REFERENCE=3 /EMMEANS TABLES=a "
        "CONTRAST=DEVIATION /EMMEANS TABLES=a CONTRAST=SIMPLE REFERENCE=FIRST");
    ASSERT_EQ(block.Slot(408), 5);
    const std::int64_t grand = block.Record(1104, 1), simple = block.Record(1104, 2), number = block.Record(1104, 3);
    EXPECT_THAT(block.Reals(grand + 1, 1), ElementsAre(0));
    EXPECT_THAT(block.Reals(grand + 3, 1), ElementsAre(0));
    EXPECT_THAT(block.Reals(grand + 5, 2), ElementsAre(1, 0));
    EXPECT_EQ(block.RealCell(simple + 1), 2);
    EXPECT_THAT(block.Cells(static_cast<std::int64_t>(block.RealCell(simple + 2)), 2), ElementsAre(3, 2));
    EXPECT_EQ(block.RealCell(simple + 3), 2);
    const auto entries = static_cast<std::int64_t>(block.RealCell(simple + 4));
    EXPECT_GE(block.RealCell(entries), 0.0);
    EXPECT_LT(block.RealCell(entries + 4), 0.0);
    EXPECT_EQ(block.RealCell(entries + 5), 2.5);
    EXPECT_EQ(block.RealCell(entries + 6), 4);
    EXPECT_EQ(block.TextAt(static_cast<std::int64_t>(block.RealCell(entries + 7)), 4), "2.50");
    EXPECT_THAT(block.Reals(simple + 5, 3), ElementsAre(1, 2, 3));
    EXPECT_EQ(block.TextAt(static_cast<std::int64_t>(block.RealCell(simple + 8)), 12), "mid" + std::string(9, ' '));
    EXPECT_THAT(block.Reals(number + 6, 2), ElementsAre(1, 3));
    EXPECT_EQ(block.RealCell(block.Record(1104, 4) + 6), 4);
    EXPECT_EQ(block.RealCell(block.Record(1104, 5) + 6), 3);
}

TEST(ParsedBlock, TestRecordsHoldCountsAndRows) {
    const Block block(
        "/FIXED EFFECTS=a x /RANDOM EFFECTS=INTERCEPT x SUBJECTS=g /TEST LABEL='first' ROWS=INTERCEPT(1) a(1 -1) | "
        "x(2); "
        "a(0 0 1) K=0.5 -1 /TEST ROWS=ALL(1 2 3)|ALL(4 5); ALL(6)|ALL(7)");
    ASSERT_EQ(block.Slot(616), 2);
    const std::int64_t effects = block.Record(1120, 1), all = block.Record(1120, 2);
    EXPECT_NE(block.RealCell(effects), 1.0);
    EXPECT_EQ(block.RealCell(effects + 1), 2);
    EXPECT_THAT(block.Cells(static_cast<std::int64_t>(block.RealCell(effects + 2)), 3), ElementsAre(1, 3, 0));
    EXPECT_THAT(block.Cells(static_cast<std::int64_t>(block.RealCell(effects + 3)), 2), ElementsAre(0, 1));
    EXPECT_THAT(block.Reals(static_cast<std::int64_t>(block.RealCell(effects + 4)), 10),
                ElementsAre(1, 1, -1, 0, 2, 0, 0, 0, 1, 0));
    EXPECT_EQ(block.RealCell(effects + 5), 5);
    EXPECT_EQ(block.TextAt(static_cast<std::int64_t>(block.RealCell(effects + 6)), 5), "first");
    EXPECT_THAT(block.Reals(static_cast<std::int64_t>(block.RealCell(effects + 7)), 2), ElementsAre(0.5, -1));
    EXPECT_THAT(block.Reals(all, 4), ElementsAre(1, 2, 3, 2));
    EXPECT_THAT(block.Reals(static_cast<std::int64_t>(block.RealCell(all + 4)), 10),
                ElementsAre(1, 2, 3, 4, 5, 6, 0, 0, 7, 0));
    EXPECT_EQ(block.RealCell(all + 7), 0);
}

TEST(ParsedBlock, WhatTheBlockHasNoSlotForGoesIntoTheRunValue) {
    run::RunValue value;
    command::FillRunValue(
        Specify(Tree("HIERFIT /FIELDS TARGET=y /TARGET_OPTIONS DISTRIBUTION=BINOMIAL LINK=PROBIT TRIALS=n OFFSET=z "
                     "/DATA_STRUCTURE SUBJECTS=g GROUPING=a /RANDOM EFFECTS=INTERCEPT SUBJECTS=g /RANDOM EFFECTS=x "
                     "SUBJECTS=g GROUPING=b /FIXED EFFECTS=c /EMMEANS TABLES=c CONTRAST=PAIRWISE SCALE=LINK /OUTFILE "
                     "PARAMETER=p /PRINT TESTCOV")),
        value);
    EXPECT_EQ(value.fTarget.fDistribution, run::Distribution::kBinomial);
    EXPECT_EQ(value.fTarget.fLink, run::Link::kProbit);
    EXPECT_EQ(value.fTarget.fTrialsVar, 10);
    EXPECT_EQ(value.fTarget.fOffsetVar, 2);
    EXPECT_EQ(value.fResidualGroupVar, 3);
    EXPECT_THAT(value.fvRandomGroupVars, ElementsAre(-1, 4));
    ASSERT_EQ(value.fvMeans.size(), 1u);
    EXPECT_EQ(value.fvMeans[0].fContrast, run::ContrastKind::kPairwise);
    EXPECT_TRUE(value.fvMeans[0].fLinkScale);
    EXPECT_TRUE(value.fParameterFile);
    EXPECT_TRUE(value.fWishes.fCovarianceTests);
}

TEST(ParsedBlock, AFormulaAndItsPrintedCommandGiveTheSameBytes) {
    for (const char* text :
         {"y ~ Day + (Day | g)", "y ~ 0 + a/b + I(x^2) + ar1(0 + b | g:h)", "cbind(y, n) ~ `odd name`*c"}) {
        command::CommandError error;
        const auto formula = command::Formula::Parse(text, error);
        command::CommandTree tree;
        ASSERT_TRUE(formula && formula->Expand(commandtest::Variables(), tree, error)) << error.Message();
        const command::ParsedBlock direct = command::WriteBlock(Specify(tree));
        const command::ParsedBlock printed = command::WriteBlock(Specify(Tree(command::PrintCommand(tree))));
        EXPECT_EQ(direct.SlotCells(), printed.SlotCells()) << text;
        EXPECT_EQ(direct.TextBytes(), printed.TextBytes()) << text;
        EXPECT_EQ(direct.CellArray(), printed.CellArray()) << text;
    }
}

}  // namespace
