#pragma once

#include "engine/crossed/CrossedStatistics.h"
#include "engine/model/Matrices.h"
#include "engine/model/Workers.h"

#include <memory>
#include <vector>

namespace engine {

/// The symmetric positive definite matrix S of the rest coefficients that remains when the largest term is eliminated:
/// assembled, factored and inverted, again at every evaluation.
///
/// Order of calls: Reset, any number of Add, Factor, then LogDeterminant, Solve; after Invert also Entry and Form. Rows
/// and columns are rest indices.
class SchurComplement {
public:
    virtual ~SchurComplement() = default;

    virtual int Order() const = 0;
    /// S = I.
    virtual void Reset() = 0;
    /// S(rows[i], column) += values[i], i below count, all rows >= column. Threads may add to different columns.
    virtual void Add(int column, const int* rows, const double* values, int count) = 0;
    virtual double Diagonal(int i) const = 0;
    /// Cholesky factor. False when S is not positive definite to working accuracy.
    virtual bool Factor() = 0;
    virtual double LogDeterminant() const = 0;
    /// b = S^-1 b.
    virtual void Solve(Eigen::MatrixXd& b) const = 0;
    /// S^-1, of a sparse one the elements on its factor's pattern.
    virtual void Invert() = 0;
    /// Element of S^-1, row >= column, on the pattern of what was added.
    virtual double Entry(int row, int column) const = 0;
    /// h S^-1(cols, cols) h'.
    virtual Eigen::MatrixXd Form(const int* cols, const Eigen::Ref<const Eigen::MatrixXd>& h) const = 0;
    virtual bool IsDense() const = 0;
    virtual bool IsInverted() const = 0;
    /// After Invert, the whole inverse with both triangles, or null when it isn't kept. Stays valid until Reset.
    virtual const Eigen::Map<Eigen::MatrixXd>* WholeInverse() { return nullptr; }
    /// Roughly the floating-point operations of Factor and Invert together.
    virtual double Work() const = 0;
};

/// Greatest order whose matrix is held dense when sparse factoring is not clearly better: 1 GiB.
inline constexpr int kMaxDenseOrder = 11585;

/// The representation that suits the statistics: dense for small orders and for those that would fill in, else sparse
/// with a minimum-degree ordering. Null when neither is within reach (dense beyond kMaxDenseOrder, sparse beyond 2^27
/// elements). crew: for the dense one; null for one thread.
std::unique_ptr<SchurComplement> MakeSchurComplement(const CrossedStatistics& statistics, Workers* crew);

std::unique_ptr<SchurComplement> MakeDenseSchur(int order, Workers* crew = nullptr);
/// Null when the pattern or the factor is too large.
std::unique_ptr<SchurComplement> MakeSparseSchur(const CrossedStatistics& statistics);

}  // namespace engine
