#include "tables/MIXParamEstimateOutput.h"

#include "procedure/CommandRecords.h"
#include "procedure/MIXFactory.h"
#include "procedure/MIXParameterAggregator.h"
#include "procedure/MIXValidSpecs.h"
#include "tables/MIXComOutputData.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <memory>

namespace {

constexpr long kHessianNotPositive = 230038;
constexpr long kHessianNotPositiveConverged = 130070;

BpFormatSpec ParameterFormat() {
    return BpFormatSpec(UnpackFormat(static_cast<std::uint32_t>(LowSlot(slots::kParameterFormat))));
}

/// Whole degrees of freedom are shown as counts.
BpFormatSpec FormatOfDF(double df) {
    const bool isWhole = !MCMV::IsMissing(df) && df >= 1.0 && std::floor(df) == df;
    return isWhole ? BpProcedure::Count() : BpProcedure::GeneralStat();
}

bool HasSingularHessian(const std::vector<MCStatus>& warnings) {
    return std::any_of(warnings.begin(), warnings.end(), [](const MCStatus& status) {
        const long code = status.GetErrorCode();
        return (status.IsError() || status.IsWarning()) &&
               (code == kHessianNotPositive || code == kHessianNotPositiveConverged);
    });
}

BpCategory LabelCategory(BpGroup& group, const std::string& label) {
    const std::unique_ptr<BpCellText> text(MIXParameterAggregator::LongStrToComposite(label));
    return group.Category(*text);
}

void WriteCell(BpGroup& group, const char* category, double value, const BpFormatSpec& format) {
    group.Category(BpString(category, true)).Cell(BpNumber(value, format));
}

}  // namespace

BpPivotTable MIXParamEstimateOutput::NewTable(const std::string& title, const std::string& subType) const {
    BpHeading heading = fpComOutputData->GetProcedure()->Heading(BpString("Fixed Effects", true));
    BpPivotTable table = heading.PivotTable(BpString(title, true), BpString(subType, true), true);
    fpComOutputData->AddTableCaption(table, false);
    return table;
}

BpDimension MIXParamEstimateOutput::NewParameterDimension(BpPivotTable& table, const std::string& name, int place,
                                                          bool hideTitle) const {
    BpDimension dimension = table.Dimension(BpString(name, true), 2);
    dimension.Position(place, 1, hideTitle, false);
    // All splits share one order of rows.
    const MIXParameterAggregator* aggregator = fpComOutputData->GetFactory()->GetFixParamAggr();
    if (aggregator) aggregator->SetParamTrellisCats(&dimension, -1, false);
    return dimension;
}

void MIXParamEstimateOutput::DisplayFixedEffectsTable() {
    const MIXValidSpecs& specs = *fpComOutputData->GetValidSpecs();
    const GLMMOutputStats* stats = fpComOutputData->GetResults();
    if (!stats) return;
    const bool isTypeIII = specs.GetEffectAnalysisType() != 0;
    const MCModelTestStats* tests = isTypeIII ? stats->GetTypeIIITestStats() : stats->GetTypeITestStats();
    const bool hasIntercept = specs.GetInterceptInModel();
    if (specs.GetNModelEffect() < 1 && !hasIntercept) return;
    assert(tests != nullptr);
    if (!tests) return;

    BpPivotTable table = NewTable(isTypeIII ? "Type III Tests of Fixed Effects" : "Type I Tests of Fixed Effects",
                                  "Tests of Fixed Effects");
    BpDimension source = table.Dimension(BpString("Source", true), 2);
    source.Position(0, 1, false, false);
    BpDimension statistics = table.Dimension(BpString("Statistics", true), 2);
    statistics.Position(1, 1, true, false);
    const std::vector<std::string>& effects = *fpComOutputData->GetFixParamMap()->GetEffectMap(false);
    for (int test = 0; test < tests->GetNTests(); ++test) {
        const bool isIntercept = hasIntercept && test == 0;
        const std::size_t effect = hasIntercept ? test - 1 : test;
        assert(isIntercept || effect < effects.size());
        if (!isIntercept && effect >= effects.size()) break;
        source.Category(isIntercept ? BpString("(Intercept)", true) : BpString(effects[effect], false));
        const MCTestStats& result = tests->GetTestStats(test);
        WriteCell(statistics, "Numerator DF", result.GetDF(), BpProcedure::Count());
        WriteCell(statistics, "Denominator DF", result.GetDF2(), FormatOfDF(result.GetDF2()));
        WriteCell(statistics, "F Value", result.GetWald(), BpProcedure::GeneralStat());
        WriteCell(statistics, "Significance", result.GetSig(), BpProcedure::Significance());
    }
}

void MIXParamEstimateOutput::DisplayParamEstimates() {
    if (fpComOutputData->GetValidSpecs()->GetPrintOptionNONE()) return;
    const GLMMOutputStats* stats = fpComOutputData->GetResults();
    if (!stats) return;
    const std::vector<std::string>& labels = *fpComOutputData->GetFixParamMap()->GetParameterMap(false);
    if (labels.empty()) return;
    BpPivotTable table = NewTable("Fixed Parameter Estimates", "Parameter Estimates");
    BpDimension parameter = NewParameterDimension(table, "Parameter", 0, false);
    BpDimension statistics = table.Dimension(BpString("Statistics", true), 2);
    statistics.Position(1, 1, true, false);
    const bool singular = HasSingularHessian(stats->GetBuildModelWarnings());
    for (std::size_t i = 0; i < stats->GetBetaParameters().size(); ++i) {
        LabelCategory(parameter, labels[i % labels.size()]);
        WriteEstimateRow(statistics, stats->GetBetaParamStats()[i], singular);
    }
}

void MIXParamEstimateOutput::WriteEstimateRow(BpGroup& statistics, const MCRegrParameterStats& stats,
                                              bool singular) const {
    const BpFormatSpec format = ParameterFormat();
    const BpFormatSpec count = BpProcedure::Count();
    const double missing = MCMV::Missing();
    const bool redundant = stats.fRedundant;
    const bool hasTest = !redundant && stats.fStdError != 0.0;

    BpCategory estimate = statistics.Category(BpString("B0", true));
    estimate.Cell(redundant ? BpNumber(0.0, count) : BpNumber(stats.fEstimate, format));
    if (redundant) {
        estimate.CellNote(BpString("Redundant parameter ...", true));
    } else if (singular && MCMV::IsMissing(stats.fStdError)) {
        estimate.CellNote(BpString("Parameter caused Hessian singularity ...", true));
    }
    WriteCell(statistics, "Standard Error", redundant ? 0.0 : stats.fStdError, redundant ? count : format);
    const double df = hasTest && stats.fDF > 0.0 ? stats.fDF : missing;
    WriteCell(statistics, "Degrees of Freedom", df, FormatOfDF(df));
    WriteCell(statistics, "t Statistic", hasTest ? stats.fT : missing, BpProcedure::GeneralStat());
    WriteCell(statistics, "Significance", hasTest ? stats.fSig : missing, BpProcedure::Significance());

    const double level = fpComOutputData->GetValidSpecs()->GetCILevelPct();
    BpComposite title("^1 Confidence Interval", true);
    title.Add(BpNumber(level, BpProcedure::SigDigit(level)));
    title.Finish();
    BpGroup interval = statistics.Group(title, true, 2);
    WriteCell(interval, "Lower Bound", redundant ? missing : stats.fLower, format);
    WriteCell(interval, "Upper Bound", redundant ? missing : stats.fUpper, format);
}

void MIXParamEstimateOutput::WriteMatrix(const std::string& title, const std::string& subType,
                                         const CellWriter& writeCell) const {
    const std::vector<std::string>& labels = *fpComOutputData->GetFixParamMap()->GetParameterMap(false);
    BpPivotTable table = NewTable(title, subType);
    BpDimension rows = NewParameterDimension(table, "Parameter", 0, true);
    BpDimension columns = NewParameterDimension(table, "Parameter2", 1, true);
    const int nLabels = static_cast<int>(labels.size());
    for (int i = 0; i < nLabels; ++i) {
        for (int j = 0; j < nLabels; ++j) {
            LabelCategory(rows, labels[i]);
            BpCategory cell = LabelCategory(columns, labels[j]);
            writeCell(cell, i, j);
        }
    }
}

void MIXParamEstimateOutput::DisplayCorrParamEst() {
    const GLMMOutputStats* stats = fpComOutputData->GetResults();
    if (!stats || fpComOutputData->GetFixParamMap()->GetParamMapSize() == 0) return;
    const MCSymMatrix& matrix = stats->GetCovarianceMatrixBeta();
    if (matrix.GetOrder() == 0) return;
    const std::vector<MCRegrParameterStats>& params = stats->GetBetaParamStats();
    WriteMatrix("Fixed Correlation Matrix", "Correlation Matrix", [&](BpCategory& cell, int i, int j) {
        if (params[i].fRedundant || params[j].fRedundant) {
            cell.Cell(BpNumber(MCMV::Missing(), BpProcedure::Correlation()));
            cell.CellNote(BpString("Redundant correlation ...", true));
            return;
        }
        const double correlation = FindCorrelation(0, 0, i, j, matrix);
        const bool isUnit = i == j && !MCMV::IsMissing(correlation);
        cell.Cell(isUnit ? BpNumber(1.0, BpProcedure::Count()) : BpNumber(correlation, BpProcedure::Correlation()));
    });
}

void MIXParamEstimateOutput::DisplayCovarParamEst() {
    const GLMMOutputStats* stats = fpComOutputData->GetResults();
    if (!stats || fpComOutputData->GetFixParamMap()->GetParamMapSize() == 0) return;
    const MCSymMatrix& matrix = stats->GetCovarianceMatrixBeta();
    if (matrix.GetOrder() == 0) return;
    const std::vector<MCRegrParameterStats>& params = stats->GetBetaParamStats();
    const BpFormatSpec format = ParameterFormat();
    WriteMatrix("Fixed Covariance Matrix", "Covariance Matrix", [&](BpCategory& cell, int i, int j) {
        if (params[i].fRedundant || params[j].fRedundant) {
            cell.Cell(BpNumber(0.0, BpProcedure::Count()));
            cell.CellNote(BpString("Redundant covariance ...", true));
            return;
        }
        cell.Cell(BpNumber(matrix.GetElem(0, 0, i, j), format));
    });
}

double MIXParamEstimateOutput::FindCorrelation(int i, int j, int row, int column, const MCSymMatrix& matrix) const {
    const double a = matrix.GetElem(i, i, row, row);
    if (!(a > 0.0)) return MCMV::Missing();
    if (i == j && row == column) return 1.0;
    const double b = matrix.GetElem(j, j, column, column);
    if (!(b > 0.0)) return MCMV::Missing();
    const double c = matrix.GetElem(i, j, row, column);
    if (c == 0.0) return MCMV::Missing();
    return std::copysign(std::sqrt((c / b) * (c / a)), c);
}
