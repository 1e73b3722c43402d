#pragma once

#include "contracts/Adapter.h"
#include "contracts/Engine.h"
#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "procedure/Export.h"
#include "procedure/MIXRegrParameter.h"

#include <string>
#include <vector>

class MIXValidSpecs;

/// The parameters of all splits in one global list, with their labels and the maps between a split's own positions and
/// the global ones: of the fixed effects, or of one random block.
///
/// AddSplitParams follows each split's fit, at most once a split; CreateAggregationMaps runs once, after the last.
/// Until then the lists are empty. An effect's categories are kept as keyed cells, so that the identity of a parameter
/// is one lookup by the bytes of its values. The global order is the intercept, then effect by effect, within an effect
/// by category. A copy shares the keyed cells: only one of two copies may be destroyed.
class HIERFIT_EXPORT MIXParameterAggregator {
public:
    /// randSpecIndex: the random block, -1 for the fixed effects. nSplits may be 0: then there is nothing to add.
    MIXParameterAggregator(const MIXValidSpecs& specs, const ACAInputAdapter* adapter,
                           const ProcedureDataSource& source, int randSpecIndex, int nSplits);
    MIXParameterAggregator(const MIXParameterAggregator&) = default;
    MIXParameterAggregator& operator=(const MIXParameterAggregator&) = delete;
    ~MIXParameterAggregator();

    /// Takes the parameters of the split that the adapter is in. False when a category has no value.
    bool AddSplitParams(GLMMAlgorithm* algorithm);
    /// Sorts all parameters into the global list, makes the maps and the labels.
    bool CreateAggregationMaps();

    int GetGlobalParamIndex(int iSplit, int localIndex) const;  ///< -1 when there is none
    int GetLocalParamIndex(int iSplit, int globalIndex) const;  ///< -1 when the split lacks the parameter
    const std::vector<MIXRegrParameter>& GetAllParameters() const { return fvAllRegrParams; }
    const std::vector<std::string>& GetAllParamLabels(bool withSubject) const {
        return withSubject ? fvAllParLabSubj : fvAllParamLabels;
    }
    const std::vector<std::string>& GetAllEffectLabels(bool withSubject) const {
        return withSubject ? fvAllEffLabSubj : fvAllEffectLabels;
    }

    /// Gives the group a category for each label: of one effect, or of all parameters when effectIndex is negative.
    /// Nothing happens unless the splits share tables' rows.
    void SetParamTrellisCats(BpGroup* group, int effectIndex, bool withSubject) const;
    /// A text for a table cell, in pieces of 255 bytes if it is longer. The caller owns the result.
    static BpCellText* LongStrToComposite(const std::string& text);

    void Display() const {}

private:
    const std::vector<MCModelEffect>& SpecEffects() const;      ///< engine-side effects of the specification
    const std::vector<MCModelEffect>& SettingsEffects() const;  ///< the same in the settings
    int CurrentSplit() const;
    int NKeyObs(const ObsVecMap& map) const;
    std::vector<std::vector<int>> GroupParamsByEffects(const std::vector<MCRegrParameter>& params) const;
    bool AddParamsForEffect(const std::vector<MCRegrParameter>& params, const std::vector<int>& indices, int effect,
                            const GLMMSettings& settings);
    bool FetchEffectCells(const ObsVecMap& map, std::vector<OBS*>& effectCells) const;
    bool UpdateMapsForEffect(int effect);
    void ClearObsVecMaps();
    std::string GetCombSubjString() const;
    void CreateParamLabels();
    void CreateEffectLabels();

    const MIXValidSpecs* fpSpecs;
    const ACAInputAdapter* fpInpAdapt;
    const ACAVarValidSpecs* fpVarValidSpecs;
    const ProcedureDataSource* fpDataSource;
    bool fbLayerSplits = false;
    int fRandSpecIndex;
    int fNSplits;
    std::vector<MIXRegrParameter> fvAllRegrParams;
    std::vector<std::string> fvAllParamLabels;
    std::vector<std::vector<std::string>> fvvParLabEffect;  ///< by effect
    std::vector<std::string> fvAllParLabSubj;
    std::vector<std::vector<std::string>> fvvParLabSubjEffect;  ///< by effect
    std::vector<std::string> fvAllEffectLabels;
    std::vector<std::string> fvAllEffLabSubj;
    std::vector<std::vector<int>> fvGlobalToLocalMap;  ///< a list a split; -1 where the split lacks the parameter
    std::vector<std::vector<int>> fvLocalToGlobalMap;  ///< a list a split
    std::vector<ObsVecMap*> fvpObsVecMaps;             ///< owned, one an effect: key cells, then a local index a split
    bool fbParamAggregated = false;
};
