#include "engine/documents/PmmlWriter.h"

#include "engine/documents/DocumentEffect.h"
#include "engine/documents/PmmlTarget.h"
#include "engine/documents/XmlWriter.h"
#include "engine/seam/Namer.h"

#include <algorithm>
#include <map>
#include <set>

namespace engine {

namespace {

constexpr const char* kExtender = "hierfit";

std::string EntryName(std::size_t index) {
    return "P" + std::to_string(index + 1);
}

/// What a file is for.
enum class PmmlKind { kModel, kParameters };

class Pmml {
public:
    Pmml(const DocumentSource& source, std::ostream& stream, PmmlKind kind)
        : fFit(source.fFit),
          fSpec(source.fSpec),
          fVariables(source.fVariables),
          fRun(source.fRun),
          fpGeneralized(source.fGeneralized),
          fpScoring(source.fpScoring),
          fNamer(source.fVariables, &source.fRun.fHidden),
          fEffects(source.fSpec.FixedEffects()),
          fTarget(source),
          fXml(stream),
          fKind(kind) {
        NameParameters();
    }

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

    /// A parameter is an effect at levels of its factors; a multinomial target has it once for each category. Names go
    /// by place in the list of parameters.
    void NameParameters() {
        std::map<std::pair<int, std::vector<int>>, std::size_t> known;
        for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
            const FixedParameter& parameter = fFit.fFixed[i];
            const auto [at, added] = known.try_emplace({parameter.fEffect, parameter.fLevels}, fvFirst.size());
            if (added) fvFirst.push_back(i);
            fvNames.push_back(EntryName(at->second));
        }
    }

    /// Uses of the data's fields: each name's first use, and the further ones of another kind.
    void CollectFields(std::vector<Field>& first, std::vector<Field>& further) const {
        std::set<std::string> seen;
        std::set<std::string> categorical;
        const int hidden = static_cast<int>(fRun.fHidden.fvNames.size());
        for (int v = 0; v < std::max(fVariables.Size(), hidden); ++v) {
            const bool levels = v < static_cast<int>(fSpec.fLevels.size()) && fSpec.fLevels[v] > 0;
            const Field field{fNamer.Variable(v), v, levels || (v == fSpec.fDependent && fTarget.HasCategories())};
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
        const bool target = field.fVariable == fSpec.fDependent && fTarget.HasCategories();
        const char* kind = !field.fCategorical             ? "continuous"
                           : target && fTarget.IsOrdinal() ? "ordinal"
                                                           : "categorical";
        XmlElement element(fXml, "DataField");
        element.With("name", field.fName).With("optype", kind);
        element.With("dataType", variable && variable->IsString() ? "string" : "double");
        for (const std::string& text : target ? fRun.fTargetCategories : std::vector<std::string>())
            XmlElement(fXml, "Value").With("value", text);
        if (target || !field.fCategorical || !variable) return;
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
        XmlElement model(fXml, "GeneralRegressionModel");
        model.With("modelName", "HIERFIT").With("targetVariableName", fNamer.Variable(fSpec.fDependent));
        model.With("algorithmName", "GLMM");
        const bool scorable = fTarget.WriteAttributes(model, fNamer) && fKind == PmmlKind::kModel;
        if (!scorable) model.With("isScorable", false);
        MiningSchema();
        fTarget.WriteTransformations(fXml, fNamer);
        {
            const XmlElement list(fXml, "ParameterList");
            for (std::size_t name = 0; name < fvFirst.size(); ++name) {
                const FixedParameter& parameter = fFit.fFixed[fvFirst[name]];
                const std::string label =
                    parameter.fThreshold ? "Threshold" : ParameterLabel(fNamer, EffectOf(parameter), parameter.fLevels);
                XmlElement(fXml, "Parameter").With("name", EntryName(name)).With("label", label);
            }
        }
        Predictors("FactorList", true);
        Predictors("CovariateList", false);
        PredictorMatrix();
        CovarianceMatrix();
        Estimates();
        if (fKind == PmmlKind::kModel) Extensions();
    }

    /// Thresholds stand in the intercept's place, with or without one.
    const ModelEffect& EffectOf(const FixedParameter& parameter) const {
        static const ModelEffect intercept;
        return parameter.fThreshold ? intercept : fEffects[parameter.fEffect];
    }

    void MiningSchema() {
        const XmlElement schema(fXml, "MiningSchema");
        std::vector<Field> first;
        std::vector<Field> further;
        CollectFields(first, further);
        const std::string target = fNamer.Variable(fSpec.fDependent);
        std::set<std::string> active;
        for (int variable : fTarget.ActiveVariables())
            active.insert(fNamer.Variable(variable));
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
        for (std::size_t name = 0; name < fvFirst.size(); ++name) {
            const FixedParameter& parameter = fFit.fFixed[fvFirst[name]];
            const ModelEffect& effect = EffectOf(parameter);
            for (std::size_t f = 0; f < effect.fFactors.size(); ++f) {
                Cell(fNamer.Category(effect.fFactors[f], parameter.fLevels[f]), effect.fFactors[f], name);
            }
            for (const EffectCovariate& covariate : effect.fCovariates) {
                Cell(std::to_string(covariate.fMultiplicity), covariate.fVariable, name);
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
                XmlElement cell(fXml, "PCovCell");
                cell.With("pRow", fvNames[i]).With("pCol", fvNames[j]);
                if (fFit.fFixed[i].fTarget >= 0) cell.With("tRow", fTarget.Category(fFit.fFixed[i].fTarget));
                if (fFit.fFixed[j].fTarget >= 0) cell.With("tCol", fTarget.Category(fFit.fFixed[j].fTarget));
                const double value = fFit.fFixedCovariance(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j));
                cell.With("value", fTarget.Sign(fFit.fFixed[i]) * fTarget.Sign(fFit.fFixed[j]) * value);
            }
        }
    }

    void Estimates() {
        const XmlElement matrix(fXml, "ParamMatrix");
        for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
            const FixedParameter& parameter = fFit.fFixed[i];
            XmlElement cell(fXml, "PCell");
            const std::string category = fTarget.CellCategory(parameter);
            if (!category.empty()) cell.With("targetCategory", category);
            cell.With("parameterName", fvNames[i]);
            cell.With("beta", parameter.fRedundant ? 0.0 : fTarget.Sign(parameter) * parameter.fEstimate);
            cell.With("df", parameter.fRedundant ? 0 : 1);
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
                if (parameter.fTarget >= 0) element.With("targetCategory", fTarget.Category(parameter.fTarget));
                if (parameter.fGroup >= 0) element.With("group", parameter.fGroup);
                element.With("estimate", parameter.fEstimate).With("stdError", parameter.fStdError);
            }
        }
        // A multinomial target's predictors have the blocks again, each for its own category.
        const int blocks = fpGeneralized ? fpGeneralized->RandomBlocks() : static_cast<int>(fSpec.fRandom.size());
        for (int b = 0; b < blocks; ++b)
            RandomEffects(b);
        if (!fpScoring) return;
        XmlElement extension(fXml, "Extension");
        Extension(extension, "scoring");
        WriteScoring(fXml, *fpScoring);
    }

    void RandomEffects(int workingBlock) {
        const int block = workingBlock % static_cast<int>(fSpec.fRandom.size());
        const int category = fpGeneralized ? fpGeneralized->TargetOfBlock(workingBlock) : -1;
        const RandomBlock& random = fSpec.fRandom[block];
        XmlElement extension(fXml, "Extension");
        Extension(extension, "randomEffects").With("value", block + 1);
        {
            XmlElement columns(fXml, "Columns");
            columns.With("subject", fNamer.Variables(random.fSubjects));
            if (category >= 0) columns.With("targetCategory", fTarget.Category(category));
            for (std::size_t c = 0; c < fFit.fRandomColumns[block].size(); ++c) {
                const RandomColumn& column = fFit.fRandomColumns[block][c];
                WriteRegressionParameter(fXml, fNamer, random.fEffects[column.fEffect], column.fLevels, EntryName(c));
            }
        }
        for (const SubjectPrediction& subject : fFit.Predictions(workingBlock)) {
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
    const WorkingModel* fpGeneralized;
    const ScoringContent* fpScoring;
    Namer fNamer;
    std::vector<ModelEffect> fEffects;
    PmmlTarget fTarget;
    XmlWriter fXml;
    PmmlKind fKind;
    std::vector<std::size_t> fvFirst;  ///< per parameter of the list, the first of the fit's that has its name
    std::vector<std::string> fvNames;  ///< per parameter of the fit
};

}  // namespace

void WritePmml(const DocumentSource& source, const MCApplicInfo4XML& application, std::ostream& stream) {
    Pmml(source, stream, PmmlKind::kModel).Write(application);
}

void WriteParameterFile(const DocumentSource& source, const MCApplicInfo4XML& application, std::ostream& stream) {
    Pmml(source, stream, PmmlKind::kParameters).Write(application);
}

}  // namespace engine
