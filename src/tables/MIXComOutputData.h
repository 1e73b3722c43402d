#pragma once

#include "contracts/Engine.h"
#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "contracts/Parser.h"
#include "procedure/Export.h"
#include "procedure/MIXParameterMap.h"

#include <memory>
#include <string>
#include <vector>

class ACAVarValidSpecs;
class MIXFactory;
class MIXValidSpecs;

/// What all classic tables of one split share: the objects of the run, the settings of the split that was current at
/// construction, and the maps that turn its parameters into labels. Nothing but the maps is owned.
class HIERFIT_EXPORT MIXComOutputData {
public:
    MIXComOutputData(MIXValidSpecs* specs, MIXFactory* factory, ProcedureDataSource& source, BpProcedure* procedure);
    ~MIXComOutputData();
    MIXComOutputData(const MIXComOutputData&) = delete;
    MIXComOutputData& operator=(const MIXComOutputData&) = delete;

    /// Fills the map of the fixed effects. The maps of the random blocks stay empty.
    void GenerateMaps();
    /// The results of the current split; null when it has no settings, no algorithm, or a fit that failed.
    const GLMMOutputStats* GetResults() const;

    /// Names the dependent variable below a table, and the regression weight if there is one; full: the model's terms
    /// too.
    void AddTableCaption(BpPivotTable& table, bool full) const;
    void AddTableCaptionFromPattern(BpPivotTable& table, const std::string& pattern, bool full) const;

    /// A number as text: "." if missing; all digits without a format; trimmed in a format, which may not be a string's.
    std::string EncodeDouble(double value, const QVTA_Format* format) const;
    /// The split's variables and values as headings show them; empty when the data isn't split.
    std::string GetSplitName(const std::vector<OBS*>& values, bool useTableOptions) const;
    /// How variables or values are shown: 0 name or value, 1 label, 2 and above both. useTableOptions: in tables, else
    /// in the outline.
    int GlobalDisplayOption(bool wantValues, bool useTableOptions) const;

    /// The parser's records, as the library received them.
    static const CmnMix_map* GetCmnMixMap();
    static const CmaMix_map* GetCmaMixMap();

    MIXFactory* GetFactory() const { return fpFactory; }
    MIXParameterMap* GetFixParamMap() const { return fpFixParamMap.get(); }
    ProcedureDataSource* GetProcDS() const { return fpProcDS; }
    BpProcedure* GetProcedure() const { return fpProcedure; }
    const std::vector<std::unique_ptr<MIXParameterMap>>& GetRandParamMaps() const { return fvpRandParamMaps; }
    MIXValidSpecs* GetValidSpecs() const { return fpValidSpecs; }

private:
    BpProcedure* fpProcedure;
    MIXFactory* fpFactory;
    MIXValidSpecs* fpValidSpecs;
    const ACAVarValidSpecs* fpVarValidSpecs;
    const GLMMSettings* fpCompSettings;
    ProcedureDataSource* fpProcDS;
    std::unique_ptr<MIXParameterMap> fpFixParamMap;
    std::vector<std::unique_ptr<MIXParameterMap>> fvpRandParamMaps;  ///< one a random block of the settings
};
