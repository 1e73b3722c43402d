#include "contracts/Adapter.h"
#include "host/adapter/CaseStream.h"

namespace {

/// A record variable as the engine sees it. Its categories are those that the adapter keeps for the split in which the
/// variable was made, so it stays true when the adapter has moved on.
class RecordVariable : public IMCVariable {
public:
    RecordVariable(std::string name, VariableRole role, MeasurementLevel level, bool categorical, bool text)
        : fName(std::move(name)), fRole(role), fLevel(level), fCategorical(categorical), fText(text) {}

    void SetCategories(ACAInputAdapter::Impl& stream, int column) {
        fpStream = &stream;
        fColumn = column;
        fSplit = stream.fSplit;
    }

    std::string GetName() const override { return fName; }
    VariableRole GetRole() const override { return fRole; }
    MeasurementLevel GetMeasurementLevel() const override { return fLevel; }
    bool IsCategorical() const override { return fCategorical; }
    bool IsString() const override { return fText; }
    int GetCategoryCount() const override { return fpStream == nullptr ? 0 : static_cast<int>(Appeared().size()); }
    std::string GetCategoryText(int code) const override {
        if (code < 0 || code >= GetCategoryCount()) return {};
        const std::uint32_t place = Split().fOrders[fColumn].Place(static_cast<std::uint32_t>(code));
        return fpStream->fSources[fpStream->fColumns[fColumn].fSource]->fValues.Text(Appeared()[place]);
    }

private:
    const host::SplitCategories& Split() const { return fpStream->fSplits[fSplit]; }
    const std::vector<std::uint32_t>& Appeared() const {
        return Split().fAppeared[fpStream->fColumns[fColumn].fSource];
    }

    std::string fName;
    VariableRole fRole;
    MeasurementLevel fLevel;
    bool fCategorical;
    bool fText;
    ACAInputAdapter::Impl* fpStream = nullptr;
    int fColumn = -1;
    int fSplit = -1;
};

IMCVariable::MeasurementLevel EngineLevel(QVTA_Variable::MeasurementLevel level, bool categorical) {
    if (level == QVTA_Variable_Enumerations::kOrdinal) return IMCVariable::kOrdinalLevel;
    return categorical || level == QVTA_Variable_Enumerations::kNominal ? IMCVariable::kNominalLevel
                                                                        : IMCVariable::kScaleLevel;
}

}  // namespace

ACAVarListMetaData::ACAVarListMetaData(MCVarList& list, ACAVarValidSpecs const* specs,
                                       ProcedureDataSource const& source, ACAInputAdapter const* adapter,
                                       bool withCategories)
    : fpList(&list), fpSpecs(specs), fpSource(&source), fpAdapter(adapter), fWithCategories(withCategories) {}

bool ACAVarListMetaData::AddRecVariable(int recordIndex, bool isCategorical, IMCVariable::VariableRole role, OBS const*,
                                        const std::string& name) {
    if (recordIndex < 0 || recordIndex >= fpSpecs->GetNRecordVars()) return false;
    const int index = fpSpecs->GetQVTAVarIndex(recordIndex);
    if (index < 0) return false;
    const QVTA_Variable& variable = fpSource->GetVariable(index);
    auto entry = std::make_unique<RecordVariable>(name.empty() ? variable.GetName() : name, role,
                                                  EngineLevel(variable.GetMeasurementLevel(), isCategorical),
                                                  isCategorical, variable.GetType() != 0);
    if (isCategorical && fWithCategories && fpAdapter != nullptr) {
        ACAInputAdapter::Impl& stream = fpAdapter->GetImpl();
        if (!stream.HasCategories(recordIndex)) return false;
        entry->SetCategories(stream, recordIndex);
    }
    fpList->Add(std::move(entry));
    return true;
}

bool ACAVarListMetaData::AddRecWeightVar(int recordIndex, IMCVariable::VariableRole role, IMCVariable::WRoundingOption,
                                         const std::string& name) {
    if (recordIndex < 0 || recordIndex >= fpSpecs->GetNRecordVars()) return false;
    const int index = fpSource->GetWeightVarIndex();
    const std::string ownName = index < 0 ? "" : fpSource->GetVariable(index).GetName();
    fpList->Add(
        std::make_unique<RecordVariable>(name.empty() ? ownName : name, role, IMCVariable::kScaleLevel, false, false));
    return true;
}
