#pragma once

#include "engine/lmm/LmmProblem.h"
#include "engine/model/Matrices.h"

namespace engine {

class ThetaState;
struct DerivativeSums;

/// What UnitKernel does, for units with dispersed residuals: V = Z G Z' + D with D = I + k B, diagonal. Nothing is of
/// the order of the records but one pass over them, since V^-1 = D^-1 - D^-1 Z K Z'D^-1, K = (I + G Z'D^-1Z)^-1 G
/// (Henderson and Searle 1981, SIAM Review 23, equation 17): all that is wanted are products of [Z X r] by D^-1 (B
/// D^-1)^m, m to 2.
class DispersedKernel {
public:
    DispersedKernel(const ThetaState& state, int width) : fState(state), fWidth(width) {}

    // As those of UnitKernel.
    bool AddValue(const Unit& unit, double* logDeterminant, Eigen::MatrixXd* cross);
    bool AddDerivatives(const Unit& unit, const Eigen::MatrixXd& basis, bool restricted, DerivativeSums* sums);
    bool AddCurvature(const Unit& unit, const Eigen::MatrixXd& basis, const Eigen::MatrixXd& weight,
                      Eigen::MatrixXd* sum);

private:
    /// Products by D^-1 (B D^-1)^m; Y is [X r].
    struct Products {
        Eigen::MatrixXd fZZ;  ///< q x q
        Eigen::MatrixXd fYZ;  ///< (p + 1) x q
        Eigen::MatrixXd fYY;
        double fTrace = 0.0;  ///< sum of (B D^-1)^m
    };
    /// A random block's parameter.
    struct Direction {
        int fParam;
        Eigen::MatrixXd fP;      ///< G_k P
        Eigen::MatrixXd fQ;      ///< Q G_k
        double fDispersedTrace;  ///< tr(V^-1 V_k V^-1 B)
    };

    bool Gather(const Unit& unit, int highest);
    bool Solve(const Unit& unit, const Eigen::MatrixXd& basis);

    const ThetaState& fState;
    const int fWidth;
    Products fProducts[3];
    double fLogDeterminant = 0.0;
    Eigen::MatrixXd fG, fK;
    Eigen::MatrixXd fP;                        // Z'V^-1 Z
    Eigen::MatrixXd fQ;                        // Y'V^-1 Z
    Eigen::MatrixXd fDispersedP, fDispersedQ;  // Z'V^-1 B V^-1 Z, Y'V^-1 B V^-1 Z
    Eigen::MatrixXd fSlope, fSecondSlope;      // Y'V^-1 B V^-1 Y, Y'V^-1 B V^-1 B V^-1 Y
    std::vector<Direction> fDirections;
    Eigen::MatrixXd fScratch;
};

}  // namespace engine
