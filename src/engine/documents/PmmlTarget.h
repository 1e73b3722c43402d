#pragma once

#include "engine/documents/StatXmlWriter.h"
#include "engine/documents/XmlWriter.h"
#include "engine/seam/Namer.h"

#include <string>
#include <vector>

namespace engine {

/// What a model document of the PMML standard says of the target: kind of model, distribution, link, trials, offset.
///
/// The standard's cumulative model has P(y <= j) = F(a_j + x'b); ours subtracts x'b, so that slopes and offset change
/// their sign there.
class PmmlTarget {
public:
    explicit PmmlTarget(const DocumentSource& source)
        : fRun(source.fRun), fSpec(source.fSpec), fTarget(source.fTarget), fFit(source.fFit) {}

    bool HasCategories() const { return fRun.fTarget.IsCategorical(); }
    bool IsOrdinal() const { return fRun.fTarget.fDistribution == run::Distribution::kOrdinal; }
    std::string Category(int code) const;
    /// Target category of a parameter's cell; empty for a parameter of all of them.
    std::string CellCategory(const FixedParameter& parameter) const;
    /// What the standard's parameter is of ours: 1 or -1.
    double Sign(const FixedParameter& parameter) const { return IsOrdinal() && !parameter.fThreshold ? -1.0 : 1.0; }

    /// The attributes of GeneralRegressionModel. False when the standard has no word for the link, so that others can't
    /// score the model.
    bool WriteAttributes(XmlElement& model, const Namer& namer) const;
    /// Fields that are derived for the model's offset or trials, if there are any.
    void WriteTransformations(XmlWriter& xml, const Namer& namer) const;
    /// Record variables besides the effects' that others need to score the model.
    std::vector<int> ActiveVariables() const;

private:
    int EventOrReference(bool event) const;
    bool WriteLink(XmlElement& model) const;

    const run::RunValue& fRun;
    const ModelSpec& fSpec;
    const TargetSpec& fTarget;
    const FitResult& fFit;
};

}  // namespace engine
