#include "results/HRFTParseOutXML.h"

#include <array>
#include <utility>

namespace {

/// Blocks beyond this number are a broken document, not a model.
constexpr int kMostBlocks = 10000;

int IntegerOrZero(const std::string& text) {
    return text.empty() ? 0 : String2Integer(text);
}

}  // namespace

bool HRFTParseOutXML::ReadParameterEstimates(const SDOMXMLWrapper& training) {
    return ForEach(training, "ParameterEstimates", false, [this](const SDOMXMLWrapper& element) {
        return ReadParamEstim(element, *fpOutputStats->GetParamCollect());
    });
}

bool HRFTParseOutXML::ReadParamEstim(const SDOMXMLWrapper& element, ParamCollect& collect) {
    std::string type;
    std::string blockText;
    if (!element.GetAttribute("parameterType", type)) return false;
    element.GetAttribute("block", blockText);
    const int block = IntegerOrZero(blockText);

    ParamEstimData data;
    SDOMXMLWrapper segment;
    if (type == "fixed") {
        SDOMXMLWrapper field;
        std::string value;
        if (element.GetFirstElement("SegmentInfo/FieldInfo", field, true)) {
            if (!field.GetAttribute("fieldValue", value) || !LoadTargetValue(value, data.fTargetCategory)) return false;
        }
    } else if (element.GetFirstElement("SegmentInfo", segment, true) && !ReadSegmentInfo(segment, data.fFiledData)) {
        return false;
    }
    SDOMXMLWrapper statistic;
    if (type == "repeated" && element.GetFirstElement("Statistic", statistic, true)) {
        std::string name;
        std::string value;
        if (!statistic.GetAttribute("name", name) || name != "NumUNParam") return false;
        if (!statistic.GetAttribute("value", value)) return false;
        data.fNumUNParam = IntegerOrZero(value);
    }
    const bool read = ForEach(element, "ParameterStats", false, [&](const SDOMXMLWrapper& stats) {
        return ReadParameterStats(stats, data.fvParameterStats.emplace_back());
    });
    if (!read) return false;

    if (type == "fixed") collect.fvFixedParamEstim.push_back(std::move(data));
    if (type == "repeated") collect.fvRepeatedParamEstim.push_back(std::move(data));
    if (type != "random") return true;
    if (block < 0 || block >= kMostBlocks) return false;
    while (static_cast<int>(collect.fvRandomParamEstim.size()) <= block)
        collect.fvRandomParamEstim.push_back({block, {}});
    collect.fvRandomParamEstim[block].fvParamEstim.push_back(std::move(data));
    return true;
}

bool HRFTParseOutXML::ReadParameterStats(const SDOMXMLWrapper& element, ParameterStatsData& stats) {
    static constexpr std::array<std::pair<const char*, double ParameterStatsData::*>, 12> kNumbers{{
        {"estimate", &ParameterStatsData::fEstimate},
        {"stdError", &ParameterStatsData::fStdError},
        {"df", &ParameterStatsData::fDf},
        {"confIntervalLower", &ParameterStatsData::fConfIntervalLower},
        {"confIntervalUpper", &ParameterStatsData::fConfIntervalUpper},
        {"tTest", &ParameterStatsData::fTTest},
        {"zTest", &ParameterStatsData::fZTest},
        {"sig", &ParameterStatsData::fSig},
        {"chiSquare", &ParameterStatsData::fChiSquare},
        {"expEstimate", &ParameterStatsData::fExpEstimate},
        {"expCILower", &ParameterStatsData::fExpCILower},
        {"expCIUpper", &ParameterStatsData::fExpCIUpper},
    }};
    SDOMXMLWrapper child;
    if (element.GetFirstElement("RegressionParameter", child, true) &&
        !ReadRegressionParameter(child, stats.fRegrParam)) {
        return false;
    }
    if (element.GetFirstElement("Statistic", child, true)) {
        if (stats.fRegrParam.fIsIntercept) return false;  // an intercept can't carry a statistic
        if (!child.GetAttribute("name", stats.fStatisticName)) return false;
        if (!child.GetAttribute("value", stats.fStatisticValue)) return false;
        stats.fStatisticInt = String2Integer(stats.fStatisticValue);
    }
    if (element.GetFirstElement("PrintableList", child, true) && !ReadPrintableList(child, stats.fPrintableList))
        return false;
    if (!element.GetAttribute("paramName", stats.fParamName) || !element.GetAttribute("paramLabel", stats.fParamLabel))
        return false;
    for (const auto& [name, field] : kNumbers) {
        if (!RequiredReal(element, name, stats.*field)) return false;
    }
    std::string redundant;
    if (!element.GetAttribute("isRedundant", redundant)) return false;
    stats.fIsRedundant = redundant == "true";
    return true;
}

bool HRFTParseOutXML::ReadRegressionParameter(const SDOMXMLWrapper& element, RegrParamInfo& param) {
    std::string intercept;
    if (!element.GetAttribute("isIntercept", intercept) || !element.GetAttribute("name", param.fName)) return false;
    param.fIsIntercept = intercept == "true";
    if (param.fIsIntercept) return true;
    const bool covariates = ForEach(element, "Covariate", true, [&](const SDOMXMLWrapper& child) {
        CovariateTerm term;
        std::string power;
        if (!child.GetAttribute("field", term.fField) || !child.GetAttribute("power", power)) return false;
        term.fVarIndex = FieldIndex(term.fField);
        term.fPower = IntegerOrZero(power);
        param.fvCovariates.push_back(std::move(term));
        return true;
    });
    if (!covariates) return false;
    return ForEach(element, "Factor", true, [&](const SDOMXMLWrapper& child) {
        FactorTerm term;
        std::string value;
        std::string nest;
        if (!child.GetAttribute("field", term.fField)) return false;
        term.fVarIndex = FieldIndex(term.fField);
        child.GetAttribute("value", value);
        child.GetAttribute("nest", nest);
        term.fNest = nest == "true";
        term.fValue.SetStringValue(value);
        // A field that the data lacks has no variable to load against.
        if (term.fVarIndex < 0 || !term.fValue.LoadObsValue(fpDataSource->GetVariable(term.fVarIndex), 0)) return false;
        param.fvFactors.push_back(std::move(term));
        return true;
    });
}
