#include "procedure/MIXRegrParameter.h"

#include "contracts/Adapter.h"
#include "contracts/EngineDisplay.h"

#include <algorithm>
#include <cassert>
#include <numeric>

namespace {

const std::vector<MCModelEffect>& EffectsOf(const GLMMSettings& settings, int randSpecIndex) {
    return randSpecIndex >= 0 ? settings.GetRandomSpecs()[randSpecIndex].GetEffects() : settings.GetModelEffects();
}

}  // namespace

bool MIXRegrParameter::AddFactor(int factor, const OBS* category, int nestLevel) {
    if (factor < 0 || nestLevel < 0) return false;
    if (std::find(fFactors.begin(), fFactors.end(), factor) != fFactors.end()) return false;
    const auto place = std::upper_bound(fFactorNestLevels.begin(), fFactorNestLevels.end(), nestLevel);
    const auto at = place - fFactorNestLevels.begin();
    fFactorNestLevels.insert(place, nestLevel);
    fFactors.insert(fFactors.begin() + at, factor);
    fCategories.insert(fCategories.begin() + at, category);
    assert(fCategories.size() == fFactors.size());
    return true;
}

int MIXRegrParameter::AddCovariate(int covariate, int multiplicity) {
    if (covariate < 0 || multiplicity < 1) return 0;
    const auto found = std::find(fCovariates.begin(), fCovariates.end(), covariate);
    if (found != fCovariates.end()) return fCovariateMults[found - fCovariates.begin()] += multiplicity;
    fCovariates.push_back(covariate);
    fCovariateMults.push_back(multiplicity);
    return multiplicity;
}

const OBS* MIXRegrParameter::ContainsFactor(int factor) const {
    const auto found = std::find(fFactors.begin(), fFactors.end(), factor);
    return found == fFactors.end() ? nullptr : fCategories[found - fFactors.begin()];
}

bool MIXRegrParameter::SetupFromEffect(const MCModelEffect& effect, int effectIndex) {
    if (effect.IsIntercept() || effectIndex < 0) return false;
    fEffectIndex = effectIndex;
    const std::vector<int> factors = effect.GetFactors();
    const std::vector<int>& levels = effect.GetFactorLevels();
    fFactors.clear();
    fCategories.clear();
    fFactorNestLevels.clear();
    fFactors.reserve(factors.size());
    fCategories.reserve(factors.size());
    fFactorNestLevels.reserve(factors.size());
    for (std::size_t i = 0; i < factors.size(); ++i)
        AddFactor(factors[i], nullptr, levels[i]);
    fCovariates = effect.GetCovariates();
    fCovariateMults = effect.GetCovMultiplicities();
    return true;
}

bool MIXRegrParameter::DecodeCategories(const MCRegrParameter& source, const GLMMSettings& settings,
                                        const ACAInputAdapter* adapter, int randSpecIndex) {
    assert(adapter != nullptr);
    settings.GetDependentRefCateg();
    const std::vector<MCModelEffect>& effects = EffectsOf(settings, randSpecIndex);
    bool ok = adapter != nullptr;
    if (ok && fEffectIndex >= 0) ok = SetupFromEffect(effects[fEffectIndex], fEffectIndex);
    const std::vector<int>& codes = source.GetCategories();
    assert(!ok || (codes.size() == fCategories.size() && fCategories.size() == fFactors.size()));
    ok = ok && codes.size() == fFactors.size();
    for (std::size_t i = 0; ok && i < fFactors.size(); ++i) {
        int error = 0;
        const OBS* value = adapter->DecodeCatValue(fFactors[i], codes[i], error);
        ok = value != nullptr;
        if (ok) fCategories[i] = value;
    }
    return ok;
}

bool MIXRegrParameter::EncodeCategories(MCRegrParameter& target, const GLMMSettings& settings,
                                        const ACAInputAdapter* adapter, int randSpecIndex) const {
    assert(adapter != nullptr);
    bool ok = adapter != nullptr;
    if (ok && fTargetCategory) {
        bool error = false;
        const int code = adapter->EncodeRecordCatValue(settings.GetDependent(), fTargetCategory, error, false);
        ok = !error;
        if (ok) target.SetTargetCategory(code);
    }
    const std::vector<MCModelEffect>& effects = EffectsOf(settings, randSpecIndex);
    if (ok && fEffectIndex >= 0) ok = target.SetupFromEffect(effects[fEffectIndex], fEffectIndex, false);
    std::vector<int>& codes = target.GetCategories();
    assert(!ok || (codes.size() == fCategories.size() && fCategories.size() == fFactors.size()));
    ok = ok && codes.size() == fFactors.size();
    for (std::size_t i = 0; ok && i < fFactors.size(); ++i) {
        bool error = false;
        const int code = adapter->EncodeRecordCatValue(fFactors[i], fCategories[i], error, false);
        ok = !error;
        if (ok) codes[i] = code;
    }
    return ok;
}

int MIXRegrParameter::GetNCovariateMult() const {
    return std::accumulate(fCovariateMults.begin(), fCovariateMults.end(), 0);
}

int MIXRegrParameter::GetCovariateMult(int covariate) const {
    const auto found = std::find(fCovariates.begin(), fCovariates.end(), covariate);
    return found == fCovariates.end() ? 0 : fCovariateMults[found - fCovariates.begin()];
}

bool MIXRegrParameter::operator==(const MIXRegrParameter& other) const {
    return fEffectIndex == other.fEffectIndex && fFactors == other.fFactors && fCategories == other.fCategories &&
           fFactorNestLevels == other.fFactorNestLevels && fCovariates == other.fCovariates &&
           fCovariateMults == other.fCovariateMults && fTargetCategory == other.fTargetCategory;
}

void MIXRegrParameter::Display() const {
    MCDisplay::DisplayText("Begin MIXRegrParameter object display.");
    if (fFactors.empty()) {
        MCDisplay::DisplayText("No factors are present.");
    } else {
        MCDisplay::DisplayIV("The factors:", fFactors);
        MCDisplay::DisplayIV("Factor nesting levels:", fFactorNestLevels);
    }
    if (fCovariates.empty()) {
        MCDisplay::DisplayText("No covariates are present.");
    } else {
        MCDisplay::DisplayIV("Covariates:", fCovariates);
        MCDisplay::DisplayIV("Covariate multiplicities:", fCovariateMults);
    }
    MCDisplay::DisplayI("Index of the effect", fEffectIndex);
    MCDisplay::DisplayText("End MIXRegrParameter object display.\n");
}
