#pragma once

#include "engine/structures/Structure.h"

#include <memory>
#include <vector>

namespace engine {

/// A parametric family of correlation matrices, to which a scale is put by ScaledStructure, or which is a Kronecker
/// product's second factor. Evaluation is as in Structure: const, no scratch space, out filled completely.
class CorrelationFamily {
public:
    using Values = Eigen::Ref<const Eigen::VectorXd>;

    explicit CorrelationFamily(std::vector<ParamInfo> params) : fParams(std::move(params)) {}
    virtual ~CorrelationFamily() = default;

    const std::vector<ParamInfo>& Params() const { return fParams; }

    /// The matrix for the rows of places, its derivative in k, and in k and l (false, out untouched, when zero).
    virtual void Fill(const Values& rho, const Places& places, Eigen::MatrixXd& out) const = 0;
    virtual void First(const Values& rho, const Places& places, int k, Eigen::MatrixXd& out) const = 0;
    virtual bool Second(const Values& rho, const Places& places, int k, int l, Eigen::MatrixXd& out) const = 0;

    /// Whether parameters within their bounds give a positive semidefinite matrix.
    virtual bool Inside(const Values&) const { return true; }

    /// Parameters near to a positive definite correlation matrix of full dimension, and parameters well inside.
    virtual Eigen::VectorXd Guess(const Eigen::MatrixXd& correlation, const StartHint& hint) const = 0;
    virtual Eigen::VectorXd Inner(const StartHint&) const { return Eigen::VectorXd::Zero(fParams.size()); }

    /// Further starting points.
    virtual std::vector<Eigen::VectorXd> Grid(const StartHint&) const { return {}; }

private:
    const std::vector<ParamInfo> fParams;
};

using FamilyPointer = std::shared_ptr<const CorrelationFamily>;

/// Families over positions. word begins the names of the parameters: "CSH rho".

/// One correlation between all positions, at least -1/(dimension - 1).
FamilyPointer MakeEqualCorrelation(const std::string& word, int dimension);

/// rho to the power of the lag.
FamilyPointer MakeAutoregressive(const std::string& word, int dimension);

/// gamma rho^(lag - 1), with |rho| <= 1 and -(1 - rho)/2 <= gamma <= (1 + rho)/2: where the spectral density is not
/// negative. Of two positions only gamma matters: rho is held at 0 and gamma may have any value from -1 to 1.
FamilyPointer MakeMovingAverage(const std::string& word, int dimension);

/// The product of the correlations of adjacent positions between the two.
FamilyPointer MakeAntedependence(const std::string& word, int dimension);

/// A correlation for each lag.
FamilyPointer MakeLagCorrelations(const std::string& word, int dimension);

/// A correlation for each pair, "Corr(i,j)".
FamilyPointer MakeFreeCorrelations(int dimension);

}  // namespace engine
