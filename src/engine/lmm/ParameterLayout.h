#pragma once

#include "engine/model/Matrices.h"
#include "engine/model/ModelSpec.h"
#include "engine/structures/Structure.h"

#include <memory>
#include <vector>

namespace engine {

/// The two scales on which covariance parameters are spoken of.
enum class ThetaScale { kReported, kWorking };

/// In a block's number's place: the dispersion k of residual variances 1 + k d.
inline constexpr int kDispersionBlock = -2;

/// The parameters of one block at one group level: a run of the whole vector.
struct Segment {
    int fBlock = -1;  ///< random block, -1 for the residual, kDispersionBlock
    int fGroup = -1;  ///< code of the group level, -1 without groups
    CovarianceType fType = CovarianceType::kID;
    std::shared_ptr<const Structure> fReported;
    std::shared_ptr<const Structure> fWorking;  ///< fReported itself when the structure has no other scale
    int fOffset = 0;
    int fCount = 0;

    const Structure& On(ThetaScale scale) const { return scale == ThetaScale::kReported ? *fReported : *fWorking; }
    bool HasWorkingScale() const { return fReported != fWorking; }
    Eigen::VectorXd Part(const Eigen::VectorXd& theta) const { return theta.segment(fOffset, fCount); }
};

/// All covariance parameters: random blocks in order, group by group, the residual last.
class ParameterLayout {
public:
    /// Adds a segment and gives its index. Structures are shared among the levels of a group.
    int Add(int block, int group, CovarianceType type, const std::shared_ptr<const Structure>& reported,
            const std::shared_ptr<const Structure>& working);

    const std::vector<Segment>& Segments() const { return fSegments; }
    const Segment& operator[](int i) const { return fSegments[i]; }
    int NumSegments() const { return static_cast<int>(fSegments.size()); }
    int NumParams() const { return fNumParams; }
    /// Segment of a block at a group level, -1 if the data have no such level.
    int Find(int block, int group) const;
    const Segment& SegmentOf(int param) const;
    const ParamInfo& Info(int param, ThetaScale scale) const;

    Eigen::VectorXd FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian = nullptr) const;
    Eigen::VectorXd ToWorking(const Eigen::VectorXd& reported) const;
    bool Feasible(const Eigen::VectorXd& theta, ThetaScale scale) const;

private:
    std::vector<Segment> fSegments;
    int fNumParams = 0;
};

}  // namespace engine
