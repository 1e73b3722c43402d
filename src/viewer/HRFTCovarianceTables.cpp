#include "viewer/HRFTParamEstimatesOutput.h"
#include "viewer/ViewerTexts.h"

namespace {

using viewer::Filled;
using viewer::kInsertionOrder;

constexpr const char* kNoSubjectsA = "kGLMM_C8";
constexpr const char* kNoSubjectsB = "kGLMM_C9";
constexpr const char* kEstimateNote = "kGLMM_C10";
constexpr const char* kUnshownSubjects = "kGLMM_C18";
constexpr const char* kOrdinalExcluded = "kGLMM_C23";
constexpr const char* kFurtherWarning = "kGLMM_C28";

BpNumber Count(double value) {
    return {value, BpProcedure::Count()};
}

void AddVariables(BpComposite& text, const std::vector<int>& fields, const ProcedureDataSource& source) {
    text.Sublist();
    for (int field : fields)
        text.Add(BpVariable(source.GetVariable(field), 2));
    text.EndSublist();
}

/// What the warnings of a model that could not estimate its covariance parameters do to the cells.
struct CellRules {
    bool fReplace = false;  ///< estimates, and with them significance and limits, are replaced
    double fReplacement = SYSMIS;
    bool fNoTests = false;  ///< no Z and Sig.
    bool fNoRange = false;  ///< no standard error and limits
    bool fNote = false;     ///< the estimate carries the warning's note
};

CellRules RulesFor(const HRFTOutputStats& stats, int distribution, int block) {
    const bool discrete = distribution == kBinomialTarget || distribution == kNominalTarget ||
                          distribution == kNegBinTarget || distribution == kPoissonTarget;
    const bool continuous =
        distribution == kGammaTarget || distribution == kInverseGaussTarget || distribution == kNormalTarget;
    CellRules rules;
    const bool second = stats.IsWarningPresent(kNoSubjectsB);
    if (second && discrete && block == -1) {
        rules = {true, 1.0, true, true, true};
    } else if (second && discrete) {
        rules = {true, 0.0, true, false, false};
    } else if (!second && stats.IsWarningPresent(kNoSubjectsA) && block >= 0 && continuous) {
        rules = {true, 0.0, true, false, false};
    }
    return rules;
}

/// Which of the two matrices of a Kronecker residual the parameters belong to, row by row.
class MeasureWalk {
public:
    explicit MeasureWalk(int firstParameters) : fFirstParameters(firstParameters) {}
    bool IsFirst(int row, const std::string& text) {
        if (fFirstParameters >= 1) return row < fFirstParameters;
        // "UN (1,1)" again is the start of the second matrix.
        if (fFirst && row > 0) fFirst = text.starts_with("UN") && text != "UN (1,1)";
        return fFirst;
    }

private:
    int fFirstParameters;
    bool fFirst = true;
};

}  // namespace

bool HRFTParamEstimatesOutput::NoSubjects() const {
    return fpOutputStats->IsWarningPresent(kNoSubjectsA) || fpOutputStats->IsWarningPresent(kNoSubjectsB);
}

std::string HRFTParamEstimatesOutput::SubjectText(const EffectStruct& subject) const {
    std::vector<std::string> names;
    if (!subject.fvFieldIndices.empty()) FillEffectNames({subject}, names);
    return names.size() == 1 ? names.front() : "(None)";
}

BpDimension HRFTParamEstimatesOutput::GroupDimension(BpPivotTable& table, bool grouped) const {
    const BpVariable target(fpProcDS->GetVariable(fpBuildSettings->fTargetIndex), 2);
    BpDimension dimension = grouped ? table.Dimension(BpString("Grouping", true), kInsertionOrder)
                                    : table.Dimension(target, kInsertionOrder);
    dimension.Position(0, 2, false, false);
    return dimension;
}

void HRFTParamEstimatesOutput::AddGroupCategory(BpDimension& dimension, const SubjectData& segment,
                                                bool grouped) const {
    if (!grouped) {
        if (segment.fSubjectValues.size() != 1) return;
        const QVTA_Variable& target = fpProcDS->GetVariable(fpBuildSettings->fTargetIndex);
        dimension.Category(viewer::DataValue(target, segment.fSubjectValues.front(), 2));
        return;
    }
    BpComposite text(segment.fvFieldIndices.size() == 1 ? "EffectVar1" : "EffectVar2", true);
    text.Sublist();
    for (std::size_t i = 0; i < segment.fvFieldIndices.size(); ++i) {
        const QVTA_Variable& field = fpProcDS->GetVariable(segment.fvFieldIndices[i]);
        text.Add(BpVariable(field, 2));
        text.Add(viewer::DataValue(field, segment.fSubjectValues[i], 2));
    }
    text.EndSublist();
    text.Finish();
    dimension.Category(text);
}

void HRFTParamEstimatesOutput::DisplayRandomCovariances() {
    const StructuredData* data = fpOutputStats->GetStructuredData();
    if (!data || data->fvRandEffCovars.empty()) return;
    BpHeading heading = fpProcedure->Heading(BpString("Random Effect Covariances", true));
    BpProcedure under(heading.Node());
    HRFTParamEstimatesOutput inside(&under, fpProcDS, fpOutputStats);
    for (std::size_t b = 0; b < data->fvRandEffCovars.size(); ++b) {
        if (b < fpBuildSettings->fvRandomSpecs.size()) {
            inside.RandomCovarianceTable(data->fvRandEffCovars[b], static_cast<int>(b));
        }
    }
}

void HRFTParamEstimatesOutput::RandomCovarianceTable(const RandEffCovars& covars, int block) const {
    const RandomSpec& spec = fpBuildSettings->fvRandomSpecs[block];
    BpPivotTable table = fpProcedure->PivotTable(Filled("Random Effect Block ^1", true, Count(block + 1)),
                                                 BpString("RandomEffects", true), true);
    table.Caption(Filled("Covariance Structure ^1 Subject Specification ^2 ...", true,
                         BpString(fpOutputStats->CovarianceLabel(spec.fCovType, true), false),
                         BpString(SubjectText(spec.fSubject), false)));
    const bool hasGroup = !spec.fvGroup.empty();
    const bool grouped = hasGroup || fpBuildSettings->fDistribution == kNominalTarget;
    BpDimension rows = table.Dimension(BpString("Random Effect Block", true), kInsertionOrder);
    rows.Position(0, 1, false, false);
    if (!grouped) {
        BpDimension columns = table.Dimension(BpString("Random Effect Block Column", true), kInsertionOrder);
        columns.Position(1, 1, true, false);
        if (covars.fMatrixValues.size() == 1) AddMatrixCells(rows, columns, covars, covars.fMatrixValues.front());
        return;
    }
    BpDimension groups = GroupDimension(table, hasGroup);
    BpDimension columns = table.Dimension(BpString("Random Effect Block Column", true), kInsertionOrder);
    columns.Position(1, 1, true, false);
    for (std::size_t m = 0; m < covars.fMatrixValues.size(); ++m) {
        AddGroupCategory(groups, covars.fSimpleSubjects[m], hasGroup);
        AddMatrixCells(rows, columns, covars, covars.fMatrixValues[m]);
    }
}

void HRFTParamEstimatesOutput::AddMatrixCells(BpDimension& rows, BpDimension& columns, const RandEffCovars& covars,
                                              const MatrixData& matrix) const {
    const std::size_t n = std::min(covars.fvEffectLabels.size(), matrix.fvRows.size());
    for (std::size_t i = 0; i < n; ++i) {
        rows.Category(BpString(covars.fvEffectLabels[i], false));
        for (std::size_t j = 0; j < n; ++j) {
            columns.Category(BpString(covars.fvEffectLabels[j], false))
                .Cell(BpNumber(matrix.fvRows[i].fvValues[j], BpProcedure::GeneralStat()));
        }
    }
}

void HRFTParamEstimatesOutput::DisplayCovarianceParameters() {
    if (!fpOutputStats->GetModelDiagnostics()) return;
    BpHeading heading = fpProcedure->Heading(BpString("Covariance Parameters", true));
    BpProcedure under(heading.Node());
    const HRFTParamEstimatesOutput inside(&under, fpProcDS, fpOutputStats);
    inside.SummaryTable();
    const ParamCollect* collect = fpOutputStats->GetParamCollect();
    if (!collect) return;
    inside.ResidualTable(collect->fvRepeatedParamEstim);
    const int blocks = static_cast<int>(collect->fvRandomParamEstim.size());
    for (const RandomBlockEstim& block : collect->fvRandomParamEstim) {
        inside.RandomTable(block.fvParamEstim, block.fBlock, blocks);
    }
}

void HRFTParamEstimatesOutput::SummaryTable() const {
    const ModelDiagnostics& diagnostics = *fpOutputStats->GetModelDiagnostics();
    BpPivotTable table = fpProcedure->PivotTable(BpString("Covariance Parameters Summary", true),
                                                 BpString("CovarianceParametersSummary", false), true);
    const bool noSubjects = NoSubjects();
    if (!noSubjects) table.Caption(BpString("Common Subjects are based on ...", true));
    BpDimension content = table.Dimension(BpString("Content", true), kInsertionOrder);
    content.Position(0, 1, true, false);
    BpGroup parameters = content.Group(BpString("Covariance Parameters", true), true, kInsertionOrder);
    parameters.Category(BpString("Residual Effect", true)).Cell(Count(diagnostics.fNumOfCovParamOfRepeated));
    parameters.Category(BpString("Random Effects", true)).Cell(Count(diagnostics.fNumOfCovParamOfRandom));
    BpGroup columns = content.Group(BpString("Design Matrix Columns", true), true, kInsertionOrder);
    columns.Category(BpString("Fixed Effects", true)).Cell(Count(diagnostics.fNumOfColsOfFixed));
    BpCategory random = columns.Category(BpString("Random Effects", true));
    random.Cell(Count(diagnostics.fNumOfColsOfRandom));
    if (noSubjects) return;
    random.CellNote(BpString("Number of common subject ...", true));
    content.Category(BpString("Common Subjects", true)).Cell(Count(diagnostics.fNumOfCommonSubjects));
}

void HRFTParamEstimatesOutput::AddWarnings(BpComposite& caption) const {
    std::vector<const char*> keys;
    if (fpOutputStats->IsWarningPresent(kUnshownSubjects)) keys.push_back(kUnshownSubjects);
    if (fpBuildSettings->fDistribution != kOrdinalTarget && fpOutputStats->IsWarningPresent(kOrdinalExcluded)) {
        keys.push_back(kOrdinalExcluded);
    }
    if (fpOutputStats->IsWarningPresent(kFurtherWarning)) keys.push_back(kFurtherWarning);
    if (keys.empty()) return;
    caption.Sublist();
    for (const char* key : keys)
        caption.Add(BpString(key, true));
    caption.EndSublist();
}

void HRFTParamEstimatesOutput::ResidualCaption(BpPivotTable& table) const {
    const BuildSettings& settings = *fpBuildSettings;
    const bool noSubjects = NoSubjects();
    std::string pattern =
        noSubjects ? "Covariance Structure ^1 ..." : "Covariance Structure ^1 Subject Specification ^2 ...";
    if (settings.fKronecker) {
        pattern = noSubjects ? "Cov Struct UN ^1 Fix ^2 Var ^3 ..." : "Cov Struct UN ^1 Fix ^2 Var ^3 Subj Spec ^4 ...";
    }
    BpComposite caption(pattern, true);
    if (settings.fKronecker) {
        const char* word = settings.fResidualCovType == kUN_UN    ? "UN"
                           : settings.fResidualCovType == kUN_AR1 ? "AR1"
                                                                  : "CS";
        caption.Add(BpString(word, false));
        caption.Add(BpString(settings.fResidualCovType == kUN_UN ? "UN(1,1)" : word, false));
        AddVariables(caption, settings.fKroneckerMeasure.fvFieldIndices, *fpProcDS);
    } else {
        caption.Add(BpString(fpOutputStats->CovarianceLabel(settings.fResidualCovType, true), false));
    }
    if (!noSubjects) caption.Add(BpString(SubjectText(settings.fResidualSubject), false));
    AddWarnings(caption);
    caption.Finish();
    table.Caption(caption);
}

void HRFTParamEstimatesOutput::ResidualTable(const std::vector<ParamEstimData>& estimates) const {
    BpPivotTable table =
        fpProcedure->PivotTable(BpString("Residual Effect", true), BpString("ResidualEffect", false), true);
    ResidualCaption(table);
    const bool hasGroup = !fpBuildSettings->fvResidualGroup.empty();
    BpDimension rows = table.Dimension(BpString("Residual Effect", true), kInsertionOrder);
    rows.Position(0, 1, false, false);
    BpDimension groups;
    if (hasGroup) groups = GroupDimension(table, true);
    BpDimension columns = table.Dimension(BpString("Residual Effect Covariance Column", true), kInsertionOrder);
    columns.Position(1, 1, true, false);
    for (const ParamEstimData& data : estimates) {
        if (hasGroup) AddGroupCategory(groups, data.fFiledData, true);
        AddCovarianceCells(rows, columns, data, -1);
    }
}

void HRFTParamEstimatesOutput::RandomTable(const std::vector<ParamEstimData>& estimates, int block, int blocks) const {
    if (block < 0 || block >= static_cast<int>(fpBuildSettings->fvRandomSpecs.size())) return;
    const RandomSpec& spec = fpBuildSettings->fvRandomSpecs[block];
    const BpString id("CovarianceParameters", false);
    BpPivotTable table =
        blocks < 2 ? fpProcedure->PivotTable(BpString("Random Effect", true), id, true)
                   : fpProcedure->PivotTable(Filled("Random Effect Block ^1", true, Count(block + 1)), id, true);
    BpComposite caption("Covariance Structure ^1 Subject Specification ^2 ...", true);
    caption.Add(BpString(fpOutputStats->CovarianceLabel(spec.fCovType, true), false));
    caption.Add(BpString(SubjectText(spec.fSubject), false));
    AddWarnings(caption);
    caption.Finish();
    table.Caption(caption);

    const bool hasGroup = !spec.fvGroup.empty();
    const bool grouped = hasGroup || fpBuildSettings->fDistribution == kNominalTarget;
    const char* rowTitle = !grouped || blocks == 1 ? "Random Effect Covariance" : "Random Effect Block";
    BpDimension rows = table.Dimension(BpString(rowTitle, true), kInsertionOrder);
    rows.Position(0, 1, false, false);
    BpDimension groups;
    if (grouped) groups = GroupDimension(table, hasGroup);
    BpDimension columns = table.Dimension(BpString("Random Effect Covariance Column", true), kInsertionOrder);
    columns.Position(1, 1, true, false);
    for (const ParamEstimData& data : estimates) {
        if (grouped) AddGroupCategory(groups, data.fFiledData, hasGroup);
        AddCovarianceCells(rows, columns, data, block);
    }
}

bool HRFTParamEstimatesOutput::AddCovarianceCells(BpGroup& rows, BpGroup& columns, const ParamEstimData& data,
                                                  int block) const {
    const CellRules rules = RulesFor(*fpOutputStats, fpBuildSettings->fDistribution, block);
    const bool noteC10 = fpOutputStats->IsWarningPresent(kEstimateNote);
    const bool repeated = fpBuildSettings->fKronecker && block < 0;
    MeasureWalk walk(data.fNumUNParam);
    for (std::size_t i = 0; i < data.fvParameterStats.size(); ++i) {
        const ParameterStatsData& stats = data.fvParameterStats[i];
        std::string pattern;
        std::vector<std::string> arguments;
        std::string text;
        fpOutputStats->PrintableMessage(stats.fPrintableList, block, pattern, arguments, text);

        BpGroup under = rows;
        if (repeated) {
            const bool first = walk.IsFirst(static_cast<int>(i), text);
            const EffectStruct& measure =
                first ? fpBuildSettings->fRepeatedMeasure : fpBuildSettings->fKroneckerMeasure;
            BpComposite title("Repeated Measure ^1 ^2", true);
            title.Add(Count(first ? 1 : 2));
            AddVariables(title, measure.fvFieldIndices, *fpProcDS);
            title.Finish();
            under = rows.Group(title, true, kInsertionOrder);
        }
        BpCategory row = under.Category(BpString(text, false));
        // The note belongs to the row: rows of this kind have one.
        if (block == -1 && pattern == "Variance ") row.CellNote(BpString("This is the scale parameter.", true));

        const auto number = [&](double value, const BpFormatSpec& format) {
            return BpNumber(rules.fReplace ? rules.fReplacement : stats.fIsRedundant ? fSysmis : value, format);
        };
        BpCategory estimate = columns.Category(BpString("Estimate", true));
        estimate.Cell(BpNumber(rules.fReplace ? rules.fReplacement : stats.fEstimate, BpProcedure::Coefficient()));
        if (stats.fIsRedundant) estimate.CellNote(BpString("Parameter redundant", true));
        if (rules.fNote) {
            estimate.CellNote(BpString(kNoSubjectsB, true));
        } else if (noteC10) {
            estimate.CellNote(BpString(kEstimateNote, true));
        }
        if (!rules.fNoRange) {
            columns.Category(BpString("Std. Error", true)).Cell(number(stats.fStdError, BpProcedure::Coefficient()));
        }
        if (!rules.fNoTests) {
            columns.Category(BpString("Z", false))
                .Cell(BpNumber(stats.fIsRedundant ? fSysmis : stats.fZTest, BpProcedure::Coefficient()));
            columns.Category(BpString("Sig.", true)).Cell(number(stats.fSig, BpProcedure::Significance()));
        }
        BpGroup limits =
            columns.Group(viewer::ConfidenceTitle("^1% Confidence Interval", *fpBuildSettings), true, kInsertionOrder);
        if (rules.fNoRange) continue;
        limits.Category(BpString("Lower", true)).Cell(number(stats.fConfIntervalLower, BpProcedure::Coefficient()));
        limits.Category(BpString("Upper", true)).Cell(number(stats.fConfIntervalUpper, BpProcedure::Coefficient()));
    }
    return true;
}
