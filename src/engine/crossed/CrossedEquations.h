#pragma once

#include "engine/crossed/CrossedStatistics.h"
#include "engine/crossed/SchurComplement.h"
#include "engine/model/Matrices.h"
#include "engine/structures/Structure.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

namespace engine {

/// The covariance of one term's coefficients: independent subjects, each with structure(theta) of its group.
struct CrossedCovariance {
    const Structure* fStructure = nullptr;  ///< of the term's q columns; not owned
    std::vector<int> fFirstParam;  ///< per group, where the structure's parameters begin in theta; terms may share
    std::vector<int> fGroup;       ///< per subject; empty: all are of group 0
};

/// How much CrossedEquations::Evaluate is to compute; each includes those before.
enum class CrossedOrder {
    kValue,     ///< -2 log likelihood and fixed effects
    kGradient,  ///< its gradient
    kAverage,   ///< average information, the mean of observed and expected: takes the place of the expected Hessian
    kExact      ///< the Hessian
};

/// What an evaluation gives. theta has the terms' parameters where fFirstParam says and the residual variance last.
struct CrossedValue {
    bool fFeasible = false;  ///< false: some G is not positive semidefinite, or the residual variance not positive
    double fObjective = std::numeric_limits<double>::quiet_NaN();  ///< -2 log likelihood, restricted or full
    Eigen::VectorXd fGradient;
    Eigen::MatrixXd fHessian;   ///< of fObjective: at kAverage with average for expected information, at kExact exact
    Eigen::MatrixXd fExpected;  ///< tr(Q V_k Q V_l), Q = P (restricted) or V^-1 (full); at kAverage y'P V_k P V_l P y
};

/// Likelihood, derivatives and predictions of y = X b + sum Z_t u_t + e, cov(e) = s2 W^-1, cov(u_t) = I x G_t, from
/// Henderson's mixed-model equations (Henderson 1950; Searle, Casella and McCulloch 1992, section 7.6).
///
/// With V0 = V / s2 and C = G / s2 = L L', everything comes from M = I + L'Z'WZ L, which stays positive definite when
/// variances are zero: log|V| = n log s2 - log|W| + log|M|. The term with most coefficients is eliminated subject by
/// subject, the Schur complement of the rest factored. Derivatives need Z'V0^-1 Z on the subjects' blocks
/// (average information: Gilmour, Thompson and Cullis 1995) and, for the Hessian, sums of squares of all its elements.
///
/// Not thread-safe: it holds the state of its last evaluation, from which the calls below Evaluate answer.
class CrossedEquations {
public:
    /// The statistics must have columns of X of full rank. covariances: one a term.
    /// crew: shares out the large matrix's factoring, null for one thread. schur: how the rest is factored; if null, as
    /// suits the statistics.
    CrossedEquations(std::shared_ptr<const CrossedStatistics> statistics, std::vector<CrossedCovariance> covariances,
                     int numParams, bool restricted, Workers* crew = nullptr,
                     std::unique_ptr<SchurComplement> schur = nullptr);
    ~CrossedEquations();

    /// False when the model has more coefficients in the rest than can be factored: nothing may be evaluated then.
    bool IsWithinReach() const { return fSchur != nullptr; }

    /// Whether kExact is affordable; if not, ask for kAverage and difference the gradient (DifferencedHessian).
    bool HasExactHessian() const;

    int NumParams() const { return fParams; }
    /// Exchanges the structures, as for another scale of the parameters; numbers of parameters and groups stay.
    void UseCovariances(std::vector<CrossedCovariance> covariances);

    /// What is known from the last evaluation is used when theta is the same.
    CrossedValue Evaluate(const Eigen::VectorXd& theta, CrossedOrder order);

    /// The Hessian at theta by differences of exact gradients, one or two evaluations a parameter: central, or forward
    /// where one evaluation takes long. Exact to about 1e-6. Where all G are linear in their parameters, the residual
    /// variance's row follows from the homogeneity of V and costs nothing.
    /// Leaves the state of theta.
    CrossedValue DifferencedHessian(const Eigen::VectorXd& theta);

    // After Evaluate, from kValue on. Fixed effects are those of the original columns.
    Eigen::VectorXd FixedEffects() const;
    Eigen::MatrixXd FixedCovariance() const;
    /// X'V^-1 X, and y'P y.
    Eigen::MatrixXd FixedInformation() const;
    double Quadratic() const { return fResidualForm / fResidual; }

    // After Evaluate, from kGradient on.

    /// d FixedCovariance / d theta_k, one matrix a parameter.
    std::vector<Eigen::MatrixXd> FixedCovarianceDerivatives() const;

    /// What the adjustment of Kenward and Roger (1997) needs of X, on the original columns: with V_k = dV / d theta_k,
    /// P_k = -X'V^-1 V_k V^-1 X, Q_kl = X'V^-1 V_k V^-1 V_l V^-1 X, R_kl = X'V^-1 V_kl V^-1 X (by k * params + l).
    struct Adjustment {
        std::vector<Eigen::MatrixXd> fP, fQ, fR;
    };
    Adjustment KenwardRoger() const;

    /// Best linear unbiased predictions of a term's coefficients, q x subjects.
    Eigen::MatrixXd Predictions(int term) const;
    /// Covariance matrix of prediction less truth for each subject, q x (q subjects), side by side.
    Eigen::MatrixXd PredictionCovariances(int term);

    /// A combination a'b + c'u of fixed effects (original columns) and coefficients.
    struct Row {
        Eigen::VectorXd fFixed;
        std::vector<std::pair<int, double>> fRandom;  ///< index in the long vector of coefficients, factor
    };
    /// Estimates of the rows, the covariance matrix of estimate less truth, and its derivatives in theta.
    struct Combination {
        Eigen::VectorXd fEstimate;
        Eigen::MatrixXd fCovariance;
        std::vector<Eigen::MatrixXd> fDerivatives;
    };
    Combination Combine(const std::vector<Row>& rows) const;

    const CrossedStatistics& Statistics() const { return *fStat; }

private:
    friend class CrossedTraces;

    /// One group's matrices at theta.
    struct GroupState {
        Eigen::MatrixXd fG;                   ///< reported scale
        Eigen::MatrixXd fRatio;               ///< G / s2
        Eigen::MatrixXd fFactor;              ///< lower L, L L' = G / s2
        std::vector<Eigen::MatrixXd> fFirst;  ///< dG / d theta, the structure's parameters
        Eigen::MatrixXd fTraceSum;            ///< sum over subjects of Z_j'Q0 Z_j, Q0 = s2 P or s2 V^-1
        Eigen::MatrixXd fSquareSum;           ///< sum over subjects of v_j v_j', v = Z'P0 y
        int fFirstParam = 0;
    };
    struct TermState {
        std::vector<GroupState> fGroups;
        bool fRegular = true;  ///< L has full rank and isn't tiny: Z'V0^-1 Z may be had through L^-1
    };

    int Group(int term, int subject) const {
        return fCovariances[term].fGroup.empty() ? 0 : fCovariances[term].fGroup[subject];
    }
    const GroupState& State(int term, int subject) const { return fTerms[term].fGroups[Group(term, subject)]; }
    static Places AllPositions(int columns);
    Eigen::Map<const Eigen::MatrixXd> Own(int term, int subject) const;
    Eigen::Map<const Eigen::MatrixXd> Met(int subject) const;
    Eigen::Map<const Eigen::MatrixXd> ScaledMet(int subject) const;
    /// The eliminated subject's matrix in one of the lists below.
    Eigen::Map<Eigen::MatrixXd> Block(std::vector<double>& list, int subject) const;
    Eigen::Map<const Eigen::MatrixXd> Block(const std::vector<double>& list, int subject) const;
    const int* MetColumns(int subject) const { return fStat->fMet.data() + fStat->fFirstMet[subject]; }
    int MetCount(int subject) const {
        return static_cast<int>(fStat->fFirstMet[subject + 1] - fStat->fFirstMet[subject]);
    }
    /// visit(term, subject, first rest index) for every subject of the rest's terms, ascending.
    template <class Visit>
    void ForRestSubjects(Visit visit) const {
        for (int t = 0; t < fStat->Terms(); ++t) {
            if (t == fStat->fEliminated) continue;
            for (int j = 0; j < fStat->fSubjects[t]; ++j)
                visit(t, j, fStat->fRestOffset[t] + j * fStat->fColumns[t]);
        }
    }

    void IndexMet();
    bool SetCovariance(const Eigen::VectorXd& theta);
    bool Assemble();
    void ScaleMet();
    void EliminateSubjects();
    /// One eliminated subject's symmetric matrix, or null to leave the subject out.
    using Weight = std::function<const double*(int subject)>;
    /// values[i] belong to element (rows[i], column).
    using Put = std::function<void(int column, const int* rows, const double* values, int count)>;
    /// The lower triangle of sum over eliminated subjects j of factor M_j' N_j M_j, M_j their scaled Z_j'W Z_rest. A
    /// column is put by one thread, in the subjects' order.
    void SumMet(double factor, const Weight& weight, const Put& put) const;
    /// work(chunk, first, end) over fixed chunks of 0 to count.
    void ForChunks(int count, const std::function<void(int, int, int)>& work) const;
    void ForColumns(Eigen::Index count, const std::function<void(int)>& work) const;
    /// The rest's part of a vector of coefficients.
    Eigen::VectorXd Rest(const Eigen::Ref<const Eigen::VectorXd>& all) const;
    void AddRest();
    void MarkRegular();
    bool SolveFixed();
    double Objective() const;
    void SumTraces();
    void FormEliminated();
    void SumEliminatedTraces();
    void SumRestTraces();
    void SumIrregularTraces(int term);
    Eigen::VectorXd Gradient(Eigen::VectorXd* logPart) const;
    Eigen::MatrixXd Average() const;
    Eigen::MatrixXd CurvatureTerms() const;
    bool IsLinear() const;

    /// L'b and L b over the rest's blocks.
    void ScaleTransposed(Eigen::MatrixXd& rest) const;
    void Scale(Eigen::MatrixXd& rest) const;
    /// rest += sum over eliminated subjects of Met' mine.
    void AddMetTransposed(const double* mine, double* rest) const;
    /// mine += Met rest, for every eliminated subject.
    void AddMet(const double* rest, double* mine) const;
    /// (Z'W Z f) for coefficients f.
    Eigen::MatrixXd CrossTimes(const Eigen::MatrixXd& coefficients) const;
    /// Z_r'(V1^-1 s2) Z_r f over the rest, V1 holding the eliminated term and the residual alone.
    Eigen::MatrixXd ReducedTimes(const Eigen::MatrixXd& rest) const;
    Eigen::MatrixXd Reduce(const Eigen::MatrixXd& right) const;
    /// Z'V0^-1 F from Z'W F.
    Eigen::MatrixXd Project(const Eigen::MatrixXd& right) const;
    /// Z'V0^-1 Z f.
    Eigen::MatrixXd Information(const Eigen::MatrixXd& coefficients) const { return Project(CrossTimes(coefficients)); }
    /// G f, or dG/dtheta_k f, over all coefficients.
    Eigen::MatrixXd CovarianceTimes(const Eigen::MatrixXd& coefficients) const;
    Eigen::MatrixXd DerivativeTimes(int param, const Eigen::MatrixXd& coefficients) const;

    std::shared_ptr<const CrossedStatistics> fStat;
    std::vector<CrossedCovariance> fCovariances;
    int fParams;
    bool fRestricted;
    Workers* fCrew;
    std::unique_ptr<SchurComplement> fSchur;

    std::vector<std::int64_t> fColumnMet;      ///< positions in the statistics' fMet, by rest index
    std::vector<std::int64_t> fFirstOfColumn;  ///< where a rest index's positions begin; one entry more, the end
    std::vector<int> fMetSubject;              ///< eliminated subject of each position

    enum class Known { kNothing, kValue, kTraces };
    Known fKnown = Known::kNothing;  ///< at fTheta
    Eigen::VectorXd fTheta;
    double fResidual = 1.0;  ///< s2
    std::vector<TermState> fTerms;
    std::vector<double> fScaledMet;  ///< Z_j'W Z_rest L, as the statistics' fMetValues
    std::vector<double> fShrink;     ///< eliminated subjects: (I + D C)^-1, D = Z_j'WZ_j
    std::vector<double> fInner;      ///< eliminated subjects: (C^-1 + D)^-1
    std::vector<double> fForm;       ///< eliminated subjects: H_j S^-1 H_j', H_j = (I + D C)^-1 Z_j'W Z_rest L
    double fLogDeterminant = 0.0;    ///< log|M|
    Eigen::MatrixXd fReducedCross;   ///< [X y]'V0^-1 [X y]
    Eigen::MatrixXd fFixedInverse;   ///< (X'V0^-1 X)^-1
    Eigen::VectorXd fBeta;
    double fLogFixed = 0.0;      ///< log|X'V0^-1 X|
    double fResidualForm = 0.0;  ///< y'P0 y
    Eigen::MatrixXd fU;          ///< Z'V0^-1 X
    Eigen::VectorXd fV;          ///< Z'P0 y
};

}  // namespace engine
