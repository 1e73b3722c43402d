#pragma once

#include "engine/crossed/CrossedEquations.h"
#include "engine/model/Matrices.h"
#include "engine/structures/Structure.h"

#include <cmath>
#include <memory>
#include <numbers>
#include <random>
#include <vector>

namespace crossedtest {

using Eigen::MatrixXd;
using Eigen::VectorXd;

/// One random term of a made-up model.
struct Term {
    int fSubjects;
    engine::CovarianceType fType;
    int fColumns;
    int fGroups = 1;
    std::vector<double> fTheta;  ///< the parameters, group by group
};

/// A made-up model with its records, and everything about it from the marginal covariance matrix itself, of the order
/// of the records.
class Oracle {
public:
    Oracle(unsigned seed, int records, std::vector<Term> terms, bool weights, bool frequencies, bool restricted)
        : fTerms(std::move(terms)), fRestricted(restricted) {
        std::mt19937 random(seed);
        auto uniform = [&] { return std::generate_canonical<double, 53>(random); };
        for (const Term& term : fTerms) {
            fStructures.push_back(engine::MakeStructure(
                term.fType, {.fDimension = term.fColumns, .fEffectColumns = std::vector<int>(term.fColumns, 1)}));
            fTheta.insert(fTheta.end(), term.fTheta.begin(), term.fTheta.end());
        }
        fTheta.push_back(0.7);
        for (int i = 0; i < records; ++i) {
            Record record;
            record.fFixed = {1.0, 3.0 * uniform(), i % 3 == 0 ? 1.0 : 0.0};
            record.fTarget = 5.0 + record.fFixed[1] + 2.0 * uniform();
            for (std::size_t t = 0; t < fTerms.size(); ++t) {
                const int subject = i < fTerms[t].fSubjects ? i : static_cast<int>(uniform() * fTerms[t].fSubjects);
                record.fSubjects.push_back(subject);
                record.fTarget += 1.5 * std::sin(subject + 3.0 * static_cast<double>(t));
                std::vector<double> z{1.0};
                while (static_cast<int>(z.size()) < fTerms[t].fColumns)
                    z.push_back(uniform() - 0.3);
                record.fRandom.push_back(z);
            }
            if (weights) record.fWeight = 0.5 + uniform();
            if (frequencies) record.fFrequency = 1 + i % 2;
            fRecords.push_back(record);
        }
        for (const Record& record : fRecords)
            for (int copy = 0; copy < record.fFrequency; ++copy)
                fRows.push_back(&record);
        MakeDesign();
    }

    VectorXd Theta() const { return VectorXd::Map(fTheta.data(), static_cast<Eigen::Index>(fTheta.size())); }

    std::shared_ptr<const engine::CrossedStatistics> Statistics(int intercept = 0) const {
        std::vector<int> columns;
        for (const Term& term : fTerms)
            columns.push_back(term.fColumns);
        engine::CrossedGather gather(columns, 3, intercept);
        for (const Record& record : fRecords) {
            std::vector<const double*> random;
            for (const auto& z : record.fRandom)
                random.push_back(z.data());
            gather.Add({record.fTarget, record.fFixed.data(), record.fSubjects.data(), random.data(), record.fWeight,
                        static_cast<double>(record.fFrequency)});
        }
        return std::make_shared<const engine::CrossedStatistics>(gather.Finish());
    }

    std::vector<engine::CrossedCovariance> Covariances() const {
        std::vector<engine::CrossedCovariance> out;
        int at = 0;
        for (std::size_t t = 0; t < fTerms.size(); ++t) {
            engine::CrossedCovariance covariance{fStructures[t].get(), {}, {}};
            for (int g = 0; g < fTerms[t].fGroups; ++g, at += fStructures[t]->NumParams())
                covariance.fFirstParam.push_back(at);
            if (fTerms[t].fGroups > 1)
                for (int j = 0; j < fTerms[t].fSubjects; ++j)
                    covariance.fGroup.push_back(j % fTerms[t].fGroups);
            out.push_back(covariance);
        }
        return out;
    }

    engine::CrossedEquations Equations() const {
        return {Statistics(), Covariances(), static_cast<int>(fTheta.size()), fRestricted};
    }

    /// Everything at theta, from V.
    struct Truth {
        double fObjective;
        VectorXd fBeta, fGradient;
        MatrixXd fCovariance, fHessian, fExpected, fAverage;
        std::vector<MatrixXd> fSlopes;  ///< d fCovariance / d theta
        std::vector<MatrixXd> fP, fQ, fR;
        MatrixXd fPredictions, fPredictionCovariance;  ///< of all coefficients, in one vector
    };

    Truth At(const VectorXd& theta) const {
        const auto params = theta.size();
        const MatrixXd v = Marginal(theta);
        const Eigen::LLT<MatrixXd> factor(v);
        const MatrixXd inverse = factor.solve(MatrixXd::Identity(v.rows(), v.cols()));
        Truth truth;
        truth.fCovariance = (fX.transpose() * inverse * fX).inverse();
        const MatrixXd p = inverse - inverse * fX * truth.fCovariance * fX.transpose() * inverse;
        truth.fBeta = truth.fCovariance * fX.transpose() * inverse * fY;
        const double free = static_cast<double>(fY.size()) - (fRestricted ? 3 : 0);
        truth.fObjective = free * std::log(2 * std::numbers::pi) + fY.dot(p * fY) +
                           2 * MatrixXd(factor.matrixL()).diagonal().array().log().sum();
        if (fRestricted) truth.fObjective -= std::log(truth.fCovariance.determinant());
        const MatrixXd& q = fRestricted ? p : inverse;
        truth.fGradient = VectorXd::Zero(params);
        truth.fHessian = truth.fExpected = truth.fAverage = MatrixXd::Zero(params, params);
        std::vector<MatrixXd> first;
        for (int k = 0; k < params; ++k)
            first.push_back(Derivative(theta, k, -1));
        const VectorXd py = p * fY;
        const MatrixXd xInverse = fX.transpose() * inverse;
        for (int k = 0; k < params; ++k) {
            truth.fGradient[k] = q.cwiseProduct(first[k]).sum() - py.dot(first[k] * py);
            truth.fP.push_back(-xInverse * first[k] * xInverse.transpose());
            truth.fSlopes.push_back(-truth.fCovariance * truth.fP[k] * truth.fCovariance);
            for (int l = 0; l < params; ++l) {
                const MatrixXd second = Derivative(theta, k, l);
                truth.fExpected(k, l) = (q * first[k]).cwiseProduct((q * first[l]).transpose()).sum();
                truth.fAverage(k, l) = (first[k] * py).dot(p * (first[l] * py));
                truth.fHessian(k, l) = q.cwiseProduct(second).sum() - py.dot(second * py) - truth.fExpected(k, l) +
                                       2 * truth.fAverage(k, l);
                truth.fQ.push_back(xInverse * first[k] * inverse * first[l] * xInverse.transpose());
                truth.fR.push_back(xInverse * second * xInverse.transpose());
            }
        }
        const MatrixXd g = Prior(theta);
        const MatrixXd gz = g * fZ.transpose();
        truth.fPredictions = gz * py;
        truth.fPredictionCovariance = g - gz * p * gz.transpose();
        return truth;
    }

private:
    struct Record {
        double fTarget = 0.0;
        std::vector<double> fFixed;
        std::vector<int> fSubjects;
        std::vector<std::vector<double>> fRandom;
        double fWeight = 1.0;
        int fFrequency = 1;
    };

    void MakeDesign() {
        const auto n = static_cast<Eigen::Index>(fRows.size());
        int coefficients = 0;
        for (const Term& term : fTerms)
            coefficients += term.fSubjects * term.fColumns;
        fX.resize(n, 3);
        fY.resize(n);
        fResidual.resize(n);
        fZ = MatrixXd::Zero(n, coefficients);
        for (Eigen::Index i = 0; i < n; ++i) {
            fY[i] = fRows[i]->fTarget;
            fX.row(i) = Eigen::RowVectorXd::Map(fRows[i]->fFixed.data(), 3);
            fResidual[i] = 1.0 / fRows[i]->fWeight;
            int base = 0;
            for (std::size_t t = 0; t < fTerms.size(); ++t) {
                const int q = fTerms[t].fColumns;
                for (int a = 0; a < q; ++a)
                    fZ(i, base + fRows[i]->fSubjects[t] * q + a) = fRows[i]->fRandom[t][a];
                base += fTerms[t].fSubjects * q;
            }
        }
    }

    /// Block diagonal of what make gives for each term and group's own parameters (the first of which is at).
    template <class Make>
    MatrixXd Blocks(const VectorXd& theta, Make make) const {
        MatrixXd out = MatrixXd::Zero(fZ.cols(), fZ.cols());
        int base = 0, at = 0;
        for (std::size_t t = 0; t < fTerms.size(); ++t) {
            const int q = fTerms[t].fColumns, params = fStructures[t]->NumParams();
            engine::Places places;
            for (int a = 0; a < q; ++a)
                places.fPositions.push_back(a);
            for (int j = 0; j < fTerms[t].fSubjects; ++j) {
                const int first = at + (j % fTerms[t].fGroups) * params;
                MatrixXd block = MatrixXd::Zero(q, q);
                make(*fStructures[t], VectorXd(theta.segment(first, params)), places, first, block);
                out.block(base + j * q, base + j * q, q, q) = block;
            }
            base += fTerms[t].fSubjects * q;
            at += params * fTerms[t].fGroups;
        }
        return out;
    }

    MatrixXd Prior(const VectorXd& theta) const {
        return Blocks(theta, [](const auto& structure, const VectorXd& own, const auto& places, int, MatrixXd& block) {
            structure.Matrix(own, places, block);
        });
    }

    MatrixXd Marginal(const VectorXd& theta) const {
        MatrixXd v = fZ * Prior(theta) * fZ.transpose();
        v.diagonal() += theta[theta.size() - 1] * fResidual;
        return v;
    }

    /// dV / d theta_k, or the second derivative in k and l.
    MatrixXd Derivative(const VectorXd& theta, int k, int l) const {
        const int last = static_cast<int>(theta.size()) - 1;
        if (k == last || l == last) {
            if (l < 0) return fResidual.asDiagonal();
            return MatrixXd::Zero(fZ.rows(), fZ.rows());
        }
        const MatrixXd g = Blocks(
            theta, [&](const auto& structure, const VectorXd& own, const auto& places, int first, MatrixXd& block) {
                auto mine = [&](int i) { return i >= first && i < first + structure.NumParams(); };
                if (!mine(k) || (l >= 0 && !mine(l))) return;
                if (l < 0)
                    structure.First(own, places, k - first, block);
                else
                    structure.Second(own, places, k - first, l - first, block);
            });
        return fZ * g * fZ.transpose();
    }

    std::vector<Term> fTerms;
    bool fRestricted;
    std::vector<std::unique_ptr<engine::Structure>> fStructures;
    std::vector<double> fTheta;
    std::vector<Record> fRecords;
    std::vector<const Record*> fRows;
    MatrixXd fX, fZ;
    VectorXd fY, fResidual;
};

}  // namespace crossedtest
