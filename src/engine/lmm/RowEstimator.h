#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/RandomSource.h"
#include "engine/model/Matrices.h"

#include <vector>

namespace engine {

/// Estimates rows of coefficients and makes them of records, one after another. It keeps what they have in common and
/// room to work in: each thread has one of its own.
class RowEstimator {
public:
    /// model outlives this object. With random effects, its records are read unless their predictions are kept.
    explicit RowEstimator(const FittedModel& model);

    /// The row of a record: fixed effects, and random effects of the first blocks as far as its subjects are known.
    /// Stands until the next call.
    const MixedRow& RowOf(const double* record, int blocks);
    /// Whether a record's subjects are known in the first blocks.
    bool KnowsSubjects(const double* record, int blocks);

    /// errors: whether standard error and degrees of freedom are wanted. All is missing of a row that is not estimable.
    Estimated Estimate(const MixedRow& row, bool errors);

private:
    struct Block {
        EffectDesign fDesign;
        std::vector<int> fSubjects;  ///< variables
    };

    int FindSubject(int block, const double* record);
    bool TakeFixed(const MixedRow& row);

    const FittedModel& fModel;
    std::vector<Block> fBlocks;
    std::vector<int> fRedundant;  ///< columns of fixed effects
    std::vector<int> fCodes;
    std::vector<ColumnHit> fHits;
    MixedRow fRow;
    Eigen::MatrixXd fKept;     ///< one column: the row's coefficients of the kept parameters
    Eigen::VectorXd fBalance;  ///< one a redundant parameter: its coefficient less what the kept ones make it
    RandomSource::Combination fCombined;
};

}  // namespace engine
