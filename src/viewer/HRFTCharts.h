#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "results/HRFTOutputStats.h"

/// Draws the charts of the model viewer from the results record, each into the output at its current position.
///
/// A chart whose data the record lacks is left out without a word.
class HRFTCharts {
public:
    HRFTCharts(BpHeading* heading, ProcedureDataSource* source, HRFTOutputStats* stats);
    ~HRFTCharts();
    HRFTCharts(const HRFTCharts&) = delete;
    HRFTCharts& operator=(const HRFTCharts&) = delete;

    void DrawPredictedByObserved();
    void DrawEffectsDiagram();
    void DrawCoefficientsDiagram();
    void DrawMeansCharts();
    void DrawCustomEffectsChart(const EmmeansData& block);
    void DrawContrastChart(const EmmeansData& block);
};
