#include "engine/lmm/RowEstimator.h"

#include "engine/lmm/FittedModel.h"
#include "engine/lmm/Hypotheses.h"
#include "engine/lmm/MixedContrasts.h"

#include <algorithm>
#include <cmath>

namespace engine {

RowEstimator::RowEstimator(const FittedModel& model) : fModel(model), fKept(model.Basis().Rank(), 1) {
    for (const RandomBlock& block : model.fSpec.fRandom)
        fBlocks.push_back({EffectDesign(block.fEffects, model.fSpec.fLevels), block.fSubjects});
    for (int column = 0; column < model.Basis().NumColumns(); ++column) {
        if (model.Basis().KeptIndex(column) < 0) fRedundant.push_back(column);
    }
    fBalance.resize(static_cast<Eigen::Index>(fRedundant.size()));
}

int RowEstimator::FindSubject(int block, const double* record) {
    fCodes.clear();
    for (int variable : fBlocks[block].fSubjects)
        fCodes.push_back(static_cast<int>(record[variable]));
    return fModel.Mixed().Source().Find(block, fCodes);
}

bool RowEstimator::KnowsSubjects(const double* record, int blocks) {
    for (int b = 0; b < blocks; ++b) {
        if (FindSubject(b, record) < 0) return false;
    }
    return true;
}

const MixedRow& RowEstimator::RowOf(const double* record, int blocks) {
    const EffectDesign& fixed = fModel.Basis().Design();
    fRow.fFixed.resize(fixed.NumEffects());
    fixed.PlainHits(record, fRow.fFixed.data());
    fRow.fRandom.clear();
    for (int b = 0; b < blocks; ++b) {
        const int subject = FindSubject(b, record);
        if (subject < 0) continue;
        fHits.resize(fBlocks[b].fDesign.NumEffects());
        fBlocks[b].fDesign.PlainHits(record, fHits.data());
        for (const ColumnHit& hit : fHits)
            fRow.fRandom.push_back({b, subject, hit.fColumn, hit.fValue});
    }
    return fRow;
}

// Puts the row's fixed part in its place. False when it isn't estimable.
bool RowEstimator::TakeFixed(const MixedRow& row) {
    const FixedBasis& basis = fModel.Basis();
    fKept.setZero();
    fBalance.setZero();
    double size = 0.0;
    for (const ColumnHit& hit : row.fFixed) {
        const int kept = basis.KeptIndex(hit.fColumn);
        size = std::max(size, std::abs(hit.fValue));
        if (kept >= 0) fKept(kept, 0) += hit.fValue;
        for (std::size_t r = 0; r < fRedundant.size(); ++r) {
            double& balance = fBalance[static_cast<Eigen::Index>(r)];
            if (kept >= 0) balance -= hit.fValue * basis.Span()(kept, fRedundant[r]);
            if (fRedundant[r] == hit.fColumn) balance += hit.fValue;
        }
    }
    return IsNegligible(fBalance, size);
}

Estimated RowEstimator::Estimate(const MixedRow& row, bool errors) {
    Estimated result;
    result.fEstimable = TakeFixed(row);
    if (!result.fEstimable) return result;
    const Inference& inference = *fModel.fInference;
    result.fEstimate = fKept.col(0).dot(inference.Beta());
    if (row.fRandom.empty()) {
        if (errors) {
            fCombined.fHalf.noalias() = inference.Half().transpose().lazyProduct(fKept);
            inference.AddError(fCombined.fHalf.col(0), result);
        }
        return result;
    }
    const MixedContrasts& mixed = fModel.Mixed();
    for (const MixedRow::RandomTerm& term : row.fRandom)
        result.fEstimate += term.fCoefficient * mixed.Source().Predicted(term.fBlock, term.fSubject, term.fColumn);
    if (errors) mixed.AddError(fKept, row, fCombined, result);
    return result;
}

}  // namespace engine
