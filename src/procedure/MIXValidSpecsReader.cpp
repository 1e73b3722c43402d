#include "procedure/CommandRecords.h"
#include "procedure/MIXValidSpecs.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace {

/// Catalogue messages of the saved variables' labels, in the order of SaveTypes.
constexpr std::array<long, MIXValidSpecs::maxSaveTypes> kLabelMessages = {15904, 15903, 15902, 15905,
                                                                          15906, 15907, 15908};
constexpr std::size_t kSlotWidth = 8;
constexpr std::size_t kNameLength = 64;
constexpr std::size_t kMessageLength = 256;
constexpr CovarType kKroneckerCovarType = 4;

bool Flag(std::size_t offset) {
    return IntSlot(offset) != 0;
}

/// A convergence type stands in the block as the engine's own number; other codes leave the field alone.
bool ReadConvType(std::size_t offset, MCConvType& field) {
    const long long code = IntSlot(offset);
    if (code != 1 && code != 2) return false;
    field = static_cast<MCConvType>(code);
    return true;
}

DegreesFreedomType DFMethod(long long code) {
    if (code == 1) return 0;
    return code == 3 ? 3 : 1;
}

std::string SaveLabel(long long saveType) {
    if (saveType < 0 || saveType >= MIXValidSpecs::maxSaveTypes) return {};
    std::array<char, kMessageLength + 1> buffer{};
    ERRTXN(kLabelMessages[saveType], buffer.data());
    buffer.back() = '\0';
    return QVTAMBstrtrim_A(buffer.data());
}

struct OutputFile {
    std::string fName;
    std::string fUpper;
    const char* fKeyword;
    OutputFile(std::size_t offset, const char* keyword)
        : fName(TextField(offset)), fUpper(GetUpperString(fName)), fKeyword(keyword) {}
};

/// Tells the user when one file is named for two outputs; file names compare without regard to case.
bool RefuseSameFile(const OutputFile& first, const OutputFile& second) {
    if (first.fUpper.empty() || second.fUpper.empty() || first.fUpper != second.fUpper) return false;
    BpComposite message("File ^1 shouldn't be used for both ^2 and ^3...", true);
    message.Add(BpString(first.fName, false));
    message.Add(BpString(first.fKeyword, false));
    message.Add(BpString(second.fKeyword, false));
    message.Finish();
    BpError(message, kShowAlways, kLevelError);
    return true;
}

/// The one effect of a repeated or Kronecker block: all variables on one level.
MCModelEffect MeasureEffect(const std::vector<int>& variables) {
    MCModelEffect effect;
    effect.Setup(static_cast<int>(variables.size()), 0, variables);
    for (const int variable : variables)
        effect.AddNewFactor(variable, false);
    effect.SetVarsIndicesForTheEffectInSetting(variables);
    return effect;
}

}  // namespace

std::string MIXValidSpecs::CellText(long long position, long long length) const {
    return std::string(reinterpret_cast<const char*>(fpBlockInt + position - 1), static_cast<std::size_t>(length));
}

const double* MIXValidSpecs::ChainRecord(std::size_t chainSlot, int ordinal) const {
    const double chainHead = DoubleSlot(chainSlot);
    const double number = ordinal;
    return fpBlockDouble + TMCGET(fpBlockInt, fpBlockDouble, &chainHead, &number) - 1;
}

int MIXValidSpecs::HostIndex(long long variableNumber) const {
    return fpDataSource->VarIndex(static_cast<long>(variableNumber - 1));
}

std::vector<int> MIXValidSpecs::ReadVariables(std::size_t countSlot, std::size_t startSlot) const {
    const int count = LowSlot(countSlot);
    const long long start = IntSlot(startSlot);
    std::vector<int> variables;
    for (int k = 0; k < count; ++k)
        variables.push_back(HostIndex(IntCell(start + k)));
    return variables;
}

std::vector<int> MIXValidSpecs::ReadPairing(std::size_t countSlot, std::size_t startSlot) const {
    const int count = LowSlot(countSlot);
    const long long start = IntSlot(startSlot);
    std::vector<int> positions;
    for (int k = 0; k < count; ++k)
        positions.push_back(LowCell(start + k) - 1);
    return positions;
}

bool MIXValidSpecs::SetMixedSpecs() {
    fQvtaWeightIndex = fpDataSource->GetWeightVarIndex();
    fDependVar = HostIndex(LowSlot(slots::kDependent));
    ReadVariableLists();
    ReadEstimation();
    ReadFixedEffects();
    ReadThetaEstType();
    fClassMissInclude = Flag(slots::kClassMissInclude);
    if (!ReadOutputFiles()) return false;
    ReadPrintOptions();
    ReadRandomEffects();
    fvRandSubjVars = ReadVariables(slots::kNRandSubjects, slots::kRandSubjects);
    ReadRandomBlocks();
    if (const long long weight = IntSlot(slots::kScaleWeight); weight > 0) fRegrWeightIndex = HostIndex(weight);
    ReadRepeatedBlock();
    if (!ReadSpatialVariables()) return false;
    ReadSavedVariables();
    ReadCustomTests();
    ReadEMMeans();
    return true;
}

void MIXValidSpecs::ReadVariableLists() {
    fvFactorList = ReadVariables(slots::kNFactors, slots::kFactors);
    fvRefinedFactorList = fvFactorList;
    fvCovariateList = ReadVariables(slots::kNCovariates, slots::kCovariates);
    fvRefinedCovariateList = fvCovariateList;
    fvPredictorList = fvFactorList;
    fvPredictorList.insert(fvPredictorList.end(), fvCovariateList.begin(), fvCovariateList.end());
}

void MIXValidSpecs::ReadEstimation() {
    fCILevelPct = DoubleSlot(slots::kConfidenceLevel);
    ReadConvType(slots::kHConvType, fHConvType);
    fHConvCrit = DoubleSlot(slots::kHConvCrit);
    if (ReadConvType(slots::kLConvType, fLConvType)) fLConvTypeSet = true;
    fLConvCrit = DoubleSlot(slots::kLConvCrit);
    fLConvCritSet = true;
    ReadConvType(slots::kPConvType, fPConvType);
    fPConvCrit = DoubleSlot(slots::kPConvCrit);
    fTolerance = DoubleSlot(slots::kTolerance);
    fDFMethod = DFMethod(IntSlot(slots::kDFMethod));
    fMaxFisherSteps = LowSlot(slots::kMaxFisherSteps);
    fEstMethod = fMaxFisherSteps > 0 ? 3 : 2;
    fMaxIter = std::max(LowSlot(slots::kMaxIter), 1);
    fMaxStepHalving = LowSlot(slots::kMaxStepHalving);
    fInterceptInModel = Flag(slots::kIntercept);
    ReadAnalysisType();
}

void MIXValidSpecs::ReadAnalysisType() {
    const long long code = IntSlot(slots::kAnalysisType);
    if (code == 1) fEffectAnalysisType = 0;
    if (code == 3) fEffectAnalysisType = 1;
}

void MIXValidSpecs::ReadThetaEstType() {
    const long long code = IntSlot(slots::kThetaEstType);
    if (code == 1 || code == 2) fThetaEstType = static_cast<ThetaEstType>(code - 1);
}

void MIXValidSpecs::ReadFixedEffects() {
    const int nRows = LowSlot(slots::kNFixedRows);
    if (nRows <= 0) return;
    const long long* cursor = fpBlockInt + IntSlot(slots::kFixedRows) - 1;
    for (int row = 0; row < nRows; ++row) {
        MCModelEffect effect;
        std::vector<bool> nestedFlags;
        FillModelEffect(cursor, effect, nestedFlags);
        if (effect.IsIntercept()) continue;
        fvModelEffectList.push_back(effect);
        fvCovarateNested.push_back(nestedFlags);
    }
}

bool MIXValidSpecs::ReadOutputFiles() {
    const long long selector = IntSlot(slots::kOutfileSelector);
    if (selector < 1 || selector > 4) return true;
    // The first file is called the model file in messages, whichever of the two it is.
    const OutputFile first(texts::kFirstFile, "MODEL");
    const OutputFile statJson(texts::kStatJson, "STATJSON");
    const OutputFile statXml(texts::kStatXml, "STATXML");
    if (RefuseSameFile(first, statXml) || RefuseSameFile(first, statJson) || RefuseSameFile(statXml, statJson))
        return false;
    const bool isModelFile = selector == 2 || selector == 4;
    (isModelFile ? fOutFModelFileName : fOutFParameterFileName) = first.fName;
    fOutFStatXMLFileName = statXml.fName;
    fOutFStatJSONFileName = statJson.fName;
    return true;
}

void MIXValidSpecs::ReadPrintOptions() {
    fPrintHistPar = LowSlot(slots::kHistoryInterval);
    fPrintCPS = Flag(slots::kPrintCPS);
    fPrintCORB = Flag(slots::kPrintCORB);
    fPrintCOVB = Flag(slots::kPrintCOVB);
    fPrintTestCov = Flag(slots::kPrintTestCov);
    fPrintVARIABLEINFO = Flag(slots::kPrintVARIABLEINFO);
    fPrintGMatrix = Flag(slots::kPrintGMatrix);
    fPrintHISTORY = Flag(slots::kPrintHISTORY);
    fPrintLMATRIX = Flag(slots::kPrintLMATRIX);
    fPrintRMatrix = Flag(slots::kPrintRMatrix);
    fPrintSOLUTION = Flag(slots::kPrintSOLUTION);
}

void MIXValidSpecs::ReadRandomEffects() {
    const int nRows = LowSlot(slots::kNRandomRows);
    if (nRows <= 0) return;
    const long long* cursor = fpBlockInt + IntSlot(slots::kRandomRows) - 1;
    for (int row = 0; row < nRows; ++row) {
        MCModelEffect effect;
        std::vector<bool> nestedFlags;
        FillModelEffect(cursor, effect, nestedFlags);
        fvRandEffectList.push_back(effect);
        fvRandEffectNested.push_back(nestedFlags);
    }
}

void MIXValidSpecs::ReadRandomBlocks() {
    const int nBlocks = LowSlot(slots::kNRandomBlocks);
    int blockIndex = 0;
    int rowIndex = 0;
    for (int block = 0; block < nBlocks; ++block) {
        GLMMRandomSpec spec;
        int nEffects = 0;
        std::vector<std::vector<bool>> nestedFlags;
        FillRandomSpec(blockIndex, rowIndex, spec, nEffects, nestedFlags);
        fvRandomList.push_back(spec);
        fvNRandEffects.push_back(nEffects);
        fvRandCovarNested.insert(fvRandCovarNested.end(), nestedFlags.begin(), nestedFlags.end());
        // Asking a random block for its solution is what selects the JSON-driven output.
        if (spec.GetComputeEBLUPs()) fUseStatJSON = true;
    }
}

void MIXValidSpecs::ReadRepeatedBlock() {
    fRepeatedSpec.SetCovarianceType(GetCovarType(IntSlot(slots::kRepeatedCovarType), true));
    fKronSpec.SetCovarianceType(kKroneckerCovarType);
    fvRepeatedVars = ReadVariables(slots::kNRepeatedVars, slots::kRepeatedVars);
    if (!fvRepeatedVars.empty()) fRepeatedSpec.AddEffect(MeasureEffect(fvRepeatedVars));
    if (IsKronecker(fRepeatedSpec.GetCovarianceType())) ReadKroneckerBlock();
    fvRepSubjVars = ReadVariables(slots::kNRepSubjects, slots::kRepSubjects);
    for (const int subject : fvRepSubjVars)
        fRepeatedSpec.AddSubjectVar(subject);
    fRepeatedSpec.SetIndex(-1);
    fKronSpec.SetIndex(-1);
}

void MIXValidSpecs::ReadKroneckerBlock() {
    fvRepeatedPairs = ReadPairing(slots::kNPairsA, slots::kPairsA);
    fvKronVars = ReadVariables(slots::kNKronVars, slots::kKronVars);
    fvKronPairs = ReadPairing(slots::kNKronVars, slots::kPairsB);
    if (!fvKronVars.empty()) fKronSpec.AddEffect(MeasureEffect(fvKronVars));
    fRepeatedSpec.SetfvectorAforPaired(fvRepeatedPairs);
    fRepeatedSpec.SetfvectorBforPaired(fvKronPairs);
}

bool MIXValidSpecs::ReadSpatialVariables() {
    const int count = LowSlot(slots::kNSpatialVars);
    const long long start = IntSlot(slots::kSpatialVars);
    for (int k = 0; k < count; ++k) {
        fvSpatVarInds.push_back(HostIndex(IntCell(start + k)));
        const QVTA_Variable& variable = fpDataSource->GetVariable(fvSpatVarInds.back());
        if (variable.GetType() == 0) continue;
        BpComposite message("Not numeric REPEATED SPCOORDS ^1 ...", true);
        message.Add(BpVariable(variable, BpVariable::kPreferred));
        message.Finish();
        BpError(message, kShowAlways, kLevelError);
        return false;
    }
    return true;
}

void MIXValidSpecs::ReadSavedVariables() {
    const int count = std::min(LowSlot(slots::kNSaveVars), maxSaveTypes);
    for (int i = 0; i < count; ++i) {
        const int saveType = static_cast<int>(IntSlot(slots::kSaveTypes + kSlotWidth * i) - 1);
        const long long namePosition = IntSlot(slots::kSaveNames + kSlotWidth * i);
        std::string name;
        if (namePosition != 0) {
            name = CellText(namePosition, kNameLength);
            name = std::string(QVTAMBstrtrim_A(name.data()));
        }
        fvSaveVarTypes.push_back(static_cast<SaveTypes>(saveType));
        fvSaveScoreTypes.push_back(GetScoreType(saveType));
        fvSaveVarNames.push_back(name);
        fvSaveVarLabels.push_back(SaveLabel(saveType));
        fvSaveVarFormats.push_back(GetSaveFormat(saveType));
    }
    fMaxObsAdded = Count(fvSaveVarTypes);
}

void MIXValidSpecs::ReadCustomTests() {
    const int count = LowSlot(slots::kNCustomTests);
    for (int ordinal = 1; ordinal <= count; ++ordinal) {
        CustomTest test;
        FillCustomTest(ChainRecord(slots::kCustomTestChain, ordinal), test, false);
        fvCustomTests.push_back(test);
    }
}

void MIXValidSpecs::ReadEMMeans() {
    const int count = LowSlot(slots::kNMeans);
    for (int ordinal = 1; ordinal <= count; ++ordinal) {
        MCEmmeansSpec spec;
        ContrastPair contrast{nullptr, {}};
        std::string refString;
        RefCatTypes refType = RefCatNone;
        bool refLong = false;
        std::vector<std::string> fixCovStr;
        FillEMMeansSpec(ChainRecord(slots::kMeansChain, ordinal), spec, contrast.first, contrast.second, refString,
                        refType, refLong, fixCovStr);
        fvEMMeansList.push_back(spec);
        fvContrastPairList.push_back(contrast);
        fvContrastStrings.push_back(refString);
        fvEmmRCTypeList.push_back(refType);
        fvbEmmRCLong.push_back(refLong);
        fvvEmmFixCovStr.push_back(fixCovStr);
    }
}
