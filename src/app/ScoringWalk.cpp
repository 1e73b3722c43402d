#include "app/ScoringWalk.h"

#include "host/output/OutputDocument.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXParameterAggregator.h"
#include "procedure/MIXValidSpecs.h"
#include "procedure/MixDriver.h"

namespace app {

namespace {

/// The run value says that this walk only scores, and keeps its outcome whatever the walk meets.
class ScoringOnly {
public:
    explicit ScoringOnly(run::RunValue& run) : fRun(run), fFatal(run.fFatal) { fRun.fScoring = true; }
    ~ScoringOnly() {
        fRun.fScoring = false;
        fRun.fFatal = fFatal;
    }
    ScoringOnly(const ScoringOnly&) = delete;
    ScoringOnly& operator=(const ScoringOnly&) = delete;

private:
    run::RunValue& fRun;
    bool fFatal;
};

}  // namespace

bool ScoreData(command::ParsedBlock& block, run::RunValue& run, ProcedureDataSource& source) {
    const ScoringOnly scoring(run);
    host::OutputDocument muted("Mixed Model Analysis");
    const host::OutputScope output(muted);
    BpProcedure procedure = muted.Procedure();
    EXPOSEMIX(block.Slots(), block.Texts());
    MIXValidSpecs specs(block.Cells(), source);
    specs.SetMixedSpecs();
    specs.CompleteSpecs();
    MIXFactory factory(&specs, source, &procedure);
    const auto stopped = [&run] { return run.fFatal || (run.fStop && run.fStop()); };

    while (!stopped() && factory.StartNewSplit(true)) {
        factory.ProcedureDataPass(false);
        factory.CompleteMetaData();
        if (!factory.GetInputAdapter()->GetSplitFile()) break;
    }
    if (stopped() || !factory.PrepareComponentRun(true)) return false;
    bool allReady = true;
    while (!stopped() && factory.StartNewSplit(true)) {
        const bool kept = run.Result(run.fSplitOrdinal).fpModel != nullptr;
        allReady = (factory.RunGLMMComponent() || !kept) && allReady;
        if (!factory.GetInputAdapter()->GetSplitFile()) break;
    }
    if (stopped() || !allReady || !factory.PrepareScoringPass()) return false;
    while (!stopped() && factory.StartNewSplit(true)) {
        run.Say({.fPhase = "scoring"});
        factory.ScoringDataPass();
    }
    return !stopped();
}

}  // namespace app
