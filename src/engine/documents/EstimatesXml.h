#pragma once

#include "engine/documents/StatXmlWriter.h"
#include "engine/documents/XmlWriter.h"
#include "engine/seam/Namer.h"

#include <string>
#include <vector>

namespace engine {

/// Name of the entry of a string map and of a parameter: "P1" and so on.
std::string EntryName(std::size_t index);

/// The parts of the result document that tell of parameters, each under the element that is open.
///
/// A nominal target has fixed and random effects for each of its categories but the reference; its estimates and
/// covariance matrices stand category by category, each with the category as its segment.
class EstimatesXml {
public:
    EstimatesXml(XmlWriter& xml, const Namer& namer, const DocumentSource& source);

    /// The RegressionParameter of a fixed parameter. A threshold's has the target as its factor, at the category.
    void FixedParameter(std::size_t index) const;
    /// Covariance matrices of the random effects, block by block.
    void RandomCovariances() const;
    /// Estimates of fixed, residual and random parameters.
    void Estimates() const;

private:
    struct Row;

    void Statistic(const char* name, int value) const;
    void FixedStats(std::size_t index) const;
    void FixedEstimates() const;
    void ResidualEstimates() const;
    void RandomEstimates() const;
    void RandomEstimates(int block, int target) const;
    void CovarianceStats(const CovarianceParameter& parameter, int effectIndex) const;
    void SymmetricMatrix(const Eigen::MatrixXd& matrix) const;
    void Segment(int block, int target, int group) const;
    int GroupVariable(int block) const;
    const std::vector<std::string>& GroupTexts(int block) const;
    int FirstFactorParameters() const;
    std::vector<const CovarianceParameter*> ParametersOf(int block, int target, int group) const;
    /// Target categories that a random block has parameters for: -1 alone when they are those of all.
    std::vector<int> TargetsOf(int block) const;
    std::vector<int> GroupsOf(int block) const;
    int WorkingBlock(int block, int target) const;

    XmlWriter& fXml;
    const Namer& fNamer;
    const FitResult& fFit;
    const ModelSpec& fSpec;
    const run::RunValue& fRun;
    const WorkingModel* fpGeneralized;
    std::vector<ModelEffect> fEffects;
};

}  // namespace engine
