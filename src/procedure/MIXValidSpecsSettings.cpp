#include "procedure/MIXValidSpecs.h"

#include <cassert>
#include <iterator>
#include <map>

namespace {

constexpr MCOffsetType kOffsetVariable = 1;
constexpr MCOffsetType kOffsetValue = 2;
constexpr MCCategOrder kAscending = 0;
constexpr MCCategOrder kDescending = 1;
constexpr MCHessianCompMethod kNewton = 2;

}  // namespace

void MIXValidSpecs::CompleteSettings(GLMMSettings* pSettings, ACAInputAdapter* pAdapter, int iSplit) {
    assert(pSettings != nullptr);
    pSettings->SetUse4Mixed(true);
    pSettings->SetTransformEffects(false);
    NoteSplit(pAdapter != nullptr, iSplit);
    CompleteModel(*pSettings, pAdapter);
    CompleteMasterSettings();
    for (const GLMMRandomSpec& spec : fvCompRandomList)
        pSettings->AddRandomSpec(spec);
    CompleteMeans(*pSettings, pAdapter, iSplit);
    CompleteRepeated(*pSettings, pAdapter);
    CompleteEstimation(*pSettings);
    CompleteOptions(*pSettings);
}

void MIXValidSpecs::GrowSplits(std::size_t nSplits) {
    assert(fvvbEMMeansValid.size() == fvbSplitValid.size());
    if (nSplits <= fvbSplitValid.size()) return;
    fvbSplitValid.resize(nSplits, false);
    fvvbEMMeansValid.resize(nSplits, std::vector<bool>(fvCompEMMeansList.size(), false));
}

void MIXValidSpecs::NoteSplit(bool hasAdapter, int iSplit) {
    if (iSplit < 0) return;
    GrowSplits(static_cast<std::size_t>(iSplit) + 1);
    fvbSplitValid[iSplit] = hasAdapter;
    fvvbEMMeansValid[iSplit].assign(fvvbEMMeansValid[iSplit].size(), hasAdapter);
}

void MIXValidSpecs::CompleteSplits(int nSplits) {
    if (nSplits > 0) GrowSplits(static_cast<std::size_t>(nSplits));
}

void MIXValidSpecs::CompleteFactor(GLMMSettings& settings, ACAInputAdapter* pAdapter, int variable) const {
    int levels = 1;
    if (pAdapter) {
        levels = pAdapter->GetRecordCatVarSize(variable);
        if (fFactorSortOrder == kAscending || fFactorSortOrder == kDescending)
            pAdapter->ReorderRecordCats(variable, fFactorSortOrder == kAscending);
    }
    settings.AddFactor(variable, levels);
}

void MIXValidSpecs::CompleteModel(GLMMSettings& settings, ACAInputAdapter* pAdapter) const {
    if (fCompDependVar >= 0) settings.SetSingleDependent(fCompDependVar);
    for (const int factor : fvCompFactorList)
        CompleteFactor(settings, pAdapter, factor);
    for (const int covariate : fvCompCovariateList)
        settings.AddCovariate(covariate);
    for (const MCModelEffect& effect : fvCompModelEffectList)
        settings.AddModelEffect(effect);
    if (fCompRegrWeightIndex >= 0) settings.SetRegrWeightVar(fCompRegrWeightIndex);
}

// Offset and frequency weight go to the master settings alone: an engine takes the weight from the variable list.
void MIXValidSpecs::CompleteMasterSettings() {
    if (fOffsetType == kOffsetVariable && fCompOffsetIndex >= 0) fpCompSettings->SetOffset(fCompOffsetIndex);
    if (fOffsetType == kOffsetValue) fpCompSettings->SetOffsetValue(fOffsetValue);
    if (fCompQvtaWeightIndex >= 0) fpCompSettings->SetFrequencyWeightVar(fCompQvtaWeightIndex);
}

void MIXValidSpecs::CompleteMeans(GLMMSettings& settings, const ACAInputAdapter* pAdapter, int iSplit) {
    if (fvCompEMMeansList.empty()) return;
    std::vector<MCEmmeansSpec> requests;
    for (std::size_t i = 0; i < fvCompEMMeansList.size(); ++i) {
        MCEmmeansSpec request = fvCompEMMeansList[i];
        const bool valid = !pAdapter || CompleteReference(request, i, *pAdapter);
        requests.push_back(request);
        if (iSplit >= 0 && pAdapter) fvvbEMMeansValid[iSplit][i] = valid;
    }
    settings.SetEmmeans(requests);
}

// A reference category that the split's data don't have makes the request invalid in this split alone.
bool MIXValidSpecs::CompleteReference(MCEmmeansSpec& request, std::size_t i, const ACAInputAdapter& adapter) const {
    const std::vector<int>& compareFactors = request.GetCompareFactors();
    if (compareFactors.empty() || compareFactors.front() < 1) return true;
    if (fvEmmRCTypeList[i] == RefCatFirst) {
        request.SetRefCateg(0);
        return true;
    }
    const OBS* value = fvContrastPairList[i].first;
    if (!value) return true;
    if (i < fvbEmmRCLong.size() && fvbEmmRCLong[i]) return false;
    bool error = false;
    const int category = adapter.EncodeRecordCatValue(compareFactors.front(), value, error, false);
    if (error) return false;
    request.SetRefCateg(category);
    return true;
}

void MIXValidSpecs::CompleteRepeated(GLMMSettings& settings, ACAInputAdapter* pAdapter) const {
    for (const int variable : fvCompRepeatedVars)
        CompleteFactor(settings, pAdapter, variable);
    settings.SetRepeated(fCompRepeatedSpec);
    if (IsKronecker(fCompRepeatedSpec.GetCovarianceType()) && !fvCompKronVars.empty()) {
        for (const int variable : fvCompKronVars)
            CompleteFactor(settings, pAdapter, variable);
        settings.SetKronecker(fCompKronSpec);
    }
    for (const int variable : fvCompSpatVarInds)
        settings.AddSpatialVar(variable);
}

void MIXValidSpecs::CompleteEstimation(GLMMSettings& settings) const {
    settings.SetInterceptUse(fInterceptInModel);
    settings.SetEffectAnalysisType(fEffectAnalysisType);
    settings.SetEffectAnalysisStat(fEffectAnalysisStat);
    settings.SetCSIteration(fIterSep);
    settings.SetConfidenceLevel(fCILevelPct / 100.0);
    settings.SetCIType(fCIType);
    settings.SetCIConvProfile(fCIConvProfile);
    settings.SetToleranceLogLikePLCI(fCIConvProfile);
    settings.SetToleranceHessianPLCI(fCIConvProfile);
    settings.SetCovbType(fCovbType);
    settings.SetHConvergeType(fHConvType);
    settings.SetLConvergeType(fLConvType);
    settings.SetPConvergeType(fPConvType);
    settings.SetToleranceHessian(fHConvCrit);
    settings.SetLLConCriterion(fLConvCrit);
    settings.SetParamEstConCriterion(fPConvCrit);
    settings.SethessianCheck(fHConvCrit > 0.0);
    settings.SetloglikelihoodCheck(fLConvCrit > 0.0);
    settings.SetparameterCheck(fPConvCrit > 0.0);
    settings.SetMaxIterations(fMaxIter);
    settings.SetMaxStepHalvingValue(fMaxStepHalving);
    settings.SetThetaEstType(fThetaEstType);
    settings.SetHessianCompMethod(fEstMethod);
    settings.SetMaxFisherIterNum(fEstMethod == kNewton ? fMaxFisherSteps : fMaxFisherSteps + 1);
    settings.SetTolerance(fTolerance);
    settings.SetDegreesFreedomType(fDFMethod);
}

void MIXValidSpecs::CompleteOptions(GLMMSettings& settings) const {
    settings.SetMaxIterationsPLCI(fMaxIter);
    settings.SetMaxIterationsSQP(fMaxIter);
    settings.SetToleranceHessianSQP(fHConvCrit);
    settings.SetToleranceLogLikeSQP(fLConvCrit);
    settings.SetToleranceParamSQP(fPConvCrit);
    settings.SetHConvergeTypeSQP(fHConvType);
    settings.SetLConvergeTypeSQP(fLConvType);
    settings.SetPConvergeTypeSQP(fPConvType);
    // The tests of the effects follow the log-likelihood criterion, and only when the user gave one.
    if (fLConvTypeSet) settings.SetLConvergeTypeTypeIandIII(fLConvType);
    if (fLConvCritSet) settings.SetTolLogLikeTypeIandIII(fLConvCrit);
    settings.SetGEFTest(fPrintGEF);
    settings.SetIterationFrequency(fPrintHistPar);
    settings.SetModelFittingTest(fPrintSUMMARY);
    settings.SetScoringTypes(fvSaveScoreTypes);
    settings.SetCancelPointer(fpStopProcessor);
}

namespace {

/// Prefixes of hidden variable names: the role of a variable outside the model.
constexpr const char* kOrdinalMarker = "@#$ordinal@#$_";
constexpr const char* kSpatialMarker = "@#$spatial@#$_";
constexpr const char* kRandomSubjectMarker = "@#$randsubj@#$_";
constexpr const char* kRepeatedSubjectMarker = "@#$repsubj@#$_";
constexpr const char* kRegressionWeightMarker = "@#$regweight@#$_";
constexpr const char* kOffsetMarker = "@#$offset@#$_";

/// A group of record variables with a role outside the model.
struct MarkedRole {
    const char* fMarker;
    bool fCategorical;
    std::map<int, int> fHostByRecord;
};

MarkedRole Role(const char* marker, bool categorical, const std::vector<int>& recordIndices,
                const std::vector<int>& hostIndices) {
    MarkedRole role{marker, categorical, {}};
    for (std::size_t i = 0; i < recordIndices.size() && i < hostIndices.size(); ++i)
        role.fHostByRecord.emplace(recordIndices[i], hostIndices[i]);
    return role;
}

}  // namespace

bool MIXValidSpecs::CompleteVarList(MCVarList* pVarList, ACAInputAdapter* pAdapter) {
    if (!pVarList || !pAdapter) return true;
    ACAVarListMetaData writer(*pVarList, fpVarValidSpecs, *fpDataSource, pAdapter, true);
    // A record variable can have several roles; the first one here names it.
    const MarkedRole roles[] = {
        Role(kOrdinalMarker, true, fvCompRepeatedVars, fvRepeatedVars),
        Role(kSpatialMarker, false, fvCompSpatVarInds, fvSpatVarInds),
        Role(kRandomSubjectMarker, true, fvCompRandSubjVars, fvRandSubjVars),
        Role(kRepeatedSubjectMarker, true, fvCompRepSubjVars, fvRepSubjVars),
        Role(kRegressionWeightMarker, false, {fCompRegrWeightIndex}, {fRegrWeightIndex}),
        Role(kOffsetMarker, false, {fCompOffsetIndex}, {fOffsetIndex}),
    };
    const auto addVariable = [&](int r) {
        if (r == fCompQvtaWeightIndex)
            return writer.AddRecWeightVar(r, IMCVariable::kWeightRole, IMCVariable::kRoundToNearest, "");
        if (r == fCompDependVar) return writer.AddRecVariable(r, false, IMCVariable::kDependentRole, nullptr, "");
        for (const MarkedRole& role : roles) {
            const auto found = role.fHostByRecord.find(r);
            if (found == role.fHostByRecord.end()) continue;
            const std::string name = std::string(role.fMarker) + fpDataSource->GetVariable(found->second).GetName();
            return writer.AddRecVariable(r, role.fCategorical, IMCVariable::kPredictorRole, nullptr, name);
        }
        return writer.AddRecVariable(r, fpVarValidSpecs->GetRecordCatVar(r), IMCVariable::kPredictorRole, nullptr, "");
    };
    bool ok = true;
    for (int r = 0; ok && r < fpVarValidSpecs->GetNRecordVars(); ++r)
        ok = addVariable(r);
    pVarList->SetListwiseDeletion(true);
    pVarList->SetUnWeightedCount(pAdapter->GetNCases());
    pVarList->SetWeightedCount(pAdapter->GetWeightNCases());
    pVarList->SetDroppedCount(pAdapter->GetNInvalidCases());
    pVarList->SetWeightedDroppedCount(pAdapter->GetWeightNInvalidCases());
    return ok;
}
