#include "command/Resolver.h"

#include "command/Keywords.h"
#include "command/Words.h"

#include <algorithm>
#include <cmath>

namespace command {

double NumberOf(const Parameter* parameter, double fallback, double least, double most) {
    if (!parameter) return fallback;
    const Item& item = parameter->fvItems.front();
    if (item.fNumber < least || item.fNumber > most)
        throw CommandError{parameter->fName + ": " + item.fText + " must lie between " + NumberText(least) + " and " +
                               NumberText(most),
                           item.fAt};
    return item.fNumber;
}

int WholeNumberOf(const Parameter* parameter, int fallback, int least, int most) {
    const double value = NumberOf(parameter, fallback, least, most);
    if (value != std::floor(value))
        throw CommandError{parameter->fName + ": expected a whole number, found " + parameter->fvItems.front().fText,
                           parameter->fvItems.front().fAt};
    return static_cast<int>(value);
}

bool IsYes(const Parameter* parameter, bool fallback) {
    return parameter ? parameter->fvItems.front().IsWord("YES") : fallback;
}

int ChoiceOf(const Subcommand& subcommand, const char* parameter, int fallback) {
    const Parameter* found = subcommand.Find(parameter);
    if (!found) return fallback;
    const Item& item = found->fvItems.front();
    const Item& head = item.fKind == Item::Kind::kGroup ? item.fvParts.front() : item;
    const auto& words = FindParameterWord(*FindSubcommandWord(subcommand.fName), parameter)->fWords;
    return static_cast<int>(std::find(words.begin(), words.end(), head.fText) - words.begin());
}

DataWishes ReadDataWishes(const CommandTree& tree) {
    auto text = [&](const char* name) {
        const Parameter* parameter = tree.Find("DATA", name);
        return parameter ? parameter->fvItems.front().fText : std::string();
    };
    auto list = [&](const char* name) {
        std::vector<std::string> names;
        if (const Parameter* parameter = tree.Find("DATA", name))
            for (const Item& item : parameter->fvItems)
                names.push_back(item.fText);
        return names;
    };
    return {text("FILE"),     text("SCHEMA"),  text("WEIGHT"),
            text("FILTER"),   list("NOMINAL"), list("ORDINAL"),
            list("SPLIT_BY"), list("MISSING"), IsYes(tree.Find("DATA", "DECIMAL_COMMA"), false)};
}

namespace {

constexpr double kLargest = 1e15;
constexpr int kManyIterations = 1000000;
constexpr int kUsualScores[] = {1, 2, 3};  // fixed predictions, predictions, residuals: of data saved without a list

class Resolver {
public:
    Resolver(const CommandTree& tree, const VariableList& variables)
        : fTree(tree), fVariables(variables), fReader(tree, variables) {}

    Specification Run() {
        ReadFields();
        ReadFixed();
        for (const Subcommand* subcommand : fTree.All("RANDOM"))
            ReadRandom(*subcommand);
        if (const Subcommand* subcommand = fTree.Find("DATA_STRUCTURE")) ReadResidual(*subcommand);
        if (const Subcommand* subcommand = fTree.Find("BUILD_OPTIONS")) ReadBuild(*subcommand);
        fSpec.fTargetOptions = ReadTarget(fTree, fReader, fSpec.fTarget);
        ReadPrint();
        ReadSaved();
        ReadFiles();
        ReadMeansRequests();
        for (const Subcommand* subcommand : fTree.All("TEST")) {
            fSpec.fvTests.emplace_back();
            ReadTest(*subcommand, fReader, fSpec, fSpec.fvTests.back());
        }
        fSpec.fvFactors = fReader.fvFactors;
        fSpec.fvCovariates = fReader.fvCovariates;
        CheckTargetApart();
        CheckGroupedTarget();
        return std::move(fSpec);
    }

private:
    void ReadFields() {
        const Parameter* target = fTree.Find("FIELDS", "TARGET");
        if (!target) {
            const Subcommand* fields = fTree.Find("FIELDS");
            throw CommandError{"the command names no target; write /FIELDS TARGET=name",
                               fields ? fields->fAt : Position{}};
        }
        fSpec.fTarget = fReader.VariableOf(target);
        fSpec.fRegressionWeight = fReader.NumericOf(fTree.Find("FIELDS", "REGRESSION_WEIGHT"));
    }

    std::vector<Term> ReadTerms(const Parameter& parameter) {
        std::vector<Term> terms;
        for (const Item& item : parameter.fvItems) {
            Term term = fReader.ReadTerm(item);
            for (const Term& before : terms)
                if (before.SameAs(term))
                    throw CommandError{"the effect " + TermText(term, fVariables) + " stands twice", item.fAt};
            terms.push_back(std::move(term));
        }
        return terms;
    }

    void ReadFixed() {
        const Subcommand* fixed = fTree.Find("FIXED");
        if (!fixed) return;
        fSpec.fIntercept = IsYes(fixed->Find("INTERCEPT"), true);
        const Parameter* effects = fixed->Find("EFFECTS");
        if (effects) {
            for (const Item& item : effects->fvItems)
                if (item.IsWord("INTERCEPT"))
                    throw CommandError{"the fixed intercept is given by INTERCEPT=YES or NO, not among the effects",
                                       item.fAt};
            fSpec.fvFixed = ReadTerms(*effects);
        }
        if (!fSpec.fIntercept && fSpec.fvFixed.empty())
            throw CommandError{"the model has neither an intercept nor a fixed effect", fixed->fAt};
    }

    void ReadRandom(const Subcommand& subcommand) {
        RandomBlock block;
        const Parameter* effects = subcommand.Find("EFFECTS");
        if (!effects) throw CommandError{"RANDOM names no effects; write EFFECTS=INTERCEPT", subcommand.fAt};
        block.fvEffects = ReadTerms(*effects);
        block.fvSubjects = fReader.VariablesOf(subcommand.Find("SUBJECTS"));
        if (block.fvSubjects.empty() && block.fvEffects.front().IsIntercept() && block.fvEffects.size() == 1)
            throw CommandError{"a random intercept needs SUBJECTS over which it varies", subcommand.fAt};
        if (const Parameter* structure = subcommand.Find("COVARIANCE_TYPE"))
            block.fStructure = StructureCode(structure->fvItems.front().fText);
        block.fSolution = IsYes(subcommand.Find("SOLUTION"), false);
        block.fGrouping = fReader.VariableOf(subcommand.Find("GROUPING"));
        fSpec.fvRandom.push_back(std::move(block));
    }

    void ReadResidual(const Subcommand& subcommand) {
        ResidualBlock& block = fSpec.fResidual;
        block.fvSubjects = fReader.VariablesOf(subcommand.Find("SUBJECTS"));
        block.fvMeasures = fReader.VariablesOf(subcommand.Find("REPEATED_MEASURES"));
        block.fvKronecker = fReader.VariablesOf(subcommand.Find("KRONECKER_MEASURES"));
        block.fvCoordinates = fReader.VariablesOf(subcommand.Find("SPCOORDS"));
        block.fGrouping = fReader.VariableOf(subcommand.Find("GROUPING"));
        const Parameter* structure = subcommand.Find("COVARIANCE_TYPE");
        if (structure) {
            block.fStructure = StructureCode(structure->fvItems.front().fText);
        } else if (!block.fvMeasures.empty()) {
            block.fStructure = StructureCode("DIAG");
        }
        CheckResidual(subcommand, structure ? structure->fvItems.front().fAt : subcommand.fAt);
    }

    void CheckResidual(const Subcommand& subcommand, Position at) const {
        const ResidualBlock& block = fSpec.fResidual;
        auto refuse = [&](const std::string& text, Position where) { throw CommandError{text, where}; };
        std::string name;
        for (const StructureWord& word : StructureWords())
            if (word.fCode == block.fStructure) name = word.fName;
        const bool spatial = IsSpatialCode(block.fStructure);
        const bool kronecker = IsKroneckerCode(block.fStructure);
        if (spatial && block.fvCoordinates.empty()) refuse("the structure " + name + " needs SPCOORDS", at);
        if (!spatial && !block.fvCoordinates.empty())
            refuse("SPCOORDS goes with a spatial structure only, not with " + name, subcommand.Find("SPCOORDS")->fAt);
        if (kronecker && block.fvKronecker.empty()) refuse("the structure " + name + " needs KRONECKER_MEASURES", at);
        if (!kronecker && !block.fvKronecker.empty())
            refuse("KRONECKER_MEASURES goes with UN_UN, UN_AR1 or UN_CS only, not with " + name,
                   subcommand.Find("KRONECKER_MEASURES")->fAt);
        if (!spatial && name != "ID" && block.fvMeasures.empty())
            refuse("the structure " + name + " needs REPEATED_MEASURES", at);
        if (!block.fvMeasures.empty() && block.fvSubjects.empty())
            refuse("REPEATED_MEASURES needs SUBJECTS within which they repeat", subcommand.fAt);
        for (std::size_t i = 0; i < block.fvKronecker.size(); ++i)
            if (std::find(block.fvMeasures.begin(), block.fvMeasures.end(), block.fvKronecker[i]) ==
                block.fvMeasures.end())
                refuse(
                    "KRONECKER_MEASURES: " + fVariables[block.fvKronecker[i]].fName + " is none of REPEATED_MEASURES",
                    subcommand.Find("KRONECKER_MEASURES")->fvItems[i].fAt);
        if (kronecker && block.fvKronecker.size() == block.fvMeasures.size())
            refuse("REPEATED_MEASURES holds no variable for the first factor of " + name, at);
    }

    static Criterion ReadCriterion(const Subcommand& subcommand, const char* name, Criterion fallback) {
        const Parameter* parameter = subcommand.Find(name);
        if (!parameter) return fallback;
        Criterion read{NumberOf(parameter, 0.0, 0.0, kLargest), 1};
        if (parameter->fvItems.size() > 1 && parameter->fvItems[1].IsWord("RELATIVE")) read.fType = 2;
        return read;
    }

    static unsigned ReadFormat(const Subcommand& subcommand, const char* name, unsigned fallback) {
        const Parameter* parameter = subcommand.Find(name);
        if (!parameter) return fallback;
        const Item& item = parameter->fvItems.front();
        const std::string text = Upper(item.fText);
        const std::size_t point = text.find('.');
        double width = 0, decimals = 0;
        const bool read =
            text.starts_with("F") && ReadNumber(std::string_view(text).substr(1, point - 1), width) &&
            (point == std::string::npos || ReadNumber(std::string_view(text).substr(point + 1), decimals));
        constexpr double kWidest = 40, kMostDecimals = 16;
        if (!read || width < 1 || width > kWidest || decimals < 0 || decimals > kMostDecimals || decimals >= width)
            throw CommandError{parameter->fName +
                                   ": expected a format such as F12.3, of width up to 40 and 16 decimals, "
                                   "found " +
                                   item.fText,
                               item.fAt};
        return 5u << 16 | static_cast<unsigned>(width) << 8 | static_cast<unsigned>(decimals);
    }

    void ReadBuild(const Subcommand& build) {
        fSpec.fMethod = ChoiceOf(build, "METHOD", 0) == 1 ? 1 : 2;
        fSpec.fDFMethod = ChoiceOf(build, "DF_METHOD", 1) + 1;
        fSpec.fAnalysisType = WholeNumberOf(build.Find("ANALYSIS_TYPE"), 3, 1, 3);
        if (fSpec.fAnalysisType == 2)
            throw CommandError{"ANALYSIS_TYPE: the tests are of type 1 or 3, not 2",
                               build.Find("ANALYSIS_TYPE")->fvItems.front().fAt};
        fSpec.fConfidenceLevel = ReadLevel(build.Find("CONFIDENCE_LEVEL"));
        fSpec.fMaxIterations = WholeNumberOf(build.Find("MAX_ITERATIONS"), 100, 1, kManyIterations);
        fSpec.fMaxStepHalvings = WholeNumberOf(build.Find("MAX_STEP_HALVINGS"), 10, 1, kManyIterations);
        fSpec.fFisherSteps = WholeNumberOf(build.Find("FISHER_STEPS"), 1, 0, kManyIterations);
        fSpec.fLogLikelihood = ReadCriterion(build, "LOGLIKELIHOOD_CONVERGENCE", fSpec.fLogLikelihood);
        fSpec.fParameter = ReadCriterion(build, "PARAMETER_CONVERGENCE", fSpec.fParameter);
        fSpec.fHessian = ReadCriterion(build, "HESSIAN_CONVERGENCE", fSpec.fHessian);
        if (fSpec.fLogLikelihood.fValue == 0.0 && fSpec.fParameter.fValue == 0.0 && fSpec.fHessian.fValue == 0.0)
            throw CommandError{"all convergence criteria are off; leave one above 0", build.fAt};
        fSpec.fSingularity = NumberOf(build.Find("SINGULARITY"), fSpec.fSingularity, 1e-300, 0.1);
        fSpec.fUserMissing = ChoiceOf(build, "USER_MISSING", 0) == 1;
        fSpec.fCriteriaFormat = ReadFormat(build, "CRITERIA_FORMAT", fSpec.fCriteriaFormat);
        fSpec.fEstimateFormat = ReadFormat(build, "ESTIMATE_FORMAT", fSpec.fEstimateFormat);
    }

    static double ReadLevel(const Parameter* parameter) {
        if (!parameter) return 95.0;
        const Item& item = parameter->fvItems.front();
        if (!(item.fNumber > 0.0 && item.fNumber < 100.0))
            throw CommandError{"CONFIDENCE_LEVEL: expected a percentage above 0 and below 100, found " + item.fText,
                               item.fAt};
        return item.fNumber;
    }

    void ReadPrint() {
        const Parameter* list = fTree.Find("PRINT", "");
        if (!list) return;
        PrintOptions& print = fSpec.fPrint;
        const std::vector<std::pair<const char*, bool*>> flags{
            {"SOLUTION", &print.fSolution}, {"CORB", &print.fCorb},
            {"COVB", &print.fCovb},         {"CPS", &print.fCps},
            {"GMATRIX", &print.fGMatrix},   {"HISTORY", &print.fHistory},
            {"LMATRIX", &print.fLMatrix},   {"RMATRIX", &print.fRMatrix},
            {"TESTCOV", &print.fTestCov},   {"VARIABLEINFO", &print.fVariableInfo}};
        for (const Item& item : list->fvItems) {
            const bool interval = item.fKind == Item::Kind::kGroup;
            const Item& word = interval ? item.fvParts.front() : item;
            for (const auto& [name, flag] : flags)
                if (word.fText == name) *flag = true;
            if (!interval) continue;
            const double every = item.fvParts[1].fNumber;
            if (every < 1 || every > kManyIterations || every != std::floor(every))
                throw CommandError{"PRINT: HISTORY takes a whole number above 0", item.fvParts[1].fAt};
            print.fHistoryInterval = static_cast<int>(every);
        }
    }

    void ReadSaved() {
        const Parameter* list = fTree.Find("SAVE", "");
        if (!list) return;
        const auto& words = FindSubcommandWord("SAVE")->fParameters.front().fWords;
        constexpr std::size_t kLongestName = 64;
        for (const Item& item : list->fvItems) {
            const bool named = item.fKind == Item::Kind::kGroup;
            const std::string& word = named ? item.fvParts.front().fText : item.fText;
            SavedVariable saved;
            saved.fType = static_cast<int>(std::find(words.begin(), words.end(), word) - words.begin()) + 1;
            if (named) saved.fName = item.fvParts[1].fText;
            for (const SavedVariable& before : fSpec.fvSaved) {
                if (before.fType == saved.fType) throw CommandError{"SAVE: " + word + " stands twice", item.fAt};
                if (named && EqualWords(before.fName, saved.fName))
                    throw CommandError{"SAVE: two variables can't both be called " + saved.fName, item.fAt};
            }
            if (saved.fName.size() > kLongestName)
                throw CommandError{"SAVE: the name " + saved.fName + " is longer than 64 bytes", item.fAt};
            if (named && fVariables.Has(saved.fName))
                throw CommandError{"SAVE: the data has a variable " + saved.fName + " already", item.fAt};
            fSpec.fvSaved.push_back(std::move(saved));
        }
    }

    std::string ReadPath(const char* name) const {
        const Parameter* parameter = fTree.Find("OUTFILE", name);
        if (!parameter) return {};
        const Item& item = parameter->fvItems.front();
        constexpr std::size_t kLongestPath = 255;
        if (item.fText.size() > kLongestPath)
            throw CommandError{"OUTFILE " + std::string(name) +
                                   ": a file name is at most 255 bytes long, this one has " +
                                   std::to_string(item.fText.size()),
                               item.fAt};
        if (item.fText.empty() || item.fText.back() == ' ')
            throw CommandError{"OUTFILE " + std::string(name) + ": a file name can't be empty or end in a blank",
                               item.fAt};
        return item.fText;
    }

    void ReadFiles() {
        fSpec.fFiles = {ReadPath("MODEL"), ReadPath("PARAMETER"), ReadPath("STATXML"), ReadPath("STATJSON"),
                        ReadPath("DATA")};
        if (!fSpec.fFiles.fData.empty() && fSpec.fvSaved.empty())
            for (const int type : kUsualScores)
                fSpec.fvSaved.push_back({type, {}});
        if (!fSpec.fFiles.fModel.empty() && !fSpec.fFiles.fParameter.empty())
            throw CommandError{"OUTFILE writes either MODEL or PARAMETER in one run, not both",
                               fTree.Find("OUTFILE", "PARAMETER")->fAt};
    }

    void ReadMeansRequests() {
        for (const Subcommand* subcommand : fTree.All("EMMEANS")) {
            fSpec.fvMeans.emplace_back();
            ReadMeans(*subcommand, fReader, fSpec.fvMeans.back());
            if (fSpec.fvMeans.back().fAdjustment != fSpec.fvMeans.front().fAdjustment)
                throw CommandError{"EMMEANS: all requests of a command share one ADJUST", subcommand->fAt};
        }
    }

    void CheckTargetApart() const {
        for (const std::vector<int>* list : {&fSpec.fvFactors, &fSpec.fvCovariates})
            if (std::find(list->begin(), list->end(), fSpec.fTarget) != list->end())
                throw CommandError{"the target " + fVariables[fSpec.fTarget].fName + " can't be a predictor too",
                                   fTree.Find("FIELDS", "TARGET")->fvItems.front().fAt};
    }

    /// A residual structure has no meaning for a target of several categories.
    void CheckGroupedTarget() const {
        const run::Distribution distribution = fSpec.fTargetOptions.fDistribution;
        const bool several = distribution == run::Distribution::kNominal || distribution == run::Distribution::kOrdinal;
        if (several && fSpec.fResidual.fStructure != StructureCode("ID"))
            throw CommandError{"a nominal or ordinal target takes no residual covariance structure",
                               fTree.Find("DATA_STRUCTURE")->fAt};
    }

    const CommandTree& fTree;
    const VariableList& fVariables;
    TermReader fReader;
    Specification fSpec;
};

}  // namespace

std::optional<Specification> Resolve(const CommandTree& tree, const VariableList& variables, CommandError& error) {
    try {
        return Resolver(tree, variables).Run();
    } catch (const CommandError& refused) {
        error = refused;
        return std::nullopt;
    }
}

}  // namespace command
