#include "scripted/ScriptedEngine.h"

#include <utility>

namespace scripted {

namespace {

Script& Current() {
    static Script script;
    return script;
}

/// All combinations of the factors' category codes, the last factor fastest.
std::vector<std::vector<int>> Combinations(const std::vector<int>& factors, const MCVarList& variables) {
    std::vector<std::vector<int>> all{{}};
    for (const int factor : factors) {
        std::vector<std::vector<int>> longer;
        for (const auto& codes : all) {
            for (int code = 0; code < variables.GetVarAt(factor)->GetCategoryCount(); ++code) {
                longer.push_back(codes);
                longer.back().push_back(code);
            }
        }
        all = std::move(longer);
    }
    return all;
}

/// The parameters of the effects, effect by effect. An intercept among them has no effect index.
std::vector<MCRegrParameter> ParametersOf(const std::vector<MCModelEffect>& effects, const MCVarList& variables) {
    std::vector<MCRegrParameter> parameters;
    for (std::size_t e = 0; e < effects.size(); ++e) {
        for (const std::vector<int>& codes : Combinations(effects[e].GetFactors(), variables)) {
            MCRegrParameter parameter;
            parameter.SetupFromEffect(effects[e], static_cast<int>(e), false);
            parameter.GetCategories() = codes;
            parameters.push_back(parameter);
        }
    }
    return parameters;
}

}  // namespace

Scope::Scope(Script script) {
    Current() = std::move(script);
}

Scope::~Scope() {
    Current() = nullptr;
}

GLMMOutputStats FullResults(const GLMMSettings& settings, const MCVarList& variables) {
    GLMMOutputStats stats;
    const std::vector<MCModelEffect>& effects = settings.GetModelEffects();
    stats.fvBeta = ParametersOf(effects, variables);
    if (settings.GetInterceptUse()) stats.fvBeta.insert(stats.fvBeta.begin(), MCRegrParameter());
    for (const GLMMRandomSpec& block : settings.GetRandomSpecs()) {
        stats.fvGamma.push_back(ParametersOf(block.GetEffects(), variables));
    }
    const int nParams = static_cast<int>(stats.fvBeta.size());
    stats.fvBetaStats.resize(nParams);
    stats.fCovBeta = MCSymMatrix(nParams);
    stats.fKept = MCBitSet(nParams);
    for (int i = 0; i < nParams; ++i) {
        MCRegrParameterStats& figures = stats.fvBetaStats[i];
        figures.fEstimate = i + 1.0;
        figures.fStdError = (i + 1.0) / 10.0;
        figures.fT = 10.0;
        figures.fDF = 10.0;
        figures.fSig = 0.001;
        figures.fLower = i + 0.5;
        figures.fUpper = i + 1.5;
        stats.fCovBeta.SetElem(i, i, figures.fStdError * figures.fStdError);
        stats.fKept.Set(i, true);
    }
    const int nTests = static_cast<int>(effects.size()) + (settings.GetInterceptUse() ? 1 : 0);
    for (int test = 0; test < nTests; ++test) {
        const MCModelTestStats::Test entry{{1.0, 10.0, test + 2.0, 0.05}, {}, {}, MCStatus()};
        stats.fTypeI.Add(entry);
        stats.fTypeIII.Add(entry);
    }
    stats.fHasTypeI = stats.fHasTypeIII = true;
    stats.fMinus2LogLikelihood = 100.0;
    stats.fAICC = 105.0;
    stats.fBIC = 110.0;
    stats.fTotalFreqWeight = 20.0;
    return stats;
}

}  // namespace scripted

struct GLMMAlgorithm::Impl {
    scripted::Outcome fOutcome;
    MCStatus fStatus;
    bool fBuilt = false;
};

GLMMAlgorithm::GLMMAlgorithm(GLMMSettings const& settings, MCVarList const& variables)
    : fpImpl(std::make_unique<Impl>()) {
    if (scripted::Current()) fpImpl->fOutcome = scripted::Current()(settings, variables);
    fpImpl->fStatus = fpImpl->fOutcome.fConstruction;
}

GLMMAlgorithm::~GLMMAlgorithm() = default;

MCStatus GLMMAlgorithm::BuildModel(MultiPassRecordIter& data, MultiPassRecordIter*) {
    while (data.HasMore())
        data.Next();
    fpImpl->fBuilt = !fpImpl->fOutcome.fBuild.IsError();
    fpImpl->fStatus = fpImpl->fBuilt ? fpImpl->fOutcome.fFinal : fpImpl->fOutcome.fBuild;
    return fpImpl->fOutcome.fBuild;
}

const GLMMOutputStats* GLMMAlgorithm::GetOutputStats() const {
    return fpImpl->fBuilt && fpImpl->fOutcome.fHasStats ? &fpImpl->fOutcome.fStats : nullptr;
}

MCStatus GLMMAlgorithm::ExportStatJSON(std::ostream& stream) {
    stream << fpImpl->fOutcome.fStatJSON;
    return fpImpl->fOutcome.fStatJSONStatus;
}

bool GLMMAlgorithm::IsModelBuilt() const {
    return fpImpl->fBuilt;
}

MCStatus GLMMAlgorithm::GetStatus() const {
    return fpImpl->fStatus;
}

std::vector<MCStatus> GLMMAlgorithm::GetWarnings() const {
    return fpImpl->fOutcome.fWarnings;
}

MCStatus GLMMAlgorithm::Score(Record const&, std::vector<double>& scores, std::vector<std::vector<double>>&) {
    scores = fpImpl->fOutcome.fScores;
    return MCStatus();
}

MCStatus GLMMAlgorithm::ExportModel(std::ostream&, MCApplicInfo4XML*) {
    return MCStatus();
}

MCStatus GLMMAlgorithm::ExportStatXML(std::ostream&) {
    return MCStatus();
}

void GLMMAlgorithm::SetProgressListener(ProgressListener*) {}

void GLMMAlgorithm::SetCancelPtr(MCQueryCancel*) {}

void GLMMAlgorithm::Cancel() {}

std::string GLMMAlgorithm::GetComponentVersion() const {
    return "scripted";
}

void GLMMAlgorithm::Display(std::ostream& stream) const {
    stream << "scripted algorithm\n";
}

void GLMMAlgorithm::SetCompScoreTypes(const std::vector<ScoreType>&) {}
