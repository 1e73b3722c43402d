#include "engine/means/ResponseScale.h"

#include "engine/glmm/Link.h"

namespace engine {

ResponseScale TargetScale(const run::Target& target, const WorkingModel* model) {
    if (target.fDistribution == run::Distribution::kOrdinal || target.fDistribution == run::Distribution::kNominal) {
        ResponseScale scale;
        scale.fpMultinomial = model;
        return scale;
    }
    if (target.fLink == run::Link::kIdentity) return {};
    const std::shared_ptr<const Link> link = MakeLink(target.fLink, target.fLinkPower);
    return {[link](double eta) { return link->Admits(eta) ? link->Mean(eta) : run::kNone; },
            [link](double eta) { return link->Admits(eta) ? link->Slope(eta) : run::kNone; }, nullptr};
}

}  // namespace engine
