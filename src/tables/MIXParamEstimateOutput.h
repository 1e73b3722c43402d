#pragma once

#include "contracts/Engine.h"
#include "contracts/HostOutput.h"
#include "procedure/Export.h"

#include <functional>
#include <string>
#include <vector>

class MIXComOutputData;

/// The tables of the fixed effects: their tests, the parameter estimates, the estimates' correlations and covariances.
/// Each stands under a heading of its own. A split without results gets none of them.
class HIERFIT_EXPORT MIXParamEstimateOutput {
public:
    explicit MIXParamEstimateOutput(MIXComOutputData* context) : fpComOutputData(context) {}

    void DisplayFixedEffectsTable();
    void DisplayParamEstimates();
    void DisplayCorrParamEst();
    void DisplayCovarParamEst();

private:
    friend struct MIXParamEstimateOutputPeer;
    using CellWriter = std::function<void(BpCategory& cell, int row, int column)>;

    BpPivotTable NewTable(const std::string& title, const std::string& subType) const;
    BpDimension NewParameterDimension(BpPivotTable& table, const std::string& name, int place, bool hideTitle) const;
    void WriteEstimateRow(BpGroup& statistics, const MCRegrParameterStats& stats, bool singular) const;
    void WriteMatrix(const std::string& title, const std::string& subType, const CellWriter& writeCell) const;
    /// Correlation from a covariance matrix; missing when a variance isn't above 0, and when the covariance is 0.
    double FindCorrelation(int i, int j, int row, int column, const MCSymMatrix& matrix) const;

    MIXComOutputData* fpComOutputData;
};
