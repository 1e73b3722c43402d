#include "procedure/MIXParameterMap.h"

#include "procedure/MIXLabelBuilder.h"
#include "procedure/MIXValidSpecs.h"

#include <cassert>

MIXParameterMap::MIXParameterMap(const MIXValidSpecs* specs, ProcedureDataSource& source,
                                 const ACAInputAdapter* adapter)
    : fpDataSource(&source), fpSpecs(specs), fpVarValidSpecs(specs->GetVarValidSpecsPtr()), fpInpAdapt(adapter) {}

std::string MIXParameterMap::GetCombSubjString(const std::vector<int>& subjectVars) const {
    return MIXLabelBuilder(*fpVarValidSpecs, *fpDataSource).Subjects(subjectVars);
}

void MIXParameterMap::CreateEffectMap(const std::vector<MCModelEffect>& effects) {
    CreateEffectMap(effects, {});
}

void MIXParameterMap::CreateEffectMap(const std::vector<MCModelEffect>& effects, const std::vector<int>& subjectVars) {
    if (!fEffectList.empty()) return;
    const MIXLabelBuilder builder(*fpVarValidSpecs, *fpDataSource);
    builder.AppendEffects(effects, builder.Subjects(subjectVars), fEffectList, fEffectListSubj);
}

void MIXParameterMap::CreateParameterMap(const std::vector<MCRegrParameter>& params,
                                         const std::vector<MCModelEffect>& effects) {
    CreateParameterMap(params, effects, {});
}

void MIXParameterMap::CreateParameterMap(const std::vector<MCRegrParameter>& params,
                                         const std::vector<MCModelEffect>& effects,
                                         const std::vector<int>& subjectVars) {
    if (!fParamList.empty()) return;
    const MIXLabelBuilder builder(*fpVarValidSpecs, *fpDataSource);
    const std::string suffix = MIXLabelBuilder::ParameterSuffix(builder.Subjects(subjectVars));
    fParamMapEff.assign(effects.size(), {});
    fParamMapEffSubj.assign(effects.size(), {});
    for (const MCRegrParameter& param : params) {
        const int effectIndex = param.GetEffectIndex();
        std::string label;
        if (param.IsIntercept()) {
            label = MIXLabelBuilder::Intercept();
        } else {
            assert(effectIndex >= 0);
            std::vector<const OBS*> categories;
            for (std::size_t i = 0; i < param.GetFactors().size(); ++i) {
                int error = 0;
                categories.push_back(
                    fpInpAdapt->DecodeCatValue(param.GetFactors()[i], param.GetCategories()[i], error));
            }
            std::vector<int> mults;
            for (const int covariate : param.GetCovariates())
                mults.push_back(param.GetCovariateMult(covariate));
            const bool inParens = effectIndex >= 0 && effects[effectIndex].GetFactorsInParens();
            label = builder.Parameter(
                {param.GetFactors(), param.GetFactorNestLevels(), param.GetCovariates(), mults, inParens}, categories);
        }
        fParamList.push_back(label);
        fParamListSubj.push_back(label + suffix);
        if (effectIndex >= 0) {
            fParamMapEff[effectIndex].push_back(label);
            fParamMapEffSubj[effectIndex].push_back(label + suffix);
        }
    }
}

const std::vector<std::string>* MIXParameterMap::GetParameterMap(bool withSubject) const {
    assert(fParamList.size() == fParamListSubj.size());
    return withSubject ? &fParamListSubj : &fParamList;
}

const std::vector<std::vector<std::string>>* MIXParameterMap::GetParamMapsEff(bool withSubject) const {
    return withSubject ? &fParamMapEffSubj : &fParamMapEff;
}

const std::vector<std::string>* MIXParameterMap::GetEffectMap(bool withSubject) const {
    assert(fEffectList.size() == fEffectListSubj.size());
    return withSubject ? &fEffectListSubj : &fEffectList;
}
