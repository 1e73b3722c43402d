#include "engine/crossed/CrossedProblem.h"
#include "engine/lmm/FittedModel.h"
#include "engine/lmm/PredictionState.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace engine {

namespace {

constexpr Eigen::Index kMostJoint = 500;  // coefficients whose joint errors are kept

/// A subject's coefficients within the terms of a block.
struct CrossedSubject {
    struct Piece {
        int fTerm;
        int fIndex;   ///< of the subject in the term
        int fColumn;  ///< first column in the block
    };
    int fGroup = -1;
    std::vector<Piece> fPieces;
};

class CrossedSource : public RandomSource {
public:
    explicit CrossedSource(const FittedModel& model)
        : fModel(model),
          fProblem(*model.fCrossed),
          fEquations(static_cast<const CrossedLikelihood&>(*model.fObjective).At(model.fTheta, ThetaScale::kReported)),
          fSubjects(model.fSpec.fRandom.size()) {
        fEquations.Evaluate(model.fTheta, CrossedOrder::kGradient);
        CollectSubjects();
    }

    bool Knows(int block, const std::vector<int>& codes) const override { return fSubjects[block].contains(codes); }

    Combination Combine(const Eigen::MatrixXd& kept, const std::vector<MixedRow>& rows, bool slopes) const override {
        // Centred columns = original ones N^-1, so that l' b = (N^-T l)' b centred.
        const Eigen::MatrixXd centred =
            fModel.Basis().KeptTransform().transpose().triangularView<Eigen::Lower>().solve(kept);
        std::vector<CrossedEquations::Row> wanted(rows.size());
        for (std::size_t i = 0; i < rows.size(); ++i) {
            wanted[i].fFixed = centred.col(static_cast<Eigen::Index>(i));
            for (const MixedRow::RandomTerm& term : rows[i].fRandom) {
                const int at = fProblem.Coefficient(term.fBlock, term.fSubject, term.fColumn);
                if (at >= 0) wanted[i].fRandom.emplace_back(at, term.fCoefficient);
            }
        }
        const CrossedEquations::Combination combined = fEquations.Combine(wanted);
        Combination result;
        result.fRandom = combined.fEstimate - centred.transpose() * fEquations.FixedEffects();
        result.fCovariance = combined.fCovariance;
        if (slopes) result.fSlopes = combined.fDerivatives;
        return result;
    }

    std::vector<SubjectPrediction> Predictions(int block) const override {
        const int columns = EffectDesign(fModel.fSpec.fRandom[block].fEffects, fModel.fSpec.fLevels).NumColumns();
        std::vector<Eigen::MatrixXd> estimates(fProblem.Terms().size());
        std::vector<Eigen::MatrixXd> covariances(fProblem.Terms().size());
        for (std::size_t t = 0; t < estimates.size(); ++t) {
            if (fProblem.Terms()[t].fBlock != block) continue;
            estimates[t] = fEquations.Predictions(static_cast<int>(t));
            covariances[t] = fEquations.PredictionCovariances(static_cast<int>(t));
        }
        std::vector<SubjectPrediction> predictions;
        for (const auto& [codes, subject] : fSubjects[block]) {
            // What no record touches has the prediction 0, with all of its variance.
            SubjectPrediction prediction{codes, subject.fGroup, Eigen::VectorXd::Zero(columns),
                                         fModel.RandomCovariance(block, subject.fGroup).diagonal().cwiseSqrt()};
            for (const CrossedSubject::Piece& piece : subject.fPieces) {
                const Eigen::Index width = estimates[piece.fTerm].rows();
                for (Eigen::Index c = 0; c < width; ++c) {
                    const double variance = covariances[piece.fTerm](c, piece.fIndex * width + c);
                    prediction.fEstimate[piece.fColumn + c] = estimates[piece.fTerm](c, piece.fIndex);
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
        for (std::size_t b = 0; b < fSubjects.size(); ++b) {
            const int block = static_cast<int>(b);
            const int width = EffectDesign(fModel.fSpec.fRandom[b].fEffects, fModel.fSpec.fLevels).NumColumns();
            for (const auto& [codes, subject] : fSubjects[b]) {
                unit.fParts.push_back({block, codes, subject.fGroup, static_cast<int>(rows.size()), width});
                for (int c = 0; c < width; ++c)
                    rows.push_back({{}, {{block, codes, c, 1.0}}});
            }
        }
        const auto fixed = state.fHalf.rows();
        const auto random = static_cast<Eigen::Index>(rows.size());
        if (random > kMostJoint) {
            unit.fEstimate = Combine(Eigen::MatrixXd::Zero(fixed, random), rows, false).fRandom;
            state.fUnits.push_back(std::move(unit));
            return state;
        }
        rows.resize(rows.size() + static_cast<std::size_t>(fixed));
        Eigen::MatrixXd kept = Eigen::MatrixXd::Zero(fixed, random + fixed);
        kept.rightCols(fixed).setIdentity();
        const Combination joint = Combine(kept, rows, true);
        unit.fEstimate = joint.fRandom.head(random);
        unit.fErrors = 0;
        state.fUnits.push_back(std::move(unit));
        const RandomState::Errors errors = MakeErrors(joint.fCovariance, state.fHalf);
        state.fErrors.push_back(errors);
        for (std::size_t k = 0; k < joint.fSlopes.size(); ++k) {
            if (joint.fSlopes[k].size() == 0 || !(fModel.fThetaCovariance(k, k) > 0.0)) continue;
            state.fSlopes.push_back(MakeSlope(static_cast<int>(k), joint.fSlopes[k], state.fHalf, errors));
        }
        return state;
    }

private:
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
                    ColumnHit hit;
                    term.fDesign.PlainHits(record, &hit);
                    column = design.Offset(term.fEffect) + hit.fColumn;
                }
                CrossedSubject& subject = fSubjects[term.fBlock][codes];
                subject.fGroup = block.fGroup >= 0 ? static_cast<int>(record[block.fGroup]) : -1;
                subject.fPieces.push_back({static_cast<int>(t), static_cast<int>(j), column});
            }
        }
    }

    const FittedModel& fModel;
    const CrossedProblem& fProblem;
    CrossedEquations& fEquations;
    std::vector<std::map<std::vector<int>, CrossedSubject>> fSubjects;  ///< per block, by codes
};

}  // namespace

std::unique_ptr<RandomSource> MakeCrossedSource(const FittedModel& model) {
    return std::make_unique<CrossedSource>(model);
}

}  // namespace engine
