#include "procedure/MIXParameterAggregator.h"

#include "procedure/MIXValidSpecs.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace {

constexpr double kNotInSplit = -1.0;

std::size_t KeyCells(short width) {
    return static_cast<std::size_t>(ObsCells(width));
}

/// The cells in the order of their local indices. False unless each has an index of its own, at least 0.
bool SortByLocalIndex(std::vector<OBS*>& cells, std::size_t iValue) {
    std::vector<std::pair<int, OBS*>> keyed;
    keyed.reserve(cells.size());
    for (OBS* cell : cells) {
        const int local = static_cast<int>(cell[iValue].fNumber);
        if (local >= 0) keyed.emplace_back(local, cell);
    }
    std::sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    const auto repeated =
        std::adjacent_find(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first == b.first; });
    const bool ok = keyed.size() == cells.size() && repeated == keyed.end();
    assert(ok);
    if (ok) std::transform(keyed.begin(), keyed.end(), cells.begin(), [](const auto& entry) { return entry.second; });
    return ok;
}

}  // namespace

MIXParameterAggregator::MIXParameterAggregator(const MIXValidSpecs& specs, const ACAInputAdapter* adapter,
                                               const ProcedureDataSource& source, int randSpecIndex, int nSplits)
    : fpSpecs(&specs),
      fpInpAdapt(adapter),
      fpVarValidSpecs(specs.GetVarValidSpecsPtr()),
      fpDataSource(&source),
      fRandSpecIndex(randSpecIndex),
      fNSplits(nSplits),
      fvGlobalToLocalMap(nSplits),
      fvLocalToGlobalMap(nSplits) {
    assert(fpInpAdapt != nullptr && fpVarValidSpecs != nullptr);
    // The flag reads the wrong way round, and is to stay so: it is up when the host doesn't layer.
    if (fpInpAdapt->GetSplitFile() && !source.GetSplitLayering()) fbLayerSplits = true;
    for (const MCModelEffect& effect : SpecEffects()) {
        std::vector<int> hostIndices;
        for (const int factor : effect.GetFactors())
            hostIndices.push_back(fpVarValidSpecs->GetQVTAVarIndex(factor));
        fvpObsVecMaps.push_back(new ObsVecMap(ObsVecMap::MakeKeySpec(source, hostIndices), fNSplits));
    }
}

MIXParameterAggregator::~MIXParameterAggregator() {
    ClearObsVecMaps();
}

void MIXParameterAggregator::ClearObsVecMaps() {
    for (ObsVecMap*& map : fvpObsVecMaps) {
        delete map;
        map = nullptr;
    }
    fvpObsVecMaps.clear();
}

const std::vector<MCModelEffect>& MIXParameterAggregator::SpecEffects() const {
    return fRandSpecIndex >= 0 ? fpSpecs->GetCompRandomList()[fRandSpecIndex].GetEffects()
                               : fpSpecs->GetCompModelEffectList();
}

const std::vector<MCModelEffect>& MIXParameterAggregator::SettingsEffects() const {
    const GLMMSettings* settings = fpSpecs->GetCompSettingsPtr();
    return fRandSpecIndex >= 0 ? settings->GetRandomSpecs()[fRandSpecIndex].GetEffects() : settings->GetModelEffects();
}

int MIXParameterAggregator::CurrentSplit() const {
    return fpInpAdapt->GetSplitFile() ? fpInpAdapt->GetSplitCount() - 1 : 0;
}

int MIXParameterAggregator::NKeyObs(const ObsVecMap& map) const {
    return static_cast<int>(map.CellSize()) - fNSplits;
}

bool MIXParameterAggregator::AddSplitParams(GLMMAlgorithm* algorithm) {
    const GLMMOutputStats* stats = algorithm ? algorithm->GetOutputStats() : nullptr;
    const int iSplit = CurrentSplit();
    assert(iSplit >= 0 && iSplit < fNSplits);
    if (!stats || iSplit < 0 || iSplit >= fNSplits) return false;
    const std::vector<MCRegrParameter>& params =
        fRandSpecIndex >= 0 ? stats->GetGammaBasicParameters()[fRandSpecIndex] : stats->GetBetaParameters();
    const std::vector<std::vector<int>> groups = GroupParamsByEffects(params);
    for (std::size_t effect = 0; effect < groups.size(); ++effect) {
        if (!AddParamsForEffect(params, groups[effect], static_cast<int>(effect), *fpSpecs->GetCompSettingsPtr()))
            return false;
    }
    fvLocalToGlobalMap[iSplit].assign(params.size(), -1);
    return true;
}

std::vector<std::vector<int>> MIXParameterAggregator::GroupParamsByEffects(
    const std::vector<MCRegrParameter>& params) const {
    std::vector<std::vector<int>> groups(SettingsEffects().size());
    for (std::size_t i = 0; i < params.size(); ++i) {
        const int effect = params[i].GetEffectIndex();
        assert(effect >= 0 || params[i].IsIntercept());
        if (effect >= 0) groups[effect].push_back(static_cast<int>(i));
    }
    return groups;
}

bool MIXParameterAggregator::AddParamsForEffect(const std::vector<MCRegrParameter>& params,
                                                const std::vector<int>& indices, int effect,
                                                const GLMMSettings& settings) {
    ObsVecMap* map = fvpObsVecMaps[effect];
    assert(map != nullptr);
    const int nKeyObs = NKeyObs(*map);
    const std::vector<short>& keySpec = map->GetKeySpec();
    const int iSplit = CurrentSplit();
    std::vector<OBS> row(map->CellSize());
    for (const int i : indices) {
        MIXRegrParameter param;
        param.SetEffectIndex(effect);
        if (!param.DecodeCategories(params[i], settings, fpInpAdapt, fRandSpecIndex)) return false;
        std::size_t nFilled = 0;
        for (std::size_t j = 0; j < param.GetCategories().size(); ++j) {
            const std::size_t nCells = KeyCells(keySpec[j]);
            std::copy_n(param.GetCategories()[j], nCells, row.begin() + nFilled);
            nFilled += nCells;
        }
        if (param.GetCategories().empty()) {
            // Several parameters of one key are those of several target categories.
            assert(indices.size() == 1 || params[i].GetTargetCategory() >= 0);
            row[nFilled++].fNumber = 0.0;
        }
        assert(static_cast<int>(nFilled) == nKeyObs);
        OBS* cell = map->Contains(row.data());
        if (!cell) {
            std::for_each(row.begin() + nKeyObs, row.end(), [](OBS& value) { value.fNumber = kNotInSplit; });
            cell = map->Insert(row.data());
        }
        cell[nKeyObs + iSplit].fNumber = i;
    }
    return true;
}

bool MIXParameterAggregator::CreateAggregationMaps() {
    assert(!fbParamAggregated);
    if (fbParamAggregated) return false;
    if (fpSpecs->GetInterceptInModel()) {
        fvAllRegrParams.emplace_back();
        for (int s = 0; s < fNSplits; ++s) {
            fvGlobalToLocalMap[s].push_back(0);
            if (!fvLocalToGlobalMap[s].empty()) fvLocalToGlobalMap[s][0] = 0;
        }
    }
    for (std::size_t effect = 0; effect < SpecEffects().size(); ++effect) {
        if (!UpdateMapsForEffect(static_cast<int>(effect))) return false;
    }
    CreateParamLabels();
    assert(fvAllParamLabels.size() == fvAllRegrParams.size());
    CreateEffectLabels();
    fbParamAggregated = true;
    return true;
}

bool MIXParameterAggregator::FetchEffectCells(const ObsVecMap& map, std::vector<OBS*>& effectCells) const {
    const int order = fpSpecs->GetFactorSortOrder();
    map.Sort(effectCells);
    if (order == 1) std::reverse(effectCells.begin(), effectCells.end());
    if (order != 2 || effectCells.empty()) return true;
    // Data order is a split's own, so that it is no order of several splits together.
    assert(fNSplits == 1);
    return fNSplits == 1 && SortByLocalIndex(effectCells, NKeyObs(map));
}

bool MIXParameterAggregator::UpdateMapsForEffect(int effect) {
    const ObsVecMap& map = *fvpObsVecMaps[effect];
    const int nKeyObs = NKeyObs(map);
    const std::vector<short>& keySpec = map.GetKeySpec();
    std::vector<OBS*> effectCells;
    if (!FetchEffectCells(map, effectCells)) return false;
    for (OBS* cell : effectCells) {
        MIXRegrParameter param;
        const bool ok = param.SetupFromEffect(SpecEffects()[effect], effect);
        if (ok && !param.GetCategories().empty()) {
            const OBS* key = cell;
            for (std::size_t j = 0; j < param.GetCategories().size(); ++j) {
                param.GetCategories()[j] = key;
                key += KeyCells(keySpec[j]);
            }
            assert(key - cell == nKeyObs);
        } else {
            assert(!ok || (effectCells.size() == 1 && nKeyObs == 1));
        }
        fvAllRegrParams.push_back(std::move(param));
        if (!ok) return false;
        const int global = static_cast<int>(fvAllRegrParams.size()) - 1;
        for (int s = 0; s < fNSplits; ++s) {
            const int local = static_cast<int>(cell[nKeyObs + s].fNumber);
            fvGlobalToLocalMap[s].push_back(local);
            if (local < 0) continue;
            assert(local < static_cast<int>(fvLocalToGlobalMap[s].size()));
            fvLocalToGlobalMap[s][local] = global;
        }
    }
    return true;
}

int MIXParameterAggregator::GetGlobalParamIndex(int iSplit, int localIndex) const {
    if (iSplit < 0 || iSplit >= static_cast<int>(fvLocalToGlobalMap.size())) return -1;
    const std::vector<int>& map = fvLocalToGlobalMap[iSplit];
    return localIndex < 0 || localIndex >= static_cast<int>(map.size()) ? -1 : map[localIndex];
}

int MIXParameterAggregator::GetLocalParamIndex(int iSplit, int globalIndex) const {
    if (iSplit < 0 || iSplit >= static_cast<int>(fvGlobalToLocalMap.size())) return -1;
    const std::vector<int>& map = fvGlobalToLocalMap[iSplit];
    return globalIndex < 0 || globalIndex >= static_cast<int>(map.size()) ? -1 : map[globalIndex];
}
