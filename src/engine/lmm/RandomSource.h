#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/model/Matrices.h"

#include <memory>
#include <vector>

namespace engine {

struct FittedModel;
struct RandomState;

/// Predictions of random effects, and functions of fixed and random effects with the covariance of their errors.
class RandomSource {
public:
    virtual ~RandomSource() = default;

    /// Whether a block has this subject.
    virtual bool Knows(int block, const std::vector<int>& codes) const = 0;

    struct Combination {
        Eigen::VectorXd fRandom;               ///< the rows' random parts, estimated
        Eigen::MatrixXd fCovariance;           ///< of estimate less truth, fixed parts included
        std::vector<Eigen::MatrixXd> fSlopes;  ///< its derivatives, one a covariance parameter; empty where held
    };
    /// kept: the rows' fixed coefficients, a column a row, kept columns in their original parametrisation. All
    /// subjects are known. slopes: whether derivatives are wanted.
    virtual Combination Combine(const Eigen::MatrixXd& kept, const std::vector<MixedRow>& rows, bool slopes) const = 0;

    virtual std::vector<SubjectPrediction> Predictions(int block) const = 0;

    /// Takes from the records all that the calls above need, derivatives included: afterwards the records may go.
    virtual void Prepare() const {}
    /// What is known in a form of its own. Errors and derivatives are left out where they are too many to hold.
    virtual RandomState Keep() const = 0;
    /// Whether errors are known at all.
    virtual bool HasErrors() const { return true; }
};

/// For a problem by subjects: reads the records once, and again for derivatives, which are central differences.
std::unique_ptr<RandomSource> MakeMarginalSource(const FittedModel& model);

/// For a crossed problem: from its equations, with exact derivatives.
std::unique_ptr<RandomSource> MakeCrossedSource(const FittedModel& model);

}  // namespace engine
