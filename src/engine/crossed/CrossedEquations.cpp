#include "engine/crossed/CrossedEquations.h"

#include "engine/crossed/CrossedTraces.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace engine {

namespace {

/// Below this share of a pivot's original value a matrix counts as singular.
constexpr double kSingular = 1e-10;
/// Below this mean of L'Z'V1^-1 Z L the route through L^-1 would lose digits.
constexpr double kTiny = 1e-4;

Places AllPositions(int columns) {
    Places places;
    for (int a = 0; a < columns; ++a)
        places.fPositions.push_back(a);
    return places;
}

/// Lower L with L L' = a for positive semidefinite a; a zero pivot leaves a zero column. False when a is indefinite.
bool SemidefiniteFactor(const Eigen::MatrixXd& a, Eigen::MatrixXd& factor, bool& singular) {
    const Eigen::Index n = a.rows();
    factor = Eigen::MatrixXd::Zero(n, n);
    for (Eigen::Index k = 0; k < n; ++k) {
        const double pivot = a(k, k) - factor.row(k).head(k).squaredNorm();
        if (!std::isfinite(pivot) || pivot < -kSingular * std::abs(a(k, k))) return false;
        const bool zero = pivot <= kSingular * a(k, k);
        singular = singular || zero;
        const double root = pivot > 0.0 && pivot > 1e-15 * a(k, k) ? std::sqrt(pivot) : 0.0;
        factor(k, k) = root;
        for (Eigen::Index i = k + 1; i < n; ++i) {
            const double left = a(i, k) - factor.row(i).head(k).dot(factor.row(k).head(k));
            if (zero && std::abs(left) > 1e-4 * std::sqrt(std::abs(a(i, i) * a(k, k)))) return false;
            factor(i, k) = root > 0.0 ? left / root : 0.0;
        }
    }
    return true;
}

}  // namespace

CrossedEquations::CrossedEquations(std::shared_ptr<const CrossedStatistics> statistics,
                                   std::vector<CrossedCovariance> covariances, int numParams, bool restricted,
                                   Workers* crew, std::unique_ptr<SchurComplement> schur)
    : fStat(std::move(statistics)),
      fCovariances(std::move(covariances)),
      fParams(numParams),
      fRestricted(restricted),
      fCrew(crew),
      fSchur(schur ? std::move(schur) : MakeSchurComplement(*fStat, crew)),
      fTerms(fStat->Terms()) {
    for (int t = 0; t < fStat->Terms(); ++t)
        fTerms[t].fGroups.resize(fCovariances[t].fFirstParam.size());
    const std::size_t q = fStat->fColumns[fStat->fEliminated];
    const std::size_t subjects = fStat->fSubjects[fStat->fEliminated];
    fScaledMet.resize(fStat->fMetValues.size());
    fShrink.resize(subjects * q * q);
    fInner.resize(subjects * q * q);
}

CrossedEquations::~CrossedEquations() = default;

Eigen::Map<const Eigen::MatrixXd> CrossedEquations::Own(int term, int subject) const {
    const std::size_t q = fStat->fColumns[term];
    return {fStat->fOwn[term].data() + subject * q * q, static_cast<Eigen::Index>(q), static_cast<Eigen::Index>(q)};
}

Eigen::Map<const Eigen::MatrixXd> CrossedEquations::Met(int subject) const {
    const int q = fStat->fColumns[fStat->fEliminated];
    return {fStat->fMetValues.data() + fStat->fFirstMet[subject] * q, q, MetCount(subject)};
}

Eigen::Map<const Eigen::MatrixXd> CrossedEquations::ScaledMet(int subject) const {
    const int q = fStat->fColumns[fStat->fEliminated];
    return {fScaledMet.data() + fStat->fFirstMet[subject] * q, q, MetCount(subject)};
}

CrossedValue CrossedEquations::Evaluate(const Eigen::VectorXd& theta, CrossedOrder order) {
    CrossedValue value;
    if (fKnown == Known::kNothing || theta != fTheta) {
        fKnown = Known::kNothing;
        if (!SetCovariance(theta) || !Assemble() || !SolveFixed()) return value;
        fKnown = Known::kValue;
    }
    value.fFeasible = true;
    value.fObjective = Objective();
    if (order == CrossedOrder::kValue) return value;
    if (!fSchur->IsInverted()) fSchur->Invert();
    if (fKnown != Known::kTraces) SumTraces();
    fKnown = Known::kTraces;
    value.fGradient = Gradient(nullptr);
    if (order == CrossedOrder::kGradient) return value;
    value.fHessian = Average();
    if (order == CrossedOrder::kAverage) return value;
    value.fExpected = CrossedTraces(*this).Expected();
    value.fHessian = 2.0 * value.fHessian - value.fExpected + CurvatureTerms();
    return value;
}

void CrossedEquations::UseCovariances(std::vector<CrossedCovariance> covariances) {
    for (std::size_t t = 0; t < covariances.size(); ++t)
        if (covariances[t].fStructure != fCovariances[t].fStructure) fKnown = Known::kNothing;
    fCovariances = std::move(covariances);
}

bool CrossedEquations::HasExactHessian() const {
    return IsWithinReach() && CrossedTraces::IsAffordable(*this);
}

bool CrossedEquations::SetCovariance(const Eigen::VectorXd& theta) {
    fTheta = theta;
    fResidual = theta[fParams - 1];
    if (!(fResidual > 0.0) || !theta.allFinite()) return false;
    for (int t = 0; t < fStat->Terms(); ++t) {
        const CrossedCovariance& covariance = fCovariances[t];
        const Structure& structure = *covariance.fStructure;
        const Places places = AllPositions(fStat->fColumns[t]);
        fTerms[t].fRegular = true;
        for (std::size_t g = 0; g < fTerms[t].fGroups.size(); ++g) {
            GroupState& state = fTerms[t].fGroups[g];
            state.fFirstParam = covariance.fFirstParam[g];
            const Eigen::VectorXd own = theta.segment(state.fFirstParam, structure.NumParams());
            structure.Matrix(own, places, state.fG);
            state.fRatio = state.fG / fResidual;
            bool singular = false;
            if (!SemidefiniteFactor(state.fRatio, state.fFactor, singular)) return false;
            if (singular) fTerms[t].fRegular = false;
            state.fFirst.resize(structure.NumParams());
            for (int k = 0; k < structure.NumParams(); ++k)
                structure.First(own, places, k, state.fFirst[k]);
        }
    }
    return true;
}

bool CrossedEquations::Assemble() {
    fSchur->Reset();
    fLogDeterminant = 0.0;
    EliminateSubjects();
    AddRest();
    MarkRegular();
    if (!fSchur->Factor()) return false;
    fLogDeterminant += fSchur->LogDeterminant();
    return true;
}

void CrossedEquations::EliminateSubjects() {
    const CrossedStatistics& stat = *fStat;
    const int gone = stat.fEliminated;
    const std::size_t q = stat.fColumns[gone];
    // Z_j'W Z_rest L, a block of columns at a time.
    std::vector<int> termOf(stat.fRest);
    ForRestSubjects([&](int t, int, int at) {
        for (int a = 0; a < stat.fColumns[t]; ++a)
            termOf[at + a] = t;
    });
    for (std::int64_t i = 0; i < stat.fFirstMet.back();) {
        const int t = termOf[stat.fMet[i]];
        const int r = stat.fColumns[t];
        const GroupState& state = State(t, (stat.fMet[i] - stat.fRestOffset[t]) / r);
        if (q == 1 && r == 1) {
            fScaledMet[i] = stat.fMetValues[i] * state.fFactor(0, 0);
        } else {
            const Eigen::Map<const Eigen::MatrixXd> block(stat.fMetValues.data() + i * q, q, r);
            Eigen::Map<Eigen::MatrixXd>(fScaledMet.data() + i * q, q, r).noalias() = block * state.fFactor;
        }
        i += r;
    }
    Eigen::MatrixXd inner(q, q), shrink(q, q);
    for (int j = 0; j < stat.fSubjects[gone]; ++j) {
        const GroupState& state = State(gone, j);
        const auto own = Own(gone, j);
        if (q == 1) {
            const double grown = 1.0 + own(0, 0) * state.fRatio(0, 0);
            fLogDeterminant += std::log(grown);
            shrink(0, 0) = 1.0 / grown;
            inner(0, 0) = state.fRatio(0, 0) / grown;
        } else {
            const auto identity = Eigen::MatrixXd::Identity(q, q);
            const Eigen::LLT<Eigen::MatrixXd> grown(identity + state.fFactor.transpose() * own * state.fFactor);
            fLogDeterminant += 2.0 * grown.matrixLLT().diagonal().array().log().sum();
            inner = state.fFactor * grown.solve(state.fFactor.transpose());
            shrink = (identity + own * state.fRatio).partialPivLu().inverse();
        }
        Eigen::Map<Eigen::MatrixXd>(fInner.data() + j * q * q, q, q) = inner;
        Eigen::Map<Eigen::MatrixXd>(fShrink.data() + j * q * q, q, q) = shrink;
        fSchur->Subtract(MetColumns(j), ScaledMet(j), inner);
    }
}

void CrossedEquations::AddRest() {
    const CrossedStatistics& stat = *fStat;
    ForRestSubjects([&](int t, int j, int at) {
        const Eigen::MatrixXd& factor = State(t, j).fFactor;
        const Eigen::MatrixXd scaled = factor.transpose() * Own(t, j) * factor;
        for (int a = 0; a < scaled.cols(); ++a)
            for (int b = a; b < scaled.rows(); ++b)
                fSchur->Add(at + b, at + a, scaled(b, a));
    });
    auto locate = [&](int rest) {
        int t = stat.Terms() - 1;
        while (t == stat.fEliminated || stat.fRestOffset[t] > rest)
            --t;
        return t;
    };
    for (const CrossedStatistics::Entry& entry : stat.fBetween) {
        const int t = locate(entry.fRow), u = locate(entry.fColumn);
        const int j = (entry.fRow - stat.fRestOffset[t]) / stat.fColumns[t];
        const int k = (entry.fColumn - stat.fRestOffset[u]) / stat.fColumns[u];
        const int row = stat.fRestOffset[t] + j * stat.fColumns[t];
        const int column = stat.fRestOffset[u] + k * stat.fColumns[u];
        const Eigen::MatrixXd& left = State(t, j).fFactor;
        const Eigen::MatrixXd& right = State(u, k).fFactor;
        for (int a = 0; a <= entry.fRow - row; ++a)
            for (int b = 0; b <= entry.fColumn - column; ++b)
                fSchur->Add(row + a, column + b,
                            entry.fValue * left(entry.fRow - row, a) * right(entry.fColumn - column, b));
    }
}

void CrossedEquations::MarkRegular() {
    for (int t = 0; t < fStat->Terms(); ++t) {
        if (t == fStat->fEliminated || !fTerms[t].fRegular) continue;
        const int q = fStat->fColumns[t];
        const int groups = static_cast<int>(fTerms[t].fGroups.size());
        Eigen::MatrixXd sum = Eigen::MatrixXd::Zero(q, groups);
        Eigen::VectorXi count = Eigen::VectorXi::Zero(groups);
        for (int j = 0; j < fStat->fSubjects[t]; ++j) {
            const int g = Group(t, j);
            ++count[g];
            for (int a = 0; a < q; ++a)
                sum(a, g) += fSchur->Diagonal(fStat->fRestOffset[t] + j * q + a) - 1.0;
        }
        for (int g = 0; g < groups; ++g)
            if (count[g] > 0 && sum.col(g).minCoeff() < kTiny * count[g]) fTerms[t].fRegular = false;
    }
}

void CrossedEquations::ScaleTransposed(Eigen::MatrixXd& rest) const {
    ForRestSubjects([&](int t, int j, int at) {
        auto rows = rest.middleRows(at, fStat->fColumns[t]);
        rows = (State(t, j).fFactor.transpose() * rows).eval();
    });
}

void CrossedEquations::Scale(Eigen::MatrixXd& rest) const {
    ForRestSubjects([&](int t, int j, int at) {
        auto rows = rest.middleRows(at, fStat->fColumns[t]);
        rows = (State(t, j).fFactor * rows).eval();
    });
}

Eigen::MatrixXd CrossedEquations::CrossTimes(const Eigen::MatrixXd& f) const {
    const CrossedStatistics& stat = *fStat;
    const int gone = stat.fEliminated;
    const int q = stat.fColumns[gone];
    Eigen::MatrixXd out(f.rows(), f.cols());
    Eigen::MatrixXd rest(stat.fRest, f.cols()), product = Eigen::MatrixXd::Zero(stat.fRest, f.cols());
    ForRestSubjects([&](int t, int j, int at) {
        const int r = stat.fColumns[t];
        rest.middleRows(at, r) = f.middleRows(stat.fOffset[t] + j * r, r);
        product.middleRows(at, r).noalias() = Own(t, j) * rest.middleRows(at, r);
    });
    for (const auto& entry : stat.fBetween) {
        product.row(entry.fRow) += entry.fValue * rest.row(entry.fColumn);
        product.row(entry.fColumn) += entry.fValue * rest.row(entry.fRow);
    }
    for (int j = 0; j < stat.fSubjects[gone]; ++j) {
        const auto mine = f.middleRows(stat.fOffset[gone] + j * q, q);
        auto into = out.middleRows(stat.fOffset[gone] + j * q, q);
        into.noalias() = Own(gone, j) * mine;
        const auto met = Met(j);
        const int* columns = MetColumns(j);
        for (int i = 0; i < met.cols(); ++i) {
            into.noalias() += met.col(i) * rest.row(columns[i]);
            product.row(columns[i]).noalias() += met.col(i).transpose() * mine;
        }
    }
    ForRestSubjects([&](int t, int j, int at) {
        const int r = stat.fColumns[t];
        out.middleRows(stat.fOffset[t] + j * r, r) = product.middleRows(at, r);
    });
    return out;
}

Eigen::MatrixXd CrossedEquations::ReducedTimes(const Eigen::MatrixXd& rest) const {
    Eigen::MatrixXd all = Eigen::MatrixXd::Zero(fStat->Coefficients(), rest.cols());
    ForRestSubjects([&](int t, int j, int at) {
        const int r = fStat->fColumns[t];
        all.middleRows(fStat->fOffset[t] + j * r, r) = rest.middleRows(at, r);
    });
    return Reduce(CrossTimes(all));
}

Eigen::MatrixXd CrossedEquations::Reduce(const Eigen::MatrixXd& right) const {
    const CrossedStatistics& stat = *fStat;
    const int gone = stat.fEliminated;
    const std::size_t q = stat.fColumns[gone];
    Eigen::MatrixXd reduced(stat.fRest, right.cols());
    ForRestSubjects([&](int t, int j, int at) {
        const int r = stat.fColumns[t];
        reduced.middleRows(at, r) = right.middleRows(stat.fOffset[t] + j * r, r);
    });
    Eigen::MatrixXd inside(q, right.cols());
    for (int j = 0; j < stat.fSubjects[gone]; ++j) {
        inside.noalias() = Eigen::Map<const Eigen::MatrixXd>(fInner.data() + j * q * q, q, q) *
                           right.middleRows(stat.fOffset[gone] + j * q, q);
        const auto met = Met(j);
        const int* columns = MetColumns(j);
        for (int i = 0; i < met.cols(); ++i)
            reduced.row(columns[i]).noalias() -= met.col(i).transpose() * inside;
    }
    return reduced;
}

Eigen::MatrixXd CrossedEquations::Project(const Eigen::MatrixXd& right) const {
    const CrossedStatistics& stat = *fStat;
    const int gone = stat.fEliminated;
    const std::size_t q = stat.fColumns[gone];
    const Eigen::MatrixXd reduced = Reduce(right);
    Eigen::MatrixXd solved = reduced;
    ScaleTransposed(solved);
    fSchur->Solve(solved);
    Eigen::MatrixXd effect = solved;  // C Z'V0^-1 F of the rest
    Scale(effect);

    Eigen::MatrixXd out(right.rows(), right.cols());
    bool irregular = false;
    for (int t = 0; t < stat.Terms(); ++t)
        irregular = irregular || (t != gone && !fTerms[t].fRegular);
    Eigen::MatrixXd difference;
    if (irregular) difference = reduced - ReducedTimes(effect);
    ForRestSubjects([&](int t, int j, int at) {
        const int r = stat.fColumns[t];
        auto into = out.middleRows(stat.fOffset[t] + j * r, r);
        into = fTerms[t].fRegular ? solved.middleRows(at, r) : difference.middleRows(at, r);
        if (fTerms[t].fRegular) State(t, j).fFactor.triangularView<Eigen::Lower>().transpose().solveInPlace(into);
    });
    Eigen::MatrixXd left(q, right.cols());
    for (int j = 0; j < stat.fSubjects[gone]; ++j) {
        left = right.middleRows(stat.fOffset[gone] + j * q, q);
        const auto met = Met(j);
        const int* columns = MetColumns(j);
        for (int i = 0; i < met.cols(); ++i)
            left.noalias() -= met.col(i) * effect.row(columns[i]);
        out.middleRows(stat.fOffset[gone] + j * q, q).noalias() =
            Eigen::Map<const Eigen::MatrixXd>(fShrink.data() + j * q * q, q, q) * left;
    }
    return out;
}

bool CrossedEquations::SolveFixed() {
    const int p = fStat->fFixed;
    const Eigen::MatrixXd projected = Project(fStat->fRight);
    // F'V0^-1 F = F'W F - F'W Z C Z'V0^-1 F.
    Eigen::MatrixXd effect(projected.rows(), p + 1);
    for (int t = 0; t < fStat->Terms(); ++t) {
        const int q = fStat->fColumns[t];
        for (int j = 0; j < fStat->fSubjects[t]; ++j) {
            const int at = fStat->fOffset[t] + j * q;
            effect.middleRows(at, q).noalias() = State(t, j).fRatio * projected.middleRows(at, q);
        }
    }
    fReducedCross = fStat->fCross - fStat->fRight.transpose() * effect;
    fReducedCross = 0.5 * (fReducedCross + fReducedCross.transpose()).eval();
    const Eigen::LLT<Eigen::MatrixXd> fixed(fReducedCross.topLeftCorner(p, p));
    if (fixed.info() != Eigen::Success) return false;
    fLogFixed = 2.0 * fixed.matrixLLT().diagonal().array().log().sum();
    fFixedInverse = fixed.solve(Eigen::MatrixXd::Identity(p, p));
    fBeta = fixed.solve(fReducedCross.col(p).head(p));
    fResidualForm = fReducedCross(p, p) - fReducedCross.col(p).head(p).dot(fBeta);
    fU = projected.leftCols(p);
    fV = projected.col(p) - fU * fBeta;
    return std::isfinite(fResidualForm);
}

double CrossedEquations::Objective() const {
    const double free = fStat->fTotalFrequency - (fRestricted ? fStat->fFixed : 0);
    double objective = free * std::log(2.0 * std::numbers::pi * fResidual) - fStat->fLogWeights + fLogDeterminant +
                       fResidualForm / fResidual;
    if (fRestricted) objective += fLogFixed + fStat->LogScale();
    return objective;
}

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
            state.fTraceSum.noalias() -= u * fFixedInverse * u.transpose();
        }
    }
    SumEliminatedTraces();
    SumRestTraces();
}

void CrossedEquations::SumEliminatedTraces() {
    const int gone = fStat->fEliminated;
    const std::size_t q = fStat->fColumns[gone];
    Eigen::MatrixXd h;
    for (int j = 0; j < fStat->fSubjects[gone]; ++j) {
        const Eigen::Map<const Eigen::MatrixXd> shrink(fShrink.data() + j * q * q, q, q);
        h.noalias() = shrink * ScaledMet(j);
        fTerms[gone].fGroups[Group(gone, j)].fTraceSum += shrink * Own(gone, j) - fSchur->Form(MetColumns(j), h);
    }
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
            out.middleRows(at, q).noalias() = State(t, j).fG * f.middleRows(at, q);
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
            out.middleRows(at, q).noalias() = state.fFirst[k] * f.middleRows(at, q);
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
    base.fExpected = 2.0 * base.fHessian - hessian + curvature;
    base.fHessian = hessian;
    Evaluate(theta, CrossedOrder::kValue);
    return base;
}

}  // namespace engine
