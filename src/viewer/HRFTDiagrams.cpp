#include "viewer/ChartText.h"
#include "viewer/HRFTCharts.h"

#include <algorithm>
#include <utility>

/// The diagrams of effects and coefficients: nodes on an arc, each with an edge to the target, and the target's
/// histogram beside them.

namespace {

using viewer::NumberText;

constexpr int kMostNodes = 10;
constexpr QVTA_Format kTooltipNumber{40, kFormatNumeric, 3};
const char* const kTargetSource = "targetPointSource";

std::string Shown(double value, QVTA_Format format) {
    OBS cell;
    cell.fNumber = value;
    return ToString(&cell, format);
}

/// A variable's measurement level as a node's type; no change for a level that isn't known.
void TypeOf(const QVTA_Variable& variable, std::string& type) {
    switch (variable.GetMeasurementLevel()) {
        case QVTA_Variable_Enumerations::kNominal:
            type = "categorical";
            break;
        case QVTA_Variable_Enumerations::kOrdinal:
            type = "ordinal";
            break;
        case QVTA_Variable_Enumerations::kScale:
            type = "continuous";
            break;
    }
}

/// A variable's name and, on a line of its own, its label.
std::string NameAndLabel(const QVTA_Variable& variable) {
    std::string text = viewer::DataText(variable.GetName());
    if (const char* label = variable.GetLabel(); label && *label) text += "\n" + viewer::DataText(label);
    return text;
}

/// The coefficients that the diagram shows.
std::vector<const ParameterStatsData*> SelectCoefficients(const ParamCollect& collect) {
    std::vector<const ParameterStatsData*> selected;
    for (const ParamEstimData& block : collect.fvFixedParamEstim) {
        for (const ParameterStatsData& stats : block.fvParameterStats) {
            const bool intercept = stats.fRegrParam.fIsIntercept && stats.fSig < 1.0;
            const bool listed =
                !stats.fIsRedundant && stats.fStatisticName == "fixedEffectIndex" && stats.fStatisticInt < kMostNodes;
            if (intercept || listed) selected.push_back(&stats);
        }
    }
    return selected;
}

/// "field = value", the variable's label with the value's own, for a node that stands for one level of a factor.
std::string LevelTooltip(const FactorTerm& factor, const QVTA_Variable& variable) {
    const OBS* value = factor.fValue.GetObsValue();
    if (!value) return {};
    std::string text = factor.fField + " = " + ToString(value, variable.GetFormat());
    const char* label = variable.GetLabel();
    const bool labelled = label && *label;
    if (labelled) text += std::string("\n") + label + " = ";
    if (const char* shown = QVTA_ValueLabelMap(variable.GetValueLabels()).GetLabel(value)) {
        text += labelled ? std::string(shown) : std::string(" (") + shown + ")";
    }
    return viewer::DataText(text);
}

/// Where a node and its edge stand: the row i of both sources.
void PlaceNode(VarDataProcessor& data, const HRFTChartContext& context, std::size_t row, const viewer::ArcPoint& point,
               int count) {
    const double offset = count == 1 ? -0.4 : -(0.2 * count);
    const std::string& nodes = context.fPointSourceName;
    const std::string& edges = context.fEdgeSourceName;
    data.SetVariableValue(nodes, "X", row, point.fFromX);
    data.SetVariableValue(edges, "FromX", row, point.fFromX);
    data.SetVariableValue(nodes, "Y", row, point.fFromY);
    data.SetVariableValue(edges, "FromY", row, point.fFromY);
    data.SetVariableValue(nodes, "Label_X", row, offset + point.fFromX);
    data.SetVariableValue(nodes, "Label_Y", row, point.fFromY);
    data.SetVariableValue(edges, "ToX", row, point.fToX);
    data.SetVariableValue(edges, "ToY", row, point.fToY);
}

}  // namespace

void HRFTCharts::DrawEffectsDiagram() {
    const ModelDiagnostics* diagnostics = fpContext->fpStats->GetModelDiagnostics();
    if (!diagnostics) return;
    const TargetDistData& target = diagnostics->fTargetDist;
    fpContext->fvDistParams = {target.fMean, target.fShape, target.fRate, target.fR, target.fP};
    const BuildSettings* settings = fpContext->Settings();
    if (!settings) return;
    VarDataProcessor data;
    int count = 0;
    if (const EffectTest* effectTest = fpContext->fpStats->GetEffectTest()) {
        const auto& tests = effectTest->fvFixedEffectTests;
        std::vector<bool> selected;
        for (const EffectTestStat& test : tests) {
            selected.push_back(test.fTestID < kMostNodes && test.fSig > -0.0001 && test.fSig < 1.0);
            count += selected.back();
        }
        if (count == 0) return;
        AddTargetNodeSource(data, count);
        AddNodeEdgeSources(data);
        int c = 0;
        const auto arc = viewer::ArcLayout(count, c);
        // Over positions, not over the selected tests: a test behind the last of these positions isn't drawn, and a
        // position that isn't selected leaves its row unset.
        for (int i = 0; i < count; ++i) {
            const std::size_t id = static_cast<std::size_t>(tests[i].fTestID);
            if (!selected[i] || tests[i].fTestID < 0 || id >= settings->fvFixedEffectList.size()) continue;
            if (settings->fvFixedEffectList[id].fvFieldIndices.empty()) continue;
            PlaceNode(data, *fpContext, i, arc[i], c);
            AddEffectRow(data, tests[i], i);
        }
    }
    SendSimpleDiagram(count, "Fixed Effects", data, true);
}

void HRFTCharts::AddEffectRow(VarDataProcessor& data, const EffectTestStat& test, std::size_t row) {
    const EffectStruct& effect = fpContext->Settings()->fvFixedEffectList[test.fTestID];
    std::string nodes, tooltip, type = "unknown";
    for (std::size_t k = 0; k < effect.fvFieldIndices.size(); ++k) {
        const QVTA_Variable& variable = std::as_const(*fpContext->fpDataSource).GetVariable(effect.fvFieldIndices[k]);
        nodes += (k > 0 ? "*" : "") + viewer::DataText(variable.GetName());
        tooltip += k > 0 ? "(" + NameAndLabel(variable) + ")" : NameAndLabel(variable);
        if (effect.fvFieldIndices.size() < 2) {
            TypeOf(variable, type);
        } else {
            type = "interaction";
        }
    }
    const std::string& points = fpContext->fPointSourceName;
    const std::string& edges = fpContext->fEdgeSourceName;
    data.SetStringVariableValue(points, "Type", row, type);
    data.SetStringVariableValue(points, "Nodes", row, nodes);
    data.SetStringVariableValue(points, "PointTooltip", row, tooltip);
    const double weight = viewer::SigWeight(test.fSig);
    data.SetVariableValue(edges, "Weight", row, weight);
    fpContext->fHasWeights = true;
    fpContext->NoteWeight(weight);
    data.SetStringVariableValue(
        edges, "LineTooltip", row,
        viewer::OutputText(fpContext->LookUp("E62317") + " = " + Shown(test.fSig, kTooltipNumber)));
}

void HRFTCharts::DrawCoefficientsDiagram() {
    VarDataProcessor data;
    const ParamCollect* collect = fpContext->fpStats->GetParamCollect();
    if (!collect) return;
    const auto selected = SelectCoefficients(*collect);
    if (selected.empty()) return;
    const std::string positive = viewer::OutputText(fpContext->LookUp("Positive"));
    const std::string negative = viewer::OutputText(fpContext->LookUp("Negative"));
    const int n = static_cast<int>(selected.size());
    AddTargetNodeSource(data, n);
    AddNodeEdgeSources(data);
    fpContext->fHasWeights = true;
    int count = 0;
    const auto arc = viewer::ArcLayout(n, count);
    const std::string& edges = fpContext->fEdgeSourceName;
    for (std::size_t i = 0; i < selected.size(); ++i) {
        const ParameterStatsData& stats = *selected[i];
        PlaceNode(data, *fpContext, i, arc[i], count);
        const double weight = viewer::SigWeight(stats.fSig);
        data.SetVariableValue(edges, "Weight", i, weight);
        fpContext->NoteWeight(weight);
        const bool rises = stats.fEstimate == fpContext->fSysmis || stats.fEstimate >= 0.0;
        data.SetStringVariableValue(edges, "Weight2", i, rises ? positive : negative);
        const std::string tooltip = fpContext->LookUp("Coefficient") + " = " + Shown(stats.fEstimate, kTooltipNumber) +
                                    "\n" + fpContext->LookUp("E62317") + " = " + Shown(stats.fSig, kTooltipNumber);
        data.SetStringVariableValue(edges, "LineTooltip", i, viewer::OutputText(tooltip));
        AddCoefficientRow(data, stats, i);
    }
    SendSimpleDiagram(n, "Fixed Coefficients", data, false);
}

void HRFTCharts::AddCoefficientRow(VarDataProcessor& data, const ParameterStatsData& stats, std::size_t row) const {
    const std::string& points = fpContext->fPointSourceName;
    const RegrParamInfo& param = stats.fRegrParam;
    if (param.fIsIntercept) {
        data.SetStringVariableValue(points, "Type", row, "intercept");
        data.SetStringVariableValue(points, "Nodes", row, viewer::OutputText(fpContext->LookUp("Intercept")));
        data.SetStringVariableValue(points, "PointTooltip", row, "");
        return;
    }
    const bool interaction = param.fvFactors.size() + param.fvCovariates.size() >= 2;
    std::string type = interaction ? "interaction" : "unknown";
    data.SetStringVariableValue(points, "Nodes", row, viewer::DataText(stats.fParamLabel));
    const bool plain = param.fvFactors.empty();
    if (const QVTA_Variable* variable =
            fpContext->FactorVariable(plain ? stats.fParamLabel : param.fvFactors.front().fField)) {
        const std::string tooltip = plain ? NameAndLabel(*variable) : LevelTooltip(param.fvFactors.front(), *variable);
        data.SetStringVariableValue(points, "PointTooltip", row, tooltip);
        if (!interaction) TypeOf(*variable, type);
    }
    data.SetStringVariableValue(points, "Type", row, type);
}

std::string HRFTCharts::TargetTooltip() const {
    std::string text = fpContext->fTargetName + "\n";
    if (fpContext->fTargetHasLabel) text += fpContext->fTargetLabel + "\n";
    if (const BuildSettings* settings = fpContext->Settings()) {
        std::string pattern = fpContext->LookUp("Probability Distribution ^1, Link Function ^2 ...");
        viewer::ReplaceFirst(pattern, "^1", fpContext->fpStats->DistributionLabel(settings->fDistribution, true));
        std::string link = fpContext->fpStats->LinkLabel(settings->fLink, settings->fDistribution, true);
        if (settings->fLink == kPowerLink) link += " (" + settings->fLinkParamText + ")";
        viewer::ReplaceFirst(pattern, "^2", link);
        viewer::ReplaceFirst(pattern, "\\n", "\n");
        text += pattern;
    }
    if (const std::size_t mark = text.find("\\:"); mark != std::string::npos) {
        text.erase(std::remove(text.begin() + static_cast<std::ptrdiff_t>(mark), text.end(), '\\'), text.end());
    }
    return viewer::OutputText(text);
}

void HRFTCharts::AddTargetNodeSource(VarDataProcessor& data, int n) const {
    data.AddDataSource(kTargetSource, 0);
    for (const char* variable : {"X", "Y", "Type", "Nodes", "PointTooltip"})
        data.AddVariable(kTargetSource, variable, nullptr);
    data.SetStringVariableValue(kTargetSource, "Type", 0, "target");
    data.SetStringVariableValue(kTargetSource, "Nodes", 0, fpContext->fTargetName);
    data.SetStringVariableValue(kTargetSource, "PointTooltip", 0, TargetTooltip());
    if (n == 0) return;
    data.SetVariableValue(kTargetSource, "X", 0, n);
    data.SetVariableValue(kTargetSource, "Y", 0, (n + 1) * 0.5);
}

void HRFTCharts::AddNodeEdgeSources(VarDataProcessor& data) const {
    const std::string& points = fpContext->fPointSourceName;
    data.AddDataSource(points, 0);
    for (const char* variable : {"X", "Y", "Label_X", "Label_Y", "Type", "Nodes", "PointTooltip"})
        data.AddVariable(points, variable, nullptr);
    const std::string& edges = fpContext->fEdgeSourceName;
    data.AddDataSource(edges, 0);
    for (const char* variable : {"FromX", "FromY", "ToX", "ToY", "Weight", "Weight2", "LineTooltip"})
        data.AddVariable(edges, variable, nullptr);
}

void HRFTCharts::SendSimpleDiagram(int n, const char* titleKey, const VarDataProcessor& data, bool hideLegend) {
    const std::string path =
        PathFactory::getPathInstance(3).GetDirectory() + "template/" + "GLMMFixedCoefficients.viztemplate";
    std::string text = FetchFile::fetch(path, true, true);
    if (const std::size_t width = text.find("9.3"); width != std::string::npos) {
        text.replace(width, 3, NumberText(std::max(2.0, n * 4.0 / 3.0)));
        const std::size_t end = n == 0 ? text.find("/>", width) : std::string::npos;
        if (end != std::string::npos) text.insert(end, " min=\"0\" ");
    }
    viewer::ReplaceFirst(text, "7.0", NumberText(std::max(1, n)));
    if (n >= 2 && n <= 8) {
        const std::size_t style = text.find("id=\"graphStyle");
        if (style != std::string::npos) text.insert(std::min(style + 15, text.size()), " margin-bottom=\"30px\" ");
    }
    const ChartString title = fpContext->LookUpWide(titleKey);
    viewer::ReplaceFirst(text, "title1", title.toUTF8());
    EmbedTargetHistogram(text);
    const std::size_t high = text.find("high=");
    if (fpContext->fHasWeights && high != std::string::npos) {
        text.replace(std::min(high + 6, text.size()), 1, NumberText(fpContext->fHighWeight));
        const std::size_t low = text.find("low=", high + 6);
        if (low != std::string::npos)
            text.replace(std::min(low + 5, text.size()), 1, NumberText(fpContext->fLowWeight));
    }
    if (hideLegend) {
        viewer::InsertAhead(text, "id=\"legendStyle\"", 1, " visible=\"false\" ");
    } else {
        const std::string estimate = viewer::OutputText(fpContext->LookUp("Coefficient Estimate"));
        viewer::ReplaceFirst(text, "Coefficient Estimate", estimate);
    }
    XDocument document(text);
    document.setEditor(2);
    document.setLanguage();
    document.SetDescription(title);
    document.SetChartData(data);
    document.applyCTemplate(false);
    document.SendChart(true, false, false);
}
