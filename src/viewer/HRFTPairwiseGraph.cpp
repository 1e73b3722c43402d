#include "viewer/ChartText.h"
#include "viewer/HRFTCharts.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <utility>

/// Pairwise contrasts as a network: the levels are nodes, each pair with a test is an edge.

namespace {

using viewer::EntryAt;
using viewer::ValueAsNumber;

const char* const kNodes = "nodeSource_1";
const char* const kEdges = "edgeSource_1";

/// Stores a value in a source of the graph, as a number where its text is one.
void SetNamed(VarDataProcessor& data, const char* source, const char* variable, std::size_t row,
              const std::string& text) {
    bool ok = false;
    const double number = ValueAsNumber(text, ok);
    if (ok) {
        data.SetVariableValue(source, variable, row, number);
    } else {
        data.SetStringVariableValue(source, variable, row, text);
    }
}

/// What a level is called where its text is a number with a label; else the text.
std::string DisplayText(const QVTA_Variable& variable, const std::string& text) {
    bool ok = false;
    const double number = ValueAsNumber(text, ok);
    const char* label = ok ? viewer::ValueLabelOf(variable, number) : nullptr;
    return label ? label : text;
}

/// The network of one block.
class PairwiseGraph {
public:
    PairwiseGraph(const HRFTChartContext& context, const EmmeansContrasts& contrasts)
        : fContext(context), fContrasts(contrasts), fN(contrasts.fvCoordinates.size()) {
        fpNodeVariable = context.FactorVariable(contrasts.fvCoordinates[fN - 1].fField);
        fData.AddDataSource(kNodes, 0);
        fData.AddDataSource(kEdges, 0);
        for (const char* variable : {"node", "facet1", "facet2"})
            fData.AddVariable(kNodes, variable, nullptr);
        for (const char* variable : {"from", "to", "weight", "weightInPopup", "type", "facet1", "facet2", "tooltip"})
            fData.AddVariable(kEdges, variable, nullptr);
    }

    /// The edges in the order of their I levels, ties in the document's order.
    void AddEdges() {
        const auto& levels = fContrasts.fvCoordinates[fN - 1].fvValues;
        std::vector<std::size_t> order(levels.size());
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::stable_sort(order.begin(), order.end(),
                         [&levels](std::size_t a, std::size_t b) { return levels[a] < levels[b]; });
        if (order.size() > fContrasts.fAdjustedSig.fvValues.size())
            order.resize(fContrasts.fAdjustedSig.fvValues.size());
        std::size_t row = 0;
        for (const std::size_t index : order) {
            const double p = ValueAsNumber(EntryAt(fContrasts.fAdjustedSig.fvValues, index));
            if (p == 1.0) continue;
            AddEdge(index, p, row++);
        }
    }

    void AddNodes() {
        std::size_t row = 0;
        for (auto node = fNodeFacet1.rbegin(); node != fNodeFacet1.rend(); ++node) {
            const auto second = fNodeFacet2.find(node->first);
            if (second == fNodeFacet2.end()) continue;
            SetNamed(fData, kNodes, "node", row, node->first);
            SetNamed(fData, kNodes, "facet1", row, node->second);
            SetNamed(fData, kNodes, "facet2", row, second->second);
            ++row;
        }
    }

    const CoordinatesData* Facet(std::size_t k) const { return fN > k + 2 ? &fContrasts.fvCoordinates[k] : nullptr; }
    const QVTA_Variable* NodeVariable() const { return fpNodeVariable; }
    const VarDataProcessor& Data() const { return fData; }
    const std::map<std::string, std::string>& NodeLabels() const { return fNodeLabel; }

private:
    std::string FacetAt(std::size_t k, std::size_t index) const {
        const CoordinatesData* facet = Facet(k);
        return facet ? EntryAt(facet->fvValues, index) : std::string();
    }

    void AddEdge(std::size_t index, double p, std::size_t row) {
        const std::string f1 = FacetAt(0, index), f2 = FacetAt(1, index);
        const std::string i = EntryAt(fContrasts.fvCoordinates[fN - 1].fvValues, index);
        const std::string j = fN > 1 ? EntryAt(fContrasts.fvCoordinates[fN - 2].fvValues, index) : std::string();
        for (const std::string* level : {&i, &j}) {
            fNodeFacet1.emplace(f1 + f2 + *level, f1);
            fNodeFacet2.emplace(f1 + f2 + *level, f2);
        }
        SetNamed(fData, kEdges, "from", row, f1 + f2 + i);
        bool numeric = false;
        const std::string to = f1 + f2 + j;
        const double toNumber = ValueAsNumber(to, numeric);
        if (numeric) {
            fData.SetVariableValue(kEdges, "to", row, toNumber);
            fData.SetVariableValue(kEdges, "weight", row, 1.0 / ((1.0 - p) * (1.0 - p)));
            fData.SetVariableValue(kEdges, "weightInPopup", row, p);
        } else {
            fData.SetStringVariableValue(kEdges, "to", row, to);
        }
        const bool significant = fContrasts.fAdjustedSigLevel > p;
        fData.SetVariableValue(kEdges, "type", row, significant ? 1.0 : 0.0);
        SetNamed(fData, kEdges, "facet1", row, f1);
        SetNamed(fData, kEdges, "facet2", row, f2);
        fData.SetStringVariableValue(kEdges, "tooltip", row, Tooltip(index, significant, i, j));
        if (fpNodeVariable) {
            NoteLabel(f1 + f2, i);
            NoteLabel(f1 + f2, j);
        }
    }

    /// The sentence on one pair; a negative estimate turns it round.
    std::string Tooltip(std::size_t index, bool significant, std::string a, std::string b) const {
        bool ok = false;
        const double estimate = ValueAsNumber(EntryAt(fContrasts.fContrastEstimate.fvValues, index), ok);
        if (ok && estimate < 0.0) std::swap(a, b);
        std::string text = fContext.LookUp(significant ? "Simple Higher" : "Simple Same");
        viewer::ReplaceFirst(text, "^1", fContext.fTargetLabel);
        viewer::ReplaceFirst(text, "^2", fpNodeVariable ? DisplayText(*fpNodeVariable, b) : b);
        viewer::ReplaceFirst(text, "^3", fpNodeVariable ? DisplayText(*fpNodeVariable, a) : a);
        return viewer::OutputText(text);
    }

    /// Keeps a level's label under the node's id as its number reads: without leading zeros.
    void NoteLabel(const std::string& facets, const std::string& level) {
        const char* label = viewer::LabelOfText(*fpNodeVariable, level);
        if (!label) return;
        std::string id = facets + level;
        id.erase(0, id.find_first_not_of('0'));
        fNodeLabel.emplace(id, label);
    }

    const HRFTChartContext& fContext;
    const EmmeansContrasts& fContrasts;
    std::size_t fN;
    const QVTA_Variable* fpNodeVariable;
    VarDataProcessor fData;
    std::map<std::string, std::string> fNodeFacet1, fNodeFacet2, fNodeLabel;  ///< by node id
};

void SetUpFacet(const HRFTChartContext& context, const XGraph& graph, const char* name, const CoordinatesData* facet) {
    const QVTA_Variable* variable = facet ? context.FactorVariable(facet->fField) : nullptr;
    if (!variable) return;
    // The nodes' declaration, then the edges'.
    for (int occurrence : {0, 1})
        viewer::Relabel(graph.getVariable(name, occurrence), *variable);
}

}  // namespace

void HRFTCharts::DrawPairwiseGraph(const EmmeansData& block) {
    if (block.fContrasts.fvCoordinates.empty() || !fpContext->Settings() || block.fvOverallTests.empty()) return;
    const ChartString title = fpContext->LookUpWide("Pairwise Contrasts");
    const ChartString footnote = ContrastFootnote(block);
    PairwiseGraph network(*fpContext, block.fContrasts);
    network.AddEdges();
    network.AddNodes();
    const std::string path =
        PathFactory::getPathInstance(3).GetDirectory() + "template/" + "GLMMPairwiseContrasts.viztemplate";
    std::string text = FetchFile::fetch(path, true, true);
    viewer::ReplaceFirst(text, "TitleText", title.toUTF8());
    std::string subtitle = fpContext->LookUp("Target\\: ^1");
    viewer::ReplaceFirst(subtitle, "^1", fpContext->fTargetLabel);
    viewer::ReplaceFirst(subtitle, "\\:", ":");
    viewer::ReplaceFirst(text, "subTitleText", viewer::OutputText(subtitle));
    viewer::ReplaceFirst(text, "FootnoteText", footnote.toUTF8());
    if (!network.Facet(0)) {
        viewer::DropFaceting(text);
    } else if (!network.Facet(1)) {
        viewer::DropSecondFacet(text);
    }
    try {
        XDocument document(text);
        const XGraph graph = document.getExternalGraph();
        if (const QVTA_Variable* variable = network.NodeVariable()) {
            XVariable node = graph.getVariable("node", 0);
            node.setLabel(viewer::VariableChartLabel(*variable));
            node.setQVTAVariable(*variable);
        }
        XVariable type = graph.getVariable("type", 0);
        type.addRelabel(0, fpContext->LookUpWide("Not Significant"));
        type.addRelabel(1, fpContext->LookUpWide("Significant"));
        SetUpFacet(*fpContext, graph, "facet1", network.Facet(0));
        SetUpFacet(*fpContext, graph, "facet2", network.Facet(1));
        for (const auto& [id, label] : network.NodeLabels()) {
            for (const char* name : {"node", "from", "to"}) {
                graph.getVariable(name, 0).addRelabel(ChartString().append(id), XUtility::ChartStringFromOLANG(label));
            }
        }
        document.setEditor(2);
        document.setLanguage();
        document.SetDescription(title);
        document.SetChartData(network.Data());
        document.applyCTemplate(false);
        document.SendChart(true, false, false);
    } catch (const std::bad_alloc&) {
        throw;  // lack of memory ends the run: no chart is left out in silence
    } catch (...) {
        // The graph is lost, and the block goes on with its tests.
    }
}
