#include "procedure/MixDriver.h"

#include "contracts/Adapter.h"
#include "contracts/Host.h"
#include "procedure/DebugSwitches.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXValidSpecs.h"
#include "tables/MIXOutput.h"

#include <optional>

namespace {

/// One run: the order of the steps, and the rule that decides whether the next one runs.
///
/// The host's fatal flag is asked afresh before each step, since any step can raise it. bContinue stops only the steps
/// that test it, and is forced back on in a split run, so that one bad split doesn't end the run.
class Run {
public:
    Run(void* parsedBlock, BpProcedure& procedure, ProcedureDataSource& source)
        : fSource(source), fProcedure(procedure), fSpecs(parsedBlock, source) {}

    void Execute() {
        if (!Fatal()) ReadSpecification();
        fOutput.emplace(&fSpecs, fSource, &fProcedure, nullptr);
        if (!bContinue || Fatal()) return;
        StartFactory();
        if (Fatal() || CompleteSplits()) DisplaySpecification();
        if (MayGoOn()) bContinue = fFactory->CreateParamAggregators();
        if (MayGoOn()) bContinue = fFactory->PrepareComponentRun(true);
        if (!Fatal()) FitSplits();
        if (MayGoOn()) bContinue = fFactory->AggregateParameters();
        if (MayGoOn()) PrepareOutput();
        if (!Fatal()) WriteSplits();
        BEPesRepos::BEPesCheckError();
        fOutput->CompleteNotesTable();
    }

private:
    bool Fatal() const { return fSource.FatalError(); }
    bool MayGoOn() const { return !Fatal() && bContinue; }
    bool IsSplitRun() const { return fFactory->GetInputAdapter()->GetSplitFile(); }

    void ReadSpecification() {
        fSpecs.SetMixedSpecs();
        fSpecs.CompleteSpecs();
        bContinue = fSpecs.GetCompSettingsPtr() != nullptr;
    }

    void StartFactory() {
        BEPesRepos::BEPesClear();
        // Data without columns is reported and no reason to stop: the factory tells its own outcome.
        if (fSource.ColumnCount() == 0) ACAInpAdaptMsg(fSource).NoValidCasesForSelect();
        bContinue = true;
        fFactory.emplace(&fSpecs, fSource, &fProcedure);
        fOutput->SetFactory(&*fFactory);
        fOutput->AddToNotesTable();
    }

    /// The metadata pass. False when it was left with the run not to go on.
    bool CompleteSplits() {
        while (bContinue) {
            if (!fFactory->StartNewSplit(true)) return bContinue;
            if (!Fatal()) bContinue = fFactory->ProcedureDataPass(true);
            if (IsSplitRun()) bContinue = true;
            if (MayGoOn()) bContinue = fFactory->CompleteMetaData();
            if (IsSplitRun()) bContinue = true;
            if (Fatal()) return bContinue;
        }
        return false;
    }

    void DisplaySpecification() const {
        if (gbDisplaySpecs) fSpecs.Display();
    }

    /// A failed fit has spoken through the host and stops nothing by itself.
    void FitSplits() {
        while (bContinue) {
            if (!fFactory->StartNewSplit(true)) return;
            if (!Fatal()) fFactory->RunGLMMComponent();
            if (IsSplitRun()) bContinue = true;
            if (Fatal()) return;
        }
    }

    /// Without splits the factory stays on the one split that the fit left it on.
    void PrepareOutput() {
        if (!IsSplitRun()) {
            bMoreOutput = true;
            return;
        }
        bContinue = fFactory->PrepareComponentRun(true);
        if (bContinue) bMoreOutput = fFactory->StartNewSplit(true);
    }

    /// All splits have been fitted, so that every split's tables use the same labels and row order. In a split run the
    /// records are read once more, so that the adapter stands on the split whose tables are written.
    void WriteSplits() {
        while (bContinue && bMoreOutput) {
            if (IsSplitRun()) bContinue = fFactory->ProcedureDataPass(false);
            if (MayGoOn() && !Fatal()) fOutput->DisplayOutput();
            fFactory->ClearSplitHistory();
            bMoreOutput = false;
            if (IsSplitRun()) {
                bContinue = true;
                bMoreOutput = fFactory->StartNewSplit(true);
            }
            if (Fatal()) return;
        }
    }

    ProcedureDataSource& fSource;
    BpProcedure& fProcedure;
    MIXValidSpecs fSpecs;
    std::optional<MIXOutput> fOutput;
    std::optional<MIXFactory> fFactory;
    bool bContinue = true;     ///< the run may go on
    bool bMoreOutput = false;  ///< the output loop has another split to show
};

}  // namespace

void MixDriver(void* parsedBlock, BpProcedure& procedure, ProcedureDataSource& source) {
    Run(parsedBlock, procedure, source).Execute();
}
