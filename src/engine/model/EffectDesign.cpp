#include "engine/model/EffectDesign.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

// Calls visit(powers) for each list of powers below the full ones, the full ones excluded.
template <typename Visit>
void ForLowerPowers(const std::vector<int>& full, Visit visit) {
    std::vector<int> powers(full.size(), 0);
    while (powers != full) {
        visit(powers);
        for (std::size_t i = 0; i < full.size(); ++i) {
            if (++powers[i] <= full[i]) break;
            powers[i] = 0;
        }
    }
}

double Binomial(int n, int k) {
    double value = 1.0;
    for (int i = 1; i <= k; ++i)
        value = value * (n - k + i) / i;
    return value;
}

}  // namespace

EffectDesign::EffectDesign(std::vector<ModelEffect> effects, const std::vector<int>& levels)
    : fEffects(std::move(effects)) {
    for (const ModelEffect& effect : fEffects) {
        Term term;
        term.fOffset = fNumColumns;
        for (auto factor = effect.fFactors.rbegin(); factor != effect.fFactors.rend(); ++factor) {
            term.fFactors.insert(term.fFactors.begin(), Part{*factor, term.fColumns, 0, 0.0});
            term.fColumns *= levels[*factor];
        }
        for (const EffectCovariate& covariate : effect.fCovariates) {
            const auto same = std::find_if(term.fCovariates.begin(), term.fCovariates.end(),
                                           [&](const Part& part) { return part.fVariable == covariate.fVariable; });
            if (same != term.fCovariates.end()) {
                same->fPower += covariate.fMultiplicity;
            } else {
                term.fCovariates.push_back({covariate.fVariable, 0, covariate.fMultiplicity, 0.0});
            }
        }
        fNumColumns += term.fColumns;
        fTerms.push_back(std::move(term));
    }
}

int EffectDesign::EffectOf(int column) const {
    int effect = 0;
    while (effect + 1 < NumEffects() && fTerms[effect + 1].fOffset <= column)
        ++effect;
    return effect;
}

std::vector<int> EffectDesign::LevelsOf(int column) const {
    const Term& term = fTerms[EffectOf(column)];
    int rest = column - term.fOffset;
    std::vector<int> levels;
    for (const Part& part : term.fFactors) {
        levels.push_back(rest / part.fStride);
        rest %= part.fStride;
    }
    return levels;
}

int EffectDesign::FindCompanion(const Term& term, const std::vector<int>& powers, int before) const {
    for (int e = 0; e < before; ++e) {
        const Term& other = fTerms[e];
        const bool spansFactors = std::all_of(term.fFactors.begin(), term.fFactors.end(), [&](const Part& part) {
            return std::any_of(other.fFactors.begin(), other.fFactors.end(),
                               [&](const Part& o) { return o.fVariable == part.fVariable; });
        });
        if (!spansFactors) continue;
        std::size_t wanted = 0;
        bool same = true;
        for (std::size_t i = 0; i < powers.size(); ++i) {
            if (powers[i] == 0) continue;
            ++wanted;
            same = same && std::any_of(other.fCovariates.begin(), other.fCovariates.end(), [&](const Part& o) {
                       return o.fVariable == term.fCovariates[i].fVariable && o.fPower == powers[i];
                   });
        }
        if (same && wanted == other.fCovariates.size() && (wanted == 0 || other.fCentred)) return e;
    }
    return -1;
}

void EffectDesign::CentreCovariates(const std::vector<double>& centres) {
    for (int e = 0; e < NumEffects(); ++e) {
        Term& term = fTerms[e];
        if (term.fCovariates.empty()) continue;
        std::vector<int> full;
        for (Part& part : term.fCovariates) {
            part.fCentre = centres[part.fVariable];
            full.push_back(part.fPower);
        }
        bool complete = true;
        ForLowerPowers(
            full, [&](const std::vector<int>& powers) { complete = complete && FindCompanion(term, powers, e) >= 0; });
        term.fCentred = complete;
    }
}

bool EffectDesign::IsCentred() const {
    return std::any_of(fTerms.begin(), fTerms.end(), [](const Term& term) { return term.fCentred; });
}

Eigen::MatrixXd EffectDesign::CentredToPlain() const {
    Eigen::MatrixXd transform = Eigen::MatrixXd::Identity(fNumColumns, fNumColumns);
    for (int e = 0; e < NumEffects(); ++e) {
        const Term& term = fTerms[e];
        if (!term.fCentred) continue;
        std::vector<int> full;
        for (const Part& part : term.fCovariates)
            full.push_back(part.fPower);
        // x^m = sum over a of binomial(m, a) c^(m - a) (x - c)^a, the product over the covariates.
        ForLowerPowers(full, [&](const std::vector<int>& powers) {
            double weight = 1.0;
            for (std::size_t i = 0; i < full.size(); ++i) {
                weight *= Binomial(full[i], powers[i]) * std::pow(term.fCovariates[i].fCentre, full[i] - powers[i]);
            }
            const Term& companion = fTerms[FindCompanion(term, powers, e)];
            for (int c = 0; c < companion.fColumns; ++c) {
                int column = term.fOffset;
                for (const Part& part : term.fFactors) {
                    for (const Part& o : companion.fFactors) {
                        if (o.fVariable != part.fVariable) continue;
                        int span = companion.fColumns;
                        for (const Part& outer : companion.fFactors) {
                            if (outer.fStride > o.fStride) span = std::min(span, outer.fStride);
                        }
                        column += (c % span) / o.fStride * part.fStride;
                        break;
                    }
                }
                transform(companion.fOffset + c, column) += weight;
            }
        });
    }
    return transform;
}

}  // namespace engine
