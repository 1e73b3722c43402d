#include "tables/MIXOutput.h"

#include "procedure/CommandRecords.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXValidSpecs.h"
#include "tables/MIXJsonOutput.h"
#include "tables/MIXParamEstimateOutput.h"

#include <cmath>
#include <sstream>
#include <utility>

namespace {

constexpr int kInputRow = 4;
constexpr int kWeightRow = 0;
constexpr int kOutputFileRow = 2;

struct Criteria {
    std::string fFirstLabel;
    double fAkaike = MCMV::Missing();
    double fBozdogan = MCMV::Missing();
};

/// Akaike's criterion (1974) and Bozdogan's consistent one (1987, equation 44) from -2 log likelihood L, the number of
/// parameters q and the total weight W: L + 2q, and L + q (log W + 1).
Criteria FindCriteria(const GLMMOutputStats& stats, ThetaEstType estimation) {
    Criteria criteria;
    double weight = stats.GetTotalFreqWeight();
    const int rank = stats.GetRedundancyIndicatorsBeta().InSet();
    double nParams = static_cast<double>(stats.GetThetaParamEtimates().size());
    if (estimation == 1) {
        criteria.fFirstLabel = "-2 Restricted Log Likelihood";
        weight -= rank;
    } else {
        criteria.fFirstLabel = "-2 Log Likelihood";
        nParams += rank;
    }
    const double minus2LL = stats.GetLogLikehood();
    if (MCMV::IsMissing(minus2LL)) return criteria;
    criteria.fAkaike = (nParams + nParams) + minus2LL;
    if (weight > 0.0) criteria.fBozdogan = (std::log(weight) + 1.0) * nParams + minus2LL;
    return criteria;
}

}  // namespace

MIXOutput::MIXOutput(MIXValidSpecs* specs, ProcedureDataSource& source, BpProcedure* procedure, MIXFactory* factory)
    : fpValidSpecs(specs), fpProcDS(&source), fpProcedure(procedure), fpFactory(factory) {}

MIXOutput::~MIXOutput() = default;

void MIXOutput::AddToNotesTable() {
    const bool includesMissing = fpValidSpecs->GetClassMissInclude();
    const bool isWeighted = fpValidSpecs->GetQVTAWeightIndex() >= 0;
    AddNotes(kInputRow, BpString("Definition of Missing", true),
             BpString(includesMissing ? "MISSING is INCLUDE ..." : "MISSING is EXCLUDE ...", true));
    AddNotes(kInputRow, BpString("Cases Used", true), BpString("Cases used ...", true));
    AddNotes(kWeightRow, BpString("Weight Handling", true),
             BpString(isWeighted ? "Weight values are rounded to the nearest whole numbers" : "not applicable", true));
}

void MIXOutput::CompleteNotesTable() {
    const auto addFile = [](const char* label, const std::string& name) {
        AddNotes(kOutputFileRow, BpString(label, true), BpString(name, false, false));
    };
    if (fpValidSpecs->GetOutFOptionMODEL()) addFile("Model File", fpValidSpecs->GetOutFModelFileName());
    if (fpValidSpecs->GetOutFOptionPARAMETER()) addFile("Parameter File", fpValidSpecs->GetOutFParameterFileName());
}

void MIXOutput::DisplayOutput() {
    fpComOutputData.reset();
    fpComOutputData = std::make_unique<MIXComOutputData>(fpValidSpecs, fpFactory, *fpProcDS, fpProcedure);
    fpComOutputData->GenerateMaps();
    DisplayInfoCriteria();
    MIXParamEstimateOutput estimates(fpComOutputData.get());
    estimates.DisplayFixedEffectsTable();
    if (fpValidSpecs->GetPrintOptionSOLUTION()) estimates.DisplayParamEstimates();
    if (fpValidSpecs->GetPrintOptionCORB()) estimates.DisplayCorrParamEst();
    if (fpValidSpecs->GetPrintOptionCOVB()) estimates.DisplayCovarParamEst();
    if (fpValidSpecs->GetUseStatJSON()) DisplayEBLUPs();
}

void MIXOutput::DisplayInfoCriteria() {
    const GLMMOutputStats* stats = fpComOutputData->GetResults();
    if (!stats) return;
    const Criteria criteria = FindCriteria(*stats, fpValidSpecs->GetThetaEstType());
    BpPivotTable table =
        fpProcedure->PivotTable(BpString("Information Criteria", true), BpString("Information Criteria", true), true);
    fpComOutputData->AddTableCaption(table, false);
    table.Caption(BpString("Smaller is better ...", true));
    BpDimension statistics = table.Dimension(BpString("Statistics", true), 2);
    statistics.Position(0, 1, true, false);
    const BpFormatSpec format(UnpackFormat(static_cast<std::uint32_t>(LowSlot(slots::kCriteriaFormat))));
    const std::pair<std::string, double> rows[] = {{criteria.fFirstLabel, stats->GetLogLikehood()},
                                                   {"Akaike IC", criteria.fAkaike},
                                                   {"Hurvich Tsai IC", stats->GetAICC()},
                                                   {"Bozdogan IC", criteria.fBozdogan},
                                                   {"Bayesian IC", stats->GetBIC()}};
    for (const auto& [label, value] : rows) {
        statistics.Category(BpString(label, true)).Cell(BpNumber(value, format));
    }
}

void MIXOutput::DisplayEBLUPs() {
    if (!fpComOutputData->GetResults()) return;
    std::ostringstream document;
    document.exceptions(std::ios::badbit);  // lack of memory is no reason to leave a table out
    if (fpFactory->GetGLMMAlgorithm()->ExportStatJSON(document).IsError()) return;
    MIXJsonOutput(fpProcedure, fpProcDS, fpComOutputData.get(), document.str()).DisplayOutput();
}
