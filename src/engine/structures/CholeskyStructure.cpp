#include "engine/structures/CholeskyStructure.h"

#include "engine/structures/ParamNames.h"
#include "engine/structures/PositionFill.h"
#include "engine/structures/StartValues.h"

#include <cmath>
#include <utility>

namespace engine {

namespace {

constexpr double kZeroPivot = 1e-14;  // share of the variance left by the columns before

class CholeskyStructure : public Structure {
public:
    CholeskyStructure(int dimension, bool fixedFirst) : fDimension(dimension), fFixedFirst(fixedFirst) {
        for (int i = 0; i < dimension; ++i) {
            for (int j = 0; j <= i; ++j) {
                fParams.push_back({Indexed("L", i, j), ParamKind::kLoading, -kUnbounded, kUnbounded});
                fCells.emplace_back(i, j);
            }
        }
        fParams.front().fFixed = fixedFirst;
    }

    int Dimension() const override { return fDimension; }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return false; }

    Eigen::VectorXd Start(const StartHint& hint) const override {
        const Eigen::MatrixXd moments = UsableMoments(hint, fDimension);
        const Eigen::MatrixXd factor = SemidefiniteCholesky(moments);
        return PackTriangle(fFixedFirst ? Eigen::MatrixXd(factor / factor(0, 0)) : factor);
    }

    bool Feasible(const Eigen::VectorXd& theta) const override { return WithinBounds(fParams, theta); }

    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out, [&](int hi, int lo) {
            const int length = lo + 1;
            return theta.segment(TriangleIndex(hi, 0), length).dot(theta.segment(TriangleIndex(lo, 0), length));
        });
    }

    void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const override {
        const auto [row, column] = fCells[k];
        const auto entry = [&theta, column = column](int i) {
            return i >= column ? theta[TriangleIndex(i, column)] : 0.0;
        };
        FillByPositions(places.fPositions, out, [&, row = row](int hi, int lo) {
            return (hi == row ? entry(lo) : 0.0) + (lo == row ? entry(hi) : 0.0);
        });
    }

    bool Second(const Eigen::VectorXd&, const Places& places, int k, int l, Eigen::MatrixXd& out) const override {
        const auto [row, column] = fCells[k];
        const auto [otherRow, otherColumn] = fCells[l];
        if (column != otherColumn) return false;
        FillByPositions(places.fPositions, out, [&, a = row, b = otherRow](int hi, int lo) {
            return (hi == a && lo == b ? 1.0 : 0.0) + (hi == b && lo == a ? 1.0 : 0.0);
        });
        return true;
    }

private:
    const int fDimension;
    const bool fFixedFirst;
    std::vector<ParamInfo> fParams;
    std::vector<std::pair<int, int>> fCells;  // row and column of each parameter
};

}  // namespace

std::unique_ptr<Structure> MakeCholesky(int dimension, bool fixedFirst) {
    return std::make_unique<CholeskyStructure>(dimension, fixedFirst);
}

Eigen::VectorXd PackTriangle(const Eigen::MatrixXd& matrix) {
    const int n = static_cast<int>(matrix.rows());
    Eigen::VectorXd values(TriangleSize(n));
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j <= i; ++j)
            values[TriangleIndex(i, j)] = matrix(i, j);
    }
    return values;
}

Eigen::MatrixXd UnpackLower(const Eigen::VectorXd& values, int dimension) {
    Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(dimension, dimension);
    for (int i = 0; i < dimension; ++i) {
        for (int j = 0; j <= i; ++j)
            matrix(i, j) = values[TriangleIndex(i, j)];
    }
    return matrix;
}

Eigen::MatrixXd UnpackSymmetric(const Eigen::VectorXd& values, int dimension) {
    return UnpackLower(values, dimension).selfadjointView<Eigen::Lower>();
}

Eigen::MatrixXd SemidefiniteCholesky(const Eigen::MatrixXd& matrix) {
    const Eigen::Index n = matrix.rows();
    Eigen::MatrixXd factor = Eigen::MatrixXd::Zero(n, n);
    for (Eigen::Index j = 0; j < n; ++j) {
        const double pivot = matrix(j, j) - factor.row(j).head(j).squaredNorm();
        if (!(pivot > kZeroPivot * matrix(j, j))) continue;
        factor(j, j) = std::sqrt(pivot);
        for (Eigen::Index i = j + 1; i < n; ++i) {
            factor(i, j) = (matrix(i, j) - factor.row(i).head(j).dot(factor.row(j).head(j))) / factor(j, j);
        }
    }
    return factor;
}

Eigen::MatrixXd CholeskyJacobian(const Eigen::MatrixXd& factor) {
    const int n = static_cast<int>(factor.rows());
    Eigen::MatrixXd jacobian = Eigen::MatrixXd::Zero(TriangleSize(n), TriangleSize(n));
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j <= i; ++j) {
            for (int c = 0; c <= j; ++c) {
                jacobian(TriangleIndex(i, j), TriangleIndex(i, c)) += factor(j, c);
                jacobian(TriangleIndex(i, j), TriangleIndex(j, c)) += factor(i, c);
            }
        }
    }
    return jacobian;
}

}  // namespace engine
