#include "engine/lmm/LmmProblem.h"

#include "engine/lmm/SubjectReader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>
#include <string>
#include <unistd.h>
#include <unordered_map>

namespace engine {

namespace {

constexpr long kNotBuilt = 130018;
constexpr std::size_t kFreeRange = 8192;
constexpr int kMaxMergedOrder = 256;  // larger units hardly ever repeat, and comparing them costs
constexpr double kMaxGram = 4e6;      // entries of a unit's product sums

FitStatus Fine() {
    return {0, Severity::kOk, {}};
}

std::vector<long> RadixOf(const std::vector<int>& variables, const std::vector<int>& levels) {
    std::vector<long> radix(variables.size(), 1);
    long step = 1;
    for (std::size_t i = variables.size(); i-- > 0;) {
        radix[i] = step;
        step *= std::max(1, levels[variables[i]]);
    }
    return radix;
}

std::vector<int> Without(const std::vector<int>& list, const std::vector<int>& taken) {
    std::vector<int> rest;
    for (int variable : list) {
        if (std::find(taken.begin(), taken.end(), variable) == taken.end()) rest.push_back(variable);
    }
    return rest;
}

void HashBytes(std::size_t& hash, const void* data, std::size_t size) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t i = 0; i + 8 <= size; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, bytes + i, 8);
        hash = (hash ^ word) * 0x9E3779B97F4A7C15ULL;
        hash ^= hash >> 29;
    }
}

std::size_t HashOf(const Unit& unit) {
    std::size_t hash = static_cast<std::size_t>(unit.fOrder) * 31 + unit.fSlots.size();
    HashBytes(hash, unit.fZ.data(), sizeof(double) * unit.fZ.size());
    for (const ResidualPiece& piece : unit.fPieces) {
        for (int position : piece.fPlaces.fPositions)
            hash = hash * 1000003 + position;
        for (int position : piece.fPlaces.fSecond)
            hash = hash * 1000003 + position;
    }
    return hash;
}

bool SameShape(const Unit& a, const Unit& b) {
    if (a.fOrder != b.fOrder || a.fIdentity != b.fIdentity || a.fSlots != b.fSlots ||
        a.fPieces.size() != b.fPieces.size() || a.fZ.rows() != b.fZ.rows() || a.fZ.cols() != b.fZ.cols() ||
        (a.fZ.array() != b.fZ.array()).any()) {
        return false;
    }
    for (std::size_t i = 0; i < a.fPieces.size(); ++i) {
        const ResidualPiece& p = a.fPieces[i];
        const ResidualPiece& o = b.fPieces[i];
        if (p.fSegment != o.fSegment || p.fStart != o.fStart || p.fPlaces.fPositions != o.fPlaces.fPositions ||
            p.fPlaces.fSecond != o.fPlaces.fSecond || p.fPlaces.fDistances.rows() != o.fPlaces.fDistances.rows() ||
            (p.fPlaces.fDistances.array() != o.fPlaces.fDistances.array()).any()) {
            return false;
        }
    }
    return true;
}

// Members of one shape: side by side, or as product sums once that is less work for each evaluation.
void JoinMembers(Unit& unit, const std::vector<Eigen::MatrixXd>& members) {
    const double n = unit.fOrder;
    const double width = static_cast<double>(members.front().cols());
    const double count = static_cast<double>(members.size());
    const double gram = n * width * n * width;
    if (gram < kMaxGram && gram < 0.5 * count * n * width * (n + width)) {
        unit.fGram.setZero(unit.fOrder * members.front().cols(), unit.fOrder * members.front().cols());
        for (const Eigen::MatrixXd& rows : members) {
            const Eigen::MatrixXd flat = rows.transpose();
            const Eigen::Map<const Eigen::VectorXd> all(flat.data(), flat.size());
            unit.fGram.selfadjointView<Eigen::Lower>().rankUpdate(all);
        }
        unit.fGram.triangularView<Eigen::StrictlyUpper>() = unit.fGram.transpose();
        unit.fRows.resize(0, 0);
        return;
    }
    unit.fRows.resize(unit.fOrder, static_cast<Eigen::Index>(members.size()) * members.front().cols());
    for (std::size_t m = 0; m < members.size(); ++m)
        unit.fRows.middleCols(static_cast<Eigen::Index>(m) * members[m].cols(), members[m].cols()) = members[m];
}

// The covariance matrix of a common subject's records is dense, and so are its derivatives.
FitStatus CheckMemory(const LmmProblem& problem) {
    double largest = 0.0;
    for (int s = 0; s < problem.NumCommonSubjects(); ++s)
        largest = std::max(largest, static_cast<double>(problem.SubjectEnd(s) - problem.SubjectBegin(s)));
    const double bytes = sizeof(double) * (2.0 * problem.Layout().NumParams() + 6.0) * largest * largest;
    const double memory = static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGESIZE));
    if (bytes <= memory) return Fine();
    return {kNotBuilt, Severity::kError,
            std::to_string(static_cast<long>(largest)) +
                " records depend on one another, and their covariance matrix is too large for this machine: give the "
                "random effects and the repeated measures a subject in common, or leave the residual structure out."};
}

}  // namespace

struct LmmProblem::Chunk {
    std::vector<Unit> fUnits;
    ReadSums fSums;
    FitStatus fStatus{0, Severity::kOk, {}};
};

LmmProblem::LmmProblem(const ModelSpec& spec, const RecordView& view, Workers& workers)
    : fSpec(spec), fView(view), fWorkers(workers) {}

void LmmProblem::FindSubjects() {
    const std::vector<int> common = CommonSubject(fSpec);
    fFreeRecords = fSpec.fRandom.empty() && fSpec.fResidual.IsScaledIdentity() && fSpec.fResidual.fRepeated.empty();
    fStarts.assign(1, 0);
    if (fFreeRecords) {
        for (std::size_t i = kFreeRange; i < fView.fCount; i += kFreeRange)
            fStarts.push_back(i);
    } else if (!common.empty()) {
        for (std::size_t i = 1; i < fView.fCount; ++i) {
            const double* here = fView.Row(i);
            const double* before = fView.Row(i - 1);
            const bool same = std::all_of(common.begin(), common.end(), [&](int v) { return here[v] == before[v]; });
            if (!same) fStarts.push_back(i);
        }
    }
    fStarts.push_back(fView.fCount);
}

std::vector<int> LmmProblem::SegmentsFor(int block, int group, CovarianceType type, const StructureShape& shape) {
    const std::shared_ptr<const Structure> reported = MakeStructure(type, shape);
    if (!reported) return {};
    const std::shared_ptr<const Structure> working = reported->Working();
    if (group < 0) return {fLayout.Add(block, -1, type, reported, working)};
    std::vector<char> present(fSpec.fLevels[group], 0);
    for (std::size_t i = 0; i < fView.fCount; ++i)
        present[static_cast<int>(fView.Row(i)[group])] = 1;
    std::vector<int> segments(present.size(), -1);
    for (std::size_t level = 0; level < present.size(); ++level) {
        if (present[level]) segments[level] = fLayout.Add(block, static_cast<int>(level), type, reported, working);
    }
    return segments;
}

FitStatus LmmProblem::PlanBlocks() {
    const std::vector<int> common = CommonSubject(fSpec);
    fBlocks.clear();
    for (std::size_t b = 0; b < fSpec.fRandom.size(); ++b) {
        const RandomBlock& block = fSpec.fRandom[b];
        BlockPlan plan;
        plan.fDesign = EffectDesign(block.fEffects, fSpec.fLevels);
        plan.fInner = Without(block.fSubjects, common);
        plan.fRadix = RadixOf(plan.fInner, fSpec.fLevels);
        plan.fGroup = block.fGroup;
        StructureShape shape;
        shape.fDimension = plan.fDesign.NumColumns();
        for (int e = 0; e < plan.fDesign.NumEffects(); ++e)
            shape.fEffectColumns.push_back(plan.fDesign.Columns(e));
        plan.fSegments = SegmentsFor(static_cast<int>(b), block.fGroup, block.fType, shape);
        if (plan.fSegments.empty()) {
            return {kNotBuilt, Severity::kError, "A random block has a covariance type that does not exist."};
        }
        fBlocks.push_back(std::move(plan));
    }
    return Fine();
}

namespace {

// Maps combined level codes to positions in ascending order of the combinations that occur.
std::vector<int> PositionsOf(const std::vector<int>& variables, const ModelSpec& spec, const RecordView& view,
                             int* dimension) {
    if (variables.empty()) return {};
    long size = 1;
    for (int variable : variables)
        size *= spec.fLevels[variable];
    std::vector<int> map(size, variables.size() == 1 ? 1 : 0);
    if (variables.size() > 1) {
        for (std::size_t i = 0; i < view.fCount; ++i) {
            long code = 0;
            for (int variable : variables)
                code = code * spec.fLevels[variable] + static_cast<long>(view.Row(i)[variable]);
            map[code] = 1;
        }
    }
    *dimension = 0;
    for (int& entry : map)
        entry = entry != 0 ? (*dimension)++ : -1;
    return map;
}

}  // namespace

FitStatus LmmProblem::PlanResidual() {
    const ResidualBlock& residual = fSpec.fResidual;
    fRepeated = RepeatedPlan{};
    fRepeated.fInner = Without(residual.fSubjects, CommonSubject(fSpec));
    fRepeated.fRadix = RadixOf(fRepeated.fInner, fSpec.fLevels);
    const bool kronecker = residual.fType >= CovarianceType::kUN_UN;
    if (kronecker) {
        for (int at : residual.fFirstMeasures)
            fRepeated.fFirst.push_back(residual.fRepeated[at]);
        for (int at : residual.fSecondMeasures)
            fRepeated.fSecond.push_back(residual.fRepeated[at]);
        if (fRepeated.fFirst.empty() || fRepeated.fSecond.empty()) {
            return {kNotBuilt, Severity::kError, "A Kronecker structure needs a measure for each of its two factors."};
        }
    } else {
        fRepeated.fFirst = residual.fRepeated;
    }
    StructureShape shape;
    fRepeated.fFirstMap = PositionsOf(fRepeated.fFirst, fSpec, fView, &fRepeated.fDimension);
    fRepeated.fSecondMap = PositionsOf(fRepeated.fSecond, fSpec, fView, &fRepeated.fSecondDimension);
    if (residual.IsScaledIdentity()) {
        shape.fDimension = 1;
    } else if (fRepeated.fFirst.empty()) {
        std::unordered_map<long, int> sizes;
        for (int s = 0; s < NumCommonSubjects(); ++s) {
            sizes.clear();
            for (std::size_t i = SubjectBegin(s); i < SubjectEnd(s); ++i) {
                long key = 0;
                for (std::size_t v = 0; v < fRepeated.fInner.size(); ++v)
                    key += static_cast<long>(fView.Row(i)[fRepeated.fInner[v]]) * fRepeated.fRadix[v];
                fRepeated.fDimension = std::max(fRepeated.fDimension, ++sizes[key]);
            }
        }
        shape.fDimension = fRepeated.fDimension;
    } else {
        shape.fDimension = fRepeated.fDimension;
        shape.fSecondDimension = fRepeated.fSecondDimension;
    }
    if (residual.fDispersed) SegmentsFor(kDispersionBlock, -1, CovarianceType::kID, shape);
    shape.fSpaceDimension = static_cast<int>(residual.fSpatial.size());
    shape.fFixedVariance = residual.fUnitScale;
    fRepeated.fSegments = SegmentsFor(-1, residual.fGroup, residual.fType, shape);
    if (fRepeated.fSegments.empty()) {
        return {kNotBuilt, Severity::kError, "The repeated block has a covariance type that does not exist."};
    }
    return Fine();
}

FitStatus LmmProblem::Prepare(const WorkingData& working) {
    fLayout = ParameterLayout{};
    FindSubjects();
    if (auto status = PlanBlocks(); status.IsError()) return status;
    if (auto status = PlanResidual(); status.IsError()) return status;
    return Gather(working);
}

FitStatus LmmProblem::Gather(const WorkingData& working) {
    fBasis = std::make_unique<FixedBasis>(fSpec, fView, fWorkers, working);
    const bool dispersed = fSpec.fResidual.fDispersed;
    bool rotated = fSpec.fResidual.IsScaledIdentity() && !dispersed;
    if (rotated && fSpec.fResidual.fGroup >= 0 && !fFreeRecords) {
        const int group = fSpec.fResidual.fGroup;
        for (int s = 0; s < NumCommonSubjects() && rotated; ++s) {
            for (std::size_t i = SubjectBegin(s) + 1; i < SubjectEnd(s) && rotated; ++i)
                rotated = fView.Row(i)[group] == fView.Row(i - 1)[group];
        }
    }
    if (!rotated && !dispersed && !fFreeRecords) {
        if (FitStatus status = CheckMemory(*this); status.IsError()) return status;
    }
    const int width = fBasis->Rank() + 1;
    const double perChunk = 8.0 * width * width * static_cast<double>(fRepeated.fSegments.size());
    const int most = std::clamp(static_cast<int>(6.4e7 / perChunk), 1, 128);
    const int wanted = static_cast<int>(std::min<std::size_t>(fView.fCount / 4096 + 1, most));
    const int count = std::min(wanted, NumCommonSubjects());
    std::vector<Chunk> chunks(count);
    fWorkers.Run(count, [&](int c) {
        Chunk& chunk = chunks[c];
        SubjectReader reader(*this, fBlocks, fRepeated, rotated, chunk.fSums);
        // Chunks end at the subject that holds their share of the records.
        const auto from = [&](int k) {
            const std::size_t record = fView.fCount / count * k;
            return k == count ? NumCommonSubjects()
                              : static_cast<int>(std::lower_bound(fStarts.begin(), fStarts.end() - 1, record) -
                                                 fStarts.begin());
        };
        for (int s = from(c); s < from(c + 1); ++s) {
            if (fFreeRecords && !dispersed) {
                reader.ReadFree(SubjectBegin(s), SubjectEnd(s));
                continue;
            }
            Unit unit;
            chunk.fStatus = reader.Read(SubjectBegin(s), SubjectEnd(s), unit);
            if (chunk.fStatus.IsError()) return;
            chunk.fUnits.push_back(std::move(unit));
        }
    });
    for (const Chunk& chunk : chunks) {
        if (chunk.fStatus.IsError()) return chunk.fStatus;
    }
    MergeUnits(chunks);
    if (fSpec.fResidual.fSpatial.empty()) return Fine();
    const double least = fMinDistance > 0.0 ? fMinDistance : std::numeric_limits<double>::infinity();
    std::string objection =
        SpaceObjection(fSpec.fResidual.fType, static_cast<int>(fSpec.fResidual.fSpatial.size()), least);
    if (objection.empty()) return Fine();
    return {kNotBuilt, Severity::kError, std::move(objection)};
}

void LmmProblem::MergeUnits(std::vector<Chunk>& chunks) {
    fUnits.clear();
    fRemainders.clear();
    fNumSubjects.assign(fBlocks.size(), 0);
    fNumResidualSubjects = 0;
    fResidualSs = 0.0;
    fMinDistance = fMaxDistance = 0.0;
    Eigen::MatrixXd moments, counts;
    std::vector<double> squares(fBlocks.size(), 0.0);
    for (Chunk& chunk : chunks) {
        ReadSums& sums = chunk.fSums;
        if (fRemainders.empty()) {
            fRemainders = std::move(sums.fRemainders);
        } else {
            for (std::size_t g = 0; g < fRemainders.size(); ++g) {
                fRemainders[g].fCount += sums.fRemainders[g].fCount;
                fRemainders[g].fCross += sums.fRemainders[g].fCross;
            }
        }
        for (std::size_t b = 0; b < fBlocks.size(); ++b) {
            fNumSubjects[b] += sums.fNumSubjects[b];
            squares[b] += sums.fSquares[b];
        }
        fNumResidualSubjects += sums.fNumResidualSubjects;
        fResidualSs += sums.fResidualSs;
        if (sums.fMinDistance > 0.0 && (fMinDistance == 0.0 || sums.fMinDistance < fMinDistance)) {
            fMinDistance = sums.fMinDistance;
        }
        fMaxDistance = std::max(fMaxDistance, sums.fMaxDistance);
        if (moments.size() == 0) {
            moments = sums.fMoments;
            counts = sums.fMomentCounts;
        } else if (sums.fMoments.size() > 0) {
            moments += sums.fMoments;
            counts += sums.fMomentCounts;
        }
    }
    std::erase_if(fRemainders, [](const Remainder& remainder) { return remainder.fSegment < 0; });
    for (Remainder& remainder : fRemainders)
        remainder.fCross.triangularView<Eigen::StrictlyUpper>() = remainder.fCross.transpose();
    for (std::size_t b = 0; b < fBlocks.size(); ++b) {
        const double cells = fBasis->Records() * fBlocks[b].fDesign.NumColumns();
        fBlocks[b].fMeanSquare = cells > 0.0 ? squares[b] / cells : 1.0;
    }
    fPositionMoments.resize(0, 0);
    if (moments.size() > 0 && counts.minCoeff() > 0.0) fPositionMoments = moments.cwiseQuotient(counts);

    // Shapes are looked up as long as that finds something: the first thousand subjects tell.
    constexpr std::size_t kTrial = 1024;
    std::unordered_map<std::size_t, std::vector<std::size_t>> byHash;
    std::vector<std::vector<Eigen::MatrixXd>> members;
    std::size_t seen = 0;
    for (Chunk& chunk : chunks) {
        for (Unit& unit : chunk.fUnits) {
            ++seen;
            const bool search =
                !unit.IsDispersed() && unit.fOrder <= kMaxMergedOrder && (seen <= kTrial || 2 * fUnits.size() < seen);
            if (search) {
                auto& list = byHash[HashOf(unit)];
                const auto same =
                    std::find_if(list.begin(), list.end(), [&](std::size_t at) { return SameShape(fUnits[at], unit); });
                if (same != list.end()) {
                    Unit& first = fUnits[*same];
                    first.fCount += unit.fCount;
                    ++first.fMembers;
                    members[*same].push_back(std::move(unit.fRows));
                    continue;
                }
                list.push_back(fUnits.size());
            }
            fUnits.push_back(std::move(unit));
            members.emplace_back();
        }
        chunk.fUnits.clear();
    }
    for (std::size_t u = 0; u < fUnits.size(); ++u) {
        if (members[u].empty()) continue;
        members[u].insert(members[u].begin(), std::move(fUnits[u].fRows));
        JoinMembers(fUnits[u], members[u]);
    }
}

StartHint LmmProblem::HintOf(int segment) const {
    const double df = std::max(1.0, fBasis->TotalFrequency() - fBasis->Rank());
    const double variance = fResidualSs / df;
    const double share = 1.0 / static_cast<double>(fBlocks.size() + 1);
    const Segment& which = fLayout[segment];
    StartHint hint;
    if (which.fBlock == kDispersionBlock) {
        double sum = 0.0;
        for (std::size_t i = 0; i < fView.fCount; ++i)
            sum += fBasis->Spread(i);
        hint.fVariance = variance * share * static_cast<double>(fView.fCount) / sum;
    } else if (which.fBlock < 0) {
        hint.fVariance = variance * share;
        hint.fMinDistance = fMinDistance;
        hint.fMaxDistance = fMaxDistance;
        if (fPositionMoments.size() > 0) hint.fMoments = fPositionMoments * share;
    } else {
        const BlockPlan& plan = fBlocks[which.fBlock];
        const double meanSquare = plan.fMeanSquare * plan.fDesign.NumColumns() / plan.fDesign.NumEffects();
        hint.fVariance = variance * share / (meanSquare > 0.0 ? meanSquare : 1.0);
    }
    return hint;
}

Eigen::VectorXd LmmProblem::Start() const {
    Eigen::VectorXd theta(fLayout.NumParams());
    for (int s = 0; s < fLayout.NumSegments(); ++s) {
        const Segment& segment = fLayout[s];
        theta.segment(segment.fOffset, segment.fCount) = segment.fReported->Start(HintOf(s));
    }
    return theta;
}

LmmProblem::Member LmmProblem::ReadSubject(int subject, const Eigen::VectorXd& theta) const {
    Member member;
    ReadSums sums;
    const int dispersion = fLayout.Find(kDispersionBlock, -1);
    const bool rotated = dispersion >= 0 || !fRemainders.empty();
    SubjectReader reader(*this, fBlocks, fRepeated, rotated, sums);
    if (dispersion >= 0) reader.WeighBy(theta[fLayout[dispersion].fOffset]);
    member.fStatus = reader.Read(SubjectBegin(subject), SubjectEnd(subject), member.fUnit, &member.fFirstRecords);
    return member;
}

}  // namespace engine
