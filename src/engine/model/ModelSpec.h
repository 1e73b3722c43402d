#pragma once

#include "engine/structures/Structure.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace engine {

/// A covariate of an effect, with the power to which it enters (x*x has multiplicity 2).
struct EffectCovariate {
    int fVariable = -1;
    int fMultiplicity = 1;
};

/// A product of factors and covariates. Without either it is the intercept.
///
/// Its columns are the products of the factors' level indicators times the covariates' powers, the first factor
/// slowest; all levels have columns, so that the design is overparameterised. What stands in parentheses (nesting) is
/// one of the factors like any other.
struct ModelEffect {
    std::vector<int> fFactors;                 ///< record variables, categorical
    std::vector<EffectCovariate> fCovariates;  ///< record variables, numeric
    bool IsIntercept() const { return fFactors.empty() && fCovariates.empty(); }
};

/// One random block: its effects' columns have the covariance matrix of fType, independently for each subject.
struct RandomBlock {
    std::vector<ModelEffect> fEffects;  ///< an effect without variables is the random intercept
    std::vector<int> fSubjects;         ///< subject variables; empty: all records are one subject
    CovarianceType fType = CovarianceType::kVC;
    int fGroup = -1;  ///< variable whose levels have parameters of their own, or -1
};

/// The residual (repeated) block. As born it is a scaled identity.
struct ResidualBlock {
    std::vector<int> fRepeated;  ///< repeated measure variables, Kronecker ones included
    std::vector<int> fSubjects;  ///< empty: all records are one subject
    std::vector<int> fSpatial;   ///< coordinates, numeric
    CovarianceType fType = CovarianceType::kID;
    std::vector<int> fFirstMeasures;   ///< Kronecker only: positions in fRepeated of the first factor's measures
    std::vector<int> fSecondMeasures;  ///< Kronecker only: positions in fRepeated of the second factor's
    int fGroup = -1;                   ///< variable whose levels have parameters of their own, or -1
    bool fUnitScale = false;           ///< scaled identity without groups: its variance is held at 1
    bool fDispersed = false;           ///< with fUnitScale: the variance is 1 + k d, k a parameter, d WorkingData's

    /// Independent records of one variance (for each group): no repeated machinery is needed.
    bool IsScaledIdentity() const { return fType == CovarianceType::kID || fType == CovarianceType::kVC; }
    /// Whether frequency weights repeat whole subjects instead of records.
    bool IsRepeated() const { return !fRepeated.empty() || !IsScaledIdentity(); }
};

enum class DfMethod { kResidual = 0, kSatterthwaite = 1, kKenwardRoger = 3 };

/// A convergence criterion. Off when the value is 0.
struct Criterion {
    double fValue = 0.0;
    bool fRelative = false;
    bool IsOn() const { return fValue > 0.0; }
};

/// What an iteration tells the progress callback.
struct FitProgress {
    int fIteration = 0;
    double fObjective = 0.0;
};

/// A linear mixed model in record indices, with everything that steers its estimation.
struct ModelSpec {
    int fDependent = -1;
    std::vector<int> fLevels;  ///< per record variable: number of categories, 0 when it is numeric
    bool fIntercept = true;
    std::vector<ModelEffect> fFixed;  ///< the intercept excluded
    std::vector<RandomBlock> fRandom;
    ResidualBlock fResidual;

    int fFrequencyWeight = -1;   ///< variable, or -1; values are rounded, records below 1 never reach the engine
    int fRegressionWeight = -1;  ///< variable, or -1; the residual covariance becomes W^-1/2 R W^-1/2
    int fOffset = -1;            ///< variable taken off the target, or -1
    double fOffsetValue = 0.0;   ///< fixed offset, used when fOffset is -1

    bool fRestricted = true;
    DfMethod fDf = DfMethod::kSatterthwaite;
    bool fTypeI = false;  ///< tests of fixed effects: Type I instead of Type III
    double fTolerance = 1e-12;
    double fConfidence = 0.95;

    int fMaxIterations = 100;
    int fMaxHalvings = 10;
    int fFisherSteps = 1;
    Criterion fLikelihoodCriterion;
    Criterion fParameterCriterion{1e-6, false};
    Criterion fHessianCriterion;

    int fThreads = 1;                                   ///< 0: as many as the machine has
    std::function<bool()> fCancelled;                   ///< asked often, from one thread; may be empty
    std::function<void(const FitProgress&)> fProgress;  ///< after each iteration; may be empty

    /// Fixed effects as the columns have them: the intercept first when there is one.
    std::vector<ModelEffect> FixedEffects() const {
        std::vector<ModelEffect> effects;
        if (fIntercept) effects.emplace_back();
        effects.insert(effects.end(), fFixed.begin(), fFixed.end());
        return effects;
    }
};

/// All records of one split: rows of fStride doubles, categories as 0-based codes. Not owned; the rows must stay where
/// they are while a fit, or a result that makes predictions on demand, is in use.
struct RecordView {
    const double* fData = nullptr;
    std::size_t fCount = 0;
    std::size_t fStride = 0;
    const double* Row(std::size_t i) const { return fData + i * fStride; }
};

/// The record variables by which the records must be sorted, most significant first; equal records keep their order.
/// It depends on the model alone, not on the data.
std::vector<int> SortVariables(const ModelSpec& spec);

/// The subject variables that all random blocks and a repeated block have in common: records that differ in one of
/// them are independent. Empty when there are none, or no block at all.
std::vector<int> CommonSubject(const ModelSpec& spec);

}  // namespace engine
