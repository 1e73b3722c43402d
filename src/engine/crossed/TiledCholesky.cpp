#include "engine/crossed/TiledCholesky.h"

#include "engine/model/Blas.h"
#include "engine/model/Share.h"

#include <algorithm>
#include <cblas.h>
#include <cstddef>
#include <functional>
#include <lapacke.h>
#include <vector>

namespace engine {

namespace {

/// Tiles of a square array.
class Tiles {
public:
    Tiles(double* data, int order) : fData(data), fOrder(order), fSize(order < 1024 ? 128 : 256) {}
    int Count() const { return (fOrder + fSize - 1) / fSize; }
    int Begin(int i) const { return i * fSize; }
    int Width(int i) const { return std::min(fSize, fOrder - Begin(i)); }
    int After(int i) const { return fOrder - Begin(i) - Width(i); }
    double* At(int i, int j) const { return fData + static_cast<std::size_t>(Begin(j)) * fOrder + Begin(i); }
    double* Below(int j) const { return At(j, j) + Width(j); }
    int Stride() const { return fOrder; }

private:
    double* fData;
    int fOrder;
    int fSize;
};

/// Chunks that call the linear algebra library.
void ShareCalls(Workers* crew, int chunks, const std::function<void(int)>& work) {
    Share(crew, chunks, [&work](int chunk) {
        EnterBlas();
        work(chunk);
    });
}

/// Column panel of L^-1: below the diagonal tile, -(L22^-1 L21) L11^-1, with L22^-1 already in place.
void InvertPanel(const Tiles& tiles, int j, std::vector<double>& copy, Workers* crew) {
    const int ld = tiles.Stride(), width = tiles.Width(j), rows = tiles.After(j);
    LAPACKE_dtrtri_work(LAPACK_COL_MAJOR, 'L', 'N', width, tiles.At(j, j), ld);
    copy.resize(static_cast<std::size_t>(rows) * width);
    for (int c = 0; c < width; ++c)
        std::copy_n(tiles.Below(j) + static_cast<std::size_t>(c) * ld, rows,
                    copy.data() + static_cast<std::size_t>(c) * rows);
    const int first = j + 1;
    ShareCalls(crew, tiles.Count() - first, [&](int chunk) {
        // The longest rows first.
        const int i = tiles.Count() - 1 - chunk;
        const int height = tiles.Width(i), before = tiles.Begin(i) - tiles.Begin(first);
        double* out = tiles.At(i, j);
        cblas_dtrmm(CblasColMajor, CblasLeft, CblasLower, CblasNoTrans, CblasNonUnit, height, width, -1.0,
                    tiles.At(i, i), ld, out, ld);
        if (before > 0)
            cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, height, width, before, -1.0, tiles.At(i, first), ld,
                        copy.data(), rows, 1.0, out, ld);
        cblas_dtrmm(CblasColMajor, CblasRight, CblasLower, CblasNoTrans, CblasNonUnit, height, width, 1.0,
                    tiles.At(j, j), ld, out, ld);
    });
}

}  // namespace

bool TiledFactor(double* s, int n, Workers* crew) {
    EnterBlas();
    const Tiles tiles(s, n);
    const int ld = tiles.Stride(), count = tiles.Count();
    for (int k = 0; k < count; ++k) {
        const int width = tiles.Width(k);
        if (LAPACKE_dpotrf_work(LAPACK_COL_MAJOR, 'L', width, tiles.At(k, k), ld) != 0) return false;
        const int below = count - k - 1;
        ShareCalls(crew, below, [&](int chunk) {
            const int i = k + 1 + chunk;
            cblas_dtrsm(CblasColMajor, CblasRight, CblasLower, CblasTrans, CblasNonUnit, tiles.Width(i), width, 1.0,
                        tiles.At(k, k), ld, tiles.At(i, k), ld);
        });
        ShareCalls(crew, below, [&](int chunk) {
            const int j = k + 1 + chunk;
            cblas_dsyrk(CblasColMajor, CblasLower, CblasNoTrans, tiles.Width(j), width, -1.0, tiles.At(j, k), ld, 1.0,
                        tiles.At(j, j), ld);
            if (tiles.After(j) > 0)
                cblas_dgemm(CblasColMajor, CblasNoTrans, CblasTrans, tiles.After(j), tiles.Width(j), width, -1.0,
                            tiles.At(j, k) + tiles.Width(j), ld, tiles.At(j, k), ld, 1.0, tiles.Below(j), ld);
        });
    }
    return true;
}

void TiledInvert(double* l, int n, Workers* crew) {
    EnterBlas();
    const Tiles tiles(l, n);
    const int ld = tiles.Stride();
    std::vector<double> copy;
    for (int j = tiles.Count() - 1; j >= 0; --j)
        InvertPanel(tiles, j, copy, crew);
    // Row i of W'W needs W's rows from i on: those before may be overwritten.
    for (int i = 0; i < tiles.Count(); ++i) {
        const int width = tiles.Width(i), rows = tiles.After(i);
        ShareCalls(crew, i, [&](int j) {
            double* out = tiles.At(i, j);
            cblas_dtrmm(CblasColMajor, CblasLeft, CblasLower, CblasTrans, CblasNonUnit, width, tiles.Width(j), 1.0,
                        tiles.At(i, i), ld, out, ld);
            if (rows > 0)
                cblas_dgemm(CblasColMajor, CblasTrans, CblasNoTrans, width, tiles.Width(j), rows, 1.0, tiles.Below(i),
                            ld, out + width, ld, 1.0, out, ld);
        });
        LAPACKE_dlauum_work(LAPACK_COL_MAJOR, 'L', width, tiles.At(i, i), ld);
        if (rows > 0)
            cblas_dsyrk(CblasColMajor, CblasLower, CblasTrans, width, rows, 1.0, tiles.Below(i), ld, 1.0,
                        tiles.At(i, i), ld);
    }
}

void TiledMultiply(const double* s, int n, const double* b, int columns, double* c, Workers* crew) {
    EnterBlas();
    constexpr int kPanel = 256;
    ShareCalls(crew, (columns + kPanel - 1) / kPanel, [&](int chunk) {
        const std::size_t at = static_cast<std::size_t>(chunk) * kPanel * n;
        cblas_dsymm(CblasColMajor, CblasLeft, CblasLower, n, std::min(kPanel, columns - chunk * kPanel), 1.0, s, n,
                    b + at, n, 0.0, c + at, n);
    });
}

}  // namespace engine
