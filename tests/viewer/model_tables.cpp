// Real models from their commands to the viewer's tables, read back cell by cell against the engine's figures.
#include "runs/ModelRun.h"
#include "viewer/Shown.h"

#include <cmath>

namespace {

using namespace viewer_test;
using runs::ModelRun;
using testing::ElementsAre;
using testing::StartsWith;
using Doubles = std::vector<double>;

const std::string kLimits = "^1% Confidence Interval <95> / ";

double Kept(double figure) {
    return std::isnan(figure) ? SYSMIS : figure;
}

/// The viewer's tables of a run.
reading::TableList ViewerTables(const ModelRun& run) {
    const reading::TableList all = reading::ListTables(run.Output().Root());
    reading::TableList list;
    list.fvMessages = all.fvMessages;
    for (std::size_t i = 0; i < all.fvTables.size(); ++i) {
        if (all.fvTables[i]->fHalf != output::Half::kViewer) continue;
        list.fvPaths.push_back(all.fvPaths[i]);
        list.fvTables.push_back(all.fvTables[i]);
    }
    return list;
}

void ExpectEffects(const TableView& table, const run::Figures& figures) {
    std::size_t row = 1;  // behind the corrected model
    for (const run::TestRow& test : figures.fTests) {
        if (test.fEffect == "(Intercept)") continue;
        EXPECT_EQ(RowOf(table, table.Categories(0).at(row++)),
                  (Doubles{Kept(test.fF), Kept(test.fDf1), Kept(test.fDf2), Kept(test.fP)}))
            << test.fEffect;
    }
    EXPECT_EQ(table.Categories(0).size(), row);
}

void ExpectCoefficients(const TableView& table, const run::Figures& figures) {
    ASSERT_EQ(table.Categories(0).size(), figures.fFixed.size());
    for (std::size_t i = 0; i < figures.fFixed.size(); ++i) {
        const run::FixedRow& row = figures.fFixed[i];
        Doubles shown = RowOf(table, table.Categories(0)[i]);
        ASSERT_GE(shown.size(), 6u);
        shown.resize(6);
        EXPECT_EQ(shown, row.fRedundant ? (Doubles{0, SYSMIS, SYSMIS, SYSMIS, SYSMIS, SYSMIS})
                                        : (Doubles{row.fEstimate, Kept(row.fStdError), Kept(row.fT), Kept(row.fP),
                                                   Kept(row.fLower), Kept(row.fUpper)}))
            << row.fTerm;
    }
}

Doubles CovarianceFigures(const run::CovarianceRow& row) {
    if (row.fRedundant) return {row.fEstimate, SYSMIS, SYSMIS, SYSMIS, SYSMIS, SYSMIS};
    return {row.fEstimate, Kept(row.fStdError), Kept(row.fZ), Kept(row.fP), Kept(row.fLower), Kept(row.fUpper)};
}

TEST(ModelTables, OfAGrowthModelShowItsFigures) {
    const ModelRun run(
        "HIERFIT /DATA FILE='sleepstudy.csv' /FIELDS TARGET=Reaction /FIXED EFFECTS=Days "
        "/RANDOM EFFECTS=INTERCEPT Days SUBJECTS=Subject COVARIANCE_TYPE=UN /PRINT GMATRIX");
    const run::Figures& figures = run.Figures();
    const reading::TableList list = ViewerTables(run);
    EXPECT_THAT(list.fvPaths,
                ElementsAre("Model Summary", "Data Structure", "Fixed Effects", "Fixed Coefficients",
                            "Random Effect Covariances > Random Effect Block ^1 <1>",
                            "Covariance Parameters > Covariance Parameters Summary",
                            "Covariance Parameters > Residual Effect", "Covariance Parameters > Random Effect"));
    EXPECT_THAT(list.fvMessages, testing::IsEmpty());

    const TableView summary = TableAt(list, "Model Summary");
    EXPECT_EQ(TextAt(summary, {"Target"}), "Reaction");
    EXPECT_EQ(TextAt(summary, {"Probability Distribution"}), "Normal");
    EXPECT_EQ(TextAt(summary, {"Link Function"}), "Identity");
    EXPECT_EQ(summary.Value({"Information Criterion / Akaike Corrected"}), figures.fAICC);
    EXPECT_EQ(summary.Value({"Information Criterion / Bayesian"}), figures.fBIC);

    // The ten days of the first subject, Belenky et al. (2003).
    const TableView structure = TableAt(list, "Data Structure");
    Texts reactions;
    for (const std::string& record : structure.Categories(0)) {
        if (record == "Levels") continue;
        EXPECT_EQ(TextAt(structure, {record, "Data for First Subject", "Subjects / Subject"}), "308");
        reactions.push_back(TextAt(structure, {record, "Data for First Subject", "Target / Reaction"}));
    }
    EXPECT_THAT(reactions, ElementsAre("249.5600", "258.7047", "250.8006", "321.4398", "356.8519", "414.6901",
                                       "382.2038", "290.1486", "430.5853", "466.3535"));
    EXPECT_EQ(structure.Value({"Levels", "Total Number of Levels", "Subjects / Subject"}), 18);

    ExpectEffects(TableAt(list, "Fixed Effects"), figures);
    EXPECT_NEAR(TableAt(list, "Fixed Effects").Value({"Corrected Model", "F"}), 45.853, 5e-4);
    ExpectCoefficients(TableAt(list, "Fixed Coefficients"), figures);

    const TableView random = TableAt(list, "Random Effect Covariances > Random Effect Block ^1 <1>");
    EXPECT_THAT(random.Categories(0), ElementsAre("Intercept", "Days"));
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            EXPECT_EQ(random.Value({random.Categories(0)[i], random.Categories(1)[j]}),
                      figures.fMatrices.at(0).fValues[i][j]);
        }
    }
    const TableView counts = TableAt(list, "Covariance Parameters > Covariance Parameters Summary");
    EXPECT_EQ(counts.Value({"Covariance Parameters / Random Effects"}), 3);
    EXPECT_EQ(counts.Value({"Common Subjects"}), 18);

    const TableView parameters = TableAt(list, "Covariance Parameters > Random Effect");
    EXPECT_THAT(parameters.Categories(0), ElementsAre("UN (1,1)", "UN (2,1)", "UN (2,2)"));
    const TableView residual = TableAt(list, "Covariance Parameters > Residual Effect");
    std::size_t next = 0;
    for (const run::CovarianceRow& row : figures.fCovariance) {
        const bool isResidual = row.fBlock == "residual";
        EXPECT_EQ(
            RowOf(isResidual ? residual : parameters, isResidual ? "Variance" : parameters.Categories(0).at(next++)),
            CovarianceFigures(row));
    }
    EXPECT_THAT(CategoryNotes(residual, 0, "Variance"), ElementsAre("This is the scale parameter."));
}

/// A level of nitrogen as its print format shows it.
std::string Nitro(const std::string& level) {
    return level == "0" ? "0.0" : level;
}

TEST(ModelTables, OfMeansShowTheirFigures) {
    ModelRun run(
        "HIERFIT /DATA FILE='oats.csv' NOMINAL=nitro /FIELDS TARGET=yield /FIXED EFFECTS=Variety nitro Variety*nitro "
        "/RANDOM EFFECTS=INTERCEPT SUBJECTS=Block /RANDOM EFFECTS=INTERCEPT SUBJECTS=Block*Variety "
        "/EMMEANS TABLES=Variety*nitro COMPARE=nitro CONTRAST=PAIRWISE ADJUST=SEQBONFERRONI "
        "/EMMEANS TABLES=Variety COMPARE=Variety CONTRAST=DEVIATION ADJUST=SEQBONFERRONI");
    const reading::TableList list = ViewerTables(run);
    const std::string both = "EMMEANS Effect ^1 block ^2 ... <Variety * nitro, 1> > ";
    const std::string one = "EMMEANS Effect ^1 block ^2 ... <Variety, 2> > ";
    const ModelDiagnostics& diagnostics = *run.Record().GetModelDiagnostics();
    const TableView grand = TableAt(list, "EMMEANS Grand Mean ... <>");
    EXPECT_EQ(grand.Value({"Mean"}), diagnostics.fGrandMean);
    // The design is balanced: the grand mean is that of the 72 yields.
    EXPECT_NEAR(grand.Value({"Mean"}), 103.9722222, 1e-6);

    const run::MeansRequest& request = run.Figures().fMeans.at(0);
    const TableView estimates = TableAt(list, both + "Estimates");
    for (const run::MeanRow& row : request.fEstimates) {
        const auto value = [&](const std::string& column) {
            return estimates.Value({row.fLevels[0].second, Nitro(row.fLevels[1].second), column});
        };
        EXPECT_EQ((Doubles{value("Mean"), value("Std. Error"), value(kLimits + "Lower"), value(kLimits + "Upper")}),
                  (Doubles{row.fMean, row.fStdError, row.fLower, row.fUpper}));
    }
    const TableView contrasts = TableAt(list, both + "Pairwise Contrasts");
    EXPECT_EQ(contrasts.Table().fCells.size(), request.fContrasts.size() * 7);
    for (const run::ContrastRow& row : request.fContrasts) {
        const std::size_t dash = row.fContrast.find(" - ");
        const std::string pair =
            "^1 - ^2 <" + Nitro(row.fContrast.substr(0, dash)) + ", " + row.fContrast.substr(dash + 3) + ">";
        const auto value = [&](const std::string& column) {
            return contrasts.Value({row.fAt.at(0).second, pair, column});
        };
        EXPECT_EQ((Doubles{value("Contrast Estimate"), value("Std. Error"), value("t"), value("df"), value("Adj. Sig."),
                           value(kLimits + "Lower"), value(kLimits + "Upper")}),
                  (Doubles{row.fEstimate, row.fStdError, row.fT, row.fDf, row.fPAdjusted, row.fLower, row.fUpper}))
            << pair;
    }
    const TableView tests = TableAt(list, both + "Overall Test Results");
    for (const run::OverallTestRow& row : request.fOverall)
        EXPECT_EQ(RowOf(tests, row.fAt.at(0).second), (Doubles{row.fF, row.fDf1, row.fDf2, row.fP}));
    EXPECT_THAT(TableAt(list, one + "Deviation Contrasts").Categories(0),
                ElementsAre("^1 - ^2 <GoldenRain, Mean>", "^1 - ^2 <Marvellous, Mean>", "^1 - ^2 <Victory, Mean>"));
    ExpectEffects(TableAt(list, "Fixed Effects"), run.Figures());
    ExpectCoefficients(TableAt(list, "Fixed Coefficients"), run.Figures());
}

TEST(ModelTables, OfAProductTellItsMeasuresApart) {
    const ModelRun run(
        "HIERFIT /DATA FILE='obrienkaiser.csv' /FIELDS TARGET=score /FIXED EFFECTS=treatment "
        "/DATA_STRUCTURE SUBJECTS=id REPEATED_MEASURES=phase hour KRONECKER_MEASURES=hour COVARIANCE_TYPE=UN_AR1");
    const reading::TableList list = ViewerTables(run);
    const TableView structure = TableAt(list, "Data Structure");
    EXPECT_THAT(structure.Categories(2), ElementsAre("Subjects / id", "Repeated Measures ^1 <1> / phase",
                                                     "Repeated Measures ^1 <2> / hour", "Target / score"));
    const TableView residual = TableAt(list, "Covariance Parameters > Residual Effect");
    const std::string phase = "Repeated Measure ^1 ^2 <1, phase> / ", hour = "Repeated Measure ^1 ^2 <2, hour> / ";
    EXPECT_THAT(residual.Categories(0),
                ElementsAre(phase + "UN (1,1)", phase + "UN (2,1)", phase + "UN (2,2)", phase + "UN (3,1)",
                            phase + "UN (3,2)", phase + "UN (3,3)", hour + "AR1 rho"));
    for (std::size_t i = 0; i < residual.Categories(0).size(); ++i)
        EXPECT_EQ(RowOf(residual, residual.Categories(0)[i]), CovarianceFigures(run.Figures().fCovariance.at(i)));
    EXPECT_EQ(reading::Shown(residual.Table().fpCaption),
              "Cov Struct UN ^1 Fix ^2 Var ^3 Subj Spec ^4 ... <AR1, AR1, hour, id>");
}

TEST(ModelTables, OfGroupsAndTrialsHaveTheirShapes) {
    const ModelRun grouped(
        "HIERFIT /DATA FILE='orthodont.csv' /FIELDS TARGET=distance /FIXED EFFECTS=age "
        "/RANDOM EFFECTS=INTERCEPT SUBJECTS=Subject GROUPING=Sex "
        "/DATA_STRUCTURE SUBJECTS=Subject REPEATED_MEASURES=age COVARIANCE_TYPE=ID GROUPING=Sex");
    const reading::TableList list = ViewerTables(grouped);
    for (const char* path : {"Random Effect Covariances > Random Effect Block ^1 <1>",
                             "Covariance Parameters > Residual Effect", "Covariance Parameters > Random Effect"}) {
        EXPECT_THAT(TableAt(list, path).Categories(1),
                    ElementsAre("EffectVar1 <Sex, Female>", "EffectVar1 <Sex, Male>"));
    }
    for (const run::CovarianceRow& row : grouped.Figures().fCovariance) {
        const bool residual = row.fBlock == "residual";
        const TableView table =
            TableAt(list, std::string("Covariance Parameters > ") + (residual ? "Residual Effect" : "Random Effect"));
        EXPECT_EQ(table.Value(
                      {residual ? "Variance" : "Var(Intercept)", "EffectVar1 <Sex, " + *row.fGroup + ">", "Estimate"}),
                  row.fEstimate);
    }

    const ModelRun trials(
        "HIERFIT /DATA FILE='cbpp.csv' NOMINAL=period /FIELDS TARGET=incidence /FIXED EFFECTS=period "
        "/RANDOM EFFECTS=INTERCEPT SUBJECTS=herd /TARGET_OPTIONS DISTRIBUTION=BINOMIAL TRIALS=size");
    const reading::TableList events = ViewerTables(trials);
    EXPECT_EQ(TextAt(TableAt(events, "Model Summary"), {"Target / Trials"}), "size");
    const TableView structure = TableAt(events, "Data Structure");
    EXPECT_EQ(TextAt(structure, {"0", "Data for First Subject", "Target / incidence"}), "2");
    EXPECT_EQ(TextAt(structure, {"0", "Data for First Subject", "Target / size"}), "14");
    EXPECT_THAT(reading::Shown(structure.Table().fvNotes), ElementsAre("Target ^1/^2 <incidence, size>"));
    ExpectEffects(TableAt(events, "Fixed Effects"), trials.Figures());
    ExpectCoefficients(TableAt(events, "Fixed Coefficients"), trials.Figures());
}

TEST(ModelTables, OfCategoriesHaveTheirShapes) {
    ModelRun nominal(
        "HIERFIT /DATA FILE='verbagg6.csv' /FIELDS TARGET=resp /FIXED EFFECTS=mode Gender "
        "/RANDOM EFFECTS=INTERCEPT SUBJECTS=id /TARGET_OPTIONS DISTRIBUTION=NOMINAL");
    const reading::TableList list = ViewerTables(nominal);
    EXPECT_EQ(TextAt(TableAt(list, "Model Summary"), {"Measurement Level"}), "Nominal");
    const auto path = std::find_if(list.fvPaths.begin(), list.fvPaths.end(),
                                   [](const std::string& text) { return text.starts_with("Classification"); });
    ASSERT_NE(path, list.fvPaths.end());
    const TableView table = TableAt(list, *path);
    EXPECT_THAT(table.Categories(0), ElementsAre("no", "perhaps", "yes"));
    EXPECT_EQ(table.Categories(2), table.Categories(0));
    double all = 0.0, right = 0.0;
    for (const std::string& observed : table.Categories(0)) {
        double shares = 0.0;
        for (const std::string& predicted : table.Categories(2)) {
            const double count = table.Value({observed, "E60868", predicted});
            all += count;
            right += observed == predicted ? count : 0.0;
            shares += table.Value({observed, "% within Observed", predicted});
        }
        EXPECT_NEAR(shares, 100.0, 1e-9);
    }
    EXPECT_EQ(all, nominal.Figures().fWeightUsed);
    EXPECT_DOUBLE_EQ(nominal.Record().GetModelDiagnostics()->fClassificationAccuracy, right / all);

    // Each category but the reference has the rows of all parameters, and covariances of its own.
    const TableView coefficients = TableAt(list, "Fixed Coefficients");
    EXPECT_THAT(coefficients.Categories(1), ElementsAre("no", "perhaps"));
    const Texts terms = coefficients.Categories(0);
    const auto& rows = nominal.Figures().fFixed;
    ASSERT_EQ(rows.size(), 2 * terms.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(coefficients.Value({terms[i % terms.size()], *rows[i].fTargetCategory, "Coefficient"}),
                  rows[i].fRedundant ? 0.0 : rows[i].fEstimate)
            << rows[i].fTerm;
    }
    const TableView random = TableAt(list, "Covariance Parameters > Random Effect");
    EXPECT_THAT(random.Categories(1), ElementsAre("no", "perhaps"));

    const ModelRun ordinal(
        "HIERFIT /DATA FILE='wine.csv' ORDINAL=rating /FIELDS TARGET=rating /FIXED EFFECTS=temp contact "
        "/RANDOM EFFECTS=INTERCEPT SUBJECTS=judge /TARGET_OPTIONS DISTRIBUTION=ORDINAL");
    const reading::TableList ratings = ViewerTables(ordinal);
    const TableView thresholds = TableAt(ratings, "Fixed Coefficients");
    Texts shown = thresholds.Categories(0);
    ASSERT_GE(shown.size(), 5u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(shown[i], "Threshold for ^1= <rating> / " + std::to_string(i + 1));
        EXPECT_EQ(thresholds.Value({shown[i], "Coefficient"}), ordinal.Figures().fFixed.at(i).fEstimate);
    }
    EXPECT_EQ(shown[4], "temp=cold");
    ExpectEffects(TableAt(ratings, "Fixed Effects"), ordinal.Figures());
}

TEST(ModelTables, OfSplitsStandUnderTheirHeadings) {
    const ModelRun run(
        "HIERFIT /DATA FILE='orthodont.csv' SPLIT_BY=Sex /FIELDS TARGET=distance /FIXED EFFECTS=age "
        "/RANDOM EFFECTS=INTERCEPT SUBJECTS=Subject");
    const reading::TableList list = ViewerTables(run);
    const char* const splits[] = {"Female", "Male"};
    for (std::size_t s = 0; s < 2; ++s) {
        const auto path = std::find_if(list.fvPaths.begin(), list.fvPaths.end(), [&](const std::string& text) {
            return text.find(splits[s]) != std::string::npos && text.ends_with("> Fixed Coefficients");
        });
        ASSERT_NE(path, list.fvPaths.end()) << splits[s];
        ExpectCoefficients(TableAt(list, *path), run.Figures(s));
    }
}

}  // namespace
