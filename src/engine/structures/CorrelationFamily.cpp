#include "engine/structures/CorrelationFamily.h"

#include "engine/structures/ParamNames.h"
#include "engine/structures/PositionFill.h"
#include "engine/structures/StartValues.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>

namespace engine {

namespace {

using Values = CorrelationFamily::Values;

std::vector<ParamInfo> IndexedCorrelations(const std::string& name, int count) {
    std::vector<ParamInfo> infos;
    for (int i = 0; i < count; ++i)
        infos.push_back(CorrelationInfo(Indexed(name, i)));
    return infos;
}

/// Of one position there is no correlation: the parameter is held at zero.
ParamInfo HeldIf(bool held, ParamInfo info) {
    info.fFixed = held;
    return info;
}

/// Mean over each lag, the diagonal first.
Eigen::VectorXd LagMeans(const Eigen::MatrixXd& matrix) {
    Eigen::VectorXd means(matrix.rows());
    for (Eigen::Index lag = 0; lag < means.size(); ++lag)
        means[lag] = matrix.diagonal(-lag).mean();
    return means;
}

/// base^0, base^1 ... base^(count - 1).
Eigen::VectorXd Powers(double base, int count) {
    Eigen::VectorXd powers(count);
    double power = 1.0;
    for (int i = 0; i < count; ++i, power *= base)
        powers[i] = power;
    return powers;
}

class EqualCorrelation : public CorrelationFamily {
public:
    EqualCorrelation(const std::string& word, int dimension)
        : CorrelationFamily({HeldIf(
              dimension == 1, CorrelationInfo(word + " rho", dimension > 1 ? -1.0 / (dimension - 1.0) : -1.0, 1.0))}) {}

    void Fill(const Values& rho, const Places& places, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out, [&](int hi, int lo) { return hi == lo ? 1.0 : rho[0]; });
    }
    void First(const Values&, const Places& places, int, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out, [](int hi, int lo) { return hi == lo ? 0.0 : 1.0; });
    }
    bool Second(const Values&, const Places&, int, int, Eigen::MatrixXd&) const override { return false; }

    Eigen::VectorXd Guess(const Eigen::MatrixXd& correlation, const StartHint&) const override {
        const double n = static_cast<double>(correlation.rows());
        const double mean = n > 1.0 ? (correlation.sum() - n) / (n * (n - 1.0)) : 0.0;
        return Eigen::VectorXd::Constant(1, mean);
    }
};

/// Families whose entry depends on the lag alone: a table of the lags is made, from which the entries are read.
class LagFamily : public CorrelationFamily {
public:
    LagFamily(std::vector<ParamInfo> params, int dimension)
        : CorrelationFamily(std::move(params)), fDimension(dimension) {}

    void Fill(const Values& rho, const Places& places, Eigen::MatrixXd& out) const final {
        Read(Table(rho), places, out);
    }
    void First(const Values& rho, const Places& places, int k, Eigen::MatrixXd& out) const final {
        Read(TableFirst(rho, k), places, out);
    }
    bool Second(const Values& rho, const Places& places, int k, int l, Eigen::MatrixXd& out) const final {
        const Eigen::VectorXd table = TableSecond(rho, std::min(k, l), std::max(k, l));
        if (table.size() == 0) return false;
        Read(table, places, out);
        return true;
    }

protected:
    /// Values for the lags 0 to dimension - 1 and their derivatives (k <= l; empty when zero).
    virtual Eigen::VectorXd Table(const Values& rho) const = 0;
    virtual Eigen::VectorXd TableFirst(const Values& rho, int k) const = 0;
    virtual Eigen::VectorXd TableSecond(const Values& rho, int k, int l) const = 0;

    const int fDimension;

private:
    static void Read(const Eigen::VectorXd& table, const Places& places, Eigen::MatrixXd& out) {
        FillByPositions(places.fPositions, out, [&](int hi, int lo) { return table[hi - lo]; });
    }
};

class Autoregressive : public LagFamily {
public:
    Autoregressive(const std::string& word, int dimension)
        : LagFamily({HeldIf(dimension == 1, CorrelationInfo(word + " rho"))}, dimension) {}

    Eigen::VectorXd Guess(const Eigen::MatrixXd& correlation, const StartHint&) const override {
        return Eigen::VectorXd::Constant(1, fDimension > 1 ? LagMeans(correlation)[1] : 0.0);
    }

protected:
    Eigen::VectorXd Table(const Values& rho) const override { return Powers(rho[0], fDimension); }
    Eigen::VectorXd TableFirst(const Values& rho, int) const override {
        Eigen::VectorXd table = Eigen::VectorXd::Zero(fDimension);
        double power = 1.0;
        for (int lag = 1; lag < fDimension; ++lag, power *= rho[0])
            table[lag] = lag * power;
        return table;
    }
    Eigen::VectorXd TableSecond(const Values& rho, int, int) const override {
        Eigen::VectorXd table = Eigen::VectorXd::Zero(fDimension);
        double power = 1.0;
        for (int lag = 2; lag < fDimension; ++lag, power *= rho[0])
            table[lag] = lag * (lag - 1.0) * power;
        return table;
    }
};

class MovingAverage : public LagFamily {
public:
    MovingAverage(const std::string& word, int dimension)
        : LagFamily({HeldIf(dimension <= 2, CorrelationInfo(word + " rho")),
                     HeldIf(dimension == 1, CorrelationInfo(word + " gamma"))},
                    dimension) {}

    bool Inside(const Values& rho) const override {
        if (fDimension <= 2) return true;
        return rho[1] >= -0.5 * (1.0 - rho[0]) - kRoundingSlack && rho[1] <= 0.5 * (1.0 + rho[0]) + kRoundingSlack;
    }

    Eigen::VectorXd Guess(const Eigen::MatrixXd& correlation, const StartHint&) const override {
        if (fDimension == 1) return Eigen::Vector2d::Zero();
        const Eigen::VectorXd lags = LagMeans(correlation);
        if (fDimension == 2) return Eigen::Vector2d(0.0, lags[1]);
        // Without a correlation at lag 1 the matrix does not depend on rho, and iteration could not leave there.
        if (std::abs(lags[1]) < kLeastGamma) return Eigen::Vector2d(kPlainRho, kPlainGamma);
        const double ratio = std::clamp(lags[2] / lags[1], -kGreatestRho, kGreatestRho);
        return Eigen::Vector2d(ratio, std::clamp(lags[1], -0.5 * (1.0 - ratio), 0.5 * (1.0 + ratio)));
    }

protected:
    Eigen::VectorXd Table(const Values& rho) const override { return Shifted(1.0, rho[1], rho[0], 0); }
    Eigen::VectorXd TableFirst(const Values& rho, int k) const override {
        return k == 0 ? Shifted(0.0, rho[1], rho[0], 1) : Shifted(0.0, 1.0, rho[0], 0);
    }
    Eigen::VectorXd TableSecond(const Values& rho, int k, int l) const override {
        if (k == 1) return {};
        return l == 0 ? Shifted(0.0, rho[1], rho[0], 2) : Shifted(0.0, 1.0, rho[0], 1);
    }

private:
    static constexpr double kLeastGamma = 0.05, kPlainRho = 0.3, kPlainGamma = 0.2, kGreatestRho = 0.9;

    /// Lag 0: diagonal; lag k: factor times the derivative of that order of rho^(k - 1).
    Eigen::VectorXd Shifted(double diagonal, double factor, double rho, int order) const {
        Eigen::VectorXd table = Eigen::VectorXd::Zero(fDimension);
        table[0] = diagonal;
        double power = factor;
        for (int lag = 1 + order; lag < fDimension; ++lag, power *= rho) {
            double falling = 1.0;
            for (int i = 0; i < order; ++i)
                falling *= lag - 1.0 - i;
            table[lag] = falling * power;
        }
        return table;
    }
};

class LagCorrelations : public LagFamily {
public:
    LagCorrelations(const std::string& word, int dimension)
        : LagFamily(IndexedCorrelations(word + " rho", dimension - 1), dimension) {}

    bool Inside(const Values& rho) const override {
        Eigen::MatrixXd full(fDimension, fDimension);
        const Eigen::VectorXd table = Table(rho);
        for (int j = 0; j < fDimension; ++j) {
            for (int i = 0; i < fDimension; ++i)
                full(i, j) = table[std::abs(i - j)];
        }
        return IsPositiveSemidefinite(full);
    }

    Eigen::VectorXd Guess(const Eigen::MatrixXd& correlation, const StartHint&) const override {
        return LagMeans(correlation).tail(fDimension - 1);
    }

protected:
    Eigen::VectorXd Table(const Values& rho) const override {
        Eigen::VectorXd table(fDimension);
        table << 1.0, rho;
        return table;
    }
    Eigen::VectorXd TableFirst(const Values&, int k) const override { return Eigen::VectorXd::Unit(fDimension, k + 1); }
    Eigen::VectorXd TableSecond(const Values&, int, int) const override { return {}; }
};

/// Products of adjacent correlations between positions: those of some rows, and further ones that are asked for. Only
/// these are tabled, so that a subject with few of many levels costs little.
class PathProducts {
public:
    PathProducts(const Values& rho, const std::vector<int>& positions, std::initializer_list<int> further = {})
        : fIndex(rho.size() + 1) {
        std::vector<int> present(positions);
        present.insert(present.end(), further);
        std::sort(present.begin(), present.end());
        present.erase(std::unique(present.begin(), present.end()), present.end());
        const int count = static_cast<int>(present.size());
        fTable.resize(count, count);
        for (int i = 0; i < count; ++i) {
            fIndex[present[i]] = i;
            fTable(i, i) = 1.0;
            if (i == 0) continue;
            const double step = rho.segment(present[i - 1], present[i] - present[i - 1]).prod();
            fTable.row(i).head(i) = step * fTable.row(i - 1).head(i);
        }
    }

    /// From position lo up to hi, hi >= lo; 1 when they are equal.
    double operator()(int hi, int lo) const { return fTable(fIndex[hi], fIndex[lo]); }

private:
    std::vector<int> fIndex;  // row and column of the table by position
    Eigen::MatrixXd fTable;   // lower triangle
};

class Antedependence : public CorrelationFamily {
public:
    Antedependence(const std::string& word, int dimension)
        : CorrelationFamily(IndexedCorrelations(word + " rho", dimension - 1)) {}

    void Fill(const Values& rho, const Places& places, Eigen::MatrixXd& out) const override {
        const PathProducts product(rho, places.fPositions);
        FillByPositions(places.fPositions, out, [&](int hi, int lo) { return product(hi, lo); });
    }
    void First(const Values& rho, const Places& places, int k, Eigen::MatrixXd& out) const override {
        const PathProducts product(rho, places.fPositions, {k, k + 1});
        FillByPositions(places.fPositions, out,
                        [&](int hi, int lo) { return lo <= k && k < hi ? product(k, lo) * product(hi, k + 1) : 0.0; });
    }
    bool Second(const Values& rho, const Places& places, int k, int l, Eigen::MatrixXd& out) const override {
        if (k == l) return false;
        const int a = std::min(k, l), b = std::max(k, l);
        const PathProducts product(rho, places.fPositions, {a, a + 1, b, b + 1});
        FillByPositions(places.fPositions, out, [&](int hi, int lo) {
            return lo <= a && b < hi ? product(a, lo) * product(b, a + 1) * product(hi, b + 1) : 0.0;
        });
        return true;
    }

    Eigen::VectorXd Guess(const Eigen::MatrixXd& correlation, const StartHint&) const override {
        return correlation.diagonal(-1);
    }
};

class FreeCorrelations : public CorrelationFamily {
public:
    explicit FreeCorrelations(int dimension) : CorrelationFamily(Infos(dimension)), fDimension(dimension) {}

    void Fill(const Values& rho, const Places& places, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out,
                        [&](int hi, int lo) { return hi == lo ? 1.0 : rho[TriangleIndex(hi - 1, lo)]; });
    }
    void First(const Values&, const Places& places, int k, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out,
                        [&](int hi, int lo) { return hi != lo && TriangleIndex(hi - 1, lo) == k ? 1.0 : 0.0; });
    }
    bool Second(const Values&, const Places&, int, int, Eigen::MatrixXd&) const override { return false; }

    bool Inside(const Values& rho) const override {
        Eigen::MatrixXd full = Eigen::MatrixXd::Identity(fDimension, fDimension);
        for (int i = 1; i < fDimension; ++i) {
            for (int j = 0; j < i; ++j)
                full(i, j) = full(j, i) = rho[TriangleIndex(i - 1, j)];
        }
        return IsPositiveSemidefinite(full);
    }

    Eigen::VectorXd Guess(const Eigen::MatrixXd& correlation, const StartHint&) const override {
        Eigen::VectorXd rho(Params().size());
        for (int i = 1; i < fDimension; ++i) {
            for (int j = 0; j < i; ++j)
                rho[TriangleIndex(i - 1, j)] = correlation(i, j);
        }
        return rho;
    }

private:
    static std::vector<ParamInfo> Infos(int dimension) {
        std::vector<ParamInfo> infos;
        for (int i = 1; i < dimension; ++i) {
            for (int j = 0; j < i; ++j)
                infos.push_back(CorrelationInfo(Indexed("Corr", i, j)));
        }
        return infos;
    }

    const int fDimension;
};

}  // namespace

FamilyPointer MakeEqualCorrelation(const std::string& word, int dimension) {
    return std::make_shared<EqualCorrelation>(word, dimension);
}

FamilyPointer MakeAutoregressive(const std::string& word, int dimension) {
    return std::make_shared<Autoregressive>(word, dimension);
}

FamilyPointer MakeMovingAverage(const std::string& word, int dimension) {
    return std::make_shared<MovingAverage>(word, dimension);
}

FamilyPointer MakeAntedependence(const std::string& word, int dimension) {
    return std::make_shared<Antedependence>(word, dimension);
}

FamilyPointer MakeLagCorrelations(const std::string& word, int dimension) {
    return std::make_shared<LagCorrelations>(word, dimension);
}

FamilyPointer MakeFreeCorrelations(int dimension) {
    return std::make_shared<FreeCorrelations>(dimension);
}

}  // namespace engine
