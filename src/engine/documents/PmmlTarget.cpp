#include "engine/documents/PmmlTarget.h"

#include <array>
#include <cmath>

namespace engine {

namespace {

/// By run::Distribution and run::Link, as the standard names them; null where it has no word.
constexpr std::array<const char*, 8> kDistributions{"normal", "binomial", "poisson", "gamma",
                                                    "igauss", "negbin",   nullptr,   nullptr};
constexpr std::array<const char*, 9> kLinks{"identity", "log",    "logc",  "logit", "probit",
                                            "cloglog",  "loglog", "power", nullptr};
constexpr std::array<const char*, 9> kCumulativeLinks{nullptr,   nullptr,  nullptr, "logit",  "probit",
                                                      "cloglog", "loglog", nullptr, "cauchit"};

constexpr const char* kMinusOffset = "offset with its sign changed";
constexpr const char* kAllTrials = "events and other trials";

}  // namespace

std::string PmmlTarget::Category(int code) const {
    return code >= 0 && code < static_cast<int>(fRun.fTargetCategories.size()) ? fRun.fTargetCategories[code]
                                                                               : std::string();
}

/// Of two categories, the one whose probability is modelled, or the other.
int PmmlTarget::EventOrReference(bool event) const {
    const int last = static_cast<int>(fRun.fTargetCategories.size()) - 1;
    const bool nominal = fRun.fTarget.fDistribution == run::Distribution::kNominal;
    const int reference = fTarget.fReference >= 0 ? fTarget.fReference : nominal ? last : 0;
    return event ? 1 - reference : reference;
}

std::string PmmlTarget::CellCategory(const FixedParameter& parameter) const {
    if (parameter.fTarget >= 0) return Category(parameter.fTarget);
    return HasCategories() && !IsOrdinal() ? Category(EventOrReference(true)) : std::string();
}

bool PmmlTarget::WriteLink(XmlElement& model) const {
    const char* link = kLinks[static_cast<int>(fRun.fTarget.fLink)];
    if (link) model.With("linkFunction", link);
    if (fRun.fTarget.fLink == run::Link::kPower) model.With("linkParameter", fRun.fTarget.fLinkPower);
    return link != nullptr;
}

bool PmmlTarget::WriteAttributes(XmlElement& model, const Namer& namer) const {
    const run::Target& target = fRun.fTarget;
    bool known = true;
    model.With("functionName", HasCategories() ? "classification" : "regression");
    if (IsOrdinal()) {
        const char* link = kCumulativeLinks[static_cast<int>(target.fLink)];
        model.With("modelType", "ordinalMultinomial");
        if (link) model.With("cumulativeLink", link);
        known = link != nullptr;
    } else if (target.fDistribution == run::Distribution::kNominal) {
        model.With("modelType", "multinomialLogistic");
        model.With("targetReferenceCategory", Category(EventOrReference(false)));
    } else {
        model.With("modelType", "generalizedLinear");
        model.With("distribution", kDistributions[static_cast<int>(target.fDistribution)]);
        known = WriteLink(model);
        if (HasCategories()) model.With("targetReferenceCategory", Category(EventOrReference(false)));
    }
    if (target.fDistribution == run::Distribution::kNegativeBinomial) {
        double dispersion = target.fDispersion.value_or(0.0);
        for (const CovarianceParameter& parameter : fFit.fCovariance) {
            if (parameter.fName == "Dispersion") dispersion = parameter.fEstimate;
        }
        model.With("distParameter", dispersion);
    }
    if (target.fNonEventsVar >= 0) {
        model.With("trialsVariable", kAllTrials);
    } else if (target.fTrialsVar >= 0) {
        model.With("trialsVariable", namer.Variable(fRun.fHidden.fTrials));
    } else if (target.fTrialsValue > 0.0) {
        model.With("trialsValue", static_cast<int>(std::lround(target.fTrialsValue)));
    }
    if (fSpec.fOffset >= 0) {
        model.With("offsetVariable", IsOrdinal() ? kMinusOffset : namer.Variable(fSpec.fOffset));
    } else if (fSpec.fOffsetValue != 0.0) {
        model.With("offsetValue", IsOrdinal() ? -fSpec.fOffsetValue : fSpec.fOffsetValue);
    }
    return known;
}

void PmmlTarget::WriteTransformations(XmlWriter& xml, const Namer& namer) const {
    const bool minusOffset = IsOrdinal() && fSpec.fOffset >= 0;
    const bool allTrials = fRun.fTarget.fNonEventsVar >= 0;
    if (!minusOffset && !allTrials) return;
    const XmlElement transformations(xml, "LocalTransformations");
    const auto derive = [&](const char* name, const char* function, const auto& first, int second) {
        XmlElement field(xml, "DerivedField");
        field.With("name", name).With("optype", "continuous").With("dataType", "double");
        XmlElement apply(xml, "Apply");
        apply.With("function", function);
        first();
        XmlElement(xml, "FieldRef").With("field", namer.Variable(second));
    };
    if (minusOffset) {
        const auto zero = [&] {
            const XmlElement constant(xml, "Constant");
            xml.Text("0");
        };
        derive(kMinusOffset, "-", zero, fSpec.fOffset);
    }
    if (allTrials) {
        const auto events = [&] { XmlElement(xml, "FieldRef").With("field", namer.Variable(fSpec.fDependent)); };
        derive(kAllTrials, "+", events, fRun.fHidden.fTrials);
    }
}

std::vector<int> PmmlTarget::ActiveVariables() const {
    std::vector<int> variables;
    if (fSpec.fOffset >= 0) variables.push_back(fSpec.fOffset);
    if (fRun.fHidden.fTrials >= 0) variables.push_back(fRun.fHidden.fTrials);
    return variables;
}

}  // namespace engine
