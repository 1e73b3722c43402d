#include "viewer/HRFTParamEstimatesOutput.h"

#include "viewer/ViewerTexts.h"

namespace {

using viewer::kInsertionOrder;

constexpr const char* kConfidence = "^1% Confidence Interval";
constexpr const char* kExpConfidence = "^1% Confidence Interval for Exp(Coefficient)";

}  // namespace

HRFTParamEstimatesOutput::HRFTParamEstimatesOutput(BpProcedure* procedure, ProcedureDataSource* source,
                                                   HRFTOutputStats* stats)
    : fpProcedure(procedure), fpProcDS(source), fpOutputStats(stats), fpBuildSettings(stats->GetBuildSettings()) {}

bool HRFTParamEstimatesOutput::FillEffectNames(const std::vector<EffectStruct>& effects,
                                               std::vector<std::string>& names) const {
    if (!names.empty()) return true;
    for (const EffectStruct& effect : effects) {
        if (effect.fvFieldIndices.empty()) {
            names.push_back(viewer::LookUp("Intercept"));
            continue;
        }
        std::vector<std::string> fields;
        for (int field : effect.fvFieldIndices)
            fields.emplace_back(fpProcDS->GetVariable(field).GetName());
        names.push_back(viewer::JoinFields(fields, effect.fvNestingLevels));
    }
    return true;
}

/// The note on the target and the caption on its distribution and link.
void HRFTParamEstimatesOutput::AddHead(BpPivotTable& table, bool withTrials, bool translateLink) const {
    const BuildSettings& settings = *fpBuildSettings;
    if (withTrials) {
        table.Note(viewer::TargetNote(settings, *fpProcDS));
    } else {
        table.Note(viewer::Filled("Target ^1", true, BpVariable(fpProcDS->GetVariable(settings.fTargetIndex), 1)));
    }
    const bool hasParam = settings.fLinkParam != fSysmis;
    BpComposite caption(hasParam ? "Probability Distribution ^1, Link Function ^2 with ^3 ..."
                                 : "Probability Distribution ^1, Link Function ^2 ...",
                        true);
    caption.Add(BpString(fpOutputStats->DistributionLabel(settings.fDistribution, true), false));
    caption.Add(BpString(fpOutputStats->LinkLabel(settings.fLink, settings.fDistribution, true), translateLink));
    if (hasParam) caption.Add(BpNumber(settings.fLinkParam, BpProcedure::SigDigit(settings.fLinkParam)));
    caption.Finish();
    table.Caption(caption);
}

void HRFTParamEstimatesOutput::AddTestRow(BpDimension& statistics, const EffectTestStat& stat) const {
    statistics.Category(BpString("F", true)).Cell(BpNumber(stat.fFStatistic, BpProcedure::GeneralStat()));
    statistics.Category(BpString("df1", true)).Cell(BpNumber(stat.fDf1, BpProcedure::Count()));
    statistics.Category(BpString("df2", true)).Cell(BpNumber(stat.fDf2, BpProcedure::Count()));
    statistics.Category(BpString("Sig.", true)).Cell(BpNumber(stat.fSig, BpProcedure::Significance()));
}

void HRFTParamEstimatesOutput::DisplayFixedEffectTests() {
    const EffectTest* tests = fpOutputStats->GetEffectTest();
    // A split that failed has no tests.
    if (!tests || tests->fvFixedEffectTests.size() != fpBuildSettings->fvFixedEffectList.size()) return;
    const std::size_t n = tests->fvFixedEffectTests.size();
    if (n == 0 && !fpBuildSettings->fIntercept) return;
    BpPivotTable table =
        fpProcedure->PivotTable(BpString("Fixed Effects", true), BpString("FixedEffects", false), true);
    AddHead(table, true, false);
    BpDimension source = table.Dimension(BpString("Source", true), kInsertionOrder);
    source.Position(0, 1, false, false);
    BpDimension statistics = table.Dimension(BpString("Statistics", true), kInsertionOrder);
    statistics.Position(1, 1, true, false);
    FillEffectNames(fpBuildSettings->fvFixedEffectList, fvEffectNames);
    BpCategory corrected = source.Category(BpString("Corrected Model", true));
    if (n == 0) corrected.Note(BpString("Fixed effects intercept only ...", true));
    AddTestRow(statistics, tests->fCorrectedModel);
    for (std::size_t i = 0; i < n; ++i) {
        source.Category(BpString(fvEffectNames[i], false));
        AddTestRow(statistics, tests->fvFixedEffectTests[i]);
    }
}

void HRFTParamEstimatesOutput::DisplayFixedCoefficients() {
    const ParamCollect* collect = fpOutputStats->GetParamCollect();
    if (!collect || collect->fvFixedParamEstim.empty()) return;
    if (fpBuildSettings->fDistribution == kNominalTarget) {
        NominalCoefficients(collect->fvFixedParamEstim);
        return;
    }
    if (collect->fvFixedParamEstim.size() == 1) PlainCoefficients(collect->fvFixedParamEstim.front());
}

void HRFTParamEstimatesOutput::PlainCoefficients(const ParamEstimData& data) const {
    BpPivotTable table =
        fpProcedure->PivotTable(BpString("Fixed Coefficients", true), BpString("FixedCoefficients", false), true);
    AddHead(table, true, false);
    BpDimension terms = table.Dimension(BpString("Model Term", true), kInsertionOrder);
    terms.Position(0, 1, false, false);
    BpDimension statistics = table.Dimension(BpString("Statistics", true), kInsertionOrder);
    statistics.Position(1, 1, true, false);
    for (const ParameterStatsData& stats : data.fvParameterStats) {
        AddCoefficientRow(terms, stats, fpBuildSettings->fDistribution == kOrdinalTarget);
        AddCoefficientCells(statistics, stats);
    }
}

void HRFTParamEstimatesOutput::NominalCoefficients(const std::vector<ParamEstimData>& targets) const {
    BpPivotTable table =
        fpProcedure->PivotTable(BpString("Fixed Coefficients", true), BpString("FixedCoefficients", false), true);
    AddHead(table, false, true);
    const QVTA_Variable& target = fpProcDS->GetVariable(fpBuildSettings->fTargetIndex);
    BpDimension terms = table.Dimension(BpString("Model Term", true), kInsertionOrder);
    terms.Position(0, 1, false, false);
    BpDimension categories = table.Dimension(BpVariable(target, 2), kInsertionOrder);
    categories.Position(0, 2, false, false);
    BpDimension statistics = table.Dimension(BpString("Statistics", true), kInsertionOrder);
    statistics.Position(1, 1, true, false);
    for (const ParamEstimData& data : targets) {
        if (data.fvParameterStats.empty()) continue;
        categories.Category(viewer::DataValue(target, data.fTargetCategory, 2));
        for (const ParameterStatsData& stats : data.fvParameterStats) {
            AddCoefficientRow(terms, stats, false);
            AddCoefficientCells(statistics, stats);
        }
    }
}

void HRFTParamEstimatesOutput::AddCoefficientRow(BpDimension& terms, const ParameterStatsData& stats,
                                                 bool thresholds) const {
    if (thresholds && stats.fStatisticInt < 0 && !stats.fRegrParam.fvFactors.empty()) {
        const QVTA_Variable& target = fpProcDS->GetVariable(fpBuildSettings->fTargetIndex);
        BpGroup group =
            terms.Group(viewer::Filled("Threshold for ^1=", true, BpVariable(target, 1)), true, kInsertionOrder);
        group.Category(viewer::DataValue(target, stats.fRegrParam.fvFactors.front().fValue, 0));
        return;
    }
    const std::string label =
        stats.fRegrParam.fIsIntercept ? fpOutputStats->GetTranslatedText("Intercept") : stats.fParamLabel;
    terms.Category(*HRFTOutputStats::LongTextCell(label));
}

void HRFTParamEstimatesOutput::AddCoefficientCells(BpDimension& statistics, const ParameterStatsData& stats) const {
    const bool redundant = stats.fIsRedundant;
    const auto number = [&](double value, const BpFormatSpec& format) {
        return BpNumber(redundant ? fSysmis : value, format);
    };
    BpCategory coefficient = statistics.Category(BpString("Coefficient", true));
    if (redundant) {
        coefficient.Cell(BpNumber(0.0, BpProcedure::Count()));
        coefficient.CellNote(BpString("Redundant coefficient, zero ...", true));
    } else {
        coefficient.Cell(BpNumber(stats.fEstimate, BpProcedure::Coefficient()));
    }
    statistics.Category(BpString("Std. Error", true)).Cell(number(stats.fStdError, BpProcedure::CoefficientSE()));
    statistics.Category(BpString("t", true)).Cell(number(stats.fTTest, BpProcedure::GeneralStat()));
    statistics.Category(BpString("Sig.", true)).Cell(number(stats.fSig, BpProcedure::Significance()));
    BpGroup limits = statistics.Group(viewer::ConfidenceTitle(kConfidence, *fpBuildSettings), true, kInsertionOrder);
    limits.Category(BpString("Lower", true)).Cell(number(stats.fConfIntervalLower, BpProcedure::Coefficient()));
    limits.Category(BpString("Upper", true)).Cell(number(stats.fConfIntervalUpper, BpProcedure::Coefficient()));
    if (stats.fExpEstimate == fSysmis) return;
    statistics.Category(BpString("Exp(Coefficient)", true))
        .Cell(number(stats.fExpEstimate, BpProcedure::Coefficient()));
    BpGroup expLimits =
        statistics.Group(viewer::ConfidenceTitle(kExpConfidence, *fpBuildSettings), true, kInsertionOrder);
    expLimits.Category(BpString("Lower", true)).Cell(number(stats.fExpCILower, BpProcedure::Coefficient()));
    expLimits.Category(BpString("Upper", true)).Cell(number(stats.fExpCIUpper, BpProcedure::Coefficient()));
}
