#pragma once

#include <limits>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// A split's results as plain figures, in the user's words: what the tidy JSON form is written from.
namespace run {

/// A figure that does not exist.
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

/// Names and texts of categories, variable by variable: {"region", "north"}.
using Levels = std::vector<std::pair<std::string, std::string>>;

struct Message {
    std::string fLevel;  ///< "warning" or "error"
    long fCode = 0;
    std::string fText;
};

struct FixedRow {
    std::string fEffect;  ///< "a*x"; "(Intercept)" for the intercept and for thresholds
    std::string fTerm;    ///< "[a=1] * x"
    std::optional<std::string> fTargetCategory;
    double fEstimate = kNone, fStdError = kNone, fDf = kNone, fT = kNone, fP = kNone, fLower = kNone, fUpper = kNone;
    bool fRedundant = false;
};

struct TestRow {
    std::string fEffect;
    int fType = 3;
    double fDf1 = kNone, fDf2 = kNone, fF = kNone, fP = kNone;
};

struct CovarianceRow {
    std::string fBlock;                   ///< "residual", or the random block's number from "1"
    std::optional<std::string> fSubject;  ///< subject variables joined by "*"
    std::optional<std::string> fGroup;    ///< level of the grouping variable
    std::optional<std::string> fTargetCategory;
    std::string fStructure;  ///< "UN"
    std::string fParameter;  ///< "UN(1,1)"
    double fEstimate = kNone, fStdError = kNone, fZ = kNone, fP = kNone, fLower = kNone, fUpper = kNone;
    bool fRedundant = false;
};

struct RandomEffectRow {
    std::string fBlock;
    std::string fSubject;  ///< category texts of the subject variables joined by "*"
    std::optional<std::string> fTargetCategory;
    std::string fTerm;
    double fEstimate = kNone, fStdError = kNone;
};

struct MeanRow {
    Levels fLevels;
    double fMean = kNone, fStdError = kNone, fDf = kNone, fLower = kNone, fUpper = kNone;
    bool fEstimable = true;
};

struct ContrastRow {
    Levels fAt;  ///< levels of the factors that are not compared
    std::string fContrast;
    double fEstimate = kNone, fStdError = kNone, fT = kNone, fDf = kNone, fP = kNone, fPAdjusted = kNone,
           fLower = kNone, fUpper = kNone;
};

struct OverallTestRow {
    Levels fAt;
    double fF = kNone, fDf1 = kNone, fDf2 = kNone, fP = kNone;
};

struct MeansRequest {
    int fRequest = 1;
    std::vector<std::string> fFactors;
    std::vector<std::pair<std::string, double>> fCovariates;  ///< where the covariates were held
    std::string fScale = "original";
    std::vector<MeanRow> fEstimates;
    std::vector<ContrastRow> fContrasts;
    std::vector<OverallTestRow> fOverall;
};

struct CustomTestRow {
    std::string fLabel;
    struct Row {
        int fNumber = 1;  ///< of the row as it was given; a row of a multinomial target may stand for several
        std::optional<std::string> fTargetCategory;
        double fEstimate = kNone, fHypothesised = kNone, fStdError = kNone, fDf = kNone, fT = kNone, fP = kNone,
               fLower = kNone, fUpper = kNone;
        bool fEstimable = true;
    };
    std::vector<Row> fRows;
    double fF = kNone, fDf1 = kNone, fDf2 = kNone, fP = kNone;
};

struct IterationRow {
    int fIteration = 0;
    std::string fMethod;  ///< "Fisher", "Newton", "outer"
    double fObjective = kNone;
    double fChange = kNone;
    int fHalvings = 0;
    double fDamping = 1.0;
    std::vector<double> fTheta;
};

/// A matrix to show on request, with names for its rows and columns: G, R, L, cross-products.
struct NamedMatrix {
    std::string fTitle;
    std::vector<std::string> fRows;
    std::vector<std::string> fColumns;
    std::vector<std::vector<double>> fValues;
};

struct Figures {
    bool fConverged = false;
    long fCode = 0;
    int fIterations = 0;
    std::vector<Message> fMessages;

    double fRecordsUsed = 0, fRecordsExcluded = 0, fWeightUsed = 0;
    int fSubjects = 0;

    std::string fMethod = "REML";       ///< "REML" or "ML"
    std::string fLikelihood = "exact";  ///< "exact" or "pseudo"
    double fMinus2LL = kNone, fAIC = kNone, fAICC = kNone, fCAIC = kNone, fBIC = kNone;

    double fScaledGradient = kNone, fNewtonDecrement = kNone, fSmallestEigenvalue = kNone;
    std::vector<std::string> fAtBound;

    std::vector<FixedRow> fFixed;
    std::vector<std::vector<double>> fFixedCovariance;
    std::vector<TestRow> fTests;
    std::vector<CovarianceRow> fCovariance;
    std::vector<RandomEffectRow> fRandomEffects;
    std::vector<MeansRequest> fMeans;
    std::vector<CustomTestRow> fCustomTests;
    std::vector<IterationRow> fHistory;
    std::vector<NamedMatrix> fMatrices;
};

}  // namespace run
