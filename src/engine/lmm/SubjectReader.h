#pragma once

#include "engine/lmm/LmmProblem.h"

#include <unordered_map>
#include <vector>

namespace engine {

/// What reading a run of subjects adds up besides their units.
struct ReadSums {
    std::vector<Remainder> fRemainders;  ///< per residual segment of a scaled identity
    std::vector<int> fNumSubjects;       ///< per random block
    int fNumResidualSubjects = 0;
    double fResidualSs = 0.0;
    double fMinDistance = 0.0;
    double fMaxDistance = 0.0;
    Eigen::MatrixXd fMoments;  ///< sums of products of residuals by pairs of positions
    Eigen::MatrixXd fMomentCounts;
    std::vector<double> fSquares;  ///< per random block, sum of squares of all its Z
};

/// Reads the records of one common subject after the other into units. One object a thread's chunk: it keeps scratch.
class SubjectReader {
public:
    SubjectReader(const LmmProblem& problem, const std::vector<BlockPlan>& blocks, const RepeatedPlan& repeated,
                  bool rotated, ReadSums& sums);

    /// Records begin to end - 1 as a unit of one member. firsts, if given, gets a record of each slot.
    FitStatus Read(std::size_t begin, std::size_t end, Unit& unit, std::vector<std::size_t>* firsts = nullptr);

    /// Divides the weights of dispersed records by their residual variances at this dispersion. Rotated units only.
    void WeighBy(double dispersion) { fDispersion = dispersion; }

    /// Records without random effects and with independent residuals: they only go into the remainders.
    void ReadFree(std::size_t begin, std::size_t end);

private:
    // Inner subjects of one block within the common subject, in order of appearance.
    struct SlotIndex {
        std::vector<long> fKeys;
        std::vector<int> fGroups;
        std::vector<std::size_t> fFirsts;
        std::unordered_map<long, int> fMap;
        int fLast = -1;
        void Clear();
        int Find(long key, std::size_t record, int group);
    };
    struct RowPlace {
        std::size_t fRecord;
        int fPiece;
        int fFirst;
        int fSecond;
    };

    FitStatus FindSlots(std::size_t begin, std::size_t end, Unit& unit, std::vector<std::size_t>* firsts);
    FitStatus CheckRepeats(std::size_t begin, std::size_t end);
    double Weight(const double* row, std::size_t record) const;
    void ReadDispersed(std::size_t begin, std::size_t end, Unit& unit);
    void ReadRotated(std::size_t begin, std::size_t end, double frequency, Unit& unit);
    FitStatus ReadRows(std::size_t begin, std::size_t end, double frequency, Unit& unit);
    FitStatus PlaceRows(std::size_t begin, std::size_t end, Unit& unit, std::vector<RowPlace>& rows);
    void FillDistances(const std::vector<RowPlace>& rows, ResidualPiece& piece, int size);
    void AddMoments(const Unit& unit, double frequency);
    int ZHits(std::size_t record, const Unit& unit, std::size_t index);
    int KeptHits(const double* row, std::size_t record);
    long Key(const double* row, const std::vector<int>& variables, const std::vector<long>& radix) const;
    int ResidualSegment(const double* row) const;

    const LmmProblem& fProblem;
    const ModelSpec& fSpec;
    const FixedBasis& fBasis;
    const RecordView& fView;
    const std::vector<BlockPlan>& fBlocks;
    const RepeatedPlan& fRepeated;
    const bool fRotated;
    double fDispersion = 0.0;
    ReadSums& fSums;

    std::vector<SlotIndex> fIndexes;  // per block
    std::vector<int> fRecordSlots;    // per record of the subject and block, the unit's slot
    std::vector<ColumnHit> fHits;     // fixed effects of a record
    std::vector<ColumnHit> fKept;     // the same, kept columns only; the target last
    std::vector<ColumnHit> fBlockHits;
    std::vector<ColumnHit> fZ;  // a record's Z
};

}  // namespace engine
