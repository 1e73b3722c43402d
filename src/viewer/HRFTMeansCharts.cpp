#include "viewer/ChartText.h"
#include "viewer/HRFTCharts.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

/// Charts of estimated means with their confidence limits. A mean takes two rows: the lower limit stands in the first,
/// the upper one in the second, and everything else in both.

namespace {

using viewer::EntryAt;
using viewer::ValueAsNumber;

/// One field of a means block: its label, and its variable where the data has it.
struct Factor {
    Factor(const HRFTChartContext& context, const std::string& field)
        : fLabel(field), fpVariable(context.FactorVariable(field)) {
        if (!fpVariable) return;
        if (const char* label = fpVariable->GetLabel(); label && *label) fLabel = label;
        fFormat = fpVariable->GetFormat();
    }
    const QVTA_Format* Format() const { return fpVariable ? &fFormat : nullptr; }

    std::string fLabel;
    const QVTA_Variable* fpVariable;
    QVTA_Format fFormat;
};

void RelabelWherePossible(XDocument& document, const char* name, const QVTA_Variable* variable) {
    if (!variable) return;
    try {
        viewer::Relabel(document.getExternalGraph().getVariable(name, 0), *variable);
    } catch (const std::bad_alloc&) {
        throw;  // lack of memory ends the run: no chart is left out in silence
    } catch (...) {
        // The axis shows plain values.
    }
}

bool HasWarning(const EmmeansData& block, const std::string& key) {
    return std::any_of(block.fvWarningList.begin(), block.fvWarningList.end(),
                       [&key](const WarningInfo& warning) { return warning.fMessage == key; });
}

/// The format of a fixed value: two decimals more than the variable's own.
QVTA_Format FixedValueFormat(const QVTA_Variable* variable) {
    QVTA_Format format{40, kFormatNumeric, 2};
    if (!variable) return format;
    format = variable->GetFormat();
    if (format.fType == kFormatA || format.fType == kFormatAHEX) return format;
    const int width = format.fWidth + (format.fDecimals > 0 ? 2 : 3);
    format.fWidth = static_cast<std::uint16_t>(std::min(width, QVTA_Variable::MAXNUMFMTWID));
    format.fDecimals = format.fDecimals < 14 ? format.fDecimals + 2 : 16;
    return format;
}

/// The rows of a custom effects chart.
struct CustomRows {
    VarDataProcessor fData;
    VarDataHandle fTarget, fEffects[3], fMargin;

    explicit CustomRows(const std::string& source) {
        fData.AddDataSource(source, 0);
        fData.AddVariable(source, "targetValue", &fTarget);
        fData.AddVariable(source, "effect1", &fEffects[0]);
        fData.AddVariable(source, "effect2", &fEffects[1]);
        fData.AddVariable(source, "effect3", &fEffects[2]);
        fData.AddVariable(source, "confMargin", &fMargin);
    }

    void Add(const EmmeansEstimates& estimates, std::size_t i) {
        bool known = false;
        const double mean = ValueAsNumber(EntryAt(estimates.fMean.fvValues, i), known);
        if (!known) return;
        const std::size_t row = 2 * i;
        fData.SetVariableValue(fTarget, row, mean);
        fData.SetVariableValue(fTarget, row + 1, mean);
        AddLimits(estimates, i);
        const auto& axes = estimates.fvCoordinates;
        if (axes.empty()) return;
        viewer::SetValueTwice(fData, fEffects[0], row, EntryAt(axes[0].fvValues, i));
        for (std::size_t k = 1; k < 3; ++k) {
            if (k < axes.size()) {
                viewer::SetValueTwice(fData, fEffects[k], row, EntryAt(axes[k].fvValues, i));
            } else {
                fData.SetStringVariableValue(fEffects[k], row, "");
                fData.SetStringVariableValue(fEffects[k], row + 1, "");
            }
        }
    }

    void AddLimits(const EmmeansEstimates& estimates, std::size_t i) {
        bool hasLower = false, hasUpper = false;
        const double lower = ValueAsNumber(EntryAt(estimates.fConfIntervalLower.fvValues, i), hasLower);
        const double upper = ValueAsNumber(EntryAt(estimates.fConfIntervalUpper.fvValues, i), hasUpper);
        if (hasLower || hasUpper) fData.SetVariableValue(fMargin, 2 * i, hasLower ? lower : upper);
        if (hasUpper) fData.SetVariableValue(fMargin, 2 * i + 1, upper);
    }
};

}  // namespace

void HRFTCharts::DrawMeansCharts() {
    const BuildSettings* settings = fpContext->Settings();
    const auto* means = fpContext->fpStats->GetEmmeansEstimates();
    if (!settings || settings->fvFixedEffectList.empty() || !means) return;
    const std::string title = fpContext->LookUp("Estimated Marginal Means for Top Significant Fixed Effects");
    BpHeading heading = fpContext->fpHeading->Heading(BpString(title, false));
    constexpr int kLastChart = 10;
    int counter = 0;
    for (const EmmeansEstimates& entry : *means) {
        if (counter > kLastChart) return;
        ++counter;
        AddMeansChart(entry);
    }
}

bool HRFTCharts::InFixedEffect(const std::string& field) const {
    for (const EffectStruct& effect : fpContext->Settings()->fvFixedEffectList) {
        const auto n = static_cast<std::ptrdiff_t>(std::min(effect.fvFieldNames.size(), effect.fvNestingLevels.size()));
        const auto end = effect.fvFieldNames.begin() + n;
        if (std::find(effect.fvFieldNames.begin(), end, field) != end) return true;
    }
    return false;
}

void HRFTCharts::AddMeansChart(const EmmeansEstimates& means) const {
    const auto& axes = means.fvCoordinates;
    if (axes.empty() || !InFixedEffect(axes[0].fField)) return;
    const Factor first(*fpContext, axes[0].fField);
    std::optional<Factor> second;
    if (axes.size() > 1) second.emplace(*fpContext, axes[1].fField);
    const QVTA_Variable* secondVariable = second ? second->fpVariable : nullptr;

    std::string pattern = fpContext->LookUp("^1 by ^2");
    const QVTA_Variable& target = std::as_const(*fpContext->fpDataSource).GetVariable(fpContext->fTargetField);
    viewer::ReplaceFirst(pattern, "^1", target.GetPreferredLabel());
    viewer::ReplaceFirst(pattern, "^2", secondVariable ? first.fLabel + " * " + second->fLabel : first.fLabel);
    const ChartString title = XUtility::ChartStringFromOLANG(pattern);

    XViZTemplate chart;
    chart.setTemplateInternalName("GLMMEmMeans");
    chart.addLabel(0, title.toUTF8());
    const std::string& source = fpContext->fSourceName;
    VarDataProcessor data;
    data.AddDataSource(source, 0);
    VarDataHandle effect1, effect2, mean, margin;
    data.AddVariable(source, "effect1", &effect1);
    data.AddVariable(source, "effect2", &effect2);
    data.AddVariable(source, "target", &mean);
    data.AddVariable(source, "confMargin", &margin);
    const QVTA_Format* format = &fpContext->fTargetFormat;
    const char* label = fpContext->fTargetLabel.c_str();
    chart.addVariable("effect1", "effect1", true, "effect1Label", source, first.Format(), first.fLabel.c_str());
    chart.addVariable("effect2", "effect2", true, "", source, second ? second->Format() : nullptr,
                      second ? second->fLabel.c_str() : "");
    chart.addVariable("target", "target", false, "", source, format, label);
    chart.addVariable("confMargin", "confMargin", false, "", source, format, label);

    const bool isString = first.fpVariable && viewer::IsStringVariable(*first.fpVariable);
    for (std::size_t i = 0; i < axes[0].fvValues.size(); ++i) {
        const std::size_t row = 2 * i;
        if (isString) {
            data.SetStringVariableValue(effect1, row, axes[0].fvValues[i]);
            data.SetStringVariableValue(effect1, row + 1, axes[0].fvValues[i]);
        } else {
            viewer::SetValueTwice(data, effect1, row, axes[0].fvValues[i]);
        }
        if (second && i < axes[1].fvValues.size()) viewer::SetValueTwice(data, effect2, row, axes[1].fvValues[i]);
        if (i >= means.fMean.fvValues.size()) continue;
        const double value = ValueAsNumber(means.fMean.fvValues[i]);
        data.SetVariableValue(mean, row, value);
        data.SetVariableValue(mean, row + 1, value);
        data.SetVariableValue(margin, row, ValueAsNumber(EntryAt(means.fConfIntervalLower.fvValues, i)));
        data.SetVariableValue(margin, row + 1, ValueAsNumber(EntryAt(means.fConfIntervalUpper.fvValues, i)));
    }
    std::string text, scratch;
    chart.convert(text, scratch);
    viewer::ReplaceFirst(text, "YAxisLabel", fpContext->fTargetLabel);
    if (!secondVariable) viewer::EraseElement(text, "<legend", "</legend>");

    XDocument document(text);
    document.setEditor(2);
    document.setLanguage();
    RelabelWherePossible(document, "effect1", first.fpVariable);
    RelabelWherePossible(document, "effect2", secondVariable);
    document.SetDescription(title);
    document.SetChartData(data);
    document.applyCTemplate(false);
    document.SendChart(true, false, false);
}

ChartString HRFTCharts::FixedValuesSubtitle(const EmmeansData& block) const {
    if (block.fvLabels.empty()) return {};
    const std::string mark = "999";
    std::string pattern = fpContext->LookUp("Continuous predictors fixed at [%1=%2:,^1=^2:]1");
    viewer::ReplaceFirst(pattern, "[%1=%2:,^1=^2:]1", mark);
    ChartString text = XUtility::ChartStringFromOLANG(pattern);
    ChartString list;
    for (std::size_t i = 0; i < block.fvLabels.size(); ++i) {
        const EmmeansLabel& label = block.fvLabels[i];
        if (i > 0) list.append(", ");
        list.append(XUtility::ChartStringFromLocalCodePage(label.fPattern)).append(" = ");
        if (const OBS* value = label.fValue.GetObsValue()) {
            const std::string shown = ToString(value, FixedValueFormat(fpContext->FactorVariable(label.fPattern)));
            list.append(XUtility::ChartStringFromLocalCodePage(shown));
        }
    }
    return text.replaceSubstring(XUtility::ChartStringFromOLANG(mark), list);
}

void HRFTCharts::DrawCustomEffectsChart(const EmmeansData& block) {
    if (!fpContext->Settings()) return;
    if (HasWarning(block, "kGLMM_C20") || HasWarning(block, "kGLMM_C25")) return;
    const std::string source = "source_0";
    XViZTemplate chart;
    chart.setTemplateInternalName("GLMMCustomEffects");
    CustomRows rows(source);
    const QVTA_Format* format = &fpContext->fTargetFormat;
    const char* label = fpContext->fTargetLabel.c_str();
    chart.addVariable("targetValue", "targetValue", false, "", source, format, label);
    for (const char* effect : {"effect1", "effect2", "effect3"})
        chart.addVariable(effect, effect, true, "", source, nullptr, nullptr);
    chart.addVariable("confMargin", "confMargin", false, "", source, format, label);

    const auto& axes = block.fEstimates.fvCoordinates;
    std::vector<const QVTA_Variable*> variables;
    for (const CoordinatesData& axis : axes) {
        if (const QVTA_Variable* variable = fpContext->FactorVariable(axis.fField)) variables.push_back(variable);
    }
    const std::size_t n = axes.empty() ? 0 : axes[0].fvValues.size();
    for (std::size_t i = 0; i < n; ++i)
        rows.Add(block.fEstimates, i);
    std::string text, scratch;
    chart.convert(text, scratch);
    if (text.empty()) return;
    const ChartString description = fpContext->LookUpWide("Estimated Means: Custom Effects");
    viewer::ReplaceFirst(text, ">TitleText", ">Estimates");
    viewer::ReplaceFirst(text, "FootnoteText", FixedValuesSubtitle(block).toUTF8());
    const std::size_t popup = variables.empty() ? std::string::npos : text.find("popup1");
    if (popup != std::string::npos) {
        const std::string popupMark = "popup1";
        text.replace(popup, popupMark.size(), viewer::VariableChartLabel(*variables[0]).toUTF8());
        const std::size_t second = text.find("popup2", popup);
        if (second != std::string::npos)
            text.replace(second, popupMark.size(), viewer::OutputText(fpContext->LookUp("Estimated Mean")));
    }
    if (axes.size() < 3) viewer::DropFaceting(text);
    if (axes.size() < 2) {
        viewer::EraseElement(text, "<color", "/>");
        viewer::EraseElement(text, "<legend id=\"legend\">", "</legend>");
        viewer::ReplaceFirst(text, "75%", "99%");
    }
    try {
        XDocument document(text);
        document.setEditor(2);
        document.setLanguage();
        document.applyCTemplate(false);
        document.SetChartData(rows.fData);
        document.SetDescription(description);
        const XGraph graph = document.getExternalGraph();
        if (!variables.empty()) {
            XVariable axis = graph.getVariable("effect1", 0);
            axis.setLabel(viewer::VariableChartLabel(*variables[0]));
            const auto level = variables[0]->GetMeasurementLevel();
            axis.setCategorical(level == QVTA_Variable_Enumerations::kNominal ||
                                level == QVTA_Variable_Enumerations::kOrdinal);
            axis.setQVTAVariable(*variables[0]);
            axis.addRelabels();
        }
        if (variables.size() > 1) viewer::Relabel(graph.getVariable("effect2", 0), *variables[1]);
        if (variables.size() > 2) {
            XVariable facet = graph.getVariable("effect3", 0);
            viewer::Relabel(facet, *variables[2]);
            // The second variable's format, as the panels have always had it.
            facet.setFormatBasedOnQVTAVariable(*variables[1]);
            facet.SetFormatPrefix(viewer::VariableChartLabel(*variables[2]).append(" = "));
        }
        document.applyCTemplate(false);
        document.SendChart(true, false, false);
    } catch (const std::bad_alloc&) {
        throw;  // lack of memory ends the run: no chart is left out in silence
    } catch (...) {
        // The chart is lost, and the block goes on with its contrasts.
    }
}
