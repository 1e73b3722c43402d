#include "engine/lmm/UnitKernel.h"

#include "engine/lmm/DenseKernels.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace engine {

namespace {

constexpr int kLarge = 128;           // order from which a product of matrices is worth avoiding
constexpr double kSameScale = 4e-16;  // rounding, relative to the largest entry

Places AllPositions(int dimension) {
    Places places;
    places.fPositions.resize(dimension);
    std::iota(places.fPositions.begin(), places.fPositions.end(), 0);
    return places;
}

double Dot(const Eigen::MatrixXd& a, const Eigen::MatrixXd& b) {
    return a.cwiseProduct(b).sum();
}

}  // namespace

ThetaState::ThetaState(const ParameterLayout& layout, const Eigen::VectorXd& theta, ThetaScale scale, int order)
    : fNumParams(layout.NumParams()) {
    for (const Segment& segment : layout.Segments()) {
        Part part;
        part.fStructure = &segment.On(scale);
        part.fTheta = segment.Part(theta);
        part.fOffset = segment.fOffset;
        part.fRandom = segment.fBlock >= 0;
        part.fVariance = part.fTheta[0];
        if (segment.fBlock == kDispersionBlock) fDispersion = static_cast<int>(fParts.size());
        for (int k = 0; k < segment.fCount; ++k) {
            if (!part.fStructure->Params()[k].fFixed) part.fActive.push_back(k);
        }
        if (part.fRandom) {
            const Places places = AllPositions(part.fStructure->Dimension());
            part.fStructure->Matrix(part.fTheta, places, part.fMatrix);
            if (order >= 1) {
                part.fFirst.resize(part.fActive.size());
                for (std::size_t k = 0; k < part.fActive.size(); ++k)
                    part.fStructure->First(part.fTheta, places, part.fActive[k], part.fFirst[k]);
            }
            if (order >= 2 && !part.fStructure->IsLinear()) {
                for (int k : part.fActive) {
                    for (int l : part.fActive) {
                        Pair pair{k, l, {}};
                        if (k <= l && part.fStructure->Second(part.fTheta, places, k, l, pair.fSecond)) {
                            part.fSeconds.push_back(std::move(pair));
                        }
                    }
                }
            }
        }
        fParts.push_back(std::move(part));
    }
}

void DerivativeSums::Reset(int params, int width, const ThetaState& state) {
    fTrace.setZero(params);
    fPairTrace.setZero(params, params);
    fPairFixed.setZero(params, params);
    fPairResidual.setZero(params, params);
    fSecond.setZero(params, params);
    fSlopes.assign(params, Eigen::MatrixXd::Zero(width, width));
    fGamma.clear();
    for (int s = 0; s < state.NumSegments(); ++s) {
        const Eigen::Index d = state[s].fSeconds.empty() ? 0 : state[s].fMatrix.rows();
        fGamma.push_back(Eigen::MatrixXd::Zero(d, d));
    }
}

void DerivativeSums::Add(const DerivativeSums& other) {
    fTrace += other.fTrace;
    fPairTrace += other.fPairTrace;
    fPairFixed += other.fPairFixed;
    fPairResidual += other.fPairResidual;
    fSecond += other.fSecond;
    for (std::size_t k = 0; k < fSlopes.size(); ++k)
        fSlopes[k] += other.fSlopes[k];
    for (std::size_t s = 0; s < fGamma.size(); ++s)
        fGamma[s] += other.fGamma[s];
}

bool UnitKernel::Factor(const Unit& unit) {
    if (fFactored == &unit) return true;
    fFactored = nullptr;
    const int n = unit.fOrder;
    if (unit.fIdentity >= 0) {
        fFactor.setZero(n, n);
        fFactor.diagonal().setConstant(fState[unit.fIdentity].fVariance);
    } else if (unit.fPieces.size() == 1) {
        const ThetaState::Part& part = fState[unit.fPieces[0].fSegment];
        part.fStructure->Matrix(part.fTheta, unit.fPieces[0].fPlaces, fFactor);
    } else {
        fFactor.setZero(n, n);
        for (const ResidualPiece& piece : unit.fPieces) {
            const ThetaState::Part& part = fState[piece.fSegment];
            part.fStructure->Matrix(part.fTheta, piece.fPlaces, fSmall);
            fFactor.block(piece.fStart, piece.fStart, fSmall.rows(), fSmall.cols()) = fSmall;
        }
    }
    for (const Slot& slot : unit.fSlots) {
        const Eigen::MatrixXd& g = fState[slot.fSegment].fMatrix;
        const auto z = unit.fZ.middleCols(slot.fColumn, slot.fWidth);
        if (slot.fWidth == 1) {
            fFactor.noalias() += (g(0, 0) * z.col(0)) * z.col(0).transpose();
        } else {
            fScratch.noalias() = z.lazyProduct(g);
            fFactor.noalias() += fScratch.lazyProduct(z.transpose());
        }
    }
    if (IsLargeAndPlain(unit)) fWhole = fFactor;
    if (!FactorInPlace(fFactor, fCrew)) return false;
    fFactored = &unit;
    return true;
}

bool UnitKernel::AddValue(const Unit& unit, double* logDeterminant, Eigen::MatrixXd* cross) {
    if (unit.fOrder == 0) return true;
    if (unit.IsDispersed()) return fDispersed.AddValue(unit, logDeterminant, cross);
    if (!Factor(unit)) return false;
    double sum = 0.0;
    for (int i = 0; i < unit.fOrder; ++i)
        sum += std::log(fFactor(i, i));
    *logDeterminant += 2.0 * unit.fCount * sum;
    if (unit.fGram.size() > 0) {
        InverseFromFactor(fFactor, fInverse, fCrew);
        for (int b = 0; b < unit.fOrder; ++b) {
            for (int a = 0; a < unit.fOrder; ++a)
                *cross += fInverse(a, b) * unit.fGram.block(a * fWidth, b * fWidth, fWidth, fWidth);
        }
        return true;
    }
    fScratch = unit.fRows;
    SolveLower(fFactor, fScratch);
    for (int m = 0; m < unit.fMembers; ++m) {
        const auto rows = fScratch.middleCols(m * fWidth, fWidth);
        if (unit.fOrder <= 8) {
            cross->noalias() += rows.transpose().lazyProduct(rows);
        } else {
            cross->noalias() += rows.transpose() * rows;
        }
    }
    return true;
}

void UnitKernel::Direct(const Unit& unit, int segment, const ThetaState::Part& part) {
    for (std::size_t k = 0; k < part.fActive.size(); ++k) {
        if (fNumDirections == static_cast<int>(fDirections.size())) fDirections.emplace_back();
        Direction& direction = fDirections[fNumDirections++];
        direction.fParam = part.fOffset + part.fActive[k];
        Eigen::MatrixXd& out = direction.fMatrix;
        if (!part.fRandom && unit.fPieces.size() == 1) {
            part.fStructure->First(part.fTheta, unit.fPieces[0].fPlaces, part.fActive[k], out);
            continue;
        }
        out.setZero(unit.fOrder, unit.fOrder);
        if (part.fRandom) {
            for (const Slot& slot : unit.fSlots) {
                if (slot.fSegment != segment) continue;
                const auto z = unit.fZ.middleCols(slot.fColumn, slot.fWidth);
                if (slot.fWidth == 1) {
                    out.noalias() += (part.fFirst[k](0, 0) * z.col(0)) * z.col(0).transpose();
                } else {
                    fScratch.noalias() = z.lazyProduct(part.fFirst[k]);
                    out.noalias() += fScratch.lazyProduct(z.transpose());
                }
            }
        } else if (unit.fIdentity >= 0) {
            out.diagonal().setOnes();
        } else {
            for (const ResidualPiece& piece : unit.fPieces) {
                if (piece.fSegment != segment) continue;
                part.fStructure->First(part.fTheta, piece.fPlaces, part.fActive[k], fSmall);
                out.block(piece.fStart, piece.fStart, fSmall.rows(), fSmall.cols()) = fSmall;
            }
        }
    }
}

void UnitKernel::BuildDirections(const Unit& unit) {
    fNumDirections = 0;
    std::vector<char> used(fState.NumSegments(), 0);
    for (const Slot& slot : unit.fSlots)
        used[slot.fSegment] = 1;
    for (const ResidualPiece& piece : unit.fPieces)
        used[piece.fSegment] = 1;
    if (unit.fIdentity >= 0) used[unit.fIdentity] = 1;
    for (int s = 0; s < fState.NumSegments(); ++s) {
        if (used[s]) Direct(unit, s, fState[s]);
    }
    if (static_cast<int>(fScaled.size()) < fNumDirections) {
        fScaled.resize(fNumDirections);
        fMoved.resize(fNumDirections);
        fSolved.resize(fNumDirections);
    }
    fScaleDirection = -1;
    for (int k = 0; k < fNumDirections; ++k)
        ScaleDirection(unit, k);
}

bool UnitKernel::IsLargeAndPlain(const Unit& unit) {
    return unit.fOrder >= kLarge && unit.fSlots.empty() && unit.fPieces.size() == 1;
}

// V^-1 V_k. In a large unit without random effects the scale's own direction is V / s2, and the product is known.
void UnitKernel::ScaleDirection(const Unit& unit, int k) {
    const Direction& direction = fDirections[k];
    if (IsLargeAndPlain(unit)) {
        const ThetaState::Part& part = fState[unit.fPieces[0].fSegment];
        const double scale = part.fTheta[direction.fParam - part.fOffset];
        const double largest = fWhole.diagonal().maxCoeff();
        if (scale > 0.0 && (scale * direction.fMatrix - fWhole).cwiseAbs().maxCoeff() <= kSameScale * largest) {
            fScaled[k] = Eigen::MatrixXd::Identity(unit.fOrder, unit.fOrder) / scale;
            fScaleDirection = k;
            return;
        }
    }
    MultiplySymmetric(fInverse, direction.fMatrix, fScaled[k], fCrew);
}

// [X r] of all members becomes [r XH], or its product sums.
void UnitKernel::RotateData(const Unit& unit, const Eigen::MatrixXd& basis) {
    const int n = unit.fOrder;
    if (unit.fGram.size() == 0) {
        fData.resize(n, unit.fRows.cols());
        for (int m = 0; m < unit.fMembers; ++m) {
            const auto rows = unit.fRows.middleCols(m * fWidth, fWidth);
            if (fWidth <= 16) {
                fData.middleCols(m * fWidth, fWidth).noalias() = rows.lazyProduct(basis);
            } else {
                fData.middleCols(m * fWidth, fWidth).noalias() = rows * basis;
            }
        }
        return;
    }
    fGram.resize(unit.fGram.rows(), unit.fGram.cols());
    fScratch.resize(unit.fGram.rows(), unit.fGram.cols());
    for (int a = 0; a < n; ++a)
        fScratch.middleCols(a * fWidth, fWidth).noalias() = unit.fGram.middleCols(a * fWidth, fWidth) * basis;
    for (int a = 0; a < n; ++a)
        fGram.middleRows(a * fWidth, fWidth).noalias() = basis.transpose() * fScratch.middleRows(a * fWidth, fWidth);
    fOuterResidual.resize(n, n);
    fOuterFixed.resize(n, n);
    for (int b = 0; b < n; ++b) {
        for (int a = 0; a < n; ++a) {
            fOuterResidual(a, b) = fGram(a * fWidth, b * fWidth);
            double sum = 0.0;
            for (int c = 1; c < fWidth; ++c)
                sum += fGram(a * fWidth + c, b * fWidth + c);
            fOuterFixed(a, b) = sum;
        }
    }
}

Eigen::MatrixXd UnitKernel::Contract(const Eigen::MatrixXd& middle) const {
    Eigen::MatrixXd sum = Eigen::MatrixXd::Zero(fWidth, fWidth);
    for (Eigen::Index b = 0; b < middle.cols(); ++b) {
        for (Eigen::Index a = 0; a < middle.rows(); ++a)
            sum += middle(a, b) * fGram.block(a * fWidth, b * fWidth, fWidth, fWidth);
    }
    return sum;
}

void UnitKernel::AddRows(const Unit& unit, DerivativeSums* sums) {
    Multiply(fInverse, fData, fWhite);
    for (int k = 0; k < fNumDirections; ++k) {
        Multiply(fDirections[k].fMatrix, fWhite, fMoved[k]);
        Multiply(fInverse, fMoved[k], fSolved[k]);
        Eigen::MatrixXd& slope = sums->fSlopes[fDirections[k].fParam];
        for (int m = 0; m < unit.fMembers; ++m) {
            const auto white = fWhite.middleCols(m * fWidth, fWidth);
            const auto moved = fMoved[k].middleCols(m * fWidth, fWidth);
            if (unit.fOrder <= 8) {
                slope.noalias() += white.transpose().lazyProduct(moved);
            } else {
                slope.noalias() += white.transpose() * moved;
            }
        }
    }
    for (int k = 0; k < fNumDirections; ++k) {
        for (int l = k; l < fNumDirections; ++l) {
            double residual = 0.0;
            double all = 0.0;
            for (int m = 0; m < unit.fMembers; ++m) {
                residual += fMoved[k].col(m * fWidth).dot(fSolved[l].col(m * fWidth));
            }
            all = Dot(fMoved[k], fSolved[l]);
            sums->fPairResidual(fDirections[k].fParam, fDirections[l].fParam) += residual;
            sums->fPairFixed(fDirections[k].fParam, fDirections[l].fParam) += all - residual;
        }
    }
}

void UnitKernel::AddGram(const Unit&, DerivativeSums* sums) {
    for (int k = 0; k < fNumDirections; ++k) {
        Multiply(fScaled[k], fInverse, fScratch);
        sums->fSlopes[fDirections[k].fParam] += Contract(fScratch);
    }
    Eigen::MatrixXd left;
    for (const bool residual : {true, false}) {
        Multiply(fInverse, residual ? fOuterResidual : fOuterFixed, fScratch);
        Eigen::MatrixXd& into = residual ? sums->fPairResidual : sums->fPairFixed;
        for (int k = 0; k < fNumDirections; ++k) {
            Multiply(fScratch, fScaled[k], left);
            const Eigen::MatrixXd turned = left.transpose();
            for (int l = k; l < fNumDirections; ++l)
                into(fDirections[k].fParam, fDirections[l].fParam) += Dot(turned, fScaled[l]);
        }
    }
}

// V_kl of one piece, into fSmall; false when it is zero. Where V is proportional to s2, V_kl is V_l / s2 for k its
// scale.
bool UnitKernel::Second(const ThetaState::Part& part, const ResidualPiece& piece, int k, int l) {
    const int scale = fScaleDirection >= 0 ? fDirections[fScaleDirection].fParam - part.fOffset : -1;
    if (k != scale && l != scale) return part.fStructure->Second(part.fTheta, piece.fPlaces, k, l, fSmall);
    if (k == l) return false;
    const int other = part.fOffset + (k == scale ? l : k);
    const auto at = std::find_if(fDirections.begin(), fDirections.end(),
                                 [&](const Direction& direction) { return direction.fParam == other; });
    fSmall = at->fMatrix / part.fTheta[scale];
    return true;
}

void UnitKernel::AddSecond(const Unit& unit, bool restricted, DerivativeSums* sums) {
    bool needed = false;
    for (const Slot& slot : unit.fSlots)
        needed = needed || !fState[slot.fSegment].fSeconds.empty();
    for (const ResidualPiece& piece : unit.fPieces)
        needed = needed || !fState[piece.fSegment].fStructure->IsLinear();
    if (!needed) return;
    Eigen::MatrixXd weight = unit.fCount * fInverse;
    if (unit.fGram.size() > 0) {
        Multiply(fInverse, restricted ? Eigen::MatrixXd(fOuterResidual + fOuterFixed) : fOuterResidual, fScratch);
        weight.noalias() -= fScratch * fInverse;
    } else if (restricted) {
        weight.noalias() -= fWhite * fWhite.transpose();
    } else {
        for (int m = 0; m < unit.fMembers; ++m)
            weight.noalias() -= fWhite.col(m * fWidth) * fWhite.col(m * fWidth).transpose();
    }
    for (const Slot& slot : unit.fSlots) {
        if (fState[slot.fSegment].fSeconds.empty()) continue;
        const auto z = unit.fZ.middleCols(slot.fColumn, slot.fWidth);
        sums->fGamma[slot.fSegment].noalias() += z.transpose() * weight * z;
    }
    for (const ResidualPiece& piece : unit.fPieces) {
        const ThetaState::Part& part = fState[piece.fSegment];
        if (part.fStructure->IsLinear()) continue;
        const int size = piece.fPlaces.Size();
        for (int k : part.fActive) {
            for (int l : part.fActive) {
                if (k > l || !Second(part, piece, k, l)) continue;
                sums->fSecond(part.fOffset + k, part.fOffset + l) +=
                    Dot(fSmall, weight.block(piece.fStart, piece.fStart, size, size));
            }
        }
    }
}

bool UnitKernel::AddDerivatives(const Unit& unit, const Eigen::MatrixXd& basis, bool restricted, DerivativeSums* sums) {
    if (unit.fOrder == 0) return true;
    if (unit.IsDispersed()) return fDispersed.AddDerivatives(unit, basis, restricted, sums);
    if (!Factor(unit)) return false;
    InverseFromFactor(fFactor, fInverse, fCrew);
    BuildDirections(unit);
    RotateData(unit, basis);
    for (int k = 0; k < fNumDirections; ++k) {
        sums->fTrace[fDirections[k].fParam] += unit.fCount * fScaled[k].trace();
        fScratch = fScaled[k].transpose();
        for (int l = k; l < fNumDirections; ++l) {
            sums->fPairTrace(fDirections[k].fParam, fDirections[l].fParam) += unit.fCount * Dot(fScratch, fScaled[l]);
        }
    }
    if (unit.fGram.size() > 0) {
        AddGram(unit, sums);
    } else {
        AddRows(unit, sums);
    }
    AddSecond(unit, restricted, sums);
    return true;
}

bool UnitKernel::AddCurvature(const Unit& unit, const Eigen::MatrixXd& basis, const Eigen::MatrixXd& weight,
                              Eigen::MatrixXd* sum) {
    if (unit.fOrder == 0) return true;
    if (unit.IsDispersed()) return fDispersed.AddCurvature(unit, basis, weight, sum);
    if (!Factor(unit)) return false;
    InverseFromFactor(fFactor, fInverse, fCrew);
    BuildDirections(unit);
    RotateData(unit, basis);
    const int n = unit.fOrder;
    // The middle matrix: sum of weight(k, l) (V_k V^-1 V_l - 1/4 V_kl).
    Eigen::MatrixXd middle = Eigen::MatrixXd::Zero(n, n);
    Eigen::MatrixXd combined(n, n);
    for (int k = 0; k < fNumDirections; ++k) {
        combined.setZero();
        for (int l = 0; l < fNumDirections; ++l)
            combined += weight(fDirections[k].fParam, fDirections[l].fParam) * fScaled[l];
        Multiply(fDirections[k].fMatrix, combined, fScratch);
        middle += fScratch;
    }
    const auto weightOf = [&](const ThetaState::Part& part, int k, int l) {
        return (k == l ? 0.25 : 0.5) * weight(part.fOffset + k, part.fOffset + l);
    };
    for (const Slot& slot : unit.fSlots) {
        const ThetaState::Part& part = fState[slot.fSegment];
        if (part.fSeconds.empty()) continue;
        const auto z = unit.fZ.middleCols(slot.fColumn, slot.fWidth);
        Eigen::MatrixXd second = Eigen::MatrixXd::Zero(slot.fWidth, slot.fWidth);
        for (const ThetaState::Pair& pair : part.fSeconds)
            second += weightOf(part, pair.fK, pair.fL) * pair.fSecond;
        middle.noalias() -= z * second * z.transpose();
    }
    for (const ResidualPiece& piece : unit.fPieces) {
        const ThetaState::Part& part = fState[piece.fSegment];
        if (part.fStructure->IsLinear()) continue;
        for (int k : part.fActive) {
            for (int l : part.fActive) {
                if (k > l || !Second(part, piece, k, l)) continue;
                middle.block(piece.fStart, piece.fStart, fSmall.rows(), fSmall.cols()) -= weightOf(part, k, l) * fSmall;
            }
        }
    }
    if (unit.fGram.size() > 0) {
        Multiply(fInverse, middle, fScratch);
        Multiply(fScratch, fInverse, combined);
        *sum += Contract(combined);
        return true;
    }
    Multiply(fInverse, fData, fWhite);
    Multiply(middle, fWhite, fScratch);
    for (int m = 0; m < unit.fMembers; ++m) {
        sum->noalias() += fWhite.middleCols(m * fWidth, fWidth).transpose() * fScratch.middleCols(m * fWidth, fWidth);
    }
    return true;
}

}  // namespace engine
