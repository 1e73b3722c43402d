#include "engine/structures/SpatialStructure.h"

#include "engine/structures/ParamNames.h"
#include "engine/structures/ScaledStructure.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

constexpr double kLeastRange = 1e-60;  // stands for a range of 0, where quotients by it would overflow
constexpr int kGridPoints = 8;
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
    std::vector<double> Grid() const {
        const double from = std::log(1.25 * fLeast), to = std::log(kGridReach * fGreatest);
        std::vector<double> ranges;
        for (int i = 0; i < kGridPoints; ++i)
            ranges.push_back(std::exp(from + (to - from) * i / (kGridPoints - 1)));
        return ranges;
    }
};

/// A law tells correlation and derivatives in its parameter for a whole matrix of distances, the bounds and name of
/// that parameter, and its value when correlation is nearly gone at a distance of t.
template <class Law>
class DistanceFamily : public CorrelationFamily {
public:
    DistanceFamily() : CorrelationFamily({Law::Info()}) {}

    void Fill(const Values& rho, const Places& places, Eigen::MatrixXd& out) const override {
        out.resize(places.fDistances.rows(), places.fDistances.cols());
        Law::Value(places.fDistances.array(), rho[0], out);
    }
    void First(const Values& rho, const Places& places, int, Eigen::MatrixXd& out) const override {
        out.resize(places.fDistances.rows(), places.fDistances.cols());
        Law::First(places.fDistances.array(), rho[0], out);
    }
    bool Second(const Values& rho, const Places& places, int, int, Eigen::MatrixXd& out) const override {
        if constexpr (requires { Law::Second(places.fDistances.array(), rho[0], out); }) {
            out.resize(places.fDistances.rows(), places.fDistances.cols());
            Law::Second(places.fDistances.array(), rho[0], out);
            return true;
        }
        return false;
    }

    Eigen::VectorXd Guess(const Eigen::MatrixXd&, const StartHint& hint) const override { return Inner(hint); }
    Eigen::VectorXd Inner(const StartHint& hint) const override {
        return Eigen::VectorXd::Constant(1, Law::FromRange(DistanceRange(hint).Between(kStartShare)));
    }
    std::vector<Eigen::VectorXd> Grid(const StartHint& hint) const override {
        std::vector<Eigen::VectorXd> points;
        for (const double range : DistanceRange(hint).Grid()) {
            points.push_back(Eigen::VectorXd::Constant(1, Law::FromRange(range)));
        }
        return points;
    }
};

using Distances = Eigen::ArrayWrapper<const Eigen::MatrixXd>;

ParamInfo RangeInfo(const std::string& name) {
    return {name, ParamKind::kRange, 0.0, kUnbounded};
}

ParamInfo SlopeInfo(const std::string& name) {
    return {name, ParamKind::kScale, 0.0, kUnbounded};
}

struct ExponentialLaw {
    static ParamInfo Info() { return RangeInfo("SPEXP range"); }
    static double FromRange(double range) { return range / kRangesToNothing; }
    static void Value(const Distances& d, double t, Eigen::MatrixXd& out) {
        out = (d * (-1.0 / std::max(t, kLeastRange))).exp().matrix();
    }
    static void First(const Distances& d, double t, Eigen::MatrixXd& out) {
        const double rate = 1.0 / std::max(t, kLeastRange);
        out = ((d * -rate).exp() * (d * rate) * rate).matrix();
    }
    static void Second(const Distances& d, double t, Eigen::MatrixXd& out) {
        const double rate = 1.0 / std::max(t, kLeastRange);
        out = ((d * -rate).exp() * (d * rate) * (d * rate - 2.0) * rate * rate).matrix();
    }
    static constexpr double kRangesToNothing = 2.0;  // correlation exp(-2) counts as nearly gone
};

struct PowerLaw {
    static ParamInfo Info() { return CorrelationInfo("SPPOW rho", 0.0, 1.0); }
    static double FromRange(double range) { return std::exp(-1.0 / ExponentialLaw::FromRange(range)); }
    static void Value(const Distances& d, double rho, Eigen::MatrixXd& out) { out = (d * LogOf(rho)).exp().matrix(); }
    static void First(const Distances& d, double rho, Eigen::MatrixXd& out) {
        if (rho <= 0.0) return AtZero(d, 1.0, 1.0, out);
        out = ((d * LogOf(rho)).exp() * d / rho).matrix();
    }
    static void Second(const Distances& d, double rho, Eigen::MatrixXd& out) {
        if (rho <= 0.0) return AtZero(d, 2.0, 2.0, out);
        out = ((d * LogOf(rho)).exp() * d * (d - 1.0) / (rho * rho)).matrix();
    }

private:
    static double LogOf(double rho) { return rho > 0.0 ? std::log(rho) : -1.0 / kLeastRange; }

    /// Derivatives at rho = 0: only the distance of that power has one that is neither zero nor infinite.
    static void AtZero(const Distances& d, double power, double value, Eigen::MatrixXd& out) {
        out = (d == power).select(Eigen::ArrayXXd::Constant(d.rows(), d.cols(), value), 0.0).matrix();
    }
};

struct GaussianLaw {
    static ParamInfo Info() { return RangeInfo("SPGAU range"); }
    static double FromRange(double range) { return range / kRangesToNothing; }
    static void Value(const Distances& d, double t, Eigen::MatrixXd& out) {
        out = (-(d / std::max(t, kLeastRange)).square()).exp().matrix();
    }
    static void First(const Distances& d, double t, Eigen::MatrixXd& out) {
        const double rate = 1.0 / std::max(t, kLeastRange);
        out = (d * rate).square().matrix();
        out = ((-out.array()).exp() * out.array() * (2.0 * rate)).matrix();
    }
    static void Second(const Distances& d, double t, Eigen::MatrixXd& out) {
        const double rate = 1.0 / std::max(t, kLeastRange);
        out = (d * rate).square().matrix();
        out = ((-out.array()).exp() * out.array() * (4.0 * out.array() - 6.0) * rate * rate).matrix();
    }
    static constexpr double kRangesToNothing = 1.5;
};

struct LinearLaw {
    static ParamInfo Info() { return SlopeInfo("SPLIN rho"); }
    static double FromRange(double range) { return 1.0 / range; }
    static void Value(const Distances& d, double rho, Eigen::MatrixXd& out) { out = (1.0 - rho * d).max(0.0).matrix(); }
    static void First(const Distances& d, double rho, Eigen::MatrixXd& out) {
        out = (rho * d < 1.0).select(-d, 0.0).matrix();
    }
};

struct LinearLogLaw {
    static ParamInfo Info() { return SlopeInfo("SPLINLOG rho"); }
    static double FromRange(double range) { return 1.0 / std::log(std::max(range, kLeastReach)); }
    static void Value(const Distances& d, double rho, Eigen::MatrixXd& out) {
        out = (1.0 - rho * LogOf(d)).max(0.0).matrix();
    }
    static void First(const Distances& d, double rho, Eigen::MatrixXd& out) {
        out = LogOf(d).matrix();
        out = (rho * out.array() < 1.0).select(-out.array(), 0.0).matrix();
    }

private:
    static constexpr double kLeastReach = 1.05;  // distances near 1 are perfectly correlated whatever rho

    /// The logarithm of a distance; 0 for coinciding rows, whose correlation is 1.
    static Eigen::ArrayXXd LogOf(const Distances& d) { return (d > 0.0).select(d, 1.0).log(); }
};

struct SphericalLaw {
    static ParamInfo Info() { return RangeInfo("SPSPH range"); }
    static double FromRange(double range) { return range; }
    static void Value(const Distances& d, double t, Eigen::MatrixXd& out) {
        out = Share(d, t);
        out = (1.0 + out.array() * (0.5 * out.array().square() - 1.5)).matrix();
    }
    static void First(const Distances& d, double t, Eigen::MatrixXd& out) {
        out = Share(d, t);
        out = (out.array() * (1.0 - out.array().square()) * (1.5 / std::max(t, kLeastRange))).matrix();
    }
    static void Second(const Distances& d, double t, Eigen::MatrixXd& out) {
        const double rate = 1.0 / std::max(t, kLeastRange);
        out = Share(d, t);
        out = (out.array() < 1.0)
                  .select(3.0 * out.array() * (2.0 * out.array().square() - 1.0) * rate * rate, 0.0)
                  .matrix();
    }

private:
    /// d / t, not beyond 1: there the correlation and its first derivative are 0.
    static Eigen::MatrixXd Share(const Distances& d, double t) {
        return (d * (1.0 / std::max(t, kLeastRange))).min(1.0).matrix();
    }
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
