#pragma once

#include "engine/documents/XmlWriter.h"
#include "engine/means/MeansResults.h"
#include "engine/seam/Namer.h"

#include <string>
#include <vector>

namespace engine {

/// The parts of the result document that tell of estimated means, each under the element that is open.
///
/// Requests without factors have no group of their own: the grand mean's statistics say the same. Of more than
/// kMostMeansGroups requests only the first are written, and "kGLMM_C24" says so.
class MeansXml {
public:
    MeansXml(XmlWriter& xml, const Namer& namer, const MeansResults& results, double confidence)
        : fXml(xml), fNamer(namer), fResults(results), fConfidence(confidence) {}

    /// Parameters "EMMEANS" and "pAdjustment" of the build settings; nothing without requests.
    void Settings() const;
    /// The four statistics of the grand mean.
    void GrandMean() const;
    /// Means of the top effects, then the groups of the requests.
    void Groups() const;
    /// Keys of the messages that belong to the document as a whole.
    std::vector<std::string> MessageKeys() const;

    static constexpr std::size_t kMostMeansGroups = 20;

private:
    void Request(const MeansRequest& request) const;
    void Attribute(const char* name, const std::string& value) const;
    void Statistic(const char* name, double value) const;
    void Texts(int factor, const std::vector<std::string>& texts) const;
    void Values(const char* statistic, const std::vector<double>& values) const;
    void Group(const EstimatedMeans& means, std::size_t index) const;
    void HeldAt(const EstimatedMeans& means) const;
    void Estimates(const EstimatedMeans& means, bool described) const;
    void Contrasts(const EstimatedMeans& means) const;
    void Overall(const EstimatedMeans& means) const;
    void Warnings(const EstimatedMeans& means) const;
    void Message(const char* key, const std::string& parameter) const;
    std::string ReferenceText(const MeansRequest& request) const;

    XmlWriter& fXml;
    const Namer& fNamer;
    const MeansResults& fResults;
    double fConfidence;
};

}  // namespace engine
