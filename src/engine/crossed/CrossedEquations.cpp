#include "engine/crossed/CrossedEquations.h"

#include "engine/crossed/CrossedTraces.h"
#include "engine/model/Share.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <utility>

namespace engine {

namespace {

/// Below this share of a pivot's original value a matrix counts as singular.
constexpr double kSingular = 1e-10;
/// Below this mean of L'Z'V1^-1 Z L the route through L^-1 would lose digits.
constexpr double kTiny = 1e-4;
/// Parts into which subjects are cut for threads.
constexpr int kChunks = 32;

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
    for (std::vector<double>* list : {&fShrink, &fInner, &fForm})
        list->resize(subjects * q * q);
    IndexMet();
}

CrossedEquations::~CrossedEquations() = default;

Places CrossedEquations::AllPositions(int columns) {
    Places places;
    for (int a = 0; a < columns; ++a)
        places.fPositions.push_back(a);
    return places;
}

Eigen::Map<const Eigen::MatrixXd> CrossedEquations::Own(int term, int subject) const {
    const std::size_t q = fStat->fColumns[term];
    return {fStat->fOwn[term].data() + subject * q * q, static_cast<Eigen::Index>(q), static_cast<Eigen::Index>(q)};
}

void CrossedEquations::IndexMet() {
    const CrossedStatistics& stat = *fStat;
    fFirstOfColumn.assign(stat.fRest + 1, 0);
    for (int column : stat.fMet)
        ++fFirstOfColumn[column + 1];
    std::partial_sum(fFirstOfColumn.begin(), fFirstOfColumn.end(), fFirstOfColumn.begin());
    std::vector<std::int64_t> fill(fFirstOfColumn.begin(), fFirstOfColumn.end() - 1);
    fColumnMet.resize(stat.fMet.size());
    fMetSubject.resize(stat.fMet.size());
    for (int j = 0; j < stat.fSubjects[stat.fEliminated]; ++j) {
        for (std::int64_t i = stat.fFirstMet[j]; i < stat.fFirstMet[j + 1]; ++i) {
            fColumnMet[fill[stat.fMet[i]]++] = i;
            fMetSubject[i] = j;
        }
    }
}

Eigen::Map<Eigen::MatrixXd> CrossedEquations::Block(std::vector<double>& list, int subject) const {
    const std::size_t q = fStat->fColumns[fStat->fEliminated];
    return {list.data() + subject * q * q, static_cast<Eigen::Index>(q), static_cast<Eigen::Index>(q)};
}

Eigen::Map<const Eigen::MatrixXd> CrossedEquations::Block(const std::vector<double>& list, int subject) const {
    const std::size_t q = fStat->fColumns[fStat->fEliminated];
    return {list.data() + subject * q * q, static_cast<Eigen::Index>(q), static_cast<Eigen::Index>(q)};
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
    const Eigen::MatrixXd average = Average();
    value.fExpected = order == CrossedOrder::kAverage ? average : CrossedTraces(*this).Expected();
    value.fHessian = 2.0 * average - value.fExpected + CurvatureTerms();
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

void CrossedEquations::ForChunks(int count, const std::function<void(int, int, int)>& work) const {
    Share(fCrew, kChunks, [&](int chunk) {
        const auto begin = [&](long c) { return static_cast<int>(c * count / kChunks); };
        work(chunk, begin(chunk), begin(chunk + 1));
    });
}

void CrossedEquations::ForColumns(Eigen::Index count, const std::function<void(int)>& work) const {
    Share(fCrew, static_cast<int>(count), work);
}

void CrossedEquations::SumMet(double factor, const Weight& weight, const Put& put) const {
    const int q = fStat->fColumns[fStat->fEliminated];
    const int* met = fStat->fMet.data();
    ForChunks(fStat->fRest, [&](int, int begin, int end) {
        std::vector<double> values, weighted(q);
        for (int column = begin; column < end; ++column) {
            for (std::int64_t e = fFirstOfColumn[column]; e < fFirstOfColumn[column + 1]; ++e) {
                const std::int64_t first = fColumnMet[e];
                const int subject = fMetSubject[first];
                const double* n = weight(subject);
                if (n == nullptr) continue;
                const double* mine = fScaledMet.data() + first * q;
                for (int a = 0; a < q; ++a)
                    weighted[a] = factor * std::inner_product(mine, mine + q, n + a * q, 0.0);
                const int count = static_cast<int>(fStat->fFirstMet[subject + 1] - first);
                values.resize(count);
                for (int b = 0; b < count; ++b, mine += q)
                    values[b] = std::inner_product(mine, mine + q, weighted.data(), 0.0);
                put(column, met + first, values.data(), count);
            }
        }
    });
}

/// Z_j'W Z_rest L, a block of columns at a time.
void CrossedEquations::ScaleMet() {
    const CrossedStatistics& stat = *fStat;
    const std::size_t q = stat.fColumns[stat.fEliminated];
    std::vector<const GroupState*> stateOf(stat.fRest);
    std::vector<int> width(stat.fRest);
    ForRestSubjects([&](int t, int j, int at) {
        stateOf[at] = &State(t, j);
        width[at] = stat.fColumns[t];
    });
    ForChunks(stat.fSubjects[stat.fEliminated], [&](int, int first, int end) {
        for (std::int64_t i = stat.fFirstMet[first]; i < stat.fFirstMet[end];) {
            const int r = width[stat.fMet[i]];
            const Eigen::MatrixXd& factor = stateOf[stat.fMet[i]]->fFactor;
            if (q == 1 && r == 1) {
                fScaledMet[i] = stat.fMetValues[i] * factor(0, 0);
            } else {
                const Eigen::Map<const Eigen::MatrixXd> block(stat.fMetValues.data() + i * q, q, r);
                Eigen::Map<Eigen::MatrixXd>(fScaledMet.data() + i * q, q, r).noalias() = block * factor;
            }
            i += r;
        }
    });
}

void CrossedEquations::EliminateSubjects() {
    const int gone = fStat->fEliminated;
    const int q = fStat->fColumns[gone];
    ScaleMet();
    std::vector<double> logs(kChunks, 0.0);
    ForChunks(fStat->fSubjects[gone], [&](int chunk, int first, int end) {
        const auto identity = Eigen::MatrixXd::Identity(q, q);
        for (int j = first; j < end; ++j) {
            const GroupState& state = State(gone, j);
            const auto own = Own(gone, j);
            auto inner = Block(fInner, j), shrink = Block(fShrink, j);
            if (q == 1) {
                const double grown = 1.0 + own(0, 0) * state.fRatio(0, 0);
                logs[chunk] += std::log(grown);
                shrink(0, 0) = 1.0 / grown;
                inner(0, 0) = state.fRatio(0, 0) / grown;
            } else {
                const Eigen::LLT<Eigen::MatrixXd> grown(identity + state.fFactor.transpose() * own * state.fFactor);
                logs[chunk] += 2.0 * grown.matrixLLT().diagonal().array().log().sum();
                inner = state.fFactor * grown.solve(state.fFactor.transpose());
                shrink = (identity + own * state.fRatio).partialPivLu().inverse();
            }
        }
    });
    for (double log : logs)
        fLogDeterminant += log;
    SumMet(
        -1.0, [&](int j) { return Block(fInner, j).data(); },
        [&](int column, const int* rows, const double* values, int count) {
            fSchur->Add(column, rows, values, count);
        });
}

void CrossedEquations::AddRest() {
    const CrossedStatistics& stat = *fStat;
    auto add = [&](int row, int column, double value) { fSchur->Add(column, &row, &value, 1); };
    ForRestSubjects([&](int t, int j, int at) {
        const Eigen::MatrixXd& factor = State(t, j).fFactor;
        const Eigen::MatrixXd scaled = factor.transpose() * Own(t, j) * factor;
        for (int a = 0; a < scaled.cols(); ++a)
            for (int b = a; b < scaled.rows(); ++b)
                add(at + b, at + a, scaled(b, a));
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
                add(row + a, column + b, entry.fValue * left(entry.fRow - row, a) * right(entry.fColumn - column, b));
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

Eigen::VectorXd CrossedEquations::Rest(const Eigen::Ref<const Eigen::VectorXd>& all) const {
    Eigen::VectorXd rest(fStat->fRest);
    for (int t = 0; t < fStat->Terms(); ++t)
        if (t != fStat->fEliminated)
            rest.segment(fStat->fRestOffset[t], fStat->Size(t)) = all.segment(fStat->fOffset[t], fStat->Size(t));
    return rest;
}

void CrossedEquations::AddMetTransposed(const double* mine, double* rest) const {
    const int gone = fStat->fEliminated, q = fStat->fColumns[gone];
    const double* values = fStat->fMetValues.data();
    for (int j = 0; j < fStat->fSubjects[gone]; ++j, mine += q)
        for (std::int64_t i = fStat->fFirstMet[j]; i < fStat->fFirstMet[j + 1]; ++i, values += q)
            rest[fStat->fMet[i]] += std::inner_product(mine, mine + q, values, 0.0);
}

void CrossedEquations::AddMet(const double* rest, double* mine) const {
    const int gone = fStat->fEliminated, q = fStat->fColumns[gone];
    const double* values = fStat->fMetValues.data();
    for (int j = 0; j < fStat->fSubjects[gone]; ++j, mine += q)
        for (std::int64_t i = fStat->fFirstMet[j]; i < fStat->fFirstMet[j + 1]; ++i)
            for (int a = 0; a < q; ++a)
                mine[a] += *values++ * rest[fStat->fMet[i]];
}

Eigen::MatrixXd CrossedEquations::CrossTimes(const Eigen::MatrixXd& f) const {
    const CrossedStatistics& stat = *fStat;
    const int gone = stat.fEliminated;
    Eigen::MatrixXd out(f.rows(), f.cols());
    ForColumns(f.cols(), [&](int k) {
        const auto from = f.col(k);
        auto into = out.col(k);
        for (int t = 0; t < stat.Terms(); ++t) {
            const int q = stat.fColumns[t];
            for (int j = 0; j < stat.fSubjects[t]; ++j)
                into.segment(stat.fOffset[t] + j * q, q) =
                    Own(t, j).lazyProduct(from.segment(stat.fOffset[t] + j * q, q));
        }
        const Eigen::VectorXd rest = Rest(from);
        Eigen::VectorXd product = Eigen::VectorXd::Zero(stat.fRest);
        for (const auto& entry : stat.fBetween) {
            product[entry.fRow] += entry.fValue * rest[entry.fColumn];
            product[entry.fColumn] += entry.fValue * rest[entry.fRow];
        }
        AddMet(rest.data(), into.data() + stat.fOffset[gone]);
        AddMetTransposed(from.data() + stat.fOffset[gone], product.data());
        for (int t = 0; t < stat.Terms(); ++t)
            if (t != gone)
                into.segment(stat.fOffset[t], stat.Size(t)) += product.segment(stat.fRestOffset[t], stat.Size(t));
    });
    return out;
}

Eigen::MatrixXd CrossedEquations::ReducedTimes(const Eigen::MatrixXd& rest) const {
    Eigen::MatrixXd all = Eigen::MatrixXd::Zero(fStat->Coefficients(), rest.cols());
    for (int t = 0; t < fStat->Terms(); ++t)
        if (t != fStat->fEliminated)
            all.middleRows(fStat->fOffset[t], fStat->Size(t)) = rest.middleRows(fStat->fRestOffset[t], fStat->Size(t));
    return Reduce(CrossTimes(all));
}

Eigen::MatrixXd CrossedEquations::Reduce(const Eigen::MatrixXd& right) const {
    const int gone = fStat->fEliminated, q = fStat->fColumns[gone];
    Eigen::MatrixXd reduced(fStat->fRest, right.cols());
    ForColumns(right.cols(), [&](int k) {
        reduced.col(k) = Rest(right.col(k));
        const auto mine = right.col(k).segment(fStat->fOffset[gone], fStat->Size(gone));
        Eigen::VectorXd inside(mine.size());
        for (int j = 0; j < fStat->fSubjects[gone]; ++j)
            inside.segment(j * q, q) = -Block(fInner, j).lazyProduct(mine.segment(j * q, q));
        AddMetTransposed(inside.data(), reduced.col(k).data());
    });
    return reduced;
}

Eigen::MatrixXd CrossedEquations::Project(const Eigen::MatrixXd& right) const {
    const CrossedStatistics& stat = *fStat;
    const int gone = stat.fEliminated;
    const int q = stat.fColumns[gone];
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
    ForColumns(right.cols(), [&](int k) {
        Eigen::VectorXd left = -right.col(k).segment(stat.fOffset[gone], stat.Size(gone));
        AddMet(effect.col(k).data(), left.data());
        for (int j = 0; j < stat.fSubjects[gone]; ++j)
            out.col(k).segment(stat.fOffset[gone] + j * q, q) = -Block(fShrink, j).lazyProduct(left.segment(j * q, q));
    });
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
            effect.middleRows(at, q) = State(t, j).fRatio.lazyProduct(projected.middleRows(at, q));
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

}  // namespace engine
