#include "viewer/ViewerTexts.h"

namespace viewer {

BpComposite Filled(const std::string& pattern, bool translate, const BpCellText& argument) {
    BpComposite text(pattern, translate);
    text.Add(argument);
    text.Finish();
    return text;
}

BpComposite Filled(const std::string& pattern, bool translate, const BpCellText& first, const BpCellText& second) {
    BpComposite text(pattern, translate);
    text.Add(first);
    text.Add(second);
    text.Finish();
    return text;
}

BpComposite TargetNote(const BuildSettings& settings, const ProcedureDataSource& source) {
    const BpVariable target(source.GetVariable(settings.fTargetIndex), 1);
    if (!settings.fUseTrials) return Filled("Target ^1", true, target);
    if (settings.fTrialsIndex < 0) {
        return Filled("Target ^1/^2", true, target, BpNumber(settings.fTrialsValue, BpProcedure::Count()));
    }
    return Filled("Target ^1/^2", true, target, BpVariable(source.GetVariable(settings.fTrialsIndex), 1));
}

BpDataValue DataValue(const QVTA_Variable& variable, const CFStatVariableValue& value, int preference) {
    // A value that was loaded against whatever variable has one cell at least; a longer one must be this variable's.
    if (value.GetObsValue() && ObsCells(variable.GetType()) == 1) return {variable, value.GetObsValue(), preference};
    CFStatVariableValue own(value.GetStringValue());
    own.LoadObsValue(variable, 0);
    return {variable, own.GetObsValue(), preference};
}

BpComposite ConfidenceTitle(const std::string& pattern, const BuildSettings& settings) {
    const double percent = settings.fConfidenceLevel * 100.0;
    return Filled(pattern, true, BpNumber(percent, BpProcedure::SigDigit(percent)));
}

std::string LookUp(const std::string& key) {
    FacSTDictionary dictionary(PathFactory::getPathInstance(3).GetStringTableDirectory());
    dictionary.SetProcedure("Generalized Linear Mixed Models");
    return dictionary.LookUp(key);
}

std::string JoinFields(const std::vector<std::string>& texts, const std::vector<int>& levels) {
    std::string joined;
    int current = 0;
    int open = 0;
    for (std::size_t k = 0; k < texts.size(); ++k) {
        const int level = k < levels.size() ? levels[k] : current;
        if (k > 0 && level > current) {
            joined += "(";
            ++open;
            current = level;
        } else if (k > 0) {
            joined += " * ";
        }
        joined += texts[k];
    }
    return joined.append(open, ')');
}

}  // namespace viewer
