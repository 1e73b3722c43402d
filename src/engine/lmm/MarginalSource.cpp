#include "engine/lmm/FittedModel.h"
#include "engine/lmm/RandomEffects.h"
#include "engine/lmm/RandomSource.h"

#include <cmath>
#include <mutex>

namespace engine {

namespace {

constexpr double kDifference = 1e-3;  // step of the differences, in standard errors of the parameter

class MarginalSource : public RandomSource {
public:
    explicit MarginalSource(const FittedModel& model) : fModel(model), fHere(At(model.fTheta)) {}

    bool Knows(int block, const std::vector<int>& codes) const override {
        return fHere.fEffects.Find(block, codes).fSubject >= 0;
    }

    Combination Combine(const Eigen::MatrixXd& kept, const std::vector<MixedRow>& rows, bool slopes) const override {
        Combination result;
        std::vector<std::vector<Term>> terms;
        result.fRandom.setZero(kept.cols());
        for (std::size_t i = 0; i < rows.size(); ++i)
            terms.push_back(Place(rows[i], &result.fRandom[static_cast<Eigen::Index>(i)]));
        result.fCovariance = Covariance(kept, terms, fHere);
        if (!slopes) return result;
        std::call_once(fOnce, [this] { MakeSides(); });
        result.fSlopes.resize(fModel.fTheta.size());
        for (const Side& side : fSides) {
            result.fSlopes[side.fParam] =
                (Covariance(kept, terms, side.fUp) - Covariance(kept, terms, side.fDown)) / (2.0 * side.fStep);
        }
        return result;
    }

    std::vector<SubjectPrediction> Predictions(int block) const override {
        const LmmProblem& problem = *fModel.fProblem;
        std::vector<SubjectPrediction> predictions;
        const int width = problem.Blocks()[block].fDesign.NumColumns();
        for (const RandomEffects::Subject& subject : fHere.fEffects.Subjects()) {
            for (std::size_t slot = 0; slot < subject.fBlocks.size(); ++slot) {
                if (subject.fBlocks[slot] != block) continue;
                SubjectPrediction prediction;
                const double* record = problem.View().Row(subject.fRecords[slot]);
                for (int variable : problem.Spec().fRandom[block].fSubjects)
                    prediction.fSubject.push_back(static_cast<int>(record[variable]));
                prediction.fGroup = subject.fGroups[slot];
                prediction.fEstimate = subject.fEstimate.segment(subject.fColumns[slot], width);
                prediction.fStdError.resize(width);
                for (int c = 0; c < width; ++c) {
                    const int at = subject.fColumns[slot] + c;
                    prediction.fStdError[c] =
                        std::sqrt(std::max(0.0, subject.fOwn(at, at) + subject.fPull.row(at).squaredNorm()));
                }
                predictions.push_back(std::move(prediction));
            }
        }
        return predictions;
    }

private:
    // Everything at one theta.
    struct Point {
        Eigen::MatrixXd fHalf;
        RandomEffects fEffects;
    };
    struct Term {
        int fSubject;
        Eigen::VectorXd fCoefficients;
    };
    struct Side {
        int fParam;
        double fStep;
        Point fUp, fDown;
    };

    Point At(const Eigen::VectorXd& theta) const {
        const Evaluation at = fModel.fObjective->Value(theta, ThetaScale::kReported);
        const Eigen::MatrixXd half = fModel.Basis().KeptTransform().triangularView<Eigen::Upper>().solve(at.fHalf);
        return {half, RandomEffects(*fModel.fProblem, theta, at)};
    }

    void MakeSides() const {
        const Eigen::MatrixXd& covariance = fModel.fThetaCovariance;
        for (Eigen::Index k = 0; k < covariance.rows(); ++k) {
            if (!(covariance(k, k) > 0.0)) continue;
            const double size = std::abs(fModel.fTheta[k]);
            const double step =
                kDifference * (size > 0.0 ? std::min(std::sqrt(covariance(k, k)), size) : std::sqrt(covariance(k, k)));
            Eigen::VectorXd up = fModel.fTheta;
            Eigen::VectorXd down = fModel.fTheta;
            up[k] += step;
            down[k] -= step;
            fSides.push_back({static_cast<int>(k), step, At(up), At(down)});
        }
    }

    std::vector<Term> Place(const MixedRow& row, double* estimate) const {
        std::vector<Term> terms;
        for (const MixedRow::RandomTerm& wanted : row.fRandom) {
            const RandomEffects::Place place = fHere.fEffects.Find(wanted.fBlock, wanted.fSubject);
            const RandomEffects::Subject& subject = fHere.fEffects.Subjects()[place.fSubject];
            auto term = terms.begin();
            while (term != terms.end() && term->fSubject != place.fSubject)
                ++term;
            if (term == terms.end()) {
                terms.push_back({place.fSubject, Eigen::VectorXd::Zero(subject.fEstimate.size())});
                term = terms.end() - 1;
            }
            term->fCoefficients[place.fColumn + wanted.fColumn] += wanted.fCoefficient;
            *estimate += wanted.fCoefficient * subject.fEstimate[place.fColumn + wanted.fColumn];
        }
        return terms;
    }

    static Eigen::MatrixXd Covariance(const Eigen::MatrixXd& kept, const std::vector<std::vector<Term>>& terms,
                                      const Point& point) {
        const auto& subjects = point.fEffects.Subjects();
        Eigen::MatrixXd half = point.fHalf.transpose() * kept;
        for (std::size_t i = 0; i < terms.size(); ++i) {
            for (const Term& term : terms[i]) {
                half.col(static_cast<Eigen::Index>(i)) -=
                    subjects[term.fSubject].fPull.transpose() * term.fCoefficients;
            }
        }
        Eigen::MatrixXd covariance = half.transpose() * half;
        for (std::size_t i = 0; i < terms.size(); ++i) {
            for (std::size_t j = 0; j < terms.size(); ++j) {
                for (const Term& left : terms[i]) {
                    for (const Term& right : terms[j]) {
                        if (left.fSubject != right.fSubject) continue;
                        covariance(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j)) +=
                            left.fCoefficients.dot(subjects[left.fSubject].fOwn * right.fCoefficients);
                    }
                }
            }
        }
        return covariance;
    }

    const FittedModel& fModel;
    const Point fHere;
    mutable std::once_flag fOnce;
    mutable std::vector<Side> fSides;
};

}  // namespace

std::unique_ptr<RandomSource> MakeMarginalSource(const FittedModel& model) {
    return std::make_unique<MarginalSource>(model);
}

}  // namespace engine
