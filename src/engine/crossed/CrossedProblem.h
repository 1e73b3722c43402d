#pragma once

#include "engine/crossed/CrossedEquations.h"
#include "engine/lmm/FitResult.h"
#include "engine/lmm/FixedBasis.h"
#include "engine/lmm/Objective.h"
#include "engine/lmm/ParameterLayout.h"
#include "engine/model/EffectDesign.h"
#include "engine/model/ModelSpec.h"

#include <memory>
#include <unordered_map>
#include <vector>

namespace engine {

/// How the records fall into the subjects of one crossed term.
///
/// A random block is one term, unless its columns are many and independent of one another (VC and ID): then each effect
/// is a term with one coefficient for each combination of the block's subject and the effect's level.
struct CrossedTerm {
    int fBlock = 0;
    int fEffect = -1;             ///< the one effect of a divided block, else -1
    EffectDesign fDesign;         ///< its columns
    std::vector<int> fVariables;  ///< the block's subject variables
    std::vector<long> fRadix;
    std::shared_ptr<const Structure> fScalar;    ///< of a divided block's term
    std::vector<int> fIndex;                     ///< from combined code to subject where codes are few, -1 for none
    std::unordered_map<long, int> fSparseIndex;  ///< where they are many
    std::vector<std::size_t> fFirstRecords;      ///< per subject
    std::vector<int> fGroups;                    ///< per subject, group level; empty without groups

    bool IsDivided() const { return fEffect >= 0; }
    /// Subject of the codes of fVariables, and for a divided block's term the column within the effect; -1 if unknown.
    int Find(long key) const;
};

/// A model whose random blocks are crossed, gathered into sufficient statistics. The residual is a scaled identity.
class CrossedProblem {
public:
    /// All of them stay where they are; the records are read once, by Prepare. Targets and weights are the basis's.
    CrossedProblem(const ModelSpec& spec, const RecordView& view, const FixedBasis& basis)
        : fSpec(spec), fView(view), fBasis(basis) {}

    /// Whether this path can fit the model: a residual block that is the same scaled identity for all records.
    static bool Suits(const ModelSpec& spec);

    FitStatus Prepare();

    const ModelSpec& Spec() const { return fSpec; }
    const ParameterLayout& Layout() const { return fLayout; }
    const std::vector<CrossedTerm>& Terms() const { return fTerms; }
    std::shared_ptr<const CrossedStatistics> Statistics() const { return fStatistics; }
    /// The terms' structures on a scale. fGroup counts the group levels that occur.
    std::vector<CrossedCovariance> Covariances(ThetaScale scale) const;
    /// Starting values, reported scale: where all terms have single coefficients, those that equate sums of squares to
    /// their expectations (Rao 1971, MINQUE with weights zero).
    Eigen::VectorXd Start() const;
    /// Index in the long vector of a block's coefficient: codes of the block's subject variables, column of the block.
    /// -1 when the data have no such subject.
    int Coefficient(int block, const std::vector<int>& codes, int column) const;

private:
    FitStatus PlanTerms();
    void PlanBlock(int block, int segment);
    int SubjectOf(CrossedTerm& term, const double* record, std::size_t row, const ColumnHit* hits);
    FitStatus Gather();
    Eigen::VectorXd EqualShares() const;

    const ModelSpec& fSpec;
    RecordView fView;
    const FixedBasis& fBasis;
    ParameterLayout fLayout;
    std::vector<CrossedTerm> fTerms;
    std::vector<std::vector<int>> fSegments;  ///< per block, per group level (one without groups): segment or -1
    std::shared_ptr<const CrossedStatistics> fStatistics;
};

/// The likelihood of a crossed problem as optimizer and inference take it. Not thread-safe.
class CrossedLikelihood : public Objective {
public:
    /// problem and crew stay where they are.
    CrossedLikelihood(const CrossedProblem& problem, bool restricted, Workers* crew = nullptr);

    bool IsWithinReach() const { return fEquations.IsWithinReach(); }
    const ParameterLayout& Layout() const override { return fProblem.Layout(); }
    Evaluation Value(const Eigen::VectorXd& theta, ThetaScale scale) const override;
    /// Second derivatives are average information, good for stepping.
    Evaluation Derivatives(const Eigen::VectorXd& theta, ThetaScale scale) const override;
    /// Second derivatives are exact, or where that is not affordable, differences of exact gradients.
    Evaluation Final(const Eigen::VectorXd& theta, ThetaScale scale) const override;
    Eigen::MatrixXd WeightedCurvature(const Eigen::VectorXd& theta, ThetaScale scale,
                                      const Eigen::MatrixXd& weight) const override;
    double Resolution() const override { return 1e-12; }

    /// The equations at theta, for predictions and combinations.
    CrossedEquations& At(const Eigen::VectorXd& theta, ThetaScale scale) const;

private:
    Evaluation Translate(const CrossedValue& value) const;
    void Use(ThetaScale scale) const;

    const CrossedProblem& fProblem;
    mutable CrossedEquations fEquations;
};

}  // namespace engine
