#include "engine/lmm/FixedBasis.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

constexpr double kSnap = 1e-9;  // combination weights this near to an integer are that integer

std::vector<double> SampleMeans(const RecordView& view, std::size_t variables) {
    constexpr std::size_t kSample = 4096;
    const std::size_t step = std::max<std::size_t>(1, view.fCount / kSample);
    std::vector<double> means(variables, 0.0);
    std::size_t count = 0;
    for (std::size_t i = 0; i < view.fCount; i += step) {
        ++count;
        for (std::size_t v = 0; v < variables; ++v)
            means[v] += (view.Row(i)[v] - means[v]) / static_cast<double>(count);
    }
    return means;
}

double Snapped(double value) {
    const double whole = std::round(value);
    return std::abs(value - whole) < kSnap ? whole : value;
}

struct CrossSums {
    Eigen::MatrixXd fCross;
    Eigen::MatrixXd fPlain;
    double fFrequency = 0.0;
    double fLogWeights = 0.0;
};

}  // namespace

FixedBasis::FixedBasis(const ModelSpec& spec, const RecordView& view, Workers& workers, const WorkingData& working)
    : fDesign(spec.FixedEffects(), spec.fLevels),
      fWorking(working),
      fDependent(spec.fDependent),
      fFrequency(spec.fFrequencyWeight),
      fRegression(spec.fRegressionWeight),
      fOffset(spec.fOffset),
      fOffsetValue(spec.fOffsetValue),
      fIntercept(spec.fIntercept) {
    PickCentres(spec, view);
    Sweep(spec.fTolerance, Accumulate(view, workers));
}

FixedBasis::FixedBasis(const ModelSpec& spec, std::vector<int> kept, Eigen::MatrixXd span, double totalFrequency)
    : fDesign(spec.FixedEffects(), spec.fLevels),
      fDependent(spec.fDependent),
      fFrequency(spec.fFrequencyWeight),
      fRegression(spec.fRegressionWeight),
      fOffset(spec.fOffset),
      fOffsetValue(spec.fOffsetValue),
      fIntercept(spec.fIntercept),
      fTotalFrequency(totalFrequency),
      fKept(std::move(kept)),
      fIndex(fDesign.NumColumns(), -1),
      fSpan(std::move(span)) {
    for (std::size_t k = 0; k < fKept.size(); ++k)
        fIndex[fKept[k]] = static_cast<int>(k);
}

void FixedBasis::PickCentres(const ModelSpec& spec, const RecordView& view) {
    if (!fIntercept || view.fCount == 0) return;
    fDesign.CentreCovariates(SampleMeans(view, spec.fLevels.size()));
    fShift = fWorking.fTarget != nullptr ? fWorking.fTarget[0] : view.Row(0)[fDependent];
}

Eigen::MatrixXd FixedBasis::Accumulate(const RecordView& view, Workers& workers) {
    const int columns = NumColumns();
    const int effects = fDesign.NumEffects();
    const double perChunk = 8.0 * (columns + 1) * (columns + 1);
    const int most = std::clamp(static_cast<int>(6.4e7 / perChunk), 1, 256);
    const int chunks = std::clamp(static_cast<int>(view.fCount / 8192), 1, most);
    const bool weighted = fRegression >= 0 || fWorking.fWeight != nullptr;
    std::vector<CrossSums> sums(chunks);
    workers.Run(chunks, [&](int chunk) {
        CrossSums& sum = sums[chunk];
        sum.fCross = Eigen::MatrixXd::Zero(columns + 1, columns + 1);
        if (weighted) sum.fPlain = sum.fCross;
        std::vector<ColumnHit> hits(effects);
        const std::size_t end = view.fCount * (chunk + 1) / chunks;
        for (std::size_t i = view.fCount * chunk / chunks; i < end; ++i) {
            const double* record = view.Row(i);
            fDesign.Hits(record, hits.data());
            const double frequency = Frequency(record);
            const double weight = Weight(record, i);
            const double total = frequency * weight;
            const double target = Target(record, i);
            sum.fFrequency += frequency;
            if (weight != 1.0) sum.fLogWeights += frequency * std::log(weight);
            for (int a = 0; a < effects; ++a) {
                if (hits[a].fValue == 0.0) continue;
                const double left = total * hits[a].fValue;
                double* column = sum.fCross.col(hits[a].fColumn).data();
                for (int b = a; b < effects; ++b)
                    column[hits[b].fColumn] += left * hits[b].fValue;
                column[columns] += left * target;
            }
            sum.fCross(columns, columns) += total * target * target;
            for (int a = 0; weighted && a < effects; ++a) {
                if (hits[a].fValue == 0.0) continue;
                for (int b = a; b < effects; ++b)
                    sum.fPlain(hits[b].fColumn, hits[a].fColumn) += frequency * hits[a].fValue * hits[b].fValue;
            }
        }
    });
    fCross = std::move(sums[0].fCross);
    Eigen::MatrixXd plain = std::move(sums[0].fPlain);
    fTotalFrequency = sums[0].fFrequency;
    fLogWeights = sums[0].fLogWeights;
    for (int chunk = 1; chunk < chunks; ++chunk) {
        fCross += sums[chunk].fCross;
        if (weighted) plain += sums[chunk].fPlain;
        fTotalFrequency += sums[chunk].fFrequency;
        fLogWeights += sums[chunk].fLogWeights;
    }
    fCross.triangularView<Eigen::StrictlyUpper>() = fCross.transpose();
    if (weighted) plain.triangularView<Eigen::StrictlyUpper>() = plain.transpose();
    fRecords = static_cast<double>(view.fCount);
    return plain;
}

void FixedBasis::Sweep(double tolerance, const Eigen::MatrixXd& plain) {
    const int columns = NumColumns();
    fIndex.assign(columns, -1);
    const bool weighted = plain.size() > 0;
    const Eigen::MatrixXd& cross = weighted ? plain : fCross;
    // Row k of factor is row k of U with U'U = X'X over the kept columns, extended to all columns and the target.
    Eigen::MatrixXd factor(static_cast<Eigen::Index>(std::min<double>(columns, fRecords)), columns + 1);
    for (int j = 0; j < columns && Rank() < factor.rows(); ++j) {
        const int rank = Rank();
        const double left = cross(j, j) - factor.col(j).head(rank).squaredNorm();
        if (!(left > tolerance * cross(j, j))) continue;
        factor.row(rank).setZero();
        const double root = std::sqrt(left);
        factor.row(rank).tail(columns + 1 - j) =
            (cross.row(j).tail(columns + 1 - j) -
             factor.col(j).head(rank).transpose() * factor.topRows(rank).rightCols(columns + 1 - j)) /
            root;
        factor(rank, j) = root;
        fIndex[j] = rank;
        fKept.push_back(j);
    }
    const int rank = Rank();
    Eigen::MatrixXd upper(rank, rank);
    for (int k = 0; k < rank; ++k)
        upper.col(k) = factor.col(fKept[k]).head(rank);
    upper.triangularView<Eigen::StrictlyLower>().setZero();
    Eigen::VectorXd leastSquares = factor.topRows(rank).col(columns);
    if (weighted) {
        Eigen::MatrixXd kept(rank, rank);
        for (int k = 0; k < rank; ++k) {
            leastSquares[k] = fCross(fKept[k], columns);
            for (int l = 0; l < rank; ++l)
                kept(k, l) = fCross(fKept[k], fKept[l]);
        }
        leastSquares = kept.ldlt().solve(leastSquares).eval();
    } else {
        upper.triangularView<Eigen::Upper>().solveInPlace(leastSquares);
    }
    fLeastSquares = Eigen::VectorXd::Zero(columns);
    for (int k = 0; k < rank; ++k)
        fLeastSquares[fKept[k]] = leastSquares[k];

    Eigen::MatrixXd span = Eigen::MatrixXd::Zero(rank, columns);
    for (int j = 0; j < columns; ++j) {
        if (fIndex[j] >= 0) {
            span(fIndex[j], j) = 1.0;
            continue;
        }
        const int before = static_cast<int>(std::lower_bound(fKept.begin(), fKept.end(), j) - fKept.begin());
        span.col(j).head(before) =
            upper.topLeftCorner(before, before).triangularView<Eigen::Upper>().solve(factor.col(j).head(before));
    }
    if (fDesign.IsCentred()) {
        const Eigen::MatrixXd back = fDesign.CentredToPlain();
        const Eigen::MatrixXd all = span * back;  // original columns in kept centred ones
        fTransform.resize(rank, rank);
        for (int k = 0; k < rank; ++k)
            fTransform.col(k) = all.col(fKept[k]);
        fTransform.triangularView<Eigen::StrictlyLower>().setZero();
        fSpan = fTransform.triangularView<Eigen::Upper>().solve(all);
    } else {
        fTransform = Eigen::MatrixXd::Identity(rank, rank);
        fSpan = span;
    }
    for (int j = 0; j < columns; ++j) {
        for (int k = 0; k < rank; ++k) {
            fSpan(k, j) = fIndex[j] >= 0 ? (fIndex[j] == k ? 1.0 : 0.0) : Snapped(fSpan(k, j));
        }
    }
    fCrossFactor = upper * fTransform;
    const double sum = fIntercept ? fCross(0, columns) : 0.0;
    const double count = fIntercept ? fCross(0, 0) : 1.0;
    fTotalSs = std::max(0.0, fCross(columns, columns) - (count > 0.0 ? sum * sum / count : 0.0));
    fCross.resize(0, 0);
}

double FixedBasis::TargetScale() const {
    return fTotalFrequency > 0.0 ? std::sqrt(fTotalSs / fTotalFrequency) : 0.0;
}

Eigen::VectorXd FixedBasis::ToOriginal(const Eigen::VectorXd& centred) const {
    Eigen::VectorXd total(Rank());
    for (int k = 0; k < Rank(); ++k)
        total[k] = centred[k] + fLeastSquares[fKept[k]];
    Eigen::VectorXd original = fTransform.triangularView<Eigen::Upper>().solve(total);
    if (fIntercept && Rank() > 0 && fKept[0] == 0) original[0] += fShift;
    return original;
}

}  // namespace engine
