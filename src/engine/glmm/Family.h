#pragma once

#include "engine/glmm/Link.h"
#include "run/RunValue.h"

#include <memory>
#include <string>

namespace engine {

/// A distribution of the exponential family as quasi-likelihood sees it: var(y) = scale * Variance(mu) / weight
/// (McCullagh and Nelder 1989, table 2.1). A binomial y is a proportion and its trials are part of the weight.
class Family {
public:
    virtual ~Family() = default;
    /// a(mu) at eta. Taken from the link, so that 1 - mu keeps its digits.
    virtual double Variance(const Link& link, double eta) const = 0;
    virtual bool InRange(double mu) const = 0;
    /// A mean within range near y, from which iteration may start. overall: the mean of all y.
    virtual double StartMean(double y, double trials, double overall) const = 0;
    /// Whether the scale is 1 unless a residual structure takes its place.
    virtual bool HasUnitScale() const = 0;
    /// What is wrong with a value of the target ("is below zero"), or null.
    virtual const char* Objection(double y, double trials) const = 0;
    /// Whether means have an upper and a lower limit that data can push them to.
    virtual bool IsBounded() const { return false; }
    /// Part of a(mu) that the dispersion multiplies; 0 for all but the negative binomial.
    virtual double DispersedVariance(double /*mu*/) const { return 0.0; }
};

/// Null for the multinomial distributions, which have no single mean. dispersion is the negative binomial's, 0 when it
/// is a parameter of the model.
std::unique_ptr<Family> MakeFamily(run::Distribution distribution, double dispersion = 0.0);

/// Whether the link may be used with the distribution.
bool IsAdmissible(run::Distribution distribution, run::Link link);

/// "binomial", "inverse Gaussian", and so on; "complementary log-log".
std::string NameOf(run::Distribution distribution);
std::string NameOf(run::Link link);

}  // namespace engine
