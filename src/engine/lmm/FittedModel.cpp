#include "engine/lmm/FittedModel.h"

#include "engine/lmm/MixedContrasts.h"

namespace engine {

FittedModel::FittedModel(const ModelSpec& spec, const RecordView& view)
    : fSpec(spec), fWorkers(spec.fThreads), fView(view) {}

FittedModel::~FittedModel() = default;

const MixedContrasts& FittedModel::Mixed() const {
    std::call_once(fOnce, [this] { fMixed = std::make_unique<MixedContrasts>(*this); });
    return *fMixed;
}

}  // namespace engine
