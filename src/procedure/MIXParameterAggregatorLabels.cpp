#include "procedure/MIXLabelBuilder.h"
#include "procedure/MIXParameterAggregator.h"
#include "procedure/MIXValidSpecs.h"

#include <cassert>
#include <memory>

namespace {

/// What a cell text can hold.
constexpr std::size_t kMaxCellText = 255;

BpString PlainText(const std::string& text) {
    return BpString(text.substr(0, text.find('\0')), false);
}

}  // namespace

std::string MIXParameterAggregator::GetCombSubjString() const {
    if (fRandSpecIndex < 0) return std::string();
    const GLMMRandomSpec& block = fpSpecs->GetCompSettingsPtr()->GetRandomSpecs()[fRandSpecIndex];
    return MIXLabelBuilder(*fpVarValidSpecs, *fpDataSource).Subjects(block.GetSubjectVars());
}

void MIXParameterAggregator::CreateParamLabels() {
    if (!fvAllParamLabels.empty()) return;
    const MIXLabelBuilder builder(*fpVarValidSpecs, *fpDataSource);
    const std::string suffix = MIXLabelBuilder::ParameterSuffix(GetCombSubjString());
    const std::vector<MCModelEffect>& effects = SpecEffects();
    fvvParLabEffect.assign(effects.size(), {});
    fvvParLabSubjEffect.assign(effects.size(), {});
    for (const MIXRegrParameter& param : fvAllRegrParams) {
        const int effectIndex = param.GetEffectIndex();
        std::string label;
        if (param.IsIntercept()) {
            label = MIXLabelBuilder::Intercept();
        } else {
            assert(effectIndex >= 0);
            label = builder.Parameter({param.GetFactors(), param.GetFactorNestLevels(), param.GetCovariates(),
                                       param.GetCovariateMultiplicities(), effects[effectIndex].GetFactorsInParens()},
                                      param.GetCategories());
        }
        fvAllParamLabels.push_back(label);
        fvAllParLabSubj.push_back(label + suffix);
        if (effectIndex >= 0) {
            fvvParLabEffect[effectIndex].push_back(label);
            fvvParLabSubjEffect[effectIndex].push_back(label + suffix);
        }
    }
}

void MIXParameterAggregator::CreateEffectLabels() {
    if (!fvAllEffectLabels.empty()) return;
    const MIXLabelBuilder builder(*fpVarValidSpecs, *fpDataSource);
    builder.AppendEffects(SpecEffects(), GetCombSubjString(), fvAllEffectLabels, fvAllEffLabSubj);
}

BpCellText* MIXParameterAggregator::LongStrToComposite(const std::string& text) {
    if (text.size() <= kMaxCellText) return new BpString(PlainText(text));
    auto composite = std::make_unique<BpComposite>("[:^1:]1", false);
    composite->Sublist();
    for (std::size_t at = 0; at < text.size(); at += kMaxCellText)
        composite->Add(PlainText(text.substr(at, kMaxCellText)));
    composite->EndSublist();
    composite->Finish();
    return composite.release();
}

void MIXParameterAggregator::SetParamTrellisCats(BpGroup* group, int effectIndex, bool withSubject) const {
    if (!fbLayerSplits) return;
    const bool ofEffect = effectIndex >= 0;
    const std::vector<std::string>& vParLab = ofEffect ? fvvParLabEffect[effectIndex] : fvAllParamLabels;
    const std::vector<std::string>& vParLabSubjEff = ofEffect ? fvvParLabSubjEffect[effectIndex] : fvAllParLabSubj;
    assert(vParLabSubjEff.size() == vParLab.size());
    assert(ofEffect || fvAllRegrParams.size() == vParLab.size());
    for (const std::string& label : withSubject ? vParLabSubjEff : vParLab) {
        const std::unique_ptr<BpCellText> text(LongStrToComposite(label));
        group->Category(*text);
    }
}
