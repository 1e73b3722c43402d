#include "contracts/EngineModel.h"

#include "contracts/EngineDisplay.h"

#include <algorithm>

namespace {

/// Position of a variable among predictors[first, last), or -1.
int FindPosition(const std::vector<int>& predictors, int first, int last, int variable) {
    const auto begin = predictors.begin() + first;
    const auto end = predictors.begin() + last;
    const auto found = std::find(begin, end, variable);
    return found == end ? -1 : static_cast<int>(found - predictors.begin());
}

std::vector<int> At(const std::vector<int>& values, const std::vector<int>& positions) {
    std::vector<int> picked;
    picked.reserve(positions.size());
    for (int position : positions)
        picked.push_back(values[position]);
    return picked;
}

}  // namespace

void MCModelEffect::Reset() {
    *this = MCModelEffect();
}

void MCModelEffect::Setup(int nFactors, int nCovariates, const std::vector<int>* predictors) {
    Reset();
    fNFactors = nFactors;
    fvPredictors = *predictors;
    fvPredictors.resize(static_cast<std::size_t>(nFactors) + nCovariates, -1);
}

int MCModelEffect::AddNewFactor(int variable, bool newLevel) {
    const int position = FindPosition(fvPredictors, 0, fNFactors, variable);
    if (position < 0) return -1;
    const int last = fvLevels.empty() ? 0 : fvLevels.back();
    fvLevels.push_back(newLevel && !fvLevels.empty() ? last + 1 : last);
    fvFactorPos.push_back(position);
    return static_cast<int>(fvFactorPos.size()) - 1;
}

int MCModelEffect::AddCovariate(int variable) {
    const int position = FindPosition(fvPredictors, fNFactors, static_cast<int>(fvPredictors.size()), variable);
    if (position < 0) return 0;
    for (std::size_t i = 0; i < fvCovariatePos.size(); ++i) {
        if (fvCovariatePos[i] == position) return ++fvMults[i];
    }
    fvCovariatePos.push_back(position);
    fvMults.push_back(1);
    return 1;
}

void MCModelEffect::SetVarIndices(const std::vector<int>* predictors) {
    const std::size_t size = fvPredictors.size();
    fvPredictors = *predictors;
    fvPredictors.resize(std::max(size, fvPredictors.size()), -1);
}

std::vector<int> MCModelEffect::GetFactors() const {
    return At(fvPredictors, fvFactorPos);
}

std::vector<int> MCModelEffect::GetCovariates() const {
    return At(fvPredictors, fvCovariatePos);
}

int MCModelEffect::GetCovariateMult(int variable) const {
    for (std::size_t i = 0; i < fvCovariatePos.size(); ++i) {
        if (fvPredictors[fvCovariatePos[i]] == variable) return fvMults[i];
    }
    return 0;
}

void MCModelEffect::Display() const {
    MCDisplay::DisplayIV("Factors:", GetFactors());
    MCDisplay::DisplayIV("Factor levels:", fvLevels);
    MCDisplay::DisplayIV("Covariates:", GetCovariates());
    MCDisplay::DisplayIV("Covariate multiplicities:", fvMults);
    MCDisplay::DisplayIV("Variables in setting order:", fvSetting);
    MCDisplay::DisplayB("Factors in parentheses", fFactorsInParens);
}

int MCRegrParameter::GetCovariateMult(int covariate) const {
    for (std::size_t i = 0; i < fvCovariates.size(); ++i) {
        if (fvCovariates[i] == covariate) return fvMults[i];
    }
    return 0;
}

bool MCRegrParameter::SetupFromEffect(const MCModelEffect& effect, int effectIndex, int keepCategories) {
    if (effect.IsIntercept() || effectIndex < 0) return false;
    fEffectIndex = effectIndex;
    fvFactors = effect.GetFactors();
    fvLevels = effect.GetFactorLevels();
    fvCovariates = effect.GetCovariates();
    fvMults = effect.GetCovMultiplicities();
    if (!keepCategories) fvCategories.assign(fvFactors.size(), -1);
    fvCategories.resize(fvFactors.size(), -1);
    return true;
}

void GLMMRandomSpec::Reset(bool keepIndex) {
    const int index = fIndex;
    *this = GLMMRandomSpec();
    if (keepIndex) fIndex = index;
}

void GLMMRandomSpec::Display() const {
    MCDisplay::DisplayI("Block index", fIndex);
    for (const MCModelEffect& effect : fvEffects)
        effect.Display();
    MCDisplay::DisplayIV("Subject variables:", fvSubjects);
    MCDisplay::DisplayCCovarType("Covariance type", fCovarianceType);
    MCDisplay::DisplayB("Compute predictions of random effects", fComputeEBLUPs);
    MCDisplay::DisplayIV("Pairing vector A:", fvectorAforPaired);
    MCDisplay::DisplayIV("Pairing vector B:", fvectorBforPaired);
}

void LMatrixRow::Setup(LMatrixRowType type, int nEffects) {
    *this = LMatrixRow();
    fType = type;
    fNEffects = nEffects;
}

void LMatrixRow::AddNewPair(int effect, const std::vector<double>& values) {
    fvEffectPairs.emplace_back(effect, values);
}

void LMatrixRow::AddNewPair(const MCModelEffect& effect, const std::vector<double>& values) {
    fvRandomPairs.emplace_back(effect, values);
}

void CustomTest::Reset() {
    *this = CustomTest();
}

void CustomTest::Display() const {
    MCDisplay::DisplayS("Label", fLabel);
    MCDisplay::DisplayI("Number of rows", static_cast<long>(fvRows.size()));
    for (const Row& row : fvRows) {
        MCDisplay::DisplayI("Row type", row.fFixed.GetType());
        MCDisplay::DisplayB("Row has random coefficients", row.fMixed);
    }
    for (double value : fvK)
        MCDisplay::DisplayDF("K", value);
}

void MCEmmeansSpec::Reset() {
    *this = MCEmmeansSpec();
}

int MCEmmeansSpec::AddFactor(int variable, int nestLevel) {
    if (variable < 0 || nestLevel < 0) return -1;
    fvFactors.push_back(variable);
    fvNestLevels.push_back(nestLevel);
    return static_cast<int>(fvFactors.size()) - 1;
}

int MCEmmeansSpec::AddCovariate(int variable, double value) {
    if (variable < 0) return -1;
    fvCovariates.emplace_back(variable, value);
    return static_cast<int>(fvCovariates.size()) - 1;
}

int MCEmmeansSpec::AddCompareFactor(int variable) {
    if (variable < 0) return -1;
    fvCompareFactors.push_back(variable);
    return static_cast<int>(fvCompareFactors.size()) - 1;
}

bool MCEmmeansSpec::SetContrastType(MCContrastType type) {
    fContrastType = type;
    return true;
}

bool MCEmmeansSpec::SetMetricValueList(const std::vector<double>& values) {
    fvMetricValues = values;
    return true;
}

bool MCEmmeansSpec::SetPAdjust(MCPAdjustMethod method) {
    fPAdjust = method;
    return true;
}

bool MCEmmeansSpec::SetEmmScaleType(MCEmmScaleType scale) {
    fScale = scale;
    return true;
}

void MCEmmeansSpec::Display() const {
    MCDisplay::DisplayIV("Factors:", fvFactors);
    MCDisplay::DisplayIV("Factor nesting levels:", fvNestLevels);
    for (const auto& [variable, value] : fvCovariates) {
        MCDisplay::DisplayI("Covariate", variable);
        MCDisplay::DisplayD("Covariate value", value);
    }
    MCDisplay::DisplayIV("Compare factors:", fvCompareFactors);
    MCDisplay::DisplayI("Contrast type", fContrastType);
    MCDisplay::DisplayI("Reference category", fRefCateg);
    MCDisplay::DisplayI("Adjustment", fPAdjust);
    MCDisplay::DisplayI("Scale", fScale);
    MCDisplay::DisplayB("Reference type", fReferenceType);
}
