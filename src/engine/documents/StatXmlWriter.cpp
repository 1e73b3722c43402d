#include "engine/documents/StatXmlWriter.h"

#include "engine/documents/DocumentEffect.h"
#include "engine/documents/MeansXml.h"
#include "engine/documents/MomentFit.h"
#include "engine/documents/XmlWriter.h"
#include "engine/glmm/Link.h"
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

std::string EntryName(std::size_t index) {
    return "P" + std::to_string(index + 1);
}

/// Prefixes of the parameters of a Kronecker product's two factors.
constexpr std::string_view kFirstFactor = "A ";
constexpr std::string_view kSecondFactor = "B ";

/// The words by which the viewer knows the parameters of a covariance structure: "Variance ", "UN (2,1)", "AR1 rho".
std::string ViewerName(const CovarianceParameter& parameter) {
    std::string name = parameter.fName;
    if (name == "Variance") return name + " ";
    if (name.starts_with(kFirstFactor) || name.starts_with(kSecondFactor)) name.erase(0, kFirstFactor.size());
    if (const std::size_t open = name.find('('); open != std::string::npos && open > 0) name.insert(open, " ");
    return name;
}

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
          fMeans(fXml, fNamer, source.fMeans, source.fSpec.fConfidence) {}

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
        const bool trials = target.fTrialsVar >= 0 || target.fTrialsValue > 0.0;
        Parameter("UseTrials", trials);
        if (target.fTrialsVar >= 0) Parameter("TrialsField", fNamer.Variable(fRun.fHidden.fTrials));
        if (target.fTrialsVar < 0 && target.fTrialsValue > 0.0) Parameter("TrialsValue", target.fTrialsValue);
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
                MapEntry(i, fEffects[fFit.fFixed[i].fEffect], fFit.fFixed[i].fLevels);
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
        if (HasEstimates()) fMeans.GrandMean();
        TargetDistribution();
        PredictedByObserved();
        if (!HasEstimates()) return;
        ModelTests();
        FirstSubject();
        RandomCovariances();
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

    const std::vector<std::string>& GroupTexts(int block) const {
        return block < 0 ? fRun.fHidden.fvResidualGroupTexts : fRun.fHidden.fvRandomGroupTexts[block];
    }

    void GroupSegment(int variable, const std::string& text) {
        const XmlElement segment(fXml, "SegmentInfo");
        XmlElement(fXml, "FieldInfo").With("fieldName", fNamer.Variable(variable)).With("fieldValue", text);
    }

    void RandomCovariances() {
        for (std::size_t b = 0; b < fSpec.fRandom.size(); ++b) {
            const int block = static_cast<int>(b);
            const RandomBlock& random = fSpec.fRandom[b];
            XmlElement data(fXml, "StructuredData");
            data.With("description", "randomEffectCovariances");
            Statistic("blockNumber", block);
            {
                const XmlElement labels(fXml, "MatrixLabels");
                const XmlElement rows(fXml, "RowColLabels");
                for (std::size_t c = 0; c < fFit.fRandomColumns[b].size(); ++c) {
                    const XmlElement label(fXml, "Label");
                    XmlElement(fXml, "PrintableList")
                        .With("pattern", EntryName(c))
                        .With("isKey", true)
                        .With("mapId", block + 1);
                }
            }
            const int groups = random.fGroup < 0 ? 1 : static_cast<int>(GroupTexts(block).size());
            for (int group = 0; group < groups; ++group) {
                const XmlElement segment(fXml, "SegmentData");
                if (random.fGroup < 0) {
                    const XmlElement none(fXml, "SegmentInfo");
                } else {
                    GroupSegment(random.fGroup, GroupTexts(block)[group]);
                }
                SymmetricMatrix(fFit.RandomCovariance(block, random.fGroup < 0 ? -1 : group));
            }
        }
    }

    void SymmetricMatrix(const Eigen::MatrixXd& matrix) {
        XmlElement element(fXml, "Matrix");
        element.With("nbRows", static_cast<int>(matrix.rows())).With("nbCols", static_cast<int>(matrix.cols()));
        element.With("kind", "symmetric");
        std::vector<double> lower;
        for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
            for (Eigen::Index j = 0; j <= i; ++j)
                lower.push_back(matrix(i, j));
        }
        fXml.Array(lower);
    }

    void TrainingSummary() {
        const XmlElement summary(fXml, "TrainingSummary");
        if (HasEstimates()) {
            FixedEstimates();
            ResidualEstimates();
            RandomEstimates();
        }
        for (const std::string& key : MessageKeys())
            Message(key);
    }

    struct Row {
        double fEstimate = kMissing, fStdError = kMissing, fDf = kMissing, fLower = kMissing, fUpper = kMissing,
               fT = kMissing, fZ = kMissing, fSig = kMissing, fExpEstimate = kMissing, fExpLower = kMissing,
               fExpUpper = kMissing;
        bool fRedundant = false;
    };

    /// The attributes of a ParameterStats: all of them always, empty where a statistic does not apply.
    static void Attributes(XmlElement& element, const std::string& name, const std::string& label, const Row& row) {
        element.With("paramName", name).With("paramLabel", label);
        element.With("estimate", row.fEstimate).With("stdError", row.fStdError).With("df", row.fDf);
        element.With("confIntervalLower", row.fLower).With("confIntervalUpper", row.fUpper);
        element.With("tTest", row.fT).With("zTest", row.fZ).With("sig", row.fSig).With("chiSquare", kMissing);
        element.With("expEstimate", row.fExpEstimate).With("expCILower", row.fExpLower);
        element.With("expCIUpper", row.fExpUpper);
        element.With("isRedundant", row.fRedundant);
    }

    void FixedEstimates() {
        XmlElement estimates(fXml, "ParameterEstimates");
        estimates.With("parameterType", "fixed");
        const int shift = fSpec.fIntercept ? 1 : 0;
        for (std::size_t i = 0; i < fFit.fFixed.size(); ++i) {
            const FixedParameter& parameter = fFit.fFixed[i];
            const ModelEffect& effect = fEffects[parameter.fEffect];
            Row row;
            row.fEstimate = parameter.fEstimate;
            row.fRedundant = parameter.fRedundant;
            if (!parameter.fRedundant) {
                row.fStdError = parameter.fStdError;
                row.fDf = parameter.fDf;
                row.fLower = parameter.fLower;
                row.fUpper = parameter.fUpper;
                row.fT = parameter.fT;
                row.fSig = parameter.fP;
            }
            if (HasExponentialReading(fRun.fTarget.fLink)) {
                row.fExpEstimate = std::exp(row.fEstimate);
                row.fExpLower = std::exp(row.fLower);
                row.fExpUpper = std::exp(row.fUpper);
            }
            XmlElement stats(fXml, "ParameterStats");
            Attributes(stats, EntryName(i), ParameterLabel(fNamer, effect, parameter.fLevels), row);
            WriteRegressionParameter(fXml, fNamer, effect, parameter.fLevels, EntryName(i));
            if (!effect.IsIntercept()) Statistic("fixedEffectIndex", parameter.fEffect - shift);
        }
    }

    void CovarianceStats(const CovarianceParameter& parameter, int effectIndex) {
        Row row;
        row.fEstimate = parameter.fEstimate;
        row.fRedundant = parameter.fRedundant;
        row.fStdError = parameter.fStdError;
        row.fLower = parameter.fLower;
        row.fUpper = parameter.fUpper;
        row.fZ = parameter.fZ;
        row.fSig = parameter.fP;
        XmlElement stats(fXml, "ParameterStats");
        Attributes(stats, parameter.fName, parameter.fName, row);
        XmlElement list(fXml, "PrintableList");
        if (effectIndex < 0) {
            list.With("pattern", ViewerName(parameter)).With("isKey", true);
            return;
        }
        list.With("pattern", "VarOfEffect").With("isKey", true);
        XmlElement(fXml, "PrintableList").With("pattern", std::to_string(effectIndex));
    }

    std::vector<const CovarianceParameter*> ParametersOf(int block, int group) const {
        std::vector<const CovarianceParameter*> parameters;
        for (const CovarianceParameter& parameter : fFit.fCovariance) {
            if (parameter.fBlock == block && parameter.fGroup == group) parameters.push_back(&parameter);
        }
        return parameters;
    }

    /// Parameters of a Kronecker product's first factor.
    int FirstFactorParameters() const {
        const std::vector<const CovarianceParameter*> parameters =
            ParametersOf(-1, fSpec.fResidual.fGroup < 0 ? -1 : 0);
        return static_cast<int>(std::count_if(
            parameters.begin(), parameters.end(),
            [](const CovarianceParameter* parameter) { return parameter->fName.starts_with(kFirstFactor); }));
    }

    void ResidualEstimates() {
        const ResidualBlock& residual = fSpec.fResidual;
        const int groups = residual.fGroup < 0 ? 1 : static_cast<int>(GroupTexts(-1).size());
        for (int group = 0; group < groups; ++group) {
            XmlElement estimates(fXml, "ParameterEstimates");
            estimates.With("parameterType", "repeated");
            if (residual.fGroup >= 0) GroupSegment(residual.fGroup, GroupTexts(-1)[group]);
            if (!residual.fSecondMeasures.empty()) Statistic("NumUNParam", FirstFactorParameters());
            for (const CovarianceParameter* parameter : ParametersOf(-1, residual.fGroup < 0 ? -1 : group)) {
                CovarianceStats(*parameter, -1);
            }
        }
    }

    void RandomEstimates() {
        for (std::size_t b = 0; b < fSpec.fRandom.size(); ++b) {
            const int block = static_cast<int>(b);
            const RandomBlock& random = fSpec.fRandom[b];
            const int groups = random.fGroup < 0 ? 1 : static_cast<int>(GroupTexts(block).size());
            const bool byEffect = random.fType == CovarianceType::kVC;
            const bool intercept = std::any_of(random.fEffects.begin(), random.fEffects.end(),
                                               [](const ModelEffect& effect) { return effect.IsIntercept(); });
            for (int group = 0; group < groups; ++group) {
                XmlElement estimates(fXml, "ParameterEstimates");
                estimates.With("parameterType", "random").With("block", block);
                if (random.fGroup >= 0) GroupSegment(random.fGroup, GroupTexts(block)[group]);
                int effect = 0;
                int plain = intercept ? 1 : 0;
                for (const CovarianceParameter* parameter : ParametersOf(block, random.fGroup < 0 ? -1 : group)) {
                    int index = -1;
                    if (byEffect && effect < static_cast<int>(random.fEffects.size())) {
                        // The viewer counts the intercept as 0 wherever it stands in the list.
                        index = random.fEffects[effect].IsIntercept() ? 0 : plain++;
                        ++effect;
                    }
                    CovarianceStats(*parameter, index);
                }
            }
        }
    }

    /// Whether a parameter is the residual variance of a target whose scale is 1.
    bool IsUnitScale(const CovarianceParameter& parameter) const {
        return parameter.fBlock < 0 && parameter.fRedundant && fSpec.fResidual.fUnitScale;
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
            if (allAtZero || (!random && !hasSubjects)) keys.emplace_back("kGLMM_C8");
            if (!fFit.fStatus.IsOk() && fFit.fStatus.fCode == 230036) keys.emplace_back("kGLMM_C10");
            const bool redundant = std::any_of(fFit.fCovariance.begin(), fFit.fCovariance.end(), [this](const auto& p) {
                return p.fRedundant && fSpec.fResidual.fSecondMeasures.empty() && !IsUnitScale(p);
            });
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
};

}  // namespace

void WriteStatXml(const DocumentSource& source, std::ostream& stream) {
    StatXml(source, stream).Write();
}

}  // namespace engine
