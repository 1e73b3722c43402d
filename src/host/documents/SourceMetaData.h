#pragma once

#include "contracts/CustomProcedure.h"

#include <vector>

namespace host {

/// Metadata of a data source: its variables as fields, with their print formats. Taken at construction.
class SourceMetaData : public CFMetaData {
public:
    explicit SourceMetaData(const ProcedureDataSource& source);
    int FieldCount() const override { return static_cast<int>(fvFormats.size()); }
    int GetFieldIndex(const std::string& name) const override;
    const QVTA_Format* GetPrivateFormat(int field) const override;
    const CFField* GetField(int field) const override;

private:
    struct Field : CFField {
        explicit Field(Storage type) : fType(type) {}
        int GetType() const override { return fType; }
        Storage fType;
    };

    const ProcedureDataSource& fSource;
    std::vector<Field> fvFields;
    std::vector<QVTA_Format> fvFormats;
};

}  // namespace host
