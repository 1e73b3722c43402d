#include "engine/lmm/CovarianceReport.h"

#include "engine/lmm/Distributions.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

void SetLimits(const ParamInfo& info, double margin, CovarianceParameter& parameter) {
    const double value = parameter.fEstimate;
    const bool positive = info.fLower >= 0.0 && info.fKind != ParamKind::kCorrelation && value > 0.0;
    if (positive) {
        const double factor = std::exp(margin / value);
        parameter.fLower = value / factor;
        parameter.fUpper = value * factor;
    } else if (info.fKind == ParamKind::kCorrelation && std::abs(value) < 1.0) {
        const double z = std::atanh(value);
        const double width = margin / (1.0 - value * value);
        parameter.fLower = std::max(info.fLower, std::tanh(z - width));
        parameter.fUpper = std::min(info.fUpper, std::tanh(z + width));
    } else {
        parameter.fLower = std::max(info.fLower, value - margin);
        parameter.fUpper = std::min(info.fUpper, value + margin);
    }
}

}  // namespace

void ReportCovariance(const ParameterLayout& layout, const FittedModel& model, const std::vector<char>& held,
                      const std::vector<char>& atBound, FitResult& result) {
    result.fCovarianceOfCovariance = model.fThetaCovariance;
    const double quantile = UpperNormal(model.fSpec.fConfidence);
    for (const Segment& segment : layout.Segments()) {
        for (int k = 0; k < segment.fCount; ++k) {
            const int at = segment.fOffset + k;
            const ParamInfo& info = segment.fReported->Params()[k];
            CovarianceParameter parameter;
            parameter.fBlock = segment.fBlock;
            parameter.fGroup = segment.fGroup;
            parameter.fType = segment.fType;
            parameter.fName = info.fName;
            parameter.fKind = info.fKind;
            parameter.fEstimate = model.fTheta[at];
            parameter.fAtBound = atBound[at] != 0;
            parameter.fRedundant = held[at] != 0 && !parameter.fAtBound;
            const double variance = model.fThetaCovariance(at, at);
            if (!held[at] && variance > 0.0) {
                parameter.fStdError = std::sqrt(variance);
                parameter.fZ = parameter.fEstimate / parameter.fStdError;
                parameter.fP = TwoSidedNormal(parameter.fZ);
                SetLimits(info, quantile * parameter.fStdError, parameter);
            }
            if (parameter.fAtBound) result.fCertificate.fAtBound.push_back(at);
            result.fCovariance.push_back(std::move(parameter));
        }
    }
}

}  // namespace engine
