#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/RandomSource.h"

#include <memory>
#include <vector>

namespace engine {

/// The rows' fixed parts over all columns, redundant ones included, a row a row.
Eigen::MatrixXd FixedPart(const std::vector<MixedRow>& rows, int columns);

/// Contrasts that involve predicted random effects: their errors are those of prediction. Degrees of freedom are
/// residual or by Satterthwaite's rule; missing for Kenward-Roger, which is not defined for them.
class MixedContrasts {
public:
    /// The model outlives this object.
    MixedContrasts(const FittedModel& model, std::unique_ptr<RandomSource> source)
        : fModel(model), fSource(std::move(source)) {}

    const RandomSource& Source() const { return *fSource; }

    /// Standard error and degrees of freedom of a row of which kept is the fixed part, on the kept parameters. room:
    /// see RandomSource::Combine.
    void AddError(const Eigen::MatrixXd& kept, const MixedRow& row, RandomSource::Combination& room,
                  Estimated& result) const;
    FTestResult Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values) const;

private:
    double Df(const Eigen::VectorXd& direction, double variance, const RandomSource::Combination& combined) const;

    const FittedModel& fModel;
    std::unique_ptr<RandomSource> fSource;
};

}  // namespace engine
