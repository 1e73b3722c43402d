#pragma once

#include "engine/model/Matrices.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace engine {

/// What the records say about a model with crossed random terms: all that a likelihood evaluation needs.
///
/// The model is y = X b + sum over terms t of Z_t u_t + e, where a record belongs to one subject of each term and term
/// t has q_t coefficients a subject. W holds frequency times regression weight. All sums are over the records.
///
/// Coefficients of all terms stand in one long vector, term after term, subject after subject: coefficient a of subject
/// j of term t has index fOffset[t] + j q_t + a. One term is to be eliminated first; the others are the rest, and
/// a coefficient's rest index is its index with the eliminated term's coefficients left out.
///
/// When the fixed effects have an intercept, the target and the other columns of X are centred at their weighted means,
/// and each column of X is divided by its standard deviation: everything here is about these columns. Transform takes
/// results back.
struct CrossedStatistics {
    int fFixed = 0;                ///< p, columns of X
    std::vector<int> fColumns;     ///< per term, q_t
    std::vector<int> fSubjects;    ///< per term, number of subjects
    std::vector<int> fOffset;      ///< per term, index of its first coefficient; one entry more, the total
    std::vector<int> fRestOffset;  ///< per term, rest index of its first coefficient; -1 for the eliminated term
    int fEliminated = 0;           ///< the term that is eliminated first: the one with most coefficients
    int fRest = 0;                 ///< coefficients of the other terms
    double fRecords = 0.0;         ///< records added
    double fTotalFrequency = 0.0;  ///< n: sum of the frequency weights
    double fLogWeights = 0.0;      ///< sum of frequency times log regression weight

    Eigen::MatrixXd fCross;                 ///< [X y]'W[X y], p + 1 square
    Eigen::MatrixXd fRight;                 ///< Z'W[X y], a row a coefficient
    std::vector<std::vector<double>> fOwn;  ///< per term, Z_j'WZ_j of each subject, q_t square, one after the other

    /// Z_j'W Z_rest of the eliminated term's subjects, by rows: subject j meets the rest coefficients
    /// fMet[fFirstMet[j]] ... ascending, each with a column of q values.
    std::vector<std::int64_t> fFirstMet;
    std::vector<int> fMet;
    std::vector<double> fMetValues;

    /// Z'WZ between different rest terms, row above column (by rest index), sorted by column and then row.
    struct Entry {
        int fRow;
        int fColumn;
        double fValue;
    };
    std::vector<Entry> fBetween;

    int fIntercept = -1;        ///< column of X that is 1 throughout, or -1: nothing was centred
    double fTargetShift = 0.0;  ///< taken off y
    Eigen::VectorXd fShift;     ///< taken off each column of X, 0 for the intercept
    Eigen::VectorXd fScale;     ///< by which each column of X was then divided

    int Coefficients() const { return fOffset.back(); }
    int Terms() const { return static_cast<int>(fColumns.size()); }
    /// Coefficients of a term.
    int Size(int term) const { return fOffset[term + 1] - fOffset[term]; }

    /// The same statistics for some of the columns of X, ascending. The intercept, if any, must be among them.
    CrossedStatistics WithColumns(const std::vector<int>& kept) const;

    /// Coefficients of the original columns at those of the centred and scaled ones: T b + t, where t is the target's
    /// shift in the intercept's place.
    Eigen::MatrixXd Transform() const;

    /// log |T|^-2: what log |X'V^-1 X| changes by from these columns to the original ones.
    double LogScale() const { return 2.0 * fScale.array().log().sum(); }
};

/// One record for CrossedGather. Pointers are read during the call only.
struct CrossedRecord {
    double fTarget = 0.0;
    const double* fFixed = nullptr;          ///< p values of X
    const int* fSubjects = nullptr;          ///< per term, the subject's index from 0
    const double* const* fRandom = nullptr;  ///< per term, its q values of Z
    double fWeight = 1.0;                    ///< regression weight, above 0
    double fFrequency = 1.0;                 ///< how many times the record counts
};

/// Gathers CrossedStatistics from a stream of records, each seen once. Memory is bounded by the coefficients and by the
/// pairs of subjects that occur together.
class CrossedGather {
public:
    /// columns: per term q_t, at least one term; fixed: columns of X; intercept: the one that is 1 throughout, or -1.
    CrossedGather(std::vector<int> columns, int fixed, int intercept);

    void Add(const CrossedRecord& record);

    /// The statistics; the gatherer is empty afterwards. At least one record must have been added.
    CrossedStatistics Finish();

private:
    /// Sums by pair of subjects of two terms: open addressing on the pair's key.
    class PairTable {
    public:
        void Init(int width);
        double* Slot(int first, int second);
        std::size_t Size() const { return fKeys.size(); }
        std::uint64_t Key(std::size_t i) const { return fKeys[i]; }
        const double* Values(std::size_t i) const { return fValues.data() + i * fWidth; }

    private:
        void Grow();
        std::vector<std::uint32_t> fSlots;
        std::vector<std::uint64_t> fKeys;
        std::vector<double> fValues;
        std::size_t fWidth = 1;
    };

    PairTable& Pair(int first, int second) { return fPairs[first * fStat.Terms() + second]; }
    void AddOwn(const CrossedRecord& record, int term, double weight);
    void AddPair(const CrossedRecord& record, int first, int second, double weight);
    void Centre();
    void ChooseEliminated();
    void SortMet();
    void SortBetween();

    CrossedStatistics fStat;
    std::vector<PairTable> fPairs;
    std::vector<std::vector<double>> fRightByTerm;
    Eigen::VectorXd fRow;  ///< shifted [x y] of the record at hand
};

}  // namespace engine
