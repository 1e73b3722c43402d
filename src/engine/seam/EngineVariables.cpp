#include "contracts/EngineVariables.h"

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
