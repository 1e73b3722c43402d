#pragma once

#include "engine/model/Matrices.h"

#include <vector>

namespace engine {

class CrossedEquations;

/// Exact tr(Q V_k Q V_l) over all covariance parameters, Q = P (restricted) or V^-1 (full).
///
/// Needs the sums of squares of Z'V0^-1 Z = T between all pairs of terms. With S the rest's Schur complement, H_j the
/// eliminated subject's row block (I + D C)^-1 Z_j'W Z_r L and F_j = (I + D C)^-1 D: between rest terms, scaled by L,
/// T is I - S^-1; between an eliminated subject and the rest it is H_j S^-1; between eliminated subjects it is
/// F - H S^-1 H', whose sums of squares come from products of S^-1 with K = sum H_j' dG H_j, of the rest's order. The
/// cost is that of one multiplication of such matrices a parameter of the eliminated term.
class CrossedTraces {
public:
    /// equations: after an evaluation with its gradient. Kept by reference.
    explicit CrossedTraces(CrossedEquations& equations);

    /// Whether time and memory allow it: a dense inverse, at most a gigabyte of scratch.
    static bool IsAffordable(const CrossedEquations& equations);

    Eigen::MatrixXd Expected();

private:
    /// A change of G in one group of one term: one of its derivatives, or G itself where that isn't their combination.
    struct Direction {
        int fTerm;
        int fGroup;
        Eigen::MatrixXd fChange;
        Eigen::MatrixXd fScaled;  ///< L^-1 change L^-T for regular rest terms, else the change
    };

    void MakeDirections();
    void AddRestPairs();
    void PrepareIrregular();
    void AddEliminatedPairs();
    void AddEliminatedLocal();
    void AddIrregularCross();
    Eigen::MatrixXd Corrected();
    /// Rows of the rest's matrix L-scaled T, for the q columns of one subject at rest index at.
    Eigen::MatrixXd Panel(int term, int at) const;

    CrossedEquations& fEq;
    Eigen::Map<Eigen::MatrixXd> fInverse;  ///< S^-1
    std::vector<Direction> fDirections;
    Eigen::MatrixXd fCombination;           ///< directions x (random parameters + 1): parameters, and all of G last
    Eigen::MatrixXd fPairs;                 ///< per pair of directions, tr(T dG T dG)
    std::vector<std::vector<int>> fOfTerm;  ///< directions of each term
    std::vector<int> fIrregularAt;          ///< per term, first column of its rows in the two below, or -1
    Eigen::MatrixXd fIrregularRaw;          ///< A_rr columns of irregular terms (m x their coefficients)
    Eigen::MatrixXd fIrregularSolved;       ///< S^-1 L' times these
    Eigen::MatrixXd fIrregularScaled;       ///< L' times the raw ones
};

}  // namespace engine
