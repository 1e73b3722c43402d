#include "contracts/EngineVariables.h"

#include "contracts/EngineDisplay.h"

MCVarList::MCVarList() = default;
MCVarList::~MCVarList() = default;

int MCVarList::Size() const {
    return static_cast<int>(fvVariables.size());
}

IMCVariable* MCVarList::GetVarAt(int index) const {
    return index >= 0 && index < Size() ? fvVariables[index].get() : nullptr;
}

void MCVarList::Add(std::unique_ptr<IMCVariable> variable) {
    fvVariables.push_back(std::move(variable));
}

void MCVarList::Display() const {
    MCDisplay::DisplayI("Number of variables", Size());
    for (const auto& variable : fvVariables) {
        MCDisplay::DisplayS("Name", variable->GetName());
        MCDisplay::DisplayI("Role", variable->GetRole());
        MCDisplay::DisplayB("Categorical", variable->IsCategorical());
        MCDisplay::DisplayI("Number of categories", variable->GetCategoryCount());
    }
    MCDisplay::DisplayDF("Cases", fCount);
    MCDisplay::DisplayDF("Weighted cases", fWeightedCount);
    MCDisplay::DisplayDF("Dropped cases", fDropped);
    MCDisplay::DisplayDF("Weighted dropped cases", fWeightedDropped);
}
