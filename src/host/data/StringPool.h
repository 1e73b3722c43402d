#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/data/ScratchStore.h"

namespace host {

/// The distinct texts of a column, each with a code: 0 is the empty text, the others count up in order of first
/// appearance. In memory stand 8 to 16 bytes a distinct text; the texts themselves spill to a file beyond the budget.
class StringPool {
public:
    explicit StringPool(ScratchPlace place = {});

    /// The code of a text, which is added if it is new. Codes never change.
    std::uint32_t Intern(std::string_view text);

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
    void Grow();
    std::size_t Place(std::uint64_t hash, std::string_view text) const;

    ScratchStore fBytes;   ///< the texts one after the other
    ScratchStore fStarts;  ///< by code, the offset of the text's first byte, 8 bytes each, and one for the end
    std::vector<Slot> fSlots;
    std::uint64_t fMask = 0;
    std::uint32_t fCount = 1;
    std::size_t fWidth = 0;
    std::uint64_t fForgotten = 0;
};

}  // namespace host
