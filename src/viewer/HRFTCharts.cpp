#include "viewer/HRFTCharts.h"

HRFTCharts::HRFTCharts(BpHeading* /*heading*/, ProcedureDataSource* /*source*/, HRFTOutputStats* /*stats*/) {}

HRFTCharts::~HRFTCharts() = default;

void HRFTCharts::DrawPredictedByObserved() {}

void HRFTCharts::DrawEffectsDiagram() {}

void HRFTCharts::DrawCoefficientsDiagram() {}

void HRFTCharts::DrawMeansCharts() {}

void HRFTCharts::DrawCustomEffectsChart(const EmmeansData& /*block*/) {}

void HRFTCharts::DrawContrastChart(const EmmeansData& /*block*/) {}
