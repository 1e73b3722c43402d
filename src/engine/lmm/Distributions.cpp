#include "engine/lmm/Distributions.h"

#include <boost/math/distributions/chi_squared.hpp>
#include <boost/math/distributions/fisher_f.hpp>
#include <boost/math/distributions/normal.hpp>
#include <boost/math/distributions/students_t.hpp>
#include <cmath>
#include <limits>
#include <numbers>

namespace engine {

namespace {

namespace bm = boost::math;
using Policy = bm::policies::policy<
    bm::policies::domain_error<bm::policies::ignore_error>, bm::policies::pole_error<bm::policies::ignore_error>,
    bm::policies::overflow_error<bm::policies::ignore_error>, bm::policies::underflow_error<bm::policies::ignore_error>,
    bm::policies::evaluation_error<bm::policies::ignore_error>, bm::policies::promote_double<false>>;

constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

}  // namespace

double TwoSidedT(double t, double df) {
    if (!std::isfinite(t) || !(df > 0.0)) return kNone;
    if (std::isinf(df)) return TwoSidedNormal(t);
    // The library loses digits near 0 with one degree of freedom, where the closed form is at hand.
    if (df == 1.0) return 2.0 / std::numbers::pi * std::atan2(1.0, std::abs(t));
    return 2.0 * bm::cdf(bm::complement(bm::students_t_distribution<double, Policy>(df), std::abs(t)));
}

double UpperF(double f, double df1, double df2) {
    if (!std::isfinite(f) || !(df1 > 0.0) || !(df2 > 0.0)) return kNone;
    if (f <= 0.0) return 1.0;
    if (std::isinf(df2)) return bm::cdf(bm::complement(bm::chi_squared_distribution<double, Policy>(df1), f * df1));
    return bm::cdf(bm::complement(bm::fisher_f_distribution<double, Policy>(df1, df2), f));
}

double TwoSidedNormal(double z) {
    return std::isnan(z) ? kNone : std::erfc(std::abs(z) / std::numbers::sqrt2);
}

double UpperT(double df, double confidence) {
    if (!(df > 0.0) || !(confidence >= 0.0) || !(confidence < 1.0)) return kNone;
    if (std::isinf(df)) return UpperNormal(confidence);
    return bm::quantile(bm::complement(bm::students_t_distribution<double, Policy>(df), 0.5 * (1.0 - confidence)));
}

double UpperNormal(double confidence) {
    if (!(confidence >= 0.0) || !(confidence < 1.0)) return kNone;
    return bm::quantile(bm::complement(bm::normal_distribution<double, Policy>(), 0.5 * (1.0 - confidence)));
}

}  // namespace engine
