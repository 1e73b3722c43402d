#include "results/HRFTStatJSON.h"

#include "tables/json/EBLUPTable.h"

HRFTStatJSON::HRFTStatJSON(BpProcedure* procedure, ProcedureDataSource* source, const std::string& document)
    : fpProcedure(procedure), fpProcDS(source), fpJSON(std::make_unique<JNIJSONObject>(document.c_str())) {}

HRFTStatJSON::~HRFTStatJSON() = default;

void HRFTStatJSON::DisplayOutput() {
    tables::EBLUPTableRequest request;
    request.fStringTable = "Generalized Linear Mixed Models";
    tables::WriteEBLUPTables(*fpJSON, *fpProcedure, fpProcDS, request);
}
