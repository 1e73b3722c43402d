#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace engine {

/// Numbers subjects, given as the codes of their variables, in the order in which they first come.
class SubjectIndex {
public:
    /// -1 for one that has not come.
    int Find(const std::vector<int>& codes) const {
        const auto at = fNumbers.find(codes);
        return at == fNumbers.end() ? -1 : at->second;
    }
    int Add(const std::vector<int>& codes) {
        return fNumbers.try_emplace(codes, static_cast<int>(fNumbers.size())).first->second;
    }

private:
    struct Hash {
        std::size_t operator()(const std::vector<int>& codes) const {
            std::uint64_t hash = 0;
            for (const int code : codes) {
                hash = (hash ^ static_cast<std::uint32_t>(code)) * 0x9E3779B97F4A7C15U;
                hash ^= hash >> 32;
            }
            return hash;
        }
    };
    std::unordered_map<std::vector<int>, int, Hash> fNumbers;
};

}  // namespace engine
