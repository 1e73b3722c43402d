#include "command/Command.h"
#include "command/Keywords.h"
#include "command/SyntaxObjects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using commandtest::Check;
using commandtest::Tree;

namespace {

struct Refusal {
    const char* fCommand;
    const char* fMessage;
};

TEST(CommandParser, RefusalsNameLineColumnAndWhatWasExpected) {
    const Refusal cases[] = {
        {"", "line 1, column 1: expected the word HIERFIT, found the end"},
        {"HIERFIT\n  /FIXD EFFECTS=a", "line 2, column 4: there is no subcommand FIXD; did you mean FIXED?"},
        {"HIERFIT /FIELDS TARGET=y /FIXED EFECTS=a",
         "line 1, column 33: FIXED has no parameter EFECTS; did you mean EFFECTS?"},
        {"HIERFIT /FIELDS TARGET=y /FIXED EFFECTS", "line 1, column 40: expected = behind EFFECTS, found the end"},
        {"HIERFIT /FIELDS TARGET=y\n /FIXED EFFECTS=a\n   /FIXED EFFECTS=b",
         "line 3, column 5: the subcommand FIXED stands twice; it may stand once"},
        {"HIERFIT /FIELDS TARGET=yy", "line 1, column 24: there is no variable yy in test.csv; did you mean y?"},
        {"HIERFIT /FIELDS TARGET=y /FIXED EFFECTS=dya",
         "line 1, column 41: there is no variable dya in test.csv; did "
         "you mean Day?"},
        {"HIERFIT /FIELDS TARGET='y'", "line 1, column 24: TARGET: expected a variable's name, found 'y'"},
        {"HIERFIT /FIELDS TARGET=y x", "line 1, column 26: TARGET: expected one value only, found x"},
        {"HIERFIT /FIELDS TARGET=y /RANDOM EFFECTS=INTERCEPT SUBJECTS=g COVARIANCE_TYPE=UNN",
         "line 1, column 79: COVARIANCE_TYPE has no choice UNN; did you mean UN?"},
        {"HIERFIT /FIELDS TARGET=y /RANDOM EFFECTS=INTERCEPT SUBJECTS=g COVARIANCE_TYPE=SPEXP",
         "line 1, column 79: COVARIANCE_TYPE has no choice SPEXP; expected AD1, AR1"},
        {"HIERFIT /FIELDS TARGET=y /FIXED EFFECTS=a*(b)", "line 1, column 43: expected a name, found ("},
        {"HIERFIT /FIELDS TARGET=y /FIXED EFFECTS=a(b", "line 1, column 42: ( is not closed"},
        {"HIERFIT /OUTFILE MODEL='m.xml", "line 1, column 24: ' is not closed"},
        {"HIERFIT /BUILD_OPTIONS CONFIDENCE_LEVEL=1e400", "line 1, column 41: the number 1e400 is beyond the range"},
        {"HIERFIT /BUILD_OPTIONS MAX_ITERATIONS=10x", "line 1, column 39: 10x is neither a number nor a name"},
        {"HIERFIT /FIELDS TARGET=y & x", "line 1, column 26: unexpected &"},
        {"HIERFIT /FIELDS TARGET=y\n# only a comment ? here\n?", "line 3, column 1: unexpected ?"},
        {"HIERFIT /PRINT", "line 1, column 10: PRINT is empty; expected SOLUTION"},
        {"HIERFIT /PRINT SOLUTION(3)", "SOLUTION takes nothing in parentheses"},
        {"HIERFIT /FIELDS TARGET=y FACTORS=a,,b", "line 1, column 36: two commas without an item between them"},
    };
    for (const Refusal& refusal : cases)
        EXPECT_THAT(Check(refusal.fCommand), testing::HasSubstr(refusal.fMessage)) << refusal.fCommand;
}

TEST(CommandParser, RefusesWhatTheProcedureCouldNotRead) {
    const std::string start = "HIERFIT /FIELDS TARGET=y ";
    const Refusal cases[] = {
        {"FACTORS=a x COVARIATES=x", "x stands in both FACTORS and COVARIATES"},
        {"COVARIATES=c", "c is a text and can only be a factor"},
        {"FACTORS=a a", "the variable a stands twice"},
        {"REGRESSION_WEIGHT=h", "h is a text; numbers are needed"},
        {"/FIXED EFFECTS=y", "the target y can't be a predictor too"},
        {"/FIXED EFFECTS=a*a", "the factor a stands twice in one effect"},
        {"/FIXED EFFECTS=a(x)", "the covariate x can't stand in the parentheses"},
        {"/FIXED EFFECTS=a*b b*a", "the effect b*a stands twice"},
        {"/FIXED INTERCEPT=NO", "neither an intercept nor a fixed effect"},
        {"/FIXED EFFECTS=INTERCEPT a", "INTERCEPT=YES or NO"},
        {"/RANDOM SUBJECTS=g", "RANDOM names no effects"},
        {"/RANDOM EFFECTS=INTERCEPT", "needs SUBJECTS"},
        {"/DATA_STRUCTURE SUBJECTS=g COVARIANCE_TYPE=AR1", "the structure AR1 needs REPEATED_MEASURES"},
        {"/DATA_STRUCTURE REPEATED_MEASURES=Day", "needs SUBJECTS"},
        {"/DATA_STRUCTURE SUBJECTS=g COVARIANCE_TYPE=SPEXP", "needs SPCOORDS"},
        {"/DATA_STRUCTURE SUBJECTS=g SPCOORDS=x COVARIANCE_TYPE=ID", "goes with a spatial structure only"},
        {"/DATA_STRUCTURE SUBJECTS=g REPEATED_MEASURES=Day KRONECKER_MEASURES=Day COVARIANCE_TYPE=UN_CS",
         "no variable for the first factor"},
        {"/DATA_STRUCTURE SUBJECTS=g REPEATED_MEASURES=Day KRONECKER_MEASURES=b COVARIANCE_TYPE=UN_CS",
         "b is none of REPEATED_MEASURES"},
        {"/DATA_STRUCTURE SUBJECTS=g REPEATED_MEASURES=Day b KRONECKER_MEASURES=b COVARIANCE_TYPE=UN",
         "goes with UN_UN, UN_AR1 or UN_CS only"},
        {"/BUILD_OPTIONS CONFIDENCE_LEVEL=100", "above 0 and below 100"},
        {"/BUILD_OPTIONS ANALYSIS_TYPE=2", "of type 1 or 3"},
        {"/BUILD_OPTIONS MAX_ITERATIONS=1.5", "expected a whole number"},
        {"/BUILD_OPTIONS PARAMETER_CONVERGENCE=0", "all convergence criteria are off"},
        {"/BUILD_OPTIONS ESTIMATE_FORMAT=F41.2", "expected a format such as F12.3"},
        {"/TARGET_OPTIONS LINK=LOGIT", "the distribution NORMAL doesn't take the link LOGIT; it takes IDENTITY, LOG"},
        {"/TARGET_OPTIONS TRIALS=n", "TRIALS goes with the BINOMIAL distribution only"},
        {"/TARGET_OPTIONS DISTRIBUTION=BINOMIAL LINK=POWER", "POWER with its exponent"},
        {"/TARGET_OPTIONS DISTRIBUTION=POISSON REFERENCE=FIRST", "REFERENCE goes with a NOMINAL target"},
        {"/FIXED EFFECTS=a /EMMEANS TABLES=a*x", "x is no factor"},
        {"/FIXED EFFECTS=a b /EMMEANS TABLES=a COMPARE=b", "b is none of the factors of TABLES"},
        {"/FIXED EFFECTS=b /EMMEANS TABLES=b CONTRAST=SIMPLE REFERENCE='u'", "the values of b are numbers, u is none"},
        {"/FIXED EFFECTS=a /EMMEANS TABLES=a AT=x(1)", "x is no covariate of the model"},
        {"/FIXED EFFECTS=a /EMMEANS TABLES=a /EMMEANS TABLES=a ADJUST=SEQSIDAK", "share one ADJUST"},
        {"/FIXED EFFECTS=a /TEST ROWS=b(1)", "the model has no such effect: b"},
        {"/FIXED EFFECTS=a /TEST ROWS=a(1 -1); a(0 1) K=1", "expected one value for each of the 2 rows"},
        {"/RANDOM EFFECTS=INTERCEPT SUBJECTS=g /RANDOM EFFECTS=INTERCEPT SUBJECTS=h /TEST ROWS=|INTERCEPT(1)",
         "several random blocks hold INTERCEPT; write INTERCEPT@1"},
        {"/SAVE PRED(x)", "the data has a variable x already"},
        {"/SAVE PRED PRED", "PRED stands twice"},
        {"/OUTFILE MODEL=m PARAMETER=p", "either MODEL or PARAMETER"},
        {"/OUTFILE STATXML=' '", "can't be empty or end in a blank"},
    };
    for (const Refusal& refusal : cases)
        EXPECT_THAT(Check(start + refusal.fCommand), testing::HasSubstr(refusal.fMessage)) << refusal.fCommand;
    EXPECT_THAT(Check("HIERFIT /FIELDS TARGET=c"), testing::HasSubstr("the target c is a text"));
    EXPECT_EQ(Check("HIERFIT /FIELDS TARGET=c /TARGET_OPTIONS DISTRIBUTION=NOMINAL"), "");
    EXPECT_EQ(Check(start + "/OUTFILE MODEL='" + std::string(255, 'm') + "'"), "");
    EXPECT_THAT(Check(start + "/OUTFILE MODEL='" + std::string(256, 'm') + "'"),
                testing::HasSubstr("at most 255 bytes"));
}

TEST(CommandParser, PrintedCommandsReadBackAsTheSameTree) {
    const std::string text =
        "hierfit /data file='it''s.csv' missing='n/a' -9\n/fields target=y, factors=a b\n"
        "/fixed effects = a, a:b, b(a), c(b(a)), x*x, `odd name`, `INTERCEPT` intercept=no\n"
        "/random = effects=intercept x subjects=g*h covariance_type=un solution=yes\n"
        "/build_options parameter_convergence=1e-8 relative estimate_format=F12.4\n"
        "/emmeans tables=a*b compare=a contrast=simple reference=first at=x(2.50)\n"
        "/test label=\"a \"\"test\"\"\" rows=intercept(1) b(a)(1 -1) | intercept@1(.5); a(+2) K=0 -1e-3\n"
        "/print history(5) solution /save pred(p) resid.";
    const std::string printed = command::PrintCommand(Tree(text));
    EXPECT_EQ(command::PrintCommand(Tree(printed)), printed);
    EXPECT_THAT(printed,
                testing::HasSubstr("/FIXED EFFECTS=a a*b b(a) c(b(a)) x*x `odd name` `INTERCEPT` INTERCEPT=NO"));
    EXPECT_THAT(printed, testing::HasSubstr("ROWS=intercept(1) b(a)(1 -1) | intercept@1(.5) ; a(+2) K=0 -1e-3"));
    EXPECT_THAT(printed, testing::HasSubstr("SUBJECTS=g h COVARIANCE_TYPE=UN"));
    EXPECT_THAT(printed, testing::HasSubstr("FILE='it''s.csv' MISSING='n/a' -9"));
}

TEST(CommandParser, NamesFitExactlyFirstThenInOneCase) {
    using command::Level;
    const command::VariableList data{
        {{"Y", 0, Level::kScale, ""}, {"y", 0, Level::kScale, ""}, {"Xy", 0, Level::kScale, ""}}, "d"};
    EXPECT_EQ(data.Find("y", {}), 1);
    EXPECT_EQ(data.Find("xY", {}), 2);
    const command::VariableList twins{{{"Ab", 0, Level::kScale, ""}, {"aB", 0, Level::kScale, ""}}, "d"};
    EXPECT_THROW(twins.Find("ab", {}), command::CommandError);
}

TEST(CommandParser, ObjectsOfACommandAnswerAsTheProcedureAsks) {
    const command::CommandTree tree =
        Tree("HIERFIT /DATA_STRUCTURE SUBJECTS=g KRONECKER_MEASURES=b COVARIANCE_TYPE=un_cs");
    const auto spec = command::MakeCommandSpec(tree);
    EXPECT_EQ(spec->getSubComObj("RANDOM"), nullptr);
    const SubComObj* structure = spec->getSubComObj("DATA_STRUCTURE");
    ASSERT_NE(structure, nullptr);
    EXPECT_EQ(structure->getParamObj("REPEATED_MEASURES"), nullptr);
    EXPECT_NE(structure->getParamObj("KRONECKER_MEASURES"), nullptr);
    EXPECT_TRUE(structure->getParamObj("COVARIANCE_TYPE")->isStringValueCase("UN_CS"));
    EXPECT_FALSE(structure->getParamObj("COVARIANCE_TYPE")->isStringValueCase("UN"));
}

}  // namespace
