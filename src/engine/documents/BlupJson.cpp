#include "engine/documents/BlupJson.h"

#include "engine/seam/Namer.h"

#include <charconv>
#include <nlohmann/json.hpp>

namespace engine {

namespace {

using Json = nlohmann::ordered_json;

Json Value(double value) {
    return std::isfinite(value) ? Json(value) : Json{{"value", nullptr}};
}

/// A category text as a value of its variable: a number where the variable is one.
Json CategoryValue(const MCVarList& variables, int variable, const std::string& text) {
    const IMCVariable* source = variables.GetVarAt(variable);
    double number = 0.0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = source && !source->IsString() && parsed.ec == std::errc();
    return isNumber ? Json(number) : Json(text);
}

/// "subject = 308" and its kin: variable and value of each subject field.
Json SubjectText(const DocumentSource& source, const Namer& namer, const std::vector<int>& fields,
                 const std::vector<int>& codes) {
    Json list = Json::array();
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const std::string name = namer.Variable(fields[i]);
        list.push_back({{"variable", name}});
        list.push_back({{"variable", name},
                        {"value", CategoryValue(source.fVariables, fields[i], namer.Category(fields[i], codes[i]))}});
    }
    return {{"pattern", "[%1 = %2:, ^1 = ^2:]1"}, {"parts", Json::array({list})}};
}

/// predictorBlock counts the blocks of all predictors: those of the model, for a nominal target once for each category.
Json BlockTable(const DocumentSource& source, const Namer& namer, int predictorBlock) {
    const int block = predictorBlock % static_cast<int>(source.fSpec.fRandom.size());
    const RandomBlock& random = source.fSpec.fRandom[block];
    Json rows = Json::array();
    Json cells = Json::array();
    for (const SubjectPrediction& subject : source.fFit.Predictions(predictorBlock)) {
        Json terms = Json::array();
        for (Eigen::Index c = 0; c < subject.fEstimate.size(); ++c) {
            const RandomColumn& column = source.fFit.fRandomColumns[block][c];
            const ModelEffect& effect = random.fEffects[column.fEffect];
            terms.push_back({{"text", effect.IsIntercept() ? Json("Intercept")
                                                           : Json{{"data", namer.Term(effect, column.fLevels)}}}});
            cells.push_back(Json::array({Value(subject.fEstimate[c]), Value(subject.fStdError[c])}));
        }
        if (random.fSubjects.empty()) {
            rows.insert(rows.end(), terms.begin(), terms.end());
        } else {
            rows.push_back(
                {{"text", SubjectText(source, namer, random.fSubjects, subject.fSubject)}, {"categories", terms}});
        }
    }
    Json statistics = Json::array();
    statistics.push_back({{"text", "Prediction"}, {"format", "Coefficient"}});
    statistics.push_back({{"text", "Std. Error"}, {"format", "CoefficientSE"}});
    Json dimensions = Json::array();
    dimensions.push_back({{"name", "Random Effects"}, {"place", "row"}, {"hideTitle", true}, {"categories", rows}});
    dimensions.push_back(
        {{"name", "Statistics"}, {"place", "column"}, {"hideTitle", true}, {"categories", statistics}});
    Json table = {{"dimensions", dimensions}, {"cells", cells}};
    const int target = source.fGeneralized ? source.fGeneralized->TargetOfBlock(predictorBlock) : -1;
    if (target >= 0 && target < static_cast<int>(source.fRun.fTargetCategories.size())) {
        table["caption"] = {{"pattern", "Target category: ^1"},
                            {"parts", Json::array({Json{{"data", source.fRun.fTargetCategories[target]}}})}};
    }
    return table;
}

}  // namespace

void WriteBlupJson(const DocumentSource& source, const std::vector<bool>& wanted, std::ostream& stream) {
    const Namer namer(source.fVariables, &source.fRun.fHidden);
    Json tables = Json::array();
    const int blocks = static_cast<int>(source.fSpec.fRandom.size());
    const int all = source.fGeneralized ? source.fGeneralized->RandomBlocks() : blocks;
    for (int b = 0; b < all; ++b) {
        if (wanted[b % blocks]) tables.push_back(BlockTable(source, namer, b));
    }
    const Json document = {{"glmm", {{"RandomEffectsParameters", {{"tables", tables}}}}}};
    stream << document.dump(1, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace engine
