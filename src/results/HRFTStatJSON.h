#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "contracts/JsonBridge.h"

#include <memory>
#include <string>

/// The JSON companion of the custom procedure object: writes the table of best linear unbiased predictions from the
/// engine's JSON document. A document that doesn't parse, or has no such table, gives none.
class HRFTStatJSON {
public:
    HRFTStatJSON(BpProcedure* procedure, ProcedureDataSource* source, const std::string& document);
    ~HRFTStatJSON();
    HRFTStatJSON(const HRFTStatJSON&) = delete;
    HRFTStatJSON& operator=(const HRFTStatJSON&) = delete;

    void DisplayOutput();

private:
    BpProcedure* fpProcedure;
    ProcedureDataSource* fpProcDS;
    std::unique_ptr<JNIJSONObject> fpJSON;
};
