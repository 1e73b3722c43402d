#include "report/OwnTables.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>

namespace report {

namespace {

BpString Key(const char* text) {
    return BpString(text, true);
}

BpString Plain(const std::string& text) {
    return BpString(text, false);
}

BpComposite Filled(const char* pattern, const std::vector<std::string>& texts) {
    BpComposite composite(pattern, true);
    for (const auto& text : texts)
        composite.Add(Plain(text));
    composite.Finish();
    return composite;
}

/// A label that stays apart from its neighbours, whatever its text.
output::TextHandle Numbered(const std::string& text, std::size_t number) {
    return output::TextHandle(output::MakeValue(text, std::to_string(number), nullptr));
}

BpDimension Rows(BpPivotTable& table, const char* name, int order, bool hideTitle) {
    auto dimension = table.Dimension(Key(name), BpGroup::kInsertion);
    dimension.Position(BpDimension::kRow, order, hideTitle, false);
    return dimension;
}

BpDimension Columns(BpPivotTable& table, const char* name) {
    auto dimension = table.Dimension(Key(name), BpGroup::kInsertion);
    dimension.Position(BpDimension::kColumn, 1, true, false);
    return dimension;
}

BpNumber Missing(const BpFormatSpec& format) {
    return BpNumber(run::kNone, format);
}

/// A statistic's column: its name, and its format.
void Put(BpGroup group, const char* name, double value, const BpFormatSpec& format) {
    group.Category(Key(name)).Cell(BpNumber(value, format));
}

void PutLimits(BpDimension& columns, double lower, double upper) {
    auto limits = columns.Group(Key("Confidence Interval"), true, BpGroup::kInsertion);
    Put(limits, "Lower", lower, BpProcedure::Coefficient());
    Put(limits, "Upper", upper, BpProcedure::Coefficient());
}

bool IsPseudo(const run::Figures& figures) {
    return figures.fLikelihood == "pseudo";
}

/// The system's tables of information criteria, by their sub-types.
bool HasCriteria(const output::Table& table) {
    const std::string subType = table.fpSubType ? table.fpSubType->Identity() : std::string();
    return subType == output::MakeString("ModelSummary", false)->Identity() ||
           subType == output::MakeString("Information Criteria", true)->Identity();
}

/// Says that criteria come from a pseudo-likelihood wherever they are shown.
void NoteCriteria(output::Heading& under) {
    for (const auto& block : under.fvBlocks) {
        if (auto* heading = dynamic_cast<output::Heading*>(block.get())) NoteCriteria(*heading);
        auto* table = dynamic_cast<output::Table*>(block.get());
        if (table && HasCriteria(*table))
            table->fvNotes.push_back(output::MakeString("Pseudo-likelihood criteria ...", true));
    }
}

class OwnTables {
public:
    OwnTables(const BpHeading& heading, const run::Figures& figures, host::OutputDocument& document)
        : fHeading(heading), fFigures(figures), fDocument(document) {}

    void AddAll(const run::Wishes& wishes) {
        fDocument.SetHalf(output::Half::kClassic);
        AddEstimatesByCategory();
        // The viewer's tables show these figures, where there are any.
        if (!wishes.fDocuments) AddCovarianceParameters();
        fDocument.SetHalf(output::Half::kBoth);
        AddDetails();
        if (wishes.fCovarianceTests) AddCovarianceTests();
        for (const auto& request : fFigures.fMeans)
            AddMeansByCategory(request);
        for (const auto& test : fFigures.fCustomTests)
            AddCustomTest(test);
        AddHistory();
        for (const auto& matrix : fFigures.fMatrices)
            AddMatrix(matrix);
    }

private:
    /// What is known beyond the system's messages: which variable, which row, which coefficient.
    void AddDetails() {
        for (const auto& message : fFigures.fMessages) {
            if (message.fText.empty()) continue;
            fDocument.AddMessage(output::MakeString(message.fText, false),
                                 message.fLevel == "error" ? kLevelError : kLevelWarning);
        }
    }

    BpPivotTable Table(const BpCellText& title, const char* subType) {
        return fHeading.PivotTable(title, Plain(subType), true);
    }

    void AddEstimatesByCategory() {
        BpPivotTable table;
        for (const auto& row : fFigures.fFixed) {
            if (!row.fTargetCategory) continue;
            if (!table.Node()) {
                table = Table(Key("Fixed Parameter Estimates"), "Estimates by Target Category");
                Rows(table, "Target Category", 2, false);
                Rows(table, "Parameter", 1, false);
                Columns(table, "Statistics");
            }
            const auto& dimensions = static_cast<const output::Table&>(*table.Node()).fvDimensions;
            BpDimension(dimensions[0]).Category(Plain(*row.fTargetCategory));
            BpDimension(dimensions[1]).Category(Plain(row.fTerm));
            PutEstimate(BpDimension(dimensions[2]), row);
        }
    }

    static void PutEstimate(BpDimension columns, const run::FixedRow& row) {
        auto estimate = columns.Category(Key("Estimate"));
        estimate.Cell(BpNumber(row.fRedundant ? 0.0 : row.fEstimate,
                               row.fRedundant ? BpProcedure::Count() : BpProcedure::Coefficient()));
        if (row.fRedundant) estimate.CellNote(BpAnnotation(Key("Redundant parameter ...")));
        const auto kept = [&](double value) { return row.fRedundant ? run::kNone : value; };
        Put(columns, "Std. Error", kept(row.fStdError), BpProcedure::CoefficientSE());
        Put(columns, "df", kept(row.fDf), BpProcedure::Count());
        Put(columns, "t", kept(row.fT), BpProcedure::GeneralStat());
        Put(columns, "Sig.", kept(row.fP), BpProcedure::Significance());
        PutLimits(columns, kept(row.fLower), kept(row.fUpper));
    }

    /// The row of a covariance parameter: under its block, then its group and target category where it has them.
    static BpCategory CovarianceCategory(BpDimension& rows, const run::CovarianceRow& row) {
        const bool residual = row.fBlock == "residual";
        const auto title = residual       ? Filled("Residual, structure ^1", {row.fStructure})
                           : row.fSubject ? Filled("Random block ^1, structure ^2, subject ^3",
                                                   {row.fBlock, row.fStructure, *row.fSubject})
                                          : Filled("Random block ^1, structure ^2", {row.fBlock, row.fStructure});
        BpGroup group = rows.Group(title, true, BpGroup::kInsertion);
        if (row.fGroup) group = group.Group(Plain(*row.fGroup), true, BpGroup::kInsertion);
        if (row.fTargetCategory) group = group.Group(Plain(*row.fTargetCategory), true, BpGroup::kInsertion);
        return group.Category(Plain(row.fParameter));
    }

    void AddCovarianceParameters() {
        if (fFigures.fCovariance.empty()) return;
        auto table = Table(Key("Covariance Parameters"), "Covariance Parameters");
        auto rows = Rows(table, "Parameter", 1, false);
        auto columns = Columns(table, "Statistics");
        for (const auto& row : fFigures.fCovariance) {
            CovarianceCategory(rows, row);
            auto estimate = columns.Category(Key("Estimate"));
            estimate.Cell(BpNumber(row.fEstimate, BpProcedure::Coefficient()));
            if (row.fRedundant) estimate.CellNote(BpAnnotation(Key("Parameter redundant")));
            Put(columns, "Std. Error", row.fStdError, BpProcedure::CoefficientSE());
            PutLimits(columns, row.fLower, row.fUpper);
        }
        if (fFigures.fAtBound.empty()) return;
        BpComposite caption("Covariance parameters at bound ...", true);
        caption.Sublist();
        for (const auto& parameter : fFigures.fAtBound)
            caption.Add(Plain(parameter));
        caption.EndSublist();
        caption.Finish();
        table.Caption(caption);
    }

    void AddCovarianceTests() {
        if (fFigures.fCovariance.empty()) return;
        auto table = Table(Key("Tests of Covariance Parameters"), "Tests of Covariance Parameters");
        auto rows = Rows(table, "Parameter", 1, false);
        auto columns = Columns(table, "Statistics");
        for (const auto& row : fFigures.fCovariance) {
            CovarianceCategory(rows, row);
            Put(columns, "Estimate", row.fEstimate, BpProcedure::Coefficient());
            Put(columns, "Std. Error", row.fStdError, BpProcedure::CoefficientSE());
            Put(columns, "Wald Z", row.fZ, BpProcedure::GeneralStat());
            Put(columns, "Sig.", row.fP, BpProcedure::Significance());
        }
    }

    static std::string LevelTexts(const run::Levels& levels) {
        std::string text;
        for (const auto& [name, value] : levels)
            text.append(text.empty() ? "" : ", ").append(name).append(" = ").append(value);
        return text;
    }

    /// Estimated means of a target of several categories, which the system's tables have no place for.
    void AddMeansByCategory(const run::MeansRequest& request) {
        if (request.fEstimates.empty() || request.fEstimates[0].fLevels.size() <= request.fFactors.size()) return;
        auto means = Table(Key("Estimated Means"), "Estimated Means by Category");
        auto rows = Rows(means, "Levels", 1, true);
        auto columns = Columns(means, "Statistics");
        for (std::size_t i = 0; i < request.fEstimates.size(); ++i) {
            const auto& row = request.fEstimates[i];
            rows.Category(Numbered(LevelTexts(row.fLevels), i));
            Put(columns, "Mean", row.fMean, BpProcedure::Coefficient());
            Put(columns, "Std. Error", row.fStdError, BpProcedure::CoefficientSE());
            Put(columns, "df", row.fDf, BpProcedure::Count());
            PutLimits(columns, row.fLower, row.fUpper);
        }
        if (request.fContrasts.empty()) return;
        auto contrasts = Table(Key("Contrasts"), "Contrasts by Category");
        auto pairs = Rows(contrasts, "Levels", 1, true);
        auto statistics = Columns(contrasts, "Statistics");
        for (std::size_t i = 0; i < request.fContrasts.size(); ++i) {
            const auto& row = request.fContrasts[i];
            pairs.Category(Numbered(LevelTexts(row.fAt) + ": " + row.fContrast, i));
            Put(statistics, "Estimate", row.fEstimate, BpProcedure::Coefficient());
            Put(statistics, "Std. Error", row.fStdError, BpProcedure::CoefficientSE());
            Put(statistics, "df", row.fDf, BpProcedure::Count());
            Put(statistics, "t", row.fT, BpProcedure::GeneralStat());
            Put(statistics, "Adj. Sig.", row.fPAdjusted, BpProcedure::Significance());
            PutLimits(statistics, row.fLower, row.fUpper);
        }
    }

    void AddCustomTest(const run::CustomTestRow& test) {
        auto table = Table(Filled("Custom test ^1", {test.fLabel}), "Custom Test Estimates");
        const bool byCategory = std::any_of(test.fRows.begin(), test.fRows.end(),
                                            [](const auto& row) { return row.fTargetCategory.has_value(); });
        auto rows = Rows(table, "Row", byCategory ? 2 : 1, false);
        std::optional<BpDimension> categories;
        if (byCategory) categories = Rows(table, "Target Category", 1, false);
        auto columns = Columns(table, "Statistics");
        for (const auto& row : test.fRows) {
            rows.Category(BpNumber(row.fNumber, BpProcedure::Count()));
            if (categories) categories->Category(Plain(row.fTargetCategory.value_or("")));
            auto estimate = columns.Category(Key("Estimate"));
            estimate.Cell(row.fEstimable ? BpNumber(row.fEstimate, BpProcedure::Coefficient())
                                         : Missing(BpProcedure::Coefficient()));
            if (!row.fEstimable) estimate.CellNote(BpAnnotation(Key("Custom test not estimable ...")));
            Put(columns, "Std. Error", row.fStdError, BpProcedure::CoefficientSE());
            Put(columns, "Test Value", row.fHypothesised, BpProcedure::Coefficient());
            Put(columns, "df", row.fDf, BpProcedure::Count());
            Put(columns, "t", row.fT, BpProcedure::GeneralStat());
            Put(columns, "Sig.", row.fP, BpProcedure::Significance());
            PutLimits(columns, row.fLower, row.fUpper);
        }
        if (test.fRows.size() < 2) return;
        auto overall = Table(Filled("Custom test ^1", {test.fLabel}), "Custom Test");
        auto statistics = Columns(overall, "Statistics");
        Put(statistics, "F", test.fF, BpProcedure::GeneralStat());
        Put(statistics, "df1", test.fDf1, BpProcedure::Count());
        Put(statistics, "df2", test.fDf2, BpProcedure::Count());
        Put(statistics, "Sig.", test.fP, BpProcedure::Significance());
    }

    /// Name of a covariance parameter in the history's columns.
    std::string ThetaName(std::size_t index, std::size_t size) const {
        if (fFigures.fCovariance.size() != size) return std::to_string(index + 1);
        const auto& row = fFigures.fCovariance[index];
        return row.fBlock + ": " + row.fParameter;
    }

    void AddHistory() {
        if (fFigures.fHistory.empty()) return;
        auto table = Table(Key("Iteration History"), "Iteration History");
        auto rows = Rows(table, "Iteration", 1, false);
        auto columns = Columns(table, "Statistics");
        for (std::size_t i = 0; i < fFigures.fHistory.size(); ++i) {
            const auto& row = fFigures.fHistory[i];
            rows.Category(Numbered(std::to_string(row.fIteration), i));
            columns.Category(Key("Method")).Cell(Key(row.fMethod.c_str()));
            Put(columns, "Objective", row.fObjective, BpProcedure::GeneralStat());
            Put(columns, "Change", row.fChange, BpProcedure::GeneralStat());
            if (IsPseudo(fFigures)) Put(columns, "Damping", row.fDamping, BpProcedure::GeneralStat());
            Put(columns, "Step-halvings", row.fHalvings, BpProcedure::Count());
            auto thetas = columns.Group(Key("Covariance Parameters"), true, BpGroup::kInsertion);
            for (std::size_t t = 0; t < row.fTheta.size(); ++t) {
                thetas.Category(Numbered(ThetaName(t, row.fTheta.size()), t))
                    .Cell(BpNumber(row.fTheta[t], BpProcedure::Coefficient()));
            }
        }
        table.Caption(
            Key(IsPseudo(fFigures) ? "Iteration history, pseudo-likelihood ..." : "Iteration history, criterion ..."));
    }

    void AddMatrix(const run::NamedMatrix& matrix) {
        auto table = Table(Key(matrix.fTitle.c_str()), "Matrix");
        auto rows = Rows(table, "Row", 1, true);
        auto columns = Columns(table, "Column");
        for (std::size_t i = 0; i < matrix.fValues.size(); ++i) {
            rows.Category(Numbered(matrix.fRows[i], i));
            for (std::size_t j = 0; j < matrix.fValues[i].size(); ++j) {
                columns.Category(Numbered(matrix.fColumns[j], j))
                    .Cell(BpNumber(matrix.fValues[i][j], BpProcedure::Coefficient()));
            }
        }
    }

    BpHeading fHeading;
    const run::Figures& fFigures;
    host::OutputDocument& fDocument;
};

/// Says the name of a covariance structure at the viewer's tables that show it as unknown, since their list lacks it.
class StructureNames {
public:
    StructureNames(const run::Figures& figures, int split) : fFigures(figures), fSplit(split) {}

    void AddUnder(output::Heading& heading) {
        for (const auto& block : heading.fvBlocks) {
            if (auto* inner = dynamic_cast<output::Heading*>(block.get())) {
                if (!inner->fSplit || inner->fSplitOrdinal == fSplit) AddUnder(*inner);
            } else if (auto* table = dynamic_cast<output::Table*>(block.get())) {
                AddTo(*table);
            }
        }
    }

private:
    void AddTo(output::Table& table) {
        const std::string subType = table.fpSubType->Show(host::Catalogue::Current());
        const bool residual = subType == "ResidualEffect";
        if (!residual && subType != "CovarianceParameters" && subType != "RandomEffects") return;
        // Random blocks have a table of each kind, in their order.
        const std::string block = residual ? "residual" : std::to_string(++fSeen[subType]);
        for (const auto& row : fFigures.fCovariance) {
            if (row.fBlock != block) continue;
            const auto name = kUnlisted.find(row.fStructure);
            if (name == kUnlisted.end()) return;
            BpComposite note("The covariance structure is ^1 ...", true);
            note.Add(Key(name->second));
            note.Finish();
            table.fvNotes.push_back(note.Node());
            return;
        }
    }

    inline static const std::map<std::string, const char*> kUnlisted{
        {"AD1", "First-order ante-dependence"},
        {"CSR", "Compound symmetry, by its correlation"},
        {"FA1", "First-order factor-analytic"},
        {"FAH1", "First-order factor-analytic, heterogeneous"},
        {"HF", "Huynh-Feldt"},
        {"TPH", "Heterogeneous Toeplitz"},
        {"UNR", "Unstructured, by its correlations"}};

    const run::Figures& fFigures;
    int fSplit;
    std::map<std::string, int> fSeen;
};

}  // namespace

void AddOwnTables(run::RunValue& run, host::OutputDocument& document) {
    const run::Scope runScope(run);
    const host::OutputScope outputScope(document);
    const auto half = document.GetHalf();
    const auto name = run.fSplitName;
    const int ordinal = run.fSplitOrdinal;
    for (std::size_t i = 0; i < run.fvResults.size(); ++i) {
        // Tables go under the heading of the split that the run value names.
        run.fSplitName = run.fvResults[i].fName;
        run.fSplitOrdinal = static_cast<int>(i);
        const RefCountPtr<output::Node> root = document.Procedure().Node();
        StructureNames(run.fvResults[i].fFigures, run.fSplitOrdinal).AddUnder(static_cast<output::Heading&>(*root));
        OwnTables(document.Procedure(), run.fvResults[i].fFigures, document).AddAll(run.fWishes);
    }
    const auto pseudo = [](const run::SplitResult& result) { return IsPseudo(result.fFigures); };
    if (std::any_of(run.fvResults.begin(), run.fvResults.end(), pseudo))
        NoteCriteria(static_cast<output::Heading&>(*document.Procedure().Node()));
    run.fSplitName = name;
    run.fSplitOrdinal = ordinal;
    document.SetHalf(half);
}

}  // namespace report
