#pragma once

#include "engine/lmm/RandomSource.h"
#include "engine/model/Matrices.h"

#include <string>
#include <unordered_map>
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
    void DropErrors();
};

/// Answers from a state.
class KeptSource : public RandomSource {
public:
    KeptSource(RandomState state, int blocks);

    bool Knows(int block, const std::vector<int>& codes) const override;
    Combination Combine(const Eigen::MatrixXd& kept, const std::vector<MixedRow>& rows, bool slopes) const override;
    std::vector<SubjectPrediction> Predictions(int block) const override;
    RandomState Keep() const override { return fState; }
    bool HasErrors() const override { return !fState.fErrors.empty(); }

protected:
    /// Called before slopes are used.
    virtual void NeedSlopes() const {}

    mutable RandomState fState;

private:
    struct Place {
        int fUnit = -1;
        int fColumn = 0;
    };
    struct Term {
        int fUnit;
        Eigen::VectorXd fCoefficients;
    };
    const Place* Find(int block, const std::vector<int>& codes) const;
    std::vector<Term> Locate(const MixedRow& row, double* estimate) const;
    Eigen::MatrixXd OwnCovariance(const std::vector<std::vector<Term>>& terms,
                                  const std::vector<RandomState::Errors>& errors) const;
    void Pull(const std::vector<std::vector<Term>>& terms, const std::vector<RandomState::Errors>& errors,
              Eigen::MatrixXd& half) const;

    std::vector<std::unordered_map<std::string, Place>> fPlaces;  ///< per block, by codes
};

}  // namespace engine
