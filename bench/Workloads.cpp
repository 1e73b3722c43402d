#include "bench/Workloads.h"

#include "bench/Random.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <numbers>

namespace bench {

namespace {

struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Close>;

File Open(const std::filesystem::path& path, const char* header) {
    File file(std::fopen(path.c_str(), "w"));
    std::fprintf(file.get(), "%s\n", header);
    return file;
}

std::vector<double> Normals(Random& random, int count, double deviation) {
    std::vector<double> values(count);
    for (double& value : values)
        value = deviation * random.Normal();
    return values;
}

void RandomSlopes(const std::filesystem::path& path, int subjects, int perSubject, bool rich) {
    Random random(1);
    const File file = Open(path, rich ? "y,f,x,t,subject" : "y,x,subject");
    for (int s = 0; s < subjects; ++s) {
        const double intercept = 2.0 * random.Normal();
        const double slope = 0.3 * intercept + 0.7 * random.Normal();
        for (int i = 0; i < perSubject; ++i) {
            const int level = random.Below(3);
            const double x = random.Normal();
            const double t = 0.1 * i;
            const double time = rich ? t : x;
            const double y = 10.0 + level + 0.5 * x + intercept + slope * time + 1.5 * random.Normal();
            if (rich) {
                std::fprintf(file.get(), "%.4f,f%d,%.4f,%.1f,%d\n", y, level + 1, x, t, s + 1);
            } else {
                std::fprintf(file.get(), "%.4f,%.4f,%d\n", y, x, s + 1);
            }
        }
    }
}

void MillionSlopes(const std::filesystem::path& path) {
    RandomSlopes(path, 10000, 100, true);
}
void TwentyMillionSlopes(const std::filesystem::path& path) {
    RandomSlopes(path, 200000, 100, false);
}

void Crossed(const std::filesystem::path& path, int rows, int first, int second) {
    Random random(2);
    const std::vector<double> a = Normals(random, first, 0.7);
    const std::vector<double> b = Normals(random, second, 0.5);
    const File file = Open(path, "y,a,b");
    for (int i = 0; i < rows; ++i) {
        const int u = random.Below(first);
        const int v = random.Below(second);
        std::fprintf(file.get(), "%.4f,%d,%d\n", 3.0 + a[u] + b[v] + random.Normal(), u + 1, v + 1);
    }
}

void CrossedMillion(const std::filesystem::path& path) {
    Crossed(path, 1000000, 100000, 10000);
}
void CrossedSmall(const std::filesystem::path& path) {
    Crossed(path, 200000, 20000, 2000);
}

void Ratings(const std::filesystem::path& path) {
    std::filesystem::copy_file(std::filesystem::path(HIERFIT_SOURCE_DIR) / "tests/data/insteval.csv", path,
                               std::filesystem::copy_options::overwrite_existing);
}

void Unstructured(const std::filesystem::path& path) {
    Random random(3);
    const File file = Open(path, "y,g,visit,x1,x2,subject");
    for (int s = 0; s < 5000; ++s) {
        const double shared = random.Normal();
        double last = 0.0;
        const int group = s % 3;
        const double x1 = random.Normal();
        for (int visit = 0; visit < 6; ++visit) {
            last = 0.5 * last + random.Normal();
            const double x2 = random.Normal();
            const double y = 5.0 + group + 0.4 * visit + 0.3 * x1 - 0.2 * x2 + shared + (1.0 + 0.1 * visit) * last;
            std::fprintf(file.get(), "%.4f,g%d,%d,%.4f,%.4f,%d\n", y, group + 1, visit + 1, x1, x2, s + 1);
        }
    }
}

void Autoregressive(const std::filesystem::path& path) {
    Random random(4);
    const File file = Open(path, "y,x,time,subject");
    for (int s = 0; s < 2000; ++s) {
        double last = random.Normal();
        for (int time = 0; time < 20; ++time) {
            last = 0.6 * last + 0.8 * random.Normal();
            const double x = random.Normal();
            std::fprintf(file.get(), "%.4f,%.4f,%d,%d\n", 1.0 + 0.5 * x + last, x, time + 1, s + 1);
        }
    }
}

/// A field over 1,500 places: sums of random cosine waves whose spectrum gives a correlation that falls with distance.
void Spatial(const std::filesystem::path& path) {
    Random random(5);
    constexpr int kWaves = 200;
    std::vector<double> u(kWaves), v(kWaves), phase(kWaves);
    for (int w = 0; w < kWaves; ++w) {
        const double radius = 0.3 * std::abs(random.Normal() / (std::abs(random.Normal()) + 0.05));
        const double angle = 2.0 * std::numbers::pi * random.Uniform();
        u[w] = radius * std::cos(angle);
        v[w] = radius * std::sin(angle);
        phase[w] = 2.0 * std::numbers::pi * random.Uniform();
    }
    const File file = Open(path, "y,x,east,north");
    for (int i = 0; i < 1500; ++i) {
        const double east = 30.0 * random.Uniform();
        const double north = 30.0 * random.Uniform();
        double field = 0.0;
        for (int w = 0; w < kWaves; ++w)
            field += std::cos(u[w] * east + v[w] * north + phase[w]);
        const double x = random.Normal();
        const double y = 2.0 + 0.5 * x + field * std::sqrt(2.0 / kWaves) + 0.05 * random.Normal();
        std::fprintf(file.get(), "%.4f,%.4f,%.3f,%.3f\n", y, x, east, north);
    }
}

void Splits(const std::filesystem::path& path) {
    Random random(6);
    const File file = Open(path, "y,x,subject,site");
    for (int site = 0; site < 2000; ++site) {
        for (int subject = 0; subject < 20; ++subject) {
            const double intercept = random.Normal();
            for (int i = 0; i < 10; ++i) {
                const double x = random.Normal();
                std::fprintf(file.get(), "%.4f,%.4f,%d,%d\n", 1.0 + 0.5 * x + intercept + random.Normal(), x,
                             subject + 1, site + 1);
            }
        }
    }
}

enum class Draw { kBinary, kPoisson, kGamma, kOrdinal };

void Generalized(const std::filesystem::path& path, Draw draw, int subjects, int perSubject) {
    Random random(7);
    const File file = Open(path, "y,x,g,subject");
    for (int s = 0; s < subjects; ++s) {
        const double intercept = 0.8 * random.Normal();
        for (int i = 0; i < perSubject; ++i) {
            const double x = random.Normal();
            const int g = random.Below(2);
            const double eta = 0.5 * x + 0.3 * g + intercept;
            double y = 0.0;
            switch (draw) {
                case Draw::kBinary:
                    y = random.Uniform() < 1.0 / (1.0 + std::exp(-eta));
                    break;
                case Draw::kPoisson:
                    y = random.Poisson(std::exp(eta));
                    break;
                case Draw::kGamma:
                    y = -0.5 * std::exp(eta) * (std::log(random.Uniform()) + std::log(random.Uniform()));
                    break;
                case Draw::kOrdinal: {
                    const double latent = eta + std::log(1.0 / random.Uniform() - 1.0);
                    y = 1 + (latent > -2) + (latent > -0.5) + (latent > 0.7) + (latent > 2);
                    break;
                }
            }
            std::fprintf(file.get(), draw == Draw::kGamma ? "%.6f,%.4f,g%d,%d\n" : "%.0f,%.4f,g%d,%d\n", y, x, g + 1,
                         s + 1);
        }
    }
}

void Binary(const std::filesystem::path& path) {
    Generalized(path, Draw::kBinary, 2000, 100);
}
void Counts(const std::filesystem::path& path) {
    Generalized(path, Draw::kPoisson, 2000, 100);
}
void Gammas(const std::filesystem::path& path) {
    Generalized(path, Draw::kGamma, 2000, 100);
}
void Ordinals(const std::filesystem::path& path) {
    Generalized(path, Draw::kOrdinal, 1000, 100);
}

void CrossedBinary(const std::filesystem::path& path) {
    Random random(8);
    const std::vector<double> a = Normals(random, 5000, 0.7);
    const std::vector<double> b = Normals(random, 500, 0.5);
    const File file = Open(path, "y,x,a,b");
    for (int i = 0; i < 50000; ++i) {
        const int u = random.Below(5000);
        const int v = random.Below(500);
        const double x = random.Normal();
        const double eta = 0.2 + 0.5 * x + a[u] + b[v];
        std::fprintf(file.get(), "%d,%.4f,%d,%d\n", random.Uniform() < 1.0 / (1.0 + std::exp(-eta)), x, u + 1, v + 1);
    }
}

}  // namespace

const std::vector<Workload>& Workloads() {
    static const std::vector<Workload> workloads{
        {"a",
         "1,000,000 records, 10,000 subjects, factor, covariate, random intercept and slope",
         MillionSlopes,
         {"y ~ f + x + (t | subject)"},
         0.6,
         250,
         false},
        {"b",
         "73,421 ratings, three crossed random intercepts",
         Ratings,
         {"y ~ service + (1 | s) + (1 | d) + (1 | dept)", "--nominal", "service"},
         0.5,
         0,
         false},
        {"c",
         "1,000,000 ratings, 100,000 x 10,000 crossed",
         CrossedMillion,
         {"y ~ 1 + (1 | a) + (1 | b)"},
         150,
         1536,
         true},
        {"c2", "200,000 ratings, 20,000 x 2,000 crossed", CrossedSmall, {"y ~ 1 + (1 | a) + (1 | b)"}, 1.5, 0, false},
        {"d",
         "5,000 subjects x 6, UN residual, 12 fixed",
         Unstructured,
         {"y ~ g + visit + x1 + x2", "--nominal", "g,visit", "--repeated", "visit | subject", "--rcov", "UN"},
         0.3,
         0,
         false},
        {"d2",
         "2,000 subjects x 20, AR1 residual",
         Autoregressive,
         {"y ~ x", "--repeated", "time | subject", "--rcov", "AR1"},
         0.1,
         0,
         false},
        {"e",
         "one subject, 1,500 places, SPEXP residual",
         Spatial,
         {"y ~ x", "--spatial", "east,north", "--rcov", "SPEXP"},
         2.5,
         0,
         false},
        {"f",
         "200,000 binary records, 2,000 subjects, random intercept",
         Binary,
         {"y ~ x + g + (1 | subject)", "--family", "binomial"},
         0.4,
         0,
         false},
        {"f2",
         "200,000 counts, 2,000 subjects, random intercept",
         Counts,
         {"y ~ x + g + (1 | subject)", "--family", "poisson"},
         0,
         0,
         false},
        {"f3",
         "200,000 gamma records, 2,000 subjects, random intercept",
         Gammas,
         {"y ~ x + g + (1 | subject)", "--family", "gamma", "--link", "log"},
         0,
         0,
         false},
        {"f4",
         "100,000 ordinal records of 5 categories, 1,000 subjects",
         Ordinals,
         {"y ~ x + g + (1 | subject)", "--family", "ordinal"},
         0,
         0,
         false},
        {"f5",
         "50,000 binary records, 5,000 x 500 crossed",
         CrossedBinary,
         {"y ~ x + (1 | a) + (1 | b)", "--family", "binomial"},
         0,
         0,
         false},
        {"g",
         "2,000 splits x 200 records, random intercept",
         Splits,
         {"y ~ x + (1 | subject)", "--split-by", "site"},
         0.7,
         0,
         false},
        {"h",
         "20,000,000 records, 200,000 subjects, random intercept and slope",
         TwentyMillionSlopes,
         {"y ~ x + (x | subject)"},
         0,
         1024,
         true},
    };
    return workloads;
}

}  // namespace bench
