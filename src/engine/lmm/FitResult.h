#pragma once

#include "engine/model/EffectDesign.h"
#include "engine/model/Matrices.h"
#include "engine/model/ModelSpec.h"

#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace engine {

inline constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();

enum class Severity { kOk, kWarning, kError };

/// A status number with its weight. kNotRun is what a result is born with.
struct FitStatus {
    static constexpr long kNotRun = -1;
    long fCode = kNotRun;
    Severity fSeverity = Severity::kError;
    std::string fDetail;  ///< one sentence: what, where, what to do; may be empty
    bool IsOk() const { return fSeverity == Severity::kOk; }
    bool IsError() const { return fSeverity == Severity::kError; }
};

struct IterationRecord {
    double fObjective = kMissing;    ///< -2 (restricted) log likelihood after the iteration
    double fMaxChange = kMissing;    ///< greatest absolute change of a covariance parameter, on the target's scale
    double fMaxGradient = kMissing;  ///< greatest absolute gradient of the objective over the free parameters
    int fHalvings = 0;
    bool fFisher = false;    ///< scoring step, else a Newton step
    double fDamping = 1.0;   ///< generalized models: part of the way that was gone
    Eigen::VectorXd fTheta;  ///< covariance parameters, reported scale, all of them
};

struct FixedParameter {
    int fEffect = 0;           ///< index into ModelSpec::FixedEffects()
    std::vector<int> fLevels;  ///< 0-based codes, one a factor of the effect
    int fTarget = -1;          ///< target category of a multinomial model, else -1
    bool fThreshold = false;   ///< of an ordinal target: the upper threshold of category fTarget
    double fEstimate = 0.0;    ///< 0 when redundant
    double fStdError = kMissing;
    double fDf = kMissing;
    double fT = kMissing;
    double fP = kMissing;
    double fLower = kMissing;
    double fUpper = kMissing;
    bool fRedundant = false;
};

/// One row of coefficients, estimated.
struct Estimated {
    double fEstimate = kMissing;
    double fStdError = kMissing;
    double fDf = kMissing;
    bool fEstimable = true;
};

/// The same with its test against zero and its limits.
struct ContrastResult : Estimated {
    double fT = kMissing;
    double fP = kMissing;
    double fLower = kMissing;
    double fUpper = kMissing;
};

/// An F test of several rows of coefficients against zero (or given values).
struct FTestResult {
    int fEffect = -1;  ///< index into ModelSpec::FixedEffects(), -1 for a test made on demand
    double fF = kMissing;
    double fDf1 = 0.0;  ///< rank of the rows
    double fDf2 = kMissing;
    double fP = kMissing;
    bool fEstimable = true;  ///< false: no estimable function of the wanted kind exists, nothing is computed
    Eigen::MatrixXd fL;      ///< rows tested, one column a fixed parameter, redundant ones included
};

struct CovarianceParameter {
    int fBlock = -1;   ///< random block, -1 for the residual
    int fGroup = -1;   ///< code of the group level, -1 without groups
    int fTarget = -1;  ///< target category of a multinomial model, else -1
    CovarianceType fType = CovarianceType::kID;
    std::string fName;  ///< standard term: "Variance", "UN(2,1)"
    ParamKind fKind = ParamKind::kVariance;
    double fEstimate = kMissing;
    double fStdError = kMissing;
    double fZ = kMissing;
    double fP = kMissing;
    double fLower = kMissing;
    double fUpper = kMissing;
    bool fRedundant = false;  ///< fixed in advance, or without influence; not counted in the criteria
    bool fAtBound = false;    ///< held at the edge of its range
};

/// Predictions of one subject's random effects of one block.
struct SubjectPrediction {
    std::vector<int> fSubject;  ///< codes of the block's subject variables
    int fGroup = -1;
    Eigen::VectorXd fEstimate;  ///< one a column of the block
    Eigen::VectorXd fStdError;  ///< of prediction: root of the variance of estimate less truth
};

/// What a column of a random block stands for.
struct RandomColumn {
    int fEffect = 0;
    std::vector<int> fLevels;
};

/// What was checked at the end of the iterations, on the scale on which they ran.
struct Certificate {
    double fScaledGradient = kMissing;      ///< greatest |gradient_k| / sqrt(Hessian_kk) over the free parameters
    double fNewtonDecrement = kMissing;     ///< g' H^-1 g: what a last step would take off the objective, twice
    double fSmallestEigenvalue = kMissing;  ///< of the Hessian, scaled to a unit diagonal
    std::vector<int> fAtBound;              ///< covariance parameters held at a bound
};

/// One row of coefficients over fixed parameters and, if wanted, predicted random effects. What it doesn't name is
/// zero; what it names twice adds up.
struct MixedRow {
    struct RandomTerm {
        int fBlock = 0;
        int fSubject = 0;  ///< its number, see FitResult::FindSubject
        int fColumn = 0;
        double fCoefficient = 0.0;
    };
    std::vector<ColumnHit> fFixed;
    std::vector<RandomTerm> fRandom;
};

struct FittedModel;

/// Everything that is known after a fit. Doubles that could not be computed are missing (NaN).
struct FitResult {
    FitStatus fStatus;                      ///< what the fit returned
    std::vector<FitStatus> fWarnings;       ///< in the order in which they arose, the returned one included
    std::vector<IterationRecord> fHistory;  ///< entry 0 is the start
    int fIterations = 0;
    Certificate fCertificate;

    bool HasEstimates() const { return fModel != nullptr; }

    // Size of the problem.
    double fRecords = 0;            ///< rows read
    double fTotalFrequency = 0.0;   ///< sum of the frequency weights, records without one
    int fRank = 0;                  ///< of the fixed effects' design
    int fResidualDf = 0;            ///< total frequency less rank
    std::vector<int> fNumSubjects;  ///< per random block
    std::vector<int> fNumColumns;   ///< per random block, columns for one subject
    int fNumResidualSubjects = 0;
    int fNumCommonSubjects = 0;
    int fMaxRecordsPerSubject = 0;           ///< of the common subjects
    std::vector<std::size_t> fFirstSubject;  ///< records (rows of the view) of the first common subject, ascending
    std::vector<std::vector<RandomColumn>> fRandomColumns;  ///< per random block

    // Fit.
    double fMinus2LogLikelihood = kMissing;
    double fAic = kMissing;
    double fAicc = kMissing;
    double fCaic = kMissing;
    double fBic = kMissing;

    // Fixed effects.
    std::vector<FixedParameter> fFixed;  ///< in column order
    Eigen::MatrixXd fFixedCovariance;    ///< model-based, or adjusted for Kenward-Roger; zeros for redundant ones
    std::vector<FTestResult> fTests;     ///< one an effect, the intercept included; the type that was asked for

    // Covariance.
    std::vector<CovarianceParameter> fCovariance;  ///< random blocks in order, group by group; the residual last
    Eigen::MatrixXd fCovarianceOfCovariance;  ///< asymptotic, reported scale; zeros for fixed and at-bound parameters

    std::shared_ptr<const FittedModel> fModel;  ///< what answers the calls below; null when there are no estimates

    /// One row of coefficients over all fixed parameters (redundant ones included).
    ContrastResult Contrast(const Eigen::VectorXd& row) const;
    /// The same with random effects.
    ContrastResult Contrast(const MixedRow& row) const;
    /// F test of the rows against values (empty: zeros). Dependent rows are dropped.
    FTestResult Test(const Eigen::MatrixXd& rows, const Eigen::VectorXd& values = {}) const;
    FTestResult Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values = {}) const;
    /// Whether a row of coefficients is a function of the cell means.
    bool IsEstimable(const Eigen::VectorXd& row) const;
    /// Tests of all fixed effects of Type I or Type III.
    std::vector<FTestResult> EffectTests(bool typeI) const;
    /// Covariance matrix of one subject's effects of a block, at a group level (-1: none).
    Eigen::MatrixXd RandomCovariance(int block, int group = -1) const;
    /// Residual covariance matrix of the first residual subject (rows in record order, at most maxRows of them).
    Eigen::MatrixXd ResidualCovariance(int maxRows = 200) const;
    /// Predictions of the random effects of a block, subjects in the order of the records. Reads the records again.
    std::vector<SubjectPrediction> Predictions(int block) const;
    /// Takes from the records what predictions with random effects need, so that the records may go.
    void KeepPredictions() const;
    /// The number by which rows know a subject of a block, given the codes of the block's subject variables; -1 when
    /// the fit doesn't know it.
    int FindSubject(int block, const std::vector<int>& codes) const;
};

}  // namespace engine
