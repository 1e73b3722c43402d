#include "engine/glmm/Link.h"
#include "engine/glmm/TargetValues.h"
#include "engine/glmm/WorkingModel.h"

#include <algorithm>
#include <atomic>
#include <cmath>

namespace engine {

namespace {

constexpr double kLeast = 1e-10;    // probability that a category is given at least
constexpr double kNearEdge = 1e-6;  // below it the likelihood hardly depends on the predictor any more

ModelEffect Times(ModelEffect effect, int variable) {
    effect.fCovariates.push_back({variable, 1});
    return effect;
}

RandomBlock Times(RandomBlock block, int variable) {
    for (ModelEffect& effect : block.fEffects)
        effect = Times(std::move(effect), variable);
    return block;
}

/// A record of a target with K categories has K - 1 predictors and as many working rows, whose response is
/// eta + D^-1 (y - mu) with covariance matrix D^-1 var(y) D^-T, D = d mu / d eta' (Hartzel, Agresti and Caffo 2001,
/// section 3, with Wolfinger and O'Connell's linearisation). The rows are transformed by the inverse of the unit lower
/// triangular factor of that matrix, which makes them independent with the factor's diagonal as variances. Behind the
/// record's variables each row carries its coefficients of the predictors, and the effects' columns are multiplied with
/// them.
class MultinomialModel : public WorkingModel {
public:
    MultinomialModel(const ModelSpec& spec, const TargetSpec& target, const RecordView& view, int extra)
        : WorkingModel(spec, view),
          fOriginal(spec),
          fValues(target, spec),
          fCategories(target.fCategories),
          fRecordWidth(static_cast<int>(view.fStride)),
          fStride(view.fStride + target.fCategories - 1 + extra) {
        for (int c = 0; c < fCategories; ++c)
            fCategoryValues.push_back(target.ValueOfCategory(c));
        const int p = target.fCategories - 1;
        fRows.resize(view.fCount * p * fStride);
        for (std::size_t i = 0; i < view.fCount * p; ++i)
            std::copy_n(view.Row(i / p), view.fStride, fRows.data() + i * fStride);
        fView = {fRows.data(), view.fCount * p, fStride};
        fTarget.resize(fView.fCount);
        fWeight.resize(fView.fCount);
        fSpec.fLevels.resize(fStride, 0);
        fSpec.fIntercept = false;
        fSpec.fFixed.clear();
        fSpec.fOffset = -1;
        fSpec.fOffsetValue = 0.0;
    }

    int Predictors() const override { return fCategories - 1; }

    void Start(Eigen::VectorXd& eta) const override {
        std::vector<double> shares(fCategories, 0.5);
        for (std::size_t i = 0; i < Records(); ++i)
            shares[Code(i)] += 1.0;
        const Eigen::VectorXd same = Predictor(shares);
        const int p = Predictors();
        eta.resize(static_cast<Eigen::Index>(fView.fCount));
        for (std::size_t i = 0; i < Records(); ++i)
            eta.segment(static_cast<Eigen::Index>(i) * p, p) = same.array() + Offset(Record(i));
    }

    bool Linearise(const Eigen::VectorXd& eta, Workers& crew) override {
        std::atomic<bool> good = true;
        const int p = Predictors();
        ForRuns(crew, Records(), [&](std::size_t first, std::size_t end) {
            Scratch scratch(p);
            for (std::size_t i = first; i < end; ++i) {
                if (!Expand(i, eta.data() + i * p, scratch)) good = false;
            }
        });
        return good;
    }

    TargetPrediction Predict(const FitResult& fit, const double* record, bool whole) const override {
        const int p = Predictors();
        std::vector<MixedRow> rows;
        Eigen::VectorXd eta(p);
        for (int k = 0; k < p; ++k) {
            rows.push_back(Combination(fit, record, k, whole));
            eta[k] = fit.Contrast(rows.back()).fEstimate + Offset(record);
        }
        TargetPrediction prediction;
        prediction.fProbabilities = Probabilities(eta);
        const auto best = std::max_element(prediction.fProbabilities.begin(), prediction.fProbabilities.end());
        const int code = static_cast<int>(best - prediction.fProbabilities.begin());
        prediction.fValue = fCategoryValues[code];
        const Eigen::VectorXd slopes = Slopes(eta, code);
        MixedRow combined;
        combined.fFixed = Eigen::VectorXd::Zero(rows[0].fFixed.size());
        for (int k = 0; k < p; ++k) {
            combined.fFixed += slopes[k] * rows[k].fFixed;
            for (MixedRow::RandomTerm term : rows[k].fRandom) {
                term.fCoefficient *= slopes[k];
                if (term.fCoefficient != 0.0) combined.fRandom.push_back(std::move(term));
            }
        }
        const ContrastResult change = fit.Contrast(combined);
        prediction.fStdError = change.fStdError;
        prediction.fDf = change.fDf;
        return prediction;
    }

    double Probability(const Eigen::VectorXd& eta, int code, Eigen::VectorXd* slopes) const override {
        *slopes = Slopes(eta, code);
        return Probabilities(eta)[code];
    }

    double Residual(const double* record, const TargetPrediction& prediction) const override {
        return 1.0 - prediction.fProbabilities[static_cast<std::size_t>(record[fOriginal.fDependent])];
    }

    double Fitted(std::size_t, const double* eta) const override {
        const std::vector<double> shares = Probabilities(Eigen::Map<const Eigen::VectorXd>(eta, Predictors()));
        return static_cast<double>(std::max_element(shares.begin(), shares.end()) - shares.begin());
    }

protected:
    /// Probabilities of all categories by code, and the derivatives of one of them in the predictors.
    virtual std::vector<double> Probabilities(const Eigen::VectorXd& eta) const = 0;
    virtual Eigen::VectorXd Slopes(const Eigen::VectorXd& eta, int code) const = 0;

    /// One thread's room for a record: working residuals z - eta, and coefficients of the transformed rows.
    struct Scratch {
        explicit Scratch(int p) : fResidual(p), fCoefficients(p, p), fVariance(p), fShares(p + 1) {}
        Eigen::VectorXd fResidual;
        Eigen::MatrixXd fCoefficients;  ///< inverse of the unit lower triangular factor
        Eigen::VectorXd fVariance;      ///< of the transformed rows
        Eigen::VectorXd fShares;        ///< for the derived class's use
    };

    /// The record with coefficient 1 of predictor k alone, in scratch. The predictors come in order.
    double* TurnTo(int k, const double* record, std::vector<double>& scratch) const {
        if (k == 0) {
            scratch.assign(fStride, 0.0);
            std::copy_n(record, fRecordWidth, scratch.data());
        } else {
            scratch[fRecordWidth + k - 1] = 0.0;
        }
        scratch[fRecordWidth + k] = 1.0;
        return scratch.data();
    }

    const double* Record(std::size_t i) const { return fView.Row(i * Predictors()); }
    int Code(std::size_t i) const { return static_cast<int>(Record(i)[fOriginal.fDependent]); }

    /// Predictors of these numbers of records by category.
    virtual Eigen::VectorXd Predictor(const std::vector<double>& shares) const = 0;
    /// Fills scratch for a record of category code. False when there are no probabilities at eta.
    virtual bool Moments(int code, const double* eta, Scratch& scratch) const = 0;
    /// What the rows carry besides the predictors' coefficients.
    virtual void FinishRow(double* /*row*/) const {}

    const ModelSpec fOriginal;
    const TargetValues fValues;
    const int fCategories;
    const int fRecordWidth;  ///< variables of the model's records; the coefficients follow
    const std::size_t fStride;
    std::vector<double> fRows;
    std::vector<double> fCategoryValues;  ///< what a category is predicted as, by code

private:
    bool Expand(std::size_t i, const double* eta, Scratch& scratch) {
        const int p = Predictors();
        if (!Moments(Code(i), eta, scratch)) return false;
        const double offset = Offset(Record(i));
        const double weight = fValues.Weight(Record(i));
        bool good = true;
        for (int r = 0; r < p; ++r) {
            double* row = fRows.data() + (i * p + r) * fStride;
            double target = 0.0;
            for (int k = 0; k < p; ++k) {
                const double coefficient = k <= r ? scratch.fCoefficients(r, k) : 0.0;
                row[fRecordWidth + k] = coefficient;
                if (k <= r) target += coefficient * (eta[k] + scratch.fResidual[k] - offset);
            }
            FinishRow(row);
            fTarget[i * p + r] = target;
            fWeight[i * p + r] = weight / scratch.fVariance[r];
            good = good && std::isfinite(target) && std::isfinite(fWeight[i * p + r]) && fWeight[i * p + r] > 0.0;
        }
        return good;
    }
};

/// Counts that the linear model has of rows, as counts of records.
void CountRecords(FitResult& result, int rows) {
    result.fRecords /= rows;
    result.fMaxRecordsPerSubject /= rows;
    std::vector<std::size_t> records;
    for (std::size_t row : result.fFirstSubject) {
        if (row % rows == 0) records.push_back(row / rows);
    }
    result.fFirstSubject = std::move(records);
}

/// Generalized logits log(mu_k / mu_reference), each with fixed and random effects of its own.
class NominalModel : public MultinomialModel {
public:
    NominalModel(const ModelSpec& spec, const TargetSpec& target, const RecordView& view)
        : MultinomialModel(spec, target, view, 0),
          fReference(target.fReference < 0 ? target.fCategories - 1 : target.fReference) {
        for (int c = 0; c < fCategories; ++c) {
            if (c != fReference) fCodes.push_back(c);
        }
        fSpec.fRandom.clear();
        for (int k = 0; k < Predictors(); ++k) {
            for (const ModelEffect& effect : fOriginal.FixedEffects())
                fSpec.fFixed.push_back(Times(effect, fRecordWidth + k));
            for (const RandomBlock& block : fOriginal.fRandom)
                fSpec.fRandom.push_back(Times(block, fRecordWidth + k));
        }
    }

    const double* PredictorRow(const double* record, int k, std::vector<double>& scratch) const override {
        return TurnTo(k, record, scratch);
    }

    double Offset(const double* record) const override { return fValues.Offset(record); }

    Eigen::VectorXd PredictorOf(const Eigen::VectorXd& row, int k) const override {
        Eigen::VectorXd all = Eigen::VectorXd::Zero(row.size() * Predictors());
        all.segment(row.size() * k, row.size()) = row;
        return all;
    }
    int CategoryOf(int k) const override { return fCodes[k]; }

    std::vector<CategoryRow> CategoryRows(const MixedRow& row) const override {
        std::vector<CategoryRow> rows;
        for (int k = 0; k < Predictors(); ++k) {
            rows.push_back({fCodes[k], {PredictorOf(row.fFixed, k), row.fRandom}});
            for (MixedRow::RandomTerm& term : rows.back().fRow.fRandom)
                term.fBlock += k * static_cast<int>(fOriginal.fRandom.size());
        }
        return rows;
    }

    bool AtEdge(const Eigen::VectorXd& eta, std::size_t record) const override {
        Eigen::VectorXd shares(fCategories);
        Shares(eta.data() + record * Predictors(), shares);
        return shares.minCoeff() < kNearEdge;
    }

    int TargetOfBlock(int block) const override { return fCodes[block / static_cast<int>(fOriginal.fRandom.size())]; }

    void Translate(FitResult& result) const override {
        const int effects = static_cast<int>(fOriginal.FixedEffects().size());
        const int blocks = static_cast<int>(fOriginal.fRandom.size());
        for (FixedParameter& parameter : result.fFixed) {
            parameter.fTarget = fCodes[parameter.fEffect / effects];
            parameter.fEffect %= effects;
        }
        for (CovarianceParameter& parameter : result.fCovariance) {
            if (parameter.fBlock < 0) continue;
            parameter.fTarget = fCodes[parameter.fBlock / blocks];
            parameter.fBlock %= blocks;
        }
        result.fNumSubjects.resize(blocks);
        result.fNumColumns.resize(blocks);
        result.fRandomColumns.resize(blocks);
        CountRecords(result, Predictors());
        if (result.HasEstimates()) result.fTests = JoinTests(result, effects);
    }

protected:
    std::vector<double> Probabilities(const Eigen::VectorXd& eta) const override {
        Eigen::VectorXd shares(fCategories);
        Shares(eta.data(), shares);
        std::vector<double> byCode(fCategories);
        for (int k = 0; k < Predictors(); ++k)
            byCode[fCodes[k]] = shares[k];
        byCode[fReference] = shares[Predictors()];
        return byCode;
    }

    Eigen::VectorXd Slopes(const Eigen::VectorXd& eta, int code) const override {
        const std::vector<double> share = Probabilities(eta);
        Eigen::VectorXd slopes(Predictors());
        for (int k = 0; k < Predictors(); ++k)
            slopes[k] = share[code] * ((fCodes[k] == code ? 1.0 : 0.0) - share[fCodes[k]]);
        return slopes;
    }

    Eigen::VectorXd Predictor(const std::vector<double>& shares) const override {
        Eigen::VectorXd eta(Predictors());
        for (int k = 0; k < Predictors(); ++k)
            eta[k] = std::log(shares[fCodes[k]] / shares[fReference]);
        return eta;
    }

    bool Moments(int code, const double* eta, Scratch& scratch) const override {
        const int p = Predictors();
        Shares(eta, scratch.fShares);
        const Eigen::VectorXd& share = scratch.fShares;
        // D^-1 = diag(1/mu) + 11'/mu_reference, and D^-1 var(y) D^-T is the same.
        const double last = share[p];
        double sum = 0.0;
        for (int k = 0; k < p; ++k)
            sum += (fCodes[k] == code ? 1.0 : 0.0) - share[k];
        // Row r of the transformed response is row r less its regression on those before, whose mean weighs them by
        // mu: the covariance of z_r with z_k, k < r, is 1/mu_reference throughout.
        double before = 0.0;
        for (int r = 0; r < p; ++r) {
            scratch.fResidual[r] = ((fCodes[r] == code ? 1.0 : 0.0) - share[r]) / share[r] + sum / last;
            const double total = last + before;
            for (int k = 0; k < r; ++k)
                scratch.fCoefficients(r, k) = -share[k] / total;
            scratch.fCoefficients(r, r) = 1.0;
            scratch.fVariance[r] = 1.0 / share[r] + 1.0 / total;
            before += share[r];
        }
        return share.allFinite();
    }

private:
    // Probabilities of the categories of fCodes, the reference's last.
    void Shares(const double* eta, Eigen::VectorXd& shares) const {
        const int p = Predictors();
        double top = 0.0;
        for (int k = 0; k < p; ++k)
            top = std::max(top, eta[k]);
        for (int k = 0; k < p; ++k)
            shares[k] = std::exp(eta[k] - top);
        shares[p] = std::exp(-top);
        shares /= shares.sum();
        shares = shares.cwiseMax(kLeast);
    }

    // An effect has coefficients for each category: they are tested together.
    static std::vector<FTestResult> JoinTests(const FitResult& result, int effects) {
        std::vector<FTestResult> joint;
        for (int e = 0; e < effects; ++e) {
            Eigen::Index rows = 0;
            for (std::size_t t = e; t < result.fTests.size(); t += effects)
                rows += result.fTests[t].fL.rows();
            Eigen::MatrixXd all(rows, static_cast<Eigen::Index>(result.fFixed.size()));
            rows = 0;
            for (std::size_t t = e; t < result.fTests.size(); t += effects) {
                const Eigen::MatrixXd& part = result.fTests[t].fL;
                all.middleRows(rows, part.rows()) = part;
                rows += part.rows();
            }
            joint.push_back(rows > 0 ? result.Test(all) : result.fTests[e]);
            joint.back().fEffect = e;
        }
        return joint;
    }

    const int fReference;
    std::vector<int> fCodes;  ///< per predictor, the category
};

/// Cumulative links: P(y <= j) = F(threshold_j - eta), one eta for all thresholds (McCullagh 1980).
class OrdinalModel : public MultinomialModel {
public:
    OrdinalModel(const ModelSpec& spec, const TargetSpec& target, const RecordView& view)
        : MultinomialModel(spec, target, view, 1),
          fLink(MakeLink(target.fLink, target.fLinkPower)),
          fSlope(fRecordWidth + target.fCategories - 1),
          fLow(fLink->Predictor(kLeast)),
          fHigh(fLink->Predictor(1.0 - kLeast)) {
        for (int k = 0; k < Predictors(); ++k)
            fSpec.fFixed.push_back(Times(ModelEffect{}, fRecordWidth + k));
        for (const ModelEffect& effect : fOriginal.fFixed)
            fSpec.fFixed.push_back(Times(effect, fSlope));
        for (RandomBlock& block : fSpec.fRandom)
            block = Times(std::move(block), fSlope);
    }

    const double* PredictorRow(const double* record, int k, std::vector<double>& scratch) const override {
        double* row = TurnTo(k, record, scratch);
        row[fSlope] = -1.0;
        return row;
    }

    double Offset(const double* record) const override { return OffsetOf(fValues.Offset(record)); }
    double OffsetOf(double offset) const override { return -offset; }

    Eigen::VectorXd PredictorOf(const Eigen::VectorXd& row, int k) const override {
        const Eigen::Index effects = row.size() - (fOriginal.fIntercept ? 1 : 0);
        Eigen::VectorXd all = Eigen::VectorXd::Zero(Predictors() + effects);
        all[k] = 1.0;
        all.tail(effects) = -row.tail(effects);
        return all;
    }
    int CategoryOf(int k) const override { return k; }

    std::vector<CategoryRow> CategoryRows(const MixedRow& row) const override {
        const Eigen::Index first = fOriginal.fIntercept ? 1 : 0;
        const double threshold = fOriginal.fIntercept ? row.fFixed[0] : 0.0;
        MixedRow combined = row;
        combined.fFixed = Eigen::VectorXd::Zero(Predictors() + row.fFixed.size() - first);
        combined.fFixed.tail(row.fFixed.size() - first) = row.fFixed.tail(row.fFixed.size() - first);
        if (threshold == 0.0) return {{-1, std::move(combined)}};
        std::vector<CategoryRow> rows(Predictors(), {0, combined});
        for (int k = 0; k < Predictors(); ++k) {
            rows[k].fTarget = k;
            rows[k].fRow.fFixed[k] = threshold;
        }
        return rows;
    }

    bool AtEdge(const Eigen::VectorXd& eta, std::size_t record) const override {
        const int p = Predictors();
        for (int k = 0; k < p; ++k) {
            const double here = eta[static_cast<Eigen::Index>(record) * p + k];
            if (std::min(fLink->Mean(here), fLink->Complement(here)) < kNearEdge) return true;
        }
        return false;
    }

    void Translate(FitResult& result) const override {
        const int thresholds = Predictors();
        const int first = fOriginal.fIntercept ? 1 : 0;
        for (FixedParameter& parameter : result.fFixed) {
            parameter.fThreshold = parameter.fEffect < thresholds;
            parameter.fTarget = parameter.fThreshold ? parameter.fEffect : -1;
            parameter.fEffect = parameter.fThreshold ? first - 1 : parameter.fEffect - thresholds + first;
        }
        std::erase_if(result.fTests, [&](const FTestResult& test) { return test.fEffect < thresholds; });
        for (FTestResult& test : result.fTests)
            test.fEffect += first - thresholds;
        CountRecords(result, thresholds);
    }

protected:
    std::vector<double> Probabilities(const Eigen::VectorXd& eta) const override {
        std::vector<double> byCode(fCategories);
        double below = 0.0;
        for (int k = 0; k < Predictors(); ++k) {
            const double mean = fLink->Mean(eta[k]);
            byCode[k] = mean - below;
            below = mean;
        }
        byCode[Predictors()] = fLink->Complement(eta[Predictors() - 1]);
        return byCode;
    }

    Eigen::VectorXd Slopes(const Eigen::VectorXd& eta, int code) const override {
        Eigen::VectorXd slopes = Eigen::VectorXd::Zero(Predictors());
        if (code < Predictors()) slopes[code] = fLink->Slope(eta[code]);
        if (code > 0) slopes[code - 1] = -fLink->Slope(eta[code - 1]);
        return slopes;
    }

    Eigen::VectorXd Predictor(const std::vector<double>& shares) const override {
        double total = 0.0;
        for (double share : shares)
            total += share;
        Eigen::VectorXd eta(Predictors());
        double below = 0.0;
        for (int k = 0; k < Predictors(); ++k) {
            below += shares[k];
            eta[k] = fLink->Predictor(below / total);
        }
        return eta;
    }

    // The cumulative indicators are a chain: given the one before, an indicator doesn't depend on those further back,
    // so that each row is regressed on one other.
    bool Moments(int code, const double* eta, Scratch& scratch) const override {
        double below = 0.0, above = 1.0, slopeBefore = 1.0;
        scratch.fCoefficients.setZero();
        for (int j = 0; j < Predictors(); ++j) {
            if (j > 0 && !(eta[j] > eta[j - 1])) return false;
            const double at = std::clamp(eta[j], fLow, fHigh);
            const double mean = fLink->Mean(at);
            const double complement = fLink->Complement(at);
            const double slope = fLink->Slope(at);
            const double share = std::max(kLeast, mean < 0.5 ? mean - below : above - complement);
            scratch.fResidual[j] = (code <= j ? complement : -mean) / slope;
            if (j > 0) scratch.fCoefficients(j, j - 1) = -complement / above * slopeBefore / slope;
            scratch.fCoefficients(j, j) = 1.0;
            scratch.fVariance[j] = complement * share / above / (slope * slope);
            below = mean;
            above = complement;
            slopeBefore = slope;
        }
        return true;
    }

    void FinishRow(double* row) const override {
        double sum = 0.0;
        for (int k = 0; k < Predictors(); ++k)
            sum += row[fRecordWidth + k];
        row[fSlope] = -sum;
    }

private:
    const std::unique_ptr<Link> fLink;
    const int fSlope;  ///< column of the coefficient of eta
    const double fLow, fHigh;
};

}  // namespace

std::shared_ptr<WorkingModel> MakeMultinomialModel(const ModelSpec& spec, const TargetSpec& target,
                                                   const RecordView& view) {
    if (target.fDistribution == run::Distribution::kOrdinal) return std::make_shared<OrdinalModel>(spec, target, view);
    return std::make_shared<NominalModel>(spec, target, view);
}

}  // namespace engine
