#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "results/HRFTOutputStats.h"
#include "results/HRFTStatJSON.h"

/// Writes the model viewer's output from the results record: its own summary tables, and the whole sequence of tables
/// and charts in the order that the system fixes. A part that the record lacks is silence, not an error.
class HRFTOutput {
public:
    HRFTOutput(BpProcedure* procedure, ProcedureDataSource* source, HRFTOutputStats* stats);
    void SetStatJSON(HRFTStatJSON* statJSON) { fpStatJSON = statJSON; }

    /// The thirteen steps of the viewer output.
    void Display();

    void DisplayModelSummary();
    void DisplayDataStructure();
    void DisplayClassification();

private:
    void SummaryTarget(BpDimension& content);
    void SummaryLink(BpDimension& content);
    void NoSubjects();
    void StructureNotes(BpPivotTable& table);
    void StructureRecords(BpDimension& records, BpDimension& data, BpDimension& variables);
    void StructureLevels(BpDimension& records, BpDimension& data, BpDimension& variables);
    void TrialsNote(BpDimension& variables);

    double fSysmis = SYSMIS;
    BpProcedure* fpHeading;
    ProcedureDataSource* fpDataSource;
    HRFTOutputStats* fpOutputStats;
    BuildSettings* fpBuildSettings;
    HRFTStatJSON* fpStatJSON = nullptr;
};
