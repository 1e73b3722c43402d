#pragma once

#include <string>
#include <utility>
#include <vector>

/// The parts of a model that cross to the engine: effects, blocks, tests, means requests. All are values.

/// One effect: factors on nesting levels and covariates with multiplicities, over a list of predictor variables.
///
/// An effect remembers positions in its predictor list, so that SetVarIndices moves it from the host's indices to the
/// record's in one step. Nesting levels count from 0, the innermost; GetFactors lists by rising level.
class MCModelEffect {
public:
    MCModelEffect() = default;
    void Reset();
    /// nFactors leading entries of predictors may be factors, the nCovariates behind them covariates.
    void Setup(int nFactors, int nCovariates, const std::vector<int>* predictors);
    void Setup(int nFactors, int nCovariates, const std::vector<int>& predictors) {
        Setup(nFactors, nCovariates, &predictors);
    }
    /// Position of the factor in the effect, -1 if the variable is no factor of the list. newLevel opens a nesting
    /// level.
    int AddNewFactor(int variable, bool newLevel);
    int AddCovariate(int variable);  ///< multiplicity after the call, 0 if the variable is no covariate of the list
    void SetVarIndices(const std::vector<int>* predictors);
    void SetVarIndices(const std::vector<int>& predictors) { SetVarIndices(&predictors); }
    void SetVarsIndicesForTheEffectInSetting(const std::vector<int>& variables) { fvSetting = variables; }
    const std::vector<int>& GetVarsIndicesForTheEffectInSetting() const { return fvSetting; }
    void SetFactorsInParens(bool inParens) { fFactorsInParens = inParens; }

    int GetNFactors() const { return static_cast<int>(fvFactorPos.size()); }
    std::vector<int> GetFactors() const;
    const std::vector<int>& GetFactorLevels() const { return fvLevels; }
    int GetNCovariates() const { return static_cast<int>(fvCovariatePos.size()); }
    std::vector<int> GetCovariates() const;
    int GetCovariateMult(int variable) const;  ///< 0 if the variable is no covariate of the effect
    const std::vector<int>& GetCovMultiplicities() const { return fvMults; }
    bool IsIntercept() const { return fvFactorPos.empty() && fvCovariatePos.empty(); }
    bool GetFactorsInParens() const { return fFactorsInParens; }
    void Display() const;

private:
    int fNFactors = 0;
    std::vector<int> fvPredictors;
    std::vector<int> fvFactorPos;
    std::vector<int> fvLevels;
    std::vector<int> fvCovariatePos;
    std::vector<int> fvMults;
    std::vector<int> fvSetting;
    bool fFactorsInParens = false;
};

/// One regression parameter: an effect at category codes of its factors, in one split's terms.
class MCRegrParameter {
public:
    int GetEffectIndex() const { return fEffectIndex; }
    const std::vector<int>& GetFactors() const { return fvFactors; }
    const std::vector<int>& GetFactorNestLevels() const { return fvLevels; }
    const std::vector<int>& GetCategories() const { return fvCategories; }
    std::vector<int>& GetCategories() { return fvCategories; }
    int GetNCovariates() const { return static_cast<int>(fvCovariates.size()); }
    const std::vector<int>& GetCovariates() const { return fvCovariates; }
    int GetCovariateMult(int covariate) const;
    bool IsIntercept() const { return fvFactors.empty() && fvCovariates.empty(); }
    void SetTargetCategory(int category) { fTargetCategory = category; }
    int GetTargetCategory() const { return fTargetCategory; }
    /// Takes the effect's factors and covariates; categories are set to -1. False for the intercept or a negative
    /// index.
    bool SetupFromEffect(const MCModelEffect& effect, int effectIndex, int keepCategories);

private:
    int fEffectIndex = -1;
    std::vector<int> fvFactors;
    std::vector<int> fvLevels;
    std::vector<int> fvCategories;
    std::vector<int> fvCovariates;
    std::vector<int> fvMults;
    int fTargetCategory = -1;
};

/// The engine's covariance type by number; the engine names the numbers.
using CovarType = int;

/// One random, repeated or Kronecker block.
class GLMMRandomSpec {
public:
    void Reset(bool keepIndex);
    void AddEffect(const MCModelEffect& effect) { fvEffects.push_back(effect); }
    const std::vector<MCModelEffect>& GetEffects() const { return fvEffects; }
    void AddSubjectVar(int variable) { fvSubjects.push_back(variable); }
    const std::vector<int>& GetSubjectVars() const { return fvSubjects; }
    void SetCovarianceType(CovarType type) { fCovarianceType = type; }
    CovarType GetCovarianceType() const { return fCovarianceType; }
    void SetIndex(int index) { fIndex = index; }
    int GetIndex() const { return fIndex; }
    void SetComputeEBLUPs(bool compute) { fComputeEBLUPs = compute; }
    bool GetComputeEBLUPs() const { return fComputeEBLUPs; }
    void SetfvectorAforPaired(const std::vector<int>& positions) { fvectorAforPaired = positions; }
    const std::vector<int>& GetfvectorAforPaired() const { return fvectorAforPaired; }
    void SetfvectorBforPaired(const std::vector<int>& positions) { fvectorBforPaired = positions; }
    const std::vector<int>& GetfvectorBforPaired() const { return fvectorBforPaired; }
    void Display() const;

private:
    std::vector<MCModelEffect> fvEffects;
    std::vector<int> fvSubjects;
    CovarType fCovarianceType = 8;
    int fIndex = -1;
    bool fComputeEBLUPs = false;
    std::vector<int> fvectorAforPaired;
    std::vector<int> fvectorBforPaired;
};

/// 0 fixed with an intercept coefficient, 1 fixed without, 2 one run of all coefficients, 3 random by effects.
using LMatrixRowType = int;

/// One row of a custom test's L matrix.
class LMatrixRow {
public:
    void Setup(LMatrixRowType type, int nEffects);
    void AddNewPair(int effect, const std::vector<double>& values);
    void AddNewPair(const MCModelEffect& effect, const std::vector<double>& values);
    void SetFirstValue(double value) { fFirstValue = value; }
    void SetAllValues(const std::vector<double>& values) { fvAllValues = values; }

    LMatrixRowType GetType() const { return fType; }
    int GetNEffects() const { return fNEffects; }
    double GetFirstValue() const { return fFirstValue; }
    const std::vector<double>& GetAllValues() const { return fvAllValues; }
    const std::vector<std::pair<int, std::vector<double>>>& GetEffectPairs() const { return fvEffectPairs; }
    const std::vector<std::pair<MCModelEffect, std::vector<double>>>& GetRandomPairs() const { return fvRandomPairs; }

private:
    LMatrixRowType fType = 0;
    int fNEffects = 0;
    double fFirstValue = 0.0;
    std::vector<double> fvAllValues;
    std::vector<std::pair<int, std::vector<double>>> fvEffectPairs;
    std::vector<std::pair<MCModelEffect, std::vector<double>>> fvRandomPairs;
};

/// One custom test: rows over fixed, or fixed and random, coefficients and what they are tested against.
class CustomTest {
public:
    void Reset();
    void AddFixedRow(const LMatrixRow& row) { fvRows.push_back({row, LMatrixRow(), false}); }
    void AddMixedRow(const LMatrixRow& fixed, const LMatrixRow& random) { fvRows.push_back({fixed, random, true}); }
    void SetKMatrix(const std::vector<double>& values) { fvK = values; }
    void SetLabel(const std::string& label) { fLabel = label; }
    void Display() const;

    struct Row {
        LMatrixRow fFixed;
        LMatrixRow fRandom;
        bool fMixed;
    };
    const std::vector<Row>& GetRows() const { return fvRows; }
    const std::vector<double>& GetKMatrix() const { return fvK; }
    const std::string& GetLabel() const { return fLabel; }

private:
    std::vector<Row> fvRows;
    std::vector<double> fvK;
    std::string fLabel;
};

using MCContrastType =
    int;  ///< 0 simple, 1 deviation, 5 over given values, 6 pairwise with a compare factor, else none
using MCPAdjustMethod = int;  ///< 0 least significant difference, 1 sequential Bonferroni, 3 sequential Sidak
using MCEmmScaleType = int;   ///< 0 original scale, 1 link scale
using MCReferenceType = bool;

/// One estimated means request.
class MCEmmeansSpec {
public:
    void Reset();
    int AddFactor(int variable, int nestLevel);  ///< position, negative if refused
    const std::vector<int>& GetFactors() const { return fvFactors; }
    const std::vector<int>& GetFactorsNestLevel() const { return fvNestLevels; }
    int AddCovariate(int variable, double value);
    const std::vector<std::pair<int, double>>& GetCovariates() const { return fvCovariates; }
    int AddCompareFactor(int variable);
    const std::vector<int>& GetCompareFactors() const { return fvCompareFactors; }
    bool SetContrastType(MCContrastType type);
    MCContrastType GetContrastType() const { return fContrastType; }
    void SetRefCateg(int category) { fRefCateg = category; }
    int GetRefCateg() const { return fRefCateg; }
    bool SetMetricValueList(const std::vector<double>& values);
    const std::vector<double>& GetMetricValueList() const { return fvMetricValues; }
    bool SetPAdjust(MCPAdjustMethod method);
    MCPAdjustMethod GetPAdjust() const { return fPAdjust; }
    bool SetEmmScaleType(MCEmmScaleType scale);
    MCEmmScaleType GetEmmScaleType() const { return fScale; }
    void SetReferenceType(MCReferenceType type) { fReferenceType = type; }
    MCReferenceType GetReferenceType() const { return fReferenceType; }
    void Display() const;

private:
    std::vector<int> fvFactors;
    std::vector<int> fvNestLevels;
    std::vector<std::pair<int, double>> fvCovariates;
    std::vector<int> fvCompareFactors;
    MCContrastType fContrastType = 6;
    int fRefCateg = -1;  ///< -1: the last category
    std::vector<double> fvMetricValues;
    MCPAdjustMethod fPAdjust = 0;
    MCEmmScaleType fScale = 0;
    MCReferenceType fReferenceType = true;
};
