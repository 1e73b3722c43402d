#include "engine/lmm/FitResult.h"

#include "engine/lmm/FittedModel.h"
#include "engine/lmm/Hypotheses.h"
#include "engine/lmm/MixedContrasts.h"

#include <algorithm>

namespace engine {

ContrastResult FitResult::Contrast(const Eigen::VectorXd& row) const {
    return fModel->fInference->Contrast(row);
}

ContrastResult FitResult::Contrast(const MixedRow& row) const {
    return row.fRandom.empty() ? Contrast(row.fFixed) : fModel->Mixed().Contrast(row);
}

FTestResult FitResult::Test(const Eigen::MatrixXd& rows, const Eigen::VectorXd& values) const {
    return fModel->fInference->Test(rows, values);
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
    return IsEstimableRow(fModel->Basis(), row);
}

std::vector<FTestResult> FitResult::EffectTests(bool typeI) const {
    const FixedBasis& basis = fModel->Basis();
    std::vector<FTestResult> tests;
    for (int e = 0; e < basis.Design().NumEffects(); ++e) {
        const Eigen::MatrixXd rows = typeI ? TypeIRows(basis, e) : TypeIIIRows(basis, e);
        FTestResult test = fModel->fInference->TestAsWritten(rows);
        test.fEffect = e;
        tests.push_back(std::move(test));
    }
    return tests;
}

Eigen::MatrixXd FitResult::RandomCovariance(int block, int group) const {
    return fModel->RandomCovariance(block, group);
}

Eigen::VectorXd FitResult::FixedRow(const double* record) const {
    const EffectDesign& design = fModel->Basis().Design();
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
    const ModelSpec& spec = fModel->fSpec;
    if (spec.fRandom.empty()) return row;
    const RandomSource& source = fModel->Mixed().Source();
    for (std::size_t b = 0; b < spec.fRandom.size(); ++b) {
        std::vector<int> codes;
        for (int variable : spec.fRandom[b].fSubjects)
            codes.push_back(static_cast<int>(record[variable]));
        const int block = static_cast<int>(b);
        if (!source.Knows(block, codes)) continue;
        const EffectDesign design(spec.fRandom[b].fEffects, spec.fLevels);
        std::vector<ColumnHit> hits(design.NumEffects());
        design.PlainHits(record, hits.data());
        for (const ColumnHit& hit : hits)
            row.fRandom.push_back({block, codes, hit.fColumn, hit.fValue});
    }
    return row;
}

std::vector<SubjectPrediction> FitResult::Predictions(int block) const {
    return fModel->Mixed().Source().Predictions(block);
}

void FitResult::KeepPredictions() const {
    if (!fModel->fSpec.fRandom.empty()) fModel->Mixed().Source().Prepare();
}

Eigen::MatrixXd FitResult::ResidualCovariance(int maxRows) const {
    const ParameterLayout& layout = fModel->Layout();
    if (fModel->fSpec.fResidual.IsScaledIdentity()) {
        const Segment& segment = layout[layout.NumSegments() - 1];
        return Eigen::MatrixXd::Constant(1, 1, fModel->fTheta[segment.fOffset]);
    }
    const LmmProblem::Member member = fModel->fProblem->ReadSubject(0, fModel->fTheta);
    const ResidualPiece& piece = member.fUnit.fPieces.front();
    Eigen::MatrixXd matrix;
    const Segment& segment = layout[piece.fSegment];
    segment.fReported->Matrix(segment.Part(fModel->fTheta), piece.fPlaces, matrix);
    const Eigen::Index rows = std::min<Eigen::Index>(maxRows, matrix.rows());
    return matrix.topLeftCorner(rows, rows);
}

}  // namespace engine
