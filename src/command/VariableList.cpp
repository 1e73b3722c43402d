#include "command/VariableList.h"

#include "command/Words.h"

#include <algorithm>

namespace command {

VariableList::VariableList(std::vector<VariableInfo> variables, std::string source)
    : fvVariables(std::move(variables)), fSource(std::move(source)) {}

bool VariableList::Has(std::string_view name) const {
    return std::any_of(fvVariables.begin(), fvVariables.end(),
                       [&](const VariableInfo& variable) { return EqualWords(variable.fName, name); });
}

int VariableList::Find(std::string_view name, Position at) const {
    std::vector<int> alike;
    for (int i = 0; i < Size(); ++i) {
        if (fvVariables[i].fName == name) return i;
        if (EqualWords(fvVariables[i].fName, name)) alike.push_back(i);
    }
    if (alike.size() == 1) return alike.front();
    if (alike.size() > 1)
        throw CommandError{"the name " + std::string(name) + " fits both " + fvVariables[alike[0]].fName + " and " +
                               fvVariables[alike[1]].fName + "; write it as it stands in the data",
                           at};
    std::vector<std::string> names;
    for (const VariableInfo& variable : fvVariables)
        names.push_back(variable.fName);
    constexpr std::size_t kListed = 20;  ///< more names than these would hide the message
    throw CommandError{"there is no variable " + std::string(name) + (fSource.empty() ? "" : " in " + fSource) +
                           SuggestionText(name, names, names.size() <= kListed),
                       at};
}

}  // namespace command
