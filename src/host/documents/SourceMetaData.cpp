#include "host/documents/SourceMetaData.h"

namespace host {

SourceMetaData::SourceMetaData(const ProcedureDataSource& source) : fSource(source) {
    for (unsigned i = 0; i < source.ColumnCount(); ++i)
        fvFormats.push_back(source.GetVariable(static_cast<int>(i)).GetFormat());
}

int SourceMetaData::GetFieldIndex(const std::string& name) const {
    return fSource.FindVarIndex(name.c_str(), 0);
}

const QVTA_Format* SourceMetaData::GetPrivateFormat(int field) const {
    return field >= 0 && field < FieldCount() ? &fvFormats[field] : nullptr;
}

}  // namespace host
