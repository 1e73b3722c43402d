#pragma once

#include "contracts/CustomProcedure.h"
#include "contracts/EngineVariables.h"
#include "contracts/Parser.h"

#include <limits>
#include <memory>
#include <string>
#include <vector>

/// The in-memory result of one model: read once from the engine's documents by HRFTParseOutXML, and then only read.
///
/// Every real number that is absent is SYSMIS, the lowest finite double, unless its field says otherwise.

constexpr double SYSMIS = std::numeric_limits<double>::lowest();

enum TargetDistributionKind {
    kBinomialTarget = 0,
    kGammaTarget,
    kInverseGaussTarget,
    kNominalTarget,
    kOrdinalTarget,
    kNegBinTarget,
    kNormalTarget,
    kPoissonTarget,
    kUnknownTarget
};

enum LinkKind {
    kCloglogLink = 0,
    kIdentityLink,
    kLogLink,
    kLogcLink,
    kLogitLink,
    kNloglogLink,
    kPowerLink,
    kProbitLink,
    kCauchitLink,
    kUnknownLink
};

enum CovarianceKind {
    kVC = 0,
    kAR1,
    kARH1,
    kARMA11,
    kCS,
    kCSH,
    kDIAG,
    kID,
    kTP,
    kUN,
    kUN_UN,
    kUN_AR1,
    kUN_CS,
    kSPPOW,
    kSPEXP,
    kSPGAU,
    kSPLIN,
    kSPLINLOG,
    kSPSPH,
    kUnknownCovariance
};

enum PAdjustmentKind { kLSD = 0, kSeqBonferroni, kSeqSidak, kUnknownAdjustment };
enum ContrastKind { kPairwiseContrast = 0, kDeviationContrast, kSimpleContrast, kNoContrast, kUnknownContrast };
enum ReferenceKind { kReferenceLast = 0, kReferenceValue, kUnknownReference };
enum CoordinateFeature { kObserved = 0, kFrequency, kStatistic, kFields, kUnknownFeature };
enum PrintableStorage { kUnknownStorage = 0, kInteger, kReal, kString, kDate, kTime, kTimestamp };
enum EmmeansContrastKind { kPairwise = 0, kDeviation, kSimple, kUnknownKind };

/// Mapping between data set fields and entries of the variable list.
struct VarMapInfo {
    std::vector<int> fvFieldToVarList;  ///< per field; -1 when it isn't in the list
    std::vector<int> fvVarListToField;  ///< per entry
    std::vector<bool> fvbCategorical;   ///< per entry
    std::vector<int> fvCategoryCount;   ///< per entry; 0 unless categorical
};

/// A model effect or a field list, one entry a field.
struct EffectStruct {
    std::vector<std::string> fvFieldNames;
    std::vector<int> fvFieldIndices;   ///< data source indices, never negative
    std::vector<int> fvNestingLevels;  ///< as many as the document gives
};

struct RandomSpec {
    std::vector<EffectStruct> fvEffectList;
    bool fIntercept = false;
    EffectStruct fSubject;
    std::vector<std::string> fvGroup;
    int fCovType = 0;
    int fCovTBand = 0;
};

struct EMMeansSpec {
    EffectStruct fFactors;
    bool fEstimateMeans = false;
    std::string fCompareFactor;
    int fContrastType = kNoContrast;
    int fReferenceType = kReferenceLast;
    std::string fReferenceValue;
};

struct BuildSettings {
    std::string fTargetName;
    int fTargetIndex = -1;
    bool fUseTrials = false;
    std::string fTrialsName;
    int fTrialsIndex = -1;
    int fTrialsValue = 0;
    std::string fDistributionName;
    int fDistribution = kUnknownTarget;
    std::string fLinkName;
    int fLink = kUnknownLink;
    double fLinkParam = SYSMIS;
    std::string fLinkParamText;
    std::string fAlgorithmName;
    double fConfidenceLevel = SYSMIS;  ///< a proportion
    bool fIntercept = true;
    int fResidualCovType = kUnknownCovariance;
    bool fKronecker = false;
    int fResidualCovTBand = 2;
    EffectStruct fResidualSubject;
    std::vector<std::string> fvResidualGroup;
    EffectStruct fRepeatedMeasure;
    EffectStruct fKroneckerMeasure;
    std::vector<EffectStruct> fvFixedEffectList;  ///< model order
    std::vector<RandomSpec> fvRandomSpecs;
    std::vector<EMMeansSpec> fvEMMeansSpecs;
    int fPAdjustment = kUnknownAdjustment;
};

/// Its statistics default to 0, not to SYSMIS.
struct TargetDistData {
    std::string fDescription;
    int fTotalFreq = 0;
    double fMean = 0.0, fStdDeviation = 0.0, fShape = 0.0, fRate = 0.0, fR = 0.0, fP = 0.0;
    std::vector<double> fvObserved;
    std::vector<double> fvFrequency;
};

struct PredByObservedData {
    std::string fDescription;
    int fTotalFreq = 0;
    std::vector<double> fvObserved;
    std::vector<double> fvStatistic;
    std::vector<double> fvFrequency;
    double fMinValue = 0.0;  ///< over fvObserved and fvStatistic together
    double fMaxValue = 0.0;
};

struct ModelDiagnostics {
    double fAICC = SYSMIS;
    double fBIC = SYSMIS;
    double fMinus2LogLikelihood = SYSMIS;
    double fClassificationAccuracy = SYSMIS;
    int fNumOfCovParamOfRepeated = -1;
    int fNumOfCovParamOfRandom = -1;
    int fNumOfColsOfFixed = -1;
    int fNumOfColsOfRandom = -1;
    int fNumOfCommonSubjects = -1;
    double fGrandMean = SYSMIS;
    double fGrandMeanStdErr = SYSMIS;
    double fGrandMeanCILower = SYSMIS;
    double fGrandMeanCIUpper = SYSMIS;
    TargetDistData fTargetDist;
    PredByObservedData fPredByObserved;
};

struct MatrixRow {
    std::vector<double> fvValues;  ///< all cells; a symmetric or diagonal matrix is stored in full
    double fRowSum = 0.0;
};

/// A square matrix with labels.
struct MatrixData {
    int fNRows = 0;
    std::vector<CFStatVariableValue> fvLabels;
    std::vector<MatrixRow> fvRows;
};

/// Identity of one subject or split segment; parallel lists.
struct SubjectData {
    std::vector<std::string> fvFieldNames;
    std::vector<int> fvFieldIndices;
    std::vector<CFStatVariableValue> fSubjectValues;
    std::vector<int> fvCategoryCounts;
};

struct RepeatMeasVarStruct {
    std::string fFieldName;
    int fRepMeasInd = -1;  ///< data source index, never negative once read
    std::vector<CFStatVariableValue> fvValues;
    int fNumLevels = 0;
};

/// Covariances of one random block; entry i of fSimpleSubjects goes with entry i of fMatrixValues.
struct RandEffCovars {
    std::string fName;
    double fValue = SYSMIS;
    std::vector<std::string> fvEffectLabels;
    std::vector<SubjectData> fSimpleSubjects;
    std::vector<MatrixData> fMatrixValues;
};

struct StructuredData {
    int fTotalFreq = 0;
    SubjectData fSubjectData;
    std::vector<RepeatMeasVarStruct> fvRepeatedMeasures;
    std::vector<CFStatVariableValue> fvTargetValues;
    std::vector<CFStatVariableValue> fvTrialsValues;
    std::vector<RandEffCovars> fvRandEffCovars;
};

struct EffectTestStat {
    int fTestID = 0;
    int fTestType = 0;  ///< value of a Roman numeral
    double fFStatistic = SYSMIS, fDf1 = SYSMIS, fDf2 = SYSMIS, fSig = SYSMIS;
};

struct EffectTest {
    EffectTestStat fCorrectedModel;
    std::vector<EffectTestStat> fvFixedEffectTests;  ///< as many as there are fixed effects
};

struct CovariateTerm {
    std::string fField;
    int fVarIndex = -1;
    int fPower = 0;
};

struct FactorTerm {
    std::string fField;
    int fVarIndex = -1;
    CFStatVariableValue fValue;
    bool fNest = false;
};

/// One regression parameter in terms of fields.
struct RegrParamInfo {
    std::vector<CovariateTerm> fvCovariates;
    std::vector<FactorTerm> fvFactors;
    bool fIsIntercept = false;
    std::string fName;
};

struct MapEntryData {
    std::string fName;  ///< the key
    RegrParamInfo fParam;
};

struct StringMap {
    int fMapId = -1;
    std::vector<MapEntryData> fvEntries;
};

/// An object that a PrintableValue may own. The second virtual operation clones it.
struct PrintableExtra {
    virtual ~PrintableExtra() = default;
    virtual std::unique_ptr<PrintableExtra> Clone() const = 0;
};

struct PrintableValue {
    PrintableValue() = default;
    PrintableValue(const PrintableValue& other);
    PrintableValue& operator=(const PrintableValue& other);
    PrintableValue(PrintableValue&&) noexcept = default;
    PrintableValue& operator=(PrintableValue&&) noexcept = default;
    ~PrintableValue() = default;

    int fStorage = kUnknownStorage;
    std::string fValue;
    bool fIsNull = false;
    std::string fLabel;
    std::unique_ptr<PrintableExtra> fpExtra;
};

/// A tree of display pieces. A fMapId of -1 makes fPattern literal text.
struct PrintableList {
    std::string fPattern;
    bool fIsKey = false;
    int fMapId = -1;
    std::vector<PrintableList> fvLists;
    std::vector<PrintableValue> fvValues;
};

struct ParameterStatsData {
    std::string fStatisticName;
    std::string fStatisticValue;
    int fStatisticInt = -1;
    RegrParamInfo fRegrParam;
    PrintableList fPrintableList;
    std::string fParamName;
    std::string fParamLabel;
    double fEstimate = SYSMIS, fStdError = SYSMIS, fDf = SYSMIS, fConfIntervalLower = SYSMIS,
           fConfIntervalUpper = SYSMIS, fTTest = SYSMIS, fZTest = SYSMIS, fSig = SYSMIS, fChiSquare = SYSMIS,
           fExpEstimate = SYSMIS, fExpCILower = SYSMIS, fExpCIUpper = SYSMIS;
    bool fIsRedundant = false;
};

struct ParamEstimData {
    CFStatVariableValue fTargetCategory;
    SubjectData fFiledData;
    int fNumUNParam = -1;
    std::vector<ParameterStatsData> fvParameterStats;
};

/// fBlock is that of the element that created the entry: an entry made to fill a gap carries the higher number.
struct RandomBlockEstim {
    int fBlock = 0;
    std::vector<ParamEstimData> fvParamEstim;
};

struct ParamCollect {
    std::vector<ParamEstimData> fvFixedParamEstim;  ///< one, or one a target category of a nominal target
    std::vector<ParamEstimData> fvRepeatedParamEstim;
    std::vector<RandomBlockEstim> fvRandomParamEstim;  ///< by block number
};

struct WarningInfo {
    std::string fMessage;
    std::vector<std::string> fWarningParameters;
};

struct CoordinatesData {
    int fFeature = kUnknownFeature;
    std::string fField;
    std::string fStatistic;
    std::vector<std::string> fvValues;
};

struct EmmeansEstimates {
    std::vector<CoordinatesData> fvCoordinates;
    CoordinatesData fMean, fStdErr, fConfIntervalLower, fConfIntervalUpper;
};

struct EmmeansContrasts {
    double fAdjustedSigLevel = SYSMIS;
    int fContrastKind = kUnknownKind;
    std::vector<CoordinatesData> fvCoordinates;
    CoordinatesData fContrastEstimate, fStdErr, fTTest, fDf, fAdjustedSig, fConfIntervalLower, fConfIntervalUpper;
};

struct EmmeansOverallTest {
    SubjectData fSegment;
    int fTestID = -1;
    double fFStatistic = SYSMIS, fDf1 = SYSMIS, fDf2 = SYSMIS, fSig = SYSMIS;
};

struct EmmeansLabel {
    std::string fPattern;
    CFStatVariableValue fValue;
};

/// One custom estimated means block.
struct EmmeansData {
    int fEmmeansIndex = -1;  ///< position in fvEMMeansSpecs
    std::vector<EmmeansLabel> fvLabels;
    EmmeansEstimates fEstimates;
    EmmeansContrasts fContrasts;
    std::vector<EmmeansOverallTest> fvOverallTests;
    std::vector<WarningInfo> fvWarningList;
};

/// The root. Every owned member has a getter (null when absent), a New that replaces it by a fresh one, and a Delete.
class HRFTOutputStats {
public:
    HRFTOutputStats();
    ~HRFTOutputStats();
    HRFTOutputStats(const HRFTOutputStats&) = delete;
    HRFTOutputStats& operator=(const HRFTOutputStats&) = delete;

    ParserMessage* GetParserMessage() const { return fpParserMessage; }
    CFMetaData* GetMetaData() const { return fpMetaData; }
    void SetMetaData(CFMetaData* metaData) { fpMetaData = metaData; }

    MCVarList* GetVarList() const { return fpVarList; }
    MCVarList* NewVarList();
    void DeleteVarList();
    BuildSettings* GetBuildSettings() const { return fpBuildSettings; }
    BuildSettings* NewBuildSettings();
    void DeleteBuildSettings();
    ModelDiagnostics* GetModelDiagnostics() const { return fpModelDiagnostics; }
    ModelDiagnostics* NewModelDiagnostics();
    void DeleteModelDiagnostics();
    StructuredData* GetStructuredData() const { return fpStructuredData; }
    StructuredData* NewStructuredData();
    void DeleteStructuredData();
    MatrixData* GetClassifMatrixData() const { return fpClassifMatrixData; }
    MatrixData* NewClassifMatrixData();
    void DeleteClassifMatrixData();
    EffectTest* GetEffectTest() const { return fpEffectTest; }
    EffectTest* NewEffectTest();
    void DeleteEffectTest();
    ParamCollect* GetParamCollect() const { return fpParamCollect; }
    ParamCollect* NewParamCollect();
    void DeleteParamCollect();
    std::vector<EmmeansEstimates>* GetEmmeansEstimates() const { return fpvEmmeansEstimates; }
    std::vector<EmmeansEstimates>* NewEmmeansEstimates();
    void DeleteEmmeansEstimates();
    std::vector<EmmeansData>* GetEmmeansData() const { return fpvEmmeansData; }
    std::vector<EmmeansData>* NewEmmeansData();
    void DeleteEmmeansData();
    std::vector<StringMap>* GetStringMapCollect() const { return fpStringMapCollect; }
    std::vector<StringMap>* NewStringMapCollect();
    void DeleteStringMapCollect();

    const VarMapInfo& GetVarMapInfo() const { return fVarMapInfo; }
    std::vector<WarningInfo>& GetWarningList() { return fvWarningList; }
    const std::vector<WarningInfo>& GetWarningList() const { return fvWarningList; }

    /// Drops what was read from a result document, so that another one never merges with it.
    void ForgetResults();
    /// Fills the map between fields and variables. Called once, after the variable list is filled.
    void BuildVarMapInfo();
    /// 0 with out overwritten; 1 without maps, 2 without the map, 3 without the entry. The first match wins.
    int LookUpMapEntry(int mapId, const std::string& name, RegrParamInfo& out) const;
    /// Text of a printable list; false when its map has no such entry.
    bool PrintableListText(const PrintableList& list, std::string& text) const;
    bool IsWarningPresent(const std::string& key) const;
    std::string GetTranslatedText(const std::string& key, const std::vector<std::string>& arguments = {}) const;
    /// The field's private format, or null.
    const QVTA_Format* GetFieldFormat(int fieldIndex) const;

    /// Display texts of the record's codes; with translate through the message service, else to be translated by the
    /// cell.
    std::string CovarianceLabel(int kind, bool translate) const;
    std::string DistributionLabel(int kind, bool translate) const;
    std::string LinkLabel(int link, int distribution, bool translate) const;
    /// "Power(^1)" for a power link of a target that is not multinomial, else empty.
    std::string PowerLinkPattern(int link, int distribution) const;
    /// A text of any length as a cell text: pieces of at most 255 bytes.
    static std::unique_ptr<BpCellText> LongTextCell(const std::string& text);
    /// Label of a regression parameter: "x*x*[a=1]*[b=2]". Always true.
    bool ParameterLabel(const RegrParamInfo& param, std::string& text) const;
    /// Label of an effect of a random block; index 0 is the block's intercept if it has one. Always true.
    bool EffectLabel(const RandomSpec& block, int index, std::string& text) const;
    /// Text of a list that stands for a message with arguments. True with nothing changed for a list with a map.
    bool PrintableMessage(const PrintableList& list, int block, std::string& key, std::vector<std::string>& arguments,
                          std::string& text) const;

private:
    ParserMessage* fpParserMessage;
    CFMetaData* fpMetaData = nullptr;
    MCVarList* fpVarList = nullptr;
    VarMapInfo fVarMapInfo;
    BuildSettings* fpBuildSettings = nullptr;
    ModelDiagnostics* fpModelDiagnostics = nullptr;
    StructuredData* fpStructuredData = nullptr;
    MatrixData* fpClassifMatrixData = nullptr;
    EffectTest* fpEffectTest = nullptr;
    ParamCollect* fpParamCollect = nullptr;
    std::vector<EmmeansEstimates>* fpvEmmeansEstimates = nullptr;
    std::vector<EmmeansData>* fpvEmmeansData = nullptr;
    std::vector<WarningInfo> fvWarningList;
    std::vector<StringMap>* fpStringMapCollect = nullptr;
};
