#pragma once

#include "engine/model/Workers.h"

namespace engine {

/// Cholesky factor and inverse of one large symmetric matrix, by square tiles shared out among threads. Every tile sees
/// the same operations in the same order however many threads there are.
///
/// Both work in place on the lower triangle of a column-major array of order n with leading dimension n; what is above
/// the diagonal is neither read nor kept within diagonal tiles. crew may be null: one thread.

/// S = L L'. False when S is not positive definite.
bool TiledFactor(double* s, int n, Workers* crew);

/// S^-1 from L: first L^-1, then L^-T L^-1.
void TiledInvert(double* l, int n, Workers* crew);

/// c = S b for the symmetric S in the lower triangle of s; b and c are n x columns.
void TiledMultiply(const double* s, int n, const double* b, int columns, double* c, Workers* crew);

}  // namespace engine
