#include "host/data/ScratchStore.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace host {
namespace {

constexpr std::size_t kTailSize = std::size_t{1} << 20;
constexpr std::uint64_t kFirstMap = std::uint64_t{64} << 20;

int TryDirectory(const std::string& directory) {
    int file = open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (file >= 0) return file;
    std::string name = directory + "/hierfit-XXXXXX";
    file = mkostemp(name.data(), O_CLOEXEC);
    if (file >= 0) unlink(name.c_str());
    return file;
}

}  // namespace

int OpenUnnamedFile(const std::string& directory, std::string& error) {
    std::vector<std::string> places;
    if (!directory.empty()) {
        places.push_back(directory);
    } else if (const char* chosen = std::getenv("TMPDIR"); chosen != nullptr && *chosen != '\0') {
        places.emplace_back(chosen);
    } else {
        places = {"/var/tmp", "/tmp"};
    }
    for (const std::string& place : places) {
        const int file = TryDirectory(place);
        if (file >= 0) return file;
    }
    error = "cannot make a temporary file in " + places.front() + ": " + std::strerror(errno) +
            "; set TMPDIR to a directory that can be written to";
    return -1;
}

ScratchStore::~ScratchStore() {
    std::free(fTail);
    if (fMap != nullptr) munmap(fMap, fMapped);
    if (fFile >= 0) close(fFile);
}

ScratchStore::ScratchStore(ScratchStore&& other) noexcept {
    *this = std::move(other);
}

ScratchStore& ScratchStore::operator=(ScratchStore&& other) noexcept {
    std::swap(fPlace, other.fPlace);
    std::swap(fTail, other.fTail);
    std::swap(fTailSize, other.fTailSize);
    std::swap(fTailRoom, other.fTailRoom);
    std::swap(fFlushed, other.fFlushed);
    std::swap(fSize, other.fSize);
    std::swap(fFile, other.fFile);
    std::swap(fMap, other.fMap);
    std::swap(fMapped, other.fMapped);
    std::swap(fError, other.fError);
    return *this;
}

std::uint64_t ScratchStore::Append(const void* data, std::size_t size, bool aligned) {
    const std::size_t padding = aligned ? (8 - fSize % 8) % 8 : 0;
    const std::uint64_t offset = fSize + padding;
    if (!fError.empty()) return offset;
    if (fFile < 0 && offset + size > fPlace.fMemoryBudget) Spill();
    if (fFile >= 0 && fTailSize + padding + size > kTailSize) FlushTail();
    if (!Reserve(fTailSize + padding + size)) return offset;
    std::memset(fTail + fTailSize, 0, padding);
    if (size > 0) std::memcpy(fTail + fTailSize + padding, data, size);
    fTailSize += padding + size;
    fSize = offset + size;
    return offset;
}

const char* ScratchStore::View(std::uint64_t offset, std::size_t size) const {
    if (offset >= fFlushed) return fTail + (offset - fFlushed);
    if (offset + size > fMapped && !Map(offset + size)) return nullptr;
    return fMap + offset;
}

bool ScratchStore::Seal() {
    if (fFile >= 0) {
        FlushTail();
        std::free(std::exchange(fTail, nullptr));
        fTailRoom = 0;
        if (fError.empty() && fFlushed > fMapped && !Map(fFlushed))
            fError = std::string("cannot map the temporary file: ") + std::strerror(errno);
    }
    return fError.empty();
}

void ScratchStore::Forget(std::uint64_t offset, std::size_t size) const {
    if (fMap == nullptr || offset >= fMapped) return;
    const std::uint64_t page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    const std::uint64_t first = offset / page * page;
    const std::uint64_t last = std::min((offset + size + page - 1) / page * page, fMapped);
    madvise(fMap + first, last - first, MADV_DONTNEED);
}

void ScratchStore::Spill() {
    fFile = OpenUnnamedFile(fPlace.fDirectory, fError);
    if (fFile < 0) return;
    FlushTail();
    std::free(std::exchange(fTail, nullptr));
    fTailRoom = 0;
}

// Large blocks grow by moving their pages, not their bytes.
bool ScratchStore::Reserve(std::size_t size) {
    if (size <= fTailRoom) return true;
    const std::size_t room = std::max(size, fTailRoom + fTailRoom / 2 + 64);
    void* grown = std::realloc(fTail, room);
    if (grown == nullptr) {
        fError = "there is not enough memory";
        return false;
    }
    fTail = static_cast<char*>(grown);
    fTailRoom = room;
    return true;
}

void ScratchStore::FlushTail() {
    WriteOut(fTail, fTailSize);
    fFlushed += fTailSize;
    fTailSize = 0;
}

void ScratchStore::WriteOut(const char* data, std::size_t size) {
    std::uint64_t at = fFlushed;
    while (size > 0 && fError.empty()) {
        const ssize_t done = pwrite(fFile, data, size, static_cast<off_t>(at));
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) {
            fError = std::string("cannot write the temporary file: ") + std::strerror(done < 0 ? errno : ENOSPC) +
                     "; free some space or set TMPDIR to a directory on another disk";
            return;
        }
        data += done;
        size -= static_cast<std::size_t>(done);
        at += static_cast<std::uint64_t>(done);
    }
}

// The map is made longer than the file so that a growing store seldom maps anew; only written bytes are ever touched.
bool ScratchStore::Map(std::uint64_t end) const {
    std::uint64_t length = std::max(fMapped, kFirstMap);
    while (length < end)
        length *= 2;
    void* map = fMap == nullptr ? mmap(nullptr, length, PROT_READ, MAP_SHARED, fFile, 0)
                                : mremap(fMap, fMapped, length, MREMAP_MAYMOVE);
    if (map == MAP_FAILED) return false;
    fMap = static_cast<char*>(map);
    fMapped = length;
    return true;
}

}  // namespace host
