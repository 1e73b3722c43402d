#include "engine/glmm/Link.h"

#include <boost/math/special_functions/erf.hpp>
#include <cmath>
#include <numbers>

namespace engine {

namespace {

using std::numbers::pi;
using std::numbers::sqrt2;

class IdentityLink : public Link {
public:
    double Mean(double eta) const override { return eta; }
    double Slope(double) const override { return 1.0; }
    double Predictor(double mu) const override { return mu; }
};

class LogLink : public Link {
public:
    double Mean(double eta) const override { return std::exp(eta); }
    double Slope(double eta) const override { return std::exp(eta); }
    double Predictor(double mu) const override { return std::log(mu); }
};

class LogComplementLink : public Link {
public:
    double Mean(double eta) const override { return -std::expm1(eta); }
    double Slope(double eta) const override { return -std::exp(eta); }
    double Predictor(double mu) const override { return std::log1p(-mu); }
    double Complement(double eta) const override { return std::exp(eta); }
};

class LogitLink : public Link {
public:
    double Mean(double eta) const override { return 1.0 / (1.0 + std::exp(-eta)); }
    double Slope(double eta) const override { return Mean(eta) * Complement(eta); }
    double Predictor(double mu) const override { return std::log(mu) - std::log1p(-mu); }
    double Complement(double eta) const override { return 1.0 / (1.0 + std::exp(eta)); }
};

class ProbitLink : public Link {
public:
    double Mean(double eta) const override { return 0.5 * std::erfc(-eta / sqrt2); }
    double Slope(double eta) const override { return std::exp(-0.5 * eta * eta) / std::sqrt(2.0 * pi); }
    double Predictor(double mu) const override { return -sqrt2 * boost::math::erfc_inv(2.0 * mu); }
    double Complement(double eta) const override { return Mean(-eta); }
};

class ComplementaryLogLogLink : public Link {
public:
    double Mean(double eta) const override { return -std::expm1(-std::exp(eta)); }
    double Slope(double eta) const override { return std::exp(eta - std::exp(eta)); }
    double Predictor(double mu) const override { return std::log(-std::log1p(-mu)); }
    double Complement(double eta) const override { return std::exp(-std::exp(eta)); }
};

class NegativeLogLogLink : public Link {
public:
    double Mean(double eta) const override { return std::exp(-std::exp(-eta)); }
    double Slope(double eta) const override { return std::exp(-eta - std::exp(-eta)); }
    double Predictor(double mu) const override { return -std::log(-std::log(mu)); }
    double Complement(double eta) const override { return -std::expm1(-std::exp(-eta)); }
};

class CauchitLink : public Link {
public:
    // atan(1/x) keeps the digits of a small tail.
    double Mean(double eta) const override {
        return eta < -1.0 ? -std::atan(1.0 / eta) / pi : 0.5 + std::atan(eta) / pi;
    }
    double Slope(double eta) const override { return 1.0 / (pi * (1.0 + eta * eta)); }
    double Predictor(double mu) const override { return std::tan(pi * (mu - 0.5)); }
    double Complement(double eta) const override { return Mean(-eta); }
};

class PowerLink : public Link {
public:
    explicit PowerLink(double power) : fPower(power) {}
    double Mean(double eta) const override { return std::pow(eta, 1.0 / fPower); }
    double Slope(double eta) const override { return std::pow(eta, 1.0 / fPower - 1.0) / fPower; }
    double Predictor(double mu) const override { return std::pow(mu, fPower); }
    bool Admits(double eta) const override { return eta > 0.0; }

private:
    double fPower;
};

}  // namespace

std::unique_ptr<Link> MakeLink(run::Link link, double power) {
    switch (link) {
        case run::Link::kIdentity:
            return std::make_unique<IdentityLink>();
        case run::Link::kLog:
            return std::make_unique<LogLink>();
        case run::Link::kLogComplement:
            return std::make_unique<LogComplementLink>();
        case run::Link::kLogit:
            return std::make_unique<LogitLink>();
        case run::Link::kProbit:
            return std::make_unique<ProbitLink>();
        case run::Link::kComplementaryLogLog:
            return std::make_unique<ComplementaryLogLogLink>();
        case run::Link::kNegativeLogLog:
            return std::make_unique<NegativeLogLogLink>();
        case run::Link::kCauchit:
            return std::make_unique<CauchitLink>();
        case run::Link::kPower:
            if (power == 1.0) return std::make_unique<IdentityLink>();
            return std::make_unique<PowerLink>(power);
    }
    return nullptr;
}

bool HasExponentialReading(run::Link link) {
    return link == run::Link::kLog || link == run::Link::kLogit;
}

}  // namespace engine
