#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/FixedBasis.h"
#include "engine/lmm/ParameterLayout.h"
#include "engine/model/EffectDesign.h"
#include "engine/model/Matrices.h"
#include "engine/model/ModelSpec.h"
#include "engine/model/Workers.h"

#include <memory>
#include <vector>

namespace engine {

/// The columns of a unit's Z that are one inner subject's effects of one block.
struct Slot {
    int fSegment;
    int fColumn;
    int fWidth;
    bool operator==(const Slot&) const = default;
};

/// Rows of a unit that are one subject of the repeated block.
struct ResidualPiece {
    int fSegment;
    int fStart;
    Places fPlaces;
};

/// The records of one common subject whose residual variances are 1 + k spread. Weights are in Z and in the data.
struct DispersedRows {
    int fHits = 0;              ///< entries of Z a record
    std::vector<ColumnHit> fZ;  ///< record after record
    Eigen::MatrixXd fData;      ///< [X r]', a column a record
    Eigen::VectorXd fSpread;    ///< empty: no such records
    std::vector<double> fFrequency;
};

/// Common subjects whose marginal covariance matrix is the same: V = sum of Z_s G Z_s' + R, of order n.
///
/// With a scaled identity residual the rows aren't records: a subject's records are rotated by an orthogonal matrix so
/// that all of Z stands in the first n = rank(Z) of them, and the rest, whose covariance is the residual variance times
/// the identity, goes into a Remainder. The members' data are [X r], p + 1 columns, r the target less its least squares
/// fit; weights are already in them. They are kept side by side, or, when there are many, as the sum of the products
/// of all pairs of entries. With dispersed residuals a unit is one subject, whose records stay as they are.
struct Unit {
    int fOrder = 0;
    double fCount = 0.0;  ///< members, with their frequencies
    Eigen::MatrixXd fZ;   ///< n x q
    std::vector<Slot> fSlots;
    int fIdentity = -1;                  ///< segment of a scaled identity residual, or -1
    std::vector<ResidualPiece> fPieces;  ///< of any other residual
    DispersedRows fDispersed;            ///< instead of fZ, fRows and fGram
    int fMembers = 0;
    Eigen::MatrixXd fRows;  ///< n x fMembers (p + 1), or empty
    Eigen::MatrixXd fGram;  ///< n (p + 1) square, entry (a (p + 1) + c, b (p + 1) + d), or empty

    bool IsDispersed() const { return fDispersed.fSpread.size() > 0; }
    int Columns() const { return fSlots.empty() ? 0 : fSlots.back().fColumn + fSlots.back().fWidth; }  ///< q
};

/// What is left of the records of one residual variance when the rows of the units are taken out.
struct Remainder {
    int fSegment = -1;
    double fCount = 0.0;
    Eigen::MatrixXd fCross;  ///< p + 1 square
};

/// How a random block's records fall into slots.
struct BlockPlan {
    EffectDesign fDesign;
    std::vector<int> fInner;   ///< subject variables besides the common ones
    std::vector<long> fRadix;  ///< of each inner variable in the slot's key
    int fGroup = -1;
    std::vector<int> fSegments;  ///< per group level, -1 where there are no records; one entry without groups
    double fMeanSquare = 0.0;    ///< mean over the columns of the mean square of Z
};

/// Positions of the records in the repeated block.
struct RepeatedPlan {
    std::vector<int> fInner;  ///< residual subject variables besides the common ones
    std::vector<long> fRadix;
    std::vector<int> fFirst, fSecond;        ///< repeated variables behind the two positions
    std::vector<int> fFirstMap, fSecondMap;  ///< from combined level code to position
    int fDimension = 1;
    int fSecondDimension = 1;
    std::vector<int> fSegments;  ///< per group level
};

/// A model's data, gathered once: after this, likelihood evaluations don't touch the records.
///
/// A generalized model calls Gather again with each working response; the scan of subjects, slots and levels is kept.
class LmmProblem {
public:
    LmmProblem(const ModelSpec& spec, const RecordView& view, Workers& workers);

    /// Scans subjects and levels, then gathers. An error status when the data don't fit the model.
    FitStatus Prepare(const WorkingData& working = {});
    /// Gathers anew with other targets and weights.
    FitStatus Gather(const WorkingData& working);

    const ModelSpec& Spec() const { return fSpec; }
    const RecordView& View() const { return fView; }
    Workers& Crew() const { return fWorkers; }
    const FixedBasis& Basis() const { return *fBasis; }
    const ParameterLayout& Layout() const { return fLayout; }
    const std::vector<Unit>& Units() const { return fUnits; }
    const std::vector<Remainder>& Remainders() const { return fRemainders; }
    const std::vector<BlockPlan>& Blocks() const { return fBlocks; }
    double ResidualSumOfSquares() const { return fResidualSs; }  ///< of ordinary least squares, weighted

    /// False when there is no random block and no repeated one: the ranges below are then any runs of records.
    bool HasSubjects() const { return !fFreeRecords; }
    int NumCommonSubjects() const { return static_cast<int>(fStarts.size()) - 1; }
    std::size_t SubjectBegin(int subject) const { return fStarts[subject]; }
    std::size_t SubjectEnd(int subject) const { return fStarts[subject + 1]; }
    int NumSubjects(int block) const { return fNumSubjects[block]; }
    int NumResidualSubjects() const { return fNumResidualSubjects; }

    /// Starting values, reported scale.
    Eigen::VectorXd Start() const;
    StartHint HintOf(int segment) const;

    /// One common subject as a unit of its own, with the inner subjects' records behind its slots (first record of
    /// each). theta, reported scale: its dispersion goes into the weights, so that the residual is a scaled identity.
    /// Reads the records.
    struct Member {
        Unit fUnit;
        std::vector<std::size_t> fFirstRecords;  ///< per slot, a record of its inner subject
        FitStatus fStatus;
    };
    Member ReadSubject(int subject, const Eigen::VectorXd& theta) const;

private:
    struct Chunk;

    void FindSubjects();
    FitStatus PlanBlocks();
    FitStatus PlanResidual();
    std::vector<int> SegmentsFor(int block, int group, CovarianceType type, const StructureShape& shape);
    void MergeUnits(std::vector<Chunk>& chunks);

    const ModelSpec& fSpec;
    RecordView fView;
    Workers& fWorkers;
    std::unique_ptr<FixedBasis> fBasis;
    ParameterLayout fLayout;
    std::vector<std::size_t> fStarts;  // first record of each common subject, and the number of records
    bool fFreeRecords = false;         // no random block and independent residuals: ranges of records, not subjects
    std::vector<BlockPlan> fBlocks;
    RepeatedPlan fRepeated;
    std::vector<Unit> fUnits;
    std::vector<Remainder> fRemainders;
    std::vector<int> fNumSubjects;
    int fNumResidualSubjects = 0;
    double fResidualSs = 0.0;
    double fMinDistance = 0.0;
    double fMaxDistance = 0.0;
    Eigen::MatrixXd fPositionMoments;  // mean products of least squares residuals by position
};

}  // namespace engine
