#include "host/documents/SourceMetaData.h"

namespace host {

SourceMetaData::SourceMetaData(const ProcedureDataSource& source) : fSource(source) {
    for (unsigned i = 0; i < source.ColumnCount(); ++i) {
        const QVTA_Variable& variable = source.GetVariable(static_cast<int>(i));
        fvFormats.push_back(variable.GetFormat());
        fvFields.emplace_back(variable.GetType() > 0 ? CFField::kString : CFField::kReal);
    }
}

int SourceMetaData::GetFieldIndex(const std::string& name) const {
    return fSource.FindVarIndex(name.c_str(), 0);
}

const QVTA_Format* SourceMetaData::GetPrivateFormat(int field) const {
    return field >= 0 && field < FieldCount() ? &fvFormats[field] : nullptr;
}

const CFField* SourceMetaData::GetField(int field) const {
    return field >= 0 && field < FieldCount() ? &fvFields[field] : nullptr;
}

}  // namespace host
