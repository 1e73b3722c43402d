#include "contracts/EngineDisplay.h"
#include "engine/seam/ResultWriter.h"

#include <cmath>

namespace engine {

namespace {

double ToSystem(double value) {
    return std::isnan(value) ? MCMV::Missing() : value;
}

/// A parameter of the effect list at the levels. The intercept stays as born: no effect index, no variables.
MCRegrParameter MakeParameter(const std::vector<MCModelEffect>& effects, int effect, const std::vector<int>& levels) {
    MCRegrParameter parameter;
    if (effect < 0 || !parameter.SetupFromEffect(effects[effect], effect, false)) return parameter;
    parameter.GetCategories() = levels;
    return parameter;
}

MCRegrParameterStats MakeStats(const FixedParameter& source) {
    MCRegrParameterStats stats;
    stats.fEstimate = ToSystem(source.fEstimate);
    stats.fRedundant = source.fRedundant;
    stats.fStdError = ToSystem(source.fStdError);
    stats.fLower = ToSystem(source.fLower);
    stats.fUpper = ToSystem(source.fUpper);
    stats.fDF = ToSystem(source.fDf);
    stats.fSig = ToSystem(source.fP);
    stats.fT = ToSystem(source.fT);
    return stats;
}

MCModelTestStats MakeTests(const std::vector<FTestResult>& tests) {
    MCModelTestStats all;
    int row = 0;
    for (const FTestResult& test : tests) {
        MCModelTestStats::Test entry;
        entry.fStats.fDF = ToSystem(test.fDf1);
        entry.fStats.fDF2 = ToSystem(test.fDf2);
        entry.fStats.fWald = ToSystem(test.fF);
        entry.fStats.fSig = ToSystem(test.fP);
        for (Eigen::Index i = 0; i < test.fL.rows(); ++i) {
            const Eigen::VectorXd values = test.fL.row(i);
            entry.fvL.emplace_back(values.begin(), values.end());
            entry.fvRows.push_back(row++);
        }
        all.Add(std::move(entry));
    }
    return all;
}

}  // namespace

MCStatus ConvertStatus(const FitStatus& status) {
    if (status.IsOk()) return {};
    MCStatus converted(status.fCode, !status.IsError());
    if (!status.fDetail.empty()) converted.SetDetail(status.fDetail);
    return converted;
}

GLMMOutputStats MakeOutputStats(const FitResult& fit, const ModelSpec& spec, const GLMMSettings& settings) {
    GLMMOutputStats stats;
    // The engine's effect list starts with the intercept when there is one; the settings' list never holds it.
    const int shift = spec.fIntercept ? 1 : 0;
    const int parameters = static_cast<int>(fit.fFixed.size());
    stats.fKept = MCBitSet(parameters);
    stats.fCovBeta = MCSymMatrix(parameters);
    for (int i = 0; i < parameters; ++i) {
        const FixedParameter& parameter = fit.fFixed[i];
        stats.fvBeta.push_back(MakeParameter(settings.GetModelEffects(), parameter.fEffect - shift, parameter.fLevels));
        stats.fvBetaStats.push_back(MakeStats(parameter));
        stats.fKept.Set(i, !parameter.fRedundant);
        for (int j = 0; j <= i; ++j)
            stats.fCovBeta.SetElem(i, j, ToSystem(fit.fFixedCovariance(i, j)));
    }
    for (std::size_t b = 0; b < fit.fRandomColumns.size(); ++b) {
        const std::vector<MCModelEffect>& effects = settings.GetRandomSpecs()[b].GetEffects();
        auto& block = stats.fvGamma.emplace_back();
        for (const RandomColumn& column : fit.fRandomColumns[b]) {
            block.push_back(MakeParameter(effects, column.fEffect, column.fLevels));
        }
    }
    for (const CovarianceParameter& parameter : fit.fCovariance) {
        if (!parameter.fRedundant) stats.fvTheta.push_back(parameter.fEstimate);
    }
    stats.fMinus2LogLikelihood = ToSystem(fit.fMinus2LogLikelihood);
    stats.fAICC = ToSystem(fit.fAicc);
    stats.fBIC = ToSystem(fit.fBic);
    stats.fTotalFreqWeight = fit.fTotalFrequency;
    (spec.fTypeI ? stats.fTypeI : stats.fTypeIII) = MakeTests(fit.fTests);
    (spec.fTypeI ? stats.fHasTypeI : stats.fHasTypeIII) = true;
    for (const FitStatus& warning : fit.fWarnings)
        stats.fvWarnings.push_back(ConvertStatus(warning));
    return stats;
}

}  // namespace engine

void GLMMOutputStats::Display() const {
    MCDisplay::DisplayText("GLMMOutputStats display start");
    MCDisplay::DisplayDF("-2 log likelihood", fMinus2LogLikelihood);
    MCDisplay::DisplayDF("AICC", fAICC);
    MCDisplay::DisplayDF("BIC", fBIC);
    MCDisplay::DisplayDF("Total frequency weight", fTotalFreqWeight);
    for (std::size_t i = 0; i < fvBeta.size(); ++i) {
        MCDisplay::DisplayI("Effect index", fvBeta[i].GetEffectIndex());
        MCDisplay::DisplayIV("Categories:", fvBeta[i].GetCategories());
        MCDisplay::DisplayDF("Estimate", fvBetaStats[i].fEstimate);
        MCDisplay::DisplayDF("Standard error", fvBetaStats[i].fStdError);
        MCDisplay::DisplayDF("Degrees of freedom", fvBetaStats[i].fDF);
        MCDisplay::DisplayB("Redundant", fvBetaStats[i].fRedundant);
    }
    for (double theta : fvTheta)
        MCDisplay::DisplayDF("Covariance parameter", theta);
    for (const MCStatus& warning : fvWarnings)
        MCDisplay::DisplayI("Warning", warning.GetErrorCode());
    MCDisplay::DisplayText("GLMMOutputStats display end");
}
