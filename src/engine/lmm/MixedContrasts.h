#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/RandomSource.h"

#include <memory>
#include <vector>

namespace engine {

/// Contrasts that involve predicted random effects: their errors are those of prediction. Degrees of freedom are
/// residual or by Satterthwaite's rule; missing for Kenward-Roger, which is not defined for them.
class MixedContrasts {
public:
    /// The model outlives this object.
    MixedContrasts(const FittedModel& model, std::unique_ptr<RandomSource> source)
        : fModel(model), fSource(std::move(source)) {}

    const RandomSource& Source() const { return *fSource; }

    ContrastResult Contrast(const MixedRow& row) const;
    FTestResult Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values) const;

private:
    bool Combine(const std::vector<MixedRow>& rows, Eigen::VectorXd* estimate,
                 RandomSource::Combination* combined) const;
    double Df(const Eigen::VectorXd& direction, double variance, const RandomSource::Combination& combined) const;

    const FittedModel& fModel;
    std::unique_ptr<RandomSource> fSource;
};

}  // namespace engine
