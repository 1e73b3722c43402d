#include "tables/MIXComOutputData.h"

#include "procedure/CommandRecords.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXLabelBuilder.h"
#include "procedure/MIXValidSpecs.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cstdio>

namespace {

/// Formats whose texts keep the format's own width: dates and times (20 to 30, 38, 39) and their later kin (85, 86).
bool KeepsOwnWidth(int type) {
    return (type >= 20 && type <= 30) || type == 38 || type == 39 || type == 85 || type == 86;
}

/// A text under a display option: 0 the text, 1 its label, above both.
std::string WithLabel(const std::string& text, const char* label, int option) {
    if (option < 1 || !label) return text;
    return option == 1 ? std::string(label) : text + " " + label;
}

}  // namespace

MIXComOutputData::MIXComOutputData(MIXValidSpecs* specs, MIXFactory* factory, ProcedureDataSource& source,
                                   BpProcedure* procedure)
    : fpProcedure(procedure),
      fpFactory(factory),
      fpValidSpecs(specs),
      fpVarValidSpecs(specs->GetVarValidSpecsPtr()),
      fpCompSettings(factory->GetGLMMSettings()),
      fpProcDS(&source),
      fpFixParamMap(std::make_unique<MIXParameterMap>(specs, source, factory->GetInputAdapter())),
      fvpRandParamMaps(fpCompSettings ? fpCompSettings->GetNRandomSpecs() : 0) {
    for (auto& map : fvpRandParamMaps) {
        map = std::make_unique<MIXParameterMap>(specs, source, factory->GetInputAdapter());
    }
}

MIXComOutputData::~MIXComOutputData() = default;

const GLMMOutputStats* MIXComOutputData::GetResults() const {
    if (!fpCompSettings || fpFactory->GetStatus().IsError() || !fpFactory->GetGLMMAlgorithm()) return nullptr;
    return fpFactory->GetOutputStats();
}

void MIXComOutputData::GenerateMaps() {
    const GLMMOutputStats* stats = GetResults();
    if (!stats) return;
    const std::vector<MCRegrParameter>& parameters = stats->GetBetaParameters();
    const std::vector<MCModelEffect>& effects = fpCompSettings->GetModelEffects();
    if (!parameters.empty()) fpFixParamMap->CreateParameterMap(parameters, effects);
    fpFixParamMap->CreateEffectMap(effects);
}

void MIXComOutputData::AddTableCaption(BpPivotTable& table, bool full) const {
    const bool hasTerms = fpValidSpecs->GetInterceptInModel() || fpFixParamMap->GetEffectMapSize() > 0;
    std::string pattern = "Dep variable is ^1";
    if (full) pattern = hasTerms ? "Dependent ^1 Model [%1:, ^1:]2" : "Dependent ^1 Model";
    AddTableCaptionFromPattern(table, pattern, full);
    const int regrWeight = fpValidSpecs->GetRegrWeightIndex();
    if (regrWeight < 0) return;
    BpComposite weight("Reg weight is ^1", true);
    weight.Add(BpVariable(fpProcDS->GetVariable(regrWeight), BpVariable::kPreferred));
    weight.Finish();
    table.Note(weight);
}

void MIXComOutputData::AddTableCaptionFromPattern(BpPivotTable& table, const std::string& pattern, bool full) const {
    const bool bHasTerms = fpValidSpecs->GetInterceptInModel() || fpFixParamMap->GetEffectMapSize() > 0;
    if (!fpCompSettings) return;
    BpComposite caption(pattern, true);
    caption.Add(BpVariable(fpProcDS->GetVariable(fpValidSpecs->GetDependVar()), BpVariable::kPreferred));
    if (full && bHasTerms) {
        const std::vector<std::string>* effects = fpFixParamMap->GetEffectMap(false);
        caption.Sublist();
        if (fpValidSpecs->GetInterceptInModel()) caption.Add(BpString(MIXLabelBuilder::Intercept(), false));
        for (const std::string& effect : *effects)
            caption.Add(BpString(effect, false));
        caption.EndSublist();
    }
    caption.Finish();
    table.Note(caption);
}

std::string MIXComOutputData::EncodeDouble(double value, const QVTA_Format* format) const {
    if (MCMV::IsMissing(value)) return ".";
    if (!format) {
        std::array<char, 64> buffer{};
        const int length = std::snprintf(buffer.data(), buffer.size(), "%.17g", value);
        assert(length > 0);
        std::string text(buffer.data(), std::max(length, 0));
        std::replace(text.begin(), text.end(), ',', '.');
        return text;
    }
    assert(format->fType != kFormatA && format->fType != kFormatAHEX);
    QVTA_Format wide = *format;
    assert(!KeepsOwnWidth(wide.fType) || wide.fWidth <= QVTA_Variable::MAXNUMFMTWID);
    if (!KeepsOwnWidth(wide.fType) || wide.fWidth > QVTA_Variable::MAXNUMFMTWID) {
        wide.fWidth = QVTA_Variable::MAXNUMFMTWID;
    }
    std::array<char, QVTA_Variable::MAXNUMFMTWID + 1> buffer{};
    OBS cell;
    cell.fNumber = value;
    [[maybe_unused]] const long error = ToString(&cell, wide, buffer.data());
    assert(error == 0);
    buffer[wide.fWidth] = '\0';
    return QVTAMBstrtrim_A(buffer.data());
}

int MIXComOutputData::GlobalDisplayOption(bool wantValues, bool useTableOptions) const {
    int tableVariables = 1;
    int tableValues = 1;
    int outlineVariables = 1;
    int outlineValues = 1;
    GETDISPLAYOPTIONS(&tableVariables, &tableValues, &outlineVariables, &outlineValues);
    if (useTableOptions) return (wantValues ? tableValues : tableVariables) - 1;
    return (wantValues ? outlineValues : outlineVariables) - 1;
}

std::string MIXComOutputData::GetSplitName(const std::vector<OBS*>& values, bool useTableOptions) const {
    const unsigned nSplitVars = fpProcDS->GetSplitCount();
    if (nSplitVars == 0) return std::string();
    const int variableOption = GlobalDisplayOption(false, useTableOptions);
    const int valueOption = GlobalDisplayOption(true, useTableOptions);
    OmComposite composite("[%1 = %2:, ^1 = ^2:]1");
    composite.BeginRepeatList();
    for (unsigned position = 0; position < nSplitVars && position < values.size(); ++position) {
        const QVTA_Variable& variable = fpProcDS->GetVariable(fpProcDS->GetSplitVarIndex(static_cast<int>(position)));
        const QVTA_ValueLabelMap labels(variable.GetValueLabels());
        const OBS& value = *values[position];
        const QVTA_Format format = variable.GetFormatEx();
        const std::string variableText = WithLabel(variable.GetName(), variable.GetLabel(), variableOption);
        std::string valueText;
        const char* label = nullptr;
        if (variable.GetType() != 0) {
            // A format such as AHEX is wider than the string that it shows.
            const int width = std::min<int>(format.fWidth, variable.GetType());
            valueText.assign(reinterpret_cast<const char*>(values[position]), width);
            label = labels.GetLabel(valueText);
            // The padding to the width is no part of the value.
            valueText.erase(valueText.find_last_not_of(' ') + 1);
        } else {
            valueText = EncodeDouble(value.fNumber, &format);
            label = labels.GetLabel(value.fNumber);
        }
        valueText = WithLabel(valueText, label, valueOption);
        composite.Add(OmStringCell(variableText, variableText, variableText));
        composite.Add(OmStringCell(valueText, valueText, valueText));
    }
    composite.EndRepeatList();
    composite.End();
    composite.Substitute();
    return composite.AsString();
}

const CmnMix_map* MIXComOutputData::GetCmnMixMap() {
    return GetCmnMixRecord();
}

const CmaMix_map* MIXComOutputData::GetCmaMixMap() {
    return GetCmaMixRecord();
}
