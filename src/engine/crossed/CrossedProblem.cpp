#include "engine/crossed/CrossedProblem.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace engine {

namespace {

constexpr long kNotBuilt = 130018;
constexpr int kUndividedColumns = 8;
constexpr long kFewCodes = 1L << 24;

FitStatus Refuse(const char* detail) {
    return {kNotBuilt, Severity::kError, detail};
}

}  // namespace

int CrossedTerm::Find(long key) const {
    if (!fIndex.empty()) return fIndex[key];
    const auto at = fSparseIndex.find(key);
    return at == fSparseIndex.end() ? -1 : at->second;
}

bool CrossedProblem::Suits(const ModelSpec& spec) {
    return spec.fResidual.IsScaledIdentity() && !spec.fResidual.IsRepeated() && spec.fResidual.fGroup < 0 &&
           !spec.fRandom.empty();
}

FitStatus CrossedProblem::Prepare() {
    if (const FitStatus status = PlanTerms(); status.IsError()) return status;
    return Gather();
}

FitStatus CrossedProblem::PlanTerms() {
    fLayout = ParameterLayout{};
    fTerms.clear();
    fSegments.clear();
    for (std::size_t b = 0; b < fSpec.fRandom.size(); ++b) {
        const RandomBlock& block = fSpec.fRandom[b];
        const EffectDesign design(block.fEffects, fSpec.fLevels);
        StructureShape shape;
        shape.fDimension = design.NumColumns();
        for (int e = 0; e < design.NumEffects(); ++e)
            shape.fEffectColumns.push_back(design.Columns(e));
        const std::shared_ptr<const Structure> reported = MakeStructure(block.fType, shape);
        if (!reported) return Refuse("A random block has a covariance type that does not exist.");
        const std::shared_ptr<const Structure> working = reported->Working();
        const int index = static_cast<int>(b);
        std::vector<int> segments;
        if (block.fGroup < 0) {
            segments.push_back(fLayout.Add(index, -1, block.fType, reported, working));
        } else {
            std::vector<char> present(fSpec.fLevels[block.fGroup], 0);
            for (std::size_t i = 0; i < fView.fCount; ++i)
                present[static_cast<int>(fView.Row(i)[block.fGroup])] = 1;
            for (std::size_t level = 0; level < present.size(); ++level)
                segments.push_back(
                    present[level] ? fLayout.Add(index, static_cast<int>(level), block.fType, reported, working) : -1);
        }
        fSegments.push_back(std::move(segments));
        PlanBlock(index, design.NumColumns());
    }
    StructureShape single;
    single.fFixedVariance = fSpec.fResidual.fUnitScale;
    const std::shared_ptr<const Structure> residual = MakeStructure(CovarianceType::kID, single);
    fLayout.Add(-1, -1, fSpec.fResidual.fType, residual, nullptr);
    return {0, Severity::kOk, {}};
}

void CrossedProblem::PlanBlock(int index, int columns) {
    const RandomBlock& block = fSpec.fRandom[index];
    const bool independent = block.fType == CovarianceType::kVC || block.fType == CovarianceType::kID;
    const bool divided = independent && columns > 1 && (columns > kUndividedColumns || block.fSubjects.empty());
    const int terms = divided ? static_cast<int>(block.fEffects.size()) : 1;
    for (int e = 0; e < terms; ++e) {
        CrossedTerm term;
        term.fBlock = index;
        term.fVariables = block.fSubjects;
        term.fDesign =
            divided ? EffectDesign({block.fEffects[e]}, fSpec.fLevels) : EffectDesign(block.fEffects, fSpec.fLevels);
        if (divided) {
            term.fEffect = e;
            term.fScalar = MakeStructure(CovarianceType::kID, StructureShape{});
        }
        double codes = divided ? term.fDesign.NumColumns() : 1.0;
        long step = divided ? term.fDesign.NumColumns() : 1;
        term.fRadix.resize(term.fVariables.size());
        for (std::size_t i = term.fVariables.size(); i-- > 0;) {
            term.fRadix[i] = step;
            step *= std::max(1, fSpec.fLevels[term.fVariables[i]]);
            codes *= std::max(1, fSpec.fLevels[term.fVariables[i]]);
        }
        if (codes <= static_cast<double>(kFewCodes)) term.fIndex.assign(static_cast<std::size_t>(codes), -1);
        fTerms.push_back(std::move(term));
    }
}

int CrossedProblem::SubjectOf(CrossedTerm& term, const double* record, std::size_t row, const ColumnHit* hits) {
    long key = term.IsDivided() ? hits[0].fColumn : 0;
    for (std::size_t i = 0; i < term.fVariables.size(); ++i)
        key += term.fRadix[i] * static_cast<long>(record[term.fVariables[i]]);
    const int known = term.Find(key);
    if (known >= 0) return known;
    const int subject = static_cast<int>(term.fFirstRecords.size());
    if (term.fIndex.empty())
        term.fSparseIndex[key] = subject;
    else
        term.fIndex[key] = subject;
    term.fFirstRecords.push_back(row);
    const int group = fSpec.fRandom[term.fBlock].fGroup;
    if (group >= 0) term.fGroups.push_back(static_cast<int>(record[group]));
    return subject;
}

FitStatus CrossedProblem::Gather() {
    std::vector<int> columns;
    std::size_t widest = 1, hitsNeeded = fBasis.Design().NumEffects();
    for (const CrossedTerm& term : fTerms) {
        columns.push_back(term.IsDivided() ? 1 : term.fDesign.NumColumns());
        widest = std::max<std::size_t>(widest, columns.back());
        hitsNeeded = std::max<std::size_t>(hitsNeeded, term.fDesign.NumEffects());
    }
    // The basis is centred already, and the target is what least squares leaves: nothing more is to be taken off.
    CrossedGather gather(columns, fBasis.Rank(), -1);
    std::vector<ColumnHit> hits(hitsNeeded);
    std::vector<double> fixed(fBasis.Rank());
    std::vector<int> subjects(fTerms.size());
    std::vector<std::vector<double>> random;
    std::vector<const double*> values;
    for (int q : columns)
        random.emplace_back(q, 0.0);
    for (const auto& row : random)
        values.push_back(row.data());
    for (std::size_t i = 0; i < fView.fCount; ++i) {
        const double* record = fView.Row(i);
        for (std::size_t t = 0; t < fTerms.size(); ++t) {
            CrossedTerm& term = fTerms[t];
            term.fDesign.PlainHits(record, hits.data());
            subjects[t] = SubjectOf(term, record, i, hits.data());
            if (term.IsDivided()) {
                random[t][0] = hits[0].fValue;
            } else {
                std::fill(random[t].begin(), random[t].end(), 0.0);
                for (int e = 0; e < term.fDesign.NumEffects(); ++e)
                    random[t][hits[e].fColumn] += hits[e].fValue;
            }
            const int group = fSpec.fRandom[term.fBlock].fGroup;
            if (group >= 0 && term.fGroups[subjects[t]] != static_cast<int>(record[group])) {
                return Refuse(
                    "The grouping variable of a random block differs within a subject: it must be constant there.");
            }
        }
        fBasis.Design().Hits(record, hits.data());
        std::fill(fixed.begin(), fixed.end(), 0.0);
        for (int e = 0; e < fBasis.Design().NumEffects(); ++e) {
            const int kept = fBasis.KeptIndex(hits[e].fColumn);
            if (kept >= 0) fixed[kept] = hits[e].fValue;
        }
        gather.Add({fBasis.Residual(record, i, hits.data()), fixed.data(), subjects.data(), values.data(),
                    fBasis.Weight(record, i), fBasis.Frequency(record)});
    }
    fStatistics = std::make_shared<const CrossedStatistics>(gather.Finish());
    return {0, Severity::kOk, {}};
}

std::vector<CrossedCovariance> CrossedProblem::Covariances(ThetaScale scale) const {
    std::vector<CrossedCovariance> out;
    for (const CrossedTerm& term : fTerms) {
        CrossedCovariance covariance;
        const bool variances = fSpec.fRandom[term.fBlock].fType == CovarianceType::kVC;
        std::vector<int> place(fSegments[term.fBlock].size(), 0);
        for (std::size_t level = 0; level < place.size(); ++level) {
            const int s = fSegments[term.fBlock][level];
            if (s < 0) continue;
            place[level] = static_cast<int>(covariance.fFirstParam.size());
            covariance.fStructure = term.IsDivided() ? term.fScalar.get() : &fLayout[s].On(scale);
            covariance.fFirstParam.push_back(fLayout[s].fOffset + (term.IsDivided() && variances ? term.fEffect : 0));
        }
        for (int level : term.fGroups)
            covariance.fGroup.push_back(place[level]);
        out.push_back(std::move(covariance));
    }
    return out;
}

Eigen::VectorXd CrossedProblem::EqualShares() const {
    const CrossedStatistics& stat = *fStatistics;
    const int p = stat.fFixed;
    const double weight = stat.fTotalFrequency;
    const double variance = stat.fCross(p, p) / std::max(1.0, weight - p);
    const double share = variance / static_cast<double>(fSpec.fRandom.size() + 1);
    Eigen::VectorXd theta(fLayout.NumParams());
    for (const Segment& segment : fLayout.Segments()) {
        StartHint hint;
        hint.fVariance = share;
        double square = 0.0;
        for (std::size_t t = 0; t < fTerms.size(); ++t) {
            if (fTerms[t].fBlock != segment.fBlock) continue;
            const std::size_t q = stat.fColumns[t];
            for (int j = 0; j < stat.fSubjects[t]; ++j)
                for (std::size_t a = 0; a < q; ++a)
                    square += stat.fOwn[t][j * q * q + a * q + a];
        }
        if (segment.fBlock >= 0) {
            const double effects = static_cast<double>(fSpec.fRandom[segment.fBlock].fEffects.size());
            if (square > 0.0) hint.fVariance = share * weight * effects / square;
        }
        theta.segment(segment.fOffset, segment.fCount) = segment.fReported->Start(hint);
    }
    return theta;
}

Eigen::VectorXd CrossedProblem::Start() const {
    const CrossedStatistics& stat = *fStatistics;
    Eigen::VectorXd theta = EqualShares();
    const int terms = stat.Terms(), p = stat.fFixed;
    for (int t = 0; t < terms; ++t)
        if (stat.fColumns[t] != 1 || !fTerms[t].fGroups.empty()) return theta;
    // E |Z_t'W r|^2 = sum_u theta_u |Z_t'W Z_u|^2 + s2 tr Z_t'W Z_t, E r'W r likewise.
    Eigen::MatrixXd expected = Eigen::MatrixXd::Zero(terms + 1, terms + 1);
    Eigen::VectorXd squares(terms + 1);
    const int gone = stat.fEliminated;
    auto termOf = [&](int rest) {
        int t = terms - 1;
        while (t == gone || stat.fRestOffset[t] > rest)
            --t;
        return t;
    };
    for (int t = 0; t < terms; ++t) {
        const int count = stat.fSubjects[t];
        squares[t] = stat.fRight.col(p).segment(stat.fOffset[t], count).squaredNorm();
        const auto own = Eigen::Map<const Eigen::VectorXd>(stat.fOwn[t].data(), count);
        expected(t, t) = own.squaredNorm();
        expected(t, terms) = expected(terms, t) = own.sum();
    }
    for (std::size_t i = 0; i < stat.fMet.size(); ++i) {
        const int t = termOf(stat.fMet[i]);
        const double square = stat.fMetValues[i] * stat.fMetValues[i];
        expected(t, gone) += square;
        expected(gone, t) += square;
    }
    for (const auto& entry : stat.fBetween) {
        const int t = termOf(entry.fRow), u = termOf(entry.fColumn);
        expected(t, u) += entry.fValue * entry.fValue;
        expected(u, t) += entry.fValue * entry.fValue;
    }
    squares[terms] = stat.fCross(p, p);
    expected(terms, terms) = stat.fTotalFrequency;
    const Eigen::VectorXd scale = expected.diagonal().cwiseSqrt().cwiseInverse();
    const Eigen::VectorXd solved = scale.cwiseProduct(
        (scale.asDiagonal() * expected * scale.asDiagonal()).colPivHouseholderQr().solve(scale.cwiseProduct(squares)));
    if (!solved.allFinite()) return theta;
    const std::vector<CrossedCovariance> covariances = Covariances(ThetaScale::kReported);
    constexpr double kLeast = 0.01;  // of the equal share
    for (int t = 0; t < terms; ++t) {
        const int k = covariances[t].fFirstParam[0];
        theta[k] = std::max(solved[t], kLeast * theta[k]);
    }
    const int last = fLayout.NumParams() - 1;
    theta[last] = std::max(solved[terms], 0.1 * theta[last]);
    return theta;
}

int CrossedProblem::Coefficient(int block, const std::vector<int>& codes, int column) const {
    for (std::size_t t = 0; t < fTerms.size(); ++t) {
        const CrossedTerm& term = fTerms[t];
        if (term.fBlock != block) continue;
        int within = column;
        if (term.IsDivided()) {
            const EffectDesign whole(fSpec.fRandom[block].fEffects, fSpec.fLevels);
            if (whole.EffectOf(column) != term.fEffect) continue;
            within = column - whole.Offset(term.fEffect);
        }
        long key = term.IsDivided() ? within : 0;
        for (std::size_t i = 0; i < term.fVariables.size(); ++i)
            key += term.fRadix[i] * codes[i];
        const int subject = term.Find(key);
        if (subject < 0) return -1;
        const int q = fStatistics->fColumns[t];
        return fStatistics->fOffset[t] + subject * q + (term.IsDivided() ? 0 : within);
    }
    return -1;
}

CrossedLikelihood::CrossedLikelihood(const CrossedProblem& problem, bool restricted, Workers* crew)
    : fProblem(problem),
      fEquations(problem.Statistics(), problem.Covariances(ThetaScale::kReported), problem.Layout().NumParams(),
                 restricted, crew) {}

CrossedEquations& CrossedLikelihood::At(const Eigen::VectorXd& theta, ThetaScale scale) const {
    Use(scale);
    fEquations.Evaluate(theta, CrossedOrder::kValue);
    return fEquations;
}

void CrossedLikelihood::Use(ThetaScale scale) const {
    fEquations.UseCovariances(fProblem.Covariances(scale));
}

Evaluation CrossedLikelihood::Translate(const CrossedValue& value) const {
    Evaluation at;
    at.fFeasible = value.fFeasible;
    if (!at.fFeasible) return at;
    at.fValue = value.fObjective;
    at.fBeta = fEquations.FixedEffects();
    at.fQuadratic = fEquations.Quadratic();
    const Eigen::MatrixXd covariance = fEquations.FixedCovariance();
    // Upper H with H H' = C, from the factor of the information.
    const Eigen::Index p = covariance.rows();
    const Eigen::LLT<Eigen::MatrixXd> information(fEquations.FixedInformation());
    at.fHalf = information.matrixU().solve(Eigen::MatrixXd::Identity(p, p));
    if (value.fGradient.size() == 0) return at;
    at.fGradient = value.fGradient;
    const Eigen::MatrixXd lower = information.matrixL();
    for (const Eigen::MatrixXd& slope : fEquations.FixedCovarianceDerivatives())
        at.fSlopes.push_back(lower.transpose() * slope * lower);
    at.fObserved = value.fHessian;
    at.fExpected = value.fExpected;
    return at;
}

Evaluation CrossedLikelihood::Value(const Eigen::VectorXd& theta, ThetaScale scale) const {
    Use(scale);
    return Translate(fEquations.Evaluate(theta, CrossedOrder::kValue));
}

Evaluation CrossedLikelihood::Derivatives(const Eigen::VectorXd& theta, ThetaScale scale) const {
    Use(scale);
    return Translate(fEquations.Evaluate(theta, CrossedOrder::kAverage));
}

Evaluation CrossedLikelihood::Final(const Eigen::VectorXd& theta, ThetaScale scale) const {
    Use(scale);
    return Translate(fEquations.HasExactHessian() ? fEquations.Evaluate(theta, CrossedOrder::kExact)
                                                  : fEquations.DifferencedHessian(theta));
}

Eigen::MatrixXd CrossedLikelihood::WeightedCurvature(const Eigen::VectorXd& theta, ThetaScale scale,
                                                     const Eigen::MatrixXd& weight) const {
    Use(scale);
    const Evaluation at = Translate(fEquations.Evaluate(theta, CrossedOrder::kValue));
    const CrossedEquations::Adjustment adjustment = fEquations.KenwardRoger();
    const Eigen::Index m = weight.rows(), p = at.fHalf.rows();
    Eigen::MatrixXd sum = Eigen::MatrixXd::Zero(p, p);
    for (Eigen::Index k = 0; k < m; ++k)
        for (Eigen::Index l = 0; l < m; ++l)
            sum += weight(k, l) * (adjustment.fQ[k * m + l] - 0.25 * adjustment.fR[k * m + l]);
    sum = at.fHalf.transpose() * sum * at.fHalf;
    return 0.5 * (sum + sum.transpose());
}

}  // namespace engine
