#include "viewer/ChartText.h"
#include "viewer/HRFTCharts.h"

#include <new>

/// Deviation and simple contrasts: each category's mean as a bar from a horizontal line, the overall mean or the mean
/// of the reference category. A contrast takes two rows: the first at the line, the second at the mean.

namespace {

using viewer::EntryAt;
using viewer::FacetLine;
using viewer::ValueAsNumber;

/// The texts of one kind of contrast.
struct ContrastKeys {
    const char* fTitle;
    const char* fCaption;
    const char* fSame;
    const char* fHigher;
    const char* fLower;
};

constexpr ContrastKeys kDeviationKeys{"Deviation Contrasts", "Horizontal Line Deviation", "Deviation Same",
                                      "Deviation Higher", "Deviation Lower"};
constexpr ContrastKeys kSimpleKeys{"Simple Contrasts", "Horizontal Line Simple", "Simple Same", "Simple Higher",
                                   "Simple Lower"};

/// One coordinate of the contrasts and its variable, either of which may be absent.
struct Axis {
    const CoordinatesData* fpData = nullptr;
    const QVTA_Variable* fpVariable = nullptr;

    Axis() = default;
    Axis(const HRFTChartContext& context, const CoordinatesData& data)
        : fpData(&data), fpVariable(context.FactorVariable(data.fField)) {}
    const std::string& At(std::size_t i) const {
        static const std::string none;
        return fpData ? EntryAt(fpData->fvValues, i) : none;
    }
    bool IsString() const { return fpVariable && viewer::IsStringVariable(*fpVariable); }
    /// What a value is called, for the inside of a chart document; empty without a variable.
    std::string LabelAt(std::size_t i) const {
        if (!fpVariable) return {};
        const char* label = viewer::LabelOfText(*fpVariable, At(i));
        std::string text = label ? label : At(i);
        viewer::EscapeChartText(text);
        return text;
    }
};

/// The coordinates by their roles: up to two facets, then the category and last the compared field.
struct Axes {
    Axis fFacets[2], fCategory, fCompare;

    Axes(const HRFTChartContext& context, const std::vector<CoordinatesData>& coordinates) {
        const std::size_t n = coordinates.size();
        fCompare = Axis(context, coordinates[n - 1]);
        if (n >= 2) fCategory = Axis(context, coordinates[n - 2]);
        for (std::size_t k = 0; k < 2 && n >= k + 3; ++k)
            fFacets[k] = Axis(context, coordinates[k]);
    }

    /// The values of row i joined in the order of the field names.
    std::string LevelKey(std::size_t i) const {
        std::map<std::string, std::string> values;
        for (const Axis* axis : {&fFacets[0], &fFacets[1], &fCategory}) {
            if (axis->fpData) values[axis->fpData->fField] = axis->At(i);
        }
        std::string key;
        for (const auto& [field, value] : values)
            key += value;
        return key;
    }
};

/// The rows of a contrast chart.
struct ContrastRows {
    VarDataProcessor fData;
    VarDataHandle fValue, fCategory, fType, fFacets[2], fMargin, fTooltip;

    ContrastRows() {
        const char* const source = "source";
        fData.AddDataSource(source, 0);
        fData.AddVariable(source, "value", &fValue);
        fData.AddVariable(source, "category", &fCategory);
        fData.AddVariable(source, "type", &fType);
        fData.AddVariable(source, "facet1", &fFacets[0]);
        fData.AddVariable(source, "facet2", &fFacets[1]);
        fData.AddVariable(source, "confMargin", &fMargin);
        fData.AddVariable(source, "tooltip", &fTooltip);
    }

    void AddRow(std::size_t row, const Axes& axes, std::size_t i, double value, double margin, bool significant,
                const std::string& tooltip) {
        fData.SetVariableValue(fValue, row, value);
        SetByType(fCategory, row, axes.fCategory.At(i), axes.fCategory.IsString());
        fData.SetVariableValue(fType, row, significant ? 1.0 : 0.0);
        SetByType(fFacets[0], row, axes.fFacets[0].At(i), axes.fFacets[0].IsString());
        // A second facet of texts goes over the first one's value, and leaves its own variable unset.
        if (axes.fFacets[1].IsString()) {
            fData.SetStringVariableValue(fFacets[0], row, axes.fFacets[1].At(i));
        } else {
            fData.SetVariableValue(fFacets[1], row, ValueAsNumber(axes.fFacets[1].At(i)));
        }
        fData.SetVariableValue(fMargin, row, margin);
        fData.SetStringVariableValue(fTooltip, row, tooltip);
    }

    void SetByType(VarDataHandle variable, std::size_t row, const std::string& value, bool isString) {
        if (isString) {
            fData.SetStringVariableValue(variable, row, value);
        } else {
            fData.SetVariableValue(variable, row, ValueAsNumber(value));
        }
    }
};

void SetUpFacet(const XGraph& graph, const char* name, const Axis& facet) {
    if (!facet.fpVariable) return;
    XVariable variable = graph.getVariable(name, 0);
    viewer::Relabel(variable, *facet.fpVariable);
    variable.setFormatBasedOnQVTAVariable(*facet.fpVariable);
    variable.SetFormatPrefix(viewer::VariableChartLabel(*facet.fpVariable).append(" = "));
}

}  // namespace

ChartString HRFTCharts::ContrastFootnote(const EmmeansData& block) const {
    static constexpr const char* kKeys[] = {"Least Significant significance adjust ^1",
                                            "Sequential Bonferroni significance adjust ^1",
                                            "Sequential Sidak significance adjust ^1"};
    const int adjustment = fpContext->Settings()->fPAdjustment;
    if (adjustment < kLSD || adjustment > kSeqSidak) return {};
    std::string text = fpContext->LookUp(kKeys[adjustment]);
    if (adjustment != kLSD) text += "\n" + fpContext->LookUp("Confidence interval bounds are approximate.");
    OBS level;
    level.fNumber = block.fContrasts.fAdjustedSigLevel;
    viewer::ReplaceFirst(text, "^1", ToString(&level, QVTA_Format{40, kFormatNumeric, 2}));
    return XUtility::ChartStringFromOLANG(text);
}

std::map<std::string, std::string> HRFTCharts::MeansByLevelKey(const EmmeansData& block) {
    const auto& axes = block.fEstimates.fvCoordinates;
    std::map<std::string, std::string> means;
    if (axes.empty()) return means;
    for (std::size_t row = 0; row < axes[0].fvValues.size(); ++row) {
        std::map<std::string, std::string> values;
        for (std::size_t k = 0; k < axes.size() && k < 3; ++k) {
            if (row < axes[k].fvValues.size()) values[axes[k].fField] = axes[k].fvValues[row];
        }
        std::string key;
        for (const auto& [field, value] : values)
            key += value;
        means.emplace(key, EntryAt(block.fEstimates.fMean.fvValues, row));
    }
    return means;
}

void HRFTCharts::DrawContrastChart(const EmmeansData& block) {
    const EmmeansContrasts& contrasts = block.fContrasts;
    if (contrasts.fvCoordinates.empty() || !fpContext->Settings() || block.fvOverallTests.empty()) return;
    if (contrasts.fContrastKind == kPairwise) {
        DrawPairwiseGraph(block);
        return;
    }
    const bool deviation = contrasts.fContrastKind == kDeviation;
    if (!deviation && contrasts.fContrastKind != kSimple) return;
    const ContrastKeys& keys = deviation ? kDeviationKeys : kSimpleKeys;
    const ChartString title = fpContext->LookUpWide(keys.fTitle);
    const ChartString footnote = ContrastFootnote(block);
    const Axes axes(*fpContext, contrasts.fvCoordinates);
    const std::string reference = deviation ? std::string() : axes.fCompare.LabelAt(0);
    std::string caption = fpContext->LookUp(keys.fCaption);
    viewer::ReplaceAll(caption, "^1", fpContext->fTargetLabel);
    viewer::ReplaceAll(
        caption, "^2",
        axes.fCategory.fpVariable ? viewer::VariableChartLabel(*axes.fCategory.fpVariable).toUTF8() : std::string());
    viewer::ReplaceAll(caption, "^3", reference);

    ContrastRows rows;
    const auto means = MeansByLevelKey(block);
    std::map<std::string, FacetLine> lines;
    const std::size_t n = axes.fCategory.fpData ? axes.fCategory.fpData->fvValues.size() : 0;
    for (std::size_t i = 0; i < n; ++i) {
        const std::string f1 = axes.fFacets[0].At(i), f2 = axes.fFacets[1].At(i);
        const auto level = means.find(axes.LevelKey(i));
        const double mean = level == means.end() ? 0.0 : ValueAsNumber(level->second);
        FacetLine& facet = lines[f1 + f2];
        if (facet.fRows.empty()) {
            facet.fvFacetTexts[0] = f1;
            facet.fvFacetTexts[1] = f2;
            facet.fHeight = mean - ValueAsNumber(EntryAt(contrasts.fContrastEstimate.fvValues, i));
        }
        const double line = facet.fHeight;
        const double lower = ValueAsNumber(EntryAt(contrasts.fConfIntervalLower.fvValues, i)) + line;
        const double upper = ValueAsNumber(EntryAt(contrasts.fConfIntervalUpper.fvValues, i)) + line;
        facet.fRows.emplace(axes.fCategory.At(i), FacetLine::Row{mean, lower, upper});
        const double p = ValueAsNumber(EntryAt(contrasts.fAdjustedSig.fvValues, i));
        const bool significant = contrasts.fAdjustedSigLevel > p;
        std::string tooltip = fpContext->LookUp(!significant      ? keys.fSame
                                                : mean - line > 0 ? keys.fHigher
                                                                  : keys.fLower);
        viewer::ReplaceFirst(tooltip, "^1", fpContext->fTargetLabel);
        viewer::ReplaceFirst(tooltip, "^2", axes.fCategory.LabelAt(i));
        viewer::ReplaceFirst(tooltip, "^3", reference);
        tooltip = viewer::OutputText(tooltip);
        rows.AddRow(2 * i, axes, i, line, lower, significant, tooltip);
        rows.AddRow(2 * i + 1, axes, i, mean, upper, significant, tooltip);
    }

    XViZTemplate chart;
    chart.setTemplateInternalName("GLMMSimpleContrasts");
    const auto bind = [&chart](const char* name, bool categorical) {
        chart.addVariable(name, name, categorical, "", "source", nullptr, nullptr);
    };
    bind("value", false);
    for (const char* name : {"category", "type", "facet1", "facet2"})
        bind(name, true);
    bind("confMargin", false);
    bind("tooltip", true);
    std::string text, scratch;
    chart.convert(text, scratch);
    viewer::ReplaceFirst(text, "TitleText", title.toUTF8());
    viewer::ReplaceFirst(text, "CaptionText", viewer::OutputText(caption));
    viewer::ReplaceFirst(text, "FootnoteText", footnote.toUTF8());
    viewer::ApplyLineGuides(text, lines);
    if (!lines.empty()) {
        const FacetLine& first = lines.begin()->second;
        if (first.fvFacetTexts[0].empty()) {
            viewer::DropFaceting(text);
        } else if (first.fvFacetTexts[1].empty()) {
            viewer::DropSecondFacet(text);
        }
    }
    try {
        XDocument document(text);
        document.setEditor(2);
        document.setLanguage();
        const XGraph graph = document.getExternalGraph();
        if (axes.fCategory.fpVariable) viewer::Relabel(graph.getVariable("category", 0), *axes.fCategory.fpVariable);
        SetUpFacet(graph, "facet1", axes.fFacets[0]);
        SetUpFacet(graph, "facet2", axes.fFacets[1]);
        XVariable type = graph.getVariable("type", 0);
        type.addRelabel(0, fpContext->LookUpWide("Not Significant"));
        type.addRelabel(1, fpContext->LookUpWide("Significant"));
        type.setLabel(fpContext->LookUpWide("E62317"));
        document.SetChartData(rows.fData);
        document.SetDescription(title);
        document.applyCTemplate(false);
        document.SendChart(true, false, false);
    } catch (const std::bad_alloc&) {
        throw;  // lack of memory ends the run: no chart is left out in silence
    } catch (...) {
        // The chart is lost, and the block goes on with its tests.
    }
}
