#pragma once

#include "contracts/Engine.h"
#include "contracts/HostData.h"
#include "procedure/Export.h"

#include <vector>

class ACAInputAdapter;

/// A regression parameter in terms that hold across splits: record variables and pointers to category values.
///
/// The engine's own parameter names categories by codes, which differ from split to split. Two parameters are the same
/// when their effect, factors and category pointers are equal; since an aggregator keeps one cell a category, comparing
/// pointers is exact within one aggregator and means nothing across two. A default object is the intercept.
/// Category pointers are shared by copies and owned by whoever holds the value (a keyed cell, or the adapter).
class HIERFIT_EXPORT MIXRegrParameter {
public:
    MIXRegrParameter() = default;

    /// Adds a factor behind those of its nest level and of lower ones. False, with nothing changed, for a negative
    /// argument or a factor that is there already.
    bool AddFactor(int factor, const OBS* category, int nestLevel);
    /// Adds to a covariate's multiplicity, which is returned; 0 for a negative index or a multiplicity below 1.
    int AddCovariate(int covariate, int multiplicity);
    /// The factor's category; null when the factor is absent or its category unset.
    const OBS* ContainsFactor(int factor) const;
    /// Takes over the effect's factors, with unset categories, and its covariates. False for the intercept or a
    /// negative index, which leave the object as it was.
    bool SetupFromEffect(const MCModelEffect& effect, int effectIndex);

    /// Values to codes, in the split that the adapter is in. randSpecIndex: the random block whose effects count,
    /// negative for the fixed effects. False when a category doesn't occur in the split.
    bool EncodeCategories(MCRegrParameter& target, const GLMMSettings& settings, const ACAInputAdapter* adapter,
                          int randSpecIndex) const;
    /// Codes to values. The values stay the adapter's. False when a code has no value.
    bool DecodeCategories(const MCRegrParameter& source, const GLMMSettings& settings, const ACAInputAdapter* adapter,
                          int randSpecIndex);

    bool IsIntercept() const { return fFactors.empty() && fCovariates.empty(); }
    int GetNFactors() const { return static_cast<int>(fFactors.size()); }
    int GetNCovariates() const { return static_cast<int>(fCovariates.size()); }
    int GetNCovariateMult() const;              ///< sum of the multiplicities
    int GetCovariateMult(int covariate) const;  ///< 0 if absent
    const std::vector<int>& GetFactors() const { return fFactors; }
    const std::vector<const OBS*>& GetCategories() const { return fCategories; }
    std::vector<const OBS*>& GetCategories() { return fCategories; }
    const std::vector<int>& GetFactorNestLevels() const { return fFactorNestLevels; }
    const std::vector<int>& GetCovariates() const { return fCovariates; }
    const std::vector<int>& GetCovariateMultiplicities() const { return fCovariateMults; }
    int GetEffectIndex() const { return fEffectIndex; }
    void SetEffectIndex(int effectIndex) { fEffectIndex = effectIndex; }
    const OBS* GetTargetCategory() const { return fTargetCategory; }
    void SetTargetCategory(const OBS* category) { fTargetCategory = category; }

    /// Debug text through the engine's display.
    void Display() const;

private:
    friend class MIXParameterAggregator;
    friend struct MIXRegrParameterIdentity;
    bool operator==(const MIXRegrParameter& other) const;

    std::vector<int> fFactors;             ///< record indices, by rising nest level
    std::vector<const OBS*> fCategories;   ///< one a factor; null until set
    std::vector<int> fFactorNestLevels;    ///< one a factor
    std::vector<int> fCovariates;          ///< record indices
    std::vector<int> fCovariateMults;      ///< one a covariate
    int fEffectIndex = -1;                 ///< -1 for the intercept
    const OBS* fTargetCategory = nullptr;  ///< category of a multinomial target
};
