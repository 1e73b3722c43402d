#include "engine/means/EstimatedMeans.h"

#include "engine/lmm/Distributions.h"

#include <algorithm>
#include <cmath>
#include <set>

namespace engine {

namespace {

/// Pairs of a level and what its mean is compared with; -1 stands for the mean of all levels.
std::vector<std::pair<int, int>> ContrastPairs(const MeansRequest& request, int levels) {
    std::vector<std::pair<int, int>> pairs;
    const int reference = request.fReference < 0 ? levels - 1 : request.fReference;
    for (int first = 0; first < levels; ++first) {
        if (request.fContrast == run::ContrastKind::kDeviation) pairs.emplace_back(first, -1);
        if (request.fContrast == run::ContrastKind::kSimple && first != reference) pairs.emplace_back(first, reference);
        if (request.fContrast != run::ContrastKind::kPairwise) continue;
        for (int second = first + 1; second < levels; ++second)
            pairs.emplace_back(first, second);
    }
    return pairs;
}

Eigen::VectorXd PairWeights(const std::pair<int, int>& pair, int levels) {
    Eigen::VectorXd weights = Eigen::VectorXd::Zero(levels);
    if (pair.second < 0) {
        weights.setConstant(-1.0 / levels);
    } else {
        weights[pair.second] = -1.0;
    }
    weights[pair.first] += 1.0;
    return weights;
}

void SetTest(ContrastResult& result, double confidence) {
    result.fT = result.fEstimate / result.fStdError;
    result.fP = TwoSidedT(result.fT, result.fDf);
    const double margin = UpperT(result.fDf, confidence) * result.fStdError;
    result.fLower = result.fEstimate - margin;
    result.fUpper = result.fEstimate + margin;
}

int CountCells(const ModelSpec& spec, const std::vector<int>& factors) {
    int cells = 1;
    for (int factor : factors)
        cells *= spec.fLevels[factor];
    return cells;
}

}  // namespace

bool EstimatedMeans::AllEstimable() const {
    return std::all_of(fMeans.begin(), fMeans.end(), [](const auto& mean) { return mean.fResult.fEstimable; });
}

std::vector<double> MeansEstimator::Covariates(const MeansRequest& request) const {
    std::vector<double> values = fRecords.fVariables;
    for (const auto& [variable, value] : request.fGiven)
        values[variable] = value;
    return values;
}

MeansEstimator::Cell MeansEstimator::PredictorMean(Eigen::VectorXd row, double offset) const {
    Cell cell{fFit.Contrast(row), std::move(row)};
    ContrastResult& result = cell.fResult;
    result.fT = result.fP = kMissing;
    if (!result.fEstimable) return cell;
    result.fEstimate += offset;
    result.fLower += offset;
    result.fUpper += offset;
    return cell;
}

MeansEstimator::Cell MeansEstimator::ProbabilityOf(const Eigen::VectorXd& row) const {
    const WorkingModel& model = *fScale.fpMultinomial;
    const int predictors = model.Predictors();
    Eigen::VectorXd eta(predictors), slopes;
    bool estimable = true;
    for (int k = 0; k < predictors; ++k) {
        const ContrastResult predictor = fFit.Contrast(model.PredictorOf(row, k));
        eta[k] = predictor.fEstimate + model.OffsetOf(fRecords.fOffset);
        estimable = estimable && predictor.fEstimable;
    }
    Cell cell;
    cell.fGradient = Eigen::VectorXd::Zero(static_cast<Eigen::Index>(fFit.fFixed.size()));
    cell.fResult.fEstimable = estimable;
    if (!estimable) return cell;
    const double share = model.Probability(eta, fScale.fCategory, &slopes);
    for (int k = 0; k < predictors; ++k)
        cell.fGradient += slopes[k] * model.PredictorOf(row, k);
    ContrastResult& result = cell.fResult;
    result = fFit.Contrast(cell.fGradient);
    result.fT = result.fP = kMissing;
    result.fEstimate = share;
    const double margin = UpperT(result.fDf, fSpec.fConfidence) * result.fStdError / (share * (1.0 - share));
    const auto shifted = [&](double shift) { return 1.0 / (1.0 + (1.0 - share) / share * std::exp(-shift)); };
    result.fLower = shifted(-margin);
    result.fUpper = shifted(margin);
    return cell;
}

MeansEstimator::Cell MeansEstimator::MeanOf(Eigen::VectorXd row, bool linkScale) const {
    if (const WorkingModel* model = fScale.fpMultinomial) {
        if (!linkScale) return ProbabilityOf(row);
        return PredictorMean(model->PredictorOf(row, fScale.fPredictor), model->OffsetOf(fRecords.fOffset));
    }
    Cell cell = PredictorMean(std::move(row), fRecords.fOffset);
    ContrastResult& result = cell.fResult;
    if (!result.fEstimable || linkScale || fScale.IsIdentity()) return cell;
    const double slope = fScale.fSlope(result.fEstimate);
    cell.fGradient *= slope;
    result.fStdError *= std::abs(slope);
    result.fEstimate = fScale.fMean(result.fEstimate);
    const double atLower = fScale.fMean(result.fLower);
    const double atUpper = fScale.fMean(result.fUpper);
    result.fLower = slope < 0.0 ? atUpper : atLower;
    result.fUpper = slope < 0.0 ? atLower : atUpper;
    return cell;
}

ContrastResult MeansEstimator::Difference(const std::vector<const Cell*>& cells, const Eigen::VectorXd& weights) const {
    Eigen::VectorXd gradient = Eigen::VectorXd::Zero(cells.front()->fGradient.size());
    double estimate = 0.0;
    bool estimable = true;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const double weight = weights[static_cast<Eigen::Index>(i)];
        if (weight == 0.0) continue;
        gradient += weight * cells[i]->fGradient;
        estimate += weight * cells[i]->fResult.fEstimate;
        estimable = estimable && cells[i]->fResult.fEstimable;
    }
    // A linear difference may be estimable where its means are not.
    ContrastResult result = fFit.Contrast(gradient);
    if (!result.fEstimable || !estimable) return result;
    result.fEstimate = estimate;
    SetTest(result, fSpec.fConfidence);
    return result;
}

FTestResult MeansEstimator::AllEqual(const std::vector<const Cell*>& cells) const {
    std::vector<Eigen::VectorXd> rows;
    std::vector<double> excess;  // what the linear form has more than the difference of the means
    const auto add = [&](std::size_t first, std::size_t second) {
        const Eigen::VectorXd row = cells[first]->fGradient - cells[second]->fGradient;
        if (!fFit.IsEstimable(row)) return;
        rows.push_back(row);
        double linear = 0.0;
        for (Eigen::Index k = 0; k < row.size(); ++k)
            linear += row[k] * fFit.fFixed[static_cast<std::size_t>(k)].fEstimate;
        const double difference = cells[first]->fResult.fEstimate - cells[second]->fResult.fEstimate;
        excess.push_back(std::isnan(difference) ? 0.0 : linear - difference);
    };
    for (std::size_t i = 0; i + 1 < cells.size(); ++i)
        add(i, cells.size() - 1);
    if (rows.size() + 1 < cells.size()) {
        rows.clear();
        excess.clear();
        for (std::size_t i = 0; i < cells.size(); ++i) {
            for (std::size_t j = i + 1; j < cells.size(); ++j)
                add(i, j);
        }
    }
    Eigen::MatrixXd matrix(rows.size(), cells.front()->fGradient.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        matrix.row(static_cast<Eigen::Index>(i)) = rows[i].transpose();
    return fFit.Test(matrix,
                     Eigen::Map<const Eigen::VectorXd>(excess.data(), static_cast<Eigen::Index>(excess.size())));
}

void MeansEstimator::Compare(const std::vector<Cell>& cells, EstimatedMeans& answer) const {
    const MeansRequest& request = answer.fRequest;
    const int compared = request.fFactors[request.fCompare];
    const int levels = fSpec.fLevels[compared];
    answer.fOneLevel = levels <= 1;
    if (answer.fOneLevel || request.fReferenceAbsent) return;
    std::vector<int> others = request.fFactors;
    others.erase(others.begin() + request.fCompare);
    const std::vector<int> behind(request.fFactors.begin() + request.fCompare + 1, request.fFactors.end());
    const int stride = CountCells(fSpec, behind);  // between cells that differ in the compared factor's level alone
    const std::vector<std::pair<int, int>> pairs = ContrastPairs(request, levels);
    const std::vector<std::vector<int>> places = LevelCombinations(fSpec, others);
    for (std::size_t place = 0; place < places.size(); ++place) {
        const std::size_t inner = static_cast<std::size_t>(stride);
        const std::size_t base = place / inner * inner * static_cast<std::size_t>(levels) + place % inner;
        std::vector<const Cell*> family;
        for (int level = 0; level < levels; ++level)
            family.push_back(&cells[base + static_cast<std::size_t>(level) * inner]);
        std::vector<double> p;
        const std::size_t start = answer.fContrasts.size();
        for (const auto& pair : pairs) {
            const ContrastResult result = Difference(family, PairWeights(pair, levels));
            p.push_back(result.fP);
            answer.fContrasts.push_back({places[place], pair.first, pair.second, result, kMissing});
        }
        const AdjustedFamily adjusted = Adjust(p, request.fAdjustment, fSpec.fConfidence);
        for (std::size_t i = 0; i < p.size(); ++i) {
            MeansContrast& contrast = answer.fContrasts[start + i];
            contrast.fAdjustedP = adjusted.fP[i];
            if (!std::isnan(p[i])) SetTest(contrast.fResult, adjusted.fConfidence[i]);
        }
        answer.fOverall.push_back({places[place], AllEqual(family)});
    }
}

EstimatedMeans MeansEstimator::Estimate(const MeansRequest& request) const {
    EstimatedMeans answer;
    answer.fRequest = request;
    const std::vector<double> values = Covariates(request);
    std::set<int> covariates;
    for (const ModelEffect& effect : fSpec.fFixed) {
        for (const EffectCovariate& covariate : effect.fCovariates)
            covariates.insert(covariate.fVariable);
    }
    for (int covariate : covariates)
        answer.fHeldAt.emplace_back(covariate, values[covariate]);
    const MeanRows rows(fSpec, values);
    std::vector<Cell> cells;  // gradients are kept for contrasts alone
    for (std::vector<int>& levels : LevelCombinations(fSpec, request.fFactors)) {
        Cell cell = MeanOf(rows.Row(request.fFactors, levels), request.fLinkScale);
        answer.fMeans.push_back({std::move(levels), cell.fResult});
        if (answer.WantsContrasts()) cells.push_back(std::move(cell));
    }
    if (answer.WantsContrasts()) Compare(cells, answer);
    return answer;
}

ContrastResult MeansEstimator::GrandMean() const {
    return MeanOf(MeanRows(fSpec, fRecords.fVariables).Row({}, {}), false).fResult;
}

std::vector<EstimatedMeans> MeansEstimator::TopEffects() const {
    const std::vector<ModelEffect> effects = fSpec.FixedEffects();
    std::vector<const FTestResult*> tests;
    for (const FTestResult& test : fFit.fTests) {
        const ModelEffect& effect = effects[test.fEffect];
        const bool shown = effect.fCovariates.empty() && (effect.fFactors.size() == 1 || effect.fFactors.size() == 2);
        if (shown && test.fP < 1.0 - fSpec.fConfidence && CountCells(fSpec, effect.fFactors) <= kMostTopCells)
            tests.push_back(&test);
    }
    std::stable_sort(tests.begin(), tests.end(), [](const auto* a, const auto* b) { return a->fP < b->fP; });
    std::vector<EstimatedMeans> top;
    for (std::size_t i = 0; i < std::min(tests.size(), kMostTopEffects); ++i) {
        MeansRequest request;
        request.fFactors = effects[tests[i]->fEffect].fFactors;
        top.push_back(Estimate(request));
    }
    return top;
}

}  // namespace engine
