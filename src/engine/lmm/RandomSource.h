#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/model/Matrices.h"

#include <memory>
#include <span>
#include <vector>

namespace engine {

struct FittedModel;
struct RandomState;

/// Predictions of random effects, and functions of fixed and random effects with the covariance of their errors.
class RandomSource {
public:
    virtual ~RandomSource() = default;

    /// A subject's number in its block, -1 when the block doesn't have it.
    virtual int Find(int block, const std::vector<int>& codes) const = 0;
    /// The prediction of one of its effects.
    virtual double Predicted(int block, int subject, int column) const = 0;

    /// Errors of rows, of estimate less truth, fixed parts included.
    struct Combination {
        Eigen::MatrixXd fCovariance;
        std::vector<Eigen::MatrixXd> fSlopes;  ///< its derivatives, one a covariance parameter; empty where held
        Eigen::MatrixXd fHalf, fChange;        ///< room to work in
    };
    /// kept: the rows' fixed coefficients, a column a row, kept columns in their original parametrisation. slopes:
    /// whether derivatives are wanted. result: may be that of an earlier call on the same source.
    virtual void Combine(const Eigen::MatrixXd& kept, std::span<const MixedRow> rows, bool slopes,
                         Combination& result) const = 0;

    virtual std::vector<SubjectPrediction> Predictions(int block) const = 0;

    /// Takes from the records all that the calls above need, derivatives included: afterwards the records may go.
    virtual void Prepare() const {}
    /// What is known in a form of its own. Errors and derivatives are left out where they are too many to hold.
    virtual RandomState Keep() const = 0;
    /// Whether errors are known at all, and their derivatives.
    virtual bool HasErrors() const { return true; }
    virtual bool HasSlopes() const { return true; }
};

/// For a problem by subjects: reads the records once, and again for derivatives, which are central differences.
std::unique_ptr<RandomSource> MakeMarginalSource(const FittedModel& model);

/// For a crossed problem: from its equations, with exact derivatives.
std::unique_ptr<RandomSource> MakeCrossedSource(const FittedModel& model);

}  // namespace engine
