#pragma once

#include "engine/lmm/FitResult.h"
#include "engine/lmm/LmmProblem.h"
#include "engine/lmm/Objective.h"
#include "engine/model/Matrices.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace engine {

/// Best linear unbiased predictions u = G Z'V^-1 (y - X beta) of all subjects, with what their errors are made of
/// (Henderson 1975): cov(u_hat - u) = G - G Z'V^-1Z G + F F' with F = G Z'V^-1X H, and u_hat - u moves against
/// beta_hat - beta by F H^-1. Errors of different common subjects have only the second part in common.
class RandomEffects {
public:
    /// Reads the records once more. at: a likelihood value at theta, reported scale.
    RandomEffects(const LmmProblem& problem, const Eigen::VectorXd& theta, const Evaluation& at);

    struct Subject {
        std::vector<int> fBlocks;           ///< per slot
        std::vector<int> fGroups;           ///< per slot, group level or -1
        std::vector<std::size_t> fRecords;  ///< per slot, one of its records
        std::vector<int> fColumns;          ///< per slot, its first column
        Eigen::VectorXd fEstimate;          ///< all columns
        Eigen::MatrixXd fOwn;               ///< G - G Z'V^-1Z G
        Eigen::MatrixXd fPull;              ///< F, columns x p
    };
    const std::vector<Subject>& Subjects() const { return fSubjects; }

    struct Place {
        int fSubject = -1;
        int fColumn = 0;
    };
    /// Where a block's inner subject stands; fSubject is -1 when the data have no such subject.
    Place Find(int block, const std::vector<int>& codes) const;

private:
    void Solve(const LmmProblem& problem, const Eigen::VectorXd& theta, const Evaluation& at, int subject);

    std::vector<Subject> fSubjects;
    std::vector<std::unordered_map<std::string, Place>> fPlaces;  // per block
};

}  // namespace engine
