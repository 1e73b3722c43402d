#include "engine/glmm/WorkingModel.h"

#include "engine/glmm/Family.h"
#include "engine/glmm/TargetValues.h"
#include "engine/lmm/ParameterLayout.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace engine {

namespace {

constexpr double kEdge = 1e-10;     // distance of a mean from its limit at which the expansion stays
constexpr double kNearEdge = 1e-6;  // and at which the likelihood hardly depends on it any more
constexpr double kNearZero = 1e-8;  // predictor's distance from a mean of 0, in that of the mean of all, that is none

/// A target with one mean.
class SingleMeanModel : public WorkingModel {
public:
    SingleMeanModel(ModelSpec spec, const TargetSpec& target, const RecordView& view, double dispersion)
        : WorkingModel(std::move(spec), view),
          fFamily(MakeFamily(target.fDistribution, dispersion)),
          fLink(MakeLink(target.fLink, target.fLinkPower)),
          fValues(target, fSpec) {
        fTarget.resize(view.fCount);
        fWeight.resize(view.fCount);
        for (std::size_t i = 0; i < fView.fCount; ++i)
            fOverall += fValues.Value(fView.Row(i)) / static_cast<double>(fView.fCount);
        if (fFamily->IsBounded()) {
            const double low = fLink->Predictor(kEdge);
            const double high = fLink->Predictor(1.0 - kEdge);
            fLow = std::min(low, high);
            fHigh = std::max(low, high);
        } else if (!fFamily->InRange(0.0)) {
            fLeast = kNearZero * fOverall / std::abs(fLink->Slope(fLink->Predictor(fOverall)));
        }
    }

    void Start(Eigen::VectorXd& eta) const override {
        eta.resize(static_cast<Eigen::Index>(fView.fCount));
        for (std::size_t i = 0; i < fView.fCount; ++i) {
            const double* record = fView.Row(i);
            const double mean = fFamily->StartMean(fValues.Value(record), fValues.Trials(record), fOverall);
            const double start = fLink->Predictor(mean);
            // A normal target may have values below 0 under a link whose means are above.
            eta[static_cast<Eigen::Index>(i)] = std::isfinite(start) ? start : fLink->Predictor(fOverall);
        }
    }

    bool Linearise(const Eigen::VectorXd& eta, Workers& crew) override {
        std::atomic<bool> good = true;
        ForRuns(crew, fView.fCount, [&](std::size_t first, std::size_t end) {
            for (std::size_t i = first; i < end; ++i) {
                if (!Expand(i, eta[static_cast<Eigen::Index>(i)])) good = false;
            }
        });
        return good;
    }

    const double* PredictorRow(const double* record, int, std::vector<double>&) const override { return record; }

    double Offset(const double* record) const override { return fValues.Offset(record); }

    bool AtEdge(const Eigen::VectorXd& eta, std::size_t record) const override {
        const double here = eta[static_cast<Eigen::Index>(record)];
        return fFamily->IsBounded() && std::min(fLink->Mean(here), fLink->Complement(here)) < kNearEdge;
    }

    TargetPrediction Predict(const FitResult& fit, const double* record, bool whole) const override {
        const ContrastResult linear = fit.Contrast(Combination(fit, record, 0, whole));
        const double eta = linear.fEstimate + fValues.Offset(record);
        TargetPrediction prediction;
        if (!fLink->Admits(eta)) return prediction;
        const double size = fValues.Size(record);
        prediction.fValue = size * fLink->Mean(eta);
        prediction.fStdError = size * std::abs(fLink->Slope(eta)) * linear.fStdError;
        prediction.fDf = linear.fDf;
        if (fValues.IsBinary()) {
            const int event = 1 - fValues.Reference();
            prediction.fProbabilities.resize(2);
            prediction.fProbabilities[event] = fLink->Mean(eta);
            prediction.fProbabilities[1 - event] = fLink->Complement(eta);
        }
        return prediction;
    }

    double Residual(const double* record, const TargetPrediction& prediction) const override {
        return fValues.Size(record) * fValues.Value(record) - prediction.fValue;
    }

    double Fitted(std::size_t record, const double* eta) const override {
        const double mean = fLink->Mean(*eta);
        if (fValues.IsBinary()) return fValues.Reference() == 0 ? mean : 1.0 - mean;
        return fValues.Size(fView.Row(record)) * mean;
    }

    void Translate(FitResult&) const override {}

protected:
    virtual bool Expand(std::size_t i, double eta) {
        const double* record = fView.Row(i);
        if (!fLink->Admits(eta)) return false;
        eta = std::clamp(eta, fLow, fHigh);
        const double mu = fLink->Mean(eta);
        const double slope = fLink->Slope(eta);
        if (mu < fLeast * std::abs(slope)) return false;
        const double variance = fFamily->Variance(*fLink, eta);
        const double weight = fValues.Weight(record) * fValues.Trials(record) * slope * slope / variance;
        fTarget[i] = eta - fValues.Offset(record) + (fValues.Value(record) - mu) / slope;
        fWeight[i] = weight;
        return fFamily->InRange(mu) && std::isfinite(fTarget[i]) && std::isfinite(weight) && weight > 0.0;
    }

    const std::unique_ptr<Family> fFamily;
    const std::unique_ptr<Link> fLink;
    const TargetValues fValues;
    double fOverall = 0.0;  ///< mean of the values
    /// Distance of a predictor from one whose mean is 0, mu / mu', that counts as out of range: where there is such a
    /// predictor at all, working weights grow without bound on the way to it. 0 for limits of other kinds.
    double fLeast = 0.0;
    double fLow = -std::numeric_limits<double>::infinity();
    double fHigh = std::numeric_limits<double>::infinity();
};

/// The rows of a view, records of frequency f f times, with room for further columns.
class WidenedRows {
public:
    WidenedRows(const ModelSpec& spec, const RecordView& view, int columns) : fStride(view.fStride + columns) {
        for (std::size_t i = 0; i < view.fCount; ++i) {
            const double* row = view.Row(i);
            const long times = spec.fFrequencyWeight < 0 ? 1 : std::lround(row[spec.fFrequencyWeight]);
            for (long t = 0; t < times; ++t) {
                fRows.insert(fRows.end(), row, row + view.fStride);
                fRows.resize(fRows.size() + columns, 0.0);
            }
        }
    }
    RecordView Widened() const { return {fRows.data(), fRows.size() / fStride, fStride}; }

protected:
    std::size_t fStride;
    std::vector<double> fRows;
};

/// Calls the parameter of a block of the working model's the dispersion.
void NameDispersion(FitResult& result, int block) {
    for (CovarianceParameter& parameter : result.fCovariance) {
        if (parameter.fBlock != block) continue;
        parameter.fBlock = -1;
        parameter.fType = CovarianceType::kID;
        parameter.fName = "Dispersion";
    }
}

/// var(y) = mu + k mu^2 with k estimated: the variance of a Poisson target times 1 + k mu.
class DispersedModel : public SingleMeanModel {
public:
    DispersedModel(const ModelSpec& spec, const TargetSpec& target, const RecordView& view)
        : SingleMeanModel(Dispersed(spec), target, view, 0.0) {
        fSpread.resize(view.fCount);
    }

    void Translate(FitResult& result) const override { NameDispersion(result, kDispersionBlock); }

protected:
    bool Expand(std::size_t i, double eta) override {
        if (!SingleMeanModel::Expand(i, eta)) return false;
        fSpread[i] = fFamily->DispersedVariance(fLink->Mean(eta)) / fFamily->Variance(*fLink, eta);
        return true;
    }

private:
    static ModelSpec Dispersed(ModelSpec spec) {
        spec.fResidual.fDispersed = true;
        return spec;
    }
};

/// The same for crossed random effects: the working variance 1/w + k mu/w is that of a Poisson target with one more
/// random effect for each record, of variance k and coefficient sqrt(mu/w), which is no part of the predictor.
class CrossedDispersedModel : private WidenedRows, public SingleMeanModel {
public:
    CrossedDispersedModel(const ModelSpec& spec, const TargetSpec& target, const RecordView& view)
        : WidenedRows(spec, view, 2),
          SingleMeanModel(WithRecordEffect(spec, view.fStride, Widened().fCount), target, Widened(), 0.0) {
        for (std::size_t i = 0; i < SingleMeanModel::fView.fCount; ++i)
            fRows[i * fStride + fStride - 2] = static_cast<double>(i);
    }

    int RandomBlocks() const override { return SingleMeanModel::RandomBlocks() - 1; }

    const double* ForeignRow(const double* record, int, std::vector<double>& scratch) const override {
        scratch.assign(fStride, 0.0);
        std::copy_n(record, fStride - 2, scratch.data());
        return scratch.data();
    }

    void Translate(FitResult& result) const override {
        NameDispersion(result, RandomBlocks());
        result.fNumSubjects.pop_back();
        result.fNumColumns.pop_back();
        result.fRandomColumns.pop_back();
    }

protected:
    bool Expand(std::size_t i, double eta) override {
        if (!SingleMeanModel::Expand(i, eta)) return false;
        const double spread = fFamily->DispersedVariance(fLink->Mean(eta)) / fFamily->Variance(*fLink, eta);
        fRows[i * fStride + fStride - 1] = std::sqrt(spread / fWeight[i]);
        return true;
    }

private:
    static ModelSpec WithRecordEffect(ModelSpec spec, std::size_t stride, std::size_t records) {
        const int number = static_cast<int>(stride);
        spec.fLevels.resize(stride + 2, 0);
        spec.fLevels[number] = static_cast<int>(records);
        spec.fFrequencyWeight = -1;
        RandomBlock block;
        ModelEffect ratio;
        ratio.fCovariates.push_back({number + 1, 1});
        block.fEffects.push_back(ratio);
        block.fSubjects = {number};
        spec.fRandom.push_back(block);
        return spec;
    }
};

}  // namespace

MixedRow WorkingModel::Combination(const FitResult& fit, const double* record, int k, bool whole) const {
    std::vector<double> scratch;
    for (int before = 0; before < k; ++before)
        ForeignRow(record, before, scratch);
    const double* row = ForeignRow(record, k, scratch);
    if (!whole) return {fit.FixedRow(row), {}};
    MixedRow combination = fit.RecordRow(row);
    std::erase_if(combination.fRandom, [&](const MixedRow::RandomTerm& term) { return term.fBlock >= RandomBlocks(); });
    return combination;
}

bool HasResidualStructure(const ModelSpec& spec) {
    const ResidualBlock& residual = spec.fResidual;
    return residual.IsRepeated() || !residual.fSubjects.empty() || residual.fGroup >= 0;
}

bool HoldsScale(const ModelSpec& spec, const TargetSpec& target) {
    const std::unique_ptr<Family> family = MakeFamily(target.fDistribution);
    return (!family || family->HasUnitScale()) && !HasResidualStructure(spec);
}

std::shared_ptr<WorkingModel> MakeWorkingModel(const ModelSpec& spec, const TargetSpec& target,
                                               const RecordView& view) {
    const std::unique_ptr<Family> family = MakeFamily(target.fDistribution);
    ModelSpec scaled = spec;
    scaled.fResidual.fUnitScale = HoldsScale(spec, target);
    if (!family) return MakeMultinomialModel(scaled, target, view);
    const bool dispersed = target.fDistribution == run::Distribution::kNegativeBinomial && !target.fDispersion;
    const bool crossed = !spec.fRandom.empty() && CommonSubject(spec).empty();
    if (dispersed && crossed) return std::make_shared<CrossedDispersedModel>(scaled, target, view);
    if (dispersed) return std::make_shared<DispersedModel>(scaled, target, view);
    return std::make_shared<SingleMeanModel>(scaled, target, view, target.fDispersion.value_or(0.0));
}

}  // namespace engine
