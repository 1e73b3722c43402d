#include "engine/glmm/Family.h"

#include <array>
#include <cmath>

namespace engine {

namespace {

bool IsWhole(double value) {
    return std::floor(value) == value;
}

class NormalFamily : public Family {
public:
    double Variance(const Link&, double) const override { return 1.0; }
    bool InRange(double mu) const override { return std::isfinite(mu); }
    double StartMean(double y, double, double overall) const override { return 0.5 * (y + overall); }
    bool HasUnitScale() const override { return false; }
    const char* Objection(double, double) const override { return nullptr; }
};

class BinomialFamily : public Family {
public:
    double Variance(const Link& link, double eta) const override { return link.Mean(eta) * link.Complement(eta); }
    bool InRange(double mu) const override { return mu > 0.0 && mu <= 1.0; }
    double StartMean(double y, double trials, double) const override { return (trials * y + 0.5) / (trials + 1.0); }
    bool HasUnitScale() const override { return true; }
    bool IsBounded() const override { return true; }
    const char* Objection(double y, double trials) const override {
        if (!(trials >= 1.0)) return "has fewer than one trial";
        if (!IsWhole(trials)) return "has a number of trials that is not whole";
        const double events = std::round(y * trials);
        if (y < 0.0) return "has fewer than zero events";
        if (std::abs(y * trials - events) > 1e-9 * trials) return "has a number of events that is not whole";
        return events > trials ? "has more events than trials" : nullptr;
    }
};

/// Means above zero.
class PositiveFamily : public Family {
public:
    bool InRange(double mu) const override { return mu > 0.0 && std::isfinite(mu); }
    double StartMean(double y, double, double overall) const override { return 0.5 * (y + overall); }
};

class CountFamily : public PositiveFamily {
public:
    /// dispersion: k of the variance mu + k mu^2.
    explicit CountFamily(double dispersion) : fDispersion(dispersion) {}
    double Variance(const Link& link, double eta) const override {
        const double mu = link.Mean(eta);
        return mu + fDispersion * mu * mu;
    }
    bool HasUnitScale() const override { return true; }
    const char* Objection(double y, double) const override {
        if (y < 0.0) return "is a count below zero";
        return IsWhole(y) ? nullptr : "is a count that is not whole";
    }
    double DispersedVariance(double mu) const override { return mu * mu; }

private:
    double fDispersion;
};

/// a(mu) = mu^power: 2 the gamma, 3 the inverse Gaussian distribution.
class SkewedFamily : public PositiveFamily {
public:
    explicit SkewedFamily(int power) : fPower(power) {}
    double Variance(const Link& link, double eta) const override { return std::pow(link.Mean(eta), fPower); }
    bool HasUnitScale() const override { return false; }
    const char* Objection(double y, double) const override { return y > 0.0 ? nullptr : "is not above zero"; }

private:
    int fPower;
};

constexpr unsigned Bit(run::Link link) {
    return 1U << static_cast<unsigned>(link);
}

constexpr unsigned kGeneral = Bit(run::Link::kIdentity) | Bit(run::Link::kLog) | Bit(run::Link::kPower);
constexpr unsigned kTolerance = Bit(run::Link::kLogit) | Bit(run::Link::kProbit) |
                                Bit(run::Link::kComplementaryLogLog) | Bit(run::Link::kNegativeLogLog) |
                                Bit(run::Link::kCauchit);

struct FamilyEntry {
    const char* fName;
    unsigned fLinks;
};

/// In the order of run::Distribution.
constexpr std::array<FamilyEntry, 8> kFamilies{{{"normal", kGeneral},
                                                {"binomial", kGeneral | kTolerance | Bit(run::Link::kLogComplement)},
                                                {"Poisson", kGeneral},
                                                {"gamma", kGeneral},
                                                {"inverse Gaussian", kGeneral},
                                                {"negative binomial", kGeneral},
                                                {"ordinal multinomial", kTolerance},
                                                {"nominal multinomial", Bit(run::Link::kLogit)}}};

/// In the order of run::Link.
constexpr std::array<const char*, 9> kLinkNames{
    "identity",         "log",   "log complement", "logit", "probit", "complementary log-log",
    "negative log-log", "power", "Cauchit"};

const FamilyEntry& EntryOf(run::Distribution distribution) {
    return kFamilies[static_cast<std::size_t>(distribution)];
}

}  // namespace

std::unique_ptr<Family> MakeFamily(run::Distribution distribution, double dispersion) {
    switch (distribution) {
        case run::Distribution::kNormal:
            return std::make_unique<NormalFamily>();
        case run::Distribution::kBinomial:
            return std::make_unique<BinomialFamily>();
        case run::Distribution::kPoisson:
            return std::make_unique<CountFamily>(0.0);
        case run::Distribution::kNegativeBinomial:
            return std::make_unique<CountFamily>(dispersion);
        case run::Distribution::kGamma:
            return std::make_unique<SkewedFamily>(2);
        case run::Distribution::kInverseGaussian:
            return std::make_unique<SkewedFamily>(3);
        default:
            return nullptr;
    }
}

bool IsAdmissible(run::Distribution distribution, run::Link link) {
    return (EntryOf(distribution).fLinks & Bit(link)) != 0;
}

std::string NameOf(run::Distribution distribution) {
    return EntryOf(distribution).fName;
}

std::string NameOf(run::Link link) {
    return kLinkNames[static_cast<std::size_t>(link)];
}

}  // namespace engine
