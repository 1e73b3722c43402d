#pragma once

#include "contracts/ChartService.h"
#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "results/HRFTOutputStats.h"
#include "viewer/HRFTChartContext.h"

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// Draws the charts of the model viewer from the results record, each into the output at its current position.
///
/// A chart whose data the record lacks is left out without a word, and what the chart service throws costs the chart
/// alone.
class HRFTCharts {
public:
    HRFTCharts(BpHeading* heading, ProcedureDataSource* source, HRFTOutputStats* stats);
    ~HRFTCharts();
    HRFTCharts(const HRFTCharts&) = delete;
    HRFTCharts& operator=(const HRFTCharts&) = delete;

    /// The engine's bins of predicted against observed values, a bin's frequency shown by its transparency.
    void DrawPredictedByObserved();
    /// The fixed effects as nodes around the target; an edge is the thicker, the more significant the effect's test.
    void DrawEffectsDiagram();
    /// The same for the fixed coefficients, the edge coloured by the estimate's sign.
    void DrawCoefficientsDiagram();
    /// Estimated means of the effects that the document reports, at most eleven charts, below a heading of their own.
    void DrawMeansCharts();
    /// The estimates of one block: the first factor on the axis, the second as colour, the third as facet.
    void DrawCustomEffectsChart(const EmmeansData& block);
    /// The contrasts of one block: bars from a line, or a network of pairs.
    void DrawContrastChart(const EmmeansData& block);
    void DrawPairwiseGraph(const EmmeansData& block);

    /// Puts the target's histogram into the text of a diagram; leaves the text alone where that fails.
    void EmbedTargetHistogram(std::string& text);

    /// What the means are evaluated at: "Continuous predictors are held at x = 1.50, z = 2.00."
    ChartString FixedValuesSubtitle(const EmmeansData& block) const;
    /// How the significances are adjusted.
    ChartString ContrastFootnote(const EmmeansData& block) const;
    /// Mean texts by the values of the first three coordinates, joined in the order of the field names.
    static std::map<std::string, std::string> MeansByLevelKey(const EmmeansData& block);

private:
    void AddTargetNodeSource(VarDataProcessor& data, int n) const;
    void AddNodeEdgeSources(VarDataProcessor& data) const;
    std::string TargetTooltip() const;
    void AddEffectRow(VarDataProcessor& data, const EffectTestStat& test, std::size_t row);
    void AddCoefficientRow(VarDataProcessor& data, const ParameterStatsData& stats, std::size_t row) const;
    void AddMeansChart(const EmmeansEstimates& means) const;
    bool InFixedEffect(const std::string& field) const;
    void SendSimpleDiagram(int n, const char* titleKey, const VarDataProcessor& data, bool hideLegend);

    std::unique_ptr<HRFTChartContext> fpContext;
};
