#include "engine/means/MeansResults.h"

namespace engine {

namespace {

constexpr long kCompareFactorOneLevel = 130035;
constexpr MCContrastType kDeviationContrast = 1;
constexpr MCContrastType kSimpleContrast = 0;

/// For a host that says nothing beyond the settings.
run::ContrastKind KindOf(const MCEmmeansSpec& source) {
    if (source.GetCompareFactors().empty()) return run::ContrastKind::kNoContrast;
    if (source.GetContrastType() == kSimpleContrast) return run::ContrastKind::kSimple;
    return source.GetContrastType() == kDeviationContrast ? run::ContrastKind::kDeviation
                                                          : run::ContrastKind::kPairwise;
}

PAdjustment AdjustmentOf(MCPAdjustMethod method) {
    if (method == static_cast<int>(PAdjustment::kSequentialBonferroni)) return PAdjustment::kSequentialBonferroni;
    if (method == static_cast<int>(PAdjustment::kSequentialSidak)) return PAdjustment::kSequentialSidak;
    return PAdjustment::kLeastDifference;
}

MeansRequest ReadRequest(const MCEmmeansSpec& source, const run::MeansChoice* choice) {
    MeansRequest request;
    request.fFactors = source.GetFactors();
    request.fContrast = choice ? choice->fContrast : KindOf(source);
    request.fAdjustment = AdjustmentOf(source.GetPAdjust());
    request.fLinkScale = choice ? choice->fLinkScale : source.GetEmmScaleType() == 1;
    for (const auto& [variable, value] : source.GetCovariates()) {
        if (!MCMV::IsMissing(value)) request.fGiven.emplace_back(variable, value);
    }
    if (source.GetCompareFactors().empty()) return request;
    for (std::size_t f = 0; f < request.fFactors.size(); ++f) {
        if (request.fFactors[f] == source.GetCompareFactors().front()) request.fCompare = static_cast<int>(f);
    }
    // The settings hold the code of the reference level; none stands for the last level, and for a level by name that
    // could not be encoded in this split.
    request.fReference = source.GetRefCateg();
    request.fReferenceAbsent =
        request.fReference < 0 && choice && choice->fReferenceNamed && request.fContrast == run::ContrastKind::kSimple;
    return request;
}

run::Levels NameLevels(const Namer& namer, const std::vector<int>& factors, const std::vector<int>& levels) {
    run::Levels names;
    for (std::size_t i = 0; i < factors.size(); ++i)
        names.emplace_back(namer.Variable(factors[i]), namer.Category(factors[i], levels[i]));
    return names;
}

/// Appends estimates, contrasts and tests; target is a further level of each.
void AppendEstimates(const EstimatedMeans& source, const Namer& namer, const run::Levels& target,
                     run::MeansRequest& request) {
    const MeansRequest& asked = source.fRequest;
    const auto levels = [&](const std::vector<int>& factors, const std::vector<int>& codes) {
        run::Levels names = NameLevels(namer, factors, codes);
        names.insert(names.end(), target.begin(), target.end());
        return names;
    };
    for (const EstimatedMean& mean : source.fMeans) {
        const ContrastResult& result = mean.fResult;
        request.fEstimates.push_back({levels(asked.fFactors, mean.fLevels), result.fEstimate, result.fStdError,
                                      result.fDf, result.fLower, result.fUpper, result.fEstimable});
    }
    if (asked.fCompare < 0) return;
    const int compared = asked.fFactors[asked.fCompare];
    std::vector<int> others = asked.fFactors;
    others.erase(others.begin() + asked.fCompare);
    for (const MeansContrast& contrast : source.fContrasts) {
        const std::string second = contrast.fSecond < 0 ? "Mean" : namer.Category(compared, contrast.fSecond);
        const ContrastResult& result = contrast.fResult;
        request.fContrasts.push_back(
            {levels(others, contrast.fAt), namer.Category(compared, contrast.fFirst) + " - " + second, result.fEstimate,
             result.fStdError, result.fT, result.fDf, result.fP, contrast.fAdjustedP, result.fLower, result.fUpper});
    }
    for (const OverallTest& test : source.fOverall) {
        request.fOverall.push_back(
            {levels(others, test.fAt), test.fTest.fF, test.fTest.fDf1, test.fTest.fDf2, test.fTest.fP});
    }
}

run::MeansRequest MakeFigures(const EstimatedMeans& source, int number, const Namer& namer) {
    run::MeansRequest request;
    const MeansRequest& asked = source.fRequest;
    request.fRequest = number;
    request.fScale = asked.fLinkScale ? "link" : "original";
    for (int factor : asked.fFactors)
        request.fFactors.push_back(namer.Variable(factor));
    for (const auto& [variable, value] : source.fHeldAt)
        request.fCovariates.emplace_back(namer.Variable(variable), value);
    return request;
}

run::CustomTestRow MakeFigures(const CustomTestResult& source, const std::string& label,
                               const run::TargetCategories& categories) {
    run::CustomTestRow row;
    row.fLabel = label;
    for (const auto& [number, target, hypothesised, result] : source.fRows) {
        row.fRows.push_back({number + 1, target < 0 ? std::nullopt : std::optional<std::string>(categories[target]),
                             result.fEstimate, hypothesised, result.fStdError, result.fDf, result.fT, result.fP,
                             result.fLower, result.fUpper, result.fEstimable});
    }
    row.fF = source.fJoint.fF;
    row.fDf1 = source.fJoint.fEstimable ? source.fJoint.fDf1 : run::kNone;
    row.fDf2 = source.fJoint.fDf2;
    row.fP = source.fJoint.fP;
    return row;
}

}  // namespace

std::vector<MCStatus> MeansResults::Warnings() const {
    std::vector<MCStatus> warnings;
    std::vector<const EstimatedMeans*> requests;
    for (const EstimatedMeans& request : fRequests)
        requests.push_back(&request);
    for (const OfCategory& part : fByCategory) {
        if (part.fRequest == static_cast<int>(requests.size())) requests.push_back(&part.fMeans);
    }
    for (std::size_t i = 0; i < requests.size(); ++i) {
        if (!requests[i]->fOneLevel) continue;
        MCStatus& warning = warnings.emplace_back(kCompareFactorOneLevel, true);
        warning.AddDiscreteDatum(static_cast<long>(i) + 1);
        warning.SetDetail("Estimated means request " + std::to_string(i + 1) +
                          " has no contrasts, since the compared factor has at most one level.");
    }
    return warnings;
}

void MeansResults::AddFigures(const run::RunValue& run, int dependent, const Namer& namer,
                              run::Figures& figures) const {
    for (const MCStatus& warning : Warnings())
        figures.fMessages.push_back({"warning", warning.GetErrorCode(), warning.GetDetail()});
    const auto add = [&](const EstimatedMeans& means, int number, const run::Levels& target) {
        const bool first = figures.fMeans.empty() || figures.fMeans.back().fRequest != number;
        if (first) figures.fMeans.push_back(MakeFigures(means, number, namer));
        const std::string name = "Estimated means request " + std::to_string(number);
        if (means.fRequest.fReferenceAbsent) {
            if (!first) return;
            figures.fMessages.push_back(
                {"warning", 0, name + " is left out, since no record of these data has its reference level."});
            return;
        }
        AppendEstimates(means, namer, target, figures.fMeans.back());
        if (!first || means.AllEstimable()) return;
        figures.fMessages.push_back(
            {"warning", 0, name + " has means that the data can't determine; they are missing."});
    };
    for (std::size_t i = 0; i < fRequests.size(); ++i)
        add(fRequests[i], static_cast<int>(i) + 1, {});
    for (const OfCategory& part : fByCategory)
        add(part.fMeans, part.fRequest + 1, {{namer.Variable(dependent), run.fTargetCategories[part.fTarget]}});
    for (std::size_t i = 0; i < fTests.size(); ++i) {
        const std::string& label = run.fvTests[i].fLabel;
        figures.fCustomTests.push_back(
            MakeFigures(fTests[i], label.empty() ? std::to_string(i + 1) : label, run.fTargetCategories));
        if (fTests[i].fProblem.empty()) continue;
        figures.fMessages.push_back({"warning", 0,
                                     "Custom test " + std::to_string(i + 1) +
                                         " has a row that doesn't fit the model: " + fTests[i].fProblem +
                                         "; give at most one for each column."});
    }
}

std::vector<MeansRequest> ReadMeansRequests(const GLMMSettings& settings, const run::RunValue& run) {
    std::vector<MeansRequest> requests;
    const std::vector<MCEmmeansSpec>& sources = settings.GetEmmeans();
    for (std::size_t i = 0; i < sources.size(); ++i)
        requests.push_back(ReadRequest(sources[i], i < run.fvMeans.size() ? &run.fvMeans[i] : nullptr));
    return requests;
}

MeansResults EstimateMeans(const FitResult& fit, const ModelSpec& spec, const RecordMeans& records,
                           const ResponseScale& scale, const GLMMSettings& settings, const run::RunValue& run,
                           bool topEffects) {
    MeansResults results;
    for (const run::CustomTest& test : run.fvTests)
        results.fTests.push_back(RunCustomTest(fit, spec, test, scale.fpMultinomial));
    if (const WorkingModel* model = scale.fpMultinomial) {
        const std::vector<MeansRequest> requests = ReadMeansRequests(settings, run);
        for (std::size_t i = 0; i < requests.size(); ++i) {
            ResponseScale part = scale;
            const int parts = model->Predictors() + (requests[i].fLinkScale ? 0 : 1);
            for (int c = 0; c < parts; ++c) {
                part.fPredictor = part.fCategory = c;
                results.fByCategory.push_back({static_cast<int>(i), requests[i].fLinkScale ? model->CategoryOf(c) : c,
                                               MeansEstimator(fit, spec, records, part).Estimate(requests[i])});
            }
        }
        return results;
    }
    const MeansEstimator estimator(fit, spec, records, scale);
    results.fGrandMean = estimator.GrandMean();
    if (topEffects) results.fTop = estimator.TopEffects();
    for (const MeansRequest& request : ReadMeansRequests(settings, run))
        results.fRequests.push_back(estimator.Estimate(request));
    return results;
}

}  // namespace engine
