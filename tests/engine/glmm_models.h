#pragma once

#include "engine/glmm/GlmmFit.h"
#include "engine/lmm_csv.h"

#include <string>
#include <utility>
#include <vector>

namespace engine::testing {

inline CsvRecords ReadData(const std::string& name, const std::vector<std::string>& categorical) {
    return CsvRecords(HIERFIT_TEST_DATA "/" + name + ".csv", categorical);
}

inline ModelEffect Factor(int variable) {
    ModelEffect effect;
    effect.fFactors = {variable};
    return effect;
}
inline ModelEffect Covariate(int variable) {
    ModelEffect effect;
    effect.fCovariates = {{variable, 1}};
    return effect;
}

inline ModelSpec Spec(const CsvRecords& data, int dependent, std::vector<ModelEffect> fixed) {
    ModelSpec spec;
    spec.fLevels = data.Levels();
    spec.fDependent = dependent;
    spec.fFixed = std::move(fixed);
    return spec;
}
inline void AddIntercept(ModelSpec& spec, int subject) {
    RandomBlock block;
    block.fEffects.emplace_back();
    block.fSubjects = {subject};
    spec.fRandom.push_back(block);
}
inline TargetSpec Target(run::Distribution distribution, run::Link link) {
    TargetSpec target;
    target.fDistribution = distribution;
    target.fLink = link;
    return target;
}

inline TargetPrediction PredictRecord(const GlmmResult& result, const double* record, bool whole) {
    RowEstimator estimator(*result.fFit.fModel);
    return result.fModel->Predict(estimator, record, whole, true);
}

/// Seizure counts of the epilepsy trial on its usual predictors.
inline ModelSpec Seizures(const CsvRecords& data) {
    ModelEffect both = Factor(data["trt"]);
    both.fCovariates = {{data["lbase"], 1}};
    return Spec(data, data["y"],
                {Covariate(data["lbase"]), Factor(data["trt"]), Covariate(data["lage"]), Covariate(data["V4"]), both});
}

}  // namespace engine::testing
