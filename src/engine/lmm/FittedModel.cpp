#include "engine/lmm/FittedModel.h"

#include "engine/lmm/MixedContrasts.h"
#include "engine/lmm/PredictionState.h"

#include <numeric>

namespace engine {

FittedModel::FittedModel(const ModelSpec& spec, const RecordView& view)
    : fSpec(spec), fWorkers(spec.fThreads), fView(view) {}

FittedModel::~FittedModel() = default;

Eigen::VectorXd FittedModel::Start() const {
    Eigen::VectorXd theta = IsCrossed() ? fCrossed->Start() : fProblem->Start();
    if (fSpec.fResidual.fUnitScale) theta[theta.size() - 1] = 1.0;
    return theta;
}

Eigen::MatrixXd FittedModel::RandomCovariance(int block, int group) const {
    Eigen::MatrixXd matrix;
    const int at = Layout().Find(block, group);
    if (at < 0) return matrix;
    const Segment& segment = Layout()[at];
    Places places;
    places.fPositions.resize(segment.fReported->Dimension());
    std::iota(places.fPositions.begin(), places.fPositions.end(), 0);
    segment.fReported->Matrix(segment.Part(fTheta), places, matrix);
    return matrix;
}

void FittedModel::UseState(RandomState state) {
    auto source = std::make_unique<KeptSource>(std::move(state), static_cast<int>(fSpec.fRandom.size()));
    std::call_once(fOnce, [&] { fMixed = std::make_unique<MixedContrasts>(*this, std::move(source)); });
}

const MixedContrasts& FittedModel::Mixed() const {
    std::call_once(fOnce, [this] {
        fMixed =
            std::make_unique<MixedContrasts>(*this, IsCrossed() ? MakeCrossedSource(*this) : MakeMarginalSource(*this));
    });
    return *fMixed;
}

}  // namespace engine
