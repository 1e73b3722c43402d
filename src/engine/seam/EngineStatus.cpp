#include "contracts/EngineStatus.h"

#include <algorithm>
#include <limits>

double MCMV::Missing() {
    return std::numeric_limits<double>::lowest();
}

bool MCMV::IsMissing(double value) {
    return value == Missing();
}

long MCStatus::GetDiscreteDatum(unsigned index) const {
    return fpDiscrete && index < fpDiscrete->size() ? (*fpDiscrete)[index] : 0;
}

void MCStatus::AddDiscreteDatum(long datum) {
    auto data = fpDiscrete ? *fpDiscrete : std::vector<long>();
    data.push_back(datum);
    fpDiscrete = std::make_shared<const std::vector<long>>(std::move(data));
}

namespace {

std::size_t LowerTriangleIndex(int row, int column) {
    const auto [small, large] = std::minmax(row, column);
    return static_cast<std::size_t>(large) * (large + 1) / 2 + small;
}

}  // namespace

double MCSymMatrix::GetElem(int blockRow, int blockColumn, int row, int column) const {
    if (blockRow != 0 || blockColumn != 0) return MCMV::Missing();
    if (row < 0 || column < 0 || row >= fOrder || column >= fOrder) return MCMV::Missing();
    return fvElems[LowerTriangleIndex(row, column)];
}

void MCSymMatrix::SetElem(int row, int column, double value) {
    fvElems[LowerTriangleIndex(row, column)] = value;
}

int MCBitSet::InSet() const {
    return static_cast<int>(std::count(fvBits.begin(), fvBits.end(), true));
}
