#include "host/adapter/RecordFile.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <queue>

namespace host {
namespace {

constexpr std::size_t kMostCodes = std::size_t{1} << 24;

}  // namespace

RecordFile::RecordFile(std::size_t stride, std::vector<int> sortBy, std::size_t budget, std::string directory)
    : fStride(std::max<std::size_t>(stride, 1)),
      fSortBy(std::move(sortBy)),
      fBudget(budget),
      fRuns(ScratchPlace{0, directory}),
      fMerged(ScratchPlace{0, directory}) {
    // Sorting needs the records twice, and their positions.
    const std::size_t bytes = 2 * fStride * sizeof(double) + sizeof(std::uint32_t);
    fChunkRecords = std::clamp<std::size_t>(fBudget / bytes, 1, std::numeric_limits<std::uint32_t>::max());
}

bool RecordFile::Before(const double* a, const double* b) const {
    for (const int position : fSortBy)
        if (a[position] != b[position]) return a[position] < b[position];
    return false;
}

void RecordFile::NoteOrder(const double* records, std::size_t count) {
    if (fSortBy.empty() || count == 0) return;
    const double* previous = fPrevious.empty() ? records : fPrevious.data();
    if (fInOrder || fChunkInOrder)
        for (std::size_t i = 0; i < count; ++i, records += fStride) {
            if (Before(records, previous)) {
                fInOrder = false;
                // A new chunk may well begin with a record that belongs before the last chunk.
                if (i > 0 || !fChunk.empty()) fChunkInOrder = false;
                if (!fChunkInOrder) break;
            }
            previous = records;
        }
}

bool RecordFile::Append(const double* records, std::size_t count) {
    while (count > 0 && fError.empty()) {
        const std::size_t take = std::min(count, fChunkRecords - fChunk.size() / fStride);
        NoteOrder(records, take);
        const double* const end = records + take * fStride;
        fChunk.insert(fChunk.end(), records, end);
        fPrevious.assign(end - fStride, end);
        fCount += take;
        count -= take;
        records = end;
        if (fChunk.size() / fStride == fChunkRecords && !WriteRun()) return false;
    }
    return fError.empty();
}

// One digit of a sort from the last key to the first: records go to their places by counting their codes.
void RecordFile::CountingPass(int position, std::size_t codes, std::vector<std::uint32_t>& order) const {
    std::vector<std::uint32_t> places(codes + 1, 0);
    for (const std::uint32_t i : order)
        ++places[static_cast<std::size_t>(fChunk[i * fStride + position]) + 1];
    std::partial_sum(places.begin(), places.end(), places.begin());
    std::vector<std::uint32_t> next(order.size());
    for (const std::uint32_t i : order)
        next[places[static_cast<std::size_t>(fChunk[i * fStride + position])]++] = i;
    order.swap(next);
}

std::vector<std::uint32_t> RecordFile::SortedPositions() const {
    const std::size_t count = fChunk.size() / fStride;
    std::vector<std::uint32_t> order(count);
    std::iota(order.begin(), order.end(), 0u);
    std::vector<std::size_t> codes;
    for (const int position : fSortBy) {
        double highest = 0;
        bool areCodes = true;
        for (std::size_t i = 0; i < count && areCodes; ++i) {
            const double value = fChunk[i * fStride + position];
            areCodes = value >= 0 && value < kMostCodes && value == std::floor(value);
            highest = std::max(highest, value);
        }
        if (areCodes) codes.push_back(static_cast<std::size_t>(highest) + 1);
    }
    const std::size_t most = codes.empty() ? 0 : *std::max_element(codes.begin(), codes.end());
    if (codes.size() == fSortBy.size() && most <= 4 * count + 1024) {
        for (std::size_t key = fSortBy.size(); key-- > 0;)
            CountingPass(fSortBy[key], codes[key], order);
        return order;
    }
    std::stable_sort(order.begin(), order.end(), [this](std::uint32_t a, std::uint32_t b) {
        return Before(fChunk.data() + a * fStride, fChunk.data() + b * fStride);
    });
    return order;
}

void RecordFile::SortChunk() {
    if (fChunkInOrder) return;
    const std::vector<std::uint32_t> order = SortedPositions();
    std::vector<double> sorted(fChunk.size());
    double* to = sorted.data();
    for (const std::uint32_t i : order) {
        std::copy_n(fChunk.data() + i * fStride, fStride, to);
        to += fStride;
    }
    fChunk.swap(sorted);
}

bool RecordFile::WriteRun() {
    SortChunk();
    fRuns.Append(fChunk.data(), fChunk.size() * sizeof(double));
    fRunEnds.push_back((fRunEnds.empty() ? 0 : fRunEnds.back()) + fChunk.size() / fStride);
    fChunk.clear();
    fChunkInOrder = true;
    fError = fRuns.Error();
    return fError.empty();
}

bool RecordFile::Finish() {
    if (!fError.empty()) return false;
    if (fRunEnds.empty()) {
        SortChunk();
        fResult = fChunk.data();
        return true;
    }
    if (!fChunk.empty() && !WriteRun()) return false;
    std::vector<double>().swap(fChunk);
    if (!fRuns.Seal()) {
        fError = fRuns.Error();
        return false;
    }
    if (!fInOrder && !Merge()) return false;
    const ScratchStore& store = fInOrder ? fRuns : fMerged;
    fResult = reinterpret_cast<const double*>(store.View(0, fCount * fStride * sizeof(double)));
    return true;
}

// Takes the least head of all runs, of equal ones that of the earliest run, until all are used up.
bool RecordFile::Merge() {
    struct Head {
        const double* fRecord;
        std::size_t fRun;
    };
    const auto* all = reinterpret_cast<const double*>(fRuns.View(0, fCount * fStride * sizeof(double)));
    const auto later = [this](const Head& a, const Head& b) {
        if (Before(b.fRecord, a.fRecord)) return true;
        return !Before(a.fRecord, b.fRecord) && b.fRun < a.fRun;
    };
    std::priority_queue<Head, std::vector<Head>, decltype(later)> heads(later);
    for (std::size_t run = 0; run < fRunEnds.size(); ++run)
        heads.push({all + (run == 0 ? 0 : fRunEnds[run - 1]) * fStride, run});
    constexpr std::size_t kForgetRecords = std::size_t{1} << 18;
    std::size_t written = 0;
    while (!heads.empty() && fMerged.Error().empty()) {
        Head head = heads.top();
        heads.pop();
        fMerged.Append(head.fRecord, fStride * sizeof(double));
        head.fRecord += fStride;
        if (head.fRecord != all + fRunEnds[head.fRun] * fStride) heads.push(head);
        if (++written % kForgetRecords == 0) fRuns.Forget(0, fRuns.Size());
    }
    if (fMerged.Seal()) {
        fRuns = ScratchStore();
        return true;
    }
    fError = fMerged.Error();
    return false;
}

void RecordFile::Forget(std::size_t first, std::size_t count) const {
    const std::size_t bytes = fStride * sizeof(double);
    (fInOrder ? fRuns : fMerged).Forget(first * bytes, count * bytes);
}

void RecordFile::Clear() {
    fResult = nullptr;
    fCount = 0;
    std::vector<double>().swap(fChunk);
    fRuns = ScratchStore();
    fMerged = ScratchStore();
    fRunEnds.clear();
}

}  // namespace host
