#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "procedure/Export.h"
#include "tables/MIXComOutputData.h"

#include <memory>

class MIXFactory;
class MIXValidSpecs;

/// The driver's handle on the classic output: rows of the Notes table, and the tables of one split after another.
class HIERFIT_EXPORT MIXOutput {
public:
    MIXOutput(MIXValidSpecs* specs, ProcedureDataSource& source, BpProcedure* procedure, MIXFactory* factory);
    ~MIXOutput();
    MIXOutput(const MIXOutput&) = delete;
    MIXOutput& operator=(const MIXOutput&) = delete;

    void SetFactory(MIXFactory* factory) { fpFactory = factory; }
    void AddToNotesTable();
    void CompleteNotesTable();
    /// Writes the tables of the factory's current split. A split without results gets none.
    void DisplayOutput();
    MIXComOutputData* GetComOutputData() const { return fpComOutputData.get(); }

private:
    void DisplayInfoCriteria();
    void DisplayEBLUPs();
    void DisplayIterationHistory() {}
    void DisplayModelDimension() {}

    MIXValidSpecs* fpValidSpecs;
    ProcedureDataSource* fpProcDS;
    BpProcedure* fpProcedure;
    MIXFactory* fpFactory;  ///< null until SetFactory
    std::unique_ptr<MIXComOutputData> fpComOutputData;
};
