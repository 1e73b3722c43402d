#pragma once

#include "run/RunValue.h"

#include <memory>

namespace engine {

/// A link function g with eta = g(mu). All calls are for values within range, and thread-safe.
class Link {
public:
    virtual ~Link() = default;
    /// mu = g^-1(eta).
    virtual double Mean(double eta) const = 0;
    /// d mu / d eta.
    virtual double Slope(double eta) const = 0;
    /// eta = g(mu).
    virtual double Predictor(double mu) const = 0;
    /// 1 - mu, without loss of digits where mu is near 1.
    virtual double Complement(double eta) const { return 1.0 - Mean(eta); }
    /// Whether eta has a mean at all.
    virtual bool Admits(double /*eta*/) const { return true; }
};

/// A link by name; power is the exponent of the power link, and not 0.
/// Formulas: McCullagh and Nelder 1989, sections 2.2.4 and 4.3.1.
std::unique_ptr<Link> MakeLink(run::Link link, double power = 1.0);

/// Whether the exponential of a coefficient has a meaning of its own: a ratio of means, or of odds.
bool HasExponentialReading(run::Link link);

}  // namespace engine
