#include "engine/means/ResponseScale.h"

#include "engine/glmm/Link.h"

namespace engine {

ResponseScale TargetScale(const run::Target& target) {
    if (target.fLink == run::Link::kIdentity) return {};
    const std::shared_ptr<const Link> link = MakeLink(target.fLink, target.fLinkPower);
    return {[link](double eta) { return link->Admits(eta) ? link->Mean(eta) : run::kNone; },
            [link](double eta) { return link->Admits(eta) ? link->Slope(eta) : run::kNone; }};
}

}  // namespace engine
