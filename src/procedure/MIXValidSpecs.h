#pragma once

#include "contracts/Adapter.h"
#include "contracts/Engine.h"
#include "contracts/Host.h"
#include "procedure/Export.h"

#include <cstddef>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

/// The validated command of a run.
///
/// The object holds two views of one model. In the host view a variable is an index into the data source's variables;
/// in the engine view (names with Comp in them) it is an index into the adapter's record. SetMixedSpecs reads the host
/// view from the parsed block, CompleteSpecs derives the engine view, CompleteSettings and CompleteVarList prepare the
/// engine for one split. Everyone else reads it through the accessors.
class HIERFIT_EXPORT MIXValidSpecs final {
public:
    static constexpr int maxSaveTypes = 7;

    /// Reference category of a contrast in an estimated means request; the values are the block's codes.
    enum RefCatTypes {
        RefCatNone = 0,     ///< no reference
        RefCatNumeric = 1,  ///< a number in the block
        RefCatString = 2,   ///< a string in the block
        RefCatFirst = 3,    ///< encoded category 0
        RefCatLast = 4      ///< the last category
    };

    /// What can be saved to the data.
    enum SaveTypes {
        SaveFixedPredicted = 0,
        SavePredicted = 1,
        SaveResidual = 2,
        SaveFixedStdError = 3,
        SaveStdError = 4,
        SaveFixedDF = 5,
        SaveDF = 6
    };

    /// Outcome classes of an engine status.
    enum ConvCodes : int {
        ConvNoRemark = 0,
        ConvCycle = 2,
        ConvNotReached = 3,
        ConvSingularHessian = 4,
        ConvHessianNotPositive = 6,
        ConvPerfectFit = 8
    };

    /// A means request's reference value inside the block, null if it has none, and the compared factor's format.
    using ContrastPair = std::pair<const OBS*, QVTA_Format>;

    /// parsedBlock is the array of 8-byte cells that the parser filled; it must outlive the object. Nothing is read
    /// from it here.
    MIXValidSpecs(void* parsedBlock, const ProcedureDataSource& source);
    /// Member-wise; a copy shares the three owned objects with its source.
    MIXValidSpecs(const MIXValidSpecs&) = default;
    MIXValidSpecs& operator=(const MIXValidSpecs&) = delete;
    ~MIXValidSpecs();

    /// Writes all fields as plain text, for debugging.
    virtual void Display(std::ostream& stream) const;
    /// Sends the same text to the host's front end.
    void Display() const;

    /// Reads the slot record, the text record and the block. False at the first failure, which the user has been told;
    /// the object then stands as far as the reading got.
    bool SetMixedSpecs();
    /// Declares the record's variables and derives the engine view. Once a run, whatever SetMixedSpecs returned.
    void CompleteSpecs();
    /// Transfers the specification into engine settings. adapter may be null: then every factor counts one level.
    /// iSplit -1 means no split; else the split's validity is noted.
    void CompleteSettings(GLMMSettings* pSettings, ACAInputAdapter* pAdapter, int iSplit);
    /// Fills the engine's variable list with one entry a record variable. False when the adapter refuses one; true,
    /// with nothing done, when an argument is null.
    bool CompleteVarList(MCVarList* pVarList, ACAInputAdapter* pAdapter);
    /// Lengthens the validity lists to the number of splits; splits never completed count as invalid.
    void CompleteSplits(int nSplits);

    /// Outcome class of an engine status code. direction, which may be null, takes -1 or 1 where the objective ran down
    /// or up without bound, else 0.
    ConvCodes GetConvCode(long statusCode, int* direction) const;

    const std::vector<bool>& GetValidSplits() const { return fvbSplitValid; }

    /// Variables, host view unless named Comp.
    int GetDependVar() const { return fDependVar; }
    void SetDependVar(int variable) { fDependVar = variable; }
    const std::vector<int>& GetFactorList() const { return fvFactorList; }
    void SetFactorList(const std::vector<int>& factors) { fvFactorList = factors; }
    int GetNFactorVar() const { return Count(fvFactorList); }
    const std::vector<int>& GetRefinedFactorList() const { return fvRefinedFactorList; }
    void SetRefinedFactorList(const std::vector<int>& factors) { fvRefinedFactorList = factors; }
    int GetNRefinedFactorVar() const { return Count(fvRefinedFactorList); }
    const std::vector<int>& GetCompFactorList() const { return fvCompFactorList; }
    const std::vector<int>& GetNFactorLevelList() const { return fvNFactorLevelList; }
    void SetNFactorLevelList(const std::vector<int>& levels) { fvNFactorLevelList = levels; }
    MCCategOrder GetFactorSortOrder() const { return fFactorSortOrder; }
    void SetFactorSortOrder(MCCategOrder order) { fFactorSortOrder = order; }
    const std::vector<int>& GetCovariateList() const { return fvCovariateList; }
    void SetCovariateList(const std::vector<int>& covariates) { fvCovariateList = covariates; }
    int GetNCovariateVar() const { return Count(fvCovariateList); }
    const std::vector<int>& GetRefinedCovariateList() const { return fvRefinedCovariateList; }
    void SetRefinedCovariateList(const std::vector<int>& covariates) { fvRefinedCovariateList = covariates; }
    int GetNRefinedCovariateVar() const { return Count(fvRefinedCovariateList); }
    const std::vector<int>& GetCompCovariateList() const { return fvCompCovariateList; }

    /// Fixed effects, the intercept left out, and per effect one flag a covariate column: the covariate is nested.
    const std::vector<MCModelEffect>& GetModelEffectList() const { return fvModelEffectList; }
    void SetModelEffectList(const std::vector<MCModelEffect>& effects,
                            const std::vector<std::vector<bool>>& nestedFlags);
    int GetNModelEffect() const { return Count(fvModelEffectList); }
    const std::vector<std::vector<bool>>& GetCovarateNested() const { return fvCovarateNested; }
    const std::vector<MCModelEffect>& GetCompModelEffectList() const { return fvCompModelEffectList; }
    bool GetInterceptInModel() const { return fInterceptInModel; }
    void SetInterceptInModel(bool inModel) { fInterceptInModel = inModel; }

    MCOffsetType GetOffsetType() const { return fOffsetType; }
    void SetOffsetType(MCOffsetType type) { fOffsetType = type; }
    int GetOffsetIndex() const { return fOffsetIndex; }
    void SetOffsetIndex(int variable) { fOffsetIndex = variable; }
    double GetOffsetValue() const { return fOffsetValue; }
    void SetOffsetValue(double value) { fOffsetValue = value; }
    int GetQVTAWeightIndex() const { return fQvtaWeightIndex; }
    void SetQVTAWeightIndex(int variable) { fQvtaWeightIndex = variable; }
    int GetRegrWeightIndex() const { return fRegrWeightIndex; }
    void SetRegrWeightIndex(int variable) { fRegrWeightIndex = variable; }

    /// Estimation. Setters of a bounded value assert the bound and, with assertions compiled out, keep the old value.
    MCEffectAnalysisType GetEffectAnalysisType() const { return fEffectAnalysisType; }
    void SetEffectAnalysisType(MCEffectAnalysisType type) { fEffectAnalysisType = type; }
    EffectAnalysisStat GetEffectAnalysisStat() const { return fEffectAnalysisStat; }
    void SetEffectAnalysisStat(EffectAnalysisStat stat) { fEffectAnalysisStat = stat; }
    int GetIterSep() const { return fIterSep; }
    void SetIterSep(int iterSep);
    MCConvType GetHConvType() const { return fHConvType; }
    void SetHConvType(MCConvType type) { fHConvType = type; }
    MCConvType GetLConvType() const { return fLConvType; }
    void SetLConvType(MCConvType type);
    MCConvType GetPConvType() const { return fPConvType; }
    void SetPConvType(MCConvType type) { fPConvType = type; }
    double GetHConvCrit() const { return fHConvCrit; }
    void SetHConvCrit(double convCrit);
    double GetLConvCrit() const { return fLConvCrit; }
    void SetLConvCrit(double convCrit);
    double GetPConvCrit() const { return fPConvCrit; }
    void SetPConvCrit(double convCrit);
    int GetMaxIter() const { return fMaxIter; }
    void SetMaxIter(int maxIter);
    int GetMaxStepHalving() const { return fMaxStepHalving; }
    void SetMaxStepHalving(int maxStepHalving);
    double GetCILevelPct() const { return fCILevelPct; }
    void SetCILevelPct(double ciLevelPct);
    CIType GetCIType() const { return fCIType; }
    void SetCIType(CIType type) { fCIType = type; }
    double GetCIConvProfile() const { return fCIConvProfile; }
    void SetCIConvProfile(double convCrit);
    MCCovbType GetCovbType() const { return fCovbType; }
    void SetCovbType(MCCovbType type) { fCovbType = type; }
    ThetaEstType GetThetaEstType() const { return fThetaEstType; }
    void SetThetaEstType(ThetaEstType type) { fThetaEstType = type; }
    MCHessianCompMethod GetEstMethod() const { return fEstMethod; }
    void SetEstMethod(MCHessianCompMethod method) { fEstMethod = method; }
    int GetMaxFisherSteps() const { return fMaxFisherSteps; }
    void SetMaxFisherSteps(int maxFisherSteps);  ///< sets the estimation method with it
    double GetTolerance() const { return fTolerance; }
    void SetTolerance(double toler);
    MCConvType GetConvTypeTypeIandIII() const { return fConvTypeTypeIandIII; }
    void SetConvTypeTypeIandIII(MCConvType type) { fConvTypeTypeIandIII = type; }
    double GetConvCritTypeIandIII() const { return fConvCritTypeIandIII; }
    void SetConvCritTypeIandIII(double convCrit);

    /// Random, repeated and Kronecker blocks, spatial variables.
    const std::vector<GLMMRandomSpec>& GetRandomList() const { return fvRandomList; }
    int GetNRandSpecs() const { return Count(fvRandomList); }
    const std::vector<int>& GetNRandEffects() const { return fvNRandEffects; }
    const std::vector<std::vector<bool>>& GetRandCovarNested() const { return fvRandCovarNested; }
    const std::vector<GLMMRandomSpec>& GetCompRandomList() const { return fvCompRandomList; }
    void SetRandomSpec(const std::vector<GLMMRandomSpec>& specs, const std::vector<int>& nRandEffects,
                       const std::vector<std::vector<bool>>& nestedFlags);
    const GLMMRandomSpec& GetRepeatedSpec() const { return fRepeatedSpec; }
    const GLMMRandomSpec& GetCompRepeatedSpec() const { return fCompRepeatedSpec; }
    bool GetKronCovType() const { return !fCompKronSpec.GetEffects().empty(); }  ///< known after CompleteSpecs
    const std::vector<int>& GetSpatVarInds() const { return fvSpatVarInds; }
    int GetNSpatVars() const { return Count(fvSpatVarInds); }
    const std::vector<int>& GetCompSpatVarInds() const { return fvCompSpatVarInds; }

    /// Custom tests and estimated means. The lists of the means are parallel, an entry a request.
    const std::vector<CustomTest>& GetCustomTests() const { return fvCustomTests; }
    int GetNCustomTests() const { return Count(fvCustomTests); }
    const std::vector<CustomTest>& GetCompCustomTests() const { return fvCompCustomTests; }
    const std::vector<MCEmmeansSpec>& GetEMMeansList() const { return fvEMMeansList; }
    int GetNEMMeans() const { return Count(fvEMMeansList); }
    const std::vector<ContrastPair>& GetContrastPairList() const { return fvContrastPairList; }
    std::string GetContrastString(int emmeansIndex) const;  ///< empty for an index out of range
    const std::vector<RefCatTypes>& GetEmmRCTypeList() const { return fvEmmRCTypeList; }
    const std::vector<bool>& GetEmmRCLongList() const { return fvbEmmRCLong; }
    const std::vector<std::vector<std::string>>& GetEmmFixCovStr() const { return fvvEmmFixCovStr; }
    const std::vector<MCEmmeansSpec>& GetCompEMMeansList() const { return fvCompEMMeansList; }
    const std::vector<std::vector<bool>>& GetEmmValidList() const { return fvvbEMMeansValid; }  ///< per split
    /// Replaces the lists; all five must have the same size.
    void SetEMMeansSpec(const std::vector<MCEmmeansSpec>& specs, const std::vector<ContrastPair>& contrastPairs,
                        const std::vector<std::string>& contrastStrings, const std::vector<RefCatTypes>& refCatTypes,
                        const std::vector<std::vector<std::string>>& fixCovStrs);

    /// Options of output.
    bool GetClassMissInclude() const { return fClassMissInclude; }
    void SetClassMissInclude(bool include) { fClassMissInclude = include; }
    int GetPrintHistPar() const { return fPrintHistPar; }
    void SetPrintHistPar(int printHistPar);
    bool GetPrintOptionCORB() const { return fPrintCORB; }
    void SetPrintOptionCORB(bool print) { fPrintCORB = print; }
    bool GetPrintOptionCOVB() const { return fPrintCOVB; }
    void SetPrintOptionCOVB(bool print) { fPrintCOVB = print; }
    bool GetPrintOptionCPS() const { return fPrintCPS; }
    void SetPrintOptionCPS(bool print) { fPrintCPS = print; }
    bool GetPrintOptionFIT() const { return fPrintFIT; }
    void SetPrintOptionFIT(bool print) { fPrintFIT = print; }
    bool GetPrintOptionGEF() const { return fPrintGEF; }
    void SetPrintOptionGEF(bool print) { fPrintGEF = print; }
    bool GetPrintOptionHISTORY() const { return fPrintHISTORY; }
    void SetPrintOptionHISTORY(bool print) { fPrintHISTORY = print; }
    bool GetPrintOptionLAGRANGE() const { return fPrintLAGRANGE; }
    void SetPrintOptionLAGRANGE(bool print) { fPrintLAGRANGE = print; }
    bool GetPrintOptionLMATRIX() const { return fPrintLMATRIX; }
    void SetPrintOptionLMATRIX(bool print) { fPrintLMATRIX = print; }
    bool GetPrintOptionMODELINFO() const { return fPrintMODELINFO; }
    void SetPrintOptionMODELINFO(bool print) { fPrintMODELINFO = print; }
    bool GetPrintOptionSOLUTION() const { return fPrintSOLUTION; }
    void SetPrintOptionSOLUTION(bool print) { fPrintSOLUTION = print; }
    bool GetPrintOptionSUMMARY() const { return fPrintSUMMARY; }
    void SetPrintOptionSUMMARY(bool print) { fPrintSUMMARY = print; }
    bool GetPrintOptionVARIABLEINFO() const { return fPrintVARIABLEINFO; }
    void SetPrintOptionVARIABLEINFO(bool print) { fPrintVARIABLEINFO = print; }
    bool GetPrintOptionWORKINGCORR() const { return fPrintWORKINGCORR; }
    void SetPrintOptionWORKINGCORR(bool print) { fPrintWORKINGCORR = print; }
    bool GetPrintOptionEXPONENTIATED() const { return fPrintEXPONENTIATED; }
    void SetPrintOptionEXPONENTIATED(bool print) { fPrintEXPONENTIATED = print; }
    bool GetPrintOptionTestCov() const { return fPrintTestCov; }
    void SetPrintOptionTestCov(bool print) { fPrintTestCov = print; }
    bool GetPrintOptionGMatrix() const { return fPrintGMatrix; }
    void SetPrintOptionGMatrix(bool print) { fPrintGMatrix = print; }
    bool GetPrintOptionRMatrix() const { return fPrintRMatrix; }
    void SetPrintOptionRMatrix(bool print) { fPrintRMatrix = print; }
    bool GetPrintOptionNONE() const { return fPrintNONE; }
    void SetPrintOptionNONE(bool print) { fPrintNONE = print; }

    /// Saved variables, in command order.
    const std::vector<SaveTypes>& GetSaveVarTypes() const { return fvSaveVarTypes; }
    const std::vector<ScoreType>& GetSaveScoreTypes() const { return fvSaveScoreTypes; }
    const std::vector<std::string>& GetSaveVarNames() const { return fvSaveVarNames; }
    int GetNSaveVars() const { return Count(fvSaveVarNames); }
    const std::vector<std::string>& GetSaveVarLabels() const { return fvSaveVarLabels; }
    const std::vector<QVTA_Format>& GetSaveVarFormats() const { return fvSaveVarFormats; }
    int GetMaxObsAdded() const { return fMaxObsAdded; }
    void SetMaxObsAdded(int maxObsAdded) { fMaxObsAdded = maxObsAdded; }

    /// Output files; an option is on when its file has a name.
    const std::string& GetOutFModelFileName() const { return fOutFModelFileName; }
    void SetOutFModelFileName(const std::string& name) { fOutFModelFileName = name; }
    bool GetOutFOptionMODEL() const { return !fOutFModelFileName.empty(); }
    const std::string& GetOutFParameterFileName() const { return fOutFParameterFileName; }
    void SetOutFParameterFileName(const std::string& name) { fOutFParameterFileName = name; }
    bool GetOutFOptionPARAMETER() const { return !fOutFParameterFileName.empty(); }
    const std::string& GetOutFStatXMLFileName() const { return fOutFStatXMLFileName; }
    void SetOutFStatXMLFileName(const std::string& name) { fOutFStatXMLFileName = name; }
    bool GetOutFOptionStatXML() const { return !fOutFStatXMLFileName.empty(); }
    const std::string& GetOutFStatJSONFileName() const { return fOutFStatJSONFileName; }
    void SetOutFStatJSONFileName(const std::string& name) { fOutFStatJSONFileName = name; }
    bool GetOutFOptionStatJSON() const { return !fOutFStatJSONFileName.empty(); }
    bool GetUseStatJSON() const { return fUseStatJSON; }

    /// Owned here; null before CompleteSpecs.
    ACAVarValidSpecs* GetVarValidSpecsPtr() const { return fpVarValidSpecs; }
    GLMMSettings* GetCompSettingsPtr() const { return fpCompSettings; }

private:
    enum RandomSpecTypes { RandomBlock = 0, RepeatedBlock = 1, KroneckerBlock = 2 };

    template <class T>
    static int Count(const std::vector<T>& list) {
        return static_cast<int>(list.size());
    }

    /// Cells of the block, by one-based position.
    long long IntCell(long long position) const { return fpBlockInt[position - 1]; }
    double DoubleCell(long long position) const { return fpBlockDouble[position - 1]; }
    int LowCell(long long position) const { return static_cast<int>(IntCell(position)); }
    std::string CellText(long long position, long long length) const;
    /// The record with the ordinal (1, 2, ...) in the chain of a slot.
    const double* ChainRecord(std::size_t chainSlot, int ordinal) const;
    int HostIndex(long long variableNumber) const;
    std::vector<int> ReadVariables(std::size_t countSlot, std::size_t startSlot) const;
    std::vector<int> ReadPairing(std::size_t countSlot, std::size_t startSlot) const;  ///< one-based there
    std::vector<int> ReadCounts(long long position, int count) const;

    /// Codes of the block in the engine's or the host's terms. Unknown codes take the tables' last row.
    static CovarType GetCovarType(long long code, bool isRepeated);
    static ScoreType GetScoreType(int saveType);
    QVTA_Format GetSaveFormat(int saveType) const;
    static bool IsKronecker(CovarType type);

    /// Steps of SetMixedSpecs; each false has been reported.
    void ReadVariableLists();
    void ReadEstimation();
    void ReadAnalysisType();
    void ReadThetaEstType();
    void ReadFixedEffects();
    bool ReadOutputFiles();
    void ReadPrintOptions();
    void ReadRandomEffects();
    void ReadRandomBlocks();
    void ReadRepeatedBlock();
    void ReadKroneckerBlock();
    bool ReadSpatialVariables();
    void ReadSavedVariables();
    void ReadCustomTests();
    void ReadEMMeans();

    /// One effect row: cursor stands on its first cell and is moved behind it. nestedFlags gets one flag a covariate
    /// column.
    bool FillModelEffect(const long long*& cursor, MCModelEffect& effect, std::vector<bool>& nestedFlags) const;
    void AddRowFactors(const long long* cells, MCModelEffect& effect) const;
    void AddRowCovariates(const long long* cells, MCModelEffect& effect, std::vector<bool>& nestedFlags) const;
    /// One random block; both counters are moved on.
    bool FillRandomSpec(int& blockIndex, int& rowIndex, GLMMRandomSpec& spec, int& nEffects,
                        std::vector<std::vector<bool>>& nestedFlags) const;
    /// Means and test records; record points at field 0.
    bool FillEMMeansSpec(const double* record, MCEmmeansSpec& spec, const OBS*& refValue, QVTA_Format& format,
                         std::string& refString, RefCatTypes& refType, bool& refLong,
                         std::vector<std::string>& fixCovStr) const;
    int FillTableFactors(const double* record, MCEmmeansSpec& spec) const;  ///< the compared factor, -1 if none
    void FillFixedCovariates(long long entries, MCEmmeansSpec& spec, std::vector<std::string>& fixCovStr) const;
    bool FillCustomTest(const double* record, CustomTest& test, bool useCompEffects) const;

    /// Steps of CompleteSpecs.
    void DeclareModelVariables();
    void CompleteEffects();
    void CompleteCustomTests();
    void CompleteEMMeans();
    void DeclareFurtherVariables();
    void CompleteRandomBlocks();
    void DeclareRepeatedVariables();
    void DeclareRepeatedSubjects();
    void CompleteRepeatedBlocks();
    bool CreateCompEffect(const MCModelEffect& source, MCModelEffect& target) const;
    bool CreateCompRandom(const GLMMRandomSpec& source, GLMMRandomSpec& target, RandomSpecTypes type) const;
    void AddCompSubjects(const GLMMRandomSpec& source, GLMMRandomSpec& target, RandomSpecTypes type) const;
    bool CreateCompEMMeans(const MCEmmeansSpec& source, MCEmmeansSpec& target) const;

    /// Steps of CompleteSettings.
    void NoteSplit(bool hasAdapter, int iSplit);
    void CompleteModel(GLMMSettings& settings, ACAInputAdapter* pAdapter) const;
    void CompleteMasterSettings();
    void CompleteMeans(GLMMSettings& settings, const ACAInputAdapter* pAdapter, int iSplit);
    void CompleteRepeated(GLMMSettings& settings, ACAInputAdapter* pAdapter) const;
    void CompleteEstimation(GLMMSettings& settings) const;
    void CompleteOptions(GLMMSettings& settings) const;
    void CompleteFactor(GLMMSettings& settings, ACAInputAdapter* pAdapter, int variable) const;
    bool CompleteReference(MCEmmeansSpec& request, std::size_t i, const ACAInputAdapter& adapter) const;
    void GrowSplits(std::size_t nSplits);

    /// Groups of Display.
    void DisplayVariables() const;
    void DisplayModel() const;
    void DisplayEstimation() const;
    void DisplayBlocks() const;
    void DisplayEMMeans() const;
    void DisplayReference(std::size_t request) const;
    void DisplayPrintOptions() const;
    void DisplayOutputs() const;

    const double* fpBlockDouble;
    const long long* fpBlockInt;  ///< the same block seen as integers
    const ProcedureDataSource* fpDataSource;
    std::vector<bool> fvbSplitValid;  ///< per split: settings were completed with an adapter
    int fDependVar = -1;
    int fCompDependVar = -1;
    std::vector<int> fvFactorList;
    std::vector<int> fvRefinedFactorList;
    std::vector<int> fvCompFactorList;
    std::vector<int> fvNFactorLevelList;
    MCCategOrder fFactorSortOrder = 0;
    std::vector<int> fvCovariateList;
    std::vector<int> fvRefinedCovariateList;
    std::vector<int> fvCompCovariateList;
    std::vector<int> fvPredictorList;  ///< factors, then covariates: the columns of an effect row
    std::vector<MCModelEffect> fvModelEffectList;
    std::vector<std::vector<bool>> fvCovarateNested;
    std::vector<int> fvCompPredictorList;
    std::vector<MCModelEffect> fvCompModelEffectList;
    bool fInterceptInModel = true;
    std::vector<MCModelEffect> fvRandEffectList;  ///< of all blocks, flat
    std::vector<std::vector<bool>> fvRandEffectNested;
    std::vector<MCModelEffect> fvCompRandEffectList;
    std::vector<int> fvRandSubjVars;
    std::vector<int> fvCompRandSubjVars;
    MCOffsetType fOffsetType = 0;
    int fOffsetIndex = -1;
    int fCompOffsetIndex = -1;
    double fOffsetValue = 0.0;
    int fQvtaWeightIndex = -1;
    int fCompQvtaWeightIndex = -1;
    int fRegrWeightIndex = -1;
    int fCompRegrWeightIndex = -1;
    MCEffectAnalysisType fEffectAnalysisType = 1;
    EffectAnalysisStat fEffectAnalysisStat = 0;
    int fIterSep = 20;
    MCConvType fHConvType = 1;
    MCConvType fLConvType = 1;
    bool fLConvTypeSet = false;
    MCConvType fPConvType = 1;
    double fHConvCrit = 0.0;  ///< 0 switches the check off
    double fLConvCrit = 0.0;
    bool fLConvCritSet = false;
    double fPConvCrit = 1e-6;
    int fMaxIter = 100;
    int fMaxStepHalving = 10;
    double fCILevelPct = 95.0;
    CIType fCIType = 0;
    double fCIConvProfile = 1e-4;
    MCCovbType fCovbType = 0;
    ThetaEstType fThetaEstType = 1;
    MCHessianCompMethod fEstMethod = 3;
    int fMaxFisherSteps = 1;
    double fTolerance = 1e-12;
    DegreesFreedomType fDFMethod = 1;
    std::vector<GLMMRandomSpec> fvRandomList;
    std::vector<int> fvNRandEffects;
    std::vector<std::vector<bool>> fvRandCovarNested;
    std::vector<GLMMRandomSpec> fvCompRandomList;
    GLMMRandomSpec fRepeatedSpec;
    GLMMRandomSpec fCompRepeatedSpec;
    std::vector<int> fvRepeatedVars;
    std::vector<int> fvCompRepeatedVars;
    std::vector<int> fvRepeatedPairs;  ///< vector A of the Kronecker pairing, zero-based
    GLMMRandomSpec fKronSpec;
    GLMMRandomSpec fCompKronSpec;
    std::vector<int> fvKronVars;
    std::vector<int> fvCompKronVars;
    std::vector<int> fvKronPairs;  ///< vector B: zero-based positions in fvRepeatedVars
    std::vector<int> fvRepSubjVars;
    std::vector<int> fvCompRepSubjVars;
    std::vector<int> fvSpatVarInds;
    std::vector<int> fvCompSpatVarInds;
    std::vector<CustomTest> fvCustomTests;
    std::vector<CustomTest> fvCompCustomTests;
    std::vector<MCEmmeansSpec> fvEMMeansList;
    std::vector<ContrastPair> fvContrastPairList;
    std::vector<std::string> fvContrastStrings;
    std::vector<RefCatTypes> fvEmmRCTypeList;
    std::vector<bool> fvbEmmRCLong;  ///< the reference string is longer than the compared factor's format
    std::vector<std::vector<std::string>> fvvEmmFixCovStr;
    std::vector<MCEmmeansSpec> fvCompEMMeansList;
    std::vector<std::vector<bool>> fvvbEMMeansValid;  ///< per split and request
    bool fClassMissInclude = false;
    bool fPrintCORB = false;
    bool fPrintCOVB = false;
    bool fPrintCPS = false;
    bool fPrintFIT = false;
    bool fPrintGEF = false;
    bool fPrintHISTORY = false;
    bool fPrintLAGRANGE = false;
    bool fPrintLMATRIX = false;
    bool fPrintMODELINFO = false;
    bool fPrintSOLUTION = false;
    bool fPrintSUMMARY = false;
    bool fPrintVARIABLEINFO = false;
    bool fPrintWORKINGCORR = false;
    int fPrintHistPar = 1;
    bool fPrintEXPONENTIATED = false;
    bool fPrintTestCov = false;
    bool fPrintGMatrix = false;
    bool fPrintRMatrix = false;
    bool fPrintNONE = false;
    std::vector<SaveTypes> fvSaveVarTypes;
    std::vector<ScoreType> fvSaveScoreTypes;
    std::vector<std::string> fvSaveVarNames;  ///< empty: a name is generated
    std::vector<std::string> fvSaveVarLabels;
    std::vector<QVTA_Format> fvSaveVarFormats;
    int fMaxObsAdded = 0;
    std::string fOutFModelFileName;
    std::string fOutFParameterFileName;
    std::string fOutFStatXMLFileName;
    std::string fOutFStatJSONFileName;
    bool fUseStatJSON = false;
    ACAVarValidSpecs* fpVarValidSpecs = nullptr;
    GLMMSettings* fpCompSettings = nullptr;
    ACAStopProcessor* fpStopProcessor = nullptr;
    MCConvType fConvTypeTypeIandIII = 1;
    double fConvCritTypeIandIII = 1e-4;
    double fMissingValue = MCMV::Missing();  ///< value of a covariate for which the command gives none
};
