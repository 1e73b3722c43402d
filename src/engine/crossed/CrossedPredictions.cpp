#include "engine/crossed/CrossedEquations.h"

namespace engine {

Eigen::VectorXd CrossedEquations::FixedEffects() const {
    Eigen::VectorXd beta = fStat->Transform() * fBeta;
    if (fStat->fIntercept >= 0) beta[fStat->fIntercept] += fStat->fTargetShift;
    return beta;
}

Eigen::MatrixXd CrossedEquations::FixedCovariance() const {
    const Eigen::MatrixXd transform = fStat->Transform();
    return fResidual * (transform * fFixedInverse * transform.transpose());
}

Eigen::MatrixXd CrossedEquations::FixedInformation() const {
    const Eigen::MatrixXd back = fStat->Transform().inverse();
    const int p = fStat->fFixed;
    return back.transpose() * fReducedCross.topLeftCorner(p, p) * back / fResidual;
}

std::vector<Eigen::MatrixXd> CrossedEquations::FixedCovarianceDerivatives() const {
    // d C = C X'V^-1 dV V^-1 X C; the residual's follows as C is homogeneous of degree 1 in all variances together.
    const Eigen::MatrixXd outer = fStat->Transform() * fFixedInverse;
    auto form = [&](const Eigen::MatrixXd& changed) {
        return Eigen::MatrixXd(outer * (fU.transpose() * changed) * outer.transpose());
    };
    std::vector<Eigen::MatrixXd> derivatives;
    for (int k = 0; k + 1 < fParams; ++k)
        derivatives.push_back(form(DerivativeTimes(k, fU)));
    derivatives.push_back((FixedCovariance() - form(CovarianceTimes(fU))) / fResidual);
    return derivatives;
}

CrossedEquations::Adjustment CrossedEquations::KenwardRoger() const {
    const int random = fParams - 1;
    const int p = fStat->fFixed;
    const double s2 = fResidual;
    const Eigen::MatrixXd back = fStat->Transform().inverse();
    auto original = [&](const Eigen::MatrixXd& m) { return Eigen::MatrixXd(back.transpose() * m * back); };
    const Eigen::MatrixXd whole = fReducedCross.topLeftCorner(p, p) / s2;  // X'V^-1 X

    // By direction: random parameters, and Z G Z' as a whole last.
    std::vector<Eigen::MatrixXd> changed, single;
    for (int k = 0; k <= random; ++k) {
        changed.push_back(k < random ? DerivativeTimes(k, fU) : CovarianceTimes(fU));
        single.push_back(fU.transpose() * changed.back() / (s2 * s2));
    }
    std::vector<Eigen::MatrixXd> twice((random + 1) * (random + 1));
    for (int l = 0; l <= random; ++l) {
        const Eigen::MatrixXd applied = Information(changed[l]) / (s2 * s2 * s2);
        for (int k = 0; k <= random; ++k)
            twice[k * (random + 1) + l] = changed[k].transpose() * applied;
    }
    auto both = [&](int k, int l) -> const Eigen::MatrixXd& { return twice[k * (random + 1) + l]; };

    Adjustment out;
    for (int k = 0; k < random; ++k)
        out.fP.push_back(original(-single[k]));
    out.fP.push_back(original((single[random] - whole) / s2));
    for (int k = 0; k < fParams; ++k)
        for (int l = 0; l < fParams; ++l) {
            Eigen::MatrixXd q;
            if (k < random && l < random)
                q = both(k, l);
            else if (k < random)
                q = (single[k] - both(k, random)) / s2;
            else if (l < random)
                q = (single[l] - both(random, l)) / s2;
            else
                q = (whole - 2.0 * single[random] + both(random, random)) / (s2 * s2);
            out.fQ.push_back(original(q));
        }
    out.fR.assign(fParams * fParams, Eigen::MatrixXd::Zero(p, p));
    Eigen::MatrixXd second;
    for (int t = 0; t < fStat->Terms(); ++t) {
        const Structure& structure = *fCovariances[t].fStructure;
        if (structure.IsLinear()) continue;
        const int q = fStat->fColumns[t];
        Places places;
        for (int a = 0; a < q; ++a)
            places.fPositions.push_back(a);
        for (std::size_t g = 0; g < fTerms[t].fGroups.size(); ++g) {
            const int first = fTerms[t].fGroups[g].fFirstParam;
            const Eigen::VectorXd own = fTheta.segment(first, structure.NumParams());
            for (int k = 0; k < structure.NumParams(); ++k)
                for (int l = 0; l < structure.NumParams(); ++l) {
                    if (!structure.Second(own, places, std::max(k, l), std::min(k, l), second)) continue;
                    Eigen::MatrixXd sum = Eigen::MatrixXd::Zero(p, p);
                    for (int j = 0; j < fStat->fSubjects[t]; ++j) {
                        if (Group(t, j) != static_cast<int>(g)) continue;
                        const auto u = fU.middleRows(fStat->fOffset[t] + j * q, q);
                        sum.noalias() += u.transpose() * second * u;
                    }
                    out.fR[(first + k) * fParams + first + l] += original(sum / (s2 * s2));
                }
        }
    }
    return out;
}

Eigen::MatrixXd CrossedEquations::Predictions(int term) const {
    const int q = fStat->fColumns[term];
    Eigen::MatrixXd out(q, fStat->fSubjects[term]);
    for (int j = 0; j < fStat->fSubjects[term]; ++j)
        out.col(j) = State(term, j).fRatio * fV.segment(fStat->fOffset[term] + j * q, q);
    return out;
}

Eigen::MatrixXd CrossedEquations::PredictionCovariances(int term) {
    if (fKnown != Known::kTraces) Evaluate(fTheta, CrossedOrder::kGradient);
    const std::size_t q = fStat->fColumns[term];
    const int subjects = fStat->fSubjects[term];
    Eigen::MatrixXd out(q, q * subjects);
    for (int j = 0; j < subjects; ++j) {
        const GroupState& state = State(term, j);
        auto block = out.middleCols(j * q, q);
        if (term == fStat->fEliminated) {
            block = Block(fInner, j) + state.fRatio * Block(fForm, j) * state.fRatio;
        } else {
            const int at = fStat->fRestOffset[term] + j * static_cast<int>(q);
            Eigen::MatrixXd inverse(q, q);
            for (std::size_t a = 0; a < q; ++a)
                for (std::size_t b = a; b < q; ++b)
                    inverse(b, a) = inverse(a, b) = fSchur->Entry(at + static_cast<int>(b), at + static_cast<int>(a));
            block = state.fFactor * inverse * state.fFactor.transpose();
        }
        const Eigen::MatrixXd fixed = state.fRatio * fU.middleRows(fStat->fOffset[term] + j * q, q);
        block = (fResidual * (block + fixed * fFixedInverse * fixed.transpose())).eval();
    }
    return out;
}

CrossedEquations::Combination CrossedEquations::Combine(const std::vector<Row>& rows) const {
    const Eigen::Index count = static_cast<Eigen::Index>(rows.size());
    Eigen::MatrixXd fixed(fStat->fFixed, count);
    Eigen::MatrixXd random = Eigen::MatrixXd::Zero(fStat->Coefficients(), count);
    for (Eigen::Index i = 0; i < count; ++i) {
        fixed.col(i) = rows[i].fFixed;
        for (const auto& [index, factor] : rows[i].fRandom)
            random(index, i) += factor;
    }
    Combination out;
    const Eigen::MatrixXd held = CovarianceTimes(random) / fResidual;  // C u, also what multiplies v in the estimate
    out.fEstimate = fixed.transpose() * FixedEffects() + held.transpose() * fV;
    // Let a'y be the predictor: var(a'y - row) has the derivative k' dG k with k = Z'a - u (a is optimal).
    const Eigen::MatrixXd rest = Project(random);  // u - Z'V^-1 Z G u
    const Eigen::MatrixXd net = fStat->Transform().transpose() * fixed - fU.transpose() * held;
    const Eigen::MatrixXd k = fU * fFixedInverse * net - rest;
    out.fCovariance = fResidual * (net.transpose() * fFixedInverse * net + held.transpose() * rest);
    out.fCovariance = 0.5 * (out.fCovariance + out.fCovariance.transpose()).eval();
    for (int p = 0; p + 1 < fParams; ++p)
        out.fDerivatives.push_back(k.transpose() * DerivativeTimes(p, k));
    out.fDerivatives.push_back((out.fCovariance - k.transpose() * CovarianceTimes(k)) / fResidual);
    return out;
}

}  // namespace engine
