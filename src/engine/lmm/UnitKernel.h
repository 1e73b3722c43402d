#pragma once

#include "engine/lmm/DispersedKernel.h"
#include "engine/lmm/LmmProblem.h"
#include "engine/lmm/ParameterLayout.h"
#include "engine/model/Matrices.h"

#include <vector>

namespace engine {

/// The structures' matrices and derivatives at one theta, as far as they are the same for all units.
class ThetaState {
public:
    /// order: 0 the matrices alone, 1 first derivatives too, 2 second ones too.
    ThetaState(const ParameterLayout& layout, const Eigen::VectorXd& theta, ThetaScale scale, int order);

    struct Pair {
        int fK, fL;  // within the segment, k <= l
        Eigen::MatrixXd fSecond;
    };
    struct Part {
        const Structure* fStructure = nullptr;
        Eigen::VectorXd fTheta;
        int fOffset = 0;
        std::vector<int> fActive;             // parameters that aren't fixed, within the segment
        Eigen::MatrixXd fMatrix;              // random blocks
        std::vector<Eigen::MatrixXd> fFirst;  // random blocks, one an entry of fActive
        std::vector<Pair> fSeconds;           // random blocks
        bool fRandom = false;
        double fVariance = 0.0;  // scaled identity
    };
    const Part& operator[](int segment) const { return fParts[segment]; }
    int NumParams() const { return fNumParams; }
    int NumSegments() const { return static_cast<int>(fParts.size()); }
    int Dispersion() const { return fDispersion; }  ///< its segment, or -1

private:
    int fDispersion = -1;
    std::vector<Part> fParts;
    int fNumParams;
};

/// Sums over units that the likelihood's derivatives are put together from. e = 0 is the residual, 1 to p are X H.
struct DerivativeSums {
    Eigen::VectorXd fTrace;                // tr(V^-1 V_k)
    Eigen::MatrixXd fPairTrace;            // tr(V^-1 V_k V^-1 V_l)
    Eigen::MatrixXd fPairFixed;            // tr(H'X'V^-1 V_k V^-1 V_l V^-1 X H)
    Eigen::MatrixXd fPairResidual;         // r'V^-1 V_k V^-1 V_l V^-1 r
    Eigen::MatrixXd fSecond;               // tr(V_kl (V^-1 - V^-1 Y V^-1)), Y = rr' (+ X C X')
    std::vector<Eigen::MatrixXd> fSlopes;  // [r X H]'V^-1 V_k V^-1 [r X H], p + 1 square
    std::vector<Eigen::MatrixXd> fGamma;   // per random segment, what fSecond's V_kl is multiplied with
    void Reset(int params, int width, const ThetaState& state);
    void Add(const DerivativeSums& other);
};

/// Works out one unit after the other. Keeps scratch: one object a thread's chunk. The last unit's factor is kept too,
/// so that it needn't be made again for the same unit.
class UnitKernel {
public:
    /// crew: shares the work on large units; null where the units themselves are shared out.
    UnitKernel(const ThetaState& state, int width, Workers* crew = nullptr)
        : fState(state), fWidth(width), fCrew(crew), fDispersed(state, width) {}

    /// Adds count log|V| and [X r]'V^-1[X r]. False when V isn't positive definite.
    bool AddValue(const Unit& unit, double* logDeterminant, Eigen::MatrixXd* cross);

    /// basis: p + 1 square, takes [X r] to [r X H]. False as above.
    bool AddDerivatives(const Unit& unit, const Eigen::MatrixXd& basis, bool restricted, DerivativeSums* sums);

    /// Adds sum of weight(k, l) (H'X'V^-1 V_k V^-1 V_l V^-1XH - 1/4 H'X'V^-1 V_kl V^-1XH), in the width of the basis.
    bool AddCurvature(const Unit& unit, const Eigen::MatrixXd& basis, const Eigen::MatrixXd& weight,
                      Eigen::MatrixXd* sum);

private:
    struct Direction {
        int fParam;
        Eigen::MatrixXd fMatrix;  // V_k
    };

    /// Of so many records and without random effects: worth the memory of keeping V.
    static bool IsLargeAndPlain(const Unit& unit);
    bool Factor(const Unit& unit);
    void BuildDirections(const Unit& unit);
    void Direct(const Unit& unit, int segment, const ThetaState::Part& part);
    void ScaleDirection(const Unit& unit, int k);
    void RotateData(const Unit& unit, const Eigen::MatrixXd& basis);
    void AddRows(const Unit& unit, DerivativeSums* sums);
    void AddGram(const Unit& unit, DerivativeSums* sums);
    bool Second(const ThetaState::Part& part, const ResidualPiece& piece, int k, int l);
    void AddSecond(const Unit& unit, bool restricted, DerivativeSums* sums);
    Eigen::MatrixXd Contract(const Eigen::MatrixXd& middle) const;

    const ThetaState& fState;
    const int fWidth;
    Workers* const fCrew;
    DispersedKernel fDispersed;  // for units that are of its kind
    const Unit* fFactored = nullptr;
    Eigen::MatrixXd fFactor, fInverse, fScratch, fSmall;
    Eigen::MatrixXd fWhole;  // V of a large and plain unit
    std::vector<Direction> fDirections;
    int fNumDirections = 0;
    int fScaleDirection = -1;                     // of a large and plain unit: the direction that is V / s2
    std::vector<Eigen::MatrixXd> fScaled;         // V^-1 V_k
    std::vector<Eigen::MatrixXd> fMoved;          // V_k V^-1 [r XH]
    std::vector<Eigen::MatrixXd> fSolved;         // V^-1 V_k V^-1 [r XH]
    Eigen::MatrixXd fData;                        // [r XH], members side by side
    Eigen::MatrixXd fWhite;                       // V^-1 [r XH]
    Eigen::MatrixXd fGram;                        // product sums of [r XH]
    Eigen::MatrixXd fOuterResidual, fOuterFixed;  // sums of rr' and of XHH'X'
};

}  // namespace engine
