#include "engine/crossed/SchurComplement.h"

#include <Eigen/Sparse>
#include <algorithm>
#include <cmath>
#include <numeric>

namespace engine {

namespace {

using Sparse = Eigen::SparseMatrix<double>;
using Permutation = Eigen::PermutationMatrix<Eigen::Dynamic, Eigen::Dynamic, int>;

constexpr int kAlwaysDense = 1500;
constexpr double kMaxSparseElements = 134217728.0;
/// A dense operation in a blocked kernel takes about a tenth of the time of one in a sparse column.
constexpr double kDenseAdvantage = 10.0;

/// The lower triangle's pattern of S: pairs met by one eliminated subject, pairs of rest terms met by one record, and
/// each rest subject's own block. Empty when it has more than kMaxSparseElements elements.
Sparse Pattern(const CrossedStatistics& stat) {
    std::vector<std::vector<int>> rows(stat.fRest);
    double elements = 0.0;
    auto tidy = [&](std::vector<int>& list) {
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
    };
    std::vector<std::size_t> tidied(stat.fRest, 64);
    auto insert = [&](int column, int row) {
        std::vector<int>& list = rows[column];
        list.push_back(row);
        if (list.size() < tidied[column]) return;
        elements -= static_cast<double>(list.size());
        tidy(list);
        elements += static_cast<double>(list.size());
        tidied[column] = 2 * list.size() + 64;
    };
    for (int t = 0; t < stat.Terms(); ++t) {
        if (t == stat.fEliminated) continue;
        const int q = stat.fColumns[t];
        for (int j = 0; j < stat.fSubjects[t]; ++j)
            for (int a = 0; a < q; ++a)
                for (int b = a; b < q; ++b)
                    insert(stat.fRestOffset[t] + j * q + a, stat.fRestOffset[t] + j * q + b);
    }
    for (const auto& entry : stat.fBetween)
        insert(entry.fColumn, entry.fRow);
    for (std::size_t j = 0; j + 1 < stat.fFirstMet.size(); ++j) {
        const auto first = stat.fFirstMet[j], last = stat.fFirstMet[j + 1];
        for (auto a = first; a < last; ++a)
            for (auto b = a + 1; b < last; ++b)
                insert(stat.fMet[a], stat.fMet[b]);
        elements += 0.5 * static_cast<double>(last - first) * static_cast<double>(last - first);
        if (elements > 4.0 * kMaxSparseElements) return Sparse();
    }
    Sparse pattern(stat.fRest, stat.fRest);
    std::vector<int> counts(stat.fRest);
    for (int c = 0; c < stat.fRest; ++c) {
        tidy(rows[c]);
        counts[c] = static_cast<int>(rows[c].size());
    }
    pattern.reserve(counts);
    for (int c = 0; c < stat.fRest; ++c)
        for (int r : rows[c])
            pattern.insert(r, c) = 1.0;
    pattern.makeCompressed();
    return pattern;
}

/// Elements of the Cholesky factor's columns by the row-subtree method of Gilbert, Ng and Peyton (1994, section 2), for
/// a symmetric matrix given by its upper triangle in the order of elimination.
std::vector<int> FactorCounts(const Sparse& upper) {
    const int n = static_cast<int>(upper.cols());
    std::vector<int> parent(n, -1), mark(n, -1), counts(n, 1);
    for (int k = 0; k < n; ++k) {
        mark[k] = k;
        for (Sparse::InnerIterator it(upper, k); it; ++it) {
            for (int i = static_cast<int>(it.row()); i < k && mark[i] != k; i = parent[i]) {
                if (parent[i] == -1) parent[i] = k;
                ++counts[i];
                mark[i] = k;
            }
        }
    }
    return counts;
}

/// S in compressed columns in the order of elimination, with a left-looking factor on a fixed pattern by Eigen and the
/// inverse on that pattern by the recursion of Takahashi, Fagan and Chin (1973).
class SparseSchur final : public SchurComplement {
public:
    SparseSchur(const Sparse& pattern, const Permutation& order, double work) : fWork(work), fOrder(order) {
        // Eigen's own ordering is switched off: rows and columns are permuted here, once.
        fMatrix.resize(pattern.rows(), pattern.cols());
        fMatrix.selfadjointView<Eigen::Lower>() = pattern.selfadjointView<Eigen::Lower>().twistedBy(order);
        // The permuted columns come out unsorted; each transposition sorts.
        const Sparse transposed = fMatrix.transpose();
        fMatrix = transposed.transpose();
        fMatrix.makeCompressed();
        fFactor.analyzePattern(fMatrix);
    }

    int Order() const override { return static_cast<int>(fMatrix.cols()); }

    void Reset() override {
        std::fill(fMatrix.valuePtr(), fMatrix.valuePtr() + fMatrix.nonZeros(), 0.0);
        for (int c = 0; c < Order(); ++c)
            fMatrix.valuePtr()[fMatrix.outerIndexPtr()[c]] = 1.0;
        fInverse.clear();
    }

    void Add(int column, const int* rows, const double* values, int count) override {
        for (int i = 0; i < count; ++i)
            fMatrix.valuePtr()[Find(fMatrix, rows[i], column)] += values[i];
    }

    double Diagonal(int i) const override { return fMatrix.valuePtr()[fMatrix.outerIndexPtr()[fOrder.indices()[i]]]; }

    bool Factor() override {
        fFactor.factorize(fMatrix);
        if (fFactor.info() != Eigen::Success) return false;
        fLogDeterminant = 2.0 * fFactor.matrixL().nestedExpression().diagonal().array().log().sum();
        return std::isfinite(fLogDeterminant);
    }

    double LogDeterminant() const override { return fLogDeterminant; }

    void Solve(Eigen::MatrixXd& b) const override {
        if (b.cols() == 0) return;
        Eigen::MatrixXd permuted = fOrder * b;
        fFactor.matrixL().solveInPlace(permuted);
        fFactor.matrixU().solveInPlace(permuted);
        b = fOrder.inverse() * permuted;
    }

    void Invert() override {
        const Sparse& factor = fFactor.matrixL().nestedExpression();
        const int n = Order();
        const int* outer = factor.outerIndexPtr();
        const int* inner = factor.innerIndexPtr();
        const double* value = factor.valuePtr();
        fInverse.assign(factor.nonZeros(), 0.0);
        // For column j of the factor, from the last to the first: z_ij = -sum_k l_kj z_ik / l_jj over k > j in the
        // column's pattern, for i in the pattern; z_jj = (1/l_jj - sum_k l_kj z_kj) / l_jj.
        std::vector<double> sum;
        for (int j = n - 1; j >= 0; --j) {
            const int first = outer[j] + 1, last = outer[j + 1];
            const int count = last - first;
            sum.assign(count, 0.0);
            for (int a = 0; a < count; ++a) {
                const int k = inner[first + a];
                const double l = value[first + a];
                // Column k of the inverse holds z_ik for i >= k; what is above comes by symmetry.
                double mine = fInverse[outer[k]] * l;
                int at = a + 1;
                for (int e = outer[k] + 1; e < outer[k + 1] && at < count; ++e) {
                    if (inner[e] != inner[first + at]) continue;
                    mine += fInverse[e] * value[first + at];
                    sum[at] += fInverse[e] * l;
                    ++at;
                }
                sum[a] += mine;
            }
            double diagonal = 1.0 / value[outer[j]];
            for (int a = 0; a < count; ++a) {
                fInverse[first + a] = -sum[a] / value[outer[j]];
                diagonal -= value[first + a] * fInverse[first + a];
            }
            fInverse[outer[j]] = diagonal / value[outer[j]];
        }
    }

    double Entry(int row, int column) const override {
        return fInverse[Find(fFactor.matrixL().nestedExpression(), row, column)];
    }

    Eigen::MatrixXd Form(const int* cols, const Eigen::Ref<const Eigen::MatrixXd>& h) const override {
        const Eigen::Index n = h.cols();
        Eigen::MatrixXd block(n, n);
        for (Eigen::Index a = 0; a < n; ++a)
            for (Eigen::Index b = a; b < n; ++b)
                block(b, a) = Entry(cols[b], cols[a]);
        return h * (block.selfadjointView<Eigen::Lower>() * h.transpose());
    }

    bool IsDense() const override { return false; }
    bool IsInverted() const override { return !fInverse.empty(); }

    double Work() const override { return kDenseAdvantage * fWork; }

private:
    /// Where element (row, column), in rest indices, stands in a lower triangle in elimination order.
    std::ptrdiff_t Find(const Sparse& matrix, int row, int column) const {
        const int a = fOrder.indices()[row], b = fOrder.indices()[column];
        const int* inner = matrix.innerIndexPtr();
        const int* first = inner + matrix.outerIndexPtr()[std::min(a, b)];
        const int* last = inner + matrix.outerIndexPtr()[std::min(a, b) + 1];
        return std::lower_bound(first, last, std::max(a, b)) - inner;
    }

    double fWork;
    Permutation fOrder;  ///< takes a rest index to its place in the order of elimination
    Sparse fMatrix;
    Eigen::SimplicialLLT<Sparse, Eigen::Lower, Eigen::NaturalOrdering<int>> fFactor;
    std::vector<double> fInverse;
    double fLogDeterminant = 0.0;
};

}  // namespace

std::unique_ptr<SchurComplement> MakeSparseSchur(const CrossedStatistics& stat) {
    const Sparse pattern = Pattern(stat);
    if (pattern.cols() == 0) return nullptr;
    Permutation elimination;
    Eigen::AMDOrdering<int>()(pattern.selfadjointView<Eigen::Lower>(), elimination);
    // The ordering gives the original index at each place.
    const Permutation place = elimination.inverse();
    Sparse upper(pattern.rows(), pattern.cols());
    upper.selfadjointView<Eigen::Upper>() = pattern.selfadjointView<Eigen::Lower>().twistedBy(place);
    double elements = 0.0, work = 0.0;
    for (int count : FactorCounts(upper)) {
        elements += count;
        work += 3.0 * static_cast<double>(count) * count;
    }
    if (elements > kMaxSparseElements) return nullptr;
    return std::make_unique<SparseSchur>(pattern, place, work);
}

std::unique_ptr<SchurComplement> MakeSchurComplement(const CrossedStatistics& stat, Workers* crew) {
    if (stat.fRest <= kAlwaysDense) return MakeDenseSchur(stat.fRest, crew);
    const bool denseFits = stat.fRest <= kMaxDenseOrder;
    // A subject that meets n coefficients fills n^2 / 2 elements: many of them, and S is as good as dense.
    double met = 0.0;
    for (std::size_t j = 0; j + 1 < stat.fFirstMet.size(); ++j) {
        const double count = static_cast<double>(stat.fFirstMet[j + 1] - stat.fFirstMet[j]);
        met += 0.5 * count * count;
    }
    const double order = stat.fRest;
    constexpr double kCrowded = 0.02;
    if (denseFits && met > kCrowded * order * order) return MakeDenseSchur(stat.fRest, crew);
    std::unique_ptr<SchurComplement> sparse = MakeSparseSchur(stat);
    if (denseFits && (!sparse || sparse->Work() > order * order * order)) return MakeDenseSchur(stat.fRest, crew);
    return sparse;
}

}  // namespace engine
