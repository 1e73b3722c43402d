#include "engine/documents/EstimatesXml.h"

#include "engine/documents/DocumentEffect.h"
#include "engine/glmm/Link.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

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

}  // namespace

std::string EntryName(std::size_t index) {
    return "P" + std::to_string(index + 1);
}

struct EstimatesXml::Row {
    double fEstimate = kMissing, fStdError = kMissing, fDf = kMissing, fLower = kMissing, fUpper = kMissing,
           fT = kMissing, fZ = kMissing, fSig = kMissing, fExpEstimate = kMissing, fExpLower = kMissing,
           fExpUpper = kMissing;
    bool fRedundant = false;

    /// The attributes of a ParameterStats: all of them always, empty where a statistic does not apply.
    void Write(XmlElement& element, const std::string& name, const std::string& label) const {
        element.With("paramName", name).With("paramLabel", label);
        element.With("estimate", fEstimate).With("stdError", fStdError).With("df", fDf);
        element.With("confIntervalLower", fLower).With("confIntervalUpper", fUpper);
        element.With("tTest", fT).With("zTest", fZ).With("sig", fSig).With("chiSquare", kMissing);
        element.With("expEstimate", fExpEstimate).With("expCILower", fExpLower).With("expCIUpper", fExpUpper);
        element.With("isRedundant", fRedundant);
    }
};

EstimatesXml::EstimatesXml(XmlWriter& xml, const Namer& namer, const DocumentSource& source)
    : fXml(xml),
      fNamer(namer),
      fFit(source.fFit),
      fSpec(source.fSpec),
      fRun(source.fRun),
      fpGeneralized(source.fGeneralized),
      fEffects(source.fSpec.FixedEffects()) {}

void EstimatesXml::Statistic(const char* name, int value) const {
    XmlElement(fXml, "Statistic").With("name", name).With("value", value);
}

void EstimatesXml::FixedParameter(std::size_t index) const {
    const engine::FixedParameter& parameter = fFit.fFixed[index];
    if (!parameter.fThreshold) {
        WriteRegressionParameter(fXml, fNamer, fEffects[parameter.fEffect], parameter.fLevels, EntryName(index));
        return;
    }
    XmlElement element(fXml, "RegressionParameter");
    element.With("isIntercept", false).With("name", EntryName(index));
    XmlElement(fXml, "Factor")
        .With("field", fNamer.Variable(fSpec.fDependent))
        .With("value", fRun.fTargetCategories[parameter.fTarget])
        .With("nest", false);
}

void EstimatesXml::FixedStats(std::size_t index) const {
    const engine::FixedParameter& parameter = fFit.fFixed[index];
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
    const ModelEffect& effect = fEffects[parameter.fThreshold ? 0 : parameter.fEffect];
    const std::string label = parameter.fThreshold ? "Threshold=" + fRun.fTargetCategories[parameter.fTarget]
                                                   : ParameterLabel(fNamer, effect, parameter.fLevels);
    XmlElement stats(fXml, "ParameterStats");
    row.Write(stats, EntryName(index), label);
    FixedParameter(index);
    if (parameter.fThreshold || effect.IsIntercept()) return;
    Statistic("fixedEffectIndex", parameter.fEffect - (fSpec.fIntercept ? 1 : 0));
}

void EstimatesXml::FixedEstimates() const {
    // The parameters of a category stand together.
    for (std::size_t i = 0; i < fFit.fFixed.size();) {
        const bool byCategory = fRun.fTarget.fDistribution == run::Distribution::kNominal;
        const int target = byCategory ? fFit.fFixed[i].fTarget : -1;
        XmlElement estimates(fXml, "ParameterEstimates");
        estimates.With("parameterType", "fixed");
        if (byCategory) Segment(-1, target, -1);
        for (; i < fFit.fFixed.size() && (!byCategory || fFit.fFixed[i].fTarget == target); ++i)
            FixedStats(i);
    }
    if (!fFit.fFixed.empty()) return;
    XmlElement(fXml, "ParameterEstimates").With("parameterType", "fixed");
}

void EstimatesXml::CovarianceStats(const CovarianceParameter& parameter, int effectIndex) const {
    Row row;
    row.fEstimate = parameter.fEstimate;
    row.fRedundant = parameter.fRedundant;
    row.fStdError = parameter.fStdError;
    row.fLower = parameter.fLower;
    row.fUpper = parameter.fUpper;
    row.fZ = parameter.fZ;
    row.fSig = parameter.fP;
    XmlElement stats(fXml, "ParameterStats");
    row.Write(stats, parameter.fName, parameter.fName);
    XmlElement list(fXml, "PrintableList");
    if (effectIndex < 0) {
        list.With("pattern", ViewerName(parameter)).With("isKey", true);
        return;
    }
    list.With("pattern", "VarOfEffect").With("isKey", true);
    XmlElement(fXml, "PrintableList").With("pattern", std::to_string(effectIndex));
}

std::vector<const CovarianceParameter*> EstimatesXml::ParametersOf(int block, int target, int group) const {
    std::vector<const CovarianceParameter*> parameters;
    for (const CovarianceParameter& parameter : fFit.fCovariance) {
        if (parameter.fBlock == block && parameter.fTarget == target && parameter.fGroup == group)
            parameters.push_back(&parameter);
    }
    return parameters;
}

int EstimatesXml::GroupVariable(int block) const {
    return block < 0 ? fSpec.fResidual.fGroup : fSpec.fRandom[block].fGroup;
}

const std::vector<std::string>& EstimatesXml::GroupTexts(int block) const {
    return block < 0 ? fRun.fHidden.fvResidualGroupTexts : fRun.fHidden.fvRandomGroupTexts[block];
}

std::vector<int> EstimatesXml::GroupsOf(int block) const {
    if (GroupVariable(block) < 0) return {-1};
    std::vector<int> groups(GroupTexts(block).size());
    for (std::size_t g = 0; g < groups.size(); ++g)
        groups[g] = static_cast<int>(g);
    return groups;
}

std::vector<int> EstimatesXml::TargetsOf(int block) const {
    if (!fpGeneralized) return {-1};
    const int blocks = static_cast<int>(fSpec.fRandom.size());
    std::vector<int> targets;
    for (int b = block; b < fpGeneralized->RandomBlocks(); b += blocks)
        targets.push_back(fpGeneralized->TargetOfBlock(b));
    return targets;
}

int EstimatesXml::WorkingBlock(int block, int target) const {
    const std::vector<int> targets = TargetsOf(block);
    const auto place = std::find(targets.begin(), targets.end(), target) - targets.begin();
    return block + static_cast<int>(place) * static_cast<int>(fSpec.fRandom.size());
}

void EstimatesXml::Segment(int block, int target, int group) const {
    const XmlElement segment(fXml, "SegmentInfo");
    if (target >= 0) {
        XmlElement(fXml, "FieldInfo")
            .With("fieldName", fNamer.Variable(fSpec.fDependent))
            .With("fieldValue", fRun.fTargetCategories[target]);
    }
    if (group < 0) return;
    XmlElement(fXml, "FieldInfo")
        .With("fieldName", fNamer.Variable(GroupVariable(block)))
        .With("fieldValue", GroupTexts(block)[group]);
}

void EstimatesXml::SymmetricMatrix(const Eigen::MatrixXd& matrix) const {
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

void EstimatesXml::RandomCovariances() const {
    for (std::size_t b = 0; b < fSpec.fRandom.size(); ++b) {
        const int block = static_cast<int>(b);
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
        for (const int target : TargetsOf(block)) {
            for (const int group : GroupsOf(block)) {
                const XmlElement segment(fXml, "SegmentData");
                Segment(block, target, group);
                SymmetricMatrix(fFit.RandomCovariance(WorkingBlock(block, target), group));
            }
        }
    }
}

/// Parameters of a Kronecker product's first factor.
int EstimatesXml::FirstFactorParameters() const {
    const std::vector<const CovarianceParameter*> parameters =
        ParametersOf(-1, -1, fSpec.fResidual.fGroup < 0 ? -1 : 0);
    return static_cast<int>(
        std::count_if(parameters.begin(), parameters.end(),
                      [](const CovarianceParameter* parameter) { return parameter->fName.starts_with(kFirstFactor); }));
}

void EstimatesXml::ResidualEstimates() const {
    const ResidualBlock& residual = fSpec.fResidual;
    for (const int group : GroupsOf(-1)) {
        XmlElement estimates(fXml, "ParameterEstimates");
        estimates.With("parameterType", "repeated");
        if (residual.fGroup >= 0) Segment(-1, -1, group);
        if (!residual.fSecondMeasures.empty()) Statistic("NumUNParam", FirstFactorParameters());
        for (const CovarianceParameter* parameter : ParametersOf(-1, -1, group))
            CovarianceStats(*parameter, -1);
    }
}

void EstimatesXml::RandomEstimates() const {
    for (std::size_t b = 0; b < fSpec.fRandom.size(); ++b) {
        for (const int target : TargetsOf(static_cast<int>(b)))
            RandomEstimates(static_cast<int>(b), target);
    }
}

void EstimatesXml::RandomEstimates(int block, int target) const {
    const RandomBlock& random = fSpec.fRandom[block];
    const bool byEffect = random.fType == CovarianceType::kVC;
    const bool intercept = std::any_of(random.fEffects.begin(), random.fEffects.end(),
                                       [](const ModelEffect& effect) { return effect.IsIntercept(); });
    for (const int group : GroupsOf(block)) {
        XmlElement estimates(fXml, "ParameterEstimates");
        estimates.With("parameterType", "random").With("block", block);
        if (target >= 0 || group >= 0) Segment(block, target, group);
        int effect = 0;
        int plain = intercept ? 1 : 0;
        for (const CovarianceParameter* parameter : ParametersOf(block, target, group)) {
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

void EstimatesXml::Estimates() const {
    FixedEstimates();
    ResidualEstimates();
    RandomEstimates();
}

}  // namespace engine
