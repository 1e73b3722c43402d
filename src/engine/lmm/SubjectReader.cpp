#include "engine/lmm/SubjectReader.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

namespace engine {

namespace {

constexpr long kDuplicateRepeated = 230025;
constexpr long kUnequalWeights = 130077;
constexpr long kNotBuilt = 130018;
constexpr double kRankTolerance = 1e-13;
constexpr int kMaxMomentOrder = 64;

FitStatus Error(long code, const char* detail) {
    return {code, Severity::kError, detail};
}
FitStatus Fine() {
    return {0, Severity::kOk, {}};
}

// Pivoted Cholesky of a positive semidefinite matrix: cross = F' F with F rank x q, columns in the given order.
int RankFactor(const Eigen::MatrixXd& cross, Eigen::MatrixXd& factor, std::vector<int>& order) {
    const int q = static_cast<int>(cross.rows());
    factor.setZero(q, q);
    order.resize(q);
    Eigen::VectorXd left = cross.diagonal();
    const Eigen::VectorXd whole = left;
    std::vector<char> done(q, 0);
    int rank = 0;
    for (; rank < q; ++rank) {
        int best = -1;
        double share = kRankTolerance;
        for (int j = 0; j < q; ++j) {
            if (done[j] || !(whole[j] > 0.0) || left[j] / whole[j] <= share) continue;
            best = j;
            share = left[j] / whole[j];
        }
        if (best < 0) break;
        done[best] = 1;
        order[rank] = best;
        const double root = std::sqrt(left[best]);
        for (int j = 0; j < q; ++j) {
            if (done[j] && j != best) continue;
            const double value = (cross(best, j) - factor.col(best).head(rank).dot(factor.col(j).head(rank))) / root;
            factor(rank, j) = j == best ? root : value;
            left[j] -= value * value;
        }
    }
    return rank;
}

}  // namespace

SubjectReader::SubjectReader(const LmmProblem& problem, const std::vector<BlockPlan>& blocks,
                             const RepeatedPlan& repeated, bool rotated, ReadSums& sums)
    : fProblem(problem),
      fSpec(problem.Spec()),
      fBasis(problem.Basis()),
      fView(problem.View()),
      fBlocks(blocks),
      fRepeated(repeated),
      fRotated(rotated),
      fSums(sums) {
    fIndexes.resize(blocks.size());
    fHits.resize(fBasis.Design().NumEffects());
    fSums.fNumSubjects.assign(blocks.size(), 0);
    fSums.fSquares.assign(blocks.size(), 0.0);
    if (rotated) {
        const int width = fBasis.Rank() + 1;
        for (int segment : repeated.fSegments)
            fSums.fRemainders.push_back({segment, 0.0, Eigen::MatrixXd::Zero(width, width)});
    } else if (!fSpec.fResidual.IsScaledIdentity() && repeated.fSecondDimension == 1 &&
               repeated.fDimension <= kMaxMomentOrder) {
        fSums.fMoments.setZero(repeated.fDimension, repeated.fDimension);
        fSums.fMomentCounts = fSums.fMoments;
    }
}

void SubjectReader::SlotIndex::Clear() {
    fKeys.clear();
    fGroups.clear();
    fFirsts.clear();
    fMap.clear();
    fLast = -1;
}

int SubjectReader::SlotIndex::Find(long key, std::size_t record, int group) {
    if (fLast >= 0 && fKeys[fLast] == key) return fLast;
    constexpr std::size_t kLinear = 16;
    int found = -1;
    if (fKeys.size() <= kLinear) {
        const auto at = std::find(fKeys.begin(), fKeys.end(), key);
        if (at != fKeys.end()) found = static_cast<int>(at - fKeys.begin());
    } else {
        if (fMap.empty()) {
            for (std::size_t i = 0; i < fKeys.size(); ++i)
                fMap.emplace(fKeys[i], static_cast<int>(i));
        }
        const auto at = fMap.find(key);
        if (at != fMap.end()) found = at->second;
    }
    if (found < 0) {
        found = static_cast<int>(fKeys.size());
        fKeys.push_back(key);
        fGroups.push_back(group);
        fFirsts.push_back(record);
        if (!fMap.empty()) fMap.emplace(key, found);
    }
    fLast = found;
    return found;
}

long SubjectReader::Key(const double* row, const std::vector<int>& variables, const std::vector<long>& radix) const {
    long key = 0;
    for (std::size_t i = 0; i < variables.size(); ++i)
        key += static_cast<long>(row[variables[i]]) * radix[i];
    return key;
}

int SubjectReader::ResidualSegment(const double* row) const {
    const int group = fSpec.fResidual.fGroup;
    return fRepeated.fSegments[group < 0 ? 0 : static_cast<int>(row[group])];
}

FitStatus SubjectReader::FindSlots(std::size_t begin, std::size_t end, Unit& unit, std::vector<std::size_t>* firsts) {
    const std::size_t blocks = fBlocks.size();
    fRecordSlots.resize((end - begin) * blocks);
    for (std::size_t b = 0; b < blocks; ++b) {
        const BlockPlan& plan = fBlocks[b];
        SlotIndex& index = fIndexes[b];
        index.Clear();
        const int before = static_cast<int>(unit.fSlots.size());
        for (std::size_t i = begin; i < end; ++i) {
            const double* row = fView.Row(i);
            const int group = plan.fGroup < 0 ? 0 : static_cast<int>(row[plan.fGroup]);
            const int slot = index.Find(Key(row, plan.fInner, plan.fRadix), i, group);
            if (index.fGroups[slot] != group) {
                return Error(kNotBuilt, "The grouping variable of a random block changes within a subject.");
            }
            fRecordSlots[(i - begin) * blocks + b] = before + slot;
        }
        const int width = plan.fDesign.NumColumns();
        int column = unit.Columns();
        for (int group : index.fGroups) {
            unit.fSlots.push_back({plan.fSegments[group], column, width});
            column += width;
        }
        fSums.fNumSubjects[b] += static_cast<int>(index.fKeys.size());
        if (firsts != nullptr) firsts->insert(firsts->end(), index.fFirsts.begin(), index.fFirsts.end());
    }
    return Fine();
}

int SubjectReader::ZHits(std::size_t record, const Unit& unit, std::size_t index) {
    fZ.clear();
    const double* row = fView.Row(record);
    for (std::size_t b = 0; b < fBlocks.size(); ++b) {
        const EffectDesign& design = fBlocks[b].fDesign;
        fBlockHits.resize(design.NumEffects());
        design.PlainHits(row, fBlockHits.data());
        const int base = unit.fSlots[fRecordSlots[index * fBlocks.size() + b]].fColumn;
        for (const ColumnHit& hit : fBlockHits) {
            fZ.push_back({base + hit.fColumn, hit.fValue});
            fSums.fSquares[b] += hit.fValue * hit.fValue;
        }
    }
    return static_cast<int>(fZ.size());
}

int SubjectReader::KeptHits(const double* row, std::size_t record) {
    fBasis.Design().Hits(row, fHits.data());
    fKept.clear();
    for (const ColumnHit& hit : fHits) {
        const int kept = fBasis.KeptIndex(hit.fColumn);
        if (kept >= 0 && hit.fValue != 0.0) fKept.push_back({kept, hit.fValue});
    }
    fKept.push_back({fBasis.Rank(), fBasis.Residual(row, record, fHits.data())});
    return static_cast<int>(fKept.size());
}

void SubjectReader::ReadFree(std::size_t begin, std::size_t end) {
    for (std::size_t i = begin; i < end; ++i) {
        const double* row = fView.Row(i);
        const int count = KeptHits(row, i);
        const int group = fSpec.fResidual.fGroup < 0 ? 0 : static_cast<int>(row[fSpec.fResidual.fGroup]);
        Remainder& remainder = fSums.fRemainders[group];
        const double frequency = fBasis.Frequency(row);
        const double weight = frequency * fBasis.Weight(row, i);
        remainder.fCount += frequency;
        for (int a = 0; a < count; ++a) {
            const double left = weight * fKept[a].fValue;
            double* column = remainder.fCross.col(fKept[a].fColumn).data();
            for (int b = a; b < count; ++b)
                column[fKept[b].fColumn] += left * fKept[b].fValue;
        }
        const double r = fKept[count - 1].fValue;
        fSums.fResidualSs += weight * r * r;
    }
}

FitStatus SubjectReader::CheckRepeats(std::size_t begin, std::size_t end) {
    const ResidualBlock& residual = fSpec.fResidual;
    if (residual.fRepeated.empty() || (residual.fSubjects.empty() && residual.IsScaledIdentity())) return Fine();
    std::unordered_set<long> seen;
    std::unordered_set<long> subjects;
    const long places = std::max(1L, static_cast<long>(fRepeated.fFirstMap.size())) *
                        std::max(1L, static_cast<long>(fRepeated.fSecondMap.size()));
    for (std::size_t i = begin; i < end; ++i) {
        const double* row = fView.Row(i);
        const long subject = Key(row, fRepeated.fInner, fRepeated.fRadix);
        long place = 0;
        for (int variable : residual.fRepeated)
            place = place * fSpec.fLevels[variable] + static_cast<long>(row[variable]);
        subjects.insert(subject);
        if (!seen.insert(subject * places + place).second) {
            return Error(kDuplicateRepeated, "Two records of a subject have the same values of the repeated measures.");
        }
    }
    if (fRotated) fSums.fNumResidualSubjects += static_cast<int>(subjects.size());
    return Fine();
}

FitStatus SubjectReader::Read(std::size_t begin, std::size_t end, Unit& unit, std::vector<std::size_t>* firsts) {
    const bool whole = fSpec.fFrequencyWeight >= 0 && fSpec.fResidual.IsRepeated();
    double frequency = 1.0;
    if (whole) {
        frequency = fBasis.Frequency(fView.Row(begin));
        for (std::size_t i = begin; i < end; ++i) {
            if (fBasis.Frequency(fView.Row(i)) != frequency) {
                return Error(kUnequalWeights, "The frequency weight changes within a subject of the repeated block.");
            }
        }
    }
    if (auto status = FindSlots(begin, end, unit, firsts); status.IsError()) return status;
    if (auto status = CheckRepeats(begin, end); status.IsError()) return status;
    if (fRotated) {
        ReadRotated(begin, end, frequency, unit);
    } else if (fSpec.fResidual.fDispersed) {
        ReadDispersed(begin, end, unit);
    } else if (auto status = ReadRows(begin, end, frequency, unit); status.IsError()) {
        return status;
    }
    unit.fCount = frequency;
    unit.fMembers = 1;
    return Fine();
}

double SubjectReader::Weight(const double* row, std::size_t record) const {
    const double weight = fBasis.Weight(row, record);
    return fDispersion > 0.0 ? weight / (1.0 + fDispersion * fBasis.Spread(record)) : weight;
}

void SubjectReader::ReadDispersed(std::size_t begin, std::size_t end, Unit& unit) {
    DispersedRows& rows = unit.fDispersed;
    const auto count = static_cast<Eigen::Index>(end - begin);
    unit.fOrder = static_cast<int>(count);
    rows.fData.setZero(fBasis.Rank() + 1, count);
    rows.fSpread.resize(count);
    for (std::size_t i = begin; i < end; ++i) {
        const double* row = fView.Row(i);
        const auto at = static_cast<Eigen::Index>(i - begin);
        const double root = std::sqrt(fBasis.Weight(row, i));
        rows.fHits = ZHits(i, unit, i - begin);
        for (const ColumnHit& hit : fZ)
            rows.fZ.push_back({hit.fColumn, root * hit.fValue});
        const int xs = KeptHits(row, i);
        for (int a = 0; a < xs; ++a)
            rows.fData(fKept[a].fColumn, at) += root * fKept[a].fValue;
        rows.fSpread[at] = fBasis.Spread(i);
        rows.fFrequency.push_back(fBasis.Frequency(row));
        fSums.fResidualSs += rows.fFrequency.back() * std::pow(rows.fData(fBasis.Rank(), at), 2);
    }
}

void SubjectReader::ReadRotated(std::size_t begin, std::size_t end, double frequency, Unit& unit) {
    const int width = fBasis.Rank() + 1;
    const int q = unit.Columns();
    Eigen::MatrixXd cross = Eigen::MatrixXd::Zero(q, q);
    Eigen::MatrixXd right = Eigen::MatrixXd::Zero(width, q);  // transposed: a record touches few of either
    const int group = fSpec.fResidual.fGroup < 0 ? 0 : static_cast<int>(fView.Row(begin)[fSpec.fResidual.fGroup]);
    Remainder& remainder = fSums.fRemainders[group];
    const bool byRecord = fSpec.fFrequencyWeight >= 0 && !fSpec.fResidual.IsRepeated();
    double rows = 0.0;
    for (std::size_t i = begin; i < end; ++i) {
        const double* row = fView.Row(i);
        const int zs = ZHits(i, unit, i - begin);
        const int xs = KeptHits(row, i);
        const double times = byRecord ? fBasis.Frequency(row) : 1.0;
        const double weight = times * Weight(row, i);
        rows += times;
        for (int a = 0; a < zs; ++a) {
            const double left = weight * fZ[a].fValue;
            double* column = cross.col(fZ[a].fColumn).data();
            for (int b = a; b < zs; ++b)
                column[fZ[b].fColumn] += left * fZ[b].fValue;
            double* target = right.col(fZ[a].fColumn).data();
            for (int b = 0; b < xs; ++b)
                target[fKept[b].fColumn] += left * fKept[b].fValue;
        }
        for (int a = 0; a < xs; ++a) {
            const double left = frequency * weight * fKept[a].fValue;
            double* column = remainder.fCross.col(fKept[a].fColumn).data();
            for (int b = a; b < xs; ++b)
                column[fKept[b].fColumn] += left * fKept[b].fValue;
        }
        const double r = fKept[xs - 1].fValue;
        fSums.fResidualSs += frequency * weight * r * r;
    }
    cross.triangularView<Eigen::StrictlyUpper>() = cross.transpose();
    Eigen::MatrixXd factor;
    std::vector<int> order;
    const int rank = RankFactor(cross, factor, order);
    unit.fOrder = rank;
    unit.fIdentity = remainder.fSegment;
    unit.fZ = factor.topRows(rank);
    // fZ restricted to the pivots is upper triangular: its transpose times the rotated rows is Z'W[X r] at the pivots.
    Eigen::MatrixXd rotated(rank, width);
    for (int k = 0; k < rank; ++k) {
        rotated.row(k) = right.col(order[k]).transpose();
        for (int l = 0; l < k; ++l)
            rotated.row(k) -= unit.fZ(l, order[k]) * rotated.row(l);
        rotated.row(k) /= unit.fZ(k, order[k]);
    }
    remainder.fCount += frequency * (rows - rank);
    for (int c = 0; c < width; ++c) {
        for (int d = c; d < width; ++d) {
            double sum = 0.0;
            for (int k = 0; k < rank; ++k)
                sum += rotated(k, c) * rotated(k, d);
            remainder.fCross(d, c) -= frequency * sum;
        }
    }
    if (frequency != 1.0) rotated *= std::sqrt(frequency);
    unit.fRows = std::move(rotated);
}

FitStatus SubjectReader::PlaceRows(std::size_t begin, std::size_t end, Unit& unit, std::vector<RowPlace>& rows) {
    // Rows of one residual subject stand together, in the order of their records.
    SlotIndex subjects;
    rows.resize(end - begin);
    const bool independent = fSpec.fResidual.IsScaledIdentity();
    for (std::size_t i = begin; i < end; ++i) {
        const double* row = fView.Row(i);
        const int group = fSpec.fResidual.fGroup < 0 ? 0 : static_cast<int>(row[fSpec.fResidual.fGroup]);
        const long key = independent ? group : Key(row, fRepeated.fInner, fRepeated.fRadix);
        const int piece = subjects.Find(key, i, group);
        if (subjects.fGroups[piece] != group) {
            return Error(kNotBuilt, "The grouping variable of the repeated block changes within a subject.");
        }
        long first = 0;
        for (int variable : fRepeated.fFirst)
            first = first * fSpec.fLevels[variable] + static_cast<long>(row[variable]);
        long second = 0;
        for (int variable : fRepeated.fSecond)
            second = second * fSpec.fLevels[variable] + static_cast<long>(row[variable]);
        rows[i - begin] = {i, piece, fRepeated.fFirstMap.empty() ? -1 : fRepeated.fFirstMap[first],
                           fRepeated.fSecondMap.empty() ? 0 : fRepeated.fSecondMap[second]};
    }
    std::stable_sort(rows.begin(), rows.end(),
                     [](const RowPlace& a, const RowPlace& b) { return a.fPiece < b.fPiece; });
    const bool spatial = !fSpec.fResidual.fSpatial.empty();
    for (std::size_t a = 0; a < rows.size();) {
        std::size_t b = a;
        ResidualPiece piece;
        piece.fStart = static_cast<int>(a);
        piece.fSegment = ResidualSegment(fView.Row(rows[a].fRecord));
        for (; b < rows.size() && rows[b].fPiece == rows[a].fPiece; ++b) {
            const bool counted = rows[b].fFirst < 0 || independent;
            piece.fPlaces.fPositions.push_back(counted ? static_cast<int>(b - a) : rows[b].fFirst);
            if (!fRepeated.fSecond.empty()) piece.fPlaces.fSecond.push_back(rows[b].fSecond);
        }
        if (spatial) FillDistances(rows, piece, static_cast<int>(b - a));
        if (spatial && b - a > 1) {
            Eigen::MatrixXd apart = piece.fPlaces.fDistances;
            apart.diagonal().setConstant(apart.maxCoeff() + 1.0);
            if (!(apart.minCoeff() > 0.0)) {
                return Error(kDuplicateRepeated, "Two records of a subject have the same spatial coordinates.");
            }
        }
        unit.fPieces.push_back(std::move(piece));
        a = b;
    }
    fSums.fNumResidualSubjects += static_cast<int>(unit.fPieces.size());
    return Fine();
}

void SubjectReader::FillDistances(const std::vector<RowPlace>& rows, ResidualPiece& piece, int size) {
    const std::vector<int>& axes = fSpec.fResidual.fSpatial;
    Eigen::MatrixXd points(axes.size(), size);
    for (int i = 0; i < size; ++i) {
        const double* row = fView.Row(rows[piece.fStart + i].fRecord);
        for (std::size_t d = 0; d < axes.size(); ++d)
            points(static_cast<Eigen::Index>(d), i) = row[axes[d]];
    }
    Eigen::MatrixXd& distances = piece.fPlaces.fDistances;
    distances.setZero(size, size);
    for (int i = 0; i < size; ++i) {
        for (int j = 0; j < i; ++j) {
            const double distance = (points.col(i) - points.col(j)).stableNorm();
            distances(i, j) = distances(j, i) = distance;
            if (!(distance > 0.0)) continue;
            if (fSums.fMinDistance == 0.0 || distance < fSums.fMinDistance) fSums.fMinDistance = distance;
            fSums.fMaxDistance = std::max(fSums.fMaxDistance, distance);
        }
    }
}

FitStatus SubjectReader::ReadRows(std::size_t begin, std::size_t end, double frequency, Unit& unit) {
    const int width = fBasis.Rank() + 1;
    const int q = unit.Columns();
    const int order = static_cast<int>(end - begin);
    std::vector<RowPlace> rows;
    if (auto status = PlaceRows(begin, end, unit, rows); status.IsError()) return status;
    unit.fOrder = order;
    unit.fZ.setZero(order, q);
    unit.fRows.setZero(order, width);
    for (int k = 0; k < order; ++k) {
        const std::size_t record = rows[k].fRecord;
        const double* row = fView.Row(record);
        const double root = std::sqrt(fBasis.Weight(row, record));
        const int zs = ZHits(record, unit, record - begin);
        for (int a = 0; a < zs; ++a)
            unit.fZ(k, fZ[a].fColumn) += root * fZ[a].fValue;
        const int xs = KeptHits(row, record);
        for (int a = 0; a < xs; ++a)
            unit.fRows(k, fKept[a].fColumn) += root * fKept[a].fValue;
    }
    fSums.fResidualSs += frequency * unit.fRows.col(width - 1).squaredNorm();
    AddMoments(unit, frequency);
    if (frequency != 1.0) unit.fRows *= std::sqrt(frequency);
    return Fine();
}

void SubjectReader::AddMoments(const Unit& unit, double frequency) {
    if (fSums.fMoments.size() == 0) return;
    const auto r = unit.fRows.col(unit.fRows.cols() - 1);
    for (const ResidualPiece& piece : unit.fPieces) {
        const std::vector<int>& at = piece.fPlaces.fPositions;
        for (std::size_t i = 0; i < at.size(); ++i) {
            if (at[i] >= fSums.fMoments.rows()) return;
            for (std::size_t j = 0; j < at.size(); ++j) {
                fSums.fMoments(at[i], at[j]) += frequency * r[piece.fStart + i] * r[piece.fStart + j];
                fSums.fMomentCounts(at[i], at[j]) += frequency;
            }
        }
    }
}

}  // namespace engine
