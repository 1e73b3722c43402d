#include "command/Command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using commandtest::Expand;

namespace {

struct Expansion {
    const char* fFormula;
    const char* fCommand;
};

/// The right sides are what the usual reading of these formulas gives, in its order of terms.
TEST(Formula, FixedPartsExpandAsUsersOfMixedModelsExpect) {
    const Expansion cases[] = {
        {"y ~ 1", "/FIXED INTERCEPT=YES"},
        {"y ~ x", "/FIXED EFFECTS=x INTERCEPT=YES"},
        {"y ~ a*b + x", "/FIXED EFFECTS=a b x a*b INTERCEPT=YES"},
        {"y ~ a*b*c", "/FIXED EFFECTS=a b c a*b a*c b*c a*b*c INTERCEPT=YES"},
        {"y ~ (a + b + c)^2", "/FIXED EFFECTS=a b c a*b a*c b*c INTERCEPT=YES"},
        {"y ~ (a + x)^3", "/FIXED EFFECTS=a x a*x INTERCEPT=YES"},
        {"y ~ a*b*c - a:b:c", "/FIXED EFFECTS=a b c a*b a*c b*c INTERCEPT=YES"},
        {"y ~ a*b - (a + b)", "/FIXED EFFECTS=a*b INTERCEPT=YES"},
        {"y ~ a:b + a + b", "/FIXED EFFECTS=a b a*b INTERCEPT=YES"},
        {"y ~ a + b:a + a:b + a", "/FIXED EFFECTS=a b*a INTERCEPT=YES"},
        {"y ~ (a + b):x", "/FIXED EFFECTS=a*x b*x INTERCEPT=YES"},
        {"y ~ (a + b)*x", "/FIXED EFFECTS=a b x a*x b*x INTERCEPT=YES"},
        {"y ~ a/b", "/FIXED EFFECTS=a b(a) INTERCEPT=YES"},
        {"y ~ a/b/c", "/FIXED EFFECTS=a b(a) c(b(a)) INTERCEPT=YES"},
        {"y ~ (a + b)/c", "/FIXED EFFECTS=a b c(a*b) INTERCEPT=YES"},
        {"y ~ a/(b + c)", "/FIXED EFFECTS=a b(a) c(a) INTERCEPT=YES"},
        {"y ~ a + b %in% a", "/FIXED EFFECTS=a b(a) INTERCEPT=YES"},
        {"y ~ a/x", "/FIXED EFFECTS=a x(a) INTERCEPT=YES"},
        {"y ~ x + I(x^2)", "/FIXED EFFECTS=x x*x INTERCEPT=YES"},
        {"y ~ x + x:x + x:x:x", "/FIXED EFFECTS=x x*x x*x*x INTERCEPT=YES"},
        {"y ~ a*I(x^2)", "/FIXED EFFECTS=a x*x a*x*x INTERCEPT=YES"},
        {"y ~ x*x", "/FIXED EFFECTS=x INTERCEPT=YES"},
        {"y ~ a:a + a", "/FIXED EFFECTS=a INTERCEPT=YES"},
        {"y ~ 0 + a", "/FIXED EFFECTS=a INTERCEPT=NO"},
        {"y ~ a - 1", "/FIXED EFFECTS=a INTERCEPT=NO"},
        {"y ~ -1 + a", "/FIXED EFFECTS=a INTERCEPT=NO"},
        {"y ~ a + 0 + 1", "/FIXED EFFECTS=a INTERCEPT=YES"},
        {"y ~ a - 0", "/FIXED EFFECTS=a INTERCEPT=YES"},
        {"`y` ~ `odd name` + 'a'", "/FIXED EFFECTS=`odd name` a INTERCEPT=YES"},
        {"y ~ day", "/FIXED EFFECTS=Day INTERCEPT=YES"},
        {"Y ~ X", "/FIXED EFFECTS=x INTERCEPT=YES"},
        {"y ~ . - Day - n - `odd name` - h + (1 | g)",
         "/FIXED EFFECTS=x z a b c INTERCEPT=YES/RANDOM EFFECTS=INTERCEPT SUBJECTS=g COVARIANCE_TYPE=VC"},
        {"y ~ x + offset(z)", "/TARGET_OPTIONS OFFSET=z/FIXED EFFECTS=x INTERCEPT=YES"},
        {"cbind(y, n) ~ x", "/TARGET_OPTIONS DISTRIBUTION=BINOMIAL NONEVENTS=n/FIXED EFFECTS=x INTERCEPT=YES"},
    };
    for (const Expansion& expansion : cases) {
        std::string shown = Expand(expansion.fFormula);
        shown.erase(0, shown.find('/'));
        EXPECT_EQ(shown, expansion.fCommand) << expansion.fFormula;
    }
}

TEST(Formula, BarsBecomeRandomBlocks) {
    const Expansion cases[] = {
        {"(1 | g)", "EFFECTS=INTERCEPT SUBJECTS=g COVARIANCE_TYPE=VC"},
        {"(x | g)", "EFFECTS=INTERCEPT x SUBJECTS=g COVARIANCE_TYPE=UN"},
        {"(1 + x | g)", "EFFECTS=INTERCEPT x SUBJECTS=g COVARIANCE_TYPE=UN"},
        {"(0 + x | g)", "EFFECTS=x SUBJECTS=g COVARIANCE_TYPE=VC"},
        {"(x - 1 | g)", "EFFECTS=x SUBJECTS=g COVARIANCE_TYPE=VC"},
        {"(x || g)", "EFFECTS=INTERCEPT x SUBJECTS=g COVARIANCE_TYPE=DIAG"},
        {"diag(x | g)", "EFFECTS=INTERCEPT x SUBJECTS=g COVARIANCE_TYPE=DIAG"},
        {"ar1(0 + a | g)", "EFFECTS=a SUBJECTS=g COVARIANCE_TYPE=AR1"},
        {"cs(a | g)", "EFFECTS=a SUBJECTS=g COVARIANCE_TYPE=CS"},
        {"(a | g)", "EFFECTS=a SUBJECTS=g COVARIANCE_TYPE=UN"},
        {"(a + x | g)", "EFFECTS=a x SUBJECTS=g COVARIANCE_TYPE=UN"},
        {"(a*x | g)", "EFFECTS=a a*x SUBJECTS=g COVARIANCE_TYPE=UN"},
        {"(a*b | g)", "EFFECTS=a*b SUBJECTS=g COVARIANCE_TYPE=UN"},
        {"vc(a | g)", "EFFECTS=INTERCEPT a SUBJECTS=g COVARIANCE_TYPE=VC"},
        {"(1 | g:h)", "EFFECTS=INTERCEPT SUBJECTS=g h COVARIANCE_TYPE=VC"},
        {"(1 | h) + (x | g)",
         "EFFECTS=INTERCEPT SUBJECTS=h COVARIANCE_TYPE=VC/RANDOM EFFECTS=INTERCEPT x SUBJECTS=g "
         "COVARIANCE_TYPE=UN"},
        {"(1 | h/g)",
         "EFFECTS=INTERCEPT SUBJECTS=h COVARIANCE_TYPE=VC/RANDOM EFFECTS=INTERCEPT SUBJECTS=h g "
         "COVARIANCE_TYPE=VC"},
    };
    for (const Expansion& expansion : cases) {
        const std::string shown = Expand(std::string("y ~ 1 + ") + expansion.fFormula);
        EXPECT_THAT(shown, testing::EndsWith(std::string("/RANDOM ") + expansion.fCommand)) << expansion.fFormula;
    }
}

TEST(Formula, RefusalsNameTheColumn) {
    const Expansion cases[] = {
        {"y", "formula, column 2: expected ~ between the target and the model"},
        {"y ~", "column 4: expected the model behind ~"},
        {"y ~ x + ", "column 9: expected a variable, found the end"},
        {"y ~ x | g", "column 7: a random term stands in parentheses, as in (1 | group)"},
        {"y ~ (x | g", "column 5: ( is not closed"},
        {"y ~ xx", "column 5: there is no variable xx in test.csv; did you mean x?"},
        {"y ~ log(x)", "column 5: the formula has no function log; transform the variable in the data"},
        {"log(y) ~ x", "column 1: expected one target variable"},
        {"y ~ I(a^2)", "column 5: the factor a has no powers"},
        {"y ~ a^b", "column 7: expected a number behind ^"},
        {"y ~ 2*x", "column 5: the number 2 stands for an intercept"},
        {"y ~ x/a", "column 7: nothing can be nested in the covariate x"},
        {"y ~ (a + b | g)", "column 5: the effects of this random term can't be told apart"},
        {"y ~ us(x | g)", "column 5: there is no covariance structure us for random effects; did you mean"},
        {"y ~ spexp(x | g)", "column 5: there is no covariance structure spexp"},
        {"y ~ x - (1 | g)", "column 9: a random term can't be removed"},
        {"y ~ x:(1 | g)", "a random term in parentheses can only be added"},
        {"y ~ (a+b+c+x+z+g+h+Day+n+y)^9:(a+b+c+x+z+g+h+Day+n+y)^9", "stands for more than"},
        {"y ~ (0 | g)", "a random term without effects"},
    };
    for (const Expansion& expansion : cases)
        EXPECT_THAT(Expand(expansion.fFormula), testing::HasSubstr(expansion.fCommand)) << expansion.fFormula;
}

TEST(Formula, LongChainsOfOperatorsAreReadAsFastAsShortOnes) {
    std::string chain = "y ~ a";
    for (int i = 0; i < 30; ++i)
        chain += "*b*a";
    EXPECT_EQ(Expand(chain), Expand("y ~ a*b"));
}

TEST(Formula, FactorMarksANumericColumnAsNominal) {
    command::CommandError error;
    const auto formula = command::Formula::Parse("y ~ factor(Day)*x + (1 | g)", error);
    ASSERT_TRUE(formula);
    EXPECT_THAT(formula->NominalNames(), testing::ElementsAre("Day"));
}

}  // namespace
