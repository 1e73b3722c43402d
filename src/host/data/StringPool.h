#pragma once

#include "host/data/ScratchStore.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace host {

/// The distinct texts of a column, each with a code: 0 is the empty text, the others count up in order of first
/// appearance. In memory stand 8 to 16 bytes a distinct text; the texts themselves spill to a file beyond the budget.
class StringPool {
public:
    explicit StringPool(ScratchPlace place = {});

    /// The code of a text, which is added if it is new. Codes never change.
    std::uint32_t Intern(std::string_view text) {
        if (text.size() > 8) return InternHashed(text);
        if (text.empty()) return 0;
        const std::uint64_t word = ShortWord(text);
        Short& known = fShorts[((word * 0x9E3779B97F4A7C15ull) >> 56) ^ text.size()];
        if (known.fWord != word || known.fSize != text.size())
            known = {word, InternHashed(text), static_cast<std::uint32_t>(text.size())};
        return known.fCode;
    }

    /// The code of a text, or kAbsent.
    std::uint32_t Find(std::string_view text) const;

    /// The text of a code; valid until the next Intern.
    std::string_view Text(std::uint32_t code) const;

    std::uint32_t Size() const { return fCount; }  ///< number of codes, that of the empty text included
    std::size_t Width() const { return fWidth; }   ///< bytes of the longest text
    bool Seal() { return fBytes.Seal() && fStarts.Seal(); }
    const std::string& Error() const { return fBytes.Error().empty() ? fStarts.Error() : fBytes.Error(); }

    static constexpr std::uint32_t kAbsent = 0xFFFFFFFF;

private:
    struct Slot {
        std::uint32_t fTag;   ///< upper half of the hash
        std::uint32_t fCode;  ///< 0: the slot is free
    };
    /// A text of 1 to 8 bytes seen lately.
    struct Short {
        std::uint64_t fWord = 0;
        std::uint32_t fCode = 0;
        std::uint32_t fSize = 0;
    };
    // All bytes of a short text, some of them twice: with the size, the text itself.
    static std::uint64_t ShortWord(std::string_view text) {
        const char* p = text.data();
        const std::size_t size = text.size();
        if (size >= 4) {
            std::uint32_t low, high;
            std::memcpy(&low, p, 4);
            std::memcpy(&high, p + size - 4, 4);
            return (std::uint64_t{high} << 32) | low;
        }
        const auto byte = [p](std::size_t at) { return std::uint64_t{static_cast<unsigned char>(p[at])}; };
        return byte(0) << 16 | byte(size / 2) << 8 | byte(size - 1);
    }
    std::uint32_t InternHashed(std::string_view text);
    void Grow();
    std::size_t Place(std::uint64_t hash, std::string_view text) const;

    ScratchStore fBytes;   ///< the texts one after the other
    ScratchStore fStarts;  ///< by code, the offset of the text's first byte, 8 bytes each, and one for the end
    std::vector<Slot> fSlots;
    std::array<Short, 264> fShorts{};
    std::uint64_t fMask = 0;
    std::uint32_t fCount = 1;
    std::size_t fWidth = 0;
    std::uint64_t fForgotten = 0;
};

}  // namespace host
