#pragma once

#include "contracts/ChartService.h"
#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "results/HRFTOutputStats.h"

#include <array>
#include <memory>
#include <string>

/// What all charts of one viewer output share: where they stand, what they read, the target's name, label and format,
/// and the range of the edge weights, which grows over both diagrams and is never reset.
struct HRFTChartContext {
    HRFTChartContext(BpHeading* heading, ProcedureDataSource* source, HRFTOutputStats* stats);

    BpHeading* fpHeading;
    HRFTOutputStats* fpStats;           ///< not owned
    ProcedureDataSource* fpDataSource;  ///< not owned
    std::unique_ptr<FacSTDictionary> fpDictionary;
    std::string fSourceName = "source0";
    std::string fPointSourceName = "pointSource";
    std::string fEdgeSourceName = "edgeSource";
    int fTargetField = -1;
    std::string fTargetName;   ///< UTF-8, not escaped
    std::string fTargetLabel;  ///< UTF-8, escaped; the name where there is no label
    QVTA_Format fTargetFormat{40, kFormatNumeric, 2};
    bool fTargetHasLabel = true;
    double fSysmis = SYSMIS;
    bool fHasWeights = false;
    double fLowWeight = 9.0;
    double fHighWeight = 1.0;
    std::array<double, 5> fvDistParams;  ///< mean, shape, rate, r and p of the target's distribution

    const BuildSettings* Settings() const { return fpStats->GetBuildSettings(); }
    /// A text of the output's language.
    std::string LookUp(const std::string& key) const { return fpDictionary->LookUp(key); }
    ChartString LookUpWide(const std::string& key) const { return XUtility::ChartStringFromOLANG(LookUp(key)); }
    /// A variable of the data by its name; null where there is none.
    const QVTA_Variable* FactorVariable(const std::string& name) const;
    /// Takes an edge's weight into the range.
    void NoteWeight(double weight);
};
