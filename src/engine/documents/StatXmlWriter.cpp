#include "engine/documents/StatXmlWriter.h"

#include "engine/documents/DocumentEffect.h"
#include "engine/documents/EstimatesXml.h"
#include "engine/documents/MeansXml.h"
#include "engine/documents/MomentFit.h"
#include "engine/documents/XmlWriter.h"
#include "engine/lmm/Distributions.h"
#include "engine/seam/Namer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

namespace engine {

namespace {

constexpr int kFixedMap = 0;  ///< map of the fixed parameters; random block b has map b + 1

/// By run::Distribution and run::Link.
constexpr std::array<const char*, 8> kDistributionWords{"NORMAL", "BINOMIAL", "POISSON", "GAMMA",
                                                        "IGAUSS", "NEGBIN",   "ORDINAL", "NOMINAL"};
constexpr std::array<const char*, 9> kLinkWords{"IDENTITY", "LOG",     "LOGC",  "LOGIT",  "PROBIT",
                                                "CLOGLOG",  "NLOGLOG", "POWER", "CAUCHIT"};

class StatXml {
public:
    StatXml(const DocumentSource& source, std::ostream& stream)
        : fFit(source.fFit),
          fSpec(source.fSpec),
          fVariables(source.fVariables),
          fRun(source.fRun),
          fSummary(source.fSummary),
          fNamer(source.fVariables, &source.fRun.fHidden),
          fEffects(source.fSpec.FixedEffects()),
          fXml(stream),
          fMeans(fXml, fNamer, source.fMeans, source.fSpec.fConfidence),
          fEstimates(fXml, fNamer, source) {}

    void Write() {
        const XmlElement root(fXml, "StatXML");
        BuildSettings();
        XmlElement model(fXml, "PMMLModel");
        XmlElement(fXml, "PredictiveSummary").With("algorithmName", "GLMM");
        StringMaps();
        Diagnostics();
        TrainingSummary();
    }

private:
    bool HasEstimates() const { return fFit.HasEstimates(); }

    template <class T>
    void Parameter(const char* name, const T& value) {
        XmlElement(fXml, "Parameter").With("name", name).With("value", value);
    }

    void BuildSettings() {
        const XmlElement settings(fXml, "BuildSettings");
        const run::Target& target = fRun.fTarget;
        Parameter("TargetField", fNamer.Variable(fSpec.fDependent));
        const bool byField = fRun.fHidden.fTrials >= 0;
        Parameter("UseTrials", byField || target.fTrialsValue > 0.0);
        if (byField) Parameter("TrialsField", fNamer.Variable(fRun.fHidden.fTrials));
        if (!byField && target.fTrialsValue > 0.0) Parameter("TrialsValue", target.fTrialsValue);
        Parameter("DistributionOfTarget", kDistributionWords[static_cast<int>(target.fDistribution)]);
        Parameter("LinkFunctionType", kLinkWords[static_cast<int>(target.fLink)]);
        if (target.fLink == run::Link::kPower) Parameter("LinkFunctionParam", target.fLinkPower);
        Parameter("Intercept", fSpec.fIntercept);
        ResidualSettings();
        Parameter("CIn", fSpec.fConfidence);
        {
            XmlElement parameter(fXml, "Parameter");
            parameter.With("name", "FixedEffectList");
            const XmlElement list(fXml, "ListValue");
            for (const ModelEffect& effect : fSpec.fFixed)
                WriteEffect(fXml, fNamer, effect);
        }
        RandomSettings();
        fMeans.Settings();
    }

    void NameList(const char* element, const char* name, const std::vector<int>& variables) {
        XmlElement parameter(fXml, element);
        parameter.With("name", name);
        const XmlElement list(fXml, "ListValue");
        for (int variable : variables)
            XmlElement(fXml, "Value").With("value", fNamer.Variable(variable));
    }

    void FieldList(const char* element, const char* name, const std::vector<int>& variables) {
        XmlElement parameter(fXml, element);
        parameter.With("name", name);
        WriteFields(fXml, fNamer, variables);
    }

    std::vector<int> Measures(const std::vector<int>& positions) const {
        std::vector<int> variables;
        for (int position : positions)
            variables.push_back(fSpec.fResidual.fRepeated[position]);
        return variables;
    }

    void ResidualSettings() {
        const ResidualBlock& residual = fSpec.fResidual;
        Parameter("ResidualCovarianceType", CovarianceWord(residual.fType));
        if (!residual.fSubjects.empty()) FieldList("Parameter", "ResidualSubjectSpec", residual.fSubjects);
        if (residual.fGroup >= 0) NameList("Parameter", "ResidualGroupSpec", {residual.fGroup});
        if (!residual.fSecondMeasures.empty()) {
            FieldList("Parameter", "RepeatedMeasure", Measures(residual.fFirstMeasures));
            FieldList("Parameter", "KroneckerMeasure", Measures(residual.fSecondMeasures));
        } else if (!residual.fRepeated.empty()) {
            FieldList("Parameter", "RepeatedMeasure", residual.fRepeated);
        }
    }

    void RandomSettings() {
        if (fSpec.fRandom.empty()) return;
        XmlElement parameter(fXml, "Parameter");
        parameter.With("name", "RandomSpecs");
        const XmlElement list(fXml, "ListValue");
        for (const RandomBlock& block : fSpec.fRandom) {
            const XmlElement value(fXml, "StructuredValue");
            bool intercept = false;
            {
                XmlElement attribute(fXml, "Attribute");
                attribute.With("name", "EffectList");
                const XmlElement effects(fXml, "ListValue");
                for (const ModelEffect& effect : block.fEffects) {
                    intercept |= effect.IsIntercept();
                    if (!effect.IsIntercept()) WriteEffect(fXml, fNamer, effect);
                }
            }
            XmlElement(fXml, "Attribute").With("name", "Intercept").With("value", intercept);
            if (!block.fSubjects.empty()) FieldList("Attribute", "SubjectSpec", block.fSubjects);
            if (block.fGroup >= 0) NameList("Attribute", "GroupSpec", {block.fGroup});
            XmlElement(fXml, "Attribute").With("name", "CovarianceType").With("value", CovarianceWord(block.fType));
        }
    }

    void MapEntry(std::size_t index, const ModelEffect& effect, const std::vector<int>& levels) {
        XmlElement entry(fXml, "MapEntry");
        entry.With("name", EntryName(index));
        const XmlElement label(fXml, "Label");
        WriteRegressionParameter(fXml, fNamer, effect, levels, EntryName(index));
    }

    void StringMaps() {
        {
            XmlElement map(fXml, "StringMap");
            map.With("mapId", kFixedMap);
            for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
                XmlElement entry(fXml, "MapEntry");
                entry.With("name", EntryName(i));
                const XmlElement label(fXml, "Label");
                fEstimates.FixedParameter(i);
            }
        }
        for (std::size_t b = 0; b < fFit.fRandomColumns.size(); ++b) {
            XmlElement map(fXml, "StringMap");
            map.With("mapId", static_cast<int>(b) + 1);
            for (std::size_t c = 0; c < fFit.fRandomColumns[b].size(); ++c) {
                const RandomColumn& column = fFit.fRandomColumns[b][c];
                MapEntry(c, fSpec.fRandom[b].fEffects[column.fEffect], column.fLevels);
            }
        }
    }

    template <class T>
    void Statistic(const char* name, const T& value) {
        XmlElement(fXml, "Statistic").With("name", name).With("value", value);
    }

    int CountParameters(bool residual) const {
        return static_cast<int>(
            std::count_if(fFit.fCovariance.begin(), fFit.fCovariance.end(),
                          [residual](const auto& p) { return !p.fRedundant && (p.fBlock < 0) == residual; }));
    }

    void Diagnostics() {
        const XmlElement diagnostics(fXml, "ModelDiagnostics");
        Statistic("AICC", fFit.fAicc);
        Statistic("BIC", fFit.fBic);
        Statistic("minus2LogLikelihood", fFit.fMinus2LogLikelihood);
        Statistic("numOfCovParamOfRepeated", CountParameters(true));
        Statistic("numOfCovParamOfRandom", CountParameters(false));
        Statistic("numOfColsOfFixed", static_cast<int>(fFit.fFixed.size()));
        int columns = 0;
        for (int count : fFit.fNumColumns)
            columns += count;
        Statistic("numOfColsOfRandom", columns);
        Statistic("numOfCommonSubjects", fFit.fNumCommonSubjects);
        if (!fSummary.fClassified.empty()) Statistic("classificationAccuracy", Accuracy());
        if (HasEstimates()) fMeans.GrandMean();
        TargetDistribution();
        PredictedByObserved();
        Classification();
        if (!HasEstimates()) return;
        ModelTests();
        FirstSubject();
        fEstimates.RandomCovariances();
        fMeans.Groups();
    }

    void Coordinates(const char* feature, const std::vector<double>& values) {
        XmlElement coordinates(fXml, "Coordinates");
        coordinates.With("feature", feature);
        fXml.Array(values);
    }

    void Counts(double total) {
        XmlElement(fXml, "Counts").With("totalFreq", static_cast<int>(std::min(total, 2147483647.0)));
    }

    void TargetDistribution() {
        if (fSummary.fObserved.empty()) return;
        XmlElement data(fXml, "UnivariateData");
        data.With("description", "TargetDistribution");
        Counts(fSummary.fTotalFrequency);
        Statistic("mean", fSummary.fMean);
        Statistic("stdDeviation", fSummary.fDeviation);
        for (const auto& [name, value] :
             FitByMoments(fRun.fTarget.fDistribution, fSummary.fMean, fSummary.fDeviation)) {
            Statistic(name, value);
        }
        Coordinates("observed", fSummary.fObserved);
        Coordinates("frequency", fSummary.fFrequency);
    }

    /// Share of the records, by their weights, whose most probable category is the observed one.
    double Accuracy() const {
        double right = 0.0;
        double all = 0.0;
        for (std::size_t i = 0; i < fSummary.fClassified.size(); ++i) {
            right += fSummary.fClassified[i][i];
            for (const double count : fSummary.fClassified[i])
                all += count;
        }
        return all > 0.0 ? right / all : kMissing;
    }

    /// Observed categories by predicted ones. Of events of trials the rows are other trials and events, which have no
    /// labels.
    void Classification() {
        const int count = static_cast<int>(fSummary.fClassified.size());
        if (count == 0) return;
        XmlElement matrix(fXml, "Matrix");
        matrix.With("description", "classificationTable").With("nbRows", count).With("nbCols", count);
        matrix.With("kind", "any");
        if (fRun.fTarget.IsCategorical()) {
            const XmlElement labels(fXml, "MatrixLabels");
            const XmlElement both(fXml, "RowColLabels");
            for (const std::string& text : fRun.fTargetCategories)
                XmlElement(fXml, "Label").With("label", text);
        }
        std::vector<double> cells;
        for (const std::vector<double>& row : fSummary.fClassified)
            cells.insert(cells.end(), row.begin(), row.end());
        fXml.Array(cells);
    }

    void PredictedByObserved() {
        if (fSummary.fPairObserved.empty()) return;
        XmlElement data(fXml, "BivariateData");
        data.With("description", "observedByPredicted");
        Counts(fSummary.fTotalFrequency);
        Coordinates("observed", fSummary.fPairObserved);
        Coordinates("statistic", fSummary.fPairPredicted);
        Coordinates("frequency", fSummary.fPairFrequency);
    }

    void ModelTest(const char* description, const std::string& id, const FTestResult& test) {
        XmlElement stats(fXml, "ModelTestStats");
        stats.With("description", description);
        if (!id.empty()) stats.With("testID", id);
        stats.With("testType", fSpec.fTypeI ? "I" : "III");
        XmlElement(fXml, "FTest")
            .With("fStatistic", test.fF)
            .With("sig", test.fP)
            .With("df1", test.fDf1)
            .With("df2", test.fDf2);
    }

    /// The joint test of all estimable coefficients but the intercept: the effects' own hypotheses, one below the
    /// other.
    FTestResult CorrectedModel() const {
        Eigen::Index rows = 0;
        for (const FTestResult& test : fFit.fTests) {
            if (!fEffects[test.fEffect].IsIntercept()) rows += test.fL.rows();
        }
        FTestResult corrected;
        if (rows == 0) return corrected;
        Eigen::MatrixXd all(rows, static_cast<Eigen::Index>(fFit.fFixed.size()));
        Eigen::Index next = 0;
        for (const FTestResult& test : fFit.fTests) {
            if (fEffects[test.fEffect].IsIntercept()) continue;
            all.middleRows(next, test.fL.rows()) = test.fL;
            next += test.fL.rows();
        }
        return fFit.Test(all);
    }

    void ModelTests() {
        ModelTest("correctedModel", "", CorrectedModel());
        const int shift = fSpec.fIntercept ? 1 : 0;
        for (const FTestResult& test : fFit.fTests) {
            if (fEffects[test.fEffect].IsIntercept()) continue;
            ModelTest("fixedEffect", std::to_string(test.fEffect - shift), test);
        }
    }

    /// Subject variables of all blocks, each once.
    std::vector<int> SubjectVariables() const {
        std::vector<int> variables;
        std::set<std::string> names;
        const auto add = [&](const std::vector<int>& subjects) {
            for (int variable : subjects) {
                if (names.insert(fNamer.Variable(variable)).second) variables.push_back(variable);
            }
        };
        for (const RandomBlock& block : fSpec.fRandom)
            add(block.fSubjects);
        add(fSpec.fResidual.fSubjects);
        return variables;
    }

    std::vector<std::string> ColumnTexts(int variable) const {
        std::vector<std::string> texts;
        for (const std::vector<double>& row : fSummary.fFirstSubject) {
            if (variable == fSpec.fDependent && fRun.fTarget.IsCategorical()) {
                texts.push_back(fRun.fTargetCategories[static_cast<std::size_t>(row[variable])]);
                continue;
            }
            texts.push_back(fSpec.fLevels[variable] > 0 ? fNamer.Category(variable, static_cast<int>(row[variable]))
                                                        : RoundTripText(row[variable]));
        }
        return texts;
    }

    void FirstSubject() {
        if (fSummary.fFirstSubject.empty()) return;
        XmlElement block(fXml, "StructuredData");
        block.With("description", "firstSubjectRecordsForDataStructure");
        Counts(fSummary.fFirstSubjectTotal);
        const XmlElement segment(fXml, "SegmentData");
        const std::vector<int> subjects = SubjectVariables();
        std::vector<int> codes;
        for (int subject : subjects)
            codes.push_back(static_cast<int>(fSummary.fFirstSubject.front()[subject]));
        WriteSegment(fXml, fNamer, subjects, codes);
        const XmlElement data(fXml, "MultivariateData");
        {
            XmlElement group(fXml, "CoordinatesGroup");
            group.With("description", "repeatedMeasures");
            for (int variable : fSpec.fResidual.fRepeated)
                FieldTexts(variable);
        }
        XmlElement group(fXml, "CoordinatesGroup");
        group.With("description", "target");
        FieldTexts(fSpec.fDependent);
        if (fRun.fHidden.fTrials >= 0) FieldTexts(fRun.fHidden.fTrials);
    }

    void FieldTexts(int variable) {
        XmlElement coordinates(fXml, "Coordinates");
        coordinates.With("field", fNamer.Variable(variable));
        fXml.Array(ColumnTexts(variable));
    }

    void TrainingSummary() {
        const XmlElement summary(fXml, "TrainingSummary");
        if (HasEstimates()) {
            fEstimates.Estimates();
        }
        for (const std::string& key : MessageKeys())
            Message(key);
    }

    /// Whether a parameter is the residual variance of a target whose scale is 1.
    bool IsUnitScale(const CovarianceParameter& parameter) const {
        return parameter.fBlock < 0 && parameter.fRedundant && fSpec.fResidual.fUnitScale;
    }

    /// Targets whose scale is 1 by their distribution.
    bool HasUnitScale() const {
        switch (fRun.fTarget.fDistribution) {
            case run::Distribution::kNormal:
            case run::Distribution::kGamma:
            case run::Distribution::kInverseGaussian:
                return false;
            default:
                return true;
        }
    }

    /// Whether a residual structure has no more than one repeated value: a variance is all that is left of it.
    bool HasOneRepeatedValue() const {
        const ResidualBlock& residual = fSpec.fResidual;
        return !residual.IsScaledIdentity() && !residual.fRepeated.empty() &&
               std::all_of(residual.fRepeated.begin(), residual.fRepeated.end(),
                           [this](int variable) { return fSpec.fLevels[variable] == 1; });
    }

    /// Message keys that the viewer tests for, each by the condition that it tells of.
    std::vector<std::string> MessageKeys() const {
        std::vector<std::string> keys;
        const bool hasSubjects = !SubjectVariables().empty();
        if (HasEstimates()) {
            const bool random = !fSpec.fRandom.empty();
            const bool allAtZero =
                random && std::all_of(fFit.fCovariance.begin(), fFit.fCovariance.end(), [](const auto& p) {
                    return p.fBlock < 0 || p.fRedundant || (p.fAtBound && p.fEstimate == 0.0);
                });
            if (allAtZero || (!random && !hasSubjects)) keys.emplace_back(HasUnitScale() ? "kGLMM_C9" : "kGLMM_C8");
            if (!fFit.fStatus.IsOk() && fFit.fStatus.fCode == 230036) keys.emplace_back("kGLMM_C10");
            const bool redundant = std::any_of(fFit.fCovariance.begin(), fFit.fCovariance.end(), [this](const auto& p) {
                return p.fRedundant && fSpec.fResidual.fSecondMeasures.empty() && !IsUnitScale(p);
            });
            if (HasOneRepeatedValue()) keys.emplace_back("kGLMM_C18");
            if (std::any_of(fFit.fCovariance.begin(), fFit.fCovariance.end(),
                            [this](const auto& p) { return IsUnitScale(p); })) {
                keys.emplace_back("kGLMM_C23");
            }
            if (redundant) keys.emplace_back("kGLMM_C28");
            for (std::string& key : fMeans.MessageKeys())
                keys.push_back(std::move(key));
        }
        if (hasSubjects && CommonSubject(fSpec).empty()) keys.emplace_back("kGLMM_C26");
        return keys;
    }

    void Message(const std::string& key) {
        const XmlElement message(fXml, "Message");
        XmlElement(fXml, "PrintableList").With("pattern", key).With("isKey", true);
    }

    const FitResult& fFit;
    const ModelSpec& fSpec;
    const MCVarList& fVariables;
    const run::RunValue& fRun;
    const RecordSummary& fSummary;
    Namer fNamer;
    std::vector<ModelEffect> fEffects;
    XmlWriter fXml;
    MeansXml fMeans;
    EstimatesXml fEstimates;
};

}  // namespace

void WriteStatXml(const DocumentSource& source, std::ostream& stream) {
    StatXml(source, stream).Write();
}

}  // namespace engine
