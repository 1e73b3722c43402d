#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "contracts/JsonBridge.h"

#include <optional>
#include <string>

/// The table of best linear unbiased predictions, for both halves of the system. It needs the contracts alone.
namespace tables {

/// What the two halves tell differently.
struct EBLUPTableRequest {
    std::string fStringTable;                  ///< procedure whose string table holds the title
    std::optional<bool> fSupportSplits;        ///< absent: the bridge isn't told
    std::optional<std::string> fSplitHeading;  ///< each table stands under a heading of this text
};

/// Writes the tables that the document describes under a heading of their own. A document that didn't parse or lacks
/// the description gives nothing.
void WriteEBLUPTables(JNIJSONObject& document, BpHeading& parent, ProcedureDataSource const* source,
                      const EBLUPTableRequest& request);

}  // namespace tables
