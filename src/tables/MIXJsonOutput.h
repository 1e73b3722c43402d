#pragma once

#include "contracts/Adapter.h"
#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "contracts/JsonBridge.h"
#include "procedure/Export.h"

#include <memory>
#include <string>

class MIXComOutputData;

/// The table of best linear unbiased predictions, turned from the engine's JSON document into a pivot table. A document
/// that doesn't parse, or has no such table, gives none.
class HIERFIT_EXPORT MIXJsonOutput {
public:
    MIXJsonOutput(BpProcedure* procedure, ProcedureDataSource* source, MIXComOutputData* context,
                  const std::string& document);
    ~MIXJsonOutput();
    MIXJsonOutput(const MIXJsonOutput&) = delete;
    MIXJsonOutput& operator=(const MIXJsonOutput&) = delete;

    void DisplayOutput();
    /// Tells the user that the table stands apart from the model viewer.
    void MessageModelViewer() const;

private:
    void DisplayEBLUPTable();

    BpProcedure* fpProcedure;
    ProcedureDataSource* fpProcDS;
    MIXComOutputData* fpComOutputData;
    ACAInputAdapter* fpInpAdapt;
    std::unique_ptr<JNIJSONObject> fpJSON;
};
