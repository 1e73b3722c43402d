#include "engine/lmm/FitResult.h"

#include "engine/lmm/FittedModel.h"
#include "engine/lmm/Hypotheses.h"
#include "engine/lmm/MixedContrasts.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace engine {

namespace {

Places FirstPositions(int count) {
    Places places;
    places.fPositions.resize(count);
    std::iota(places.fPositions.begin(), places.fPositions.end(), 0);
    return places;
}

}  // namespace

ContrastResult FitResult::Contrast(const Eigen::VectorXd& row) const {
    return fModel->fInference->Contrast(row);
}

FTestResult FitResult::Test(const Eigen::MatrixXd& rows, const Eigen::VectorXd& values) const {
    return fModel->fInference->Test(rows, values);
}

ContrastResult FitResult::Contrast(const MixedRow& row) const {
    return row.fRandom.empty() ? Contrast(row.fFixed) : fModel->Mixed().Contrast(row);
}

FTestResult FitResult::Test(const std::vector<MixedRow>& rows, const Eigen::VectorXd& values) const {
    const bool mixed = std::any_of(rows.begin(), rows.end(), [](const MixedRow& row) { return !row.fRandom.empty(); });
    if (mixed) return fModel->Mixed().Test(rows, values);
    Eigen::MatrixXd fixed(rows.size(), fFixed.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        fixed.row(static_cast<Eigen::Index>(i)) = rows[i].fFixed.transpose();
    return Test(fixed, values);
}

bool FitResult::IsEstimable(const Eigen::VectorXd& row) const {
    return IsEstimableRow(fModel->fProblem->Basis(), row);
}

std::vector<FTestResult> FitResult::EffectTests(bool typeI) const {
    const FixedBasis& basis = fModel->fProblem->Basis();
    std::vector<FTestResult> tests;
    for (int e = 0; e < basis.Design().NumEffects(); ++e) {
        const Eigen::MatrixXd rows = typeI ? TypeIRows(basis, e) : TypeIIIRows(basis, e);
        FTestResult test = fModel->fInference->Test(rows, {});
        test.fEffect = e;
        tests.push_back(std::move(test));
    }
    return tests;
}

Eigen::MatrixXd FitResult::RandomCovariance(int block, int group) const {
    const ParameterLayout& layout = fModel->fProblem->Layout();
    Eigen::MatrixXd matrix;
    const int at = layout.Find(block, group);
    if (at < 0) return matrix;
    const Structure& structure = *layout[at].fReported;
    structure.Matrix(layout[at].Part(fModel->fTheta), FirstPositions(structure.Dimension()), matrix);
    return matrix;
}

Eigen::VectorXd FitResult::FixedRow(const double* record) const {
    const EffectDesign& design = fModel->fProblem->Basis().Design();
    std::vector<ColumnHit> hits(design.NumEffects());
    design.PlainHits(record, hits.data());
    Eigen::VectorXd row = Eigen::VectorXd::Zero(design.NumColumns());
    for (const ColumnHit& hit : hits)
        row[hit.fColumn] += hit.fValue;
    return row;
}

MixedRow FitResult::RecordRow(const double* record) const {
    MixedRow row;
    row.fFixed = FixedRow(record);
    const LmmProblem& problem = *fModel->fProblem;
    const RandomEffects& effects = fModel->Mixed().Effects();
    for (std::size_t b = 0; b < problem.Blocks().size(); ++b) {
        std::vector<int> codes;
        for (int variable : problem.Spec().fRandom[b].fSubjects)
            codes.push_back(static_cast<int>(record[variable]));
        const int block = static_cast<int>(b);
        if (effects.Find(block, codes).fSubject < 0) continue;
        const EffectDesign& design = problem.Blocks()[b].fDesign;
        std::vector<ColumnHit> hits(design.NumEffects());
        design.PlainHits(record, hits.data());
        for (const ColumnHit& hit : hits)
            row.fRandom.push_back({block, codes, hit.fColumn, hit.fValue});
    }
    return row;
}

std::vector<SubjectPrediction> FitResult::Predictions(int block) const {
    const LmmProblem& problem = *fModel->fProblem;
    std::vector<SubjectPrediction> predictions;
    const int width = problem.Blocks()[block].fDesign.NumColumns();
    for (const RandomEffects::Subject& subject : fModel->Mixed().Effects().Subjects()) {
        for (std::size_t slot = 0; slot < subject.fBlocks.size(); ++slot) {
            if (subject.fBlocks[slot] != block) continue;
            SubjectPrediction prediction;
            for (int variable : problem.Spec().fRandom[block].fSubjects)
                prediction.fSubject.push_back(static_cast<int>(problem.View().Row(subject.fRecords[slot])[variable]));
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

Eigen::MatrixXd FitResult::ResidualCovariance(int maxRows) const {
    const LmmProblem& problem = *fModel->fProblem;
    const ParameterLayout& layout = problem.Layout();
    if (problem.Spec().fResidual.IsScaledIdentity() || !problem.HasSubjects()) {
        const Segment& segment = layout[layout.NumSegments() - 1];
        return Eigen::MatrixXd::Constant(1, 1, fModel->fTheta[segment.fOffset]);
    }
    const LmmProblem::Member member = problem.ReadSubject(0);
    const ResidualPiece& piece = member.fUnit.fPieces.front();
    Eigen::MatrixXd matrix;
    const Segment& segment = layout[piece.fSegment];
    segment.fReported->Matrix(segment.Part(fModel->fTheta), piece.fPlaces, matrix);
    const Eigen::Index rows = std::min<Eigen::Index>(maxRows, matrix.rows());
    return matrix.topLeftCorner(rows, rows);
}

}  // namespace engine
