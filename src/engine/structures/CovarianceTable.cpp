#include "engine/structures/CorrelationFamily.h"
#include "engine/structures/FactorStructure.h"
#include "engine/structures/KroneckerStructure.h"
#include "engine/structures/LinearStructure.h"
#include "engine/structures/ScaledStructure.h"
#include "engine/structures/SpatialStructure.h"
#include "engine/structures/Structure.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <numeric>

namespace engine {

namespace {

std::unique_ptr<Structure> OneVariance(const StructureShape& shape) {
    return MakeVariances(std::vector<int>(shape.fDimension, 0), shape.fFixedVariance);
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

/// A maker that needs nothing but the number of positions.
template <auto Make>
std::unique_ptr<Structure> BySize(const StructureShape& shape) {
    return Make(shape.fDimension);
}

template <auto Make>
std::unique_ptr<Structure> BySpace(const StructureShape&) {
    return Make();
}

template <bool kHeterogeneous>
std::unique_ptr<Structure> OneFactor(const StructureShape& shape) {
    return MakeFactor(shape.fDimension, kHeterogeneous);
}

std::unique_ptr<Structure> AllFree(const StructureShape& shape) {
    return MakeUnstructured(shape.fDimension);
}

/// The parameters of a family begin with the word of the type that it serves.
using FamilyMaker = FamilyPointer (*)(const std::string& word, int dimension);

template <CovarianceType kType, FamilyMaker kMake>
std::unique_ptr<Structure> Common(const StructureShape& shape) {
    const int n = shape.fDimension;
    return std::make_unique<CommonScale>(kMake(std::string(CovarianceWord(kType)), n), n);
}

template <CovarianceType kType, FamilyMaker kMake>
std::unique_ptr<Structure> Heterogeneous(const StructureShape& shape) {
    const int n = shape.fDimension;
    return MakeHeterogeneous(kMake(std::string(CovarianceWord(kType)), n), n);
}

std::unique_ptr<Structure> FreeByFree(const StructureShape& shape) {
    return MakeKronecker(MakeUnstructured(shape.fDimension), MakeUnstructured(shape.fSecondDimension, true));
}

template <CovarianceType kSecond, FamilyMaker kMake>
std::unique_ptr<Structure> FreeByCorrelation(const StructureShape& shape) {
    const int n = shape.fSecondDimension;
    return MakeKronecker(MakeUnstructured(shape.fDimension),
                         MakeCorrelation(kMake(std::string(CovarianceWord(kSecond)), n), n));
}

/// What a spatial type demands of the places: a greatest number of coordinates (0: any) and a least distance between
/// rows; at exactly that distance the correlation is still 1.
struct SpaceDemand {
    int fMostCoordinates = 0;
    double fLeastDistance = 0.0;
};

struct Entry {
    CovarianceTraits fTraits;
    std::unique_ptr<Structure> (*fMake)(const StructureShape&);
    SpaceDemand fDemand = {};
};

constexpr CovarianceTraits OnPositions(CovarianceType type, std::string_view word) {
    return {type, word, false, false, true, true};
}

constexpr CovarianceTraits OnDistances(CovarianceType type, std::string_view word) {
    return {type, word, true, false, false, true};
}

constexpr CovarianceTraits OnPairs(CovarianceType type, std::string_view word) {
    return {type, word, false, true, false, true};
}

using enum CovarianceType;

constexpr Entry kEntries[] = {
    {OnPositions(kARH1, "ARH1"), Heterogeneous<kARH1, MakeAutoregressive>},
    {OnPositions(kAD1, "AD1"), Heterogeneous<kAD1, MakeAntedependence>},
    {OnPositions(kCS, "CS"), BySize<MakeCompoundSymmetry>},
    {OnPositions(kDIAG, "DIAG"), VariancePerPosition},
    {OnPositions(kID, "ID"), OneVariance},
    {OnPositions(kTP, "TP"), BySize<MakeToeplitz>},
    {OnPositions(kUN, "UN"), AllFree},
    {OnPositions(kVC, "VC"), VariancePerEffect},
    {OnPositions(kAR1, "AR1"), Common<kAR1, MakeAutoregressive>},
    {OnPositions(kARMA11, "ARMA11"), BySize<MakeMovingAverageStructure>},
    {OnPositions(kCSH, "CSH"), Heterogeneous<kCSH, MakeEqualCorrelation>},
    {OnPositions(kCSR, "CSR"), Common<kCSR, MakeEqualCorrelation>},
    {OnPositions(kFA1, "FA1"), OneFactor<false>},
    {OnPositions(kHF, "HF"), BySize<MakeHuynhFeldt>},
    {OnPositions(kTPH, "TPH"), Heterogeneous<kTPH, MakeLagCorrelations>},
    {OnPositions(kUNR, "UNR"), BySize<MakeUnstructuredCorrelations>},
    {OnPositions(kFAH1, "FAH1"), OneFactor<true>},
    {OnDistances(kSPPOW, "SPPOW"), BySpace<MakeSpatialPower>},
    {OnDistances(kSPEXP, "SPEXP"), BySpace<MakeSpatialExponential>},
    {OnDistances(kSPGAU, "SPGAU"), BySpace<MakeSpatialGaussian>},
    {OnDistances(kSPLIN, "SPLIN"), BySpace<MakeSpatialLinear>, {.fMostCoordinates = 1}},
    {OnDistances(kSPLINLOG, "SPLINLOG"), BySpace<MakeSpatialLinearLog>, {.fLeastDistance = 1.0}},
    {OnDistances(kSPSPH, "SPSPH"), BySpace<MakeSpatialSpherical>, {.fMostCoordinates = 3}},
    {OnPairs(kUN_UN, "UN_UN"), FreeByFree},
    {OnPairs(kUN_AR1, "UN_AR1"), FreeByCorrelation<kAR1, MakeAutoregressive>},
    {OnPairs(kUN_CS, "UN_CS"), FreeByCorrelation<kCS, MakeEqualCorrelation>},
};

const Entry* Find(CovarianceType type) {
    const auto found = std::find_if(std::begin(kEntries), std::end(kEntries),
                                    [&](const Entry& entry) { return entry.fTraits.fType == type; });
    return found == std::end(kEntries) ? nullptr : found;
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

std::string SpaceObjection(CovarianceType type, int spaceDimension, double leastDistance) {
    const Entry* entry = Find(type);
    if (!entry || !entry->fTraits.fNeedsDistances) return {};
    const std::string word(entry->fTraits.fWord);
    const SpaceDemand& demand = entry->fDemand;
    if (spaceDimension < 1) return "The structure " + word + " needs at least one coordinate variable.";
    if (demand.fMostCoordinates > 0 && spaceDimension > demand.fMostCoordinates) {
        return "The structure " + word + " is valid for at most " + std::to_string(demand.fMostCoordinates) +
               (demand.fMostCoordinates == 1 ? " coordinate, not " : " coordinates, not ") +
               std::to_string(spaceDimension) + "; choose another spatial structure.";
    }
    if (std::isnan(leastDistance) || leastDistance <= 0.0) {
        return "Two records of one subject have the same coordinates, so that the structure " + word +
               " would give them a correlation of 1; give each record of a subject its own place.";
    }
    if (leastDistance < demand.fLeastDistance) {
        return "The structure " + word +
               " needs distances of at least 1 between the records of a subject; rescale the coordinates or choose "
               "another spatial structure.";
    }
    if (leastDistance == demand.fLeastDistance) {
        return "The structure " + word +
               " would give two records at a distance of 1 a correlation of 1; rescale the coordinates so that all "
               "distances exceed 1, or choose another spatial structure.";
    }
    return {};
}

std::unique_ptr<Structure> MakeStructure(CovarianceType type, const StructureShape& shape) {
    const Entry* entry = Find(type);
    return entry && shape.fDimension >= 1 && shape.fSecondDimension >= 1 ? entry->fMake(shape) : nullptr;
}

}  // namespace engine
