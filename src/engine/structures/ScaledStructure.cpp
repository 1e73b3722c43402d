#include "engine/structures/ScaledStructure.h"

#include "engine/structures/AffineStructure.h"
#include "engine/structures/CholeskyStructure.h"
#include "engine/structures/ParamNames.h"
#include "engine/structures/PositionFill.h"
#include "engine/structures/StartValues.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

std::vector<ParamInfo> Joined(std::vector<ParamInfo> params, const std::vector<ParamInfo>& more) {
    params.insert(params.end(), more.begin(), more.end());
    return params;
}

Eigen::VectorXd Joined(const Eigen::VectorXd& head, const Eigen::VectorXd& tail) {
    Eigen::VectorXd joined(head.size() + tail.size());
    joined << head, tail;
    return joined;
}

/// Correlations that a family over positions starts from; families over distances read the hint instead.
Eigen::MatrixXd StartCorrelations(const StartHint& hint, int dimension) {
    return CorrelationOf(UsableMoments(hint, dimension));
}

}  // namespace

CommonScale::CommonScale(FamilyPointer family, int dimension)
    : fFamily(std::move(family)),
      fDimension(dimension),
      fParams(Joined({VarianceInfo("Variance")}, fFamily->Params())) {}

Eigen::VectorXd CommonScale::Start(const StartHint& hint) const {
    const Eigen::MatrixXd moments = UsableMoments(hint, fDimension);
    const Eigen::VectorXd variance = Eigen::VectorXd::Constant(1, moments.diagonal().mean());
    return MoveInside(*this, Joined(variance, fFamily->Inner(hint)),
                      Joined(variance, fFamily->Guess(CorrelationOf(moments), hint)));
}

std::vector<Eigen::VectorXd> CommonScale::StartGrid(const StartHint& hint) const {
    const Eigen::VectorXd variance = Start(hint).head(1);
    std::vector<Eigen::VectorXd> starts;
    for (const Eigen::VectorXd& rho : fFamily->Grid(hint))
        starts.push_back(Joined(variance, rho));
    return starts;
}

bool CommonScale::Feasible(const Eigen::VectorXd& theta) const {
    return WithinBounds(fParams, theta) && fFamily->Inside(theta.tail(theta.size() - 1));
}

void CommonScale::Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const {
    fFamily->Fill(theta.tail(theta.size() - 1), places, out);
    out *= theta[0];
}

void CommonScale::First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const {
    const auto rho = theta.tail(theta.size() - 1);
    if (k == 0) return fFamily->Fill(rho, places, out);
    fFamily->First(rho, places, k - 1, out);
    out *= theta[0];
}

bool CommonScale::Second(const Eigen::VectorXd& theta, const Places& places, int k, int l, Eigen::MatrixXd& out) const {
    if (k == 0 && l == 0) return false;
    const auto rho = theta.tail(theta.size() - 1);
    if (k == 0 || l == 0) {
        fFamily->First(rho, places, k + l - 1, out);
        return true;
    }
    if (!fFamily->Second(rho, places, k - 1, l - 1, out)) return false;
    out *= theta[0];
    return true;
}

namespace {

enum class Scale { kVariance, kDeviation };

/// The factor s of a row and column as a function of its parameter, and what its square is.
struct ScaleFactor {
    double fValue, fFirst, fSecond;      // s and its derivatives
    double fSquareFirst, fSquareSecond;  // derivatives of s * s

    ScaleFactor(Scale scale, double parameter) {
        if (scale == Scale::kDeviation) {
            fValue = parameter, fFirst = 1.0, fSecond = 0.0;
            fSquareFirst = 2.0 * parameter, fSquareSecond = 2.0;
            return;
        }
        fValue = std::sqrt(std::max(0.0, parameter));
        fFirst = fValue > 0.0 ? 0.5 / fValue : 0.0;
        fSecond = fValue > 0.0 ? -0.5 * fFirst / parameter : 0.0;
        fSquareFirst = 1.0, fSquareSecond = 0.0;
    }
};

class Heterogeneous : public Structure {
public:
    Heterogeneous(FamilyPointer family, int dimension, Scale scale)
        : fFamily(std::move(family)),
          fDimension(dimension),
          fScale(scale),
          fParams(Joined(VarianceInfos(dimension), fFamily->Params())) {}

    int Dimension() const override { return fDimension; }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return false; }

    Eigen::VectorXd Start(const StartHint& hint) const override {
        Eigen::VectorXd scale = UsableMoments(hint, fDimension).diagonal();
        if (fScale == Scale::kDeviation) scale = scale.cwiseSqrt();
        return MoveInside(*this, Joined(scale, fFamily->Inner(hint)),
                          Joined(scale, fFamily->Guess(StartCorrelations(hint, fDimension), hint)));
    }

    bool Feasible(const Eigen::VectorXd& theta) const override {
        return WithinBounds(fParams, theta) && fFamily->Inside(theta.tail(theta.size() - fDimension));
    }

    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        fFamily->Fill(Rho(theta), places, out);
        ScaleBothSides(theta, places, out);
    }

    void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const override {
        if (k >= fDimension) {
            fFamily->First(Rho(theta), places, k - fDimension, out);
            return ScaleBothSides(theta, places, out);
        }
        fFamily->Fill(Rho(theta), places, out);
        ScaleFirst(theta, places, k, out);
    }

    bool Second(const Eigen::VectorXd& theta, const Places& places, int k, int l, Eigen::MatrixXd& out) const override {
        if (k > l) std::swap(k, l);
        if (k >= fDimension) {
            if (!fFamily->Second(Rho(theta), places, k - fDimension, l - fDimension, out)) return false;
            ScaleBothSides(theta, places, out);
            return true;
        }
        if (l >= fDimension) {
            fFamily->First(Rho(theta), places, l - fDimension, out);
            ScaleFirst(theta, places, k, out);
            return true;
        }
        fFamily->Fill(Rho(theta), places, out);
        ScaleSecond(theta, places, k, l, out);
        return true;
    }

    std::unique_ptr<Structure> Working() const override {
        if (fScale == Scale::kDeviation) return nullptr;
        return std::make_unique<Heterogeneous>(fFamily, fDimension, Scale::kDeviation);
    }

    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        if (fScale == Scale::kDeviation) return Structure::FromWorking(working, jacobian);
        Eigen::VectorXd theta = working;
        theta.head(fDimension) = working.head(fDimension).cwiseAbs2();
        if (jacobian) {
            jacobian->setIdentity(theta.size(), theta.size());
            jacobian->diagonal().head(fDimension) = 2.0 * working.head(fDimension);
        }
        return theta;
    }

    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        if (fScale == Scale::kDeviation) return theta;
        Eigen::VectorXd working = theta;
        working.head(fDimension) = theta.head(fDimension).cwiseMax(0.0).cwiseSqrt();
        return working;
    }

protected:
    CorrelationFamily::Values Rho(const Eigen::VectorXd& theta) const { return theta.tail(theta.size() - fDimension); }

    /// The factor of each row.
    Eigen::VectorXd RowFactors(const Eigen::VectorXd& theta, const Places& places) const {
        Eigen::VectorXd factors(places.Size());
        for (int i = 0; i < places.Size(); ++i)
            factors[i] = ScaleFactor(fScale, theta[places.fPositions[i]]).fValue;
        return factors;
    }

    void ScaleBothSides(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const {
        const Eigen::VectorXd factors = RowFactors(theta, places);
        out.array().colwise() *= factors.array();
        out.array().rowwise() *= factors.transpose().array();
    }

    /// Turns a correlation matrix (or a derivative of it) into the derivative of its scaled form in scale parameter k.
    void ScaleFirst(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const {
        const ScaleFactor own(fScale, theta[k]);
        const Eigen::VectorXd factors = RowFactors(theta, places);
        for (int j = 0; j < places.Size(); ++j) {
            const bool column = places.fPositions[j] == k;
            for (int i = 0; i < places.Size(); ++i) {
                const bool row = places.fPositions[i] == k;
                if (row && column) {
                    out(i, j) *= own.fSquareFirst;
                } else {
                    out(i, j) *= row ? own.fFirst * factors[j] : column ? own.fFirst * factors[i] : 0.0;
                }
            }
        }
    }

    /// The same for the second derivative in scale parameters k and l.
    void ScaleSecond(const Eigen::VectorXd& theta, const Places& places, int k, int l, Eigen::MatrixXd& out) const {
        const ScaleFactor first(fScale, theta[k]), second(fScale, theta[l]);
        const Eigen::VectorXd factors = RowFactors(theta, places);
        const auto factor = [&](int i, int j) {
            const int p = places.fPositions[i], q = places.fPositions[j];
            if (k != l) return (p == k && q == l) || (p == l && q == k) ? first.fFirst * second.fFirst : 0.0;
            if (p == k && q == k) return first.fSquareSecond;
            return p == k ? first.fSecond * factors[j] : q == k ? first.fSecond * factors[i] : 0.0;
        };
        for (int j = 0; j < places.Size(); ++j) {
            for (int i = 0; i < places.Size(); ++i)
                out(i, j) *= factor(i, j);
        }
    }

    const FamilyPointer fFamily;
    const int fDimension;
    const Scale fScale;
    const std::vector<ParamInfo> fParams;
};

class UnstructuredCorrelations : public Heterogeneous {
public:
    explicit UnstructuredCorrelations(int dimension)
        : Heterogeneous(MakeFreeCorrelations(dimension), dimension, Scale::kVariance) {}

    std::unique_ptr<Structure> Working() const override { return MakeCholesky(fDimension, false); }

    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        const Eigen::MatrixXd factor = UnpackLower(working, fDimension);
        const Eigen::MatrixXd covariance = factor * factor.transpose();
        Eigen::VectorXd theta(working.size());
        theta.head(fDimension) = covariance.diagonal();
        Eigen::MatrixXd outer = Eigen::MatrixXd::Zero(working.size(), working.size());  // theta in the covariances
        for (int i = 0; i < fDimension; ++i) {
            outer(i, TriangleIndex(i, i)) = 1.0;
            for (int j = 0; j < i; ++j) {
                const int row = fDimension + TriangleIndex(i - 1, j);
                const double product = covariance(i, i) * covariance(j, j);
                const double inverse = product > 0.0 ? 1.0 / std::sqrt(product) : 0.0;
                theta[row] = std::clamp(covariance(i, j) * inverse, -1.0, 1.0);
                if (inverse == 0.0) continue;
                outer(row, TriangleIndex(i, j)) = inverse;
                outer(row, TriangleIndex(i, i)) = -0.5 * theta[row] / covariance(i, i);
                outer(row, TriangleIndex(j, j)) = -0.5 * theta[row] / covariance(j, j);
            }
        }
        if (jacobian) *jacobian = outer * CholeskyJacobian(factor);
        return theta;
    }

    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        Places all;
        for (int i = 0; i < fDimension; ++i)
            all.fPositions.push_back(i);
        Eigen::MatrixXd covariance;
        Matrix(theta, all, covariance);
        return PackTriangle(SemidefiniteCholesky(covariance));
    }
};

/// (v, rho, u) with gamma = u - (1 - rho)/2.
class MovingAverageStructure : public CommonScale {
public:
    explicit MovingAverageStructure(int dimension) : CommonScale(MakeMovingAverage("ARMA11", dimension), dimension) {}

    std::unique_ptr<Structure> Working() const override {
        if (!HasWorking()) return nullptr;
        return MakeAffine(std::make_unique<CommonScale>(fFamily, Dimension()),
                          {VarianceInfo("Variance"),
                           CorrelationInfo("ARMA11 rho"),
                           {"ARMA11 gamma share", ParamKind::kScale, 0.0, 1.0}},
                          ToTheta(), Offset());
    }
    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        if (!HasWorking()) return Structure::FromWorking(working, jacobian);
        if (jacobian) *jacobian = ToTheta();
        return ToTheta() * working + Offset();
    }
    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        if (!HasWorking()) return theta;
        return Eigen::Vector3d(theta[0], theta[1], std::clamp(theta[2] + 0.5 * (1.0 - theta[1]), 0.0, 1.0));
    }

private:
    bool HasWorking() const { return Dimension() > 2; }
    static Eigen::Matrix3d ToTheta() {
        Eigen::Matrix3d matrix = Eigen::Matrix3d::Identity();
        matrix(2, 1) = 0.5;
        return matrix;
    }
    static Eigen::Vector3d Offset() { return {0.0, 0.0, -0.5}; }
};

class Correlation : public Structure {
public:
    Correlation(FamilyPointer family, int dimension) : fFamily(std::move(family)), fDimension(dimension) {}

    int Dimension() const override { return fDimension; }
    const std::vector<ParamInfo>& Params() const override { return fFamily->Params(); }
    bool IsLinear() const override { return false; }

    Eigen::VectorXd Start(const StartHint& hint) const override {
        return MoveInside(*this, fFamily->Inner(hint), fFamily->Guess(StartCorrelations(hint, fDimension), hint));
    }
    bool Feasible(const Eigen::VectorXd& theta) const override {
        return WithinBounds(Params(), theta) && fFamily->Inside(theta);
    }
    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        fFamily->Fill(theta, places, out);
    }
    void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const override {
        fFamily->First(theta, places, k, out);
    }
    bool Second(const Eigen::VectorXd& theta, const Places& places, int k, int l, Eigen::MatrixXd& out) const override {
        return fFamily->Second(theta, places, k, l, out);
    }

private:
    const FamilyPointer fFamily;
    const int fDimension;
};

}  // namespace

std::unique_ptr<Structure> MakeHeterogeneous(FamilyPointer family, int dimension) {
    return std::make_unique<Heterogeneous>(std::move(family), dimension, Scale::kVariance);
}

std::unique_ptr<Structure> MakeUnstructuredCorrelations(int dimension) {
    return std::make_unique<UnstructuredCorrelations>(dimension);
}

std::unique_ptr<Structure> MakeMovingAverageStructure(int dimension) {
    return std::make_unique<MovingAverageStructure>(dimension);
}

std::unique_ptr<Structure> MakeCorrelation(FamilyPointer family, int dimension) {
    return std::make_unique<Correlation>(std::move(family), dimension);
}

}  // namespace engine
