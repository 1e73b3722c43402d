#include "engine/lmm/MarginalLikelihood.h"

#include "engine/lmm/UnitKernel.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace engine {

namespace {

constexpr double kLog2Pi = 1.8378770664093454836;

// As many chunks as keep the sums small, the same for any number of threads.
int ChunksFor(std::size_t units, double doublesPerChunk) {
    const int most = std::clamp(static_cast<int>(4e6 / std::max(1.0, doublesPerChunk)), 1, 64);
    return std::clamp(static_cast<int>(units / 16), 1, most);
}

std::size_t Edge(std::size_t units, int chunks, int k) {
    return units * k / chunks;
}

// Symmetric matrix of which the upper triangle was summed.
void Mirror(Eigen::MatrixXd& matrix) {
    matrix.triangularView<Eigen::StrictlyLower>() = matrix.transpose();
}

Eigen::MatrixXd RotationOf(const Evaluation& at) {
    const Eigen::Index p = at.fBeta.size();
    Eigen::MatrixXd basis = Eigen::MatrixXd::Zero(p + 1, p + 1);
    basis.col(0).head(p) = -at.fBeta;
    basis(p, 0) = 1.0;
    basis.topRightCorner(p, p) = at.fHalf;
    return basis;
}

}  // namespace

Evaluation MarginalLikelihood::Value(const Eigen::VectorXd& theta, ThetaScale scale) const {
    if (!fProblem.Layout().Feasible(theta, scale)) return Evaluation();
    const ThetaState state(fProblem.Layout(), theta, scale, 0);
    UnitKernel alone(state, fProblem.Basis().Rank() + 1, &fProblem.Crew());
    return ValueAt(state, alone);
}

Evaluation MarginalLikelihood::ValueAt(const ThetaState& state, UnitKernel& alone) const {
    Evaluation at;
    const FixedBasis& fixed = fProblem.Basis();
    const int p = fixed.Rank();
    const auto& units = fProblem.Units();
    struct Sums {
        double fLog = 0.0;
        Eigen::MatrixXd fCross;
        bool fGood = true;
    };
    const int chunks = ChunksFor(units.size(), (p + 1) * (p + 1));
    std::vector<Sums> sums(chunks);
    fProblem.Crew().Run(chunks, [&](int c) {
        sums[c].fCross.setZero(p + 1, p + 1);
        UnitKernel own(state, p + 1);
        UnitKernel& kernel = chunks == 1 ? alone : own;
        for (std::size_t u = Edge(units.size(), chunks, c); u < Edge(units.size(), chunks, c + 1); ++u) {
            if (!kernel.AddValue(units[u], &sums[c].fLog, &sums[c].fCross)) {
                sums[c].fGood = false;
                return;
            }
        }
    });
    double logs = 0.0;
    Eigen::MatrixXd cross = Eigen::MatrixXd::Zero(p + 1, p + 1);
    for (const Sums& sum : sums) {
        if (!sum.fGood) return at;
        logs += sum.fLog;
        cross += sum.fCross;
    }
    for (const Remainder& remainder : fProblem.Remainders()) {
        const double variance = state[remainder.fSegment].fVariance;
        if (remainder.fCount == 0.0) continue;
        if (!(variance > 0.0)) return at;
        logs += remainder.fCount * std::log(variance);
        cross += remainder.fCross / variance;
    }
    Eigen::MatrixXd factor = cross.topLeftCorner(p, p);
    const Eigen::LLT<Eigen::MatrixXd> llt(factor);
    if (p > 0 && llt.info() != Eigen::Success) return at;
    at.fBeta = p > 0 ? Eigen::VectorXd(llt.solve(cross.col(p).head(p))) : Eigen::VectorXd(0);
    at.fHalf = Eigen::MatrixXd::Identity(p, p);
    if (p > 0) llt.matrixU().solveInPlace(at.fHalf);
    double logFixed = 0.0;
    for (int i = 0; i < p; ++i)
        logFixed += 2.0 * std::log(llt.matrixLLT()(i, i));
    at.fQuadratic = cross(p, p) - cross.col(p).head(p).dot(at.fBeta);
    const double count = fixed.TotalFrequency();
    at.fValue = logs - fixed.LogWeights() + at.fQuadratic + (fRestricted ? count - p : count) * kLog2Pi;
    if (fRestricted) at.fValue += logFixed;
    at.fFeasible = std::isfinite(at.fValue);
    return at;
}

Evaluation MarginalLikelihood::Derivatives(const Eigen::VectorXd& theta, ThetaScale scale) const {
    const ParameterLayout& layout = fProblem.Layout();
    if (!layout.Feasible(theta, scale)) return Evaluation();
    const ThetaState state(layout, theta, scale, 2);
    const int p = fProblem.Basis().Rank();
    UnitKernel alone(state, p + 1, &fProblem.Crew());
    Evaluation at = ValueAt(state, alone);
    if (!at.fFeasible) return at;
    const int m = layout.NumParams();
    const auto& units = fProblem.Units();
    const Eigen::MatrixXd basis = RotationOf(at);
    const int chunks = ChunksFor(units.size(), static_cast<double>(m) * ((p + 1) * (p + 1) + 4 * m));
    std::vector<DerivativeSums> sums(chunks);
    std::vector<char> good(chunks, 1);
    fProblem.Crew().Run(chunks, [&](int c) {
        sums[c].Reset(m, p + 1, state);
        UnitKernel own(state, p + 1);
        UnitKernel& kernel = chunks == 1 ? alone : own;
        for (std::size_t u = Edge(units.size(), chunks, c); u < Edge(units.size(), chunks, c + 1); ++u) {
            if (!kernel.AddDerivatives(units[u], basis, fRestricted, &sums[c])) good[c] = 0;
        }
    });
    DerivativeSums total = std::move(sums[0]);
    for (int c = 1; c < chunks; ++c)
        total.Add(sums[c]);
    if (std::find(good.begin(), good.end(), 0) != good.end()) {
        at.fFeasible = false;
        return at;
    }
    for (const Remainder& remainder : fProblem.Remainders()) {
        if (remainder.fCount == 0.0) continue;
        const double s = state[remainder.fSegment].fVariance;
        const int k = layout[remainder.fSegment].fOffset;
        const Eigen::MatrixXd cross = basis.transpose() * remainder.fCross * basis;
        total.fTrace[k] += remainder.fCount / s;
        total.fPairTrace(k, k) += remainder.fCount / (s * s);
        total.fPairResidual(k, k) += cross(0, 0) / (s * s * s);
        total.fPairFixed(k, k) += cross.diagonal().tail(p).sum() / (s * s * s);
        total.fSlopes[k] += cross / (s * s);
    }
    for (int s = 0; s < state.NumSegments(); ++s) {
        for (const ThetaState::Pair& pair : state[s].fSeconds) {
            total.fSecond(state[s].fOffset + pair.fK, state[s].fOffset + pair.fL) +=
                pair.fSecond.cwiseProduct(total.fGamma[s]).sum();
        }
    }
    at.fGradient.resize(m);
    at.fExpected = total.fPairTrace;
    at.fObserved.resize(m, m);
    at.fSlopes.resize(m);
    for (int k = 0; k < m; ++k) {
        at.fSlopes[k] = total.fSlopes[k].bottomRightCorner(p, p);
        at.fGradient[k] = total.fTrace[k] - total.fSlopes[k](0, 0);
        if (fRestricted) at.fGradient[k] -= at.fSlopes[k].trace();
    }
    for (int k = 0; k < m; ++k) {
        for (int l = k; l < m; ++l) {
            if (fRestricted) {
                at.fExpected(k, l) += at.fSlopes[k].cwiseProduct(at.fSlopes[l]).sum() - 2.0 * total.fPairFixed(k, l);
            }
            const double mixed = total.fSlopes[k].col(0).tail(p).dot(total.fSlopes[l].col(0).tail(p));
            at.fObserved(k, l) = -at.fExpected(k, l) + 2.0 * (total.fPairResidual(k, l) - mixed) + total.fSecond(k, l);
        }
    }
    Mirror(at.fExpected);
    Mirror(at.fObserved);
    return at;
}

Eigen::MatrixXd MarginalLikelihood::WeightedCurvature(const Eigen::VectorXd& theta, ThetaScale scale,
                                                      const Eigen::MatrixXd& weight) const {
    const Evaluation at = Value(theta, scale);
    const ParameterLayout& layout = fProblem.Layout();
    const int p = static_cast<int>(at.fBeta.size());
    const ThetaState state(layout, theta, scale, 2);
    const auto& units = fProblem.Units();
    const Eigen::MatrixXd basis = RotationOf(at);
    const int chunks = ChunksFor(units.size(), (p + 1) * (p + 1));
    std::vector<Eigen::MatrixXd> sums(chunks);
    fProblem.Crew().Run(chunks, [&](int c) {
        sums[c].setZero(p + 1, p + 1);
        UnitKernel kernel(state, p + 1, chunks == 1 ? &fProblem.Crew() : nullptr);
        for (std::size_t u = Edge(units.size(), chunks, c); u < Edge(units.size(), chunks, c + 1); ++u)
            kernel.AddCurvature(units[u], basis, weight, &sums[c]);
    });
    Eigen::MatrixXd total = sums[0];
    for (int c = 1; c < chunks; ++c)
        total += sums[c];
    for (const Remainder& remainder : fProblem.Remainders()) {
        const double s = state[remainder.fSegment].fVariance;
        const int k = layout[remainder.fSegment].fOffset;
        if (remainder.fCount > 0.0) total += weight(k, k) / (s * s * s) * basis.transpose() * remainder.fCross * basis;
    }
    const Eigen::MatrixXd middle = total.bottomRightCorner(p, p);
    return 0.5 * (middle + middle.transpose());
}

}  // namespace engine
