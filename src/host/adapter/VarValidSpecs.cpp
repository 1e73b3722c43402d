#include "contracts/Adapter.h"

#include <algorithm>

ACAVarValidSpecs::ACAVarValidSpecs(bool, bool, bool) {}
ACAVarValidSpecs::~ACAVarValidSpecs() = default;

int ACAVarValidSpecs::AddVariable(int hostIndex, bool isCategorical, bool, bool userMissingInvalid, bool) {
    fvUses.push_back({hostIndex, isCategorical, userMissingInvalid, false, fMultRecode});
    return GetNRecordVars() - 1;
}

void ACAVarValidSpecs::AddVariables(const std::vector<int>& hostIndices, std::vector<int>& recordIndices,
                                    bool isCategorical, bool second, bool userMissingInvalid, bool last) {
    recordIndices.clear();
    for (const int index : hostIndices)
        recordIndices.push_back(AddVariable(index, isCategorical, second, userMissingInvalid, last));
}

int ACAVarValidSpecs::SetWeightVar() {
    fvUses.push_back({-1, false, true, true, fMultRecode});
    return GetNRecordVars() - 1;
}

void ACAVarValidSpecs::SetMultRecode(bool on) {
    fMultRecode = on;
}

int ACAVarValidSpecs::GetNRecordVars() const {
    return static_cast<int>(fvUses.size());
}

bool ACAVarValidSpecs::GetRecordCatVar(int recordIndex) const {
    return fvUses[recordIndex].fCategorical;
}

int ACAVarValidSpecs::GetRecVarIndex(int hostIndex) const {
    const auto found = std::find_if(fvUses.begin(), fvUses.end(),
                                    [=](const Use& use) { return !use.fWeight && use.fHostIndex == hostIndex; });
    return found == fvUses.end() ? -1 : static_cast<int>(found - fvUses.begin());
}

int ACAVarValidSpecs::GetQVTAVarIndex(int recordIndex) const {
    return fvUses[recordIndex].fHostIndex;
}

// The format alone doesn't lead to a variable's labels, so the text is the value's in any case.
std::string ACAVarValidSpecs::ConvertObsToString(OBS const* value, QVTA_Format const& format, bool) const {
    if (value == nullptr) return {};
    std::string text = ToString(value, format);
    text.erase(text.find_last_not_of(' ') + 1);
    if (format.fType != kFormatA) text.erase(0, text.find_first_not_of(' '));
    return text;
}

void ACAVarValidSpecs::Display() const {
    ACACommonDisplay::DisplayI("Record variables:", GetNRecordVars());
    for (const Use& use : fvUses) {
        ACACommonDisplay::DisplayI("Host index:", use.fHostIndex);
        ACACommonDisplay::DisplayB("Categorical:", use.fCategorical);
        ACACommonDisplay::DisplayB("User-missing invalid:", use.fUserMissingInvalid);
        ACACommonDisplay::DisplayB("Weight:", use.fWeight);
        ACACommonDisplay::DisplayB("Further use:", use.fFurtherUse);
    }
}
