#include "engine/documents/DocumentEffect.h"

namespace engine {

namespace {

/// The fields of an effect as a document lists them: covariates as often as they multiply.
std::vector<int> FieldsOf(const ModelEffect& effect) {
    std::vector<int> fields = effect.fFactors;
    for (const EffectCovariate& covariate : effect.fCovariates) {
        fields.insert(fields.end(), covariate.fMultiplicity, covariate.fVariable);
    }
    return fields;
}

void WriteValues(XmlWriter& xml, std::string_view name, const std::vector<std::string>& values) {
    XmlElement attribute(xml, "Attribute");
    attribute.With("name", name);
    const XmlElement list(xml, "ListValue");
    for (const std::string& value : values)
        XmlElement(xml, "Value").With("value", value);
}

}  // namespace

void WriteFields(XmlWriter& xml, const Namer& namer, const std::vector<int>& variables) {
    std::vector<std::string> names;
    for (int variable : variables)
        names.push_back(namer.Variable(variable));
    const XmlElement value(xml, "StructuredValue");
    WriteValues(xml, "Fields", names);
    WriteValues(xml, "NestingLevels", std::vector<std::string>(names.size(), "0"));
}

void WriteEffect(XmlWriter& xml, const Namer& namer, const ModelEffect& effect) {
    WriteFields(xml, namer, FieldsOf(effect));
}

void WriteRegressionParameter(XmlWriter& xml, const Namer& namer, const ModelEffect& effect,
                              const std::vector<int>& levels, const std::string& name) {
    XmlElement parameter(xml, "RegressionParameter");
    parameter.With("isIntercept", effect.IsIntercept()).With("name", name);
    for (const EffectCovariate& covariate : effect.fCovariates) {
        XmlElement(xml, "Covariate")
            .With("field", namer.Variable(covariate.fVariable))
            .With("power", covariate.fMultiplicity);
    }
    for (std::size_t i = 0; i < effect.fFactors.size(); ++i) {
        XmlElement(xml, "Factor")
            .With("field", namer.Variable(effect.fFactors[i]))
            .With("value", namer.Category(effect.fFactors[i], levels[i]))
            .With("nest", false);
    }
}

void WriteSegment(XmlWriter& xml, const Namer& namer, const std::vector<int>& variables,
                  const std::vector<int>& codes) {
    const XmlElement segment(xml, "SegmentInfo");
    for (std::size_t i = 0; i < variables.size(); ++i) {
        XmlElement(xml, "FieldInfo")
            .With("fieldName", namer.Variable(variables[i]))
            .With("fieldValue", namer.Category(variables[i], codes[i]));
    }
}

std::string ParameterLabel(const Namer& namer, const ModelEffect& effect, const std::vector<int>& levels) {
    if (effect.IsIntercept()) return "Intercept";
    std::string text;
    for (const EffectCovariate& covariate : effect.fCovariates) {
        for (int i = 0; i < covariate.fMultiplicity; ++i)
            text += (text.empty() ? "" : "*") + namer.Variable(covariate.fVariable);
    }
    const bool alone = text.empty() && effect.fFactors.size() == 1;
    for (std::size_t i = 0; i < effect.fFactors.size(); ++i) {
        const std::string term =
            namer.Variable(effect.fFactors[i]) + "=" + namer.Category(effect.fFactors[i], levels[i]);
        text += (text.empty() ? "" : "*") + (alone ? term : "[" + term + "]");
    }
    return text;
}

}  // namespace engine
