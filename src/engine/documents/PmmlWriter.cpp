#include "engine/documents/PmmlWriter.h"

#include "engine/documents/DocumentEffect.h"
#include "engine/documents/XmlWriter.h"
#include "engine/seam/Namer.h"

#include <array>
#include <set>

namespace engine {

namespace {

constexpr const char* kExtender = "hierfit";

/// By run::Distribution and run::Link, as the standard names them; null where it has no word.
constexpr std::array<const char*, 8> kDistributions{"normal", "binomial", "poisson", "gamma",
                                                    "igauss", "negbin",   nullptr,   nullptr};
constexpr std::array<const char*, 9> kLinks{"identity", "log",    "logc",  "logit",  "probit",
                                            "cloglog",  "loglog", "power", "cauchit"};

std::string EntryName(std::size_t index) {
    return "P" + std::to_string(index + 1);
}

class Pmml {
public:
    Pmml(const DocumentSource& source, std::ostream& stream, bool scorable)
        : fFit(source.fFit),
          fSpec(source.fSpec),
          fVariables(source.fVariables),
          fRun(source.fRun),
          fNamer(source.fVariables, &source.fRun.fHidden),
          fEffects(source.fSpec.FixedEffects()),
          fXml(stream),
          fScorable(scorable) {}

    void Write(const MCApplicInfo4XML& application) {
        XmlElement root(fXml, "PMML");
        root.With("version", "4.4").With("xmlns", "http://www.dmg.org/PMML-4_4");
        {
            XmlElement header(fXml, "Header");
            if (application.fCopyright) header.With("copyright", application.fCopyright);
            if (application.fApplication) {
                XmlElement name(fXml, "Application");
                name.With("name", application.fApplication);
                if (application.fVersion) name.With("version", application.fVersion);
            }
        }
        DataDictionary();
        Model();
    }

private:
    struct Field {
        std::string fName;
        int fVariable;
        bool fCategorical;
    };

    /// Uses of the data's fields: each name's first use, and the further ones of another kind.
    void CollectFields(std::vector<Field>& first, std::vector<Field>& further) const {
        std::set<std::string> seen;
        std::set<std::string> categorical;
        const int hidden = static_cast<int>(fRun.fHidden.fvNames.size());
        for (int v = 0; v < std::max(fVariables.Size(), hidden); ++v) {
            const Field field{fNamer.Variable(v), v,
                              v < static_cast<int>(fSpec.fLevels.size()) && fSpec.fLevels[v] > 0};
            if (field.fName.empty()) continue;
            if (seen.insert(field.fName).second) {
                first.push_back(field);
            } else if (field.fCategorical && !categorical.contains(field.fName)) {
                further.push_back(field);
            }
            if (field.fCategorical) categorical.insert(field.fName);
        }
    }

    void DataField(const Field& field) {
        const IMCVariable* variable = fVariables.GetVarAt(field.fVariable);
        XmlElement element(fXml, "DataField");
        element.With("name", field.fName).With("optype", field.fCategorical ? "categorical" : "continuous");
        element.With("dataType", variable && variable->IsString() ? "string" : "double");
        if (!field.fCategorical || !variable) return;
        for (int code = 0; code < variable->GetCategoryCount(); ++code) {
            XmlElement(fXml, "Value").With("value", variable->GetCategoryText(code));
        }
    }

    void DataDictionary() {
        std::vector<Field> first;
        std::vector<Field> further;
        CollectFields(first, further);
        XmlElement dictionary(fXml, "DataDictionary");
        dictionary.With("numberOfFields", static_cast<int>(first.size()));
        if (!further.empty()) {
            XmlElement extension(fXml, "Extension");
            extension.With("extender", kExtender).With("name", "furtherUses");
            for (const Field& field : further)
                DataField(field);
        }
        for (const Field& field : first)
            DataField(field);
    }

    void Model() {
        const run::Target& target = fRun.fTarget;
        XmlElement model(fXml, "GeneralRegressionModel");
        model.With("modelName", "HIERFIT").With("targetVariableName", fNamer.Variable(fSpec.fDependent));
        model.With("modelType", "generalizedLinear").With("functionName", "regression").With("algorithmName", "GLMM");
        if (const char* distribution = kDistributions[static_cast<int>(target.fDistribution)]) {
            model.With("distribution", distribution);
        }
        model.With("linkFunction", kLinks[static_cast<int>(target.fLink)]);
        if (target.fLink == run::Link::kPower) model.With("linkParameter", target.fLinkPower);
        if (target.fTrialsVar >= 0) model.With("trialsVariable", fNamer.Variable(fRun.fHidden.fTrials));
        if (fSpec.fOffset >= 0) model.With("offsetVariable", fNamer.Variable(fSpec.fOffset));
        if (fSpec.fOffset < 0 && fSpec.fOffsetValue != 0.0) model.With("offsetValue", fSpec.fOffsetValue);
        if (!fScorable) model.With("isScorable", false);
        MiningSchema();
        {
            const XmlElement list(fXml, "ParameterList");
            for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
                XmlElement(fXml, "Parameter")
                    .With("name", EntryName(i))
                    .With("label", ParameterLabel(fNamer, fEffects[fFit.fFixed[i].fEffect], fFit.fFixed[i].fLevels));
            }
        }
        Predictors("FactorList", true);
        Predictors("CovariateList", false);
        PredictorMatrix();
        CovarianceMatrix();
        Estimates();
        if (fScorable) Extensions();
    }

    void MiningSchema() {
        const XmlElement schema(fXml, "MiningSchema");
        std::vector<Field> first;
        std::vector<Field> further;
        CollectFields(first, further);
        const std::string target = fNamer.Variable(fSpec.fDependent);
        std::set<std::string> active;
        for (const ModelEffect& effect : fEffects) {
            for (int factor : effect.fFactors)
                active.insert(fNamer.Variable(factor));
            for (const EffectCovariate& covariate : effect.fCovariates)
                active.insert(fNamer.Variable(covariate.fVariable));
        }
        for (const Field& field : first) {
            const char* usage = field.fName == target          ? "target"
                                : active.contains(field.fName) ? "active"
                                                               : "supplementary";
            XmlElement(fXml, "MiningField").With("name", field.fName).With("usageType", usage);
        }
    }

    void Predictors(const char* element, bool factors) {
        std::set<std::string> names;
        std::vector<std::string> inOrder;
        const auto add = [&](int variable) {
            if (names.insert(fNamer.Variable(variable)).second) inOrder.push_back(fNamer.Variable(variable));
        };
        for (const ModelEffect& effect : fEffects) {
            if (factors) {
                for (int factor : effect.fFactors)
                    add(factor);
            } else {
                for (const EffectCovariate& covariate : effect.fCovariates)
                    add(covariate.fVariable);
            }
        }
        if (inOrder.empty()) return;
        const XmlElement list(fXml, element);
        for (const std::string& name : inOrder)
            XmlElement(fXml, "Predictor").With("name", name);
    }

    void PredictorMatrix() {
        const XmlElement matrix(fXml, "PPMatrix");
        for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
            const FixedParameter& parameter = fFit.fFixed[i];
            const ModelEffect& effect = fEffects[parameter.fEffect];
            for (std::size_t f = 0; f < effect.fFactors.size(); ++f) {
                Cell(fNamer.Category(effect.fFactors[f], parameter.fLevels[f]), effect.fFactors[f], i);
            }
            for (const EffectCovariate& covariate : effect.fCovariates) {
                Cell(std::to_string(covariate.fMultiplicity), covariate.fVariable, i);
            }
        }
    }

    void Cell(const std::string& value, int variable, std::size_t parameter) {
        XmlElement(fXml, "PPCell")
            .With("value", value)
            .With("predictorName", fNamer.Variable(variable))
            .With("parameterName", EntryName(parameter));
    }

    void CovarianceMatrix() {
        bool any = false;
        for (const FixedParameter& parameter : fFit.fFixed)
            any |= !parameter.fRedundant;
        if (!any) return;
        XmlElement matrix(fXml, "PCovMatrix");
        matrix.With("type", "model");
        for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
            for (std::size_t j = 0; j <= i && !fFit.fFixed[i].fRedundant; ++j) {
                if (fFit.fFixed[j].fRedundant) continue;
                XmlElement(fXml, "PCovCell")
                    .With("pRow", EntryName(i))
                    .With("pCol", EntryName(j))
                    .With("value", fFit.fFixedCovariance(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)));
            }
        }
    }

    void Estimates() {
        const XmlElement matrix(fXml, "ParamMatrix");
        for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
            XmlElement(fXml, "PCell")
                .With("parameterName", EntryName(i))
                .With("beta", fFit.fFixed[i].fEstimate)
                .With("df", fFit.fFixed[i].fRedundant ? 0 : 1);
        }
    }

    XmlElement& Extension(XmlElement& element, const char* name) {
        return element.With("extender", kExtender).With("name", name);
    }

    void Extensions() {
        {
            XmlElement extension(fXml, "Extension");
            Extension(extension, "fit");
            XmlElement fit(fXml, "Fit");
            fit.With("method", fSpec.fRestricted ? "REML" : "ML")
                .With("minus2LogLikelihood", fFit.fMinus2LogLikelihood);
            fit.With("aicc", fFit.fAicc).With("bic", fFit.fBic).With("records", fFit.fRecords);
        }
        {
            XmlElement extension(fXml, "Extension");
            Extension(extension, "covarianceParameters");
            for (const CovarianceParameter& parameter : fFit.fCovariance) {
                XmlElement element(fXml, "CovarianceParameter");
                element.With("block", parameter.fBlock < 0 ? "residual" : std::to_string(parameter.fBlock + 1));
                element.With("structure", CovarianceWord(parameter.fType)).With("name", parameter.fName);
                if (parameter.fGroup >= 0) element.With("group", parameter.fGroup);
                element.With("estimate", parameter.fEstimate).With("stdError", parameter.fStdError);
            }
        }
        for (std::size_t b = 0; b < fSpec.fRandom.size(); ++b)
            RandomEffects(static_cast<int>(b));
    }

    void RandomEffects(int block) {
        const RandomBlock& random = fSpec.fRandom[block];
        XmlElement extension(fXml, "Extension");
        Extension(extension, "randomEffects").With("value", block + 1);
        {
            XmlElement columns(fXml, "Columns");
            columns.With("subject", fNamer.Variables(random.fSubjects));
            for (std::size_t c = 0; c < fFit.fRandomColumns[block].size(); ++c) {
                const RandomColumn& column = fFit.fRandomColumns[block][c];
                WriteRegressionParameter(fXml, fNamer, random.fEffects[column.fEffect], column.fLevels, EntryName(c));
            }
        }
        for (const SubjectPrediction& subject : fFit.Predictions(block)) {
            const XmlElement element(fXml, "Subject");
            WriteSegment(fXml, fNamer, random.fSubjects, subject.fSubject);
            fXml.Array(std::vector<double>(subject.fEstimate.begin(), subject.fEstimate.end()));
            fXml.Array(std::vector<double>(subject.fStdError.begin(), subject.fStdError.end()));
        }
    }

    const FitResult& fFit;
    const ModelSpec& fSpec;
    const MCVarList& fVariables;
    const run::RunValue& fRun;
    Namer fNamer;
    std::vector<ModelEffect> fEffects;
    XmlWriter fXml;
    bool fScorable;
};

}  // namespace

void WritePmml(const DocumentSource& source, const MCApplicInfo4XML& application, std::ostream& stream) {
    Pmml(source, stream, true).Write(application);
}

void WriteParameterFile(const DocumentSource& source, const MCApplicInfo4XML& application, std::ostream& stream) {
    Pmml(source, stream, false).Write(application);
}

}  // namespace engine
