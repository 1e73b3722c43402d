#pragma once

#include "engine/model/Matrices.h"

#include <algorithm>
#include <vector>

namespace engine {

/// Fills the rows' matrix from an entry of the full one: out(i, j) = entry(hi, lo) with hi >= lo the two positions.
/// Two rows may share a position (one factor of a Kronecker product), so equality is that of positions, not of rows.
template <class Entry>
void FillByPositions(const std::vector<int>& positions, Eigen::MatrixXd& out, Entry&& entry) {
    const int n = static_cast<int>(positions.size());
    out.resize(n, n);
    for (int j = 0; j < n; ++j) {
        for (int i = j; i < n; ++i) {
            const auto [lo, hi] = std::minmax(positions[i], positions[j]);
            out(i, j) = out(j, i) = entry(hi, lo);
        }
    }
}

/// Index of the entry (row, column), row >= column, in a lower triangle stored row by row.
constexpr int TriangleIndex(int row, int column) {
    return row * (row + 1) / 2 + column;
}

/// Number of entries of such a triangle, diagonal included.
constexpr int TriangleSize(int dimension) {
    return dimension * (dimension + 1) / 2;
}

}  // namespace engine
