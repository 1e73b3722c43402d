#include "results/HRFTParseOutXML.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <string_view>

namespace {

/// Position of a word in a list of words, which is its code; the size, which is "anything else", for no such word.
template <std::size_t N>
int CodeOf(const std::array<std::string_view, N>& words, const std::string& word) {
    return static_cast<int>(std::find(words.begin(), words.end(), word) - words.begin());
}

constexpr std::array<std::string_view, 8> kDistributionWords{"BINOMIAL", "GAMMA",  "IGAUSS", "NOMINAL",
                                                             "ORDINAL",  "NEGBIN", "NORMAL", "POISSON"};
constexpr std::array<std::string_view, 9> kLinkWords{"CLOGLOG", "IDENTITY", "LOG",    "LOGC",   "LOGIT",
                                                     "NLOGLOG", "POWER",    "PROBIT", "CAUCHIT"};
constexpr std::array<std::string_view, 19> kCovarianceWords{
    "VC",    "AR1",    "ARH1",  "ARMA11", "CS",    "CSH",   "DIAG",  "ID",       "TP",   "UN",
    "UN_UN", "UN_AR1", "UN_CS", "SPPOW",  "SPEXP", "SPGAU", "SPLIN", "SPLINLOG", "SPSPH"};
constexpr std::array<std::string_view, 3> kAdjustmentWords{"LSD", "SEQBONFERRONI", "SEQSIDAK"};
constexpr std::array<std::string_view, 4> kContrastWords{"Pairwise", "Deviation", "Simple", "None"};
constexpr std::array<std::string_view, 2> kReferenceWords{"Last", "Value"};

constexpr int kDefaultBand = 2;

int IntegerOr(const std::string& text, int absent) {
    return text.empty() ? absent : String2Integer(text);
}

/// A real number cut to 32 bits; what lies beyond them is the lowest integer.
int Truncate(double value) {
    return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

bool IsTrue(const std::string& text) {
    return text == "true";
}

}  // namespace

int HRFTParseOutXML::FieldIndex(const std::string& name) const {
    return fpDataSource->FindVarIndex(name.c_str(), 0);
}

bool HRFTParseOutXML::ReadBuildSettings(const SDOMXMLWrapper& element) {
    *fpBuildSettings = [algorithm = fpBuildSettings->fAlgorithmName] {
        BuildSettings fresh;
        fresh.fAlgorithmName = algorithm;
        return fresh;
    }();
    if (!ForEach(element, "Parameter", false, [this](const SDOMXMLWrapper& p) { return ReadBuildParameter(p); }))
        return false;
    SettleKronecker();
    return true;
}

bool HRFTParseOutXML::ReadBuildParameter(const SDOMXMLWrapper& parameter) {
    using Action = std::function<bool(HRFTParseOutXML&, BuildSettings&, const SDOMXMLWrapper&, const std::string&)>;
    /// Reads the first child of the name, if there is one, by a reader.
    static constexpr auto Child = [](const SDOMXMLWrapper& from, const char* name, const Reader& reader) {
        SDOMXMLWrapper child;
        return !from.GetFirstElement(name, child, true) || reader(child);
    };
    static const std::map<std::string_view, Action> kActions{
        {"TargetField",
         [](auto& self, auto& settings, auto&, auto& value) {
             settings.fTargetName = value;
             settings.fTargetIndex = self.FieldIndex(value);
             return settings.fTargetIndex >= 0;
         }},
        {"UseTrials",
         [](auto&, auto& settings, auto&, auto& value) { return settings.fUseTrials = IsTrue(value), true; }},
        {"TrialsField",
         [](auto& self, auto& settings, auto&, auto& value) {
             settings.fTrialsName = value;
             settings.fTrialsIndex = self.FieldIndex(value);
             return settings.fTrialsIndex >= 0;
         }},
        {"TrialsValue", [](auto& self, auto& settings, auto&,
                           auto& value) { return settings.fTrialsValue = Truncate(self.RealOf(value)), true; }},
        {"DistributionOfTarget",
         [](auto&, auto& settings, auto&, auto& value) {
             settings.fDistributionName = value;
             settings.fDistribution = CodeOf(kDistributionWords, value);
             return true;
         }},
        {"LinkFunctionType",
         [](auto&, auto& settings, auto&, auto& value) {
             settings.fLinkName = value;
             settings.fLink = CodeOf(kLinkWords, value);
             return true;
         }},
        {"LinkFunctionParam",
         [](auto& self, auto& settings, auto&, auto& value) {
             settings.fLinkParamText = value;
             settings.fLinkParam = self.RealOf(value);
             return true;
         }},
        {"Intercept",
         [](auto&, auto& settings, auto&, auto& value) { return settings.fIntercept = IsTrue(value), true; }},
        {"ResidualCovarianceType",
         [](auto&, auto& settings, auto&, auto& value) {
             settings.fResidualCovType = CodeOf(kCovarianceWords, value);
             return true;
         }},
        {"ResidualCovarianceTBand",
         [](auto&, auto& settings, auto&, auto& value) {
             settings.fResidualCovTBand = IntegerOr(value, kDefaultBand);
             return true;
         }},
        {"ResidualSubjectSpec",
         [](auto& self, auto& settings, auto& element, auto&) {
             return Child(element, "StructuredValue", [&](const SDOMXMLWrapper& child) {
                 return self.ReadEffect(child, settings.fResidualSubject);
             });
         }},
        {"ResidualGroupSpec",
         [](auto& self, auto& settings, auto& element, auto&) {
             return Child(element, "ListValue", [&](const SDOMXMLWrapper& child) {
                 return self.ReadNameList(child, settings.fvResidualGroup);
             });
         }},
        {"RepeatedMeasure",
         [](auto& self, auto& settings, auto& element, auto&) {
             return Child(element, "StructuredValue", [&](const SDOMXMLWrapper& child) {
                 return self.ReadEffect(child, settings.fRepeatedMeasure);
             });
         }},
        {"KroneckerMeasure",
         [](auto& self, auto& settings, auto& element, auto&) {
             return Child(element, "StructuredValue", [&](const SDOMXMLWrapper& child) {
                 return self.ReadEffect(child, settings.fKroneckerMeasure);
             });
         }},
        {"CIn", [](auto& self, auto& settings, auto&,
                   auto& value) { return settings.fConfidenceLevel = self.RealOf(value), true; }},
        {"FixedEffectList",
         [](auto& self, auto& settings, auto& element, auto&) {
             return Child(element, "ListValue", [&](const SDOMXMLWrapper& child) {
                 return self.ReadEffectList(child, settings.fvFixedEffectList);
             });
         }},
        {"RandomSpecs", [](auto& self, auto&, auto& element, auto&) { return self.ReadRandomSpecs(element); }},
        {"EMMEANS", [](auto& self, auto&, auto& element, auto&) { return self.ReadEMMeansSpecs(element); }},
        {"pAdjustment", [](auto&, auto& settings, auto&,
                           auto& value) { return settings.fPAdjustment = CodeOf(kAdjustmentWords, value), true; }},
    };
    std::string name;
    std::string value;
    if (!parameter.GetAttribute("name", name)) return false;
    parameter.GetAttribute("value", value);
    const auto action = kActions.find(name);
    return action == kActions.end() || action->second(*this, *fpBuildSettings, parameter, value);
}

/// A Kronecker type without its two measure lists degrades to unstructured.
void HRFTParseOutXML::SettleKronecker() {
    BuildSettings& settings = *fpBuildSettings;
    if (settings.fResidualCovType < kUN_UN || settings.fResidualCovType > kUN_CS) return;
    settings.fKronecker =
        !settings.fRepeatedMeasure.fvFieldIndices.empty() && !settings.fKroneckerMeasure.fvFieldIndices.empty();
    if (!settings.fKronecker) settings.fResidualCovType = kUN;
}

bool HRFTParseOutXML::ReadEffect(const SDOMXMLWrapper& structured, EffectStruct& effect) {
    SDOMXMLIterator attributes;
    if (!structured.GetElementIterator("Attribute", attributes, true)) return false;
    bool result = true;
    SDOMXMLWrapper attribute;
    while (attributes.Next(attribute)) {
        std::string name;
        attribute.GetAttribute("name", name);
        SDOMXMLWrapper list;
        result = attribute.GetFirstElement("ListValue", list, true);
        if (!result) continue;  // the verdict is that of the last attribute
        const bool known = ForEach(list, "Value", true, [&](const SDOMXMLWrapper& element) {
            std::string value;
            element.GetAttribute("value", value);
            if (name == "NestingLevels") effect.fvNestingLevels.push_back(IntegerOr(value, 0));
            if (name != "Fields") return true;
            effect.fvFieldNames.push_back(value);
            const int index = FieldIndex(value);
            if (index < 0) return false;
            effect.fvFieldIndices.push_back(index);
            return true;
        });
        if (!known) return false;
    }
    return result;
}

bool HRFTParseOutXML::ReadEffectList(const SDOMXMLWrapper& list, std::vector<EffectStruct>& effects) {
    return ForEach(list, "StructuredValue", true, [&](const SDOMXMLWrapper& element) {
        EffectStruct effect;
        if (!ReadEffect(element, effect)) return false;
        effects.push_back(std::move(effect));
        return true;
    });
}

bool HRFTParseOutXML::ReadNameList(const SDOMXMLWrapper& list, std::vector<std::string>& names) {
    return ForEach(list, "Value", true, [&](const SDOMXMLWrapper& element) {
        element.GetAttribute("value", names.emplace_back());
        return true;
    });
}

bool HRFTParseOutXML::ReadRandomSpecs(const SDOMXMLWrapper& parameter) {
    SDOMXMLWrapper list;
    if (!parameter.GetFirstElement("ListValue", list, true)) return false;
    return ForEach(list, "StructuredValue", true, [&](const SDOMXMLWrapper& element) {
        RandomSpec spec;
        if (!ReadRandomSpec(element, spec)) return false;
        fpBuildSettings->fvRandomSpecs.push_back(std::move(spec));
        return true;
    });
}

bool HRFTParseOutXML::ReadRandomSpec(const SDOMXMLWrapper& structured, RandomSpec& spec) {
    return ForEach(structured, "Attribute", false,
                   [&](const SDOMXMLWrapper& attribute) { return ReadRandomAttribute(attribute, spec); });
}

bool HRFTParseOutXML::ReadRandomAttribute(const SDOMXMLWrapper& attribute, RandomSpec& spec) {
    std::string name;
    std::string value;
    attribute.GetAttribute("name", name);
    attribute.GetAttribute("value", value);
    SDOMXMLWrapper child;
    if (name == "EffectList") {
        return !attribute.GetFirstElement("ListValue", child, true) || ReadEffectList(child, spec.fvEffectList);
    }
    if (name == "SubjectSpec") {
        return !attribute.GetFirstElement("StructuredValue", child, true) || ReadEffect(child, spec.fSubject);
    }
    if (name == "GroupSpec") {
        return !attribute.GetFirstElement("ListValue", child, true) || ReadNameList(child, spec.fvGroup);
    }
    if (name == "Intercept") spec.fIntercept = IsTrue(value);
    if (name == "CovarianceType") spec.fCovType = CodeOf(kCovarianceWords, value);
    if (name == "CovarianceTBand") spec.fCovTBand = IntegerOr(value, kDefaultBand);
    return true;
}

bool HRFTParseOutXML::ReadEMMeansSpecs(const SDOMXMLWrapper& parameter) {
    SDOMXMLWrapper list;
    if (!parameter.GetFirstElement("ListValue", list, true)) return false;
    return ForEach(list, "StructuredValue", true, [&](const SDOMXMLWrapper& element) {
        EMMeansSpec spec;
        if (!ReadEMMeansSpec(element, spec)) return false;
        fpBuildSettings->fvEMMeansSpecs.push_back(std::move(spec));
        return true;
    });
}

bool HRFTParseOutXML::ReadEMMeansSpec(const SDOMXMLWrapper& structured, EMMeansSpec& spec) {
    return ForEach(structured, "Attribute", true, [&](const SDOMXMLWrapper& attribute) {
        std::string name;
        std::string value;
        attribute.GetAttribute("name", name);
        attribute.GetAttribute("value", value);
        SDOMXMLWrapper child;
        if (name == "Factors" && attribute.GetFirstElement("StructuredValue", child, true)) {
            return ReadEffect(child, spec.fFactors);
        }
        if (name == "EstimateMeans") spec.fEstimateMeans = IsTrue(value);
        if (name == "CompareFactor") spec.fCompareFactor = value;
        if (name == "ContrastType") spec.fContrastType = CodeOf(kContrastWords, value);
        if (name == "ReferenceType") spec.fReferenceType = CodeOf(kReferenceWords, value);
        if (name == "ReferenceValue") spec.fReferenceValue = value;
        return true;
    });
}

bool HRFTParseOutXML::ReadStringMaps(const SDOMXMLWrapper& model) {
    return ForEach(model, "StringMap", false, [&](const SDOMXMLWrapper& element) {
        StringMap map;
        std::string id;
        element.GetAttribute("mapId", id);
        map.fMapId = IntegerOr(id, -1);
        const bool result = ReadMapEntries(element, map);
        fpOutputStats->GetStringMapCollect()->push_back(std::move(map));
        return result;
    });
}

/// The verdict is that of the last entry; the entries that could be read are kept whatever the others did.
bool HRFTParseOutXML::ReadMapEntries(const SDOMXMLWrapper& element, StringMap& map) {
    SDOMXMLIterator entries;
    if (!element.GetElementIterator("MapEntry", entries, true)) return true;
    bool result = true;
    SDOMXMLWrapper entry;
    while (entries.Next(entry)) {
        MapEntryData data;
        entry.GetAttribute("name", data.fName);
        SDOMXMLWrapper parameter;
        result = entry.GetFirstElement("Label/RegressionParameter", parameter, true) &&
                 ReadRegressionParameter(parameter, data.fParam);
        if (result) map.fvEntries.push_back(std::move(data));
    }
    return result;
}

bool HRFTParseOutXML::ReadSegmentInfo(const SDOMXMLWrapper& segment, SubjectData& data) {
    return ForEach(segment, "FieldInfo", true, [&](const SDOMXMLWrapper& info) {
        std::string name;
        std::string text;
        if (!info.GetAttribute("fieldName", name) || !info.GetAttribute("fieldValue", text)) return false;
        const int index = FieldIndex(name);
        if (index < 0) return false;
        CFStatVariableValue value(text);
        if (!value.LoadObsValue(fpDataSource->GetVariable(index), 0)) return false;
        const VarMapInfo& map = fpOutputStats->GetVarMapInfo();
        const int entry = index < static_cast<int>(map.fvFieldToVarList.size()) ? map.fvFieldToVarList[index] : -1;
        if (entry < 0 || !map.fvbCategorical[entry]) return false;
        data.fvFieldNames.push_back(name);
        data.fvFieldIndices.push_back(index);
        data.fSubjectValues.push_back(std::move(value));
        data.fvCategoryCounts.push_back(map.fvCategoryCount[entry]);
        return true;
    });
}

bool HRFTParseOutXML::ReadPrintableList(const SDOMXMLWrapper& element, PrintableList& list) {
    std::string isKey;
    std::string mapId;
    element.GetAttribute("pattern", list.fPattern);
    element.GetAttribute("isKey", isKey);
    element.GetAttribute("mapId", mapId);
    list.fIsKey = IsTrue(isKey);
    list.fMapId = IntegerOr(mapId, -1);
    const bool nested = ForEach(element, "PrintableList", true, [&](const SDOMXMLWrapper& child) {
        return ReadPrintableList(child, list.fvLists.emplace_back());
    });
    if (!nested) return false;
    return ForEach(element, "PrintableValue", true, [&](const SDOMXMLWrapper& child) {
        static constexpr std::array<std::string_view, 6> kStorageWords{"integer", "real", "string",
                                                                       "date",    "time", "timestamp"};
        PrintableValue value;
        std::string storage;
        std::string isNull;
        if (!child.GetAttribute("storage", storage) || !child.GetAttribute("value", value.fValue)) return false;
        const int code = CodeOf(kStorageWords, storage);
        value.fStorage = code == static_cast<int>(kStorageWords.size()) ? kUnknownStorage : code + 1;
        child.GetAttribute("isNull", isNull);
        value.fIsNull = IsTrue(isNull);
        child.GetAttribute("label", value.fLabel);
        list.fvValues.push_back(std::move(value));
        return true;
    });
}

bool HRFTParseOutXML::ReadMessages(const SDOMXMLWrapper& parent, std::vector<WarningInfo>& warnings) {
    return ForEach(parent, "Message", true, [&](const SDOMXMLWrapper& message) {
        SDOMXMLWrapper list;
        WarningInfo warning;
        if (!message.GetFirstElement("PrintableList", list, true) || !list.GetAttribute("pattern", warning.fMessage))
            return false;
        if (warning.fMessage.empty()) return true;
        ForEach(list, "PrintableValue", true, [&](const SDOMXMLWrapper& child) {
            std::string value;
            if (child.GetAttribute("value", value) && !value.empty()) warning.fWarningParameters.push_back(value);
            return true;
        });
        warnings.push_back(std::move(warning));
        return true;
    });
}
