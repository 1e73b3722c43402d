#include "command/Keywords.h"

#include "command/Words.h"

namespace command {

const std::vector<StructureWord>& StructureWords() {
    static const std::vector<StructureWord> words{
        {"AD1", 1},       {"AR1", 2},    {"ARH1", 3},   {"ARMA11", 4},  {"CS", 5},     {"CSH", 6},    {"CSR", 7},
        {"DIAG", 8},      {"FA1", 9},    {"FAH1", 10},  {"HF", 11},     {"ID", 12},    {"TP", 13},    {"TPH", 14},
        {"UN", 15},       {"UNR", 16},   {"VC", 17},    {"SPPOW", 20},  {"SPEXP", 21}, {"SPGAU", 22}, {"SPLIN", 23},
        {"SPLINLOG", 24}, {"SPSPH", 25}, {"UN_UN", 26}, {"UN_AR1", 27}, {"UN_CS", 28}};
    return words;
}

bool IsSpatialCode(int code) {
    return code >= kFirstRepeatedCode && code < kFirstKroneckerCode;
}

bool IsKroneckerCode(int code) {
    return code >= kFirstKroneckerCode;
}

int StructureCode(std::string_view name) {
    for (const StructureWord& word : StructureWords())
        if (EqualWords(word.fName, name)) return word.fCode;
    return 0;
}

std::vector<std::string> StructureNames(bool repeated) {
    std::vector<std::string> names;
    for (const StructureWord& word : StructureWords())
        if (repeated || word.fCode < kFirstRepeatedCode) names.push_back(word.fName);
    return names;
}

const std::vector<SubcommandWord>& SubcommandWords() {
    static const std::vector<std::string> yesNo{"YES", "NO"};
    static const std::vector<std::string> scales{"ABSOLUTE", "RELATIVE"};
    static const std::vector<SubcommandWord> words{
        {"DATA",
         "where the records come from",
         false,
         {{"FILE", Shape::kTextOrName, "the data file", {}},
          {"SCHEMA", Shape::kTextOrName, "a table schema with labels, levels and missing values", {}},
          {"NOMINAL", Shape::kNames, "variables to take as nominal", {}},
          {"ORDINAL", Shape::kNames, "variables to take as ordinal", {}},
          {"MISSING", Shape::kTexts, "texts that mean a missing value in every column", {}},
          {"DECIMAL_COMMA", Shape::kWord, "1,5 is one and a half", yesNo},
          {"WEIGHT", Shape::kName, "frequency weight: how many records a row stands for", {}},
          {"SPLIT_BY", Shape::kNames, "fit a model for each combination of their values", {}},
          {"FILTER", Shape::kTextOrName, "condition on rows, or a variable that is not 0 in the rows to use", {}}}},
        {"FIELDS",
         "the variables of the model",
         false,
         {{"TARGET", Shape::kName, "the dependent variable", {}},
          {"FACTORS", Shape::kNames, "categorical predictors; without this list, nominal and ordinal ones", {}},
          {"COVARIATES", Shape::kNames, "numeric predictors; without this list, scale ones", {}},
          {"REGRESSION_WEIGHT", Shape::kName, "divides the residual variance", {}}}},
        {"DATA_STRUCTURE",
         "how records belong together: the residual covariance",
         false,
         {{"SUBJECTS", Shape::kNames, "variables that together name a subject", {}},
          {"REPEATED_MEASURES", Shape::kNames, "variables that order a subject's records", {}},
          {"KRONECKER_MEASURES", Shape::kNames, "those of them that belong to the second factor of the product", {}},
          {"COVARIANCE_TYPE", Shape::kWord, "structure of the residuals of a subject", StructureNames(true)},
          {"SPCOORDS", Shape::kNames, "coordinates of a spatial structure", {}},
          {"GROUPING", Shape::kName, "own covariance parameters for each of its values", {}}}},
        {"TARGET_OPTIONS",
         "distribution of the target",
         false,
         {{"DISTRIBUTION",
           Shape::kWord,
           "the target's distribution",
           {"NORMAL", "BINOMIAL", "POISSON", "GAMMA", "INVERSE_GAUSSIAN", "NEGATIVE_BINOMIAL", "ORDINAL", "NOMINAL"}},
          {"LINK",
           Shape::kWord,
           "the link; POWER(p) with its exponent",
           {"IDENTITY", "LOG", "LOGC", "LOGIT", "PROBIT", "CLOGLOG", "NLOGLOG", "POWER", "CAUCHIT"}},
          {"TRIALS", Shape::kNameOrNumber, "number of trials behind the events that the target counts", {}},
          {"NONEVENTS", Shape::kName, "counts of trials that were no event, beside the target's events", {}},
          {"OFFSET", Shape::kNameOrNumber, "a part of the predictor that is known", {}},
          {"ORDER", Shape::kWord, "order of the target's categories", {"ASCENDING", "DESCENDING"}},
          {"REFERENCE", Shape::kReference, "reference category of a binary or nominal target", {"FIRST", "LAST"}},
          {"DISPERSION", Shape::kNumber, "fixed dispersion of a negative binomial target", {}}}},
        {"FIXED",
         "the fixed effects",
         false,
         {{"EFFECTS", Shape::kTerms, "a b a*b b(a) x x*x", {}},
          {"INTERCEPT", Shape::kWord, "whether the model has an intercept; YES unless given", yesNo}}},
        {"RANDOM",
         "one block of random effects",
         true,
         {{"EFFECTS", Shape::kTerms, "INTERCEPT x a a*x", {}},
          {"SUBJECTS", Shape::kNames, "variables that together name a subject", {}},
          {"COVARIANCE_TYPE", Shape::kWord, "structure of the block; VC unless given", StructureNames(false)},
          {"SOLUTION", Shape::kWord, "show the predictions of the random effects", yesNo},
          {"GROUPING", Shape::kName, "own covariance parameters for each of its values", {}}}},
        {"BUILD_OPTIONS",
         "how the model is estimated",
         false,
         {{"METHOD", Shape::kWord, "restricted or full likelihood", {"REML", "ML"}},
          {"DF_METHOD", Shape::kWord, "degrees of freedom", {"RESIDUAL", "SATTERTHWAITE", "KENWARD_ROGER"}},
          {"ANALYSIS_TYPE", Shape::kNumber, "type of the tests of effects, 1 or 3", {}},
          {"CONFIDENCE_LEVEL", Shape::kNumber, "in percent, 95 unless given", {}},
          {"MAX_ITERATIONS", Shape::kNumber, "100 unless given", {}},
          {"MAX_STEP_HALVINGS", Shape::kNumber, "10 unless given", {}},
          {"FISHER_STEPS", Shape::kNumber, "scoring steps before the first Newton step", {}},
          {"LOGLIKELIHOOD_CONVERGENCE", Shape::kCriterion, "largest change of the log likelihood; 0 is off", scales},
          {"PARAMETER_CONVERGENCE", Shape::kCriterion, "largest change of a parameter; 0 is off", scales},
          {"HESSIAN_CONVERGENCE", Shape::kCriterion, "largest Newton decrement; 0 is off", scales},
          {"SINGULARITY", Shape::kNumber, "tolerance below which a column is redundant", {}},
          {"USER_MISSING", Shape::kWord, "user-missing values of factors", {"EXCLUDE", "INCLUDE"}},
          {"CRITERIA_FORMAT", Shape::kFormat, "number format of the information criteria", {}},
          {"ESTIMATE_FORMAT", Shape::kFormat, "number format of the parameter estimates", {}}}},
        {"EMMEANS",
         "one request for estimated marginal means",
         true,
         {{"TABLES", Shape::kTerm, "factors of the means; none for the grand mean", {}},
          {"COMPARE", Shape::kName, "the factor whose levels are compared", {}},
          {"CONTRAST", Shape::kWord, "how they are compared", {"NONE", "PAIRWISE", "DEVIATION", "SIMPLE"}},
          {"REFERENCE", Shape::kReference, "the level that a simple contrast compares with", {"FIRST", "LAST"}},
          {"ADJUST", Shape::kWord, "adjustment of the comparisons", {"LSD", "SEQBONFERRONI", "SEQSIDAK"}},
          {"SCALE", Shape::kWord, "scale of the means", {"ORIGINAL", "LINK"}},
          {"AT", Shape::kAt, "values of covariates, as in x(2.5); the others are held at their means", {}}}},
        {"TEST",
         "one custom test",
         true,
         {{"LABEL", Shape::kText, "its title", {}},
          {"ROWS", Shape::kRows, "rows of coefficients: a(1 -1) x(2) | INTERCEPT@1(1); ...", {}},
          {"K", Shape::kNumbers, "hypothesised values, one a row", {}}}},
        {"PRINT",
         "further tables",
         false,
         {{"",
           Shape::kWords,
           "HISTORY(n) shows each n-th iteration",
           {"SOLUTION", "CORB", "COVB", "CPS", "GMATRIX", "HISTORY", "LMATRIX", "RMATRIX", "TESTCOV",
            "VARIABLEINFO"}}}},
        {"SAVE",
         "variables to add to the data, each with its name in parentheses or an own one",
         false,
         {{"",
           Shape::kWords,
           "predictions and residuals; FX, SE and DF mark the fixed part, standard errors and degrees of freedom",
           {"FXPRED", "PRED", "RESID", "SEFIXP", "SEPRED", "DFFIXP", "DFPRED"}}}},
        {"OUTFILE",
         "files to write",
         false,
         {{"MODEL", Shape::kTextOrName, "the fitted model", {}},
          {"PARAMETER", Shape::kTextOrName, "the estimates and their covariance", {}},
          {"STATXML", Shape::kTextOrName, "the result document", {}},
          {"STATJSON", Shape::kTextOrName, "the result document as JSON", {}},
          {"DATA", Shape::kTextOrName, "the data with the variables of SAVE", {}}}}};
    return words;
}

const SubcommandWord* FindSubcommandWord(std::string_view name) {
    for (const SubcommandWord& word : SubcommandWords())
        if (EqualWords(word.fName, name)) return &word;
    return nullptr;
}

const ParameterWord* FindParameterWord(const SubcommandWord& subcommand, std::string_view name) {
    for (const ParameterWord& word : subcommand.fParameters)
        if (EqualWords(word.fName, name)) return &word;
    return nullptr;
}

std::string KeywordHelp() {
    std::string text = "HIERFIT subcommands\n";
    for (const SubcommandWord& subcommand : SubcommandWords()) {
        text +=
            "\n/" + subcommand.fName + (subcommand.fRepeatable ? " (repeatable)" : "") + ": " + subcommand.fHelp + "\n";
        for (const ParameterWord& parameter : subcommand.fParameters) {
            text += "    " + (parameter.fName.empty() ? "" : parameter.fName + "  ") + parameter.fHelp + "\n";
            if (!parameter.fWords.empty()) text += "        one of " + JoinOr(parameter.fWords) + "\n";
        }
    }
    return text;
}

}  // namespace command
