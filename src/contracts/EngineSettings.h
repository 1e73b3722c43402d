#pragma once

#include "contracts/EngineModel.h"
#include "contracts/EngineRecord.h"

#include <ostream>
#include <utility>
#include <vector>

/// Settings of a model, class by class. Every setter has its reader; numbers of the enumerations are the contract.

using MCConvType = int;  ///< 1 absolute, 2 relative
using MCCovbType = int;
using MCHessianCompMethod = int;   ///< 2 Newton, 3 Fisher then Newton
using MCEffectAnalysisType = int;  ///< 0 Type I, else Type III
using EffectAnalysisStat = int;
using CIType = int;
using ThetaEstType = int;        ///< 1 restricted, 0 full
using DegreesFreedomType = int;  ///< 0 residual, 1 Satterthwaite, 3 Kenward-Roger
using ScoreType =
    int;  ///< 10 fixed prediction, 0 prediction, 6 residual, 11 and 1 their standard errors, 19 and 9 their df
using MCCategOrder = int;  ///< 0 ascending, 1 descending, 2 data order
using MCOffsetType = int;  ///< 0 none, 1 variable, 2 fixed value
using MCRegModelType = int;

class MCSettings {
public:
    virtual ~MCSettings() = default;
};

class MCRegSettings {
public:
    virtual ~MCRegSettings() = default;
    virtual MCRegModelType GetModelType() const = 0;
    virtual bool IsValidSettings(bool complete) const = 0;
    virtual void SetDependent(int variable) = 0;
    virtual void AddCovariate(int variable) = 0;
    virtual void AddModelEffect(const MCModelEffect& effect) = 0;
    virtual void Display() const = 0;
    virtual bool IsValidSettings() const = 0;
    virtual void Display(std::ostream& stream) const = 0;

    void AddFactor(int variable, int levels) { fvFactors.emplace_back(variable, levels); }
    void SetFrequencyWeightVar(int variable) { fFrequencyWeight = variable; }
    void SetRegrWeightVar(int variable) { fRegrWeight = variable; }
    void SetInterceptUse(bool use) { fIntercept = use; }
    void SetTransformEffects(bool transform) { fTransformEffects = transform; }
    void SetTolerance(double tolerance) { fTolerance = tolerance; }
    void SetConfidenceLevel(double level) { fConfidenceLevel = level; }
    void SetCancelPointer(MCQueryCancel* cancel) { fpCancel = cancel; }
    void SetCovbType(MCCovbType type) { fCovbType = type; }

    const std::vector<std::pair<int, int>>& GetFactors() const { return fvFactors; }  ///< variable, number of levels
    const std::vector<int>& GetCovariates() const { return fvCovariates; }
    int GetFrequencyWeightVar() const { return fFrequencyWeight; }
    int GetRegrWeightVar() const { return fRegrWeight; }
    bool GetInterceptUse() const { return fIntercept; }
    bool GetTransformEffects() const { return fTransformEffects; }
    double GetTolerance() const { return fTolerance; }
    double GetConfidenceLevel() const { return fConfidenceLevel; }
    MCQueryCancel* GetCancelPointer() const { return fpCancel; }
    MCCovbType GetCovbType() const { return fCovbType; }
    int GetDependent() const { return fDependent; }
    const std::vector<MCModelEffect>& GetModelEffects() const { return fvModelEffects; }

protected:
    int fDependent = -1;
    std::vector<int> fvCovariates;
    std::vector<MCModelEffect> fvModelEffects;

private:
    std::vector<std::pair<int, int>> fvFactors;
    int fFrequencyWeight = -1;
    int fRegrWeight = -1;
    bool fIntercept = true;
    bool fTransformEffects = false;
    double fTolerance = 1e-12;
    double fConfidenceLevel = 0.95;
    MCQueryCancel* fpCancel = nullptr;
    MCCovbType fCovbType = 0;
};

class MCLogRegSettings : public MCRegSettings {
public:
    void SetIterationFrequency(int interval) { fIterationFrequency = interval; }
    void SetLLConCriterion(double criterion) { fLLCriterion = criterion; }
    void SetParamEstConCriterion(double criterion) { fParamCriterion = criterion; }
    void SetMaxIterations(int iterations) { fMaxIterations = iterations; }
    void SetMaxStepHalvingValue(int halvings) { fMaxStepHalving = halvings; }
    int GetDependentRefCateg() const { return fDependentRefCateg; }

    int GetIterationFrequency() const { return fIterationFrequency; }
    double GetLLConCriterion() const { return fLLCriterion; }
    double GetParamEstConCriterion() const { return fParamCriterion; }
    int GetMaxIterations() const { return fMaxIterations; }
    int GetMaxStepHalvingValue() const { return fMaxStepHalving; }

private:
    int fIterationFrequency = 1;
    double fLLCriterion = 0.0;
    double fParamCriterion = 1e-6;
    int fMaxIterations = 100;
    int fMaxStepHalving = 10;
    int fDependentRefCateg = -1;
};

class GZLSettings : public MCLogRegSettings {
public:
    void SetSingleDependent(int variable) { SetDependent(variable); }
    void SetDependent(int variable) override { fDependent = variable; }
    void AddCovariate(int variable) override { fvCovariates.push_back(variable); }
    void AddModelEffect(const MCModelEffect& effect) override { fvModelEffects.push_back(effect); }

    void SetOffset(int variable) { fOffset = variable; }
    void SetOffsetValue(double value) { fOffsetValue = value; }
    void SetHConvergeType(MCConvType type) { fHConvType = type; }
    void SetLConvergeType(MCConvType type) { fLConvType = type; }
    void SetPConvergeType(MCConvType type) { fPConvType = type; }
    void SetToleranceHessian(double criterion) { fHCriterion = criterion; }
    void SetHessianCompMethod(MCHessianCompMethod method) { fHessianMethod = method; }
    void SetCSIteration(int iteration) { fCSIteration = iteration; }
    void SetEffectAnalysisType(MCEffectAnalysisType type) { fAnalysisType = type; }
    void SetEffectAnalysisStat(EffectAnalysisStat stat) { fAnalysisStat = stat; }
    void SetCIType(CIType type) { fCIType = type; }
    void SetCIConvProfile(double criterion) { fCIConvProfile = criterion; }
    void SetMaxIterationsPLCI(int iterations) { fMaxIterPLCI = iterations; }
    void SetToleranceLogLikePLCI(double criterion) { fLLPLCI = criterion; }
    void SetToleranceHessianPLCI(double criterion) { fHPLCI = criterion; }
    void SetMaxIterationsSQP(int iterations) { fMaxIterSQP = iterations; }
    void SetToleranceLogLikeSQP(double criterion) { fLLSQP = criterion; }
    void SetToleranceParamSQP(double criterion) { fParamSQP = criterion; }
    void SetToleranceHessianSQP(double criterion) { fHSQP = criterion; }
    void SetHConvergeTypeSQP(MCConvType type) { fHTypeSQP = type; }
    void SetLConvergeTypeSQP(MCConvType type) { fLTypeSQP = type; }
    void SetPConvergeTypeSQP(MCConvType type) { fPTypeSQP = type; }
    void SetLConvergeTypeTypeIandIII(MCConvType type) { fLTypeTests = type; }
    void SetTolLogLikeTypeIandIII(double criterion) { fLLTests = criterion; }
    void SetGEFTest(bool test) { fGEFTest = test; }
    void SetModelFittingTest(bool test) { fModelFittingTest = test; }
    void SetEmmeans(const std::vector<MCEmmeansSpec>& requests) { fvEmmeans = requests; }

    int GetOffset() const { return fOffset; }
    double GetOffsetValue() const { return fOffsetValue; }
    MCConvType GetHConvergeType() const { return fHConvType; }
    MCConvType GetLConvergeType() const { return fLConvType; }
    MCConvType GetPConvergeType() const { return fPConvType; }
    double GetToleranceHessian() const { return fHCriterion; }
    MCHessianCompMethod GetHessianCompMethod() const { return fHessianMethod; }
    int GetCSIteration() const { return fCSIteration; }
    MCEffectAnalysisType GetEffectAnalysisType() const { return fAnalysisType; }
    const std::vector<MCEmmeansSpec>& GetEmmeans() const { return fvEmmeans; }

private:
    int fOffset = -1;
    double fOffsetValue = 0.0;
    MCConvType fHConvType = 1;
    MCConvType fLConvType = 1;
    MCConvType fPConvType = 1;
    double fHCriterion = 0.0;
    MCHessianCompMethod fHessianMethod = 3;
    int fCSIteration = 20;
    MCEffectAnalysisType fAnalysisType = 1;
    EffectAnalysisStat fAnalysisStat = 0;
    CIType fCIType = 0;
    double fCIConvProfile = 1e-4;
    int fMaxIterPLCI = 100;
    double fLLPLCI = 1e-4;
    double fHPLCI = 1e-4;
    int fMaxIterSQP = 100;
    double fLLSQP = 0.0;
    double fParamSQP = 1e-6;
    double fHSQP = 0.0;
    MCConvType fHTypeSQP = 1;
    MCConvType fLTypeSQP = 1;
    MCConvType fPTypeSQP = 1;
    MCConvType fLTypeTests = 1;
    double fLLTests = 1e-4;
    bool fGEFTest = false;
    bool fModelFittingTest = false;
    std::vector<MCEmmeansSpec> fvEmmeans;
};

class GLMMSettings : public GZLSettings, public MCSettings {
public:
    MCRegModelType GetModelType() const override;
    bool IsValidSettings(bool complete) const override;
    void Display() const override;
    bool IsValidSettings() const override { return IsValidSettings(true); }
    void Display(std::ostream& stream) const override;

    void SetUse4Mixed(bool use) { fUse4Mixed = use; }
    void AddRandomSpec(const GLMMRandomSpec& spec) { fvRandomSpecs.push_back(spec); }
    void SetRepeated(const GLMMRandomSpec& spec) { fRepeated = spec; }
    void SetKronecker(const GLMMRandomSpec& spec) { fKronecker = spec; }
    void SetThetaEstType(ThetaEstType type) { fThetaEstType = type; }
    void SetDegreesFreedomType(DegreesFreedomType type) { fDFType = type; }
    void SetScoringTypes(const std::vector<ScoreType>& types) { fvScoringTypes = types; }
    void SetMaxFisherIterNum(int iterations) { fMaxFisher = iterations; }
    void SetloglikelihoodCheck(bool check) { fLLCheck = check; }
    void SetparameterCheck(bool check) { fParamCheck = check; }
    void SethessianCheck(bool check) { fHessianCheck = check; }
    void AddSpatialVar(int variable) { fvSpatialVars.push_back(variable); }

    const std::vector<GLMMRandomSpec>& GetRandomSpecs() const { return fvRandomSpecs; }
    int GetNRandomSpecs() const { return static_cast<int>(fvRandomSpecs.size()); }
    const GLMMRandomSpec& GetRepeated() const { return fRepeated; }
    const GLMMRandomSpec& GetKronecker() const { return fKronecker; }
    ThetaEstType GetThetaEstType() const { return fThetaEstType; }
    DegreesFreedomType GetDegreesFreedomType() const { return fDFType; }
    const std::vector<ScoreType>& GetScoringTypes() const { return fvScoringTypes; }
    int GetMaxFisherIterNum() const { return fMaxFisher; }
    bool GetloglikelihoodCheck() const { return fLLCheck; }
    bool GetparameterCheck() const { return fParamCheck; }
    bool GethessianCheck() const { return fHessianCheck; }
    const std::vector<int>& GetSpatialVars() const { return fvSpatialVars; }
    bool GetUse4Mixed() const { return fUse4Mixed; }

    /// Fills the vector with the record variables by which the data must be sorted; their number. The same for all
    /// splits.
    int GetSortDataVariables(std::vector<int>& variables) const;

private:
    bool fUse4Mixed = false;
    std::vector<GLMMRandomSpec> fvRandomSpecs;
    GLMMRandomSpec fRepeated;
    GLMMRandomSpec fKronecker;
    ThetaEstType fThetaEstType = 1;
    DegreesFreedomType fDFType = 1;
    std::vector<ScoreType> fvScoringTypes;
    int fMaxFisher = 2;
    bool fLLCheck = false;
    bool fParamCheck = true;
    bool fHessianCheck = false;
    std::vector<int> fvSpatialVars;
};
