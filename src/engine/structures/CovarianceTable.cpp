#include "engine/structures/LinearStructure.h"
#include "engine/structures/Structure.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace engine {

namespace {

std::unique_ptr<Structure> OneVariance(const StructureShape& shape) {
    return MakeVariances(std::vector<int>(shape.fDimension, 0));
}

std::unique_ptr<Structure> VariancePerPosition(const StructureShape& shape) {
    std::vector<int> groups(shape.fDimension);
    std::iota(groups.begin(), groups.end(), 0);
    return MakeVariances(std::move(groups));
}

std::unique_ptr<Structure> VariancePerEffect(const StructureShape& shape) {
    if (shape.fEffectColumns.empty()) return OneVariance(shape);
    std::vector<int> groups;
    int effect = 0;
    for (const int columns : shape.fEffectColumns)
        groups.insert(groups.end(), columns, effect++);
    return static_cast<int>(groups.size()) == shape.fDimension ? MakeVariances(std::move(groups)) : nullptr;
}

std::unique_ptr<Structure> AllFree(const StructureShape& shape) {
    return MakeUnstructured(shape.fDimension);
}

struct Entry {
    CovarianceTraits fTraits;
    std::unique_ptr<Structure> (*fMake)(const StructureShape&);
};

constexpr CovarianceTraits OnPositions(CovarianceType type, std::string_view word) {
    return {type, word, false, false, true, true};
}

constexpr std::array kEntries = {
    Entry{OnPositions(CovarianceType::kDIAG, "DIAG"), VariancePerPosition},
    Entry{OnPositions(CovarianceType::kID, "ID"), OneVariance},
    Entry{OnPositions(CovarianceType::kUN, "UN"), AllFree},
    Entry{OnPositions(CovarianceType::kVC, "VC"), VariancePerEffect},
};

const Entry* Find(CovarianceType type) {
    const auto found =
        std::find_if(kEntries.begin(), kEntries.end(), [&](const Entry& entry) { return entry.fTraits.fType == type; });
    return found == kEntries.end() ? nullptr : &*found;
}

}  // namespace

std::vector<CovarianceTraits> AllCovarianceTraits() {
    std::vector<CovarianceTraits> traits;
    for (const Entry& entry : kEntries)
        traits.push_back(entry.fTraits);
    return traits;
}

const CovarianceTraits* FindCovarianceTraits(CovarianceType type) {
    const Entry* entry = Find(type);
    return entry ? &entry->fTraits : nullptr;
}

std::string_view CovarianceWord(CovarianceType type) {
    const Entry* entry = Find(type);
    return entry ? entry->fTraits.fWord : std::string_view{};
}

std::unique_ptr<Structure> MakeStructure(CovarianceType type, const StructureShape& shape) {
    const Entry* entry = Find(type);
    return entry && shape.fDimension >= 1 && shape.fSecondDimension >= 1 ? entry->fMake(shape) : nullptr;
}

}  // namespace engine
