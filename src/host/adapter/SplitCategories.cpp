#include "host/adapter/SplitCategories.h"

#include <algorithm>
#include <numeric>

namespace host {

void CategoryOrder::Sort(const std::vector<std::uint32_t>& appeared, const ValueIndex& values, bool ascending) {
    fPlaceOf.resize(appeared.size());
    std::iota(fPlaceOf.begin(), fPlaceOf.end(), 0u);
    std::sort(fPlaceOf.begin(), fPlaceOf.end(), [&](std::uint32_t a, std::uint32_t b) {
        return ascending ? values.Less(appeared[a], appeared[b]) : values.Less(appeared[b], appeared[a]);
    });
    fCodeOf.resize(appeared.size());
    for (std::size_t code = 0; code < fPlaceOf.size(); ++code)
        fCodeOf[fPlaceOf[code]] = static_cast<std::uint32_t>(code);
}

}  // namespace host
