#include "host/data/StringPool.h"

#include <cstring>

namespace host {
namespace {

constexpr std::uint64_t kForgetStep = std::uint64_t{16} << 20;

std::uint64_t Mix(std::uint64_t a, std::uint64_t b) {
    const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

std::uint64_t Hash(std::string_view text) {
    std::uint64_t hash = 0x9E3779B97F4A7C15ull ^ text.size();
    const char* p = text.data();
    std::size_t left = text.size();
    while (left >= 8) {
        std::uint64_t word;
        std::memcpy(&word, p, 8);
        hash = Mix(hash ^ word, 0xA0761D6478BD642Full);
        p += 8;
        left -= 8;
    }
    std::uint64_t word = 0;
    std::memcpy(&word, p, left);
    hash = Mix(hash ^ word, 0xE7037ED1A0B428DBull);
    return hash ^ (hash >> 32);
}

}  // namespace

StringPool::StringPool(ScratchPlace place) : fBytes(place), fStarts(place), fSlots(64), fMask(63) {
    const std::uint64_t start = 0;
    fStarts.Append(&start, 8);
    fStarts.Append(&start, 8);
}

std::string_view StringPool::Text(std::uint32_t code) const {
    std::uint64_t first, end;
    std::memcpy(&first, fStarts.View(std::uint64_t{code} * 8, 8), 8);
    std::memcpy(&end, fStarts.View(std::uint64_t{code} * 8 + 8, 8), 8);
    const std::size_t size = end - first;
    return size == 0 ? std::string_view() : std::string_view(fBytes.View(first, size), size);
}

// The slot that holds the text, or the free one where it belongs.
std::size_t StringPool::Place(std::uint64_t hash, std::string_view text) const {
    const std::uint32_t tag = static_cast<std::uint32_t>(hash >> 32);
    std::size_t at = hash & fMask;
    while (fSlots[at].fCode != 0 && (fSlots[at].fTag != tag || Text(fSlots[at].fCode) != text))
        at = (at + 1) & fMask;
    return at;
}

std::uint32_t StringPool::Find(std::string_view text) const {
    if (text.empty()) return 0;
    const Slot& slot = fSlots[Place(Hash(text), text)];
    return slot.fCode == 0 ? kAbsent : slot.fCode;
}

std::uint32_t StringPool::InternHashed(std::string_view text) {
    const std::uint64_t hash = Hash(text);
    std::size_t at = Place(hash, text);
    if (fSlots[at].fCode != 0) return fSlots[at].fCode;
    fBytes.Append(text.data(), text.size(), false);
    const std::uint64_t end = fBytes.Size();
    fStarts.Append(&end, 8);
    if (!Error().empty()) return 0;
    if (text.size() > fWidth) fWidth = text.size();
    fSlots[at] = {static_cast<std::uint32_t>(hash >> 32), fCount};
    if (++fCount > fSlots.size() / 4 * 3) Grow();
    if (end - fForgotten > kForgetStep) {
        fBytes.Forget(fForgotten, end - fForgotten);
        fForgotten = end;
    }
    return fCount - 1;
}

void StringPool::Grow() {
    fSlots.assign(fSlots.size() * 2, {});
    fMask = fSlots.size() - 1;
    for (std::uint32_t code = 1; code < fCount; ++code) {
        const std::uint64_t hash = Hash(Text(code));
        std::size_t at = hash & fMask;
        while (fSlots[at].fCode != 0)
            at = (at + 1) & fMask;
        fSlots[at] = {static_cast<std::uint32_t>(hash >> 32), code};
    }
}

}  // namespace host
