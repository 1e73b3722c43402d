#include "app/ModelRun.h"

#include "app/CallBack.h"
#include "app/ScoringWalk.h"
#include "contracts/Host.h"
#include "host/data/DataSource.h"
#include "host/strings/Explanations.h"
#include "procedure/MixDriver.h"
#include "report/OwnTables.h"
#include "report/TextRenderer.h"

#include <algorithm>

namespace app {

namespace {

/// The errors of a document, as sentences.
struct ErrorCollector : output::Visitor {
    void Show(const output::Message& message) override {
        if (message.fLevel < kLevelError) return;
        const host::Catalogue& texts = host::Catalogue::Current();
        const auto* explanation = host::Explanations::Current().FindMessage(message.fpText->Show(texts));
        fErrors.push_back({report::MessageText(message, texts), explanation ? explanation->fCode : ""});
    }
    std::vector<Saying> fErrors;
};

/// Where more is told about a sentence: under a code of its own, else under that of the status that it stands behind.
std::string CodeOf(const std::string& sentence, const std::string& status) {
    const host::Explanations& explanations = host::Explanations::Current();
    const host::Explanation* own = explanations.FindMessage(sentence);
    const bool known = explanations.Find(status) != nullptr;
    const bool ofStatus = own && own->fCode.find_first_not_of("0123456789") == std::string::npos;
    return own && !(known && ofStatus) ? own->fCode : known ? status : std::string();
}

}  // namespace

ModelRun::ModelRun(std::shared_ptr<const host::Table> table, const command::Specification& specification)
    : fpTable(std::move(table)), fBlock(command::WriteBlock(specification)), fDocument("Mixed Model Analysis") {
    command::FillRunValue(specification, fRun);
}

void ModelRun::Drive(Halves halves) {
    const host::OutputScope output(fDocument);
    const run::Scope run(fRun);
    ProcedureDataSource source(host::MakeDataSource(fpTable));
    fDocument.SetData(&source);
    BpProcedure procedure = fDocument.Procedure();
    EXPOSEMIX(fBlock.Slots(), fBlock.Texts());
    fDocument.SetHalf(output::Half::kClassic);
    MixDriver(fBlock.Cells(), procedure, source);
    fDocument.SetHalf(output::Half::kBoth);
    fRun.Say({.fPhase = "making tables"});
    if (halves == Halves::kBoth && !Stopped()) CallBack(fRun, fDocument, source);
    if (fTakeScores) Score(source);
    fRun.fProgress = nullptr;
    if (!Stopped()) report::AddOwnTables(fRun, fDocument);
    fDocument.SetData(nullptr);
}

void ModelRun::Score(ProcedureDataSource& source) {
    if (fRun.fFatal || Stopped() || !AnythingFitted()) return;
    const bool scored = ScoreData(fBlock, fRun, source);
    if (Stopped()) return;
    if (scored)
        fTakeScores(source.Impl());
    else
        fScoringProblem = "the data could not be scored: there is too little memory, or no room for a temporary file";
}

bool ModelRun::AnythingFitted() const {
    return std::any_of(fRun.fvResults.begin(), fRun.fvResults.end(),
                       [](const run::SplitResult& result) { return result.fpModel != nullptr; });
}

bool ModelRun::AllFitted() const {
    if (fRun.fFatal || fRun.fvResults.size() < fpTable->Splits().size() || fRun.fvResults.empty()) return false;
    return std::all_of(fRun.fvResults.begin(), fRun.fvResults.end(), [](const run::SplitResult& result) {
        return result.fpModel != nullptr && result.fFigures.fConverged;
    });
}

std::vector<Saying> ModelRun::Errors() const {
    ErrorCollector collector;
    fDocument.Root().Visit(collector);
    std::vector<Saying>& errors = collector.fErrors;
    if (errors.size() == 2 && fRun.fvResults.size() == 1) {
        const std::size_t prefix = errors[1].fText.find(": ");
        errors[0].fText += " " + errors[1].fText.substr(prefix == std::string::npos ? 0 : prefix + 2);
        if (!errors[1].fCode.empty()) errors[0].fCode = errors[1].fCode;  // it tells more than the status alone
        errors.pop_back();
    }
    return errors;
}

std::vector<Saying> ModelRun::Notes() const {
    std::vector<Saying> notes;
    for (const run::SplitResult& result : fRun.fvResults) {
        for (const run::Message& message : result.fFigures.fMessages) {
            const bool shown = message.fLevel == "error" && result.fName.empty();
            if (message.fText.empty() || shown) continue;
            notes.push_back({(result.fName.empty() ? "" : result.fName + ": ") + message.fText,
                             CodeOf(message.fText, std::to_string(message.fCode))});
        }
    }
    return notes;
}

}  // namespace app
