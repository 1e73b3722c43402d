#include "results/HRFTParseOutXML.h"

#include <map>
#include <string_view>

bool HRFTParseOutXML::ReadDataGroups(const SDOMXMLWrapper& diagnostics) {
    return ForEach(diagnostics, "DataGroup", true, [&](const SDOMXMLWrapper& group) {
        std::string description;
        group.GetAttribute("description", description);
        if (description == "Emmeans") {
            if (!fpOutputStats->GetEmmeansEstimates()) fpOutputStats->NewEmmeansEstimates();
            SDOMXMLWrapper data;
            EmmeansEstimates estimates;
            if (!group.GetFirstElement("MultivariateData", data, true) || !ReadEmmeansEstimates(data, estimates))
                return false;
            fpOutputStats->GetEmmeansEstimates()->push_back(std::move(estimates));
        }
        if (description == "customEmmeans") {
            if (!fpOutputStats->GetEmmeansData()) fpOutputStats->NewEmmeansData();
            EmmeansData data;
            if (!ReadEmmeansData(group, data)) return false;
            fpOutputStats->GetEmmeansData()->push_back(std::move(data));
        }
        return true;
    });
}

bool HRFTParseOutXML::ReadCoordinates(const SDOMXMLWrapper& element, CoordinatesData& data) {
    static const std::map<std::string_view, int> kFeatures{
        {"observed", kObserved}, {"frequency", kFrequency}, {"statistic", kStatistic}, {"fields", kFields}};
    std::string feature;
    element.GetAttribute("feature", feature);
    const auto known = kFeatures.find(feature);
    data.fFeature = known == kFeatures.end() ? kUnknownFeature : known->second;
    element.GetAttribute("field", data.fField);
    element.GetAttribute("statistic", data.fStatistic);
    SDOMXMLWrapper array;
    return element.GetFirstElement("Array", array, true) && array.GetSimpleArray(data.fvValues);
}

/// A failure here only cuts the list of axes short.
void HRFTParseOutXML::ReadCoordinatesGroup(const SDOMXMLWrapper& group, std::vector<CoordinatesData>& axes) {
    ForEach(group, "Coordinates", true, [&](const SDOMXMLWrapper& element) {
        CoordinatesData data;
        if (!ReadCoordinates(element, data)) return false;
        axes.push_back(std::move(data));
        return true;
    });
}

bool HRFTParseOutXML::ReadEmmeansEstimates(const SDOMXMLWrapper& multivariate, EmmeansEstimates& target) {
    static const std::map<std::string_view, CoordinatesData EmmeansEstimates::*> kStatistics{
        {"mean", &EmmeansEstimates::fMean},
        {"stdErr", &EmmeansEstimates::fStdErr},
        {"confIntervalLower", &EmmeansEstimates::fConfIntervalLower},
        {"confIntervalUpper", &EmmeansEstimates::fConfIntervalUpper}};
    SDOMXMLWrapper group;
    if (multivariate.GetFirstElement("CoordinatesGroup", group, true))
        ReadCoordinatesGroup(group, target.fvCoordinates);
    return ForEach(multivariate, "Coordinates", false, [&](const SDOMXMLWrapper& element) {
        CoordinatesData data;
        if (!ReadCoordinates(element, data)) return false;
        const auto known = kStatistics.find(data.fStatistic);
        if (known != kStatistics.end()) target.*(known->second) = std::move(data);
        return true;
    });
}

bool HRFTParseOutXML::ReadEmmeansContrasts(const SDOMXMLWrapper& multivariate, EmmeansContrasts& target) {
    static const std::map<std::string_view, int> kKinds{
        {"pairwiseContrast", kPairwise}, {"deviationContrast", kDeviation}, {"simpleContrast", kSimple}};
    static const std::map<std::string_view, CoordinatesData EmmeansContrasts::*> kStatistics{
        {"contrastEstimate", &EmmeansContrasts::fContrastEstimate},
        {"stdErr", &EmmeansContrasts::fStdErr},
        {"tTest", &EmmeansContrasts::fTTest},
        {"df", &EmmeansContrasts::fDf},
        {"adjustedSig", &EmmeansContrasts::fAdjustedSig},
        {"confIntervalLower", &EmmeansContrasts::fConfIntervalLower},
        {"confIntervalUpper", &EmmeansContrasts::fConfIntervalUpper}};
    SDOMXMLWrapper statistic;
    if (multivariate.GetFirstElement("Statistic", statistic, true)) {
        std::string name;
        statistic.GetAttribute("name", name);
        if (name == "adjustedSigLevel") target.fAdjustedSigLevel = Real(statistic, "value");
    }
    SDOMXMLWrapper group;
    if (multivariate.GetFirstElement("CoordinatesGroup", group, true)) {
        std::string description;
        group.GetAttribute("description", description);
        const auto kind = kKinds.find(description);
        target.fContrastKind = kind == kKinds.end() ? static_cast<int>(kUnknownKind) : kind->second;
        ReadCoordinatesGroup(group, target.fvCoordinates);
    }
    return ForEach(multivariate, "Coordinates", false, [&](const SDOMXMLWrapper& element) {
        CoordinatesData data;
        if (!ReadCoordinates(element, data)) return false;
        const auto known = kStatistics.find(data.fStatistic);
        if (known != kStatistics.end()) target.*(known->second) = std::move(data);
        return true;
    });
}

bool HRFTParseOutXML::ReadEmmeansData(const SDOMXMLWrapper& group, EmmeansData& target) {
    if (!ReadEmmeansLabels(group, target)) return false;
    SDOMXMLWrapper statistic;
    if (group.GetFirstElement("Statistic", statistic, true)) {
        std::string name;
        std::string value;
        if (!statistic.GetAttribute("name", name) || !statistic.GetAttribute("value", value)) return false;
        if (name == "EMMEANSIndex") target.fEmmeansIndex = value.empty() ? -1 : String2Integer(value);
    }
    const bool data = ForEach(group, "MultivariateData", false, [&](const SDOMXMLWrapper& element) {
        std::string description;
        if (!element.GetAttribute("description", description)) return false;
        if (description == "estimates") return ReadEmmeansEstimates(element, target.fEstimates);
        return description != "contrasts" || ReadEmmeansContrasts(element, target.fContrasts);
    });
    if (!data) return false;
    const bool tests = ForEach(group, "ModelTestStats", true, [&](const SDOMXMLWrapper& element) {
        EmmeansOverallTest test;
        if (!ReadOverallTest(element, test)) return false;
        target.fvOverallTests.push_back(std::move(test));
        return true;
    });
    return tests && ReadMessages(group, target.fvWarningList);
}

bool HRFTParseOutXML::ReadEmmeansLabels(const SDOMXMLWrapper& group, EmmeansData& target) {
    SDOMXMLWrapper list;
    if (!group.GetFirstElement("Label/PrintableList", list, true)) return true;
    return ForEach(list, "PrintableList", false, [&](const SDOMXMLWrapper& element) {
        EmmeansLabel label;
        SDOMXMLWrapper nested;
        std::string text;
        if (!element.GetAttribute("pattern", label.fPattern)) return false;
        if (!element.GetFirstElement("PrintableList", nested, true) || !nested.GetAttribute("pattern", text))
            return false;
        const int index = FieldIndex(label.fPattern);
        if (index < 0 || !label.fValue.SetCompleteValue(text, fpDataSource->GetVariable(index), 0)) return false;
        target.fvLabels.push_back(std::move(label));
        return true;
    });
}

bool HRFTParseOutXML::ReadOverallTest(const SDOMXMLWrapper& element, EmmeansOverallTest& target) {
    std::string id;
    element.GetAttribute("testID", id);
    target.fTestID = id.empty() ? -1 : String2Integer(id);
    SDOMXMLWrapper segment;
    if (element.GetFirstElement("SegmentInfo", segment, true) && !ReadSegmentInfo(segment, target.fSegment))
        return false;
    SDOMXMLWrapper test;
    return element.GetFirstElement("FTest", test, true) && RequiredReal(test, "fStatistic", target.fFStatistic) &&
           RequiredReal(test, "sig", target.fSig) && RequiredReal(test, "df1", target.fDf1) &&
           RequiredReal(test, "df2", target.fDf2);
}
