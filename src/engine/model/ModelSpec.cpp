#include "engine/model/ModelSpec.h"

#include <algorithm>
#include <utility>

namespace engine {

namespace {

bool Has(const std::vector<int>& list, int variable) {
    return std::find(list.begin(), list.end(), variable) != list.end();
}

void AddMissing(const std::vector<int>& from, std::vector<int>& to) {
    for (int variable : from) {
        if (!Has(to, variable)) to.push_back(variable);
    }
}

}  // namespace

std::vector<int> CommonSubject(const ModelSpec& spec) {
    std::vector<const std::vector<int>*> lists;
    for (const RandomBlock& block : spec.fRandom)
        lists.push_back(&block.fSubjects);
    if (!spec.fResidual.IsScaledIdentity() || (lists.empty() && !spec.fResidual.fSubjects.empty())) {
        lists.push_back(&spec.fResidual.fSubjects);
    }
    if (lists.empty()) return {};
    std::vector<int> common = *lists.front();
    for (const auto* list : lists)
        std::erase_if(common, [&](int variable) { return !Has(*list, variable); });
    return common;
}

std::vector<int> SortVariables(const ModelSpec& spec) {
    std::vector<int> order = CommonSubject(spec);
    if (order.empty() && !spec.fResidual.IsRepeated()) return order;
    // Outer blocks have fewer subject variables: their subjects come first, so that inner subjects stay together.
    std::vector<std::vector<int>> lists;
    for (const RandomBlock& block : spec.fRandom)
        lists.push_back(block.fSubjects);
    std::stable_sort(lists.begin(), lists.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); });
    for (const auto& list : lists)
        AddMissing(list, order);
    if (spec.fResidual.IsRepeated()) {
        AddMissing(spec.fResidual.fSubjects, order);
        AddMissing(spec.fResidual.fRepeated, order);
    }
    return order;
}

}  // namespace engine
