#include "engine/lmm/DispersedKernel.h"

#include "engine/lmm/UnitKernel.h"

#include <cmath>

namespace engine {

namespace {

double TraceOfProduct(const Eigen::MatrixXd& a, const Eigen::MatrixXd& b) {
    return a.cwiseProduct(b.transpose()).sum();
}

/// The slots' blocks of a matrix of one segment, times rows or columns of another.
Eigen::MatrixXd TimesRows(const Unit& unit, int segment, const Eigen::MatrixXd& block, const Eigen::MatrixXd& matrix) {
    Eigen::MatrixXd product = Eigen::MatrixXd::Zero(matrix.rows(), matrix.cols());
    for (const Slot& slot : unit.fSlots) {
        if (slot.fSegment != segment) continue;
        product.middleRows(slot.fColumn, slot.fWidth).noalias() =
            block.lazyProduct(matrix.middleRows(slot.fColumn, slot.fWidth));
    }
    return product;
}

Eigen::MatrixXd TimesColumns(const Unit& unit, int segment, const Eigen::MatrixXd& matrix,
                             const Eigen::MatrixXd& block) {
    Eigen::MatrixXd product = Eigen::MatrixXd::Zero(matrix.rows(), matrix.cols());
    for (const Slot& slot : unit.fSlots) {
        if (slot.fSegment != segment) continue;
        product.middleCols(slot.fColumn, slot.fWidth).noalias() =
            matrix.middleCols(slot.fColumn, slot.fWidth).lazyProduct(block);
    }
    return product;
}

}  // namespace

// The products up to m = highest, and K. False when V isn't positive definite.
bool DispersedKernel::Gather(const Unit& unit, int highest) {
    const DispersedRows& rows = unit.fDispersed;
    const int q = unit.Columns();
    const double k = fState[fState.Dispersion()].fVariance;
    const Eigen::Index n = rows.fSpread.size();
    const auto frequency = Eigen::Map<const Eigen::ArrayXd>(rows.fFrequency.data(), n);
    const Eigen::ArrayXd variance = 1.0 + k * rows.fSpread.array();
    if (!(variance.minCoeff() > 0.0)) return false;
    const Eigen::ArrayXd ratio = rows.fSpread.array() / variance;
    Eigen::ArrayXd share = frequency;  // of the trace, then the weight of the products
    for (int m = 0; m <= highest; ++m, share *= ratio) {
        Products& products = fProducts[m];
        products.fTrace = share.sum();
        const Eigen::ArrayXd weight = share / variance;
        fScratch.noalias() = rows.fData * weight.matrix().asDiagonal();
        products.fYY.noalias() = fScratch * rows.fData.transpose();
        products.fZZ.setZero(q, q);
        products.fYZ.setZero(fWidth, q);
        if (q == 0) continue;
        const ColumnHit* hits = rows.fZ.data();
        for (Eigen::Index i = 0; i < n; ++i, hits += rows.fHits) {
            for (int a = 0; a < rows.fHits; ++a) {
                products.fYZ.col(hits[a].fColumn) += hits[a].fValue * fScratch.col(i);
                const double left = weight[i] * hits[a].fValue;
                for (int b = 0; b < rows.fHits; ++b)
                    products.fZZ(hits[b].fColumn, hits[a].fColumn) += left * hits[b].fValue;
            }
        }
    }
    fLogDeterminant = (frequency * variance.log()).sum();
    fK.resize(q, q);
    if (q == 0) return true;
    fG.setZero(q, q);
    for (const Slot& slot : unit.fSlots)
        fG.block(slot.fColumn, slot.fColumn, slot.fWidth, slot.fWidth) = fState[slot.fSegment].fMatrix;
    fScratch.noalias() = fG * fProducts[0].fZZ;
    fScratch.diagonal().array() += 1.0;
    const Eigen::PartialPivLU<Eigen::MatrixXd> factor(fScratch);
    const Eigen::ArrayXd pivots = factor.matrixLU().diagonal().array();
    fLogDeterminant += pivots.abs().log().sum();
    fK = factor.solve(fG);
    return std::isfinite(fLogDeterminant) && fK.allFinite();
}

bool DispersedKernel::AddValue(const Unit& unit, double* logDeterminant, Eigen::MatrixXd* cross) {
    if (!Gather(unit, 0)) return false;
    *logDeterminant += fLogDeterminant;
    *cross += fProducts[0].fYY;
    cross->noalias() -= fProducts[0].fYZ * fK * fProducts[0].fYZ.transpose();
    return true;
}

// All that derivatives are put together from, in the width of the basis.
bool DispersedKernel::Solve(const Unit& unit, const Eigen::MatrixXd& basis) {
    if (!Gather(unit, 2)) return false;
    for (Products& products : fProducts) {
        products.fYZ = basis.transpose() * products.fYZ;
        products.fYY = basis.transpose() * products.fYY * basis;
    }
    const auto& [plain, once, twice] = fProducts;
    const Eigen::MatrixXd held = plain.fYZ * fK;
    const Eigen::MatrixXd rest = Eigen::MatrixXd::Identity(fK.rows(), fK.rows()) - fK * plain.fZZ;
    fP = plain.fZZ * rest;
    fQ = plain.fYZ * rest;
    const auto form = [&](const Products& products) -> Eigen::MatrixXd {
        const Eigen::MatrixXd mixed = held * products.fYZ.transpose();
        return products.fYY - mixed - mixed.transpose() + held * products.fZZ * held.transpose();
    };
    const Eigen::MatrixXd pulled = once.fYZ - held * once.fZZ;
    fDispersedP = rest.transpose() * once.fZZ * rest;
    fDispersedQ = pulled * rest;
    fSlope = form(once);
    fSecondSlope = form(twice) - pulled * fK * pulled.transpose();
    fDirections.clear();
    for (int s = 0; s < fState.Dispersion(); ++s) {
        const ThetaState::Part& part = fState[s];
        for (std::size_t k = 0; k < part.fActive.size(); ++k) {
            fDirections.push_back({part.fOffset + part.fActive[k], TimesRows(unit, s, part.fFirst[k], fP),
                                   TimesColumns(unit, s, fQ, part.fFirst[k]),
                                   TimesRows(unit, s, part.fFirst[k], fDispersedP).trace()});
        }
    }
    return true;
}

bool DispersedKernel::AddDerivatives(const Unit& unit, const Eigen::MatrixXd& basis, bool restricted,
                                     DerivativeSums* sums) {
    if (!Solve(unit, basis)) return false;
    const auto add = [&](int k, int l, double trace, const Eigen::VectorXd& forms) {
        sums->fPairTrace(k, l) += trace;
        sums->fPairResidual(k, l) += forms[0];
        sums->fPairFixed(k, l) += forms.tail(fWidth - 1).sum();
    };
    const int own = fState[fState.Dispersion()].fOffset;
    for (std::size_t a = 0; a < fDirections.size(); ++a) {
        const Direction& first = fDirections[a];
        sums->fTrace[first.fParam] += first.fP.trace();
        sums->fSlopes[first.fParam].noalias() += first.fQ * fQ.transpose();
        const Eigen::MatrixXd moved = first.fQ * fP;
        for (std::size_t b = a; b < fDirections.size(); ++b) {
            const Direction& second = fDirections[b];
            add(first.fParam, second.fParam, TraceOfProduct(first.fP, second.fP),
                moved.cwiseProduct(second.fQ).rowwise().sum());
        }
        add(first.fParam, own, first.fDispersedTrace, first.fQ.cwiseProduct(fDispersedQ).rowwise().sum());
    }
    const auto& [plain, once, twice] = fProducts;
    const Eigen::MatrixXd loss = fK * once.fZZ;
    sums->fTrace[own] += once.fTrace - loss.trace();
    sums->fSlopes[own] += fSlope;
    add(own, own, twice.fTrace - 2.0 * TraceOfProduct(fK, twice.fZZ) + TraceOfProduct(loss, loss),
        fSecondSlope.diagonal());
    const auto taken = fQ.topRows(restricted ? fWidth : 1);
    for (const Slot& slot : unit.fSlots) {
        if (fState[slot.fSegment].fSeconds.empty()) continue;
        const auto part = taken.middleCols(slot.fColumn, slot.fWidth);
        sums->fGamma[slot.fSegment] += fP.block(slot.fColumn, slot.fColumn, slot.fWidth, slot.fWidth);
        sums->fGamma[slot.fSegment].noalias() -= part.transpose() * part;
    }
    return true;
}

bool DispersedKernel::AddCurvature(const Unit& unit, const Eigen::MatrixXd& basis, const Eigen::MatrixXd& weight,
                                   Eigen::MatrixXd* sum) {
    if (!Solve(unit, basis)) return false;
    const int own = fState[fState.Dispersion()].fOffset;
    for (const Direction& first : fDirections) {
        const Eigen::MatrixXd moved = first.fQ * fP;
        for (const Direction& second : fDirections)
            sum->noalias() += weight(first.fParam, second.fParam) * moved * second.fQ.transpose();
        const Eigen::MatrixXd mixed = first.fQ * fDispersedQ.transpose();
        *sum += weight(first.fParam, own) * (mixed + mixed.transpose());
    }
    *sum += weight(own, own) * fSecondSlope;
    for (int s = 0; s < fState.Dispersion(); ++s) {
        const ThetaState::Part& part = fState[s];
        for (const ThetaState::Pair& pair : part.fSeconds) {
            const double share =
                (pair.fK == pair.fL ? 0.25 : 0.5) * weight(part.fOffset + pair.fK, part.fOffset + pair.fL);
            sum->noalias() -= share * TimesColumns(unit, s, fQ, pair.fSecond) * fQ.transpose();
        }
    }
    return true;
}

}  // namespace engine
