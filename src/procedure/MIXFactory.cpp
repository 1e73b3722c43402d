#include "procedure/MIXFactory.h"

#include "procedure/DebugSwitches.h"
#include "procedure/DebugText.h"
#include "procedure/FactoryCodes.h"
#include "procedure/MIXParameterAggregator.h"
#include "procedure/MIXValidSpecs.h"

#include <cassert>

namespace {

constexpr int kNoCases = 1;
constexpr int kFixedEffects = -1;

/// The entry of the split, null outside the list.
template <class T>
T* At(const std::vector<std::unique_ptr<T>>& list, int split) {
    return split >= 0 && split < static_cast<int>(list.size()) ? list[split].get() : nullptr;
}

}  // namespace

MIXFactory::MIXFactory(MIXValidSpecs* pValidSpecs, ProcedureDataSource& source, BpProcedure* pProcedure)
    : fpValidSpecs(pValidSpecs),
      fpVarValidSpecs(pValidSpecs->GetVarValidSpecsPtr()),
      fpProcDS(&source),
      fpProcedure(pProcedure),
      fpInpAdapt(std::make_unique<ACAInputAdapter>(fpVarValidSpecs, source)),
      fInpAdaptMsg(source) {
    if (fpProcedure) fpInpAdapt->SetSplitFile(*fpProcedure, true, true, true);
    fpRecIter = std::make_unique<ACAProcDataSourceIter>(*fpInpAdapt, true);
    const int reason = fpRecIter->GetFailReason();
    if (reason == kNoCases && IsSplitRun()) {
        fInpAdaptMsg.NoValidCasesSplit();
    } else if (reason == kNoCases || reason == kNoUsableRecords) {
        fStatus = MCStatus(kStatusNoValidCases, false);
        fInpAdaptMsg.NoValidCases();
    }
}

// An algorithm refers to its settings and list, and they to the adapter.
MIXFactory::~MIXFactory() {
    fpFixParamAggr.reset();
    fvpRandParamAggrs.clear();
    fpPMMLPooling.reset();
    fvpAlgorithms.clear();
    fvpCompSettings.clear();
    fvpVarLists.clear();
    fpRecIter.reset();
    fpInpAdapt.reset();
}

GLMMSettings* MIXFactory::GetGLMMSettings() const {
    return At(fvpCompSettings, fSplitIndex);
}

GLMMAlgorithm* MIXFactory::GetGLMMAlgorithm() const {
    return At(fvpAlgorithms, fSplitIndex);
}

const GLMMOutputStats* MIXFactory::GetOutputStats() const {
    const GLMMAlgorithm* pAlgorithm = GetGLMMAlgorithm();
    assert(!fStatus.IsError());
    assert(pAlgorithm != nullptr);
    return fStatus.IsError() || !pAlgorithm ? nullptr : pAlgorithm->GetOutputStats();
}

void MIXFactory::ReportNoValidCases() {
    if (IsSplitRun())
        fInpAdaptMsg.NoValidCasesSplit();
    else
        fInpAdaptMsg.NoValidCases();
}

bool MIXFactory::UserHasStopped() const {
    MCQueryCancel* cancel = fpValidSpecs->GetCompSettingsPtr()->GetCancelPointer();
    return cancel && cancel->GetCancel();
}

void MIXFactory::TakeStatus(const MCStatus& status) {
    if (!fStatus.IsError()) fStatus = status;
}

bool MIXFactory::StartNewSplit(bool useIterator) {
    // A failed split doesn't colour the next one.
    if (IsSplitRun()) fStatus = MCStatus();
    if (!fpRecIter) return false;
    bool moved = false;
    if (useIterator) {
        moved = fpRecIter->NewSplit();
    } else if (fSplitIndex + 1 < static_cast<int>(fvpCompSettings.size())) {
        fpInpAdapt->ChangeSplitNoIter();
        moved = true;
    }
    if (moved) {
        ++fSplitIndex;
        fbProcContinues = false;
    }
    return moved;
}

bool MIXFactory::ProcedureDataPass(bool report) {
    MCStatus status;
    bool bResult = true;
    if (!fpRecIter->HasMore()) {
        status = MCStatus(kStatusNoValidCases, false);
        bResult = false;
        if (report) ReportNoValidCases();
    }
    while (!status.IsError() && fpRecIter->HasMore() && !UserHasStopped()) {
        fpRecIter->Next();
        if (fpRecIter->GetFailReason() == kNoUsableRecords) {
            status = MCStatus(kStatusNoValidCases, false);
            bResult = false;
        }
    }
    TakeStatus(status);
    return bResult;
}

bool MIXFactory::CompleteMetaData() {
    std::unique_ptr<GLMMSettings> pCompSettings;
    std::unique_ptr<MCVarList> pMCVarList;
    int nRecords = 0;
    bool bResult = false;
    if (!fStatus.IsError()) {
        pCompSettings = std::make_unique<GLMMSettings>();
        pMCVarList = std::make_unique<MCVarList>();
        fpValidSpecs->CompleteSettings(pCompSettings.get(), fpInpAdapt.get(), fSplitIndex);
        TakeSortVariables(*pCompSettings);
        bResult = fpValidSpecs->CompleteVarList(pMCVarList.get(), fpInpAdapt.get());
        if (gbDisplayVarList) DumpEngineText([&] { pMCVarList->Display(); });
        if (bResult) nRecords = fpInpAdapt->GetSplitRecordCount();
    }
    if (!bResult && IsSplitRun()) {
        pCompSettings.reset();
        pMCVarList.reset();
    }
    // A failed split keeps its place.
    fvpCompSettings.push_back(std::move(pCompSettings));
    fvpVarLists.push_back(std::move(pMCVarList));
    fvNRecords.push_back(nRecords);
    return bResult;
}

void MIXFactory::TakeSortVariables(const GLMMSettings& settings) {
    std::vector<int> sortVars;
    const int count = settings.GetSortDataVariables(sortVars);
    if (fSortVars.empty() && count >= 1)
        fSortVars = sortVars;
    else
        assert(fSortVars == sortVars);
}

bool MIXFactory::CreateParamAggregators() {
    if (!fpFixParamAggr) {
        assert(fvpRandParamAggrs.empty());
        const int nSplits = IsSplitRun() ? fpInpAdapt->GetSplitCount() : 1;
        const auto make = [&](int block) {
            return std::make_unique<MIXParameterAggregator>(*fpValidSpecs, fpInpAdapt.get(), *fpProcDS, block, nSplits);
        };
        fpFixParamAggr = make(kFixedEffects);
        for (int block = 0; block < fpValidSpecs->GetNRandSpecs(); ++block)
            fvpRandParamAggrs.push_back(make(block));
    }
    std::string fileName;
    if (fpValidSpecs->GetOutFOptionMODEL())
        fileName = fpValidSpecs->GetOutFModelFileName();
    else if (fpValidSpecs->GetOutFOptionPARAMETER())
        fileName = fpValidSpecs->GetOutFParameterFileName();
    if (!fileName.empty()) fpPMMLPooling = std::make_unique<QVTA_PMMLPooling>(*fpProcDS, fileName);
    return true;
}

bool MIXFactory::PrepareComponentRun(bool useIterator) {
    if (fStatus.IsError()) return false;
    assert(fpInpAdapt && fpRecIter);
    if (useIterator) {
        fpRecIter->NewPass();
    } else {
        fpInpAdapt->ClearDSIterator();
        fpInpAdapt->ResetSplitNoIter();
    }
    fSplitIndex = -1;
    return true;
}

bool MIXFactory::AggregateParameters() {
    fpValidSpecs->CompleteSplits(fpInpAdapt->GetSplitCount());
    assert(fpFixParamAggr != nullptr);
    bool bResult = fpFixParamAggr->CreateAggregationMaps();
    if (!gbAggregateRandom) return bResult;
    for (std::size_t block = 0; bResult && block < fvpRandParamAggrs.size(); ++block)
        bResult = fvpRandParamAggrs[block]->CreateAggregationMaps();
    return bResult;
}

void MIXFactory::ClearSplitHistory() {}

bool MIXFactory::CompleteExtFileIO() {
    if (fpPMMLPooling) fpPMMLPooling->CompletePMML();
    return true;
}
