#include "contracts/Adapter.h"
#include "host/data/DataSource.h"
#include "run/RunValue.h"

namespace {

void Say(const std::string& text, BpErrorLevel level) {
    BpError(BpString(text, false), kShowAlways, level);
}

}  // namespace

ACAInpAdaptMsg::ACAInpAdaptMsg(ProcedureDataSource& source) : fpSource(&source) {}

void ACAInpAdaptMsg::NoValidCases() {
    if (fpSource->Impl().GetTable().RowCount() == 0)
        return Say("There are no cases; does the filter leave any?", kLevelError);
    Say("No valid cases were found: in every case a value of the model's variables is missing, or the weight is below "
        "1.",
        kLevelError);
}

void ACAInpAdaptMsg::NoValidCasesSplit() {
    const run::RunValue* run = run::Current();
    if (fpSource->Impl().GetTable().RowCount() == 0)
        return Say("There are no cases; does the filter leave any?", kLevelWarning);
    const std::string where = run != nullptr && !run->fSplitName.empty() ? " where " + run->fSplitName : "";
    Say("No valid cases were found" + where + ": there a value of the model's variables is missing in every case, or " +
            "the weight is below 1.",
        kLevelWarning);
}

void ACAInpAdaptMsg::NoValidCasesForSelect() {
    Say("The data has no variables.", kLevelWarning);
}

ACAStopProcessor::ACAStopProcessor(double interval) : fInterval(interval) {}

// A stop ends the run, so the host's fatal flag goes up at once.
bool ACAStopProcessor::GetCancel() {
    run::RunValue* run = run::Current();
    if (run == nullptr || !run->fStop || !run->fStop()) return false;
    run->fFatal = true;
    return true;
}

bool ACAStopProcessor::CheckCancel() {
    return GetCancel();
}
