#include "host/output/Tree.h"

#include <algorithm>
#include <set>

namespace output {

namespace {

/// Members in their group's order. Numbers ascend by value, other texts by bytes.
std::vector<const Member*> Sorted(const Group& group) {
    std::vector<const Member*> members;
    for (const auto& member : group.fvMembers)
        members.push_back(member.get());
    if (group.fSort == BpGroup::kInsertion) return members;
    const auto before = [](const Member* a, const Member* b) {
        const Figure* left = a->fpText->AsFigure();
        const Figure* right = b->fpText->AsFigure();
        if (left && right) return left->fValue < right->fValue;
        return a->fpText->Identity() < b->fpText->Identity();
    };
    std::stable_sort(members.begin(), members.end(), before);
    if (group.fSort == BpGroup::kDescending) std::reverse(members.begin(), members.end());
    return members;
}

void Collect(const Group& group, std::vector<const Category*>& categories) {
    for (const Member* member : Sorted(group)) {
        if (const Group* inner = member->AsGroup()) {
            Collect(*inner, categories);
        } else {
            categories.push_back(static_cast<const Category*>(member));
        }
    }
}

/// Layers stand outside of rows, which are read from the highest order down.
bool Outside(const Dimension* a, const Dimension* b) {
    const bool layerA = a->fPlace == BpDimension::kLayer;
    const bool layerB = b->fPlace == BpDimension::kLayer;
    return layerA != layerB ? layerA : a->fOrder > b->fOrder;
}

}  // namespace

void Heading::Visit(Visitor& visitor) const {
    visitor.Enter(*this);
    for (const auto& block : fvBlocks)
        block->Visit(visitor);
    visitor.Leave(*this);
}

std::vector<const Category*> Dimension::Categories() const {
    std::vector<const Category*> categories;
    Collect(*this, categories);
    return categories;
}

std::vector<const Dimension*> Table::DimensionsAt(BpDimension::Place place) const {
    std::vector<const Dimension*> dimensions;
    for (const auto& dimension : fvDimensions) {
        const bool column = dimension->fPlace == BpDimension::kColumn;
        if (column == (place == BpDimension::kColumn)) dimensions.push_back(dimension.get());
    }
    std::stable_sort(dimensions.begin(), dimensions.end(), Outside);
    return dimensions;
}

std::vector<std::vector<const Category*>> Table::Entries(const std::vector<const Dimension*>& dimensions) const {
    std::vector<std::vector<const Category*>> categories;
    std::vector<std::vector<int>> ranks;  // per dimension, by ordinal
    for (const Dimension* dimension : dimensions) {
        categories.push_back(dimension->Categories());
        ranks.emplace_back(dimension->fNCategories);
        for (std::size_t rank = 0; rank < categories.back().size(); ++rank) {
            ranks.back()[categories.back()[rank]->fOrdinal] = static_cast<int>(rank);
        }
    }
    std::set<std::vector<int>> seen;
    std::vector<int> key(dimensions.size());
    for (const auto& [ordinals, cell] : fCells) {
        for (std::size_t d = 0; d < dimensions.size(); ++d)
            key[d] = ranks[d][ordinals[dimensions[d]->fIndex]];
        seen.insert(key);
    }
    std::vector<std::vector<const Category*>> entries;
    for (const auto& ordered : seen) {
        entries.emplace_back();
        for (std::size_t d = 0; d < ordered.size(); ++d)
            entries.back().push_back(categories[d][ordered[d]]);
    }
    return entries;
}

const Cell* Table::At(const std::vector<const Category*>& categories) const {
    std::vector<int> key(fvDimensions.size(), -1);
    for (const Category* category : categories) {
        const Group* group = category->fpGroup;
        while (group->fpGroup)
            group = group->fpGroup;
        key[static_cast<const Dimension*>(group)->fIndex] = category->fOrdinal;
    }
    const auto cell = fCells.find(key);
    return cell == fCells.end() ? nullptr : &cell->second;
}

}  // namespace output
