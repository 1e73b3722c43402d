#include "engine/crossed/CrossedProblem.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/PredictionState.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace engine {

namespace {

constexpr int kMostJoint = 1700;  // coefficients whose joint errors are held: 3 million numbers, and their derivatives

/// A subject's coefficients within the terms of a block.
struct CrossedSubject {
    struct Piece {
        int fTerm;
        int fIndex;   ///< of the subject in the term
        int fColumn;  ///< first column in the block
    };
    std::vector<int> fCodes;
    int fGroup = -1;
    std::vector<Piece> fPieces;
    std::vector<int> fAt;  ///< per column of the block, the coefficient's place among all; -1: no record touches it
};

struct CrossedBlock {
    int fColumns = 0;
    SubjectIndex fNumbers;
    std::vector<CrossedSubject> fSubjects;  ///< ascending by codes
};

class CrossedSource : public RandomSource {
public:
    explicit CrossedSource(const FittedModel& model)
        : fModel(model),
          fProblem(*model.fCrossed),
          fEquations(static_cast<const CrossedLikelihood&>(*model.fObjective).At(model.fTheta, ThetaScale::kReported)),
          fBlocks(model.fSpec.fRandom.size()) {
        fEquations.Evaluate(model.fTheta, CrossedOrder::kGradient);
        CollectSubjects();
        fEstimates.resize(fProblem.Statistics()->Coefficients());
        for (int t = 0; t < fProblem.Statistics()->Terms(); ++t)
            fEstimates.segment(fProblem.Statistics()->fOffset[t], fProblem.Statistics()->Size(t)) =
                fEquations.Predictions(t).reshaped();
    }

    int Find(int block, const std::vector<int>& codes) const override { return fBlocks[block].fNumbers.Find(codes); }
    double Predicted(int block, int subject, int column) const override {
        const int at = fBlocks[block].fSubjects[subject].fAt[column];
        return at >= 0 ? fEstimates[at] : 0.0;
    }

    void Combine(const Eigen::MatrixXd& kept, std::span<const MixedRow> rows, bool slopes,
                 Combination& result) const override {
        if (fJoint) return fJoint->Combine(kept, rows, slopes, result);
        // Centred columns = original ones N^-1, so that l' b = (N^-T l)' b centred.
        const Eigen::MatrixXd centred =
            fModel.Basis().KeptTransform().transpose().triangularView<Eigen::Lower>().solve(kept);
        std::vector<CrossedEquations::Row> wanted(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i) {
            wanted[i].fFixed = centred.col(static_cast<Eigen::Index>(i));
            for (const MixedRow::RandomTerm& term : rows[i].fRandom) {
                const int at = fBlocks[term.fBlock].fSubjects[term.fSubject].fAt[term.fColumn];
                if (at >= 0) wanted[i].fRandom.emplace_back(at, term.fCoefficient);
            }
        }
        CrossedEquations::Combination combined = fEquations.Combine(wanted);
        result.fCovariance = std::move(combined.fCovariance);
        if (slopes) result.fSlopes = std::move(combined.fDerivatives);
    }

    std::vector<SubjectPrediction> Predictions(int block) const override {
        std::vector<Eigen::MatrixXd> covariances(fProblem.Terms().size());
        for (std::size_t t = 0; t < covariances.size(); ++t) {
            if (fProblem.Terms()[t].fBlock == block)
                covariances[t] = fEquations.PredictionCovariances(static_cast<int>(t));
        }
        std::vector<SubjectPrediction> predictions;
        for (std::size_t s = 0; s < fBlocks[block].fSubjects.size(); ++s) {
            const CrossedSubject& subject = fBlocks[block].fSubjects[s];
            // What no record touches has the prediction 0, with all of its variance.
            SubjectPrediction prediction{subject.fCodes, subject.fGroup, Eigen::VectorXd(fBlocks[block].fColumns),
                                         fModel.RandomCovariance(block, subject.fGroup).diagonal().cwiseSqrt()};
            for (int c = 0; c < fBlocks[block].fColumns; ++c)
                prediction.fEstimate[c] = Predicted(block, static_cast<int>(s), c);
            for (const CrossedSubject::Piece& piece : subject.fPieces) {
                const Eigen::Index width = covariances[piece.fTerm].rows();
                for (Eigen::Index c = 0; c < width; ++c) {
                    const double variance = covariances[piece.fTerm](c, piece.fIndex * width + c);
                    prediction.fStdError[piece.fColumn + c] = std::sqrt(std::max(0.0, variance));
                }
            }
            predictions.push_back(std::move(prediction));
        }
        return predictions;
    }

    // All coefficients have errors in common: they are one unit.
    RandomState Keep() const override {
        RandomState state;
        state.fHalf = fModel.fInference->Half();
        RandomState::Unit unit;
        std::vector<MixedRow> rows;
        std::vector<double> estimates;
        for (int b = 0; b < static_cast<int>(fBlocks.size()); ++b) {
            const int width = fBlocks[b].fColumns;
            for (int s = 0; s < static_cast<int>(fBlocks[b].fSubjects.size()); ++s) {
                const CrossedSubject& subject = fBlocks[b].fSubjects[s];
                unit.fParts.push_back({b, subject.fCodes, subject.fGroup, static_cast<int>(estimates.size()), width});
                for (int c = 0; c < width; ++c) {
                    estimates.push_back(Predicted(b, s, c));
                    if (HoldsJoint()) rows.push_back({{}, {{b, s, c, 1.0}}});
                }
            }
        }
        unit.fEstimate = Eigen::Map<Eigen::VectorXd>(estimates.data(), static_cast<Eigen::Index>(estimates.size()));
        unit.fErrors = HoldsJoint() ? 0 : -1;
        state.fUnits.push_back(std::move(unit));
        if (!HoldsJoint()) return state;
        const auto fixed = state.fHalf.rows();
        const auto random = static_cast<Eigen::Index>(rows.size());
        rows.resize(rows.size() + static_cast<std::size_t>(fixed));
        Eigen::MatrixXd kept = Eigen::MatrixXd::Zero(fixed, random + fixed);
        kept.rightCols(fixed).setIdentity();
        Combination joint;
        Combine(kept, rows, true, joint);
        const RandomState::Errors errors = MakeErrors(joint.fCovariance, state.fHalf);
        state.fErrors.push_back(errors);
        for (std::size_t k = 0; k < joint.fSlopes.size(); ++k) {
            if (joint.fSlopes[k].size() == 0 || !(fModel.fThetaCovariance(k, k) > 0.0)) continue;
            state.fSlopes.push_back(MakeSlope(static_cast<int>(k), joint.fSlopes[k], state.fHalf, errors));
        }
        return state;
    }

    void Prepare() const override {
        if (HoldsJoint() && !fJoint) fJoint = std::make_unique<KeptSource>(Keep(), static_cast<int>(fBlocks.size()));
    }

private:
    bool HoldsJoint() const { return fProblem.Statistics()->Coefficients() <= kMostJoint; }

    /// From the covariance of random and fixed effects, in this order: pull = -cov(u, b) H^-T, own the rest.
    static RandomState::Errors MakeErrors(const Eigen::MatrixXd& covariance, const Eigen::MatrixXd& half) {
        const Eigen::Index random = covariance.rows() - half.rows();
        const Eigen::MatrixXd pull =
            -half.partialPivLu().solve(covariance.bottomLeftCorner(half.rows(), random)).transpose();
        return {covariance.topLeftCorner(random, random) - pull * pull.transpose(), pull};
    }

    /// The derivative of H is taken as half of dC H^-T; that of the pull goes with it.
    static RandomState::Slope MakeSlope(int param, const Eigen::MatrixXd& change, const Eigen::MatrixXd& half,
                                        const RandomState::Errors& errors) {
        const Eigen::Index fixed = half.rows();
        const Eigen::Index random = change.rows() - fixed;
        const Eigen::PartialPivLU<Eigen::MatrixXd> factor(half);
        RandomState::Slope slope;
        slope.fParam = param;
        slope.fHalf = 0.5 * factor.solve(change.bottomRightCorner(fixed, fixed)).transpose();
        const Eigen::MatrixXd right = change.topRightCorner(random, fixed) + errors.fPull * slope.fHalf.transpose();
        const Eigen::MatrixXd pull = -factor.solve(right.transpose()).transpose();
        const Eigen::MatrixXd product = pull * errors.fPull.transpose();
        slope.fErrors.push_back({change.topLeftCorner(random, random) - product - product.transpose(), pull});
        return slope;
    }

    // Reads the first record of each subject.
    void CollectSubjects() {
        std::vector<std::map<std::vector<int>, CrossedSubject>> sorted(fBlocks.size());
        for (std::size_t t = 0; t < fProblem.Terms().size(); ++t) {
            const CrossedTerm& term = fProblem.Terms()[t];
            const RandomBlock& block = fModel.fSpec.fRandom[term.fBlock];
            const EffectDesign design(block.fEffects, fModel.fSpec.fLevels);
            for (std::size_t j = 0; j < term.fFirstRecords.size(); ++j) {
                const double* record = fModel.fView.Row(term.fFirstRecords[j]);
                std::vector<int> codes;
                for (int variable : block.fSubjects)
                    codes.push_back(static_cast<int>(record[variable]));
                int column = 0;
                if (term.IsDivided()) {
                    ColumnHit hit{};
                    term.fDesign.PlainHits(record, &hit);
                    column = design.Offset(term.fEffect) + hit.fColumn;
                }
                CrossedSubject& subject = sorted[term.fBlock][codes];
                subject.fGroup = block.fGroup >= 0 ? static_cast<int>(record[block.fGroup]) : -1;
                subject.fPieces.push_back({static_cast<int>(t), static_cast<int>(j), column});
            }
        }
        for (std::size_t b = 0; b < fBlocks.size(); ++b) {
            CrossedBlock& block = fBlocks[b];
            block.fColumns = EffectDesign(fModel.fSpec.fRandom[b].fEffects, fModel.fSpec.fLevels).NumColumns();
            for (auto& [codes, subject] : sorted[b]) {
                block.fNumbers.Add(codes);
                subject.fCodes = codes;
                for (int c = 0; c < block.fColumns; ++c)
                    subject.fAt.push_back(fProblem.Coefficient(static_cast<int>(b), codes, c));
                block.fSubjects.push_back(std::move(subject));
            }
        }
    }

    const FittedModel& fModel;
    const CrossedProblem& fProblem;
    CrossedEquations& fEquations;
    std::vector<CrossedBlock> fBlocks;
    Eigen::VectorXd fEstimates;                  ///< of all coefficients
    mutable std::unique_ptr<KeptSource> fJoint;  ///< once they are prepared
};

}  // namespace

std::unique_ptr<RandomSource> MakeCrossedSource(const FittedModel& model) {
    return std::make_unique<CrossedSource>(model);
}

}  // namespace engine
