#include "engine/lmm/FittedModel.h"
#include "engine/lmm/PredictionState.h"
#include "engine/lmm/RandomEffects.h"

#include <cmath>
#include <mutex>

namespace engine {

namespace {

constexpr double kDifference = 1e-3;  // step of the differences, in standard errors of the parameter
constexpr int kMostHalvings = 12;

/// Predictions and errors at one theta, at which the likelihood is at. Reads the records.
RandomState StateAt(const FittedModel& model, const Eigen::VectorXd& theta, const Evaluation& at) {
    const LmmProblem& problem = *model.fProblem;
    RandomState state;
    state.fHalf = model.Basis().KeptTransform().triangularView<Eigen::Upper>().solve(at.fHalf);
    const RandomEffects effects(problem, theta, at);
    for (const RandomEffects::Subject& subject : effects.Subjects()) {
        RandomState::Unit unit;
        for (std::size_t slot = 0; slot < subject.fBlocks.size(); ++slot) {
            RandomState::Part part;
            part.fBlock = subject.fBlocks[slot];
            part.fGroup = subject.fGroups[slot];
            part.fColumn = subject.fColumns[slot];
            part.fWidth = problem.Blocks()[part.fBlock].fDesign.NumColumns();
            const double* record = problem.View().Row(subject.fRecords[slot]);
            for (int variable : problem.Spec().fRandom[part.fBlock].fSubjects)
                part.fSubject.push_back(static_cast<int>(record[variable]));
            unit.fParts.push_back(std::move(part));
        }
        unit.fEstimate = subject.fEstimate;
        unit.fErrors = static_cast<int>(state.fErrors.size());
        state.fErrors.push_back({subject.fOwn, subject.fPull});
        state.fUnits.push_back(std::move(unit));
    }
    return state;
}

class MarginalSource : public KeptSource {
public:
    explicit MarginalSource(const FittedModel& model)
        : KeptSource(StateAt(model, model.fTheta, model.fObjective->Value(model.fTheta, ThetaScale::kReported)),
                     static_cast<int>(model.fSpec.fRandom.size())),
          fModel(model) {}

    void Prepare() const override {
        if (fModel.fSpec.fDf == DfMethod::kSatterthwaite) NeedSlopes();
    }
    RandomState Keep() const override {
        Prepare();
        return KeptSource::Keep();
    }

protected:
    void NeedSlopes() const override {
        std::call_once(fOnce, [this] { MakeSlopes(); });
    }

private:
    Evaluation ValueAt(const Eigen::VectorXd& theta) const {
        return fModel.fObjective->Value(theta, ThetaScale::kReported);
    }

    void MakeSlopes() const {
        const Eigen::MatrixXd& covariance = fModel.fThetaCovariance;
        for (Eigen::Index k = 0; k < covariance.rows(); ++k) {
            if (!(covariance(k, k) > 0.0)) continue;
            const double size = std::abs(fModel.fTheta[k]);
            double step =
                kDifference * (size > 0.0 ? std::min(std::sqrt(covariance(k, k)), size) : std::sqrt(covariance(k, k)));
            const auto moved = [&](double by) {
                Eigen::VectorXd theta = fModel.fTheta;
                theta[k] += by;
                return theta;
            };
            // Near the edge of the parameters' range a step may lead out of it.
            Evaluation up = ValueAt(moved(step));
            Evaluation down = ValueAt(moved(-step));
            for (int halving = 0; halving < kMostHalvings && !(up.fFeasible && down.fFeasible); ++halving) {
                step /= 2.0;
                up = ValueAt(moved(step));
                down = ValueAt(moved(-step));
            }
            if (!up.fFeasible || !down.fFeasible) continue;
            const RandomState above = StateAt(fModel, moved(step), up);
            const RandomState below = StateAt(fModel, moved(-step), down);
            RandomState::Slope slope{static_cast<int>(k), (above.fHalf - below.fHalf) / (2.0 * step), {}};
            for (std::size_t u = 0; u < above.fErrors.size(); ++u) {
                slope.fErrors.push_back({(above.fErrors[u].fOwn - below.fErrors[u].fOwn) / (2.0 * step),
                                         (above.fErrors[u].fPull - below.fErrors[u].fPull) / (2.0 * step)});
            }
            fState.fSlopes.push_back(std::move(slope));
        }
    }

    const FittedModel& fModel;
    mutable std::once_flag fOnce;
};

}  // namespace

std::unique_ptr<RandomSource> MakeMarginalSource(const FittedModel& model) {
    return std::make_unique<MarginalSource>(model);
}

}  // namespace engine
