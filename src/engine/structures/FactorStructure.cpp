#include "engine/structures/FactorStructure.h"

#include "engine/structures/ParamNames.h"
#include "engine/structures/PositionFill.h"
#include "engine/structures/StartValues.h"

#include <cmath>

namespace engine {

namespace {

constexpr double kLeastLoadingShare = 0.2;   // of a standard deviation: at a loading of 0 the slope in it may vanish
constexpr double kLeastDiagonalShare = 0.1;  // of a variance

class FactorStructure : public Structure {
public:
    FactorStructure(int dimension, bool heterogeneous)
        : fDimension(dimension), fHeterogeneous(heterogeneous), fParams(Infos(dimension, heterogeneous)) {}

    int Dimension() const override { return fDimension; }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return false; }

    Eigen::VectorXd Start(const StartHint& hint) const override {
        const Eigen::MatrixXd moments = UsableMoments(hint, fDimension);
        const Eigen::VectorXd variances = moments.diagonal();
        Eigen::VectorXd loadings = variances.cwiseSqrt().cwiseProduct(StandardLoadings(CorrelationOf(moments)));
        if (fDimension == 1) loadings.setZero();
        const Eigen::VectorXd rest = (variances - loadings.cwiseAbs2()).cwiseMax(kLeastDiagonalShare * variances);
        Eigen::VectorXd theta(fParams.size());
        theta.head(fDimension) = loadings;
        if (fHeterogeneous) {
            theta.tail(fDimension) = rest;
        } else {
            theta[fDimension] = rest.mean();
        }
        return theta;
    }

    bool Feasible(const Eigen::VectorXd& theta) const override { return WithinBounds(fParams, theta); }

    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out, [&](int hi, int lo) {
            return theta[hi] * theta[lo] + (hi == lo ? theta[fDimension + (fHeterogeneous ? hi : 0)] : 0.0);
        });
    }

    void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out, [&](int hi, int lo) {
            if (k < fDimension) return (hi == k ? theta[lo] : 0.0) + (lo == k ? theta[hi] : 0.0);
            return hi == lo && (!fHeterogeneous || hi == k - fDimension) ? 1.0 : 0.0;
        });
    }

    bool Second(const Eigen::VectorXd&, const Places& places, int k, int l, Eigen::MatrixXd& out) const override {
        if (k >= fDimension || l >= fDimension) return false;
        FillByPositions(places.fPositions, out, [&](int hi, int lo) {
            return (hi == k && lo == l ? 1.0 : 0.0) + (hi == l && lo == k ? 1.0 : 0.0);
        });
        return true;
    }

private:
    static std::vector<ParamInfo> Infos(int dimension, bool heterogeneous) {
        const std::string word = heterogeneous ? "FAH1" : "FA1";
        std::vector<ParamInfo> infos;
        for (int i = 0; i < dimension; ++i) {
            infos.push_back({Indexed(word + " loading", i), ParamKind::kLoading, -kUnbounded, kUnbounded});
            infos.back().fFixed = dimension == 1;
        }
        if (!heterogeneous) infos.push_back(VarianceInfo(word + " diagonal"));
        for (int i = 0; heterogeneous && i < dimension; ++i)
            infos.push_back(VarianceInfo(Indexed(word + " diagonal", i)));
        return infos;
    }

    /// Loadings of a correlation matrix: its first principal component less the mean of the other eigenvalues, each
    /// kept away from zero, their sum positive.
    static Eigen::VectorXd StandardLoadings(const Eigen::MatrixXd& correlation) {
        const Eigen::Index n = correlation.rows();
        const Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> eigen(correlation);
        const double first = eigen.eigenvalues()[n - 1];
        const double others = n > 1 ? (static_cast<double>(n) - first) / (static_cast<double>(n) - 1.0) : 0.0;
        Eigen::VectorXd loadings = eigen.eigenvectors().col(n - 1) * std::sqrt(std::max(0.0, first - others));
        if (loadings.sum() < 0.0) loadings = -loadings;
        return loadings.unaryExpr([](double value) {
            return std::abs(value) < kLeastLoadingShare ? std::copysign(kLeastLoadingShare, value) : value;
        });
    }

    const int fDimension;
    const bool fHeterogeneous;
    const std::vector<ParamInfo> fParams;
};

}  // namespace

std::unique_ptr<Structure> MakeFactor(int dimension, bool heterogeneous) {
    return std::make_unique<FactorStructure>(dimension, heterogeneous);
}

}  // namespace engine
