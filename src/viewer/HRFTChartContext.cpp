#include "viewer/HRFTChartContext.h"

#include "viewer/ChartText.h"

#include <algorithm>
#include <utility>

HRFTChartContext::HRFTChartContext(BpHeading* heading, ProcedureDataSource* source, HRFTOutputStats* stats)
    : fpHeading(heading), fpStats(stats), fpDataSource(source) {
    fvDistParams.fill(fSysmis);
    const std::string path = PathFactory::getPathInstance(3).GetStringTableDirectory();
    fpDictionary = std::make_unique<FacSTDictionary>(path);
    fpDictionary->SetProcedure("Generalized Linear Mixed Models");
    fpDictionary->SetGlobalStringTable(PathFactory::getPathInstance(3).GetStringTableDirectory());
    if (!Settings()) return;
    fTargetField = Settings()->fTargetIndex;
    if (fTargetField < 0) return;
    const QVTA_Variable& target = std::as_const(*fpDataSource).GetVariable(fTargetField);
    fTargetFormat = target.GetFormat();
    fTargetName = viewer::DataText(target.GetName());
    if (const char* label = target.GetLabel(); label && *label) {
        fTargetLabel = viewer::DataText(label);
    } else {
        fTargetHasLabel = false;
        fTargetLabel = fTargetName;
    }
    viewer::EscapeChartText(fTargetLabel);
}

const QVTA_Variable* HRFTChartContext::FactorVariable(const std::string& name) const {
    const int index = fpDataSource->FindVarIndex(name.c_str(), 0);
    return index < 0 ? nullptr : &std::as_const(*fpDataSource).GetVariable(index);
}

void HRFTChartContext::NoteWeight(double weight) {
    fLowWeight = std::min(fLowWeight, weight);
    fHighWeight = std::max(fHighWeight, weight);
}
