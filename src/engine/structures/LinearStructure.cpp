#include "engine/structures/LinearStructure.h"

#include "engine/structures/CholeskyStructure.h"
#include "engine/structures/ParamNames.h"
#include "engine/structures/PositionFill.h"
#include "engine/structures/StartValues.h"

#include <numeric>

namespace engine {

namespace {

/// A pattern tells the entry (hi, lo), hi >= lo, of the full matrix, its coefficient of parameter k, and the parameters
/// that come nearest to a given matrix.
template <class Pattern>
class LinearStructure : public Structure {
public:
    LinearStructure(int dimension, std::vector<ParamInfo> params, Pattern pattern)
        : fDimension(dimension), fParams(std::move(params)), fPattern(std::move(pattern)), fAll(dimension) {
        std::iota(fAll.begin(), fAll.end(), 0);
    }

    int Dimension() const override { return fDimension; }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return true; }

    Eigen::VectorXd Start(const StartHint& hint) const override {
        const Eigen::MatrixXd moments = UsableMoments(hint, fDimension);
        const Eigen::MatrixXd inner = moments.diagonal().mean() * Eigen::MatrixXd::Identity(fDimension, fDimension);
        return MoveInside(*this, fPattern.Nearest(inner), fPattern.Nearest(moments));
    }

    bool Feasible(const Eigen::VectorXd& theta) const override {
        if (!WithinBounds(fParams, theta)) return false;
        if constexpr (Pattern::kBoundsSuffice) return true;
        Eigen::MatrixXd full;
        Fill(theta, fAll, full);
        return IsPositiveSemidefinite(full);
    }

    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        Fill(theta, places.fPositions, out);
    }

    void First(const Eigen::VectorXd&, const Places& places, int k, Eigen::MatrixXd& out) const override {
        FillByPositions(places.fPositions, out, [&](int hi, int lo) { return fPattern.Coefficient(k, hi, lo); });
    }

    bool Second(const Eigen::VectorXd&, const Places&, int, int, Eigen::MatrixXd&) const override { return false; }

protected:
    void Fill(const Eigen::VectorXd& theta, const std::vector<int>& positions, Eigen::MatrixXd& out) const {
        FillByPositions(positions, out, [&](int hi, int lo) { return fPattern.Value(theta, hi, lo); });
    }

    const int fDimension;
    const std::vector<ParamInfo> fParams;
    const Pattern fPattern;

private:
    std::vector<int> fAll;
};

struct VariancesPattern {
    static constexpr bool kBoundsSuffice = true;
    std::vector<int> fGroups;
    int fCount;

    double Value(const Eigen::VectorXd& theta, int hi, int lo) const { return hi == lo ? theta[fGroups[hi]] : 0.0; }
    double Coefficient(int k, int hi, int lo) const { return hi == lo && fGroups[hi] == k ? 1.0 : 0.0; }
    Eigen::VectorXd Nearest(const Eigen::MatrixXd& matrix) const {
        Eigen::VectorXd sum = Eigen::VectorXd::Zero(fCount), members = sum;
        for (std::size_t i = 0; i < fGroups.size(); ++i) {
            sum[fGroups[i]] += matrix(i, i);
            members[fGroups[i]] += 1.0;
        }
        return sum.cwiseQuotient(members.cwiseMax(1.0));
    }
};

struct UnstructuredPattern {
    static constexpr bool kBoundsSuffice = false;

    double Value(const Eigen::VectorXd& theta, int hi, int lo) const { return theta[TriangleIndex(hi, lo)]; }
    double Coefficient(int k, int hi, int lo) const { return TriangleIndex(hi, lo) == k ? 1.0 : 0.0; }
    Eigen::VectorXd Nearest(const Eigen::MatrixXd& matrix) const { return PackTriangle(matrix); }
};

class Unstructured : public LinearStructure<UnstructuredPattern> {
public:
    Unstructured(int dimension, std::vector<ParamInfo> params, bool fixedFirst)
        : LinearStructure(dimension, std::move(params), {}), fFixedFirst(fixedFirst) {}

    Eigen::VectorXd Start(const StartHint& hint) const override {
        const Eigen::VectorXd start = LinearStructure::Start(hint);
        return fFixedFirst ? Eigen::VectorXd(start / start[0]) : start;
    }

    std::unique_ptr<Structure> Working() const override { return MakeCholesky(fDimension, fFixedFirst); }

    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        const Eigen::MatrixXd factor = UnpackLower(working, fDimension);
        if (jacobian) *jacobian = CholeskyJacobian(factor);
        return PackTriangle(factor * factor.transpose());
    }

    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        return PackTriangle(SemidefiniteCholesky(UnpackSymmetric(theta, fDimension)));
    }

private:
    const bool fFixedFirst;
};

}  // namespace

std::unique_ptr<Structure> MakeVariances(std::vector<int> groups) {
    const int dimension = static_cast<int>(groups.size());
    const int count = groups.empty() ? 0 : *std::max_element(groups.begin(), groups.end()) + 1;
    return std::make_unique<LinearStructure<VariancesPattern>>(dimension, VarianceInfos(count),
                                                               VariancesPattern{std::move(groups), count});
}

std::unique_ptr<Structure> MakeUnstructured(int dimension, bool fixedFirst) {
    std::vector<ParamInfo> params;
    for (int i = 0; i < dimension; ++i) {
        for (int j = 0; j < i; ++j)
            params.push_back(CovarianceInfo(Indexed("UN", i, j)));
        params.push_back(VarianceInfo(Indexed("UN", i, i)));
    }
    params.front().fFixed = fixedFirst;
    return std::make_unique<Unstructured>(dimension, std::move(params), fixedFirst);
}

}  // namespace engine
