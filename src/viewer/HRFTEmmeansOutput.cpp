#include "viewer/HRFTEmmeansOutput.h"

#include "viewer/HRFTCharts.h"
#include "viewer/ViewerTexts.h"

#include <algorithm>
#include <array>

namespace {

using viewer::Filled;
using viewer::kInsertionOrder;

constexpr const char* kNoContrasts = "kGLMM_C19_1";
constexpr const char* kTooManyMeans = "kGLMM_C24";
constexpr const char* kNoSuchReference = "kGLMM_C25";
constexpr std::size_t kManyBlocks = 20;

constexpr std::array<const char*, 3> kContrastTitles{"Pairwise Contrasts", "Deviation Contrasts", "Simple Contrasts"};
constexpr std::array<const char*, 3> kContrastDimensions{"^1 Pairwise Contrasts", "^1 Deviation Contrasts",
                                                         "^1 Simple Contrasts"};

const WarningInfo* FindWarning(const EmmeansData& block, const std::string& key) {
    const auto found = std::find_if(block.fvWarningList.begin(), block.fvWarningList.end(),
                                    [&key](const WarningInfo& warning) { return warning.fMessage == key; });
    return found == block.fvWarningList.end() ? nullptr : &*found;
}

/// Whether axes name fields of the data and have one text a row each.
bool AreAxes(const std::vector<CoordinatesData>& axes, const ProcedureDataSource& source) {
    return std::all_of(axes.begin(), axes.end(), [&](const CoordinatesData& axis) {
        return source.FindVarIndex(axis.fField.c_str(), 0) >= 0 && axis.fvValues.size() == axes.front().fvValues.size();
    });
}

}  // namespace

HRFTEmmeansOutput::HRFTEmmeansOutput(BpProcedure* procedure, ProcedureDataSource* source, HRFTOutputStats* stats)
    : fpProcedure(procedure),
      fpDataSource(source),
      fpStats(stats),
      fpBuildSettings(stats->GetBuildSettings()),
      fpvEmmeansData(stats->GetEmmeansData()) {}

void HRFTEmmeansOutput::DisplayEmmeans() {
    if (!fpvEmmeansData || fpvEmmeansData->empty()) return;
    DisplayGrandMean();
    for (const EmmeansData& block : *fpvEmmeansData)
        DisplayEmmeansBlock(block);
}

BpComposite HRFTEmmeansOutput::EmmeansTitle(int index) const {
    if (index < 0) {
        BpComposite title("EMMEANS Grand Mean ...", true);
        title.Finish();
        return title;
    }
    const int n = static_cast<int>(fpBuildSettings->fvEMMeansSpecs.size());
    const BpString effect(EffectLabelOf(fpBuildSettings->fvEMMeansSpecs[index].fFactors), false);
    if (n == 1) return Filled("EMMEANS Effect ^1 ...", true, effect);
    return Filled("EMMEANS Effect ^1 block ^2 ...", true, effect, BpNumber(index + 1, BpProcedure::Count()));
}

std::string HRFTEmmeansOutput::EffectLabelOf(const EffectStruct& effect) const {
    std::vector<std::string> labels;
    for (int field : effect.fvFieldIndices)
        labels.push_back(fpDataSource->GetVariable(field).GetPreferredLabel());
    return viewer::JoinFields(labels, effect.fvNestingLevels);
}

BpDataValue HRFTEmmeansOutput::ValueOf(int field, const std::string& text) {
    const QVTA_Variable& variable = fpDataSource->GetVariable(field);
    fValueHolder.SetCompleteValue(text, variable, 0);
    return {variable, fValueHolder.GetObsValue(), 2};
}

double HRFTEmmeansOutput::NumberAt(const CoordinatesData& data, std::size_t row) const {
    if (row >= data.fvValues.size() || data.fvValues[row] == "__MISSING__") return fSysmis;
    return String2Double(data.fvValues[row]);
}

BpDimension HRFTEmmeansOutput::FieldDimension(BpPivotTable& table, int field, int position) const {
    BpDimension dimension = table.Dimension(BpVariable(fpDataSource->GetVariable(field), 1), kInsertionOrder);
    dimension.Position(0, position, false, false);
    return dimension;
}

BpDimension HRFTEmmeansOutput::StatisticsDimension(BpPivotTable& table) const {
    BpDimension statistics = table.Dimension(BpString("Statistics", true), kInsertionOrder);
    statistics.Position(1, 1, true, false);
    return statistics;
}

void HRFTEmmeansOutput::AddCoefficientCell(BpGroup& group, const char* name, double value) const {
    group.Category(BpString(name, true)).Cell(BpNumber(value, BpProcedure::Coefficient()));
}

void HRFTEmmeansOutput::AddLimits(BpDimension& statistics, double lower, double upper) const {
    BpGroup limits =
        statistics.Group(viewer::ConfidenceTitle("^1% Confidence Interval", *fpBuildSettings), true, kInsertionOrder);
    AddCoefficientCell(limits, "Lower", lower);
    AddCoefficientCell(limits, "Upper", upper);
}

void HRFTEmmeansOutput::DisplayGrandMean() {
    const ModelDiagnostics* diagnostics = fpStats->GetModelDiagnostics();
    if (!diagnostics) return;
    BpPivotTable table = fpProcedure->PivotTable(EmmeansTitle(-1), BpString("GrandMeans", false), true);
    table.Note(viewer::TargetNote(*fpBuildSettings, *fpDataSource));
    if (fpvEmmeansData->size() >= kManyBlocks && fpStats->IsWarningPresent(kTooManyMeans)) {
        table.Caption(BpString(kTooManyMeans, true));
    }
    BpDimension statistics = StatisticsDimension(table);
    AddCoefficientCell(statistics, "Mean", diagnostics->fGrandMean);
    AddCoefficientCell(statistics, "Std. Error", diagnostics->fGrandMeanStdErr);
    AddLimits(statistics, diagnostics->fGrandMeanCILower, diagnostics->fGrandMeanCIUpper);
}

void HRFTEmmeansOutput::BlockMessage(int index, const char* key, bool translateWord) const {
    BpComposite message("^1 ^2: ^3", false);
    message.Add(BpString("EMMEANS", translateWord));
    message.Add(BpNumber(index + 1, BpProcedure::Count()));
    message.Add(BpString(key, true));
    message.Finish();
    BpError(message, 2, 2);
}

void HRFTEmmeansOutput::DisplayEmmeansBlock(const EmmeansData& block) {
    if (block.fEmmeansIndex < 0 || block.fEmmeansIndex >= static_cast<int>(fpBuildSettings->fvEMMeansSpecs.size()))
        return;
    BpHeading heading = fpProcedure->Heading(EmmeansTitle(block.fEmmeansIndex));
    if (FindWarning(block, kNoSuchReference)) {
        BlockMessage(block.fEmmeansIndex, kNoSuchReference, false);
        return;
    }
    DisplayEstimates(heading, block);
    HRFTCharts charts(&heading, fpDataSource, fpStats);
    charts.DrawCustomEffectsChart(block);
    DisplayContrasts(heading, block);
    DisplayOverallTests(heading, block);
}

void HRFTEmmeansOutput::EstimatesCaption(BpPivotTable& table, const EmmeansData& block) const {
    if (block.fvLabels.empty()) return;
    BpComposite caption("Continuous predictors fixed at [%1=%2:,^1=^2:]1", true);
    caption.Sublist();
    for (const EmmeansLabel& label : block.fvLabels) {
        const int field = FieldIndex(label.fPattern);
        const OBS* value = label.fValue.GetObsValue();
        caption.Add(BpVariable(fpDataSource->GetVariable(field), 0));
        caption.Add(BpNumber(value ? value->fNumber : fSysmis, fpProcedure->Mean(field)));
    }
    caption.EndSublist();
    caption.Finish();
    table.Caption(caption);
}

void HRFTEmmeansOutput::DisplayEstimates(BpHeading& heading, const EmmeansData& block) {
    const EmmeansEstimates& estimates = block.fEstimates;
    const std::size_t nFactor = estimates.fvCoordinates.size();
    if (nFactor == 0 || nFactor != SpecOf(block).fFactors.fvFieldIndices.size()) return;
    if (!AreAxes(estimates.fvCoordinates, *fpDataSource)) return;
    BpPivotTable table = heading.PivotTable(BpString("Estimates", true), BpString("Estimates", false), true);
    EstimatesCaption(table, block);
    std::vector<int> fields;
    std::vector<BpDimension> dimensions;
    for (const CoordinatesData& axis : estimates.fvCoordinates) {
        fields.push_back(FieldIndex(axis.fField));
        dimensions.push_back(FieldDimension(table, fields.back(), static_cast<int>(nFactor - dimensions.size())));
    }
    BpDimension statistics = StatisticsDimension(table);
    for (std::size_t r = 0; r < estimates.fvCoordinates.front().fvValues.size(); ++r) {
        for (std::size_t k = 0; k < nFactor; ++k) {
            dimensions[k].Category(ValueOf(fields[k], estimates.fvCoordinates[k].fvValues[r]));
        }
        AddCoefficientCell(statistics, "Mean", NumberAt(estimates.fMean, r));
        AddCoefficientCell(statistics, "Std. Error", NumberAt(estimates.fStdErr, r));
        AddLimits(statistics, NumberAt(estimates.fConfIntervalLower, r), NumberAt(estimates.fConfIntervalUpper, r));
    }
}

void HRFTEmmeansOutput::ContrastsCaption(BpPivotTable& table) const {
    if (fpBuildSettings->fPAdjustment == kLSD) {
        table.Caption(BpString("Least Significant significance adjust", true));
        return;
    }
    const bool bonferroni = fpBuildSettings->fPAdjustment == kSeqBonferroni;
    if (!bonferroni && fpBuildSettings->fPAdjustment != kSeqSidak) return;
    BpComposite caption("[%1:\n^1:]1", true);
    caption.Sublist();
    caption.Add(BpString(
        bonferroni ? "Sequential Bonferroni significance adjust" : "Sequential Sidak significance adjust", true));
    caption.Add(BpString("Confidence interval bounds are approximate.", true));
    caption.EndSublist();
    caption.Finish();
    table.Caption(caption);
}

bool HRFTEmmeansOutput::DisplayContrasts(BpHeading& heading, const EmmeansData& block) {
    const EmmeansContrasts& contrasts = block.fContrasts;
    if (contrasts.fvCoordinates.empty()) return true;
    const int kind = contrasts.fContrastKind;
    if (kind != kPairwise && kind != kDeviation && kind != kSimple) return false;
    if (FindWarning(block, kNoContrasts)) {
        BlockMessage(block.fEmmeansIndex, kNoContrasts, true);
        return true;
    }
    const EMMeansSpec& spec = SpecOf(block);
    const std::size_t nFactor = contrasts.fvCoordinates.size();
    const std::size_t nEffect = spec.fFactors.fvFieldIndices.size();
    const int compare = FieldIndex(spec.fCompareFactor);
    if (nFactor < 2 || nFactor != nEffect + 1 || compare < 0) return true;
    if (!AreAxes(contrasts.fvCoordinates, *fpDataSource)) return true;
    const QVTA_Variable& compared = fpDataSource->GetVariable(compare);
    BpPivotTable table = heading.PivotTable(BpString(kContrastTitles[kind], true), BpString("Contrasts", false), true);
    ContrastsCaption(table);
    std::vector<int> fields;
    std::vector<BpDimension> dimensions;
    int position = static_cast<int>(nEffect);
    for (const CoordinatesData& axis : contrasts.fvCoordinates) {
        const int field = FieldIndex(axis.fField);
        if (field == compare) continue;
        fields.push_back(field);
        dimensions.push_back(FieldDimension(table, field, position--));
    }
    BpDimension contrast =
        table.Dimension(Filled(kContrastDimensions[kind], true, BpVariable(compared, 1)), kInsertionOrder);
    BpDimension statistics = StatisticsDimension(table);

    const CoordinatesData& first = contrasts.fvCoordinates[nFactor - 2];
    const CoordinatesData& second = contrasts.fvCoordinates[nFactor - 1];
    for (std::size_t r = 0; r < contrasts.fvCoordinates.front().fvValues.size(); ++r) {
        for (std::size_t k = 0; k < dimensions.size(); ++k) {
            dimensions[k].Category(ValueOf(fields[k], contrasts.fvCoordinates[k].fvValues[r]));
        }
        BpComposite pair("^1 - ^2", true);
        pair.Add(ValueOf(compare, first.fvValues[r]));
        if (kind == kDeviation) {
            pair.Add(BpString("Mean", true));
        } else {
            pair.Add(ValueOf(compare, second.fvValues[r]));
        }
        pair.Finish();
        contrast.Category(pair);
        AddCoefficientCell(statistics, "Contrast Estimate", NumberAt(contrasts.fContrastEstimate, r));
        AddCoefficientCell(statistics, "Std. Error", NumberAt(contrasts.fStdErr, r));
        AddCoefficientCell(statistics, "t", NumberAt(contrasts.fTTest, r));
        statistics.Category(BpString("df", true)).Cell(BpNumber(NumberAt(contrasts.fDf, r), BpProcedure::Count()));
        AddCoefficientCell(statistics, "Adj. Sig.", NumberAt(contrasts.fAdjustedSig, r));
        AddLimits(statistics, NumberAt(contrasts.fConfIntervalLower, r), NumberAt(contrasts.fConfIntervalUpper, r));
    }
    HRFTCharts charts(&heading, fpDataSource, fpStats);
    charts.DrawContrastChart(block);
    return true;
}

void HRFTEmmeansOutput::DisplayOverallTests(BpHeading& heading, const EmmeansData& block) {
    if (block.fvOverallTests.empty()) return;
    const EMMeansSpec& spec = SpecOf(block);
    const SubjectData& segment = block.fvOverallTests.front().fSegment;
    const std::size_t nFactor = segment.fvFieldIndices.size();
    if (nFactor + 1 != spec.fFactors.fvFieldIndices.size()) return;
    BpPivotTable table =
        heading.PivotTable(BpString("Overall Test Results", true), BpString("OverallTestResults", false), true);
    const int compare = FieldIndex(spec.fCompareFactor);
    std::vector<BpDimension> dimensions(nFactor);
    int position = static_cast<int>(nFactor);
    for (std::size_t k = 0; k < nFactor; ++k) {
        if (segment.fvFieldIndices[k] != compare)
            dimensions[k] = FieldDimension(table, segment.fvFieldIndices[k], position--);
    }
    BpDimension statistics = StatisticsDimension(table);
    for (const EmmeansOverallTest& test : block.fvOverallTests) {
        for (std::size_t k = 0; k < nFactor && k < test.fSegment.fSubjectValues.size(); ++k) {
            if (segment.fvFieldIndices[k] == compare) continue;
            const QVTA_Variable& variable = fpDataSource->GetVariable(segment.fvFieldIndices[k]);
            dimensions[k].Category(viewer::DataValue(variable, test.fSegment.fSubjectValues[k], 2));
        }
        AddCoefficientCell(statistics, "F", test.fFStatistic);
        statistics.Category(BpString("df1", true)).Cell(BpNumber(test.fDf1, BpProcedure::Count()));
        statistics.Category(BpString("df2", true)).Cell(BpNumber(test.fDf2, BpProcedure::Count()));
        AddCoefficientCell(statistics, "Sig.", test.fSig);
    }
}
