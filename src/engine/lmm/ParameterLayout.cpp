#include "engine/lmm/ParameterLayout.h"

#include <algorithm>

namespace engine {

int ParameterLayout::Add(int block, int group, CovarianceType type, const std::shared_ptr<const Structure>& reported,
                         const std::shared_ptr<const Structure>& working) {
    Segment segment;
    segment.fBlock = block;
    segment.fGroup = group;
    segment.fType = type;
    segment.fReported = reported;
    segment.fWorking = working ? working : reported;
    segment.fOffset = fNumParams;
    segment.fCount = reported->NumParams();
    fNumParams += segment.fCount;
    fSegments.push_back(std::move(segment));
    return NumSegments() - 1;
}

int ParameterLayout::Find(int block, int group) const {
    for (int i = 0; i < NumSegments(); ++i) {
        if (fSegments[i].fBlock == block && fSegments[i].fGroup == group) return i;
    }
    return -1;
}

const Segment& ParameterLayout::SegmentOf(int param) const {
    const auto after = std::upper_bound(fSegments.begin(), fSegments.end(), param,
                                        [](int k, const Segment& segment) { return k < segment.fOffset; });
    return *(after - 1);
}

const ParamInfo& ParameterLayout::Info(int param, ThetaScale scale) const {
    const Segment& segment = SegmentOf(param);
    return segment.On(scale).Params()[param - segment.fOffset];
}

Eigen::VectorXd ParameterLayout::FromWorking(const Eigen::VectorXd& working, Eigen::MatrixXd* jacobian) const {
    Eigen::VectorXd reported = working;
    if (jacobian != nullptr) jacobian->setIdentity(fNumParams, fNumParams);
    for (const Segment& segment : fSegments) {
        if (!segment.HasWorkingScale()) continue;
        Eigen::MatrixXd block;
        reported.segment(segment.fOffset, segment.fCount) =
            segment.fReported->FromWorking(segment.Part(working), jacobian != nullptr ? &block : nullptr);
        if (jacobian != nullptr) {
            jacobian->block(segment.fOffset, segment.fOffset, segment.fCount, segment.fCount) = block;
        }
    }
    return reported;
}

Eigen::VectorXd ParameterLayout::ToWorking(const Eigen::VectorXd& reported) const {
    Eigen::VectorXd working = reported;
    for (const Segment& segment : fSegments) {
        if (segment.HasWorkingScale()) {
            working.segment(segment.fOffset, segment.fCount) = segment.fReported->ToWorking(segment.Part(reported));
        }
    }
    return working;
}

bool ParameterLayout::Feasible(const Eigen::VectorXd& theta, ThetaScale scale) const {
    return theta.allFinite() && std::all_of(fSegments.begin(), fSegments.end(), [&](const Segment& segment) {
               return segment.On(scale).Feasible(segment.Part(theta));
           });
}

}  // namespace engine
