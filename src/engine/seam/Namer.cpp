#include "engine/seam/Namer.h"

#include <string_view>

namespace engine {

namespace {

constexpr std::string_view kMarkerStart = "@#$";
constexpr std::string_view kMarkerEnd = "@#$_";
constexpr std::string_view kIntercept = "(Intercept)";

void Append(std::string& text, std::string_view separator, const std::string& piece) {
    if (!text.empty()) text += separator;
    text += piece;
}

}  // namespace

std::string Namer::Variable(int recordVariable) const {
    const IMCVariable* variable = fpVariables->GetVarAt(recordVariable);
    if (!variable) {
        const bool hidden =
            fpHidden && recordVariable >= 0 && recordVariable < static_cast<int>(fpHidden->fvNames.size());
        return hidden ? fpHidden->fvNames[recordVariable] : std::string();
    }
    std::string name = variable->GetName();
    if (name.starts_with(kMarkerStart)) {
        const std::size_t end = name.find(kMarkerEnd, kMarkerStart.size());
        if (end != std::string::npos) name.erase(0, end + kMarkerEnd.size());
    }
    return name;
}

std::string Namer::Category(int recordVariable, int code) const {
    const IMCVariable* variable = fpVariables->GetVarAt(recordVariable);
    return variable ? variable->GetCategoryText(code) : std::string();
}

std::string Namer::Effect(const ModelEffect& effect) const {
    if (effect.IsIntercept()) return std::string(kIntercept);
    std::string text;
    for (int factor : effect.fFactors)
        Append(text, "*", Variable(factor));
    for (const EffectCovariate& covariate : effect.fCovariates) {
        for (int i = 0; i < covariate.fMultiplicity; ++i)
            Append(text, "*", Variable(covariate.fVariable));
    }
    return text;
}

std::string Namer::Term(const ModelEffect& effect, const std::vector<int>& levels) const {
    if (effect.IsIntercept()) return std::string(kIntercept);
    std::string text;
    for (std::size_t i = 0; i < effect.fFactors.size(); ++i) {
        Append(text, " * ", "[" + Variable(effect.fFactors[i]) + "=" + Category(effect.fFactors[i], levels[i]) + "]");
    }
    for (const EffectCovariate& covariate : effect.fCovariates) {
        for (int i = 0; i < covariate.fMultiplicity; ++i)
            Append(text, " * ", Variable(covariate.fVariable));
    }
    return text;
}

std::string Namer::Variables(const std::vector<int>& recordVariables) const {
    std::string text;
    for (int variable : recordVariables)
        Append(text, "*", Variable(variable));
    return text;
}

std::string Namer::Categories(const std::vector<int>& recordVariables, const std::vector<int>& codes) const {
    std::string text;
    for (std::size_t i = 0; i < codes.size(); ++i)
        Append(text, "*", Category(recordVariables[i], codes[i]));
    return text;
}

}  // namespace engine
