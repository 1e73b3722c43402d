#pragma once

#include "engine/lmm/RandomSource.h"
#include "engine/lmm/SubjectIndex.h"
#include "engine/model/Matrices.h"

#include <span>
#include <vector>

namespace engine {

/// Predicted random effects and the covariance of their errors, free of the records that they came from: what scoring
/// needs of a fit, in memory or in a model file.
///
/// Effects whose errors have more in common than the fixed effects' share stand in one unit. With cov(beta_hat) = H H'
/// the errors of a unit are cov(u_hat - u) = own + pull pull', and cov(u_hat - u, beta_hat - beta) = -pull H'.
struct RandomState {
    /// One inner subject's effects of one block.
    struct Part {
        int fBlock = 0;
        std::vector<int> fSubject;  ///< codes of the block's subject variables
        int fGroup = -1;
        int fColumn = 0;  ///< its first place in the unit
        int fWidth = 0;
    };
    struct Unit {
        std::vector<Part> fParts;
        Eigen::VectorXd fEstimate;
        int fErrors = -1;  ///< index into the errors; -1: they are not known
    };
    struct Errors {
        Eigen::MatrixXd fOwn;
        Eigen::MatrixXd fPull;  ///< columns of the unit x p
    };
    /// Derivatives in one covariance parameter.
    struct Slope {
        int fParam = 0;
        Eigen::MatrixXd fHalf;
        std::vector<Errors> fErrors;
    };

    std::vector<Unit> fUnits;
    Eigen::MatrixXd fHalf;  ///< H, p x p, kept columns in their original parametrisation
    std::vector<Errors> fErrors;
    std::vector<Slope> fSlopes;

    /// The same for the first blocks alone, with errors that several units share held once.
    RandomState ForBlocks(int blocks) const;
    /// Doubles in errors and slopes.
    double Numbers() const;
    /// Leaves out derivatives, and then errors, until they are at most so many numbers.
    void Shorten(double numbers);
};

/// Answers from a state.
class KeptSource : public RandomSource {
public:
    KeptSource(RandomState state, int blocks);

    int Find(int block, const std::vector<int>& codes) const override { return fSubjects[block].Find(codes); }
    double Predicted(int block, int subject, int column) const override;
    void Combine(const Eigen::MatrixXd& kept, std::span<const MixedRow> rows, bool slopes,
                 Combination& result) const override;
    std::vector<SubjectPrediction> Predictions(int block) const override;
    RandomState Keep() const override { return fState; }
    bool HasErrors() const override { return !fState.fErrors.empty(); }
    bool HasSlopes() const override { return !fState.fSlopes.empty(); }

protected:
    /// Called before slopes are used.
    virtual void NeedSlopes() const {}

    mutable RandomState fState;

private:
    struct Place {
        int fUnit = -1;
        int fColumn = 0;
    };
    const Place& PlaceOf(const MixedRow::RandomTerm& term) const { return fPlaces[term.fBlock][term.fSubject]; }
    bool KnowsErrors(std::span<const MixedRow> rows) const;
    void Pull(std::span<const MixedRow> rows, const std::vector<RandomState::Errors>& errors,
              Eigen::MatrixXd& half) const;
    void AddOwn(std::span<const MixedRow> rows, const std::vector<RandomState::Errors>& errors,
                Eigen::MatrixXd& covariance) const;

    std::vector<SubjectIndex> fSubjects;      ///< per block
    std::vector<std::vector<Place>> fPlaces;  ///< per block and subject
};

}  // namespace engine
