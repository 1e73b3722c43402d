#include "viewer/HRFTCharts.h"

#include "viewer/ChartText.h"

#include <algorithm>
#include <new>

using viewer::NumberText;

HRFTCharts::HRFTCharts(BpHeading* heading, ProcedureDataSource* source, HRFTOutputStats* stats)
    : fpContext(std::make_unique<HRFTChartContext>(heading, source, stats)) {}

HRFTCharts::~HRFTCharts() = default;

void HRFTCharts::DrawPredictedByObserved() {
    const ModelDiagnostics* diagnostics = fpContext->fpStats->GetModelDiagnostics();
    if (!diagnostics || diagnostics->fPredByObserved.fDescription.empty()) return;
    const PredByObservedData& bins = diagnostics->fPredByObserved;
    XViZTemplate chart;
    chart.setTemplateInternalName("GLMMPredictedByObserved");
    const std::size_t n = std::min({bins.fvFrequency.size(), bins.fvStatistic.size(), bins.fvObserved.size()});
    VarDataProcessor data;
    const ChartString frequency = fpContext->LookUpWide("E60352");
    const ChartString predicted = fpContext->LookUpWide("E61604");
    const ChartString title = fpContext->LookUpWide("Predicted by Observed");

    const std::string& source = fpContext->fSourceName;
    data.AddDataSource(source, n);
    VarDataHandle x, y, count;
    data.AddVariable(source, "X", &x);
    data.AddVariable(source, "Y", &y);
    data.AddVariable(source, "Frequency", &count);
    chart.addVariable("X", "X", false, "", source, nullptr, fpContext->fTargetLabel.c_str());
    chart.addVariable("Y", "Y", false, "", source, nullptr, predicted.toUTF8().c_str());
    chart.addVariable("Transparency", "Frequency", false, "", source, nullptr, frequency.toUTF8().c_str());
    chart.addLabel(0, title.toUTF8());
    for (std::size_t i = 0; i < n; ++i) {
        data.SetVariableValue(x, i, bins.fvObserved[i]);
        data.SetVariableValue(y, i, bins.fvStatistic[i]);
        data.SetVariableValue(count, i, bins.fvFrequency[i]);
    }
    std::string text, scratch;
    chart.convert(text, scratch);
    viewer::ReplaceFirst(text, "98.8", NumberText(bins.fMaxValue));
    viewer::ReplaceFirst(text, "33.667", NumberText(bins.fMinValue));
    constexpr int kFewRecords = 100;
    if (bins.fTotalFreq < kFewRecords) viewer::InsertAhead(text, "id=\"legendStyle", 0, " visible=\"false\" ");
    try {
        XDocument document(text);
        document.setEditor(2);
        document.setLanguage();
        const XGraph graph = document.getExternalGraph();
        graph.getVariable("X", 0).setFormat(fpContext->fTargetFormat);
        graph.getVariable("Y", 0).setFormat(fpContext->fTargetFormat);
        document.SetDescription(title);
        document.SetChartData(data);
        document.applyCTemplate(false);
        document.SendChart(true, false, false);
    } catch (const std::bad_alloc&) {
        throw;  // lack of memory ends the run: no chart is left out in silence
    } catch (...) {
        // The chart is lost, and the output goes on with the next table.
    }
}
