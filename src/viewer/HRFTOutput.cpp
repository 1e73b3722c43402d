#include "viewer/HRFTOutput.h"

#include "viewer/HRFTCharts.h"
#include "viewer/HRFTEmmeansOutput.h"
#include "viewer/HRFTParamEstimatesOutput.h"
#include "viewer/ViewerTexts.h"

namespace {

using viewer::Filled;
using viewer::kInsertionOrder;

constexpr const char* kSubjectNotUsed = "kGLMM_C26";
constexpr int kMostRecords = 10;

/// One group of repeated measures: a title, and positions in the record's list.
struct MeasureGroup {
    std::unique_ptr<BpCellText> fpTitle;
    std::vector<int> fvMeasures;
};

std::vector<int> MeasuresOf(const EffectStruct& effect, const std::vector<int>& measureOfField) {
    std::vector<int> measures;
    for (int field : effect.fvFieldIndices) {
        const int measure = field < static_cast<int>(measureOfField.size()) ? measureOfField[field] : -1;
        if (measure >= 0) measures.push_back(measure);
    }
    return measures;
}

std::vector<MeasureGroup> MeasureGroups(const StructuredData& data, const BuildSettings& settings, unsigned fields) {
    std::vector<MeasureGroup> groups;
    if (data.fvRepeatedMeasures.empty()) return groups;
    if (!settings.fKronecker) {
        MeasureGroup group{std::make_unique<BpString>("Repeated Measures", true), {}};
        for (std::size_t i = 0; i < data.fvRepeatedMeasures.size(); ++i)
            group.fvMeasures.push_back(static_cast<int>(i));
        groups.push_back(std::move(group));
        return groups;
    }
    std::vector<int> measureOfField(fields, -1);
    for (std::size_t i = 0; i < data.fvRepeatedMeasures.size(); ++i) {
        measureOfField[data.fvRepeatedMeasures[i].fRepMeasInd] = static_cast<int>(i);
    }
    int number = 0;
    for (const EffectStruct* effect : {&settings.fRepeatedMeasure, &settings.fKroneckerMeasure}) {
        ++number;
        auto title = Filled("Repeated Measures ^1", true, BpNumber(number, BpProcedure::Count()));
        groups.push_back({std::make_unique<BpComposite>(title), MeasuresOf(*effect, measureOfField)});
    }
    return groups;
}

}  // namespace

HRFTOutput::HRFTOutput(BpProcedure* procedure, ProcedureDataSource* source, HRFTOutputStats* stats)
    : fpHeading(procedure), fpDataSource(source), fpOutputStats(stats), fpBuildSettings(stats->GetBuildSettings()) {}

void HRFTOutput::Display() {
    if (fpBuildSettings->fTargetIndex < 0) return;  // nothing that a table could be about
    DisplayModelSummary();
    DisplayDataStructure();
    HRFTCharts charts(fpHeading, fpDataSource, fpOutputStats);
    charts.DrawPredictedByObserved();
    DisplayClassification();
    HRFTParamEstimatesOutput estimates(fpHeading, fpDataSource, fpOutputStats);
    estimates.DisplayFixedEffectTests();
    charts.DrawEffectsDiagram();
    estimates.DisplayFixedCoefficients();
    charts.DrawCoefficientsDiagram();
    estimates.DisplayRandomCovariances();
    estimates.DisplayCovarianceParameters();
    if (fpStatJSON) fpStatJSON->DisplayOutput();
    charts.DrawMeansCharts();
    HRFTEmmeansOutput(fpHeading, fpDataSource, fpOutputStats).DisplayEmmeans();
}

void HRFTOutput::DisplayModelSummary() {
    const ModelDiagnostics* diagnostics = fpOutputStats->GetModelDiagnostics();
    if (!diagnostics) return;
    BpPivotTable table = fpHeading->PivotTable(BpString("Model Summary", true), BpString("ModelSummary", false), false);
    table.MinDataColumnWidth(150);
    table.Caption(Filled("Information Criteria, log likelhood ^1 ...", true,
                         BpNumber(diagnostics->fMinus2LogLikelihood, BpProcedure::GeneralStat())));
    BpDimension content = table.Dimension(BpString("Content", true), kInsertionOrder);
    content.Position(0, 1, true, false);
    SummaryTarget(content);
    const int distribution = fpBuildSettings->fDistribution;
    if (distribution == kNominalTarget || distribution == kOrdinalTarget) {
        content.Category(BpString("Measurement Level", true))
            .Cell(BpString(distribution == kNominalTarget ? "Nominal" : "Ordinal", true));
    }
    content.Category(BpString("Probability Distribution", true))
        .Cell(BpString(fpOutputStats->DistributionLabel(distribution, false), true));
    SummaryLink(content);
    BpGroup criteria = content.Group(BpString("Information Criterion", true), true, kInsertionOrder);
    criteria.Category(BpString("Akaike Corrected", true))
        .Cell(BpNumber(diagnostics->fAICC, BpProcedure::GeneralStat()));
    criteria.Category(BpString("Bayesian", true)).Cell(BpNumber(diagnostics->fBIC, BpProcedure::GeneralStat()));
}

void HRFTOutput::SummaryTarget(BpDimension& content) {
    const BpVariable target(fpDataSource->GetVariable(fpBuildSettings->fTargetIndex), 2);
    if (!fpBuildSettings->fUseTrials) {
        content.Category(BpString("Target", true)).Cell(target);
        return;
    }
    BpGroup group = content.Group(BpString("Target", true), true, kInsertionOrder);
    group.Category(BpString("Events", true)).Cell(target);
    BpCategory trials = group.Category(BpString("Trials", true));
    if (fpBuildSettings->fTrialsIndex >= 0) {
        trials.Cell(BpVariable(fpDataSource->GetVariable(fpBuildSettings->fTrialsIndex), 2));
    } else {
        const double value = fpBuildSettings->fTrialsValue;
        trials.Cell(BpNumber(value, BpProcedure::SigDigit(value)));
    }
}

void HRFTOutput::SummaryLink(BpDimension& content) {
    const BuildSettings& settings = *fpBuildSettings;
    BpCategory category = content.Category(BpString("Link Function", true));
    if (settings.fLinkParam == fSysmis) {
        category.Cell(BpString(fpOutputStats->LinkLabel(settings.fLink, settings.fDistribution, false), true));
    } else {
        category.Cell(Filled(fpOutputStats->PowerLinkPattern(settings.fLink, settings.fDistribution), true,
                             BpNumber(settings.fLinkParam, BpProcedure::SigDigit(settings.fLinkParam))));
    }
}

void HRFTOutput::NoSubjects() {
    if (!fpOutputStats->IsWarningPresent(kSubjectNotUsed)) return;
    BpError(Filled("^1: ^2", false, BpString("Data Structure", true), BpString("Subject field not used ...", true)), 2,
            2);
}

void HRFTOutput::DisplayDataStructure() {
    const StructuredData* data = fpOutputStats->GetStructuredData();
    if (!data || data->fSubjectData.fvFieldNames.empty()) {
        NoSubjects();
        return;
    }
    BpPivotTable table =
        fpHeading->PivotTable(BpString("Data Structure", true), BpString("DataStructure", false), true);
    StructureNotes(table);
    BpDimension records = table.Dimension(BpString("Record", false), kInsertionOrder);
    records.Position(0, 1, true, true);
    BpDimension outer = table.Dimension(BpString("Data", false), kInsertionOrder);
    outer.Position(0, 2, true, false);
    BpDimension variables = table.Dimension(BpString("Variables", false), kInsertionOrder);
    variables.Position(1, 1, true, false);
    StructureRecords(records, outer, variables);
    if (fpBuildSettings->fUseTrials && fpBuildSettings->fTrialsIndex < 0) TrialsNote(variables);
    StructureLevels(records, outer, variables);
}

void HRFTOutput::StructureNotes(BpPivotTable& table) {
    const BpComposite target = viewer::TargetNote(*fpBuildSettings, *fpDataSource);
    table.Note(target);
    if (fpOutputStats->GetStructuredData()->fTotalFreq > kMostRecords) {
        table.Caption(Filled("Only the first ^1 records are displayed.", true, BpNumber(10.0, BpProcedure::Count())));
    }
    if (!fpOutputStats->IsWarningPresent(kSubjectNotUsed)) return;
    BpComposite notes("[%1:\n^1:]1", true);
    notes.Sublist();
    notes.Add(target);
    notes.Add(BpString("Subject field not used ...", true));
    notes.EndSublist();
    notes.Finish();
    table.Note(notes);
}

void HRFTOutput::StructureRecords(BpDimension& records, BpDimension& data, BpDimension& variables) {
    const StructuredData& source = *fpOutputStats->GetStructuredData();
    const BuildSettings& settings = *fpBuildSettings;
    const std::vector<MeasureGroup> measures = MeasureGroups(source, settings, fpDataSource->ColumnCount());
    data.Category(BpString("Data for First Subject", true));
    for (std::size_t r = 0; r < source.fvTargetValues.size(); ++r) {
        records.Category(BpNumber(static_cast<double>(r), BpProcedure::Count()));
        BpGroup subjects = variables.Group(BpString("Subjects", true), true, kInsertionOrder);
        for (std::size_t j = 0; j < source.fSubjectData.fvFieldIndices.size(); ++j) {
            const QVTA_Variable& field = fpDataSource->GetVariable(source.fSubjectData.fvFieldIndices[j]);
            subjects.Category(BpVariable(field, 2))
                .Cell(viewer::DataValue(field, source.fSubjectData.fSubjectValues[j], 0));
        }
        for (const MeasureGroup& group : measures) {
            BpGroup repeated = variables.Group(*group.fpTitle, true, kInsertionOrder);
            for (int m : group.fvMeasures) {
                const RepeatMeasVarStruct& measure = source.fvRepeatedMeasures[m];
                if (r >= measure.fvValues.size()) continue;
                const QVTA_Variable& field = fpDataSource->GetVariable(measure.fRepMeasInd);
                repeated.Category(BpVariable(field, 2)).Cell(viewer::DataValue(field, measure.fvValues[r], 0));
            }
        }
        BpGroup target = variables.Group(BpString("Target", true), true, kInsertionOrder);
        const QVTA_Variable& field = fpDataSource->GetVariable(settings.fTargetIndex);
        target.Category(BpVariable(field, 2)).Cell(viewer::DataValue(field, source.fvTargetValues[r], 2));
        if (settings.fTrialsIndex >= 0 && r < source.fvTrialsValues.size()) {
            const QVTA_Variable& trials = fpDataSource->GetVariable(settings.fTrialsIndex);
            target.Category(BpVariable(trials, 2)).Cell(viewer::DataValue(trials, source.fvTrialsValues[r], 2));
        }
    }
}

void HRFTOutput::TrialsNote(BpDimension& variables) {
    const QVTA_Variable& target = fpDataSource->GetVariable(fpBuildSettings->fTargetIndex);
    variables.Group(BpString("Target", true), true, kInsertionOrder)
        .Category(BpVariable(target, 2))
        .Note(Filled("Number of Trials = ^1", true, BpNumber(fpBuildSettings->fTrialsValue, BpProcedure::Count())));
}

void HRFTOutput::StructureLevels(BpDimension& records, BpDimension& data, BpDimension& variables) {
    const StructuredData& source = *fpOutputStats->GetStructuredData();
    data.Category(BpString("Total Number of Levels", true));
    records.Category(BpString("Levels", false));
    BpGroup subjects = variables.Group(BpString("Subjects", true), true, kInsertionOrder);
    for (std::size_t j = 0; j < source.fSubjectData.fvFieldIndices.size(); ++j) {
        subjects.Category(BpVariable(fpDataSource->GetVariable(source.fSubjectData.fvFieldIndices[j]), 2))
            .Cell(BpNumber(source.fSubjectData.fvCategoryCounts[j], BpProcedure::Count()));
    }
    for (const MeasureGroup& group : MeasureGroups(source, *fpBuildSettings, fpDataSource->ColumnCount())) {
        BpGroup repeated = variables.Group(*group.fpTitle, true, kInsertionOrder);
        for (int m : group.fvMeasures) {
            const RepeatMeasVarStruct& measure = source.fvRepeatedMeasures[m];
            repeated.Category(BpVariable(fpDataSource->GetVariable(measure.fRepMeasInd), 2))
                .Cell(BpNumber(measure.fNumLevels, BpProcedure::Count()));
        }
    }
}

void HRFTOutput::DisplayClassification() {
    const ModelDiagnostics* diagnostics = fpOutputStats->GetModelDiagnostics();
    const MatrixData* matrix = fpOutputStats->GetClassifMatrixData();
    if (!diagnostics || !matrix) return;
    const BpComposite title = Filled("Classification, overall ^1 ...", true,
                                     BpNumber(diagnostics->fClassificationAccuracy * 100.0, BpProcedure::Percent()));
    BpPivotTable table = fpHeading->PivotTable(title, BpString("Classification", false), true);
    table.Note(viewer::TargetNote(*fpBuildSettings, *fpDataSource));
    BpDimension observed = table.Dimension(BpString("Observed", true), kInsertionOrder);
    observed.Position(0, 2, false, false);
    BpDimension statistics = table.Dimension(BpString("Statistics", false), kInsertionOrder);
    statistics.Position(0, 1, true, false);
    BpDimension predicted = table.Dimension(BpString("Predicted", true), kInsertionOrder);
    predicted.Position(1, 1, false, false);

    const QVTA_Variable& target = fpDataSource->GetVariable(fpBuildSettings->fTargetIndex);
    const auto addLabel = [&](BpDimension& dimension, int index) {
        if (fpBuildSettings->fUseTrials) {
            dimension.Category(BpString(index == 0 ? "Non-Event" : "Event", true));
        } else if (index < static_cast<int>(matrix->fvLabels.size())) {
            dimension.Category(viewer::DataValue(target, matrix->fvLabels[index], 2));
        }
    };
    for (int i = 0; i < matrix->fNRows; ++i) {
        addLabel(observed, i);
        const MatrixRow& row = matrix->fvRows[i];
        for (int j = 0; j < matrix->fNRows; ++j) {
            addLabel(predicted, j);
            const double share = row.fRowSum == 0.0 ? 0.0 : 100.0 * row.fvValues[j] / row.fRowSum;
            statistics.Category(BpString("E60868", true)).Cell(BpNumber(row.fvValues[j], BpProcedure::Count()));
            statistics.Category(BpString("% within Observed", true)).Cell(BpNumber(share, BpProcedure::Percent()));
        }
    }
}
