#include "engine/documents/MomentFit.h"

namespace engine {

std::vector<std::pair<const char*, double>> FitByMoments(run::Distribution distribution, double mean,
                                                         double deviation) {
    const double variance = deviation * deviation;
    if (!(mean > 0.0) || !(variance > 0.0)) return {};
    switch (distribution) {
        case run::Distribution::kGamma:
            return {{"shape", mean * mean / variance}, {"rate", mean / variance}};
        case run::Distribution::kInverseGaussian:
            return {{"shape", mean * mean * mean / variance}};
        case run::Distribution::kNegativeBinomial:
            if (!(variance > mean)) return {};
            return {{"r", mean * mean / (variance - mean)}, {"p", mean / variance}};
        default:
            return {};
    }
}

}  // namespace engine
