#pragma once

#include "host/adapter/ValueIndex.h"

#include <cstdint>
#include <vector>

namespace host {

/// The categories of one record variable in one split: codes from 0, first in order of appearance, then as reordered.
struct CategoryOrder {
    std::vector<std::uint32_t> fCodeOf;   ///< by place of appearance; empty: the same
    std::vector<std::uint32_t> fPlaceOf;  ///< by code; empty: the same

    std::uint32_t Code(std::uint32_t place) const { return fCodeOf.empty() ? place : fCodeOf[place]; }
    std::uint32_t Place(std::uint32_t code) const { return fPlaceOf.empty() ? code : fPlaceOf[code]; }

    /// Sorts by value; appeared: global codes in order of appearance.
    void Sort(const std::vector<std::uint32_t>& appeared, const ValueIndex& values, bool ascending);
};

/// What is kept of a split from its first pass to the end of the run.
struct SplitCategories {
    std::vector<std::vector<std::uint32_t>> fAppeared;  ///< per source variable: global codes in order of appearance
    std::vector<CategoryOrder> fOrders;                 ///< per record column
    std::uint64_t fRecords = 0;                         ///< usable records
    bool fComplete = false;                             ///< the first pass is over: no category is added any more
};

}  // namespace host
