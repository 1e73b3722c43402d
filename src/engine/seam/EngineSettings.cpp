#include "contracts/EngineSettings.h"

#include "contracts/EngineDisplay.h"
#include "engine/seam/ModelBuilder.h"

MCRegModelType GLMMSettings::GetModelType() const {
    return 0;
}

bool GLMMSettings::IsValidSettings(bool complete) const {
    const bool hasTerms = GetInterceptUse() || !GetModelEffects().empty() || !fvRandomSpecs.empty();
    return GetDependent() >= 0 && (!complete || hasTerms);
}

int GLMMSettings::GetSortDataVariables(std::vector<int>& variables) const {
    variables = engine::SortVariables(engine::BuildModelSpec(*this, nullptr, nullptr));
    return static_cast<int>(variables.size());
}

void GLMMSettings::Display(std::ostream& stream) const {
    std::ostream* saved = MCDisplay::GetOutStream();
    MCDisplay::SetOutStream(&stream);
    Display();
    MCDisplay::SetOutStream(saved);
}

void GLMMSettings::Display() const {
    MCDisplay::DisplayText("GLMMSettings display start");
    MCDisplay::DisplayI("Dependent variable", GetDependent());
    for (const auto& [variable, levels] : GetFactors()) {
        MCDisplay::DisplayI("Factor", variable);
        MCDisplay::DisplayI("Number of levels", levels);
    }
    MCDisplay::DisplayIV("Covariates:", GetCovariates());
    MCDisplay::DisplayB("Intercept", GetInterceptUse());
    for (const MCModelEffect& effect : GetModelEffects())
        effect.Display();
    MCDisplay::DisplayI("Frequency weight variable", GetFrequencyWeightVar());
    MCDisplay::DisplayI("Regression weight variable", GetRegrWeightVar());
    for (const GLMMRandomSpec& block : fvRandomSpecs)
        block.Display();
    fRepeated.Display();
    fKronecker.Display();
    MCDisplay::DisplayIV("Spatial variables:", fvSpatialVars);
    for (const MCEmmeansSpec& request : GetEmmeans())
        request.Display();
    MCDisplay::DisplayCThetaEstType("Theta estimation type", fThetaEstType);
    MCDisplay::DisplayCDegreesFreedomType("Degrees of freedom", fDFType);
    MCDisplay::DisplayCEffectAnalysisType("Analysis type", GetEffectAnalysisType());
    MCDisplay::DisplayCHessianCompMethod("Estimation method", GetHessianCompMethod());
    MCDisplay::DisplayI("Maximum Fisher iterations", fMaxFisher);
    MCDisplay::DisplayI("Maximum iterations", GetMaxIterations());
    MCDisplay::DisplayI("Maximum step halvings", GetMaxStepHalvingValue());
    MCDisplay::DisplayDF("Singularity tolerance", GetTolerance());
    MCDisplay::DisplayDF("Confidence level", GetConfidenceLevel());
    MCDisplay::DisplayCConvType("Hessian convergence type", GetHConvergeType());
    MCDisplay::DisplayDF("Hessian convergence criterion", GetToleranceHessian());
    MCDisplay::DisplayCConvType("Log-likelihood convergence type", GetLConvergeType());
    MCDisplay::DisplayDF("Log-likelihood convergence criterion", GetLLConCriterion());
    MCDisplay::DisplayCConvType("Parameter convergence type", GetPConvergeType());
    MCDisplay::DisplayDF("Parameter convergence criterion", GetParamEstConCriterion());
    for (ScoreType type : fvScoringTypes)
        MCDisplay::DisplayCScoreType("Score type", type);
    MCDisplay::DisplayText("GLMMSettings display end");
}
