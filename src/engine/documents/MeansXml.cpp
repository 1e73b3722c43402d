#include "engine/documents/MeansXml.h"

#include "engine/documents/DocumentEffect.h"

#include <algorithm>

namespace engine {

namespace {

const char* ContrastWord(run::ContrastKind kind) {
    constexpr const char* kWords[] = {"None", "Pairwise", "Deviation", "Simple"};
    return kWords[static_cast<int>(kind)];
}

const char* ContrastDescription(run::ContrastKind kind) {
    constexpr const char* kDescriptions[] = {"", "pairwiseContrast", "deviationContrast", "simpleContrast"};
    return kDescriptions[static_cast<int>(kind)];
}

const char* AdjustmentWord(PAdjustment adjustment) {
    if (adjustment == PAdjustment::kSequentialBonferroni) return "SEQBONFERRONI";
    return adjustment == PAdjustment::kSequentialSidak ? "SEQSIDAK" : "LSD";
}

std::vector<int> OtherFactors(const MeansRequest& request) {
    std::vector<int> others = request.fFactors;
    others.erase(others.begin() + request.fCompare);
    return others;
}

}  // namespace

void MeansXml::Attribute(const char* name, const std::string& value) const {
    XmlElement(fXml, "Attribute").With("name", name).With("value", value);
}

void MeansXml::Statistic(const char* name, double value) const {
    XmlElement(fXml, "Statistic").With("name", name).With("value", value);
}

/// The reference level of a simple contrast that isn't the last one.
std::string MeansXml::ReferenceText(const MeansRequest& request) const {
    if (request.fContrast != run::ContrastKind::kSimple || request.fCompare < 0 || request.fReference < 0) return {};
    return fNamer.Category(request.fFactors[request.fCompare], request.fReference);
}

void MeansXml::Request(const MeansRequest& request) const {
    const XmlElement value(fXml, "StructuredValue");
    {
        XmlElement attribute(fXml, "Attribute");
        attribute.With("name", "Factors");
        WriteFields(fXml, fNamer, request.fFactors);
    }
    Attribute("EstimateMeans", "true");
    if (request.fCompare >= 0) Attribute("CompareFactor", fNamer.Variable(request.fFactors[request.fCompare]));
    Attribute("ContrastType", ContrastWord(request.fContrast));
    if (request.fContrast != run::ContrastKind::kSimple) return;
    const std::string reference = ReferenceText(request);
    Attribute("ReferenceType", reference.empty() ? "Last" : "Value");
    if (!reference.empty()) Attribute("ReferenceValue", reference);
}

void MeansXml::Settings() const {
    if (fResults.fRequests.empty()) return;
    {
        XmlElement parameter(fXml, "Parameter");
        parameter.With("name", "EMMEANS");
        const XmlElement list(fXml, "ListValue");
        for (const EstimatedMeans& means : fResults.fRequests)
            Request(means.fRequest);
    }
    XmlElement(fXml, "Parameter")
        .With("name", "pAdjustment")
        .With("value", AdjustmentWord(fResults.fRequests.front().fRequest.fAdjustment));
}

void MeansXml::GrandMean() const {
    Statistic("grandMean", fResults.fGrandMean.fEstimate);
    Statistic("grandMeanStdErr", fResults.fGrandMean.fStdError);
    Statistic("grandMeanCILower", fResults.fGrandMean.fLower);
    Statistic("grandMeanCIUpper", fResults.fGrandMean.fUpper);
}

void MeansXml::Groups() const {
    for (const EstimatedMeans& means : fResults.fTop) {
        XmlElement group(fXml, "DataGroup");
        group.With("description", "Emmeans");
        Estimates(means, false);
    }
    for (std::size_t i = 0; i < std::min(fResults.fRequests.size(), kMostMeansGroups); ++i) {
        if (!fResults.fRequests[i].fRequest.fFactors.empty()) Group(fResults.fRequests[i], i);
    }
}

std::vector<std::string> MeansXml::MessageKeys() const {
    if (fResults.fRequests.size() > kMostMeansGroups) return {"kGLMM_C24"};
    return {};
}

void MeansXml::Group(const EstimatedMeans& means, std::size_t index) const {
    XmlElement group(fXml, "DataGroup");
    group.With("description", "customEmmeans");
    HeldAt(means);
    XmlElement(fXml, "Statistic").With("name", "EMMEANSIndex").With("value", static_cast<int>(index));
    Estimates(means, true);
    if (means.WantsContrasts() && !means.fRequest.fReferenceAbsent) {
        Contrasts(means);
        Overall(means);
    }
    Warnings(means);
}

void MeansXml::HeldAt(const EstimatedMeans& means) const {
    if (means.fHeldAt.empty()) return;
    const XmlElement label(fXml, "Label");
    const XmlElement list(fXml, "PrintableList");
    for (const auto& [variable, value] : means.fHeldAt) {
        XmlElement field(fXml, "PrintableList");
        field.With("pattern", fNamer.Variable(variable));
        XmlElement(fXml, "PrintableList").With("pattern", RoundTripText(value));
    }
}

void MeansXml::Texts(int factor, const std::vector<std::string>& texts) const {
    XmlElement coordinates(fXml, "Coordinates");
    coordinates.With("feature", "fields").With("field", fNamer.Variable(factor));
    fXml.Array(texts);
}

void MeansXml::Values(const char* statistic, const std::vector<double>& values) const {
    XmlElement coordinates(fXml, "Coordinates");
    coordinates.With("feature", "statistic").With("statistic", statistic);
    fXml.Array(values);
}

void MeansXml::Estimates(const EstimatedMeans& means, bool described) const {
    XmlElement data(fXml, "MultivariateData");
    if (described) data.With("description", "estimates");
    const std::vector<int>& factors = means.fRequest.fFactors;
    {
        const XmlElement group(fXml, "CoordinatesGroup");
        for (std::size_t f = 0; f < factors.size(); ++f) {
            std::vector<std::string> texts;
            for (const EstimatedMean& mean : means.fMeans)
                texts.push_back(fNamer.Category(factors[f], mean.fLevels[f]));
            Texts(factors[f], texts);
        }
    }
    const auto column = [&](const char* statistic, double ContrastResult::*figure) {
        std::vector<double> values;
        for (const EstimatedMean& mean : means.fMeans)
            values.push_back(mean.fResult.*figure);
        Values(statistic, values);
    };
    column("mean", &ContrastResult::fEstimate);
    column("stdErr", &ContrastResult::fStdError);
    column("confIntervalLower", &ContrastResult::fLower);
    column("confIntervalUpper", &ContrastResult::fUpper);
}

void MeansXml::Contrasts(const EstimatedMeans& means) const {
    XmlElement data(fXml, "MultivariateData");
    data.With("description", "contrasts");
    Statistic("adjustedSigLevel", 1.0 - fConfidence);
    const int compared = means.fRequest.fFactors[means.fRequest.fCompare];
    const std::vector<int> others = OtherFactors(means.fRequest);
    {
        XmlElement group(fXml, "CoordinatesGroup");
        group.With("description", ContrastDescription(means.fRequest.fContrast));
        for (std::size_t f = 0; f < others.size(); ++f) {
            std::vector<std::string> texts;
            for (const MeansContrast& contrast : means.fContrasts)
                texts.push_back(fNamer.Category(others[f], contrast.fAt[f]));
            Texts(others[f], texts);
        }
        std::vector<std::string> first;
        std::vector<std::string> second;
        for (const MeansContrast& contrast : means.fContrasts) {
            first.push_back(fNamer.Category(compared, contrast.fFirst));
            // The mean of all levels has no level of its own.
            second.push_back(contrast.fSecond < 0 ? first.back() : fNamer.Category(compared, contrast.fSecond));
        }
        Texts(compared, first);
        Texts(compared, second);
    }
    const auto column = [&](const char* statistic, double ContrastResult::*figure) {
        std::vector<double> values;
        for (const MeansContrast& contrast : means.fContrasts)
            values.push_back(contrast.fResult.*figure);
        Values(statistic, values);
    };
    column("contrastEstimate", &ContrastResult::fEstimate);
    column("stdErr", &ContrastResult::fStdError);
    column("tTest", &ContrastResult::fT);
    column("df", &ContrastResult::fDf);
    std::vector<double> adjusted;
    for (const MeansContrast& contrast : means.fContrasts)
        adjusted.push_back(contrast.fAdjustedP);
    Values("adjustedSig", adjusted);
    column("confIntervalLower", &ContrastResult::fLower);
    column("confIntervalUpper", &ContrastResult::fUpper);
}

void MeansXml::Overall(const EstimatedMeans& means) const {
    const std::vector<int> others = OtherFactors(means.fRequest);
    int number = 0;
    for (const OverallTest& test : means.fOverall) {
        XmlElement stats(fXml, "ModelTestStats");
        stats.With("testID", number++);
        WriteSegment(fXml, fNamer, others, test.fAt);
        XmlElement(fXml, "FTest")
            .With("fStatistic", test.fTest.fF)
            .With("sig", test.fTest.fP)
            .With("df1", test.fTest.fEstimable ? test.fTest.fDf1 : kMissing)
            .With("df2", test.fTest.fDf2);
    }
}

void MeansXml::Warnings(const EstimatedMeans& means) const {
    const MeansRequest& request = means.fRequest;
    if (means.fOneLevel) Message("kGLMM_C19_1", fNamer.Variable(request.fFactors[request.fCompare]));
    if (!means.AllEstimable()) Message("kGLMM_C20", {});
    if (request.fReferenceAbsent) Message("kGLMM_C25", {});
}

void MeansXml::Message(const char* key, const std::string& parameter) const {
    const XmlElement message(fXml, "Message");
    XmlElement list(fXml, "PrintableList");
    list.With("pattern", key).With("isKey", true);
    if (!parameter.empty()) XmlElement(fXml, "PrintableValue").With("storage", "string").With("value", parameter);
}

}  // namespace engine
