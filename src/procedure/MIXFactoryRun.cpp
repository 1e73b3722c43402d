#include "procedure/DebugSwitches.h"
#include "procedure/DebugText.h"
#include "procedure/FactoryCodes.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXParameterAggregator.h"
#include "procedure/MIXValidSpecs.h"

#include <cassert>
#include <filesystem>
#include <new>

// The engine reads a split's records many times, in its own order; the host's data can be read once, front to back.
// So a split's records go into a temporary file, sorted, and the engine reads that.

bool MIXFactory::RunGLMMComponent() {
    bool bOK = !fStatus.IsError();
    if (bOK) {
        assert(fpInpAdapt && fpRecIter);
        bOK = fpInpAdapt && fpRecIter;
    }
    std::unique_ptr<GLMMAlgorithm> pAlgorithm;
    if (bOK) bOK = MakeAlgorithm(pAlgorithm);
    fvpAlgorithms.push_back(std::move(pAlgorithm));
    if (!bOK) return DrainSplit();

    std::unique_ptr<ACADataFileIter> pDataFileIter = FillDataFile();
    if (!pDataFileIter) return DrainSplit();
    const bool bSuccess = FitRecords(*fvpAlgorithms.back(), *pDataFileIter);
    pDataFileIter.reset();
    if (gbDisplayComponent) DisplayStatus();
    return bSuccess;
}

bool MIXFactory::MakeAlgorithm(std::unique_ptr<GLMMAlgorithm>& pAlgorithm) {
    const GLMMSettings* pCompSettings = fvpCompSettings[fSplitIndex].get();
    const MCVarList* pMCVarList = fvpVarLists[fSplitIndex].get();
    if (!pCompSettings || !pMCVarList) {
        assert(IsSplitRun());
        return false;
    }
    pAlgorithm.reset(new (std::nothrow) GLMMAlgorithm(*pCompSettings, *pMCVarList));
    if (pAlgorithm) pAlgorithm->SetCompScoreTypes(fpValidSpecs->GetSaveScoreTypes());
    fStatus = pAlgorithm ? pAlgorithm->GetStatus() : MCStatus(kStatusNotMade, false);
    if (!fStatus.IsOK()) DisplayMessage(fStatus);
    return !fStatus.IsError();
}

std::unique_ptr<ACADataFileIter> MIXFactory::FillDataFile() {
    const int nRecords = fvNRecords[fSplitIndex];
    if (!fSortVars.empty() && nRecords <= 0) return nullptr;
    auto pDataFileIter = std::make_unique<ACADataFileIter>(*fpInpAdapt, fSortVars, nRecords);
    if (pDataFileIter->GetFailReason() == kNoUsableRecords) {
        ReportNoValidCases();
        return nullptr;
    }
    if (!pDataFileIter->FillDataFile(*fpRecIter)) return nullptr;
    if (gbDumpSortedRecords && !DumpSortedRecords(*pDataFileIter)) return nullptr;
    return pDataFileIter;
}

bool MIXFactory::DumpSortedRecords(ACADataFileIter& data) const {
    const std::filesystem::path directory = PathFactory::getPathInstance().GetDirectory();
    return data.GetTextFile((directory / "mixed_sorted_encoded_records.txt").string());
}

bool MIXFactory::FitRecords(GLMMAlgorithm& algorithm, ACADataFileIter& data) {
    data.NewPass();
    fStatus = algorithm.BuildModel(data, nullptr);
    const bool bSuccess = !fStatus.IsError();
    // A split run doesn't keep each split's file to the end of the split's output.
    if (fvpCompSettings.size() > 1) data.CloseDataFile();
    DisplayAllMessages();
    if (!bSuccess) {
        DisplayMessage(fStatus);
        return false;
    }
    if (gbDisplayComponent) DumpStreamText([&](std::ostream& stream) { algorithm.Display(stream); });
    if (gbDisplayOutputStats) DisplayOutput();
    SavePMMLFile();
    fStatus = algorithm.GetStatus();
    return AddSplitParams(algorithm);
}

bool MIXFactory::AddSplitParams(GLMMAlgorithm& algorithm) {
    bool bSuccess = !fpFixParamAggr || fpFixParamAggr->AddSplitParams(&algorithm);
    if (!gbAggregateRandom) return bSuccess;
    for (std::size_t block = 0; bSuccess && block < fvpRandParamAggrs.size(); ++block)
        bSuccess = fvpRandParamAggrs[block]->AddSplitParams(&algorithm);
    return bSuccess;
}

// Without a fit the iterator must still come to the end of the split, where the next one starts.
bool MIXFactory::DrainSplit() {
    if (IsSplitRun()) ProcedureDataPass(false);
    if (gbDisplayComponent) DisplayStatus();
    return false;
}

bool MIXFactory::DisplayOutput() {
    const GLMMAlgorithm* pAlgorithm = GetGLMMAlgorithm();
    if (!pAlgorithm) {
        BP_ToFront(1, BP_Character(" "));
        BP_ToFront(1, BP_Character("GLMM output is not available"));
        return true;
    }
    assert(!fStatus.IsError());
    if (fStatus.IsError()) return true;
    if (const GLMMOutputStats* stats = pAlgorithm->GetOutputStats()) DumpEngineText([&] { stats->Display(); });
    return true;
}

void MIXFactory::DisplayStatus() const {
    BP_ToFront(1, BP_Character(" "));
    const std::string code =
        CatchEngineText([&] { MCDisplay::DisplayI("GLMM algorithm returned code:", fStatus.GetErrorCode()); });
    BP_ToFront(1, BP_Character(code.c_str()));
    if (fStatus.IsOK())
        BP_ToFront(1, BP_Character("GLMM algorithm status: OK"));
    else if (fStatus.IsError())
        BP_ToFront(1, BP_Character("GLMM algorithm status: Error"));
    else if (fStatus.IsWarning())
        BP_ToFront(1, BP_Character("GLMM algorithm status: Warning"));
}
