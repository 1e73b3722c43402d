// What the equations' solution says of the objective's slope and curvature: traces, gradient, average information.
#include "engine/crossed/CrossedEquations.h"
#include "engine/model/Share.h"

#include <algorithm>
#include <cmath>

namespace engine {

void CrossedEquations::SumTraces() {
    for (int t = 0; t < fStat->Terms(); ++t) {
        const int q = fStat->fColumns[t];
        for (GroupState& state : fTerms[t].fGroups)
            state.fTraceSum = state.fSquareSum = Eigen::MatrixXd::Zero(q, q);
        for (int j = 0; j < fStat->fSubjects[t]; ++j) {
            GroupState& state = fTerms[t].fGroups[Group(t, j)];
            const int at = fStat->fOffset[t] + j * q;
            const auto v = fV.segment(at, q);
            state.fSquareSum.noalias() += v * v.transpose();
            if (!fRestricted) continue;
            const auto u = fU.middleRows(at, q);
            state.fTraceSum -= (u * fFixedInverse).lazyProduct(u.transpose());
        }
    }
    SumEliminatedTraces();
    SumRestTraces();
}

void CrossedEquations::FormEliminated() {
    const int gone = fStat->fEliminated;
    ForChunks(fStat->fSubjects[gone], [&](int, int first, int end) {
        Eigen::MatrixXd h;
        for (int j = first; j < end; ++j) {
            h = Block(fShrink, j).lazyProduct(ScaledMet(j));
            Block(fForm, j) = fSchur->Form(MetColumns(j), h);
        }
    });
}

void CrossedEquations::SumEliminatedTraces() {
    FormEliminated();
    const int gone = fStat->fEliminated;
    for (int j = 0; j < fStat->fSubjects[gone]; ++j)
        fTerms[gone].fGroups[Group(gone, j)].fTraceSum += Block(fShrink, j).lazyProduct(Own(gone, j)) - Block(fForm, j);
}

void CrossedEquations::SumRestTraces() {
    ForRestSubjects([&](int t, int j, int at) {
        if (!fTerms[t].fRegular) return;
        const int q = fStat->fColumns[t];
        GroupState& state = fTerms[t].fGroups[Group(t, j)];
        Eigen::MatrixXd block = Eigen::MatrixXd::Identity(q, q);
        for (int a = 0; a < q; ++a)
            for (int b = a; b < q; ++b) {
                block(b, a) -= fSchur->Entry(at + b, at + a);
                block(a, b) = block(b, a);
            }
        const auto upper = state.fFactor.triangularView<Eigen::Lower>().transpose();
        state.fTraceSum += upper.solve(upper.solve(block).transpose().eval());
    });
    for (int t = 0; t < fStat->Terms(); ++t)
        if (t != fStat->fEliminated && !fTerms[t].fRegular) SumIrregularTraces(t);
}

/// Z_j'V0^-1 Z_j = A_jj - A_j. L S^-1 L' A_.j with A = Z_r'V1^-1 Z_r, for terms whose L has no usable inverse.
void CrossedEquations::SumIrregularTraces(int term) {
    constexpr int kChunk = 64;
    const int q = fStat->fColumns[term];
    const int chunk = std::max(1, kChunk / q);
    for (int first = 0; first < fStat->fSubjects[term]; first += chunk) {
        const int count = std::min(chunk, fStat->fSubjects[term] - first);
        const int base = fStat->fRestOffset[term] + first * q;
        Eigen::MatrixXd unit = Eigen::MatrixXd::Zero(fStat->fRest, count * q);
        unit.middleRows(base, count * q).setIdentity();
        const Eigen::MatrixXd columns = ReducedTimes(unit);
        Eigen::MatrixXd scaled = columns;
        ScaleTransposed(scaled);
        Eigen::MatrixXd solved = scaled;
        fSchur->Solve(solved);
        for (int j = 0; j < count; ++j)
            fTerms[term].fGroups[Group(term, first + j)].fTraceSum +=
                columns.block(base + j * q, j * q, q, q) -
                scaled.middleCols(j * q, q).transpose() * solved.middleCols(j * q, q);
    }
}

/// logPart, if given, gets the gradient of the log determinants alone.
Eigen::VectorXd CrossedEquations::Gradient(Eigen::VectorXd* logPart) const {
    Eigen::VectorXd logs = Eigen::VectorXd::Zero(fParams), squares = Eigen::VectorXd::Zero(fParams);
    const double free = fStat->fTotalFrequency - (fRestricted ? fStat->fFixed : 0);
    double logTotal = free, squareTotal = fResidualForm / fResidual;
    for (const TermState& term : fTerms) {
        for (const GroupState& state : term.fGroups) {
            for (std::size_t k = 0; k < state.fFirst.size(); ++k) {
                const int at = state.fFirstParam + static_cast<int>(k);
                logs[at] += state.fTraceSum.cwiseProduct(state.fFirst[k]).sum() / fResidual;
                squares[at] += state.fSquareSum.cwiseProduct(state.fFirst[k]).sum() / (fResidual * fResidual);
            }
            logTotal -= state.fTraceSum.cwiseProduct(state.fRatio).sum();
            squareTotal -= state.fSquareSum.cwiseProduct(state.fRatio).sum() / fResidual;
        }
    }
    logs[fParams - 1] = logTotal / fResidual;
    squares[fParams - 1] = squareTotal / fResidual;
    if (logPart) *logPart = logs;
    return logs - squares;
}

Eigen::MatrixXd CrossedEquations::CovarianceTimes(const Eigen::MatrixXd& f) const {
    Eigen::MatrixXd out(f.rows(), f.cols());
    for (int t = 0; t < fStat->Terms(); ++t) {
        const int q = fStat->fColumns[t];
        for (int j = 0; j < fStat->fSubjects[t]; ++j) {
            const int at = fStat->fOffset[t] + j * q;
            out.middleRows(at, q) = State(t, j).fG.lazyProduct(f.middleRows(at, q));
        }
    }
    return out;
}

Eigen::MatrixXd CrossedEquations::DerivativeTimes(int param, const Eigen::MatrixXd& f) const {
    Eigen::MatrixXd out = Eigen::MatrixXd::Zero(f.rows(), f.cols());
    for (int t = 0; t < fStat->Terms(); ++t) {
        const int q = fStat->fColumns[t];
        for (int j = 0; j < fStat->fSubjects[t]; ++j) {
            const GroupState& state = State(t, j);
            const int k = param - state.fFirstParam;
            if (k < 0 || k >= static_cast<int>(state.fFirst.size())) continue;
            const int at = fStat->fOffset[t] + j * q;
            out.middleRows(at, q) = state.fFirst[k].lazyProduct(f.middleRows(at, q));
        }
    }
    return out;
}

/// y'P V_k P V_l P y. The residual's direction is V less Z G Z', over s2.
Eigen::MatrixXd CrossedEquations::Average() const {
    const int random = fParams - 1;
    Eigen::MatrixXd directions(fV.size(), random + 1);
    for (int k = 0; k < random; ++k)
        directions.col(k) = DerivativeTimes(k, fV);
    directions.col(random) = CovarianceTimes(fV);
    const Eigen::MatrixXd crossed = fU.transpose() * directions;
    const double s2 = fResidual;
    const Eigen::MatrixXd forms =
        (directions.transpose() * Information(directions) - crossed.transpose() * fFixedInverse * crossed) /
        (s2 * s2 * s2);
    const Eigen::VectorXd single = directions.transpose() * fV / (s2 * s2);
    Eigen::MatrixXd average(fParams, fParams);
    average.topLeftCorner(random, random) = forms.topLeftCorner(random, random);
    average.col(random).head(random) = (single.head(random) - forms.col(random).head(random)) / s2;
    average.row(random).head(random) = average.col(random).head(random).transpose();
    average(random, random) = (fResidualForm / s2 - 2.0 * single[random] + forms(random, random)) / (s2 * s2);
    return 0.5 * (average + average.transpose());
}

/// tr(Q V_kl) - y'P V_kl P y.
Eigen::MatrixXd CrossedEquations::CurvatureTerms() const {
    Eigen::MatrixXd out = Eigen::MatrixXd::Zero(fParams, fParams);
    Eigen::MatrixXd second;
    for (int t = 0; t < fStat->Terms(); ++t) {
        const Structure& structure = *fCovariances[t].fStructure;
        if (structure.IsLinear()) continue;
        const Places places = AllPositions(fStat->fColumns[t]);
        for (const GroupState& state : fTerms[t].fGroups) {
            const Eigen::VectorXd own = fTheta.segment(state.fFirstParam, structure.NumParams());
            const Eigen::MatrixXd weight = state.fTraceSum / fResidual - state.fSquareSum / (fResidual * fResidual);
            for (int k = 0; k < structure.NumParams(); ++k)
                for (int l = 0; l <= k; ++l) {
                    if (!structure.Second(own, places, k, l, second)) continue;
                    const double term = weight.cwiseProduct(second).sum();
                    out(state.fFirstParam + k, state.fFirstParam + l) += term;
                    if (k != l) out(state.fFirstParam + l, state.fFirstParam + k) += term;
                }
        }
    }
    return out;
}

bool CrossedEquations::IsLinear() const {
    return std::all_of(fCovariances.begin(), fCovariances.end(),
                       [](const CrossedCovariance& c) { return c.fStructure->IsLinear(); });
}

CrossedValue CrossedEquations::DifferencedHessian(const Eigen::VectorXd& theta) {
    constexpr double kLongWork = 2e11;
    const bool central = fSchur->Work() < kLongWork;
    const bool homogeneous = IsLinear();
    const int varied = homogeneous ? fParams - 1 : fParams;
    CrossedValue base = Evaluate(theta, CrossedOrder::kAverage);
    if (!base.fFeasible) return base;
    Eigen::VectorXd logs;
    const Eigen::VectorXd gradient = Gradient(&logs);
    const Eigen::MatrixXd curvature = CurvatureTerms();
    Eigen::MatrixXd hessian = Eigen::MatrixXd::Zero(fParams, fParams);
    for (int k = 0; k < varied; ++k) {
        const double relative = central ? 1e-4 : 1e-6;
        const double size = theta[k] == 0.0 ? (homogeneous ? theta[fParams - 1] : 1.0) : std::abs(theta[k]);
        double step = relative * size;
        Eigen::VectorXd there = theta;
        there[k] = theta[k] + step;
        CrossedValue up = Evaluate(there, CrossedOrder::kGradient);
        if (!up.fFeasible) {
            step = -step;
            there[k] = theta[k] + step;
            up = Evaluate(there, CrossedOrder::kGradient);
            if (!up.fFeasible) return CrossedValue();
        }
        const double width = there[k] - theta[k];
        there[k] = theta[k] - width;
        const CrossedValue down = central ? Evaluate(there, CrossedOrder::kGradient) : CrossedValue();
        hessian.col(k) = down.fFeasible ? Eigen::VectorXd((up.fGradient - down.fGradient) / (2.0 * width))
                                        : Eigen::VectorXd((up.fGradient - gradient) / width);
    }
    hessian.topLeftCorner(varied, varied) =
        0.5 * (hessian.topLeftCorner(varied, varied) + hessian.topLeftCorner(varied, varied).transpose()).eval();
    if (homogeneous) {
        // The log determinants' gradient is homogeneous of degree -1 in theta, that of the form of degree -2.
        const int last = fParams - 1;
        const Eigen::VectorXd along = -logs + 2.0 * (logs - gradient);
        for (int k = 0; k < last; ++k)
            hessian(k, last) = hessian(last, k) =
                (along[k] - hessian.row(k).head(last).dot(theta.head(last))) / theta[last];
        hessian(last, last) = (along[last] - hessian.row(last).head(last).dot(theta.head(last))) / theta[last];
    } else {
        hessian = 0.5 * (hessian + hessian.transpose()).eval();
    }
    base.fExpected = 2.0 * base.fExpected - hessian + curvature;
    base.fHessian = hessian;
    Evaluate(theta, CrossedOrder::kValue);
    return base;
}

}  // namespace engine
