#include "engine/structures/KroneckerStructure.h"

#include "engine/structures/StartValues.h"

namespace engine {

namespace {

using StructurePointer = std::shared_ptr<const Structure>;

class KroneckerStructure : public Structure {
public:
    KroneckerStructure(StructurePointer first, StructurePointer second)
        : fFirst(std::move(first)), fSecond(std::move(second)), fNumFirst(fFirst->NumParams()) {
        for (const ParamInfo& info : fFirst->Params())
            Add(info, "A ", false);
        for (const ParamInfo& info : fSecond->Params())
            Add(info, "B ", true);
    }

    int Dimension() const override { return fFirst->Dimension() * fSecond->Dimension(); }
    const std::vector<ParamInfo>& Params() const override { return fParams; }
    bool IsLinear() const override { return false; }

    Eigen::VectorXd Start(const StartHint& hint) const override {
        StartHint first = hint, second = hint;
        SplitMoments(UsableMoments(hint, Dimension()), first.fMoments, second.fMoments);
        return Join(fFirst->Start(first), fSecond->Start(second));
    }

    bool Feasible(const Eigen::VectorXd& theta) const override {
        return theta.size() == NumParams() && fFirst->Feasible(Head(theta)) && fSecond->Feasible(Tail(theta));
    }

    void Matrix(const Eigen::VectorXd& theta, const Places& places, Eigen::MatrixXd& out) const override {
        Eigen::MatrixXd other;
        fFirst->Matrix(Head(theta), Of(places.fPositions), out);
        fSecond->Matrix(Tail(theta), Of(places.fSecond), other);
        out.array() *= other.array();
    }

    void First(const Eigen::VectorXd& theta, const Places& places, int k, Eigen::MatrixXd& out) const override {
        Eigen::MatrixXd other;
        if (k < fNumFirst) {
            fFirst->First(Head(theta), Of(places.fPositions), k, out);
            fSecond->Matrix(Tail(theta), Of(places.fSecond), other);
        } else {
            fFirst->Matrix(Head(theta), Of(places.fPositions), other);
            fSecond->First(Tail(theta), Of(places.fSecond), k - fNumFirst, out);
        }
        out.array() *= other.array();
    }

    bool Second(const Eigen::VectorXd& theta, const Places& places, int k, int l, Eigen::MatrixXd& out) const override {
        if (k > l) std::swap(k, l);
        Eigen::MatrixXd other;
        if (l < fNumFirst) {
            if (!fFirst->Second(Head(theta), Of(places.fPositions), k, l, out)) return false;
            fSecond->Matrix(Tail(theta), Of(places.fSecond), other);
        } else if (k >= fNumFirst) {
            if (!fSecond->Second(Tail(theta), Of(places.fSecond), k - fNumFirst, l - fNumFirst, out)) return false;
            fFirst->Matrix(Head(theta), Of(places.fPositions), other);
        } else {
            fFirst->First(Head(theta), Of(places.fPositions), k, out);
            fSecond->First(Tail(theta), Of(places.fSecond), l - fNumFirst, other);
        }
        out.array() *= other.array();
        return true;
    }

    std::unique_ptr<Structure> Working() const override {
        if (!fFirst->Working() && !fSecond->Working()) return nullptr;
        return MakeKronecker(WorkingOf(fFirst), WorkingOf(fSecond));
    }

    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const override {
        Eigen::MatrixXd first, second;
        const Eigen::VectorXd theta = Join(fFirst->FromWorking(Head(working), jacobian ? &first : nullptr),
                                           fSecond->FromWorking(Tail(working), jacobian ? &second : nullptr));
        if (jacobian) {
            jacobian->setZero(theta.size(), theta.size());
            jacobian->topLeftCorner(first.rows(), first.cols()) = first;
            jacobian->bottomRightCorner(second.rows(), second.cols()) = second;
        }
        return theta;
    }

    Eigen::VectorXd ToWorking(const Eigen::VectorXd& theta) const override {
        return Join(fFirst->ToWorking(Head(theta)), fSecond->ToWorking(Tail(theta)));
    }

private:
    void Add(ParamInfo info, const char* prefix, bool second) {
        info.fName.insert(0, prefix);
        info.fSecondFactor = second;
        fParams.push_back(std::move(info));
    }

    Eigen::VectorXd Head(const Eigen::VectorXd& theta) const { return theta.head(fNumFirst); }
    Eigen::VectorXd Tail(const Eigen::VectorXd& theta) const { return theta.tail(theta.size() - fNumFirst); }

    static Eigen::VectorXd Join(const Eigen::VectorXd& head, const Eigen::VectorXd& tail) {
        Eigen::VectorXd joined(head.size() + tail.size());
        joined << head, tail;
        return joined;
    }

    static Places Of(const std::vector<int>& positions) {
        Places places;
        places.fPositions = positions;
        return places;
    }

    /// The structure that a factor is estimated through: its working one, or itself.
    static StructurePointer WorkingOf(const StructurePointer& factor) {
        StructurePointer working = factor->Working();
        return working ? working : factor;
    }

    /// Averages of the blocks: B over the diagonal blocks, its first variance then divided out, and A from the traces
    /// of the blocks against B.
    void SplitMoments(const Eigen::MatrixXd& moments, Eigen::MatrixXd& first, Eigen::MatrixXd& second) const {
        const int rows = fFirst->Dimension(), order = fSecond->Dimension();
        second = Eigen::MatrixXd::Zero(order, order);
        for (int p = 0; p < rows; ++p)
            second += moments.block(p * order, p * order, order, order);
        second /= second(0, 0);
        first.resize(rows, rows);
        for (int p = 0; p < rows; ++p) {
            for (int q = 0; q < rows; ++q) {
                first(p, q) = moments.block(p * order, q * order, order, order).trace() / second.trace();
            }
        }
    }

    const StructurePointer fFirst, fSecond;
    const int fNumFirst;
    std::vector<ParamInfo> fParams;
};

}  // namespace

std::unique_ptr<Structure> MakeKronecker(StructurePointer first, StructurePointer second) {
    return std::make_unique<KroneckerStructure>(std::move(first), std::move(second));
}

}  // namespace engine
