#include "procedure/FactoryCodes.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXValidSpecs.h"

#include <algorithm>
#include <array>
#include <cassert>

namespace {

/// Roots of generated names, by what is saved.
constexpr std::array<const char*, MIXValidSpecs::maxSaveTypes> kRoots = {"FXPRED", "PRED",   "RESID", "SEFIXP",
                                                                         "SEPRED", "DFFIXP", "DFPRED"};
constexpr int kNumericVariable = 0;
constexpr int kMaxDisplayWidth = 50;
constexpr int kDisplayMargin = 2;

std::string AppendIndexToString(const std::string& text, int index) {
    return text + std::to_string(index);
}

short DisplayWidth(QVTA_Format format, const std::string& name) {
    const int content = std::max(static_cast<int>(format.fWidth), static_cast<int>(name.size()));
    return static_cast<short>(std::min(content + kDisplayMargin, kMaxDisplayWidth));
}

/// A table of one row for each variable made: its name and its label.
void NoteVariable(BpProcedure& procedure, const QVTA_Variable& variable) {
    const BpString title("Notes", true);
    BpPivotTable table = procedure.PivotTable(title, title, false);
    BpDimension contents = table.Dimension(BpString("Contents", true), BpGroup::kInsertion);
    BpGroup created = contents.Group(BpString("Variables Created", true), true, BpGroup::kInsertion);
    BpCategory row = created.Category(BpVariable(variable, BpVariable::kName));
    row.Cell(BpVariable(variable, BpVariable::kLabel));
}

}  // namespace

bool MIXFactory::PrepareScoringPass() {
    if (fStatus.IsError()) return false;
    fvSaveVarIndices.clear();
    for (int saved = 0; saved < fpValidSpecs->GetNSaveVars(); ++saved)
        MakeSavedVariable(saved);
    fpRecIter->NewPass(true);
    fpRecIter->SetLastPass();
    fSplitIndex = -1;
    return true;
}

void MIXFactory::MakeSavedVariable(std::size_t saved) {
    unsigned index = 0;
    QVTA_Variable& variable = fpProcDS->MakeVariable(kNumericVariable, index);
    fvSaveVarIndices.push_back(static_cast<int>(index));
    std::string name = fpValidSpecs->GetSaveVarNames()[saved];
    if (name.empty()) name = FreeVariableName(std::string(kRoots[fpValidSpecs->GetSaveVarTypes()[saved]]) + "_");
    const QVTA_Format format = fpValidSpecs->GetSaveVarFormats()[saved];
    variable.SetName(name.c_str());
    variable.SetLabel(fpValidSpecs->GetSaveVarLabels()[saved].c_str());
    variable.SetFormat(format);
    variable.SetWriteFormat(format);
    variable.SetMeasurementLevel(QVTA_Variable_Enumerations::kScale);
    variable.SetDisplayWidth(DisplayWidth(format, name));
    if (fpProcedure) NoteVariable(*fpProcedure, variable);
}

std::string MIXFactory::FreeVariableName(const std::string& root) const {
    int counter = 1;
    std::string name = AppendIndexToString(root, counter);
    while (fpProcDS->FindVarIndex(name.c_str(), 0) >= 0)
        name = AppendIndexToString(root, ++counter);
    return name;
}

bool MIXFactory::ScoringDataPass() {
    bool bResult = !fStatus.IsError();
    GLMMAlgorithm* pAlgorithm = GetGLMMAlgorithm();
    QVTA_InputCaseIterator* pCases = fpRecIter->GetProcDS();
    MCStatus status;
    if (bResult && !fpRecIter->HasMore()) {
        status = MCStatus(kStatusNoValidCases, false);
        bResult = false;
    }
    std::vector<double> scores;
    std::vector<std::vector<double>> probabilities;
    while (!status.IsError() && fpRecIter->HasMore() && !UserHasStopped()) {
        const Record* pRecord = fpRecIter->Current();
        assert(pRecord != nullptr);
        if (pAlgorithm && !pAlgorithm->GetStatus().IsError() &&
            !pAlgorithm->Score(*pRecord, scores, probabilities).IsError())
            WriteScores(*pCases, scores);
        fpRecIter->Next();
        if (fpRecIter->GetFailReason() == kNoUsableRecords) {
            status = MCStatus(kStatusNoValidCases, false);
            bResult = false;
        }
    }
    TakeStatus(status);
    return bResult;
}

void MIXFactory::WriteScores(QVTA_InputCaseIterator& cases, const std::vector<double>& scores) const {
    const std::size_t nSaved = static_cast<std::size_t>(fpValidSpecs->GetNSaveVars());
    for (std::size_t j = 0; j < nSaved && j < scores.size(); ++j)
        cases.SetColumnValue(fvSaveVarIndices[j], scores[j]);
}
