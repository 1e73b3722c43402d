#include "engine/structures/AffineStructure.h"

#include "engine/structures/StartValues.h"

namespace engine {

namespace {

class AffineStructure : public Structure {
public:
    AffineStructure(std::unique_ptr<Structure> inner, std::vector<ParamInfo> params, Eigen::MatrixXd matrix,
                    Eigen::VectorXd offset)
        : fInner(std::move(inner)),
          fParams(std::move(params)),
          fMatrix(std::move(matrix)),
          fOffset(std::move(offset)),
          fInverse(fMatrix.inverse()) {}

    int Dimension() const override { return fInner->Dimension(); }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return fInner->IsLinear() && fOffset.isZero(0.0); }

    Eigen::VectorXd Start(const StartHint& hint) const override { return fInverse * (fInner->Start(hint) - fOffset); }

    bool Feasible(const Eigen::VectorXd& theta) const override { return WithinBounds(fParams, theta); }

    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        fInner->Matrix(Inner(theta), places, out);
    }

    void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const override {
        const Eigen::VectorXd inner = Inner(theta);
        out.setZero(places.Size(), places.Size());
        Eigen::MatrixXd term;
        for (int a = 0; a < fMatrix.rows(); ++a) {
            if (fMatrix(a, k) == 0.0) continue;
            fInner->First(inner, places, a, term);
            out += fMatrix(a, k) * term;
        }
    }

    bool Second(const Eigen::VectorXd& theta, const Places& places, int k, int l, Eigen::MatrixXd& out) const override {
        if (fInner->IsLinear()) return false;
        const Eigen::VectorXd inner = Inner(theta);
        Eigen::MatrixXd sum, term;
        for (int a = 0; a < fMatrix.rows(); ++a) {
            for (int b = 0; b < fMatrix.rows(); ++b) {
                const double weight = fMatrix(a, k) * fMatrix(b, l);
                if (weight == 0.0 || !fInner->Second(inner, places, a, b, term)) continue;
                if (sum.size() == 0) sum.setZero(places.Size(), places.Size());
                sum += weight * term;
            }
        }
        if (sum.size() == 0) return false;
        out = std::move(sum);
        return true;
    }

private:
    Eigen::VectorXd Inner(const Eigen::VectorXd& theta) const { return fMatrix * theta + fOffset; }

    const std::unique_ptr<Structure> fInner;
    const std::vector<ParamInfo> fParams;
    const Eigen::MatrixXd fMatrix;
    const Eigen::VectorXd fOffset;
    const Eigen::MatrixXd fInverse;
};

}  // namespace

std::unique_ptr<Structure> MakeAffine(std::unique_ptr<Structure> inner, std::vector<ParamInfo> params,
                                      Eigen::MatrixXd matrix, Eigen::VectorXd offset) {
    return std::make_unique<AffineStructure>(std::move(inner), std::move(params), std::move(matrix), std::move(offset));
}

}  // namespace engine
