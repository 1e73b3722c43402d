#pragma once

#include "contracts/Adapter.h"
#include "contracts/Engine.h"
#include "contracts/HostData.h"
#include "procedure/Export.h"

#include <string>
#include <vector>

class MIXValidSpecs;

/// The labels of one split's own parameters and effects, in the engine's order.
///
/// Category codes are decoded by the adapter, so that a map belongs to the split that the adapter is in when it is
/// filled. Each list is filled once: a call on a filled list does nothing. The texts are those that the aggregator
/// gives to the same parameter.
class HIERFIT_EXPORT MIXParameterMap {
public:
    MIXParameterMap(const MIXValidSpecs* specs, ProcedureDataSource& source, const ACAInputAdapter* adapter);

    void CreateEffectMap(const std::vector<MCModelEffect>& effects, const std::vector<int>& subjectVars);
    void CreateEffectMap(const std::vector<MCModelEffect>& effects);
    /// effects: what the parameters' effect indices point into. subjectVars: record indices of the block's subjects.
    void CreateParameterMap(const std::vector<MCRegrParameter>& params, const std::vector<MCModelEffect>& effects,
                            const std::vector<int>& subjectVars);
    void CreateParameterMap(const std::vector<MCRegrParameter>& params, const std::vector<MCModelEffect>& effects);

    std::string GetCombSubjString(const std::vector<int>& subjectVars) const;
    const std::vector<std::string>* GetParameterMap(bool withSubject) const;
    const std::vector<std::vector<std::string>>* GetParamMapsEff(bool withSubject) const;  ///< by effect
    const std::vector<std::string>* GetEffectMap(bool withSubject) const;
    int GetParamMapSize() const { return static_cast<int>(fParamList.size()); }
    int GetEffectMapSize() const { return static_cast<int>(fEffectList.size()); }

private:
    ProcedureDataSource* fpDataSource;
    const MIXValidSpecs* fpSpecs;
    const ACAVarValidSpecs* fpVarValidSpecs;
    const ACAInputAdapter* fpInpAdapt;
    std::vector<std::string> fParamList;
    std::vector<std::string> fParamListSubj;
    std::vector<std::vector<std::string>> fParamMapEff;
    std::vector<std::vector<std::string>> fParamMapEffSubj;
    std::vector<std::string> fEffectList;
    std::vector<std::string> fEffectListSubj;
};
