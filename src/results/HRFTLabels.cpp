#include "results/HRFTOutputStats.h"

#include <array>
#include <string_view>

namespace {

constexpr std::string_view kUnknown = "Unknown";

constexpr std::array<std::string_view, 19> kCovarianceLabels{"Variance components",
                                                             "First-order autoregressive",
                                                             "Heterogeneous first-order autoregressive",
                                                             "Autoregressive moving average (1,1)",
                                                             "Compound symmetry",
                                                             "Heterogeneous compound symmetry",
                                                             "Diagonal",
                                                             "Scaled Identity",
                                                             "Toeplitz",
                                                             "Unstructured",
                                                             "UN@UN",
                                                             "UN@AR1",
                                                             "UN@CS",
                                                             "Spatial Power",
                                                             "Spatial Exponential",
                                                             "Spatial Gaussian",
                                                             "Spatial Linear",
                                                             "Spatial Linear-Log",
                                                             "Spatial Spherical"};

constexpr std::array<std::string_view, 8> kDistributionLabels{
    "Binomial", "Gamma", "Inverse Gaussian", "Multinomial", "Multinomial", "Negative binomial", "Normal", "Poisson"};

/// By LinkKind; an empty text is a link that the kind of target does not have.
using LinkLabels = std::array<std::string_view, 9>;
constexpr LinkLabels kNominalLinks{"", "", "", "", "Generalized logit", "", "", "", ""};
constexpr LinkLabels kOrdinalLinks{"Cumulative complementary log-log",
                                   "",
                                   "",
                                   "",
                                   "Cumulative logit",
                                   "Cumulative negative log-log",
                                   "",
                                   "Cumulative probit",
                                   "Cumulative Cauchit"};
constexpr LinkLabels kOtherLinks{
    "Complementary log-log", "Identity", "Log", "Log complement", "Logit", "Negative log-log", "Power", "Probit", ""};

template <std::size_t N>
std::string_view LabelAt(const std::array<std::string_view, N>& labels, int code) {
    const bool known = code >= 0 && code < static_cast<int>(N) && !labels[code].empty();
    return known ? labels[code] : kUnknown;
}

const LinkLabels& LinksOf(int distribution) {
    if (distribution == kNominalTarget) return kNominalLinks;
    return distribution == kOrdinalTarget ? kOrdinalLinks : kOtherLinks;
}

std::string CovariateText(const std::vector<CovariateTerm>& covariates) {
    std::string text;
    for (const CovariateTerm& covariate : covariates) {
        if (!text.empty()) text += "*";
        text += covariate.fField;
        for (int power = 1; power < covariate.fPower; ++power)
            text += "*" + covariate.fField;
    }
    return text;
}

std::string FactorText(const std::vector<FactorTerm>& factors) {
    std::string text;
    int open = 0;
    bool first = true;
    for (const FactorTerm& factor : factors) {
        if (factor.fNest) {
            text += "(";
            ++open;
        } else if (!first) {
            text += "*";
        }
        text += "[" + factor.fField + "=" + factor.fValue.GetStringValue() + "]";
        first = false;
    }
    return text.append(open, ')');
}

}  // namespace

std::string HRFTOutputStats::CovarianceLabel(int kind, bool translate) const {
    const std::string label(LabelAt(kCovarianceLabels, kind));
    return translate ? GetTranslatedText(label) : label;
}

std::string HRFTOutputStats::DistributionLabel(int kind, bool translate) const {
    const std::string label(LabelAt(kDistributionLabels, kind));
    return translate ? GetTranslatedText(label) : label;
}

std::string HRFTOutputStats::LinkLabel(int link, int distribution, bool translate) const {
    const std::string label(LabelAt(LinksOf(distribution), link));
    return translate ? GetTranslatedText(label) : label;
}

std::string HRFTOutputStats::PowerLinkPattern(int link, int distribution) const {
    const bool multinomial = distribution == kNominalTarget || distribution == kOrdinalTarget;
    return !multinomial && link == kPowerLink ? "Power(^1)" : "";
}

std::unique_ptr<BpCellText> HRFTOutputStats::LongTextCell(const std::string& text) {
    constexpr std::size_t kPiece = 255;
    if (text.size() <= kPiece) return std::make_unique<BpString>(text, false);
    auto cell = std::make_unique<BpComposite>("[:^1:]1", true);
    cell->Sublist();
    for (std::size_t start = 0; start < text.size(); start += kPiece)
        cell->Add(BpString(text.substr(start, kPiece), false));
    cell->EndSublist();
    cell->Finish();
    return cell;
}

bool HRFTOutputStats::ParameterLabel(const RegrParamInfo& param, std::string& text) const {
    if (param.fIsIntercept) {
        text = GetTranslatedText("Intercept");
        return true;
    }
    text = CovariateText(param.fvCovariates);
    if (text.empty() && param.fvFactors.size() == 1) {
        const FactorTerm& factor = param.fvFactors.front();
        const std::string& value = factor.fValue.GetStringValue();
        text = value.empty() ? factor.fField : factor.fField + "=" + value;
        return true;
    }
    if (param.fvFactors.empty()) return true;
    if (!text.empty() && !param.fvFactors.front().fNest) text += "*";
    text += FactorText(param.fvFactors);
    return true;
}

bool HRFTOutputStats::EffectLabel(const RandomSpec& block, int index, std::string& text) const {
    const int i = block.fIntercept ? index - 1 : index;
    if (i == -1) {
        text = GetTranslatedText("Intercept");
        return true;
    }
    text.clear();
    if (i < 0 || i >= static_cast<int>(block.fvEffectList.size())) return true;
    const EffectStruct& effect = block.fvEffectList[i];
    int current = 0;
    int open = 0;
    for (std::size_t k = 0; k < effect.fvFieldNames.size(); ++k) {
        const int level = k < effect.fvNestingLevels.size() ? effect.fvNestingLevels[k] : current;
        if (k > 0 && level > current) {
            text += "(";
            ++open;
            current = level;
        } else if (k > 0) {
            text += " * ";
        }
        text += effect.fvFieldNames[k];
    }
    text.append(open, ')');
    return true;
}

bool HRFTOutputStats::PrintableMessage(const PrintableList& list, int block, std::string& key,
                                       std::vector<std::string>& arguments, std::string& text) const {
    if (list.fMapId != -1) return true;
    key = list.fPattern;
    if (key == "VarOfEffect") {
        if (list.fvLists.size() == 1) {
            const std::string& pattern = list.fvLists.front().fPattern;
            const int index = pattern.empty() ? -1 : String2Integer(pattern);
            if (index < 0) return false;
            const bool known =
                fpBuildSettings && block >= 0 && block < static_cast<int>(fpBuildSettings->fvRandomSpecs.size());
            if (!known) return false;
            EffectLabel(fpBuildSettings->fvRandomSpecs[block], index, arguments.emplace_back());
        }
    } else {
        for (const PrintableList& nested : list.fvLists)
            PrintableListText(nested, arguments.emplace_back());
    }
    if (arguments.size() <= 2) text = GetTranslatedText(key, arguments);
    return true;
}
