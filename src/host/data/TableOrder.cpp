#include "host/data/TableOrder.h"

#include "host/data/NumberIndex.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <unordered_map>

namespace host {
namespace {

constexpr std::uint32_t kLeftOut = 0;

/// Numbers the combinations of split values from 0 in order of first appearance. Level by level: a combination is one
/// of the level above and a value of its own.
class SplitNumbering {
public:
    explicit SplitNumbering(const TableContent& content) : fContent(content), fLevels(content.fSplitBy.size()) {}

    /// The numbers of a block's rows.
    void Number(std::size_t block, std::size_t count, std::vector<std::uint32_t>& ids) {
        fCodes.resize(count);
        std::fill_n(ids.begin(), count, 0u);
        for (std::size_t level = 0; level < fLevels.size(); ++level) {
            ReadValues(level, block, count);
            Combine(fLevels[level], count, ids);
        }
    }

    /// The numbers in the order of their values.
    std::vector<std::uint32_t> Ordered() const {
        const std::size_t count = fLevels.empty() ? 1 : fLevels.back().fNodes.size();
        std::vector<std::vector<std::uint32_t>> keys(count, std::vector<std::uint32_t>(fLevels.size()));
        for (std::size_t id = 0; id < count; ++id) {
            std::uint32_t at = static_cast<std::uint32_t>(id);
            for (std::size_t level = fLevels.size(); level-- > 0;) {
                keys[id][level] = fLevels[level].fNodes[at].fCode;
                at = fLevels[level].fNodes[at].fAbove;
            }
        }
        std::vector<std::uint32_t> order(count);
        std::iota(order.begin(), order.end(), 0u);
        std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) { return Less(keys[a], keys[b]); });
        return order;
    }

private:
    struct Node {
        std::uint32_t fAbove;
        std::uint32_t fCode;
    };
    struct Split {
        NumberIndex fNumbers;  ///< of a numeric split variable: code less 1
        std::vector<Node> fNodes;
        std::unordered_map<std::uint64_t, std::uint32_t> fIds;
    };

    // Codes of one split variable: 0 is missing.
    void ReadValues(std::size_t level, std::size_t block, std::size_t count) {
        const TableContent::Column& column = fContent.fColumns[fContent.fSplitBy[level]];
        if (column.fPool) return ReadBlockCodes(fContent.fStore, column.fBlocks[block], count, fCodes.data());
        fCells.resize(count);
        ReadBlockNumbers(fContent.fStore, column.fBlocks[block], count, fCells.data());
        for (std::size_t i = 0; i < count; ++i)
            fCodes[i] = std::isnan(fCells[i]) ? 0 : fLevels[level].fNumbers.Intern(fCells[i]) + 1;
    }

    void Combine(Split& split, std::size_t count, std::vector<std::uint32_t>& ids) const {
        std::uint64_t lastPair = std::numeric_limits<std::uint64_t>::max();
        std::uint32_t lastId = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::uint64_t pair = (std::uint64_t{ids[i]} << 32) | fCodes[i];
            if (pair != lastPair) {
                const auto [found, added] = split.fIds.emplace(pair, static_cast<std::uint32_t>(split.fNodes.size()));
                if (added) split.fNodes.push_back({ids[i], fCodes[i]});
                lastPair = pair;
                lastId = found->second;
            }
            ids[i] = lastId;
        }
    }

    bool Less(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b) const {
        for (std::size_t level = 0; level < a.size(); ++level) {
            if (a[level] == b[level]) continue;
            if (a[level] == 0 || b[level] == 0) return a[level] == 0;
            const TableContent::Column& column = fContent.fColumns[fContent.fSplitBy[level]];
            if (column.fPool) return std::string(column.fPool->Text(a[level])) < column.fPool->Text(b[level]);
            const std::vector<double>& values = fLevels[level].fNumbers.Values();
            return values[a[level] - 1] < values[b[level] - 1];
        }
        return false;
    }

    const TableContent& fContent;
    std::vector<Split> fLevels;
    std::vector<double> fCells;
    std::vector<std::uint32_t> fCodes;
};

/// A window of places for one column's cells.
struct Window {
    std::vector<double> fNumbers;
    std::vector<std::uint32_t> fCodes;
};

class Arranger {
public:
    Arranger(TableContent& content, const ScratchPlace& place, std::size_t windowBytes)
        : fContent(content), fPlace(place), fWindowBytes(windowBytes), fRanks(place) {}

    bool Arrange(const Filter* filter, std::string& error) {
        RankRows(filter);
        if (fNeedsMoving && fRanks.Seal()) Move();
        error = !fRanks.Error().empty() ? fRanks.Error() : fContent.fStore.Error();
        return error.empty();
    }

private:
    std::size_t RowsOf(std::size_t block) const {
        return static_cast<std::size_t>(
            std::min<std::uint64_t>(fContent.fBlockRows, fContent.fRows - block * fContent.fBlockRows));
    }
    std::size_t BlockCount() const {
        return static_cast<std::size_t>((fContent.fRows + fContent.fBlockRows - 1) / fContent.fBlockRows);
    }

    // Per row 1 + the rank of its split, or 0 if it is left out, kept block by block; and the ranges of the splits.
    void RankRows(const Filter* filter) {
        SplitNumbering numbering(fContent);
        std::vector<std::uint32_t> ids(fContent.fBlockRows);
        std::vector<CellBlock> idBlocks;
        std::vector<std::uint64_t> counts;
        std::vector<std::uint8_t> selected;
        ScratchStore idStore(fPlace);
        for (std::size_t block = 0; block < BlockCount(); ++block) {
            const std::size_t count = RowsOf(block);
            numbering.Number(block, count, ids);
            if (filter != nullptr) filter->Select(fContent, block, count, selected);
            for (std::size_t i = 0; i < count; ++i) {
                if (filter != nullptr && selected[i] == 0) {
                    ids[i] = kLeftOut;
                    fNeedsMoving = true;
                    continue;
                }
                if (ids[i] >= counts.size()) counts.resize(ids[i] + 1);
                ++counts[ids[i]++];
            }
            idBlocks.push_back(WriteCodes(idStore, ids.data(), count));
        }
        if (!idStore.Seal()) return static_cast<void>(fRanks = std::move(idStore));
        const std::vector<std::uint32_t> rankOf = RankSplits(numbering, counts);
        std::uint32_t highest = 0;
        for (std::size_t block = 0; block < BlockCount(); ++block) {
            const std::size_t count = RowsOf(block);
            ReadBlockCodes(idStore, idBlocks[block], count, ids.data());
            for (std::size_t i = 0; i < count; ++i) {
                if (ids[i] == kLeftOut) continue;
                ids[i] = rankOf[ids[i] - 1];
                if (ids[i] < highest) fNeedsMoving = true;
                highest = std::max(highest, ids[i]);
            }
            fRankBlocks.push_back(WriteCodes(fRanks, ids.data(), count));
        }
    }

    // 1 + the rank of every numbered split that has rows; fills the splits' ranges.
    std::vector<std::uint32_t> RankSplits(const SplitNumbering& numbering, std::vector<std::uint64_t>& counts) {
        std::vector<std::uint32_t> rankOf;
        std::uint64_t first = 0;
        for (const std::uint32_t id : numbering.Ordered()) {
            if (id >= rankOf.size()) rankOf.resize(id + 1);
            if (id >= counts.size() || counts[id] == 0) continue;
            fContent.fSplits.push_back({first, counts[id]});
            first += counts[id];
            rankOf[id] = static_cast<std::uint32_t>(fContent.fSplits.size());
        }
        fKept = first;
        return rankOf;
    }

    void Move() {
        const std::size_t columns = fContent.fColumns.size();
        const std::uint64_t most = std::max<std::uint64_t>(fWindowBytes / 8 / fContent.fBlockRows, 1);
        const std::uint64_t rows = std::min(most * fContent.fBlockRows, std::max<std::uint64_t>(fKept, 1));
        const std::size_t together = std::max<std::size_t>(1, fWindowBytes / 8 / rows);
        ScratchStore store(fPlace);
        std::vector<std::vector<CellBlock>> moved(columns + 1);
        for (std::size_t from = 0; from <= columns; from += together)
            for (std::uint64_t first = 0; first < fKept; first += rows)
                MoveWindow(from, std::min(from + together, columns + 1), first, std::min(first + rows, fKept), store,
                           moved);
        for (std::size_t i = 0; i < columns; ++i)
            fContent.fColumns[i].fBlocks = std::move(moved[i]);
        fContent.fInputRowBlocks = std::move(moved[columns]);
        fContent.fStore = std::move(store);
        fContent.fRows = fKept;
    }

    // Columns from to end - 1 (the last of all is the row number) for the places first to last - 1.
    void MoveWindow(std::size_t from, std::size_t end, std::uint64_t first, std::uint64_t last, ScratchStore& store,
                    std::vector<std::vector<CellBlock>>& moved) {
        const std::size_t rows = static_cast<std::size_t>(last - first);
        std::vector<Window> windows(end - from);
        for (std::size_t i = from; i < end; ++i)
            IsText(i) ? windows[i - from].fCodes.resize(rows) : windows[i - from].fNumbers.resize(rows);
        std::vector<std::uint64_t> next;
        for (const SplitRange& split : fContent.fSplits)
            next.push_back(split.fFirst);
        std::vector<std::uint32_t> ranks(fContent.fBlockRows), codes(fContent.fBlockRows);
        std::vector<std::uint64_t> places(fContent.fBlockRows);
        std::vector<double> cells(fContent.fBlockRows);
        for (std::size_t block = 0; block < BlockCount(); ++block) {
            const std::size_t count = RowsOf(block);
            ReadBlockCodes(fRanks, fRankBlocks[block], count, ranks.data());
            for (std::size_t i = 0; i < count; ++i)
                places[i] = ranks[i] == kLeftOut ? last : next[ranks[i] - 1]++;
            for (std::size_t i = from; i < end; ++i) {
                if (IsText(i)) {
                    ReadBlockCodes(fContent.fStore, fContent.fColumns[i].fBlocks[block], count, codes.data());
                    Scatter(codes, places, count, first, last, windows[i - from].fCodes);
                } else {
                    ReadNumbers(i, block, count, cells.data());
                    Scatter(cells, places, count, first, last, windows[i - from].fNumbers);
                }
            }
        }
        for (std::size_t i = from; i < end; ++i)
            for (std::size_t at = 0; at < rows; at += fContent.fBlockRows) {
                const std::size_t count = std::min(fContent.fBlockRows, rows - at);
                moved[i].push_back(IsText(i) ? WriteCodes(store, windows[i - from].fCodes.data() + at, count)
                                             : WriteNumbers(store, windows[i - from].fNumbers.data() + at, count));
            }
    }

    template <class Cell>
    static void Scatter(const std::vector<Cell>& cells, const std::vector<std::uint64_t>& places, std::size_t count,
                        std::uint64_t first, std::uint64_t last, std::vector<Cell>& window) {
        for (std::size_t i = 0; i < count; ++i)
            if (places[i] >= first && places[i] < last) window[places[i] - first] = cells[i];
    }

    bool IsText(std::size_t column) const {
        return column < fContent.fColumns.size() && fContent.fColumns[column].fPool != nullptr;
    }

    void ReadNumbers(std::size_t column, std::size_t block, std::size_t count, double* cells) const {
        if (column < fContent.fColumns.size())
            ReadBlockNumbers(fContent.fStore, fContent.fColumns[column].fBlocks[block], count, cells);
        else
            for (std::size_t i = 0; i < count; ++i)
                cells[i] = static_cast<double>(block * fContent.fBlockRows + i);
    }

    TableContent& fContent;
    const ScratchPlace& fPlace;
    std::size_t fWindowBytes;
    ScratchStore fRanks;
    std::vector<CellBlock> fRankBlocks;
    std::uint64_t fKept = 0;
    bool fNeedsMoving = false;
};

}  // namespace

bool OrderTable(TableContent& content, const Filter* filter, const ScratchPlace& place, std::size_t windowBytes,
                std::string& error) {
    content.fSplits.clear();
    if (content.fSplitBy.empty() && filter == nullptr) {
        if (content.fRows > 0) content.fSplits.push_back({0, content.fRows});
        return true;
    }
    return Arranger(content, place, windowBytes).Arrange(filter, error);
}

}  // namespace host
