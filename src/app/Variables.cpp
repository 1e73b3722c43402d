#include "app/Variables.h"

namespace app {

command::VariableList VariablesOf(const host::Table& table) {
    std::vector<command::VariableInfo> variables;
    for (int i = 0; i < table.VariableCount(); ++i) {
        const host::Variable& variable = table.GetVariable(i);
        variables.push_back(
            {variable.fName, variable.fWidth, static_cast<command::Level>(variable.fLevel), variable.fWhyText});
    }
    return {std::move(variables), table.Source()};
}

}  // namespace app
