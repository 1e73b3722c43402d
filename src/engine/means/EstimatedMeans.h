#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/means/MeanRows.h"
#include "engine/means/PAdjustment.h"
#include "engine/means/ResponseScale.h"
#include "run/RunValue.h"

#include <utility>
#include <vector>

namespace engine {

/// What one request asks for, in record indices and category codes.
struct MeansRequest {
    std::vector<int> fFactors;  ///< record variables; none: the grand mean
    int fCompare = -1;          ///< position of the compared factor in fFactors, -1 none
    run::ContrastKind fContrast = run::ContrastKind::kNoContrast;
    int fReference = -1;                         ///< level of a simple contrast's reference, -1: the last one
    bool fReferenceAbsent = false;               ///< a reference level was named that the split doesn't have
    std::vector<std::pair<int, double>> fGiven;  ///< covariates held at values; the others are at their means
    PAdjustment fAdjustment = PAdjustment::kLeastDifference;
    bool fLinkScale = false;  ///< means and contrasts of the linear predictor
};

struct EstimatedMean {
    std::vector<int> fLevels;  ///< one a factor of the request
    ContrastResult fResult;    ///< t and p are missing on the target's scale
};

struct MeansContrast {
    std::vector<int> fAt;    ///< levels of the factors that are not compared
    int fFirst = -1;         ///< level whose mean comes first
    int fSecond = -1;        ///< level whose mean is taken off; -1: the mean of all levels
    ContrastResult fResult;  ///< limits as the adjustment has them
    double fAdjustedP = kMissing;
};

/// The compared factor's means are all equal, at levels of the other factors.
struct OverallTest {
    std::vector<int> fAt;
    FTestResult fTest;
};

struct EstimatedMeans {
    MeansRequest fRequest;
    std::vector<std::pair<int, double>> fHeldAt;  ///< all covariates of the fixed effects, ascending
    std::vector<EstimatedMean> fMeans;
    std::vector<MeansContrast> fContrasts;
    std::vector<OverallTest> fOverall;

    bool fOneLevel = false;  ///< contrasts are asked for, and the compared factor has at most one level

    bool WantsContrasts() const {
        return fRequest.fCompare >= 0 && fRequest.fContrast != run::ContrastKind::kNoContrast;
    }
    bool AllEstimable() const;
};

/// Estimated marginal means of a fitted model. What it refers to must outlive it.
///
/// Means are estimated on the scale of the link. On the target's scale a mean is the inverse link of it, its limits are
/// those of the link's scale transformed, and its standard error is the slope of the inverse link times that of the
/// link's scale. A contrast is a difference of means on the scale of the request; on the target's scale its standard
/// error and degrees of freedom are those of the linearised difference (the delta method). The mean of a category of a
/// multinomial target is its probability, whose limits are those of its logit transformed.
class MeansEstimator {
public:
    MeansEstimator(const FitResult& fit, const ModelSpec& spec, const RecordMeans& records, ResponseScale scale)
        : fFit(fit), fSpec(spec), fRecords(records), fScale(std::move(scale)) {}

    EstimatedMeans Estimate(const MeansRequest& request) const;
    /// Mean over all factors, on the target's scale.
    ContrastResult GrandMean() const;
    /// Means of the effects that a chart can show and that are significant at the model's level: one or two factors, no
    /// covariates, at most kMostTopCells cells. The smallest p comes first; at most kMostTopEffects of them.
    std::vector<EstimatedMeans> TopEffects() const;

    static constexpr std::size_t kMostTopEffects = 10;
    static constexpr int kMostTopCells = 100;

private:
    struct Cell {
        ContrastResult fResult;     // on the scale of the request
        Eigen::VectorXd fGradient;  // of the mean, over the fixed parameters
    };

    std::vector<double> Covariates(const MeansRequest& request) const;
    Cell MeanOf(Eigen::VectorXd row, bool linkScale) const;
    Cell PredictorMean(Eigen::VectorXd row, double offset) const;
    Cell ProbabilityOf(const Eigen::VectorXd& row) const;
    void Compare(const std::vector<Cell>& cells, EstimatedMeans& answer) const;
    ContrastResult Difference(const std::vector<const Cell*>& cells, const Eigen::VectorXd& weights) const;
    FTestResult AllEqual(const std::vector<const Cell*>& cells) const;

    const FitResult& fFit;
    const ModelSpec& fSpec;
    const RecordMeans& fRecords;
    ResponseScale fScale;
};

}  // namespace engine
