#include "report/FiguresJson.h"

#include "host/output/FigureText.h"

#include <cmath>

namespace report {

namespace {

/// Counts read as whole numbers where they are.
Json Count(double value) {
    constexpr double kExact = 9007199254740992.0;
    if (std::isfinite(value) && std::fabs(value) < kExact && value == std::floor(value)) {
        return static_cast<std::int64_t>(value);
    }
    return Number(value);
}

Json Optional(const std::optional<std::string>& text) {
    return text ? Json(*text) : Json(nullptr);
}

Json LevelsJson(const run::Levels& levels) {
    Json json = Json::object();
    for (const auto& [variable, value] : levels)
        json[variable] = value;
    return json;
}

template <class Row, class Write>
Json List(const std::vector<Row>& rows, Write write) {
    Json json = Json::array();
    for (const auto& row : rows)
        json.push_back(write(row));
    return json;
}

Json MatrixJson(const std::vector<std::vector<double>>& matrix) {
    return List(matrix, [](const std::vector<double>& row) { return List(row, Number); });
}

Json StatusJson(const run::Figures& figures) {
    return {{"converged", figures.fConverged},
            {"code", figures.fCode},
            {"iterations", figures.fIterations},
            {"messages", List(figures.fMessages, [](const run::Message& message) {
                 return Json{{"level", message.fLevel}, {"code", message.fCode}, {"text", message.fText}};
             })}};
}

Json FixedJson(const run::FixedRow& row) {
    return {{"effect", row.fEffect},
            {"term", row.fTerm},
            {"target_category", Optional(row.fTargetCategory)},
            {"estimate", Number(row.fEstimate)},
            {"std_error", Number(row.fStdError)},
            {"df", Number(row.fDf)},
            {"t", Number(row.fT)},
            {"p", Number(row.fP)},
            {"lower", Number(row.fLower)},
            {"upper", Number(row.fUpper)},
            {"redundant", row.fRedundant}};
}

Json TestJson(const run::TestRow& row) {
    return {{"effect", row.fEffect},   {"type", row.fType},   {"df1", Number(row.fDf1)},
            {"df2", Number(row.fDf2)}, {"f", Number(row.fF)}, {"p", Number(row.fP)}};
}

Json CovarianceJson(const run::CovarianceRow& row) {
    return {{"block", row.fBlock},
            {"subject", Optional(row.fSubject)},
            {"group", Optional(row.fGroup)},
            {"target_category", Optional(row.fTargetCategory)},
            {"structure", row.fStructure},
            {"parameter", row.fParameter},
            {"estimate", Number(row.fEstimate)},
            {"std_error", Number(row.fStdError)},
            {"z", Number(row.fZ)},
            {"p", Number(row.fP)},
            {"lower", Number(row.fLower)},
            {"upper", Number(row.fUpper)},
            {"redundant", row.fRedundant}};
}

Json RandomEffectJson(const run::RandomEffectRow& row) {
    return {
        {"block", row.fBlock}, {"subject", row.fSubject},           {"target_category", Optional(row.fTargetCategory)},
        {"term", row.fTerm},   {"estimate", Number(row.fEstimate)}, {"std_error", Number(row.fStdError)}};
}

Json MeanJson(const run::MeanRow& row) {
    return {{"levels", LevelsJson(row.fLevels)},  {"mean", Number(row.fMean)},
            {"std_error", Number(row.fStdError)}, {"df", Number(row.fDf)},
            {"lower", Number(row.fLower)},        {"upper", Number(row.fUpper)},
            {"estimable", row.fEstimable}};
}

Json ContrastJson(const run::ContrastRow& row) {
    return {{"at", LevelsJson(row.fAt)},
            {"contrast", row.fContrast},
            {"estimate", Number(row.fEstimate)},
            {"std_error", Number(row.fStdError)},
            {"t", Number(row.fT)},
            {"df", Number(row.fDf)},
            {"p", Number(row.fP)},
            {"p_adjusted", Number(row.fPAdjusted)},
            {"lower", Number(row.fLower)},
            {"upper", Number(row.fUpper)}};
}

Json OverallJson(const run::OverallTestRow& row) {
    return {{"at", LevelsJson(row.fAt)},
            {"f", Number(row.fF)},
            {"df1", Number(row.fDf1)},
            {"df2", Number(row.fDf2)},
            {"p", Number(row.fP)}};
}

Json MeansJson(const run::MeansRequest& request) {
    Json covariates = Json::object();
    for (const auto& [name, value] : request.fCovariates)
        covariates[name] = Number(value);
    return {{"request", request.fRequest},
            {"factors", request.fFactors},
            {"covariates", covariates},
            {"scale", request.fScale},
            {"estimates", List(request.fEstimates, MeanJson)},
            {"contrasts", List(request.fContrasts, ContrastJson)},
            {"overall", List(request.fOverall, OverallJson)}};
}

Json CustomRowJson(const run::CustomTestRow::Row& row) {
    return {{"row", row.fNumber},
            {"target_category", Optional(row.fTargetCategory)},
            {"estimate", Number(row.fEstimate)},
            {"hypothesised", Number(row.fHypothesised)},
            {"std_error", Number(row.fStdError)},
            {"df", Number(row.fDf)},
            {"t", Number(row.fT)},
            {"p", Number(row.fP)},
            {"lower", Number(row.fLower)},
            {"upper", Number(row.fUpper)},
            {"estimable", row.fEstimable}};
}

Json CustomTestJson(const run::CustomTestRow& test) {
    return {{"label", test.fLabel},     {"rows", List(test.fRows, CustomRowJson)},
            {"f", Number(test.fF)},     {"df1", Number(test.fDf1)},
            {"df2", Number(test.fDf2)}, {"p", Number(test.fP)}};
}

Json IterationJson(const run::IterationRow& row) {
    return {{"iteration", row.fIteration},      {"method", row.fMethod},     {"objective", Number(row.fObjective)},
            {"change", Number(row.fChange)},    {"halvings", row.fHalvings}, {"damping", Number(row.fDamping)},
            {"theta", List(row.fTheta, Number)}};
}

Json NamedMatrixJson(const run::NamedMatrix& matrix) {
    return {{"title", matrix.fTitle},
            {"rows", matrix.fRows},
            {"columns", matrix.fColumns},
            {"values", MatrixJson(matrix.fValues)}};
}

}  // namespace

Json Number(double value) {
    return host::IsMissingFigure(value) || std::isinf(value) ? Json(nullptr) : Json(value);
}

Json SplitJson(const run::SplitResult& split) {
    const run::Figures& figures = split.fFigures;
    Json json{{"split", LevelsJson(split.fSplit)},
              {"status", StatusJson(figures)},
              {"data",
               {{"records_used", Count(figures.fRecordsUsed)},
                {"records_excluded", Count(figures.fRecordsExcluded)},
                {"weight_used", Count(figures.fWeightUsed)},
                {"subjects", figures.fSubjects}}},
              {"fit",
               {{"method", figures.fMethod},
                {"likelihood", figures.fLikelihood},
                {"minus2_log_likelihood", Number(figures.fMinus2LL)},
                {"aic", Number(figures.fAIC)},
                {"aicc", Number(figures.fAICC)},
                {"caic", Number(figures.fCAIC)},
                {"bic", Number(figures.fBIC)}}},
              {"certificate",
               {{"scaled_gradient", Number(figures.fScaledGradient)},
                {"newton_decrement", Number(figures.fNewtonDecrement)},
                {"smallest_eigenvalue", Number(figures.fSmallestEigenvalue)},
                {"at_bound", figures.fAtBound}}},
              {"fixed", List(figures.fFixed, FixedJson)},
              {"fixed_covariance", MatrixJson(figures.fFixedCovariance)},
              {"tests", List(figures.fTests, TestJson)},
              {"covariance", List(figures.fCovariance, CovarianceJson)},
              {"random_effects", List(figures.fRandomEffects, RandomEffectJson)},
              {"emmeans", List(figures.fMeans, MeansJson)}};
    // What only some commands ask for stands there only then.
    if (!figures.fCustomTests.empty()) json["custom_tests"] = List(figures.fCustomTests, CustomTestJson);
    if (!figures.fHistory.empty()) json["history"] = List(figures.fHistory, IterationJson);
    if (!figures.fMatrices.empty()) json["matrices"] = List(figures.fMatrices, NamedMatrixJson);
    return json;
}

}  // namespace report
