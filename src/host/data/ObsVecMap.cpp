#include "contracts/HostData.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>

struct ObsVecMap::Impl {
    std::vector<short> fKeySpec;
    std::size_t fKeyCells = 0;
    std::size_t fCells = 0;
    std::vector<std::unique_ptr<OBS[]>> fRows;
    std::unordered_map<std::string_view, OBS*> fByKey;  ///< the views are into the rows

    std::string_view Key(const OBS* row) const { return {row->fText, fKeyCells * sizeof(OBS)}; }

    bool Less(const OBS* a, const OBS* b) const {
        for (const short width : fKeySpec) {
            const int cells = ObsCells(width);
            if (width == 0) {
                if (a->fNumber != b->fNumber) return a->fNumber < b->fNumber;
            } else if (const int order = std::memcmp(a, b, static_cast<std::size_t>(cells) * sizeof(OBS)); order != 0) {
                return order < 0;
            }
            a += cells;
            b += cells;
        }
        return false;
    }
};

ObsVecMap::ObsVecMap(const std::vector<short>& keySpec, std::size_t nValues) : fpImpl(std::make_unique<Impl>()) {
    fpImpl->fKeySpec = keySpec;
    for (const short width : keySpec)
        fpImpl->fKeyCells += static_cast<std::size_t>(ObsCells(width));
    if (keySpec.empty()) fpImpl->fKeyCells = 1;
    fpImpl->fCells = fpImpl->fKeyCells + nValues;
}

ObsVecMap::~ObsVecMap() = default;

std::vector<short> ObsVecMap::MakeKeySpec(const QVTA_DataSource& source, const std::vector<int>& variables) {
    std::vector<short> spec;
    for (const int variable : variables)
        spec.push_back(static_cast<short>(source.GetVariable(variable).GetType()));
    return spec;
}

const std::vector<short>& ObsVecMap::GetKeySpec() const {
    return fpImpl->fKeySpec;
}

std::size_t ObsVecMap::CellSize() const {
    return fpImpl->fCells;
}

std::size_t ObsVecMap::Size() const {
    return fpImpl->fRows.size();
}

OBS* ObsVecMap::Contains(const OBS* key) const {
    const auto found = fpImpl->fByKey.find(fpImpl->Key(key));
    return found == fpImpl->fByKey.end() ? nullptr : found->second;
}

OBS* ObsVecMap::Insert(const OBS* row) {
    if (OBS* known = Contains(row)) return known;
    auto kept = std::make_unique<OBS[]>(fpImpl->fCells);
    std::memcpy(static_cast<void*>(kept.get()), row, fpImpl->fCells * sizeof(OBS));
    OBS* const place = kept.get();
    fpImpl->fRows.push_back(std::move(kept));
    fpImpl->fByKey.emplace(fpImpl->Key(place), place);
    return place;
}

OBS* ObsVecMap::operator[](std::size_t position) const {
    return fpImpl->fRows[position].get();
}

void ObsVecMap::Sort(std::vector<OBS*>& rows) const {
    rows.clear();
    for (const auto& row : fpImpl->fRows)
        rows.push_back(row.get());
    std::sort(rows.begin(), rows.end(), [this](const OBS* a, const OBS* b) { return fpImpl->Less(a, b); });
}
