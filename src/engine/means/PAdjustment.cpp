#include "engine/means/PAdjustment.h"

#include <algorithm>
#include <cmath>

namespace engine {

AdjustedFamily Adjust(const std::vector<double>& p, PAdjustment method, double confidence) {
    AdjustedFamily family{p, std::vector<double>(p.size(), confidence)};
    if (method == PAdjustment::kLeastDifference) return family;
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < p.size(); ++i) {
        if (!std::isnan(p[i])) order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return p[a] < p[b]; });
    double left = static_cast<double>(order.size());
    double before = 0.0;
    for (std::size_t i : order) {
        if (method == PAdjustment::kSequentialBonferroni) {
            before = std::max(before, std::min(1.0, left * p[i]));
            family.fConfidence[i] = 1.0 - (1.0 - confidence) / left;
        } else {
            before = std::max(before, -std::expm1(left * std::log1p(-p[i])));
            family.fConfidence[i] = std::pow(confidence, 1.0 / left);
        }
        family.fP[i] = before;
        left -= 1.0;
    }
    return family;
}

}  // namespace engine
