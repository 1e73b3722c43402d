// A model file, from its text to the scores of a record: what is read can score, whatever its numbers are.
#include "engine/seam/StoredModel.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace {

/// The value in all numbers, and the first or last category of each factor; none when a factor has no category.
std::optional<std::vector<double>> MakeRecord(const engine::StoredModel& model, double value) {
    std::vector<double> record;
    for (const engine::StoredModel::Column& column : model.Columns()) {
        const auto categories = static_cast<double>(column.fCategories.size());
        if (column.fCategorical && categories == 0.0 && (column.fFixed || column.fRandom)) return std::nullopt;
        record.push_back(!column.fCategorical ? value : value > 0.0 ? categories - 1.0 : 0.0);
    }
    return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string problem;
    const auto model = engine::StoredModel::Read(std::string(reinterpret_cast<const char*>(data), size), problem);
    if (!model) {
        if (!problem.empty()) return 0;
        std::fputs("refused without a message\n", stderr);
        std::abort();
    }
    engine::Scorer fixed = model->MakeScorer({10, 11, 19});
    engine::Scorer whole = model->MakeScorer({10, 11, 19, 0, 1, 9});
    std::vector<double> scores;
    std::vector<std::vector<double>> probabilities;
    for (const double value : {0.0, 1.0, -1e300}) {
        const auto record = MakeRecord(*model, value);
        if (!record) continue;
        fixed.Score(record->data(), scores, &probabilities);
        whole.KnowsSubjects(record->data());
        whole.Score(record->data(), scores, &probabilities);
    }
    return 0;
}
