#include "engine/crossed/CrossedStatistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

namespace engine {

namespace {

constexpr std::uint32_t kEmptySlot = 0xffffffffu;

std::uint64_t Mix(std::uint64_t key) {
    key ^= key >> 33;
    key *= 0xff51afd7ed558ccdULL;
    key ^= key >> 33;
    return key;
}

int First(std::uint64_t key) {
    return static_cast<int>(key >> 32);
}
int Second(std::uint64_t key) {
    return static_cast<int>(key & 0xffffffffu);
}

}  // namespace

void CrossedGather::PairTable::Init(int width) {
    fWidth = static_cast<std::size_t>(width);
    fSlots.assign(1024, kEmptySlot);
}

double* CrossedGather::PairTable::Slot(int first, int second) {
    const std::uint64_t key = (static_cast<std::uint64_t>(first) << 32) | static_cast<std::uint32_t>(second);
    const std::size_t mask = fSlots.size() - 1;
    std::size_t at = Mix(key) & mask;
    while (fSlots[at] != kEmptySlot) {
        if (fKeys[fSlots[at]] == key) return fValues.data() + fSlots[at] * fWidth;
        at = (at + 1) & mask;
    }
    if (2 * (fKeys.size() + 1) > fSlots.size()) {
        Grow();
        return Slot(first, second);
    }
    fSlots[at] = static_cast<std::uint32_t>(fKeys.size());
    fKeys.push_back(key);
    fValues.resize(fValues.size() + fWidth, 0.0);
    return fValues.data() + fValues.size() - fWidth;
}

void CrossedGather::PairTable::Grow() {
    fSlots.assign(fSlots.size() * 2, kEmptySlot);
    const std::size_t mask = fSlots.size() - 1;
    for (std::size_t i = 0; i < fKeys.size(); ++i) {
        std::size_t at = Mix(fKeys[i]) & mask;
        while (fSlots[at] != kEmptySlot)
            at = (at + 1) & mask;
        fSlots[at] = static_cast<std::uint32_t>(i);
    }
}

CrossedGather::CrossedGather(std::vector<int> columns, int fixed, int intercept) {
    fStat.fFixed = fixed;
    fStat.fIntercept = intercept;
    fStat.fColumns = std::move(columns);
    const int terms = fStat.Terms();
    fStat.fSubjects.assign(terms, 0);
    fStat.fOwn.resize(terms);
    fStat.fCross = Eigen::MatrixXd::Zero(fixed + 1, fixed + 1);
    fStat.fShift = Eigen::VectorXd::Zero(fixed);
    fStat.fScale = Eigen::VectorXd::Ones(fixed);
    fRightByTerm.resize(terms);
    fPairs.resize(terms * terms);
    for (int a = 0; a < terms; ++a)
        for (int b = a + 1; b < terms; ++b)
            Pair(a, b).Init(fStat.fColumns[a] * fStat.fColumns[b]);
    fRow = Eigen::VectorXd::Zero(fixed + 1);
}

void CrossedGather::Add(const CrossedRecord& record) {
    const int p = fStat.fFixed;
    if (fStat.fRecords == 0.0 && fStat.fIntercept >= 0) {
        // Differences from the first record are exact for values that share their leading digits; Centre moves the
        // origin on to the mean.
        for (int k = 0; k < p; ++k)
            if (k != fStat.fIntercept) fStat.fShift[k] = record.fFixed[k];
        fStat.fTargetShift = record.fTarget;
    }
    for (int k = 0; k < p; ++k)
        fRow[k] = record.fFixed[k] - fStat.fShift[k];
    fRow[p] = record.fTarget - fStat.fTargetShift;
    const double weight = record.fWeight * record.fFrequency;
    fStat.fRecords += 1.0;
    fStat.fTotalFrequency += record.fFrequency;
    if (record.fWeight != 1.0) fStat.fLogWeights += record.fFrequency * std::log(record.fWeight);
    for (int c = 0; c <= p; ++c) {
        if (fRow[c] == 0.0) continue;
        const double scaled = weight * fRow[c];
        for (int r = c; r <= p; ++r)
            fStat.fCross(r, c) += scaled * fRow[r];
    }
    for (int t = 0; t < fStat.Terms(); ++t) {
        AddOwn(record, t, weight);
        for (int u = t + 1; u < fStat.Terms(); ++u)
            AddPair(record, t, u, weight);
    }
}

void CrossedGather::AddOwn(const CrossedRecord& record, int term, double weight) {
    const int subject = record.fSubjects[term];
    const std::size_t q = fStat.fColumns[term];
    const std::size_t width = fStat.fFixed + 1;
    if (subject >= fStat.fSubjects[term]) {
        fStat.fSubjects[term] = subject + 1;
        fStat.fOwn[term].resize((subject + 1) * q * q, 0.0);
        fRightByTerm[term].resize((subject + 1) * q * width, 0.0);
    }
    double* own = fStat.fOwn[term].data() + subject * q * q;
    double* right = fRightByTerm[term].data() + subject * q * width;
    const double* z = record.fRandom[term];
    for (std::size_t a = 0; a < q; ++a) {
        if (z[a] == 0.0) continue;
        const double scaled = weight * z[a];
        for (std::size_t b = 0; b < q; ++b)
            own[a * q + b] += scaled * z[b];
        for (std::size_t k = 0; k < width; ++k)
            right[a * width + k] += scaled * fRow[k];
    }
}

void CrossedGather::AddPair(const CrossedRecord& record, int first, int second, double weight) {
    double* slot = Pair(first, second).Slot(record.fSubjects[first], record.fSubjects[second]);
    const int q = fStat.fColumns[first];
    const int r = fStat.fColumns[second];
    for (int b = 0; b < r; ++b) {
        const double scaled = weight * record.fRandom[second][b];
        if (scaled == 0.0) continue;
        for (int a = 0; a < q; ++a)
            slot[b * q + a] += scaled * record.fRandom[first][a];
    }
}

CrossedStatistics CrossedGather::Finish() {
    const int terms = fStat.Terms();
    const int width = fStat.fFixed + 1;
    fStat.fCross.triangularView<Eigen::StrictlyUpper>() = fStat.fCross.transpose();
    fStat.fOffset.assign(1, 0);
    for (int t = 0; t < terms; ++t)
        fStat.fOffset.push_back(fStat.fOffset.back() + fStat.fSubjects[t] * fStat.fColumns[t]);
    fStat.fRight.resize(fStat.Coefficients(), width);
    for (int t = 0; t < terms; ++t) {
        using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
        const int rows = fStat.fOffset[t + 1] - fStat.fOffset[t];
        fStat.fRight.middleRows(fStat.fOffset[t], rows) =
            Eigen::Map<const RowMajor>(fRightByTerm[t].data(), rows, width);
        std::vector<double>().swap(fRightByTerm[t]);
    }
    if (fStat.fIntercept >= 0) Centre();
    ChooseEliminated();
    SortMet();
    SortBetween();
    fPairs.clear();
    return std::move(fStat);
}

void CrossedGather::Centre() {
    const int p = fStat.fFixed;
    const int one = fStat.fIntercept;
    const double total = fStat.fCross(one, one);
    Eigen::VectorXd mean = fStat.fCross.col(one) / total;
    mean[one] = 0.0;
    const Eigen::VectorXd sums = fStat.fCross.col(one);
    for (int r = 0; r <= p; ++r)
        for (int c = 0; c <= p; ++c)
            if (r != one && c != one) fStat.fCross(r, c) -= sums[r] * mean[c];
    for (int c = 0; c <= p; ++c) {
        if (c == one) continue;
        fStat.fCross(one, c) = fStat.fCross(c, one) = 0.0;
        fStat.fRight.col(c) -= mean[c] * fStat.fRight.col(one);
    }
    fStat.fShift += mean.head(p);
    fStat.fTargetShift += mean[p];
    for (int k = 0; k < p; ++k) {
        const double deviation = std::sqrt(fStat.fCross(k, k) / total);
        if (k == one || !(deviation > 0.0)) continue;
        fStat.fScale[k] = deviation;
        fStat.fCross.row(k) /= deviation;
        fStat.fCross.col(k) /= deviation;
        fStat.fRight.col(k) /= deviation;
    }
}

void CrossedGather::ChooseEliminated() {
    const int terms = fStat.Terms();
    auto size = [&](int t) { return fStat.fOffset[t + 1] - fStat.fOffset[t]; };
    fStat.fEliminated = 0;
    for (int t = 1; t < terms; ++t)
        if (size(t) > size(fStat.fEliminated)) fStat.fEliminated = t;
    fStat.fRestOffset.assign(terms, -1);
    for (int t = 0; t < terms; ++t) {
        if (t == fStat.fEliminated) continue;
        fStat.fRestOffset[t] = fStat.fRest;
        fStat.fRest += size(t);
    }
}

void CrossedGather::SortMet() {
    const int gone = fStat.fEliminated;
    const int subjects = fStat.fSubjects[gone];
    const std::size_t q = fStat.fColumns[gone];
    fStat.fFirstMet.assign(subjects + 1, 0);
    auto table = [&](int t) -> PairTable& { return t < gone ? Pair(t, gone) : Pair(gone, t); };
    auto mine = [&](int t, std::uint64_t key) { return t < gone ? Second(key) : First(key); };
    auto other = [&](int t, std::uint64_t key) { return t < gone ? First(key) : Second(key); };
    for (int t = 0; t < fStat.Terms(); ++t) {
        if (t == gone) continue;
        const PairTable& pairs = table(t);
        for (std::size_t i = 0; i < pairs.Size(); ++i)
            fStat.fFirstMet[mine(t, pairs.Key(i)) + 1] += fStat.fColumns[t];
    }
    std::partial_sum(fStat.fFirstMet.begin(), fStat.fFirstMet.end(), fStat.fFirstMet.begin());
    fStat.fMet.resize(fStat.fFirstMet.back());
    fStat.fMetValues.resize(fStat.fFirstMet.back() * q);
    std::vector<std::int64_t> fill(fStat.fFirstMet.begin(), fStat.fFirstMet.end() - 1);
    for (int t = 0; t < fStat.Terms(); ++t) {
        if (t == gone) continue;
        const PairTable& pairs = table(t);
        const std::size_t r = fStat.fColumns[t];
        // By the other subject, so that every subject's list comes out ascending.
        std::vector<std::uint32_t> first(fStat.fSubjects[t] + 1, 0);
        std::vector<std::uint32_t> order(pairs.Size());
        for (std::size_t i = 0; i < pairs.Size(); ++i)
            ++first[other(t, pairs.Key(i)) + 1];
        std::partial_sum(first.begin(), first.end(), first.begin());
        for (std::size_t i = 0; i < pairs.Size(); ++i)
            order[first[other(t, pairs.Key(i))]++] = i;
        for (std::uint32_t i : order) {
            const double* values = pairs.Values(i);
            std::int64_t& at = fill[mine(t, pairs.Key(i))];
            for (std::size_t b = 0; b < r; ++b, ++at) {
                fStat.fMet[at] = fStat.fRestOffset[t] + static_cast<int>(other(t, pairs.Key(i)) * r + b);
                // The table's values are first term by second term, the first one fastest.
                for (std::size_t a = 0; a < q; ++a)
                    fStat.fMetValues[at * q + a] = t < gone ? values[a * r + b] : values[b * q + a];
            }
        }
    }
}

void CrossedGather::SortBetween() {
    for (int a = 0; a < fStat.Terms(); ++a) {
        for (int b = a + 1; b < fStat.Terms(); ++b) {
            if (a == fStat.fEliminated || b == fStat.fEliminated) continue;
            const PairTable& pairs = Pair(a, b);
            const int q = fStat.fColumns[a];
            const int r = fStat.fColumns[b];
            for (std::size_t i = 0; i < pairs.Size(); ++i)
                for (int k = 0; k < r; ++k)
                    for (int l = 0; l < q; ++l)
                        fStat.fBetween.push_back({fStat.fRestOffset[b] + Second(pairs.Key(i)) * r + k,
                                                  fStat.fRestOffset[a] + First(pairs.Key(i)) * q + l,
                                                  pairs.Values(i)[k * q + l]});
        }
    }
    std::sort(fStat.fBetween.begin(), fStat.fBetween.end(), [](const auto& a, const auto& b) {
        return a.fColumn != b.fColumn ? a.fColumn < b.fColumn : a.fRow < b.fRow;
    });
}

CrossedStatistics CrossedStatistics::WithColumns(const std::vector<int>& kept) const {
    CrossedStatistics out = *this;
    std::vector<int> all = kept;
    all.push_back(fFixed);
    out.fFixed = static_cast<int>(kept.size());
    out.fCross = fCross(all, all);
    out.fRight = fRight(Eigen::all, all);
    out.fShift = fShift(kept);
    out.fScale = fScale(kept);
    const auto at = std::find(kept.begin(), kept.end(), fIntercept);
    out.fIntercept = at == kept.end() ? -1 : static_cast<int>(at - kept.begin());
    return out;
}

Eigen::MatrixXd CrossedStatistics::Transform() const {
    Eigen::MatrixXd transform = fScale.cwiseInverse().asDiagonal();
    if (fIntercept >= 0) transform.row(fIntercept) -= fShift.cwiseQuotient(fScale).transpose();
    return transform;
}

}  // namespace engine
