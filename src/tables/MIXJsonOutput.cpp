#include "tables/MIXJsonOutput.h"

#include "procedure/MIXFactory.h"
#include "tables/MIXComOutputData.h"
#include "tables/json/EBLUPTable.h"

MIXJsonOutput::MIXJsonOutput(BpProcedure* procedure, ProcedureDataSource* source, MIXComOutputData* context,
                             const std::string& document)
    : fpProcedure(procedure),
      fpProcDS(source),
      fpComOutputData(context),
      fpInpAdapt(context->GetFactory()->GetInputAdapter()),
      fpJSON(std::make_unique<JNIJSONObject>(document.c_str())) {}

MIXJsonOutput::~MIXJsonOutput() = default;

void MIXJsonOutput::DisplayOutput() {
    DisplayEBLUPTable();
}

void MIXJsonOutput::DisplayEBLUPTable() {
    const bool bSplitHeading = fpProcDS->GetSplitCount() > 0 && !fpProcDS->GetSplitLayering();
    const bool bSupportSplits = !bSplitHeading;
    tables::EBLUPTableRequest request;
    request.fStringTable = "Mixed";
    request.fSupportSplits = bSupportSplits;
    if (bSplitHeading) request.fSplitHeading = fpComOutputData->GetSplitName(fpInpAdapt->GetSplitValues(), true);
    tables::WriteEBLUPTables(*fpJSON, *fpProcedure, fpProcDS, request);
}

void MIXJsonOutput::MessageModelViewer() const {
    BpError(BpString("EBLUP table separately from the Model Viewer", true), 2, 2);
}
