#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace host {

/// How much scratch data stays in memory, and where the rest goes.
struct ScratchPlace {
    std::size_t fMemoryBudget = std::size_t{32} << 20;  ///< bytes kept in memory before a file is opened
    std::string fDirectory;                             ///< of the file; empty: TMPDIR, else /var/tmp, else /tmp
};

/// Opens a temporary file that has no name, so that nothing stays behind however the process ends.
/// Gives the descriptor, or -1 with a sentence in error.
int OpenUnnamedFile(const std::string& directory, std::string& error);

/// Bytes that are appended once and read often: in memory up to a budget, beyond it in a file without a name.
///
/// Writing ends with Seal; after it all reading operations may be used from several threads. A failure to write (a
/// full disk) is kept in Error and makes later appends do nothing; the owner tests Error before it reads.
class ScratchStore {
public:
    explicit ScratchStore(ScratchPlace place = {}) : fPlace(std::move(place)) {}
    ~ScratchStore();
    ScratchStore(ScratchStore&& other) noexcept;
    ScratchStore& operator=(ScratchStore&& other) noexcept;
    ScratchStore(const ScratchStore&) = delete;
    ScratchStore& operator=(const ScratchStore&) = delete;

    /// Appends size bytes, aligned to 8 when aligned is true, and gives their offset.
    std::uint64_t Append(const void* data, std::size_t size, bool aligned = true);

    /// The bytes at an offset that Append gave. Valid until the next Append or View of an unsealed store, to the end of
    /// a sealed one.
    const char* View(std::uint64_t offset, std::size_t size) const;

    /// Ends the writing. False if anything could not be written.
    bool Seal();

    /// The bytes are not needed soon: the pages that hold them leave the process, not the file.
    void Forget(std::uint64_t offset, std::size_t size) const;

    std::uint64_t Size() const { return fSize; }
    bool InFile() const { return fFile >= 0; }
    const std::string& Error() const { return fError; }

private:
    bool Reserve(std::size_t size);
    void Spill();
    void FlushTail();
    void WriteOut(const char* data, std::size_t size);
    bool Map(std::uint64_t end) const;

    ScratchPlace fPlace;
    char* fTail = nullptr;  ///< everything while in memory, else what isn't in the file yet
    std::size_t fTailSize = 0;
    std::size_t fTailRoom = 0;
    std::uint64_t fFlushed = 0;  ///< bytes in the file
    std::uint64_t fSize = 0;
    int fFile = -1;
    mutable char* fMap = nullptr;
    mutable std::uint64_t fMapped = 0;
    std::string fError;
};

}  // namespace host
