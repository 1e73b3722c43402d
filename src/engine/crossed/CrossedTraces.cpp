#include "engine/crossed/CrossedTraces.h"

#include "engine/crossed/CrossedEquations.h"
#include "engine/crossed/TiledCholesky.h"

namespace engine {

namespace {

constexpr int kMaxExactOrder = 4096;
constexpr double kMaxScratch = 134217728.0;  // doubles: one gigabyte

}  // namespace

bool CrossedTraces::IsAffordable(const CrossedEquations& equations) {
    const CrossedStatistics& stat = equations.Statistics();
    const double order = stat.fRest;
    const auto& covariance = equations.fCovariances[stat.fEliminated];
    const double directions =
        static_cast<double>(covariance.fFirstParam.size()) * (covariance.fStructure->NumParams() + 1);
    return equations.fSchur->IsDense() && order <= kMaxExactOrder && (directions + 2.0) * order * order <= kMaxScratch;
}

CrossedTraces::CrossedTraces(CrossedEquations& equations)
    : fEq(equations), fInverse(*equations.fSchur->WholeInverse()) {}

Eigen::MatrixXd CrossedTraces::Expected() {
    MakeDirections();
    const Eigen::Index count = static_cast<Eigen::Index>(fDirections.size());
    fPairs = Eigen::MatrixXd::Zero(count, count);
    PrepareIrregular();
    AddRestPairs();
    AddEliminatedLocal();
    AddEliminatedPairs();
    AddIrregularCross();
    return Corrected();
}

void CrossedTraces::MakeDirections() {
    const int terms = static_cast<int>(fEq.fTerms.size());
    const int random = fEq.fParams - 1;
    fOfTerm.assign(terms, {});
    std::vector<Eigen::RowVectorXd> rows;
    auto add = [&](int t, int g, const Eigen::MatrixXd& change) {
        Direction direction{t, g, change, change};
        if (t != fEq.fStat->fEliminated && fEq.fTerms[t].fRegular) {
            const auto lower = fEq.fTerms[t].fGroups[g].fFactor.triangularView<Eigen::Lower>();
            direction.fScaled = lower.solve(lower.solve(change).transpose().eval());
        }
        fOfTerm[t].push_back(static_cast<int>(fDirections.size()));
        fDirections.push_back(std::move(direction));
        rows.push_back(Eigen::RowVectorXd::Zero(random + 1));
    };
    for (int t = 0; t < terms; ++t) {
        const bool linear = fEq.fCovariances[t].fStructure->IsLinear();
        for (std::size_t g = 0; g < fEq.fTerms[t].fGroups.size(); ++g) {
            const auto& state = fEq.fTerms[t].fGroups[g];
            for (std::size_t k = 0; k < state.fFirst.size(); ++k) {
                add(t, static_cast<int>(g), state.fFirst[k]);
                const int param = state.fFirstParam + static_cast<int>(k);
                rows.back()[param] = 1.0;
                if (linear) rows.back()[random] = fEq.fTheta[param];
            }
            if (linear) continue;
            add(t, static_cast<int>(g), state.fG);
            rows.back()[random] = 1.0;
        }
    }
    fCombination.resize(static_cast<Eigen::Index>(rows.size()), random + 1);
    for (std::size_t i = 0; i < rows.size(); ++i)
        fCombination.row(static_cast<Eigen::Index>(i)) = rows[i];
}

void CrossedTraces::PrepareIrregular() {
    const CrossedStatistics& stat = *fEq.fStat;
    fIrregularAt.assign(stat.Terms(), -1);
    int columns = 0;
    for (int t = 0; t < stat.Terms(); ++t) {
        if (t == stat.fEliminated || fEq.fTerms[t].fRegular) continue;
        fIrregularAt[t] = columns;
        columns += stat.fSubjects[t] * stat.fColumns[t];
    }
    if (columns == 0) return;
    Eigen::MatrixXd unit = Eigen::MatrixXd::Zero(stat.fRest, columns);
    for (int t = 0; t < stat.Terms(); ++t)
        if (fIrregularAt[t] >= 0) {
            const int size = stat.fSubjects[t] * stat.fColumns[t];
            unit.block(stat.fRestOffset[t], fIrregularAt[t], size, size).setIdentity();
        }
    fIrregularRaw = fEq.ReducedTimes(unit);
    fIrregularScaled = fIrregularRaw;
    fEq.ScaleTransposed(fIrregularScaled);
    fIrregularSolved = fIrregularScaled;
    fEq.fSchur->Solve(fIrregularSolved);
}

Eigen::MatrixXd CrossedTraces::Panel(int term, int at) const {
    const CrossedStatistics& stat = *fEq.fStat;
    const int q = stat.fColumns[term];
    Eigen::MatrixXd panel;
    if (fIrregularAt[term] < 0) {
        panel = -fInverse.middleCols(at, q);
        panel.middleRows(at, q).diagonal().array() += 1.0;
        for (int t = 0; t < stat.Terms(); ++t) {
            if (fIrregularAt[t] < 0) continue;
            const int size = stat.fSubjects[t] * stat.fColumns[t];
            panel.middleRows(stat.fRestOffset[t], size) =
                fIrregularSolved.block(at, fIrregularAt[t], q, size).transpose();
        }
        return panel;
    }
    const int column = fIrregularAt[term] + at - stat.fRestOffset[term];
    panel = fIrregularSolved.middleCols(column, q);
    for (int t = 0; t < stat.Terms(); ++t) {
        if (fIrregularAt[t] < 0) continue;
        const int size = stat.fSubjects[t] * stat.fColumns[t];
        panel.middleRows(stat.fRestOffset[t], size) =
            fIrregularRaw.block(stat.fRestOffset[t], column, size, q) -
            fIrregularSolved.middleCols(fIrregularAt[t], size).transpose() * fIrregularScaled.middleCols(column, q);
    }
    return panel;
}

void CrossedTraces::AddRestPairs() {
    const CrossedStatistics& stat = *fEq.fStat;
    fEq.ForRestSubjects([&](int u, int k, int column) {
        const Eigen::MatrixXd panel = Panel(u, column);
        for (int t = 0; t < stat.Terms(); ++t) {
            if (t == stat.fEliminated) continue;
            const int q = stat.fColumns[t];
            const int size = stat.fSubjects[t] * q;
            const auto part = panel.middleRows(stat.fRestOffset[t], size);
            if (q == 1 && panel.cols() == 1 && fOfTerm[t].size() == 1 && fOfTerm[u].size() == 1) {
                const int d = fOfTerm[t][0], e = fOfTerm[u][0];
                fPairs(d, e) += part.squaredNorm() * fDirections[d].fScaled(0, 0) * fDirections[e].fScaled(0, 0);
                continue;
            }
            for (int e : fOfTerm[u]) {
                if (fDirections[e].fGroup != fEq.Group(u, k)) continue;
                const Eigen::MatrixXd right = part * fDirections[e].fScaled;
                for (int j = 0; j < stat.fSubjects[t]; ++j) {
                    const Eigen::MatrixXd form = right.middleRows(j * q, q) * part.middleRows(j * q, q).transpose();
                    for (int d : fOfTerm[t])
                        if (fDirections[d].fGroup == fEq.Group(t, j))
                            fPairs(d, e) += form.cwiseProduct(fDirections[d].fScaled).sum();
                }
            }
        }
    });
}

/// The part of the eliminated term's own sum in which the unreduced F_j stands at least once.
void CrossedTraces::AddEliminatedLocal() {
    const CrossedStatistics& stat = *fEq.fStat;
    const int gone = stat.fEliminated;
    for (int j = 0; j < stat.fSubjects[gone]; ++j) {
        const auto form = fEq.Block(fEq.fForm, j);
        const Eigen::MatrixXd rest = fEq.Block(fEq.fShrink, j).lazyProduct(fEq.Own(gone, j)) - form;
        // F dG F dG' - F dG W dG' - W dG F dG' = (F - W) dG (F - W) dG' - W dG W dG'
        for (int d : fOfTerm[gone])
            for (int e : fOfTerm[gone]) {
                if (fDirections[d].fGroup != fEq.Group(gone, j) || fDirections[e].fGroup != fEq.Group(gone, j))
                    continue;
                const Eigen::MatrixXd& a = fDirections[d].fChange;
                const Eigen::MatrixXd& b = fDirections[e].fChange;
                fPairs(d, e) += (rest * a * rest).cwiseProduct(b).sum() - (form * a * form).cwiseProduct(b).sum();
            }
    }
}

void CrossedTraces::AddEliminatedPairs() {
    const CrossedStatistics& stat = *fEq.fStat;
    const int gone = stat.fEliminated;
    const int order = stat.fRest;
    if (order == 0) return;
    const std::vector<int>& own = fOfTerm[gone];
    std::vector<Eigen::MatrixXd> products;  // of K with S^-1
    for (int d : own) {
        // H_j' dG H_j = M_j' N_j M_j
        std::vector<double> inner(fEq.fShrink.size());
        for (int j = 0; j < stat.fSubjects[gone]; ++j) {
            const auto shrink = fEq.Block(fEq.fShrink, j);
            fEq.Block(inner, j) = shrink.transpose() * fDirections[d].fChange * shrink;
        }
        Eigen::MatrixXd sum = Eigen::MatrixXd::Zero(order, order);
        fEq.SumMet(
            1.0,
            [&](int j) { return fEq.Group(gone, j) == fDirections[d].fGroup ? fEq.Block(inner, j).data() : nullptr; },
            [&](int column, const int* rows, const double* values, int count) {
                double* into = sum.col(column).data();
                for (int i = 0; i < count; ++i)
                    into[rows[i]] += values[i];
            });
        products.emplace_back(order, order);
        TiledMultiply(sum.data(), order, fInverse.data(), order, products.back().data(), fEq.fCrew);
    }
    for (std::size_t a = 0; a < own.size(); ++a) {
        for (std::size_t b = a; b < own.size(); ++b) {
            double trace = 0.0;
            constexpr int kTile = 64;
            for (int c = 0; c < order; c += kTile)
                for (int r = 0; r < order; r += kTile) {
                    const int width = std::min(kTile, order - c), height = std::min(kTile, order - r);
                    trace += products[a]
                                 .block(r, c, height, width)
                                 .cwiseProduct(products[b].block(c, r, width, height).transpose())
                                 .sum();
                }
            fPairs(own[a], own[b]) += trace;
            if (a != b) fPairs(own[b], own[a]) += trace;
        }
        // Between the eliminated term and the rest's regular ones: S^-1 K S^-1 on their subjects' blocks.
        fEq.ForRestSubjects([&](int t, int j, int at) {
            if (fIrregularAt[t] >= 0) return;
            const int r = stat.fColumns[t];
            const Eigen::MatrixXd block = products[a].middleCols(at, r).transpose() * fInverse.middleCols(at, r);
            for (int e : fOfTerm[t]) {
                if (fDirections[e].fGroup != fEq.Group(t, j)) continue;
                const double value = block.cwiseProduct(fDirections[e].fScaled).sum();
                fPairs(own[a], e) += value;
                fPairs(e, own[a]) += value;
            }
        });
    }
}

/// Between the eliminated term and terms whose L has no usable inverse: T_j. = H_j - H_j L S^-1 L' A, row by row.
void CrossedTraces::AddIrregularCross() {
    const CrossedStatistics& stat = *fEq.fStat;
    if (fIrregularSolved.size() == 0) return;
    const int gone = stat.fEliminated;
    const std::size_t q = stat.fColumns[gone];
    const Eigen::MatrixXd solved = fIrregularSolved.transpose();
    for (int j = 0; j < stat.fSubjects[gone]; ++j) {
        const Eigen::Map<const Eigen::MatrixXd> shrink(fEq.fShrink.data() + j * q * q, q, q);
        const Eigen::MatrixXd raw = shrink * fEq.Met(j);
        const Eigen::MatrixXd scaled = shrink * fEq.ScaledMet(j);
        const int* columns = fEq.MetColumns(j);
        Eigen::MatrixXd row = Eigen::MatrixXd::Zero(solved.rows(), q);
        for (Eigen::Index i = 0; i < raw.cols(); ++i) {
            row.noalias() -= solved.col(columns[i]) * scaled.col(i).transpose();
            for (int t = 0; t < stat.Terms(); ++t) {
                const int at = columns[i] - stat.fRestOffset[t];
                if (fIrregularAt[t] >= 0 && at >= 0 && at < stat.fSubjects[t] * stat.fColumns[t])
                    row.row(fIrregularAt[t] + at) += raw.col(i).transpose();
            }
        }
        for (int t = 0; t < stat.Terms(); ++t) {
            if (fIrregularAt[t] < 0) continue;
            const int r = stat.fColumns[t];
            for (int k = 0; k < stat.fSubjects[t]; ++k) {
                const auto block = row.middleRows(fIrregularAt[t] + k * r, r);
                for (int d : fOfTerm[gone]) {
                    if (fDirections[d].fGroup != fEq.Group(gone, j)) continue;
                    const Eigen::MatrixXd form = block * fDirections[d].fChange * block.transpose();
                    for (int e : fOfTerm[t]) {
                        if (fDirections[e].fGroup != fEq.Group(t, k)) continue;
                        const double value = form.cwiseProduct(fDirections[e].fScaled).sum();
                        fPairs(d, e) += value;
                        fPairs(e, d) += value;
                    }
                }
            }
        }
    }
}

/// From tr(T dG T dG) to tr(Q V_k Q V_l): combine directions into parameters, take the fixed effects off, and give the
/// residual its row by V_e = (V - Z G Z') / s2.
Eigen::MatrixXd CrossedTraces::Corrected() {
    const int random = fEq.fParams - 1;
    const double s2 = fEq.fResidual;
    Eigen::MatrixXd forms = fCombination.transpose() * fPairs * fCombination;
    const int p = fEq.fStat->fFixed;
    if (fEq.fRestricted && p > 0) {
        std::vector<Eigen::MatrixXd> changed, single;
        for (int k = 0; k <= random; ++k) {
            changed.push_back(k < random ? fEq.DerivativeTimes(k, fEq.fU) : fEq.CovarianceTimes(fEq.fU));
            single.push_back(fEq.fFixedInverse * (fEq.fU.transpose() * changed.back()));
        }
        for (int l = 0; l <= random; ++l) {
            const Eigen::MatrixXd applied = fEq.Information(changed[l]) * fEq.fFixedInverse;
            for (int k = 0; k <= random; ++k)
                forms(k, l) +=
                    -2.0 * changed[k].cwiseProduct(applied).sum() + single[k].cwiseProduct(single[l].transpose()).sum();
        }
    }
    forms = 0.5 * (forms + forms.transpose()).eval() / (s2 * s2);
    Eigen::VectorXd traces = Eigen::VectorXd::Zero(random + 1);  // tr(Q V_k), tr(Q Z G Z')
    for (const auto& term : fEq.fTerms)
        for (const auto& state : term.fGroups) {
            for (std::size_t k = 0; k < state.fFirst.size(); ++k)
                traces[state.fFirstParam + static_cast<int>(k)] +=
                    state.fTraceSum.cwiseProduct(state.fFirst[k]).sum() / s2;
            traces[random] += state.fTraceSum.cwiseProduct(state.fRatio).sum();
        }
    const double free = fEq.fStat->fTotalFrequency - (fEq.fRestricted ? p : 0);
    Eigen::MatrixXd out(random + 1, random + 1);
    out.topLeftCorner(random, random) = forms.topLeftCorner(random, random);
    out.col(random).head(random) = (traces.head(random) - forms.col(random).head(random)) / s2;
    out.row(random).head(random) = out.col(random).head(random).transpose();
    out(random, random) = (free - 2.0 * traces[random] + forms(random, random)) / (s2 * s2);
    return out;
}

}  // namespace engine
