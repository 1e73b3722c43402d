#include "procedure/MIXValidSpecs.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdint>

namespace {

/// Engine numbers of the block's covariance codes 1 to 16, which are the same for both kinds of block.
constexpr std::array<CovarType, 16> kCovarTypes = {1, 9, 0, 10, 2, 11, 12, 3, 13, 17, 14, 4, 5, 15, 7, 16};
/// The codes 17 to 28 of a repeated block.
constexpr std::array<CovarType, 12> kRepeatedCovarTypes = {8, 3, 8, 18, 19, 20, 21, 22, 23, 24, 25, 26};
constexpr CovarType kRandomFallback = 8;
constexpr CovarType kRepeatedFallback = 3;
constexpr unsigned kFirstKronecker = 24;
constexpr unsigned kNKroneckerTypes = 3;

/// Engine score types in the order of SaveTypes.
constexpr std::array<ScoreType, MIXValidSpecs::maxSaveTypes> kScoreTypes = {10, 0, 6, 11, 1, 19, 9};

constexpr QVTA_Format kFixedSaveFormat = {8, kFormatNumeric, 2};
constexpr int kMaxDecimals = 16;

constexpr MCHessianCompMethod kNewton = 2;
constexpr MCHessianCompMethod kFisherThenNewton = 3;

}  // namespace

MIXValidSpecs::MIXValidSpecs(void* parsedBlock, const ProcedureDataSource& source)
    : fpBlockDouble(static_cast<const double*>(parsedBlock)),
      fpBlockInt(static_cast<const long long*>(parsedBlock)),
      fpDataSource(&source) {}

MIXValidSpecs::~MIXValidSpecs() {
    delete fpStopProcessor;
    delete fpCompSettings;
    delete fpVarValidSpecs;
}

void MIXValidSpecs::SetModelEffectList(const std::vector<MCModelEffect>& effects,
                                       const std::vector<std::vector<bool>>& nestedFlags) {
    fvModelEffectList = effects;
    fvCovarateNested = nestedFlags;
}

void MIXValidSpecs::SetRandomSpec(const std::vector<GLMMRandomSpec>& specs, const std::vector<int>& nRandEffects,
                                  const std::vector<std::vector<bool>>& nestedFlags) {
    fvRandomList = specs;
    fvNRandEffects = nRandEffects;
    fvRandCovarNested = nestedFlags;
}

void MIXValidSpecs::SetIterSep(int iterSep) {
    assert(iterSep >= 0);
    if (iterSep >= 0) fIterSep = iterSep;
}

void MIXValidSpecs::SetLConvType(MCConvType type) {
    fLConvType = type;
    fLConvTypeSet = true;
}

void MIXValidSpecs::SetHConvCrit(double convCrit) {
    assert(convCrit >= 0.0);
    if (convCrit >= 0.0) fHConvCrit = convCrit;
}

void MIXValidSpecs::SetLConvCrit(double convCrit) {
    assert(convCrit >= 0.0);
    if (!(convCrit >= 0.0)) return;
    fLConvCrit = convCrit;
    fLConvCritSet = true;
}

void MIXValidSpecs::SetPConvCrit(double convCrit) {
    assert(convCrit >= 0.0);
    if (convCrit >= 0.0) fPConvCrit = convCrit;
}

void MIXValidSpecs::SetCIConvProfile(double convCrit) {
    assert(convCrit >= 0.0);
    if (convCrit >= 0.0) fCIConvProfile = convCrit;
}

void MIXValidSpecs::SetConvCritTypeIandIII(double convCrit) {
    assert(convCrit >= 0.0);
    if (convCrit >= 0.0) fConvCritTypeIandIII = convCrit;
}

void MIXValidSpecs::SetMaxIter(int maxIter) {
    assert(maxIter >= 0);
    if (maxIter >= 0) fMaxIter = maxIter;
}

void MIXValidSpecs::SetMaxStepHalving(int maxStepHalving) {
    assert(maxStepHalving > 0);
    if (maxStepHalving > 0) fMaxStepHalving = maxStepHalving;
}

void MIXValidSpecs::SetCILevelPct(double ciLevelPct) {
    assert(ciLevelPct >= 0.0 && ciLevelPct < 100.0);
    if (ciLevelPct >= 0.0 && ciLevelPct < 100.0) fCILevelPct = ciLevelPct;
}

void MIXValidSpecs::SetMaxFisherSteps(int maxFisherSteps) {
    assert(maxFisherSteps >= 0);
    if (maxFisherSteps >= 0) fMaxFisherSteps = maxFisherSteps;
    fEstMethod = fMaxFisherSteps > 0 ? kFisherThenNewton : kNewton;
}

void MIXValidSpecs::SetTolerance(double toler) {
    assert(toler > 0.0);
    if (toler > 0.0) fTolerance = toler;
}

void MIXValidSpecs::SetPrintHistPar(int printHistPar) {
    assert(printHistPar > 0);
    if (printHistPar > 0) fPrintHistPar = printHistPar;
}

std::string MIXValidSpecs::GetContrastString(int emmeansIndex) const {
    assert(emmeansIndex >= 0 && emmeansIndex < GetNEMMeans());
    if (emmeansIndex < 0 || emmeansIndex >= Count(fvContrastStrings)) return {};
    return fvContrastStrings[emmeansIndex];
}

MIXValidSpecs::ConvCodes MIXValidSpecs::GetConvCode(long statusCode, int* direction) const {
    struct Outcome {
        long fStatusCode;
        ConvCodes fConvCode;
        int fDirection;
    };
    static constexpr Outcome kOutcomes[] = {
        {230036, ConvNotReached, 0},  {230037, ConvSingularHessian, 0}, {230038, ConvHessianNotPositive, 0},
        {230087, ConvNotReached, -1}, {230092, ConvPerfectFit, 0},      {230094, ConvCycle, 0},
        {230095, ConvNotReached, 1},
    };
    const Outcome* found = std::find_if(std::begin(kOutcomes), std::end(kOutcomes),
                                        [&](const Outcome& each) { return each.fStatusCode == statusCode; });
    const bool known = found != std::end(kOutcomes);
    if (direction) *direction = known ? found->fDirection : 0;
    return known ? found->fConvCode : ConvNoRemark;
}

CovarType MIXValidSpecs::GetCovarType(long long code, bool isRepeated) {
    constexpr long long kCommon = kCovarTypes.size();
    constexpr long long kAll = kCommon + kRepeatedCovarTypes.size();
    if (code >= 1 && code <= kCommon) return kCovarTypes[code - 1];
    if (!isRepeated) return kRandomFallback;
    return code > kCommon && code <= kAll ? kRepeatedCovarTypes[code - kCommon - 1] : kRepeatedFallback;
}

bool MIXValidSpecs::IsKronecker(CovarType type) {
    return static_cast<unsigned>(type) - kFirstKronecker < kNKroneckerTypes;
}

ScoreType MIXValidSpecs::GetScoreType(int saveType) {
    return saveType >= 0 && saveType < maxSaveTypes ? kScoreTypes[saveType] : -1;
}

QVTA_Format MIXValidSpecs::GetSaveFormat(int saveType) const {
    const QVTA_Format dependent = fpDataSource->GetVariable(fDependVar).GetFormat();
    QVTA_Format widened = dependent;
    widened.fWidth = static_cast<std::uint16_t>(std::min(dependent.fWidth + 3, QVTA_Variable::MAXNUMFMTWID));
    widened.fDecimals = static_cast<std::uint8_t>(std::min(dependent.fDecimals + 2, kMaxDecimals));
    return saveType >= SaveFixedPredicted && saveType <= SaveStdError ? widened : kFixedSaveFormat;
}
