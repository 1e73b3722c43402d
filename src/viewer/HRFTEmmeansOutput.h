#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "results/HRFTOutputStats.h"

#include <string>
#include <vector>

/// Writes the estimated means: the grand mean, and for each block of the record a heading with its estimates, contrasts
/// and overall tests, the charts among them.
class HRFTEmmeansOutput {
public:
    HRFTEmmeansOutput(BpProcedure* procedure, ProcedureDataSource* source, HRFTOutputStats* stats);

    void DisplayEmmeans();
    /// Title of a block's output; below 0 that of the grand mean.
    BpComposite EmmeansTitle(int index) const;
    /// "A * B(C)" from the fields' labels, or names.
    std::string EffectLabelOf(const EffectStruct& effect) const;

private:
    void DisplayGrandMean();
    void DisplayEmmeansBlock(const EmmeansData& block);
    void DisplayEstimates(BpHeading& heading, const EmmeansData& block);
    bool DisplayContrasts(BpHeading& heading, const EmmeansData& block);
    void DisplayOverallTests(BpHeading& heading, const EmmeansData& block);

    const EMMeansSpec& SpecOf(const EmmeansData& block) const {
        return fpBuildSettings->fvEMMeansSpecs[block.fEmmeansIndex];
    }
    int FieldIndex(const std::string& name) const { return fpDataSource->FindVarIndex(name.c_str(), 0); }
    BpDataValue ValueOf(int field, const std::string& text);
    double NumberAt(const CoordinatesData& data, std::size_t row) const;
    BpDimension FieldDimension(BpPivotTable& table, int field, int position) const;
    BpDimension StatisticsDimension(BpPivotTable& table) const;
    void AddCoefficientCell(BpGroup& group, const char* name, double value) const;
    void AddLimits(BpDimension& statistics, double lower, double upper) const;
    void EstimatesCaption(BpPivotTable& table, const EmmeansData& block) const;
    void ContrastsCaption(BpPivotTable& table) const;
    void BlockMessage(int index, const char* key, bool translateWord) const;

    double fSysmis = SYSMIS;
    BpProcedure* fpProcedure;
    ProcedureDataSource* fpDataSource;
    HRFTOutputStats* fpStats;
    BuildSettings* fpBuildSettings;
    std::vector<EmmeansData>* fpvEmmeansData;
    CFStatVariableValue fValueHolder;
};
