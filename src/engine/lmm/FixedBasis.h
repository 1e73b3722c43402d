#pragma once

#include "engine/model/EffectDesign.h"
#include "engine/model/Matrices.h"
#include "engine/model/ModelSpec.h"
#include "engine/model/Workers.h"

#include <vector>

namespace engine {

/// Target and weights of the records when they are not those of the data: the working response and the working weights
/// of a generalized model, one a record in the order of the view. Not owned.
struct WorkingData {
    const double* fTarget = nullptr;  ///< null: the dependent variable less the offset
    const double* fWeight = nullptr;  ///< null: the regression weight variable
    const double* fSpread = nullptr;  ///< d of ResidualBlock::fDispersed; null: there is none
};

/// The fixed effects' columns as they are worked with: which are kept, and an ordinary least squares fit that
/// everything after it is relative to.
///
/// Columns are centred (EffectDesign::CentreCovariates) when the model has an intercept, and the target less its first
/// value. A column is redundant when what earlier kept columns leave of its sum of squares is at most the singularity
/// tolerance times that sum of squares (Goodnight 1979, "A tutorial on the sweep operator").
class FixedBasis {
public:
    /// Reads all records once. Records of frequency f count f times.
    FixedBasis(const ModelSpec& spec, const RecordView& view, Workers& workers, const WorkingData& working = {});

    /// What it was found to be for records that are gone: enough for rows of coefficients and their inference.
    /// span: Rank() x NumColumns().
    FixedBasis(const ModelSpec& spec, std::vector<int> kept, Eigen::MatrixXd span, double totalFrequency);

    const EffectDesign& Design() const { return fDesign; }
    int Rank() const { return static_cast<int>(fKept.size()); }
    int NumColumns() const { return fDesign.NumColumns(); }
    const std::vector<int>& Kept() const { return fKept; }      ///< columns, ascending
    int KeptIndex(int column) const { return fIndex[column]; }  ///< -1 when redundant

    double Records() const { return fRecords; }
    double TotalFrequency() const { return fTotalFrequency; }
    double LogWeights() const { return fLogWeights; }  ///< sum of frequency times log regression weight
    double TotalSumOfSquares() const {
        return fTotalSs;
    }                            ///< weighted, of the shifted target about its fit by the mean
    double TargetScale() const;  ///< root mean square of the shifted target, 0 for a constant

    /// Frequency weight of a record, rounded.
    double Frequency(const double* record) const {
        return fFrequency < 0 ? 1.0 : static_cast<double>(static_cast<long>(record[fFrequency] + 0.5));
    }
    double Weight(const double* record, std::size_t index) const {
        if (fWorking.fWeight != nullptr) return fWorking.fWeight[index];
        return fRegression < 0 ? 1.0 : record[fRegression];
    }
    /// What the dispersion multiplies in the record's residual variance, (1 + k spread) / weight.
    double Spread(std::size_t index) const { return fWorking.fSpread[index]; }
    /// Shifted target less the least squares fit: what the mixed model is fitted to. hits are the record's own.
    double Residual(const double* record, std::size_t index, const ColumnHit* hits) const {
        double value = Target(record, index);
        for (int e = 0; e < fDesign.NumEffects(); ++e)
            value -= hits[e].fValue * fLeastSquares[hits[e].fColumn];
        return value;
    }

    /// Coefficients of the kept columns, original parametrisation, from those of the kept centred columns that were
    /// fitted to Residual.
    Eigen::VectorXd ToOriginal(const Eigen::VectorXd& centred) const;
    /// N with original kept columns = centred kept columns * N, unit upper triangular.
    const Eigen::MatrixXd& KeptTransform() const { return fTransform; }
    /// Every original column as a combination of the kept ones: Rank() x NumColumns(). A row of coefficients l is
    /// estimable when l = l[kept] * Span().
    const Eigen::MatrixXd& Span() const { return fSpan; }
    /// Upper triangular factor U of the kept original columns' cross-products, U'U, frequencies in them
    /// but no regression weights.
    const Eigen::MatrixXd& CrossFactor() const { return fCrossFactor; }

private:
    double Target(const double* record, std::size_t index) const {
        if (fWorking.fTarget != nullptr) return fWorking.fTarget[index] - fShift;
        const double offset = fOffset >= 0 ? record[fOffset] : fOffsetValue;
        return (record[fDependent] - fShift) - offset;
    }
    void PickCentres(const ModelSpec& spec, const RecordView& view);
    // Gives the cross-products without regression weights, which have no say in columns; empty when there are none.
    Eigen::MatrixXd Accumulate(const RecordView& view, Workers& workers);
    void Sweep(double tolerance, const Eigen::MatrixXd& plain);

    EffectDesign fDesign;
    WorkingData fWorking;
    int fDependent, fFrequency, fRegression, fOffset;
    double fOffsetValue;
    double fShift = 0.0;
    bool fIntercept;
    Eigen::MatrixXd fCross;  // (columns + 1) square: weighted cross-products of the columns and the target
    double fRecords = 0.0;
    double fTotalFrequency = 0.0;
    double fLogWeights = 0.0;
    double fTotalSs = 0.0;
    std::vector<int> fKept;
    std::vector<int> fIndex;
    Eigen::VectorXd fLeastSquares;  // all columns, 0 for redundant ones
    Eigen::MatrixXd fTransform;
    Eigen::MatrixXd fSpan;
    Eigen::MatrixXd fCrossFactor;
};

}  // namespace engine
