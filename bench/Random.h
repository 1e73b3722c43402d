#pragma once

#include <cmath>
#include <cstdint>
#include <numbers>

namespace bench {

/// The generator of Steele, Lea and Flood (2014), "Fast splittable pseudorandom number generators": the same numbers on
/// every machine, which the standard library's distributions don't promise.
class Random {
public:
    explicit Random(std::uint64_t seed) : fState(seed) {}

    std::uint64_t Bits() {
        std::uint64_t z = (fState += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    double Uniform() { return (static_cast<double>(Bits() >> 11) + 0.5) * 0x1.0p-53; }
    int Below(int n) { return static_cast<int>(Uniform() * n); }
    double Normal() { return std::sqrt(-2.0 * std::log(Uniform())) * std::cos(2.0 * std::numbers::pi * Uniform()); }
    int Poisson(double mean) {
        const double limit = std::exp(-mean);
        int count = 0;
        for (double product = Uniform(); product > limit; product *= Uniform())
            ++count;
        return count;
    }
    int Binomial(int trials, double share) {
        int count = 0;
        for (int i = 0; i < trials; ++i)
            count += Uniform() < share;
        return count;
    }
    /// Mean shape, variance shape; shape at least 1 (Marsaglia and Tsang 2000, ACM Trans. Math. Software 26, 363-372).
    double Gamma(double shape) {
        const double d = shape - 1.0 / 3.0;
        const double c = 1.0 / std::sqrt(9.0 * d);
        while (true) {
            const double x = Normal();
            const double v = std::pow(1.0 + c * x, 3);
            if (v > 0.0 && std::log(Uniform()) < 0.5 * x * x + d - d * v + d * std::log(v)) return d * v;
        }
    }
    /// Variance mean^3 / shape (Michael, Schucany and Haas 1976, The American Statistician 30, 88-90).
    double InverseGaussian(double mean, double shape) {
        const double z = Normal();
        const double y = z * z;
        const double ratio = mean / (2.0 * shape);
        const double x = mean + mean * ratio * y - ratio * std::sqrt(4.0 * mean * shape * y + mean * mean * y * y);
        return Uniform() <= mean / (mean + x) ? x : mean * mean / x;
    }

private:
    std::uint64_t fState;
};

}  // namespace bench
