#include "results/HRFTOutputStats.h"

#include <algorithm>

namespace {

template <class T>
T* Renew(T*& member) {
    delete member;
    member = new T();
    return member;
}

template <class T>
void Drop(T*& member) {
    delete member;
    member = nullptr;
}

}  // namespace

PrintableValue::PrintableValue(const PrintableValue& other)
    : fStorage(other.fStorage),
      fValue(other.fValue),
      fIsNull(other.fIsNull),
      fLabel(other.fLabel),
      fpExtra(other.fpExtra ? other.fpExtra->Clone() : nullptr) {}

PrintableValue& PrintableValue::operator=(const PrintableValue& other) {
    if (this != &other) *this = PrintableValue(other);
    return *this;
}

HRFTOutputStats::HRFTOutputStats() : fpParserMessage(new ParserMessage()) {
    fpParserMessage->SetCommandName("HIERFIT");
    fpParserMessage->SetProcedureTitle("Generalized Linear Mixed Models");
}

HRFTOutputStats::~HRFTOutputStats() {
    Drop(fpParserMessage);
    DeleteVarList();
    ForgetResults();
}

void HRFTOutputStats::ForgetResults() {
    DeleteBuildSettings();
    DeleteModelDiagnostics();
    DeleteStructuredData();
    DeleteClassifMatrixData();
    DeleteEffectTest();
    DeleteParamCollect();
    DeleteEmmeansEstimates();
    DeleteEmmeansData();
    DeleteStringMapCollect();
    fvWarningList.clear();
}

MCVarList* HRFTOutputStats::NewVarList() {
    return Renew(fpVarList);
}
void HRFTOutputStats::DeleteVarList() {
    Drop(fpVarList);
}
BuildSettings* HRFTOutputStats::NewBuildSettings() {
    return Renew(fpBuildSettings);
}
void HRFTOutputStats::DeleteBuildSettings() {
    Drop(fpBuildSettings);
}
ModelDiagnostics* HRFTOutputStats::NewModelDiagnostics() {
    return Renew(fpModelDiagnostics);
}
void HRFTOutputStats::DeleteModelDiagnostics() {
    Drop(fpModelDiagnostics);
}
StructuredData* HRFTOutputStats::NewStructuredData() {
    return Renew(fpStructuredData);
}
void HRFTOutputStats::DeleteStructuredData() {
    Drop(fpStructuredData);
}
MatrixData* HRFTOutputStats::NewClassifMatrixData() {
    return Renew(fpClassifMatrixData);
}
void HRFTOutputStats::DeleteClassifMatrixData() {
    Drop(fpClassifMatrixData);
}
EffectTest* HRFTOutputStats::NewEffectTest() {
    return Renew(fpEffectTest);
}
void HRFTOutputStats::DeleteEffectTest() {
    Drop(fpEffectTest);
}
ParamCollect* HRFTOutputStats::NewParamCollect() {
    return Renew(fpParamCollect);
}
void HRFTOutputStats::DeleteParamCollect() {
    Drop(fpParamCollect);
}
std::vector<EmmeansEstimates>* HRFTOutputStats::NewEmmeansEstimates() {
    return Renew(fpvEmmeansEstimates);
}
void HRFTOutputStats::DeleteEmmeansEstimates() {
    Drop(fpvEmmeansEstimates);
}
std::vector<EmmeansData>* HRFTOutputStats::NewEmmeansData() {
    return Renew(fpvEmmeansData);
}
void HRFTOutputStats::DeleteEmmeansData() {
    Drop(fpvEmmeansData);
}
std::vector<StringMap>* HRFTOutputStats::NewStringMapCollect() {
    return Renew(fpStringMapCollect);
}
void HRFTOutputStats::DeleteStringMapCollect() {
    Drop(fpStringMapCollect);
}

void HRFTOutputStats::BuildVarMapInfo() {
    const int variables = fpVarList ? fpVarList->Size() : 0;
    const int fields = fpMetaData ? fpMetaData->FieldCount() : 0;
    fVarMapInfo = VarMapInfo();
    fVarMapInfo.fvFieldToVarList.assign(fields, -1);
    fVarMapInfo.fvVarListToField.assign(variables, -1);
    fVarMapInfo.fvbCategorical.assign(variables, false);
    fVarMapInfo.fvCategoryCount.assign(variables, 0);
    for (int i = 0; i < variables; ++i) {
        const IMCVariable& variable = *fpVarList->GetVarAt(i);
        const int field = fpMetaData ? fpMetaData->GetFieldIndex(variable.GetName()) : -1;
        if (field >= 0 && field < fields) {
            fVarMapInfo.fvFieldToVarList[field] = i;
            fVarMapInfo.fvVarListToField[i] = field;
        }
        const IMCVariable::MeasurementLevel level = variable.GetMeasurementLevel();
        if (level != IMCVariable::kOrdinalLevel && level != IMCVariable::kNominalLevel) continue;
        fVarMapInfo.fvbCategorical[i] = true;
        fVarMapInfo.fvCategoryCount[i] = variable.GetCategoryCount();
    }
}

int HRFTOutputStats::LookUpMapEntry(int mapId, const std::string& name, RegrParamInfo& out) const {
    if (!fpStringMapCollect || fpStringMapCollect->empty()) return 1;
    const auto map = std::find_if(fpStringMapCollect->begin(), fpStringMapCollect->end(),
                                  [mapId](const StringMap& candidate) { return candidate.fMapId == mapId; });
    if (map == fpStringMapCollect->end()) return 2;
    const auto entry = std::find_if(map->fvEntries.begin(), map->fvEntries.end(),
                                    [&name](const MapEntryData& candidate) { return candidate.fName == name; });
    if (entry == map->fvEntries.end()) return 3;
    out = entry->fParam;
    return 0;
}

bool HRFTOutputStats::PrintableListText(const PrintableList& list, std::string& text) const {
    if (list.fMapId == -1) {
        text = list.fPattern;
        return true;
    }
    RegrParamInfo param;
    return LookUpMapEntry(list.fMapId, list.fPattern, param) == 0 && ParameterLabel(param, text);
}

bool HRFTOutputStats::IsWarningPresent(const std::string& key) const {
    return std::any_of(fvWarningList.begin(), fvWarningList.end(),
                       [&key](const WarningInfo& warning) { return warning.fMessage == key; });
}

std::string HRFTOutputStats::GetTranslatedText(const std::string& key,
                                               const std::vector<std::string>& arguments) const {
    return arguments.empty() ? fpParserMessage->GetTranslatedText(key)
                             : fpParserMessage->GetTranslatedText(key, arguments);
}

const QVTA_Format* HRFTOutputStats::GetFieldFormat(int fieldIndex) const {
    if (!fpMetaData || fieldIndex < 0 || fieldIndex >= fpMetaData->FieldCount()) return nullptr;
    return fpMetaData->GetPrivateFormat(fieldIndex);
}
