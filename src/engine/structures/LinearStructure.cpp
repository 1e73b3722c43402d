#include "engine/structures/LinearStructure.h"

#include "engine/structures/AffineStructure.h"
#include "engine/structures/CholeskyStructure.h"
#include "engine/structures/ParamNames.h"
#include "engine/structures/PositionFill.h"
#include "engine/structures/StartValues.h"

#include <algorithm>
#include <numeric>

namespace engine {

namespace {

/// A pattern tells the entry (hi, lo), hi >= lo, of the full matrix, its coefficient of parameter k, and the parameters
/// that come nearest to a given matrix. Inside, where it has one, tells whether parameters within their bounds give a
/// positive semidefinite matrix; otherwise a Cholesky factor decides.
template <class Pattern>
class LinearStructure : public Structure {
public:
    LinearStructure(int dimension, std::vector<ParamInfo> params, Pattern pattern)
        : fDimension(dimension), fParams(std::move(params)), fPattern(std::move(pattern)), fAll(dimension) {
        std::iota(fAll.begin(), fAll.end(), 0);
    }

    int Dimension() const override { return fDimension; }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return true; }

    Eigen::VectorXd Start(const StartHint& hint) const override {
        const Eigen::MatrixXd moments = UsableMoments(hint, fDimension);
        const Eigen::MatrixXd inner = moments.diagonal().mean() * Eigen::MatrixXd::Identity(fDimension, fDimension);
        return MoveInside(*this, fPattern.Nearest(inner), fPattern.Nearest(moments));
    }

    bool Feasible(const Eigen::VectorXd& theta) const override {
        if (!WithinBounds(fParams, theta)) return false;
        if constexpr (requires { fPattern.Inside(theta); }) {
            return fPattern.Inside(theta);
        } else {
            Eigen::MatrixXd full;
            Fill(theta, fAll, full);
            return IsPositiveSemidefinite(full);
        }
    }

    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        Fill(theta, places.fPositions, out);
    }

    void First(const Eigen::VectorXd&, const Places& places, int k, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out, [&](int hi, int lo) { return fPattern.Coefficient(k, hi, lo); });
    }

    bool Second(const Eigen::VectorXd&, const Places&, int, int, Eigen::MatrixXd&) const override { return false; }

protected:
    void Fill(const Eigen::VectorXd& theta, const std::vector<int>& positions, Eigen::MatrixXd& out) const {
        FillByPositions(positions, out, [&](int hi, int lo) { return fPattern.Value(theta, hi, lo); });
    }

    const int fDimension;
    const std::vector<ParamInfo> fParams;
    const Pattern fPattern;

private:
    std::vector<int> fAll;
};

struct VariancesPattern {
    std::vector<int> fGroups;
    int fCount;

    bool Inside(const Eigen::VectorXd&) const { return true; }
    /// A single variance is that of any position: a residual's records needn't be counted.
    int GroupOf(int position) const { return fCount == 1 ? 0 : fGroups[position]; }
    double Value(const Eigen::VectorXd& theta, int hi, int lo) const { return hi == lo ? theta[GroupOf(hi)] : 0.0; }
    double Coefficient(int k, int hi, int lo) const { return hi == lo && GroupOf(hi) == k ? 1.0 : 0.0; }
    Eigen::VectorXd Nearest(const Eigen::MatrixXd& matrix) const {
        Eigen::VectorXd sum = Eigen::VectorXd::Zero(fCount), members = sum;
        for (std::size_t i = 0; i < fGroups.size(); ++i) {
            sum[fGroups[i]] += matrix(i, i);
            members[fGroups[i]] += 1.0;
        }
        return sum.cwiseQuotient(members.cwiseMax(1.0));
    }
};

struct UnstructuredPattern {
    double Value(const Eigen::VectorXd& theta, int hi, int lo) const { return theta[TriangleIndex(hi, lo)]; }
    double Coefficient(int k, int hi, int lo) const { return TriangleIndex(hi, lo) == k ? 1.0 : 0.0; }
    Eigen::VectorXd Nearest(const Eigen::MatrixXd& matrix) const { return PackTriangle(matrix); }
};

class Unstructured : public LinearStructure<UnstructuredPattern> {
public:
    Unstructured(int dimension, std::vector<ParamInfo> params, bool fixedFirst)
        : LinearStructure(dimension, std::move(params), {}), fFixedFirst(fixedFirst) {}

    Eigen::VectorXd Start(const StartHint& hint) const override {
        const Eigen::VectorXd start = LinearStructure::Start(hint);
        return fFixedFirst ? Eigen::VectorXd(start / start[0]) : start;
    }

    std::unique_ptr<Structure> Working() const override { return MakeCholesky(fDimension, fFixedFirst); }

    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        const Eigen::MatrixXd factor = UnpackLower(working, fDimension);
        if (jacobian) *jacobian = CholeskyJacobian(factor);
        return PackTriangle(factor * factor.transpose());
    }

    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        return PackTriangle(SemidefiniteCholesky(UnpackSymmetric(theta, fDimension)));
    }

private:
    const bool fFixedFirst;
};

/// Mean of the entries below the diagonal, 0 if there are none.
double MeanBelowDiagonal(const Eigen::MatrixXd& matrix) {
    const double n = static_cast<double>(matrix.rows());
    return n > 1.0 ? (matrix.sum() - matrix.trace()) / (n * (n - 1.0)) : 0.0;
}

struct CompoundSymmetryPattern {
    int fDimension;

    double Value(const Eigen::VectorXd& theta, int hi, int lo) const { return (hi == lo ? theta[0] : 0.0) + theta[1]; }
    double Coefficient(int k, int hi, int lo) const { return k == 1 || hi == lo ? 1.0 : 0.0; }
    Eigen::VectorXd Nearest(const Eigen::MatrixXd& matrix) const {
        const double covariance = MeanBelowDiagonal(matrix);
        return Eigen::Vector2d(matrix.diagonal().mean() - covariance, covariance);
    }
    bool Inside(const Eigen::VectorXd& theta) const {
        const double other = theta[0] + fDimension * theta[1];
        return other >= -kRoundingSlack * theta[0];
    }
};

/// The matrix has the offset d as an eigenvalue n - 1 times, and d + n c once. On these two the boundary is a box.
class CompoundSymmetry : public LinearStructure<CompoundSymmetryPattern> {
public:
    using LinearStructure::LinearStructure;

    std::unique_ptr<Structure> Working() const override {
        if (fDimension == 1) return nullptr;
        return MakeAffine(MakeCompoundSymmetry(fDimension),
                          {VarianceInfo("CS eigenvalue(1)"), VarianceInfo("CS eigenvalue(2)")}, ToTheta(),
                          Eigen::Vector2d::Zero());
    }
    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        if (fDimension == 1) return Structure::FromWorking(working, jacobian);
        if (jacobian) *jacobian = ToTheta();
        return ToTheta() * working;
    }
    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        if (fDimension == 1) return theta;
        return Eigen::Vector2d(theta[0], std::max(0.0, theta[0] + fDimension * theta[1]));
    }

private:
    Eigen::Matrix2d ToTheta() const {
        Eigen::Matrix2d matrix;
        matrix << 1.0, 0.0, -1.0 / fDimension, 1.0 / fDimension;
        return matrix;
    }
};

struct BandedPattern {
    double Value(const Eigen::VectorXd& theta, int hi, int lo) const { return theta[hi - lo]; }
    double Coefficient(int k, int hi, int lo) const { return hi - lo == k ? 1.0 : 0.0; }
    Eigen::VectorXd Nearest(const Eigen::MatrixXd& matrix) const {
        Eigen::VectorXd bands(matrix.rows());
        for (Eigen::Index lag = 0; lag < bands.size(); ++lag)
            bands[lag] = matrix.diagonal(-lag).mean();
        return bands;
    }
};

struct HuynhFeldtPattern {
    int fDimension;

    double Value(const Eigen::VectorXd& theta, int hi, int lo) const {
        return hi == lo ? theta[hi] : 0.5 * (theta[hi] + theta[lo]) - theta[fDimension];
    }
    double Coefficient(int k, int hi, int lo) const {
        if (k == fDimension) return hi == lo ? 0.0 : -1.0;
        return 0.5 * ((hi == k ? 1.0 : 0.0) + (lo == k ? 1.0 : 0.0));
    }
    Eigen::VectorXd Nearest(const Eigen::MatrixXd& matrix) const {
        Eigen::VectorXd theta(fDimension + 1);
        theta << matrix.diagonal(), fDimension > 1 ? matrix.diagonal().mean() - MeanBelowDiagonal(matrix) : 0.0;
        return theta;
    }
};

}  // namespace

std::unique_ptr<Structure> MakeVariances(std::vector<int> groups, bool fixed) {
    const int dimension = static_cast<int>(groups.size());
    const int count = groups.empty() ? 0 : *std::max_element(groups.begin(), groups.end()) + 1;
    std::vector<ParamInfo> params = VarianceInfos(count);
    for (ParamInfo& param : params)
        param.fFixed = fixed;
    return std::make_unique<LinearStructure<VariancesPattern>>(dimension, std::move(params),
                                                               VariancesPattern{std::move(groups), count});
}

std::unique_ptr<Structure> MakeUnstructured(int dimension, bool fixedFirst) {
    std::vector<ParamInfo> params;
    for (int i = 0; i < dimension; ++i) {
        for (int j = 0; j < i; ++j)
            params.push_back(CovarianceInfo(Indexed("UN", i, j)));
        params.push_back(VarianceInfo(Indexed("UN", i, i)));
    }
    params.front().fFixed = fixedFirst;
    return std::make_unique<Unstructured>(dimension, std::move(params), fixedFirst);
}

std::unique_ptr<Structure> MakeCompoundSymmetry(int dimension) {
    std::vector<ParamInfo> params = {VarianceInfo("CS diagonal offset"), CovarianceInfo("CS covariance")};
    params.back().fFixed = dimension == 1;
    return std::make_unique<CompoundSymmetry>(dimension, std::move(params), CompoundSymmetryPattern{dimension});
}

std::unique_ptr<Structure> MakeToeplitz(int dimension) {
    std::vector<ParamInfo> params = {VarianceInfo("Variance")};
    for (int lag = 1; lag < dimension; ++lag) {
        params.push_back(CovarianceInfo("TP covariance(" + std::to_string(lag) + ")"));
    }
    return std::make_unique<LinearStructure<BandedPattern>>(dimension, std::move(params), BandedPattern{});
}

std::unique_ptr<Structure> MakeHuynhFeldt(int dimension) {
    std::vector<ParamInfo> params = VarianceInfos(dimension);
    params.push_back(CovarianceInfo("HF lambda"));
    params.back().fFixed = dimension == 1;
    return std::make_unique<LinearStructure<HuynhFeldtPattern>>(dimension, std::move(params),
                                                                HuynhFeldtPattern{dimension});
}

}  // namespace engine
