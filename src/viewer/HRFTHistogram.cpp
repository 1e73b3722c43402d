#include "viewer/ChartText.h"
#include "viewer/HRFTCharts.h"

#include <algorithm>
#include <new>

/// The target's histogram, which stands inside of the two diagrams.

namespace {

using viewer::NumberText;

std::string Attribute(const char* name, double value) {
    return std::string(" ") + name + "=\"" + NumberText(value) + "\" ";
}

/// The distribution that the curve follows: its word in the document, and its parameters. A null word: the document's
/// own stays.
struct Curve {
    const char* fWord = nullptr;
    std::string fAttributes;
};

Curve CurveOf(int distribution, const std::array<double, 5>& params) {
    const auto& [mean, shape, rate, r, p] = params;
    switch (distribution) {
        case kGammaTarget:
            return {"gamma", Attribute("parameter", shape) + Attribute("secondaryParameter", rate)};
        case kInverseGaussTarget:
            return {"gaussianinverse", Attribute("parameter", mean) + Attribute("secondaryParameter", shape)};
        case kNegBinTarget:
            return {"binomialnegative", Attribute("parameter", r) + Attribute("secondaryParameter", p)};
        case kPoissonTarget:
            return {"poisson", Attribute("parameter", mean)};
        default:
            return {};
    }
}

/// Writes the number of bins and the distribution into the histogram's document.
void PatchHistogram(std::string& text, std::size_t bins, const Curve& curve) {
    const std::string statistic = "binStatistic";
    const std::size_t at = text.find(statistic);
    if (at == std::string::npos) return;
    text.insert(at + statistic.size(), " binCount=\"" + std::to_string(bins) + "\" ");
    if (!curve.fWord) return;
    const std::string normal = "normal";
    const std::size_t word = text.find(normal, at);
    if (word != std::string::npos) text.replace(word, normal.size(), curve.fWord);
    viewer::InsertBehind(text, "<distributionStatistic", curve.fAttributes);
}

}  // namespace

void HRFTCharts::EmbedTargetHistogram(std::string& text) {
    const BuildSettings* settings = fpContext->Settings();
    const ModelDiagnostics* diagnostics = fpContext->fpStats->GetModelDiagnostics();
    if (!settings || !diagnostics) return;
    const TargetDistData& target = diagnostics->fTargetDist;
    const std::string& source = fpContext->fSourceName;
    XViZTemplate chart;
    chart.setTemplateInternalName("GLMMHistogram");
    VarDataProcessor data;
    data.AddDataSource(source, 0);
    VarDataHandle x, y;
    data.AddVariable(source, "X", &x);
    data.AddVariable(source, "Y", &y);
    chart.addVariable("X", "X", false, "", source, &fpContext->fTargetFormat, fpContext->fTargetName.c_str());
    chart.addVariable("Y", "Y", false, "", source, nullptr, nullptr);
    const std::size_t n = std::min(target.fvFrequency.size(), target.fvObserved.size());
    for (std::size_t i = 0; i < n; ++i) {
        data.SetVariableValue(x, i, target.fvObserved[i]);
        data.SetVariableValue(y, i, target.fvFrequency[i]);
    }
    std::string histogram, scratch;
    chart.convert(histogram, scratch);
    PatchHistogram(histogram, n, CurveOf(settings->fDistribution, fpContext->fvDistParams));
    XDocument document(histogram);
    document.applyStyleTemplate();
    histogram = document.AsUTF8();

    const CFMetaData* metaData = fpContext->fpStats->GetMetaData();
    const CFField* field = metaData ? metaData->GetField(fpContext->fTargetField) : nullptr;
    if (!field) return;
    constexpr int kLastFieldType = 6;
    const int fieldType = std::min(field->GetType(), kLastFieldType);
    QvtaJVM& machine = QvtaJVM::GetInstance();
    if (!machine.IsStarted()) machine.StartJVM();
    if (!machine.IsStarted()) return;
    void* environment = nullptr;
    machine.AttachCurrentThread(&environment);
    ViZEditor& editor = ViZEditor::GetInstance();
    if (!editor.IsStartedHeadless()) editor.StartEditorHeadless(machine.GetEnv());
    try {
        std::size_t length = 0;
        const char* rows = data.GetDataStream(&length);
        const std::string embedded = editor.EmbedHistogramInGraph(text, histogram, rows, length, fieldType);
        if (!embedded.empty()) text = embedded;
    } catch (JNIException* exception) {
        // The diagram goes without its histogram; the object belongs to the machine.
        [[maybe_unused]] const JNIException* const kept = exception;
    } catch (const std::bad_alloc&) {
        throw;  // lack of memory ends the run: no chart is left out in silence
    } catch (...) {
        // Likewise.
    }
}
