#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "results/HRFTOutputStats.h"

#include <string>
#include <vector>

/// Writes the viewer's tables of estimates from the results record: fixed effects and coefficients, covariances of the
/// random effects, covariance parameters. A table whose part of the record is absent is not written.
class HRFTParamEstimatesOutput {
public:
    HRFTParamEstimatesOutput(BpProcedure* procedure, ProcedureDataSource* source, HRFTOutputStats* stats);

    void DisplayFixedEffectTests();
    void DisplayFixedCoefficients();
    void DisplayRandomCovariances();
    void DisplayCovarianceParameters();

    /// Labels of the effects, the intercept's translated; does nothing when names has an entry. Always true.
    bool FillEffectNames(const std::vector<EffectStruct>& effects, std::vector<std::string>& names) const;
    /// The rows and cells of one list of covariance parameters; block -1 is the residual.
    bool AddCovarianceCells(BpGroup& rows, BpGroup& columns, const ParamEstimData& data, int block) const;

private:
    void AddHead(BpPivotTable& table, bool withTrials, bool translateLink) const;
    void AddTestRow(BpDimension& statistics, const EffectTestStat& stat) const;
    void PlainCoefficients(const ParamEstimData& data) const;
    void NominalCoefficients(const std::vector<ParamEstimData>& targets) const;
    void AddCoefficientRow(BpDimension& terms, const ParameterStatsData& stats, bool thresholds) const;
    void AddCoefficientCells(BpDimension& statistics, const ParameterStatsData& stats) const;
    std::string SubjectText(const EffectStruct& subject) const;
    void RandomCovarianceTable(const RandEffCovars& covars, int block) const;
    void AddMatrixCells(BpDimension& rows, BpDimension& columns, const RandEffCovars& covars,
                        const MatrixData& matrix) const;
    BpDimension GroupDimension(BpPivotTable& table, bool grouped) const;
    void AddGroupCategory(BpDimension& dimension, const SubjectData& segment, bool grouped) const;
    bool NoSubjects() const;
    void SummaryTable() const;
    void ResidualTable(const std::vector<ParamEstimData>& estimates) const;
    void ResidualCaption(BpPivotTable& table) const;
    void RandomTable(const std::vector<ParamEstimData>& estimates, int block, int blocks) const;
    void AddWarnings(BpComposite& caption) const;

    double fSysmis = SYSMIS;
    BpProcedure* fpProcedure;
    ProcedureDataSource* fpProcDS;
    HRFTOutputStats* fpOutputStats;
    BuildSettings* fpBuildSettings;
    std::vector<std::string> fvEffectNames;
};
