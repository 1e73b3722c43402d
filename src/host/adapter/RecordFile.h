#pragma once

#include "host/data/ScratchStore.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

/// The records of a split, sorted by some of their values: row-major doubles, first appended, then read in place as
/// often as one likes. The sort is stable and ascending.
///
/// In memory while the records and the room to sort them fit the budget. Beyond it, sorted runs go to a file without a
/// name and are merged into another; the result is mapped. Records that come in order are not sorted at all.
class RecordFile {
public:
    /// stride: doubles a record. sortBy: positions in a record, the first decides first. budget: bytes.
    RecordFile(std::size_t stride, std::vector<int> sortBy, std::size_t budget, std::string directory = {});

    /// Says how many records will come, so that memory is taken once.
    void Expect(std::size_t count) { fChunk.reserve(std::min(count, fChunkRecords) * fStride); }

    /// Takes count records; false if they can't be kept (Error says why).
    bool Append(const double* records, std::size_t count);

    /// Sorts what was appended. False if that failed.
    bool Finish();

    /// The sorted records; valid until Clear.
    const double* Records() const { return fResult; }
    std::size_t Count() const { return fCount; }
    std::size_t Stride() const { return fStride; }

    /// Lets the memory pages of some records go that aren't needed soon.
    void Forget(std::size_t first, std::size_t count) const;

    void Clear();
    const std::string& Error() const { return fError; }
    bool InFile() const { return fRuns.InFile() || fMerged.InFile(); }

private:
    bool Before(const double* a, const double* b) const;
    void SortChunk();
    bool WriteRun();
    bool Merge();
    void NoteOrder(const double* records, std::size_t count);
    std::vector<std::uint32_t> SortedPositions() const;
    void CountingPass(int position, std::size_t codes, std::vector<std::uint32_t>& order) const;

    std::size_t fStride;
    std::vector<int> fSortBy;
    std::size_t fBudget;
    std::size_t fChunkRecords;      ///< records sorted in memory at a time
    std::vector<double> fChunk;     ///< records not yet written to a run
    std::vector<double> fPrevious;  ///< the record appended last
    bool fInOrder = true;           ///< all records so far came in order
    bool fChunkInOrder = true;      ///< those of the chunk did
    ScratchStore fRuns;
    std::vector<std::size_t> fRunEnds;  ///< record counts: where each run ends in fRuns
    ScratchStore fMerged;
    const double* fResult = nullptr;
    std::size_t fCount = 0;
    std::string fError;
};

}  // namespace host
