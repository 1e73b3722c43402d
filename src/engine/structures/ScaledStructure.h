#pragma once

#include "engine/structures/CorrelationFamily.h"
#include "engine/structures/Structure.h"

#include <memory>
#include <vector>

namespace engine {

/// One variance times a correlation matrix: V = v C(rho). Parameters: "Variance", then the family's.
class CommonScale : public Structure {
public:
    CommonScale(FamilyPointer family, int dimension);

    int Dimension() const override { return fDimension; }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return false; }
    Eigen::VectorXd Start(const StartHint& hint) const override;
    std::vector<Eigen::VectorXd> StartGrid(const StartHint& hint) const override;
    bool Feasible(const Eigen::VectorXd& theta) const override;
    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override;
    void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const override;
    bool Second(const Eigen::VectorXd& theta, const Places& places, int k, int l, Eigen::MatrixXd& out) const override;

protected:
    const FamilyPointer fFamily;

private:
    const int fDimension;
    const std::vector<ParamInfo> fParams;
};

/// A variance for each position: V(i, j) = s_i s_j C(i, j), s_i the square root of the variance. Parameters: "Var(1)"
/// to "Var(n)", then the family's. Estimated through the s_i, in which V is a polynomial: its derivatives in the
/// variances don't exist where one is zero (those of covariances with that position are given as 0 there).
std::unique_ptr<Structure> MakeHeterogeneous(FamilyPointer family, int dimension);

/// UNR, variances and free correlations: the same, but estimated through the Cholesky factor of V.
std::unique_ptr<Structure> MakeUnstructuredCorrelations(int dimension);

/// ARMA11: one variance, estimated through gamma + (1 - rho)/2 in place of gamma, which has the bounds 0 and 1.
std::unique_ptr<Structure> MakeMovingAverageStructure(int dimension);

/// The correlation matrix itself, a Kronecker product's second factor.
std::unique_ptr<Structure> MakeCorrelation(FamilyPointer family, int dimension);

}  // namespace engine
