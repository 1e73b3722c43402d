#include "procedure/CommandRecords.h"
#include "procedure/MIXValidSpecs.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>

namespace {

/// The effect's variables in the order of its setting: factors by rising level, and each covariate as often as it is
/// multiplied; covariates stand in front when the factors are in parentheses.
std::vector<int> SettingOrder(const MCModelEffect& effect) {
    const std::vector<int> factors = effect.GetFactors();
    const std::vector<int>& levels = effect.GetFactorLevels();
    const int deepest = levels.empty() ? -1 : *std::max_element(levels.begin(), levels.end());
    std::vector<int> ordered;
    for (int level = 0; level <= deepest; ++level)
        for (std::size_t i = 0; i < factors.size(); ++i)
            if (levels[i] == level) ordered.push_back(factors[i]);

    std::vector<int> covariates;
    for (const int covariate : effect.GetCovariates())
        covariates.insert(covariates.end(), effect.GetCovariateMult(covariate), covariate);

    const bool covariatesFirst = !ordered.empty() && effect.GetFactorsInParens();
    ordered.insert(covariatesFirst ? ordered.begin() : ordered.end(), covariates.begin(), covariates.end());
    return ordered;
}

}  // namespace

bool MIXValidSpecs::FillModelEffect(const long long*& cursor, MCModelEffect& effect,
                                    std::vector<bool>& nestedFlags) const {
    effect.Reset();
    effect.Setup(GetNFactorVar(), GetNCovariateVar(), fvPredictorList);
    nestedFlags.clear();
    AddRowFactors(cursor, effect);
    AddRowCovariates(cursor + fvFactorList.size(), effect, nestedFlags);
    effect.SetVarsIndicesForTheEffectInSetting(SettingOrder(effect));
    cursor += fvPredictorList.size();
    return true;
}

void MIXValidSpecs::AddRowFactors(const long long* cells, MCModelEffect& effect) const {
    std::vector<std::pair<long long, std::size_t>> levelsAndColumns;
    for (std::size_t column = 0; column < fvFactorList.size(); ++column)
        levelsAndColumns.emplace_back(cells[column], column);
    std::sort(levelsAndColumns.begin(), levelsAndColumns.end());
    long long oldLevel = 0;
    for (const auto& [level, column] : levelsAndColumns) {
        if (level <= 0) continue;
        const bool opensLevel = level > oldLevel;
        assert(!opensLevel || level == oldLevel + 1);
        effect.AddNewFactor(fvFactorList[column], opensLevel);
        oldLevel = level;
    }
}

void MIXValidSpecs::AddRowCovariates(const long long* cells, MCModelEffect& effect,
                                     std::vector<bool>& nestedFlags) const {
    for (std::size_t column = 0; column < fvCovariateList.size(); ++column) {
        const int multiplicity = static_cast<int>(cells[column]);
        nestedFlags.push_back(multiplicity < 0);
        for (int times = std::abs(multiplicity); times > 0; --times)
            effect.AddCovariate(fvCovariateList[column]);
    }
}

bool MIXValidSpecs::FillRandomSpec(int& blockIndex, int& rowIndex, GLMMRandomSpec& spec, int& nEffects,
                                   std::vector<std::vector<bool>>& nestedFlags) const {
    spec.Reset(false);
    nestedFlags.clear();
    nEffects = std::abs(LowCell(IntSlot(slots::kBlockRowCounts) + blockIndex));
    bool ok = true;
    if (nEffects > 0) {
        const long long rowCells = LowSlot(slots::kNFactors) + LowSlot(slots::kNCovariates);
        const long long* cursor = fpBlockInt + IntSlot(slots::kRandomRows) - 1 + rowCells * rowIndex;
        for (int row = 0; ok && row < nEffects; ++row) {
            MCModelEffect effect;
            std::vector<bool> flags;
            ok = FillModelEffect(cursor, effect, flags);
            spec.AddEffect(effect);
            nestedFlags.push_back(flags);
        }
    }
    spec.SetComputeEBLUPs(IntCell(IntSlot(slots::kBlockSolutions) + blockIndex) == 1);
    // The tables of covariance codes and subjects are indexed by the block's first row, not by block.
    spec.SetCovarianceType(GetCovarType(IntCell(IntSlot(slots::kRowCovarTypes) + rowIndex), false));
    const int nSubjects = LowCell(IntSlot(slots::kRowSubjectCounts) + rowIndex);
    for (int k = 0; k < nSubjects; ++k) {
        const int subject = HostIndex(IntCell(IntCell(IntSlot(slots::kRowSubjectLists) + rowIndex) + k));
        assert(subject >= 0);
        spec.AddSubjectVar(subject);
    }
    spec.SetIndex(blockIndex);
    blockIndex += 1;
    rowIndex += nEffects;
    return ok;
}
