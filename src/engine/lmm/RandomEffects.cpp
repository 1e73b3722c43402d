#include "engine/lmm/RandomEffects.h"

#include "engine/lmm/DenseKernels.h"
#include "engine/lmm/UnitKernel.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

std::string KeyOf(const std::vector<int>& codes) {
    return {reinterpret_cast<const char*>(codes.data()), codes.size() * sizeof(int)};
}

Eigen::MatrixXd ResidualOf(const Unit& unit, const ThetaState& state) {
    Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(unit.fOrder, unit.fOrder);
    if (unit.fIdentity >= 0) {
        matrix.diagonal().setConstant(state[unit.fIdentity].fVariance);
        return matrix;
    }
    Eigen::MatrixXd part;
    for (const ResidualPiece& piece : unit.fPieces) {
        const ThetaState::Part& structure = state[piece.fSegment];
        structure.fStructure->Matrix(structure.fTheta, piece.fPlaces, part);
        matrix.block(piece.fStart, piece.fStart, part.rows(), part.cols()) = part;
    }
    return matrix;
}

}  // namespace

RandomEffects::RandomEffects(const LmmProblem& problem, const Eigen::VectorXd& theta, const Evaluation& at) {
    fPlaces.resize(problem.Blocks().size());
    if (!problem.HasSubjects()) return;
    fSubjects.resize(problem.NumCommonSubjects());
    const int subjects = problem.NumCommonSubjects();
    const int chunks = std::clamp(subjects / 64, 1, 64);
    problem.Crew().Run(chunks, [&](int c) {
        for (int s = static_cast<int>(static_cast<long>(subjects) * c / chunks);
             s < static_cast<int>(static_cast<long>(subjects) * (c + 1) / chunks); ++s) {
            Solve(problem, theta, at, s);
        }
    });
    for (int s = 0; s < subjects; ++s) {
        const Subject& subject = fSubjects[s];
        for (std::size_t slot = 0; slot < subject.fBlocks.size(); ++slot) {
            const int block = subject.fBlocks[slot];
            std::vector<int> codes;
            for (int variable : problem.Spec().fRandom[block].fSubjects)
                codes.push_back(static_cast<int>(problem.View().Row(subject.fRecords[slot])[variable]));
            fPlaces[block][KeyOf(codes)] = {s, subject.fColumns[slot]};
        }
    }
}

void RandomEffects::Solve(const LmmProblem& problem, const Eigen::VectorXd& theta, const Evaluation& at, int s) {
    const LmmProblem::Member member = problem.ReadSubject(s, theta);
    const Unit& unit = member.fUnit;
    Subject& subject = fSubjects[s];
    subject.fRecords = member.fFirstRecords;
    const ThetaState state(problem.Layout(), theta, ThetaScale::kReported, 0);
    const Eigen::Index q = unit.fZ.cols();
    const Eigen::Index p = at.fBeta.size();
    Eigen::MatrixXd g = Eigen::MatrixXd::Zero(q, q);
    for (const Slot& slot : unit.fSlots) {
        const Segment& segment = problem.Layout()[slot.fSegment];
        subject.fBlocks.push_back(segment.fBlock);
        subject.fGroups.push_back(segment.fGroup);
        subject.fColumns.push_back(slot.fColumn);
        g.block(slot.fColumn, slot.fColumn, slot.fWidth, slot.fWidth) = state[slot.fSegment].fMatrix;
    }
    Eigen::MatrixXd factor = ResidualOf(unit, state);
    factor.noalias() += unit.fZ * g * unit.fZ.transpose();
    subject.fEstimate = Eigen::VectorXd::Zero(q);
    subject.fOwn = g;
    subject.fPull = Eigen::MatrixXd::Zero(q, p);
    if (unit.fOrder == 0 || !FactorInPlace(factor)) return;
    Eigen::MatrixXd white = unit.fZ * g;  // then L^-1 Z G
    SolveLower(factor, white);
    Eigen::MatrixXd data(unit.fOrder, p + 1);  // X H and the residual
    data.leftCols(p) = unit.fRows.leftCols(p) * at.fHalf;
    data.col(p) = unit.fRows.col(p) - unit.fRows.leftCols(p) * at.fBeta;
    if (unit.fCount != 1.0) data /= std::sqrt(unit.fCount);
    SolveLower(factor, data);
    subject.fOwn.noalias() -= white.transpose() * white;
    subject.fEstimate.noalias() = white.transpose() * data.col(p);
    subject.fPull.noalias() = white.transpose() * data.leftCols(p);
}

RandomEffects::Place RandomEffects::Find(int block, const std::vector<int>& codes) const {
    const auto at = fPlaces[block].find(KeyOf(codes));
    return at != fPlaces[block].end() ? at->second : Place{};
}

}  // namespace engine
