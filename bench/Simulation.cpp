/// Draws data from models with known parameters, fits them, and prints two tables: how often the 95 % limits of each
/// parameter hold the truth, target by target, and what becomes of binary targets in small clusters. Seeds are fixed.
///
/// usage: hierfit_simulation [--replicates N] [NAME...]

#include "bench/Random.h"
#include "engine/glmm/GlmmFit.h"
#include "engine/lmm/LmmFit.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <string>
#include <vector>

namespace {

using bench::Random;
using run::Distribution;
using run::Link;

enum Column { kTarget, kX, kG, kCluster, kTrials, kColumns };

struct Study {
    std::string fName;
    Distribution fDistribution;
    Link fLink;
    int fClusters = 50;
    int fPerCluster = 50;
    double fDeviation = 0.7;  ///< of the clusters' random intercepts
    int fTrialsEach = 0;      ///< events of so many trials
    double fScale = 1.0;      ///< residual variance, scale, or dispersion
    bool fScaleReported = false;
};

constexpr double kIntercept = -0.3;
constexpr double kWithin = 0.5;   // coefficient of x, which changes from record to record
constexpr double kBetween = 0.4;  // coefficient of g, which is a cluster's
constexpr double kThresholds[] = {-1.0, 0.2, 1.4};
constexpr double kSecondLogit[] = {0.2, -0.4, 0.3};  // intercept, x and g of a nominal target's second category

double Logistic(double eta) {
    return 1.0 / (1.0 + std::exp(-eta));
}

/// A value of the target; eta holds a linear predictor, or two for a nominal target.
double Draw(const Study& study, const double* eta, Random& random) {
    const double mean = std::exp(eta[0]);
    switch (study.fDistribution) {
        case Distribution::kNormal:
            return eta[0] + std::sqrt(study.fScale) * random.Normal();
        case Distribution::kBinomial: {
            const double share = study.fLink == Link::kLogit ? Logistic(eta[0]) : 0.5 * std::erfc(-eta[0] / M_SQRT2);
            return random.Binomial(std::max(1, study.fTrialsEach), share);
        }
        case Distribution::kPoisson:
            return random.Poisson(mean);
        case Distribution::kNegativeBinomial:
            return random.Poisson(mean * study.fScale * random.Gamma(1.0 / study.fScale));
        case Distribution::kGamma:
            return mean * study.fScale * random.Gamma(1.0 / study.fScale);
        case Distribution::kInverseGaussian:
            return random.InverseGaussian(mean, 1.0 / study.fScale);
        case Distribution::kOrdinal: {
            const double latent = eta[0] + std::log(1.0 / random.Uniform() - 1.0);
            return static_cast<double>(std::count_if(std::begin(kThresholds), std::end(kThresholds),
                                                     [&](double threshold) { return latent > threshold; }));
        }
        case Distribution::kNominal: {
            const double first = std::exp(eta[0]);
            const double second = std::exp(eta[1]);
            const double u = random.Uniform() * (1.0 + first + second);
            return u < first ? 0 : u < first + second ? 1 : 2;
        }
    }
    return 0.0;
}

std::vector<double> DrawRecords(const Study& study, Random& random) {
    const double level = study.fDistribution == Distribution::kOrdinal ? 0.0 : kIntercept;
    std::vector<double> records;
    for (int c = 0; c < study.fClusters; ++c) {
        const double g = c % 2;
        const double first = study.fDeviation * random.Normal();
        const double second = study.fDeviation * random.Normal();
        for (int i = 0; i < study.fPerCluster; ++i) {
            const double x = random.Normal();
            const double eta[] = {level + kWithin * x + kBetween * g + first,
                                  kSecondLogit[0] + kSecondLogit[1] * x + kSecondLogit[2] * g + second};
            const double y = Draw(study, eta, random);
            records.insert(records.end(), {y, x, g, double(c), double(study.fTrialsEach)});
        }
    }
    return records;
}

engine::ModelSpec Model(const Study& study, int categories) {
    engine::ModelSpec spec;
    spec.fLevels = {categories, 0, 0, study.fClusters, 0};
    spec.fDependent = kTarget;
    for (const int variable : {kX, kG}) {
        engine::ModelEffect effect;
        effect.fCovariates = {{variable, 1}};
        spec.fFixed.push_back(effect);
    }
    engine::RandomBlock block;
    block.fEffects.emplace_back();
    block.fSubjects = {kCluster};
    spec.fRandom.push_back(block);
    return spec;
}

engine::TargetSpec TargetOf(const Study& study) {
    engine::TargetSpec target;
    target.fDistribution = study.fDistribution;
    target.fLink = study.fLink;
    if (study.fTrialsEach > 0) target.fTrials = kTrials;
    if (study.fDistribution == Distribution::kBinomial && study.fTrialsEach == 0) target.fCategories = 2;
    if (study.fDistribution == Distribution::kOrdinal) target.fCategories = 4;
    if (study.fDistribution == Distribution::kNominal) target.fCategories = 3;
    return target;
}

/// What became of one parameter over the replicates.
struct Parameter {
    std::string fName;
    double fTruth = 0.0;
    int fCount = 0;
    int fCovered = 0;
    double fSum = 0.0;
    double fSquares = 0.0;
    double fErrors = 0.0;
    int fWithError = 0;  ///< replicates that have a standard error: a variance at 0 has none

    void Add(double estimate, double error, double lower, double upper) {
        ++fCount;
        fCovered += lower <= fTruth && fTruth <= upper;
        fSum += estimate;
        fSquares += estimate * estimate;
        if (std::isnan(error)) return;
        fErrors += error;
        ++fWithError;
    }
    double Mean() const { return fSum / fCount; }
    double Deviation() const { return std::sqrt(std::max(0.0, fSquares / fCount - Mean() * Mean())); }
    double Coverage() const { return 100.0 * fCovered / fCount; }
};

/// In the order in which a fit reports them.
std::vector<Parameter> Truths(const Study& study) {
    std::vector<Parameter> all;
    if (study.fDistribution == Distribution::kOrdinal) {
        for (std::size_t k = 0; k < std::size(kThresholds); ++k)
            all.push_back({fmt::format("threshold {}", k + 1), kThresholds[k]});
    } else {
        all.push_back({"intercept", kIntercept});
    }
    all.push_back({"x", kWithin});
    all.push_back({"g", kBetween});
    const bool nominal = study.fDistribution == Distribution::kNominal;
    if (nominal) {
        const char* names[] = {"intercept, 2nd", "x, 2nd", "g, 2nd"};
        for (int k = 0; k < 3; ++k)
            all.push_back({names[k], kSecondLogit[k]});
    }
    for (int k = 0; k < (nominal ? 2 : 1); ++k)
        all.push_back({k == 0 ? "variance" : "variance, 2nd", study.fDeviation * study.fDeviation});
    if (study.fScaleReported) all.push_back({"scale", study.fScale});
    return all;
}

/// A study's parameters after so many replicates; failures: fits without estimates, or with a warning.
struct Outcome {
    std::vector<Parameter> fParameters;
    int fWarned = 0;
    int fFailed = 0;
};

Outcome Run(const Study& study, int replicates) {
    Outcome outcome{Truths(study)};
    const engine::TargetSpec target = TargetOf(study);
    const engine::ModelSpec spec = Model(study, target.fCategories);
    for (int r = 0; r < replicates; ++r) {
        Random random(std::uint64_t(r) + 1);
        const std::vector<double> records = DrawRecords(study, random);
        const engine::RecordView view{records.data(), records.size() / kColumns, kColumns};
        const engine::FitResult fit = study.fDistribution == Distribution::kNormal
                                          ? engine::FitLmm(spec, view)
                                          : engine::FitGlmm(spec, target, view).fFit;
        if (!fit.HasEstimates()) {
            ++outcome.fFailed;
            continue;
        }
        outcome.fWarned += !fit.fStatus.IsOk();
        auto parameter = outcome.fParameters.begin();
        for (const engine::FixedParameter& fixed : fit.fFixed)
            (parameter++)->Add(fixed.fEstimate, fixed.fStdError, fixed.fLower, fixed.fUpper);
        for (const engine::CovarianceParameter& covariance : fit.fCovariance) {
            if (parameter == outcome.fParameters.end() || covariance.fRedundant) continue;
            (parameter++)->Add(covariance.fEstimate, covariance.fStdError, covariance.fLower, covariance.fUpper);
        }
    }
    return outcome;
}

void Print(const Study& study, const Outcome& outcome) {
    for (const Parameter& parameter : outcome.fParameters) {
        fmt::print("| {} | {} x {} | {} | {:.2f} | {:.3f} | {:.3f} | {:.3f} | {:.1f} | {} | {} |\n", study.fName,
                   study.fClusters, study.fPerCluster, parameter.fName, parameter.fTruth, parameter.Mean(),
                   parameter.Deviation(), parameter.fErrors / parameter.fWithError, parameter.Coverage(),
                   outcome.fWarned, outcome.fFailed);
    }
    std::fflush(stdout);
}

std::vector<Study> Studies() {
    std::vector<Study> studies{
        {"normal", Distribution::kNormal, Link::kIdentity, 50, 50, 0.7, 0, 1.0, true},
        {"binary, logit", Distribution::kBinomial, Link::kLogit},
        {"binary, probit", Distribution::kBinomial, Link::kProbit, 50, 50, 0.4},
        {"events of 10 trials", Distribution::kBinomial, Link::kLogit, 50, 50, 0.7, 10},
        {"Poisson", Distribution::kPoisson, Link::kLog, 50, 50, 0.5},
        {"negative binomial", Distribution::kNegativeBinomial, Link::kLog, 50, 50, 0.5, 0, 0.5, true},
        {"gamma", Distribution::kGamma, Link::kLog, 50, 50, 0.5, 0, 0.4, true},
        {"inverse Gaussian", Distribution::kInverseGaussian, Link::kLog, 50, 50, 0.5, 0, 0.3, true},
        {"ordinal", Distribution::kOrdinal, Link::kLogit},
        {"nominal", Distribution::kNominal, Link::kLogit},
    };
    for (const int size : {2, 4, 8, 16, 32})
        studies.push_back({fmt::format("small-{}", size), Distribution::kBinomial, Link::kLogit, 200, size, 1.0});
    return studies;
}

}  // namespace

int main(int argc, char** argv) {
    int replicates = 1000;
    std::vector<std::string> names;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--replicates" && i + 1 < argc) {
            replicates = std::stoi(argv[++i]);
        } else {
            names.push_back(argument);
        }
    }
    fmt::print(
        "| target | clusters x records | parameter | truth | mean estimate | deviation | mean std. error | "
        "coverage, % | warnings | failures |\n|---|---|---|---:|---:|---:|---:|---:|---:|---:|\n");
    for (const Study& study : Studies()) {
        const bool named = std::find(names.begin(), names.end(), study.fName) != names.end();
        if (names.empty() || named) Print(study, Run(study, replicates));
    }
    return 0;
}
