#pragma once

#include "command/CommandTree.h"
#include "command/VariableList.h"
#include "run/RunValue.h"

#include <optional>
#include <string>
#include <vector>

/// A command whose words are resolved: variables by position, keywords by code. What the parsed block is written from.
namespace command {

/// One effect. Without factors and covariates it is the intercept.
struct Term {
    struct Factor {
        int fVariable = -1;
        int fLevel = 1;  ///< nesting: 1 the innermost in parentheses, rising without gaps
        bool operator==(const Factor&) const = default;
        auto operator<=>(const Factor&) const = default;
    };
    struct Power {
        int fVariable = -1;
        int fTimes = 1;
        bool operator==(const Power&) const = default;
        auto operator<=>(const Power&) const = default;
    };
    std::vector<Factor> fvFactors;
    std::vector<Power> fvCovariates;
    bool fCovariatesNested = false;  ///< the covariates stand outside parentheses that hold the factors
    bool IsIntercept() const { return fvFactors.empty() && fvCovariates.empty(); }
    /// Same variables in the same nesting, whatever the order in which they were written.
    bool SameAs(const Term& other) const;
};

struct RandomBlock {
    std::vector<Term> fvEffects;
    std::vector<int> fvSubjects;
    int fStructure = 17;  ///< VC
    bool fSolution = false;
    int fGrouping = -1;
};

struct ResidualBlock {
    std::vector<int> fvSubjects;
    std::vector<int> fvMeasures;
    std::vector<int> fvKronecker;  ///< a subset of the measures
    std::vector<int> fvCoordinates;
    int fStructure = 12;  ///< ID
    int fGrouping = -1;
};

struct Criterion {
    double fValue = 0.0;
    int fType = 1;  ///< 1 absolute, 2 relative
};

/// Values are the codes of the block: none, number, text, first, last.
enum class Reference { kNone = 0, kNumber = 1, kText = 2, kFirst = 3, kLast = 4 };

struct Means {
    std::vector<int> fvFactors;  ///< positions in the factor list
    int fCompare = -1;           ///< position in fvFactors
    int fAdjustment = 1;         ///< 1 least significant difference, 2 sequential Bonferroni, 3 sequential Sidak
    Reference fReference = Reference::kNone;
    double fNumber = 0.0;
    std::string fText;
    int fTextWidth = 0;  ///< width of the compared factor
    struct Fixed {
        int fCovariate = -1;  ///< position in the covariate list
        double fValue = 0.0;
        std::string fText;
    };
    std::vector<Fixed> fvFixed;
    run::MeansChoice fChoice;
};

using CustomTest = run::CustomTest;

struct SavedVariable {
    int fType = 1;  ///< one-based
    std::string fName;
};

/// Print options, by the words of the language.
struct PrintOptions {
    bool fSolution = false, fCorb = false, fCovb = false, fCps = false, fGMatrix = false, fHistory = false,
         fLMatrix = false, fRMatrix = false, fTestCov = false, fVariableInfo = false;
    int fHistoryInterval = 1;
};

struct OutputFiles {
    std::string fModel, fParameter, fStatXML, fStatJSON, fData;
};

struct Specification {
    int fTarget = -1;
    std::vector<int> fvFactors;
    std::vector<int> fvCovariates;
    int fRegressionWeight = -1;
    bool fIntercept = true;
    std::vector<Term> fvFixed;  ///< the intercept not among them
    std::vector<RandomBlock> fvRandom;
    ResidualBlock fResidual;
    run::Target fTargetOptions;

    int fMethod = 2;        ///< 1 full likelihood, 2 restricted
    int fDFMethod = 2;      ///< 1 residual, 2 Satterthwaite, 3 Kenward-Roger
    int fAnalysisType = 3;  ///< 1 or 3
    double fConfidenceLevel = 95.0;
    int fMaxIterations = 100;
    int fMaxStepHalvings = 10;
    int fFisherSteps = 1;
    Criterion fLogLikelihood{0.0, 1};
    Criterion fParameter{1e-6, 1};
    Criterion fHessian{0.0, 1};
    double fSingularity = 1e-12;
    bool fUserMissing = false;
    unsigned fCriteriaFormat = 5u << 16 | 15u << 8 | 3u;  ///< packed: type, width, decimals
    unsigned fEstimateFormat = 5u << 16 | 15u << 8 | 6u;

    std::vector<Means> fvMeans;
    std::vector<CustomTest> fvTests;
    PrintOptions fPrint;
    std::vector<SavedVariable> fvSaved;
    OutputFiles fFiles;
};

/// What the command says of the data: read before the variables are known.
struct DataWishes {
    std::string fFile, fSchema, fWeight, fFilter;
    std::vector<std::string> fvNominal, fvOrdinal, fvSplitBy, fvMissing;
    bool fDecimalComma = false;
};
DataWishes ReadDataWishes(const CommandTree& tree);

/// Resolves a command against the variables of the data, and tests what the block can't hold or the procedure relies
/// on. Nothing, with the error, when the command doesn't hold.
std::optional<Specification> Resolve(const CommandTree& tree, const VariableList& variables, CommandError& error);

/// An effect as the language writes it.
std::string TermText(const Term& term, const VariableList& variables);

}  // namespace command
