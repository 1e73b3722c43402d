#pragma once

#include "engine/glmm/TargetSpec.h"
#include "engine/lmm/FitResult.h"
#include "engine/lmm/FixedBasis.h"
#include "engine/model/Matrices.h"
#include "engine/model/ModelSpec.h"
#include "engine/model/Workers.h"

#include <memory>
#include <vector>

namespace engine {

/// A prediction on the scale of the target: the mean, and for a multinomial target the most probable category.
struct TargetPrediction {
    double fValue = kMissing;
    double fStdError = kMissing;  ///< by the delta method; of the category's probability for a multinomial target
    double fDf = kMissing;
    std::vector<double> fProbabilities;  ///< by category code; empty for targets without categories
};

/// A generalized model as a sequence of linear ones: about given linear predictors the target is expanded to first
/// order, which gives a working response and its conditional variance (Wolfinger and O'Connell 1993, equations 5 to 8).
///
/// Each record has Predictors() linear predictors: one, or one less than the categories of a multinomial target. Its
/// working rows are as many; where they are correlated they have been transformed to be independent, so that the linear
/// model's residual is a scaled identity. Predictors include the offset.
class WorkingModel {
public:
    virtual ~WorkingModel() = default;

    /// The linear model of the working rows. Its first RandomBlocks() random blocks belong to the predictors.
    const ModelSpec& Spec() const { return fSpec; }
    const RecordView& View() const { return fView; }
    WorkingData Data() const { return {fTarget.data(), fWeight.data(), fSpread.empty() ? nullptr : fSpread.data()}; }
    std::size_t Records() const { return fView.fCount / Predictors(); }

    virtual int Predictors() const { return 1; }
    virtual int RandomBlocks() const { return static_cast<int>(fSpec.fRandom.size()); }

    /// Predictors from which iteration may start, by record. Taken from the data.
    virtual void Start(Eigen::VectorXd& eta) const = 0;
    /// Expands about eta. False, with the working rows undefined, when a mean is out of range there.
    virtual bool Linearise(const Eigen::VectorXd& eta, Workers& crew) = 0;
    /// A row whose fixed and random columns make predictor k of a record of the model's data, less the offset. It is
    /// the record itself or stands in scratch, which for k > 0 is as the call for k - 1 left it.
    virtual const double* PredictorRow(const double* record, int k, std::vector<double>& scratch) const = 0;
    /// What is added to that row's combination.
    virtual double Offset(const double* record) const = 0;

    /// Coefficients over the fit's fixed parameters that make predictor k of a row of coefficients over the columns of
    /// the model's own fixed effects, whose intercept has the coefficient 1; and what an offset adds to it.
    virtual Eigen::VectorXd PredictorOf(const Eigen::VectorXd& row, int /*k*/) const { return row; }
    virtual double OffsetOf(double offset) const { return offset; }
    /// Combinations of the fit's parameters that a row of coefficients over the model's own columns and random effects
    /// stands for, and the category that each belongs to, or -1. A nominal target has one for each category but the
    /// reference, an ordinal one whose row has the intercept one for each threshold in the intercept's place.
    struct CategoryRow {
        int fTarget = -1;
        MixedRow fRow;
    };
    virtual std::vector<CategoryRow> CategoryRows(const MixedRow& row) const { return {{-1, row}}; }
    /// A multinomial target's: the category that predictor k is named after; and the probability of a category given
    /// the predictors, with its derivatives in them.
    virtual int CategoryOf(int /*k*/) const { return -1; }
    virtual double Probability(const Eigen::VectorXd& /*eta*/, int /*code*/, Eigen::VectorXd* /*slopes*/) const {
        return kMissing;
    }
    /// Whether a predictor has reached the edge of its means' range, where the likelihood no longer depends on it.
    virtual bool AtEdge(const Eigen::VectorXd& eta, std::size_t record) const = 0;
    /// Target category that a random block of the working model belongs to, -1 for all; and the model's own block.
    virtual int TargetOfBlock(int /*block*/) const { return -1; }

    /// What a fit predicts for a record of the model's data or of others with the same variables: by fixed effects
    /// alone, or with the random effects of its subjects as far as they are known.
    virtual TargetPrediction Predict(const FitResult& fit, const double* record, bool whole) const = 0;
    /// Observed less predicted value; for a multinomial target, 1 less the probability of the observed category.
    virtual double Residual(const double* record, const TargetPrediction& prediction) const = 0;

    /// What a record of the model's data is fitted with, given its predictors: its mean on the scale of the target, of
    /// two categories the probability of code 1, of more the most probable code.
    virtual double Fitted(std::size_t record, const double* eta) const = 0;

    /// Says what the linear model's parameters are in the model's own terms.
    virtual void Translate(FitResult& result) const = 0;

protected:
    /// PredictorRow for a record that need not be one of the model's data. scratch: as there.
    virtual const double* ForeignRow(const double* record, int k, std::vector<double>& scratch) const {
        return PredictorRow(record, k, scratch);
    }
    /// The combination that makes predictor k of a record.
    MixedRow Combination(const FitResult& fit, const double* record, int k, bool whole) const;

    WorkingModel(ModelSpec spec, const RecordView& view) : fSpec(std::move(spec)), fView(view) {}

    ModelSpec fSpec;
    RecordView fView;
    std::vector<double> fTarget;  ///< working response less offset, a value a working row
    std::vector<double> fWeight;
    std::vector<double> fSpread;  ///< of a dispersion that is estimated, else empty
};

/// Calls work(first, end) for runs of records, on all threads.
template <class Work>
void ForRuns(Workers& crew, std::size_t records, const Work& work) {
    constexpr std::size_t kRun = 2048;
    const int runs = static_cast<int>(records / kRun) + 1;
    crew.Run(runs, [&](int r) {
        const std::size_t first = records / runs * r;
        work(first, r + 1 == runs ? records : records / runs * (r + 1));
    });
}

/// The working model of a target. spec is the model of the predictors; its scale is held at 1 where HoldsScale says so.
std::shared_ptr<WorkingModel> MakeWorkingModel(const ModelSpec& spec, const TargetSpec& target, const RecordView& view);

/// A multinomial target's.
std::shared_ptr<WorkingModel> MakeMultinomialModel(const ModelSpec& spec, const TargetSpec& target,
                                                   const RecordView& view);

/// Whether a residual structure takes the scale's place.
bool HasResidualStructure(const ModelSpec& spec);

/// Whether the scale is held at 1: the distribution wants that, and no residual structure takes its place.
bool HoldsScale(const ModelSpec& spec, const TargetSpec& target);

}  // namespace engine
