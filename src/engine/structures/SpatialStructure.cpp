#include "engine/structures/SpatialStructure.h"

#include "engine/structures/ParamNames.h"
#include "engine/structures/ScaledStructure.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

constexpr double kLeastRange = 1e-60;  // stands for a range of 0, where quotients by it would overflow
constexpr Eigen::Index kStripColumns = 64;
constexpr int kCoarseGrid = 8;       // a smooth law has few valleys
constexpr int kFineGrid = 32;        // one with kinks has many
constexpr double kGridReach = 4.0;   // greatest range of the grid, in greatest distances
constexpr double kStartShare = 0.5;  // starting range between the least (0) and the greatest (1) distance, in logs

/// The distances that a hint names, made usable: 0 < least <= greatest.
struct DistanceRange {
    double fLeast, fGreatest;

    explicit DistanceRange(const StartHint& hint) {
        const bool usable = std::isfinite(hint.fMaxDistance) && hint.fMaxDistance > 0.0;
        fGreatest = usable ? hint.fMaxDistance : 1.0;
        fLeast = hint.fMinDistance > 0.0 ? std::min(hint.fMinDistance, fGreatest) : fGreatest;
    }

    /// Geometric mean of the two, the share moving it towards the greatest; always beyond the least.
    double Between(double share) const {
        return std::max(std::exp((1.0 - share) * std::log(fLeast) + share * std::log(fGreatest)), 1.25 * fLeast);
    }

    /// A geometric sequence of ranges from just beyond the least distance.
    std::vector<double> Grid(int points) const {
        const double from = std::log(1.25 * fLeast), to = std::log(kGridReach * fGreatest);
        std::vector<double> ranges;
        for (int i = 0; i < points; ++i)
            ranges.push_back(std::exp(from + (to - from) * i / (points - 1)));
        return ranges;
    }
};

using Distances = Eigen::Map<const Eigen::ArrayXXd, 0, Eigen::OuterStride<>>;
using Results = Eigen::Map<Eigen::ArrayXXd, 0, Eigen::OuterStride<>>;

/// Evaluates a function of distances for a symmetric matrix of them: strips of columns from the diagonal down, as whole
/// arrays, each then mirrored, so that no entry beyond a strip's own square is computed twice.
template <class Function>
void EvaluateSymmetric(const Eigen::MatrixXd& distances, Eigen::MatrixXd& out, const Function& function) {
    const Eigen::Index n = distances.rows();
    out.resize(n, n);
    const Eigen::OuterStride<> stride(n);
    for (Eigen::Index from = 0; from < n; from += kStripColumns) {
        const Eigen::Index width = std::min(kStripColumns, n - from), rest = n - from - width;
        function(Distances(&distances.coeffRef(from, from), n - from, width, stride),
                 Results(&out.coeffRef(from, from), n - from, width, stride));
        out.block(from, from + width, width, rest) = out.block(from + width, from, rest, width).transpose();
    }
}

/// A law tells correlation and derivatives in its parameter for an array of distances, the bounds and name of that
/// parameter, and its value for correlations that are nearly gone beyond a distance.
template <class Law>
class DistanceFamily : public CorrelationFamily {
public:
    DistanceFamily() : CorrelationFamily({Law::Info()}) {}

    void Fill(const Values& rho, const Places& places, Eigen::MatrixXd& out) const override {
        EvaluateSymmetric(places.fDistances, out,
                          [&](const Distances& d, Results values) { Law::Value(d, rho[0], values); });
    }
    void First(const Values& rho, const Places& places, int, Eigen::MatrixXd& out) const override {
        EvaluateSymmetric(places.fDistances, out,
                          [&](const Distances& d, Results values) { Law::First(d, rho[0], values); });
    }
    bool Second(const Values& rho, const Places& places, int, int, Eigen::MatrixXd& out) const override {
        if constexpr (Law::kPiecewiseLinear) {
            return false;
        } else {
            EvaluateSymmetric(places.fDistances, out,
                              [&](const Distances& d, Results values) { Law::Second(d, rho[0], values); });
            return true;
        }
    }

    Eigen::VectorXd Guess(const Eigen::MatrixXd&, const StartHint& hint) const override { return Inner(hint); }
    Eigen::VectorXd Inner(const StartHint& hint) const override {
        return Eigen::VectorXd::Constant(1, Law::FromRange(DistanceRange(hint).Between(kStartShare)));
    }
    std::vector<Eigen::VectorXd> Grid(const StartHint& hint) const override {
        std::vector<Eigen::VectorXd> points;
        for (const double range : DistanceRange(hint).Grid(Law::kGridPoints)) {
            points.push_back(Eigen::VectorXd::Constant(1, Law::FromRange(range)));
        }
        return points;
    }
};

/// The inverse of a range, a range of 0 standing for a very small one.
double Rate(double range) {
    return 1.0 / std::max(range, kLeastRange);
}

ParamInfo RangeInfo(const std::string& name) {
    return {name, ParamKind::kRange, 0.0, kUnbounded};
}

ParamInfo SlopeInfo(const std::string& name) {
    return {name, ParamKind::kScale, 0.0, kUnbounded};
}

struct ExponentialLaw {
    static constexpr int kGridPoints = kCoarseGrid;
    static constexpr bool kPiecewiseLinear = false;
    static ParamInfo Info() { return RangeInfo("SPEXP range"); }
    static double FromRange(double range) { return 0.5 * range; }  // exp(-2) there
    static void Value(const Distances& d, double t, Results& out) { out = (d * -Rate(t)).exp(); }
    static void First(const Distances& d, double t, Results& out) {
        const double rate = Rate(t);
        out = (d * -rate).exp() * (d * rate) * rate;
    }
    static void Second(const Distances& d, double t, Results& out) {
        const double rate = Rate(t);
        out = (d * -rate).exp() * (d * rate) * (d * rate - 2.0) * rate * rate;
    }
};

struct PowerLaw {
    static constexpr int kGridPoints = kCoarseGrid;
    static constexpr bool kPiecewiseLinear = false;
    static ParamInfo Info() { return CorrelationInfo("SPPOW rho", 0.0, 1.0); }
    static double FromRange(double range) { return std::exp(-1.0 / ExponentialLaw::FromRange(range)); }
    static void Value(const Distances& d, double rho, Results& out) { out = (d * LogOf(rho)).exp(); }
    static void First(const Distances& d, double rho, Results& out) {
        if (rho <= 0.0) return AtZero(d, 1.0, 1.0, out);
        out = (d * LogOf(rho)).exp() * d / rho;
    }
    static void Second(const Distances& d, double rho, Results& out) {
        if (rho <= 0.0) return AtZero(d, 2.0, 2.0, out);
        out = (d * LogOf(rho)).exp() * d * (d - 1.0) / (rho * rho);
    }

private:
    static double LogOf(double rho) { return rho > 0.0 ? std::log(rho) : -1.0 / kLeastRange; }

    /// Derivatives at rho = 0: only the distance of that power has one that is neither zero nor infinite.
    static void AtZero(const Distances& d, double power, double value, Results& out) {
        out = (d == power).select(Eigen::ArrayXXd::Constant(d.rows(), d.cols(), value), 0.0);
    }
};

struct GaussianLaw {
    static constexpr int kGridPoints = kCoarseGrid;
    static constexpr bool kPiecewiseLinear = false;
    static ParamInfo Info() { return RangeInfo("SPGAU range"); }
    static double FromRange(double range) { return range / 1.5; }  // exp(-2.25) there
    static void Value(const Distances& d, double t, Results& out) { out = (-(d * Rate(t)).square()).exp(); }
    static void First(const Distances& d, double t, Results& out) {
        const double rate = Rate(t);
        out = (d * rate).square();
        out = (-out).exp() * out * (2.0 * rate);
    }
    static void Second(const Distances& d, double t, Results& out) {
        const double rate = Rate(t);
        out = (d * rate).square();
        out = (-out).exp() * out * (4.0 * out - 6.0) * rate * rate;
    }
};

struct LinearLaw {
    static constexpr int kGridPoints = kFineGrid;
    static constexpr bool kPiecewiseLinear = true;
    static ParamInfo Info() { return SlopeInfo("SPLIN rho"); }
    static double FromRange(double range) { return 1.0 / range; }
    static void Value(const Distances& d, double rho, Results& out) { out = (1.0 - rho * d).max(0.0); }
    static void First(const Distances& d, double rho, Results& out) { out = (rho * d < 1.0).select(-d, 0.0); }
};

struct LinearLogLaw {
    static constexpr int kGridPoints = kFineGrid;
    static constexpr bool kPiecewiseLinear = true;
    static ParamInfo Info() { return SlopeInfo("SPLINLOG rho"); }
    static double FromRange(double range) { return 1.0 / std::log(std::max(range, kLeastReach)); }
    static void Value(const Distances& d, double rho, Results& out) {
        PutLog(d, out);
        out = (1.0 - rho * out).max(0.0);
    }
    static void First(const Distances& d, double rho, Results& out) {
        PutLog(d, out);
        out = (rho * out < 1.0).select(-out, 0.0);
    }

private:
    static constexpr double kLeastReach = 1.05;  // distances near 1 are perfectly correlated whatever rho

    /// The logarithm of a distance; 0 for a row and itself, whose correlation is 1.
    static void PutLog(const Distances& d, Results& out) {
        out = (d > 0.0).select(d, 1.0);
        out = out.log();
    }
};

struct SphericalLaw {
    static constexpr int kGridPoints = kFineGrid;
    static constexpr bool kPiecewiseLinear = false;
    static ParamInfo Info() { return RangeInfo("SPSPH range"); }
    static double FromRange(double range) { return range; }
    static void Value(const Distances& d, double t, Results& out) {
        PutShare(d, t, out);
        out = 1.0 + out * (0.5 * out.square() - 1.5);
    }
    static void First(const Distances& d, double t, Results& out) {
        PutShare(d, t, out);
        out = out * (1.0 - out.square()) * (1.5 * Rate(t));
    }
    static void Second(const Distances& d, double t, Results& out) {
        const double rate = Rate(t);
        PutShare(d, t, out);
        out = (out < 1.0).select(3.0 * out * (2.0 * out.square() - 1.0) * rate * rate, 0.0);
    }

private:
    /// d / t, not beyond 1: there the correlation and its first derivative are 0.
    static void PutShare(const Distances& d, double t, Results& out) { out = (d * Rate(t)).min(1.0); }
};

/// A structure over distances has the order of its rows only; its family reads no moments.
template <class Law>
std::unique_ptr<Structure> Make() {
    return std::make_unique<CommonScale>(std::make_shared<DistanceFamily<Law>>(), 1);
}

/// The same correlation as the exponential one with range -1 / log(rho), in which it stays smooth near both ends.
class SpatialPower : public CommonScale {
public:
    SpatialPower() : CommonScale(std::make_shared<DistanceFamily<PowerLaw>>(), 1) {}

    std::unique_ptr<Structure> Working() const override { return MakeSpatialExponential(); }

    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        const double range = std::max(working[1], kLeastRange);
        const double rho = std::exp(-1.0 / range);
        if (jacobian) *jacobian = Eigen::Vector2d(1.0, rho / range / range).asDiagonal();
        return Eigen::Vector2d(working[0], rho);
    }

    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        const double rho = std::clamp(theta[1], 0.0, kGreatestRho);
        return Eigen::Vector2d(theta[0], rho > 0.0 ? -1.0 / std::log(rho) : 0.0);
    }

private:
    static constexpr double kGreatestRho = 1.0 - 0x1p-53;  // a correlation of 1 is an infinite range
};

}  // namespace

std::unique_ptr<Structure> MakeSpatialPower() {
    return std::make_unique<SpatialPower>();
}

std::unique_ptr<Structure> MakeSpatialExponential() {
    return Make<ExponentialLaw>();
}

std::unique_ptr<Structure> MakeSpatialGaussian() {
    return Make<GaussianLaw>();
}

std::unique_ptr<Structure> MakeSpatialLinear() {
    return Make<LinearLaw>();
}

std::unique_ptr<Structure> MakeSpatialLinearLog() {
    return Make<LinearLogLaw>();
}

std::unique_ptr<Structure> MakeSpatialSpherical() {
    return Make<SphericalLaw>();
}

}  // namespace engine
