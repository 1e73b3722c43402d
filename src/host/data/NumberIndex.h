#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

namespace host {

/// The distinct numbers of a column, each with a code from 0 in order of first appearance. NaN isn't to be put in.
/// Small whole numbers, the usual categories, are found without hashing.
class NumberIndex {
public:
    NumberIndex() : fSlots(64, kFree) {}

    std::uint32_t Intern(double value) {
        const auto whole = static_cast<std::int64_t>(value >= 0.0 && value < kDirect ? value : -1.0);
        if (whole >= 0 && static_cast<double>(whole) == value) {
            const auto at = static_cast<std::size_t>(whole);
            if (at >= fDirect.size()) fDirect.resize(at + at / 2 + 16, kFree);
            if (fDirect[at] == kFree) fDirect[at] = Add(value);
            return fDirect[at];
        }
        return InternHashed(value);
    }

    /// The code of a number, or kAbsent.
    std::uint32_t Find(double value) const {
        if (value >= 0.0 && value < kDirect && static_cast<double>(static_cast<std::int64_t>(value)) == value) {
            const auto at = static_cast<std::size_t>(value);
            return at < fDirect.size() ? fDirect[at] : kAbsent;
        }
        return fSlots[Place(value)];
    }

    const std::vector<double>& Values() const { return fValues; }
    static constexpr std::uint32_t kAbsent = 0xFFFFFFFF;

private:
    static constexpr std::uint32_t kFree = kAbsent;
    static constexpr double kDirect = 1 << 20;

    static std::uint64_t Bits(double value) {
        std::uint64_t bits;
        std::memcpy(&bits, &value, 8);
        return bits;
    }
    std::uint32_t Add(double value) {
        fValues.push_back(value);
        return static_cast<std::uint32_t>(fValues.size() - 1);
    }
    std::size_t Place(double value) const {
        std::uint64_t hash = Bits(value) * 0x9E3779B97F4A7C15ull;
        hash ^= hash >> 32;
        const std::size_t mask = fSlots.size() - 1;
        std::size_t at = hash & mask;
        while (fSlots[at] != kFree && fValues[fSlots[at]] != value)
            at = (at + 1) & mask;
        return at;
    }
    std::uint32_t InternHashed(double value) {
        std::size_t at = Place(value);
        if (fSlots[at] != kFree) return fSlots[at];
        if (++fHashed * 4 > fSlots.size() * 3) {
            std::vector<std::uint32_t> before(fSlots.size() * 2, kFree);
            before.swap(fSlots);
            for (const std::uint32_t code : before)
                if (code != kFree) fSlots[Place(fValues[code])] = code;
            at = Place(value);
        }
        return fSlots[at] = Add(value);
    }

    std::vector<double> fValues;
    std::vector<std::uint32_t> fDirect;  ///< by whole number
    std::vector<std::uint32_t> fSlots;   ///< by hash
    std::size_t fHashed = 0;
};

}  // namespace host
