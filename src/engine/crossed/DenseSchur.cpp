#include "engine/crossed/SchurComplement.h"
#include "engine/crossed/TiledCholesky.h"
#include "engine/model/Blas.h"

#include <algorithm>
#include <cblas.h>
#include <cmath>

namespace engine {

namespace {

/// S in the lower triangle of a square array, factored and inverted in place.
class DenseSchur final : public SchurComplement {
public:
    DenseSchur(int order, Workers* crew) : fOrder(order), fCrew(crew), fMap(nullptr, 0, 0) {}

    int Order() const override { return fOrder; }

    void Reset() override {
        if (fData.size() == 0) fData.resize(static_cast<std::size_t>(fOrder) * fOrder);
        new (&fMap) Eigen::Map<Eigen::MatrixXd>(fData.data(), fOrder, fOrder);
        fMap.setIdentity();
        fInverted = fWhole = false;
    }

    void Add(int column, const int* rows, const double* values, int count) override {
        double* into = Column(column);
        for (int i = 0; i < count; ++i)
            into[rows[i]] += values[i];
    }

    double Diagonal(int i) const override { return Column(i)[i]; }

    bool Factor() override {
        if (!TiledFactor(fMap.data(), fOrder, fCrew)) return false;
        fLogDeterminant = 0.0;
        for (int i = 0; i < fOrder; ++i)
            fLogDeterminant += 2.0 * std::log(Diagonal(i));
        return std::isfinite(fLogDeterminant);
    }

    double LogDeterminant() const override { return fLogDeterminant; }

    void Solve(Eigen::MatrixXd& b) const override {
        if (fOrder == 0 || b.cols() == 0) return;
        const int columns = static_cast<int>(b.cols());
        if (!fInverted) {
            EnterBlas();
            for (CBLAS_TRANSPOSE side : {CblasNoTrans, CblasTrans})
                cblas_dtrsm(CblasColMajor, CblasLeft, CblasLower, side, CblasNonUnit, fOrder, columns, 1.0, fMap.data(),
                            fOrder, b.data(), fOrder);
            return;
        }
        Eigen::MatrixXd product(fOrder, columns);
        TiledMultiply(fMap.data(), fOrder, b.data(), columns, product.data(), fCrew);
        b.swap(product);
    }

    void Invert() override {
        TiledInvert(fMap.data(), fOrder, fCrew);
        fInverted = true;
    }

    double Entry(int row, int column) const override { return Column(column)[row]; }

    Eigen::MatrixXd Form(const int* cols, const Eigen::Ref<const Eigen::MatrixXd>& h) const override {
        const Eigen::Index n = h.cols();
        if (h.rows() == 1) {
            double sum = 0.0;
            for (Eigen::Index a = 0; a < n; ++a) {
                const double* column = Column(cols[a]);
                double below = 0.0;
                for (Eigen::Index b = a + 1; b < n; ++b)
                    below += column[cols[b]] * h(0, b);
                sum += h(0, a) * (column[cols[a]] * h(0, a) + 2.0 * below);
            }
            return Eigen::MatrixXd::Constant(1, 1, sum);
        }
        Eigen::MatrixXd block(n, n);
        for (Eigen::Index a = 0; a < n; ++a)
            for (Eigen::Index b = a; b < n; ++b)
                block(b, a) = Column(cols[a])[cols[b]];
        return h * (block.selfadjointView<Eigen::Lower>() * h.transpose());
    }

    const Eigen::Map<Eigen::MatrixXd>* WholeInverse() override {
        if (!fInverted) return nullptr;
        if (!fWhole) Mirror();
        return &fMap;
    }

    bool IsDense() const override { return true; }
    bool IsInverted() const override { return fInverted; }

    double Work() const override { return static_cast<double>(fOrder) * fOrder * fOrder; }

private:
    double* Column(int c) { return fMap.data() + static_cast<std::size_t>(c) * fOrder; }
    const double* Column(int c) const { return fMap.data() + static_cast<std::size_t>(c) * fOrder; }

    void Mirror() {
        constexpr int kTile = 64;
        for (int c = 0; c < fOrder; c += kTile)
            for (int r = c; r < fOrder; r += kTile)
                for (int i = c; i < std::min(c + kTile, fOrder); ++i)
                    for (int j = std::max(r, i + 1); j < std::min(r + kTile, fOrder); ++j)
                        Column(j)[i] = Column(i)[j];
        fWhole = true;
    }

    int fOrder;
    Workers* fCrew;
    Eigen::VectorXd fData;
    Eigen::Map<Eigen::MatrixXd> fMap;
    double fLogDeterminant = 0.0;
    bool fInverted = false;
    bool fWhole = false;
};

}  // namespace

std::unique_ptr<SchurComplement> MakeDenseSchur(int order, Workers* crew) {
    return std::make_unique<DenseSchur>(order, crew);
}

}  // namespace engine
