#include "app/CallBack.h"

#include "command/SyntaxObjects.h"
#include "host/documents/SourceMetaData.h"
#include "host/strings/Catalogue.h"
#include "results/HRFTProcCustom.h"

#include <memory>
#include <new>

namespace app {

namespace {

void ShowSplit(const run::SplitResult& result, host::OutputDocument& document, ProcedureDataSource& source,
               host::SourceMetaData& metaData) {
    const std::unique_ptr<HRFTProcCustom> custom(GetCFProcCustom());
    if (!custom) throw std::bad_alloc();
    BpProcedure procedure = document.SplitProcedure();
    custom->SetContext(&procedure, &source, &metaData);
    custom->SetStatJSON({result.fStatJSON});
    CFStatXMLInfoBlock block;
    block.fText = result.fStatXML;
    CFProcCustom& called = *custom;
    called.ProcessOutputXML(std::vector{result.fPMML}, std::vector{block}, "");
    // The table of predictions stands in the viewer's sequence already: asking for it once more would only repeat it.
}

}  // namespace

void CallBack(run::RunValue& run, host::OutputDocument& document, ProcedureDataSource& source) {
    document.SetHalf(output::Half::kViewer);
    host::SourceMetaData metaData(source);
    for (std::size_t i = 0; i < run.fvResults.size(); ++i) {
        const run::SplitResult& result = run.fvResults[i];
        if (result.fStatXML.empty()) continue;
        run.fSplit = result.fSplit;
        run.fSplitName = result.fName;
        run.fSplitOrdinal = static_cast<int>(i);
        ShowSplit(result, document, source, metaData);
    }
    document.SetHalf(output::Half::kBoth);
}

namespace {

struct FirstMessage : output::Visitor {
    void Show(const output::Message& message) override {
        if (fText.empty()) fText = message.fpText->Show(host::Catalogue::Current());
    }
    std::string fText;
};

}  // namespace

std::string RefusedSyntax(const command::CommandTree& tree) {
    host::OutputDocument document("Mixed Model Analysis");
    const host::OutputScope scope(document);
    const std::unique_ptr<HRFTProcCustom> custom(GetCFProcCustom());
    if (!custom) throw std::bad_alloc();
    CFProcCustom& called = *custom;
    if (called.ProcessSyntax(command::MakeCommandSpec(tree).get(), command::MakeCommandDescriptor().get())) return {};
    FirstMessage message;
    document.Root().Visit(message);
    return message.fText;
}

}  // namespace app
