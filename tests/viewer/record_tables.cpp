// Tables of records that are made by hand: shapes and rules that the figures alone decide.
#include "viewer/Shown.h"

namespace {

using namespace viewer_test;
using namespace reading_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Doubles = std::vector<double>;

const std::string kLimits = "^1% Confidence Interval <90> / ";
const std::string kExpLimits = "^1% Confidence Interval for Exp(Coefficient) <90> / ";
const char* const kResidual = "Covariance Parameters > Residual Effect";
const char* const kRandom = "Covariance Parameters > Random Effect";

CFStatVariableValue Loaded(const std::string& text, int field) {
    static Reading reading;
    CFStatVariableValue value(text);
    EXPECT_TRUE(value.LoadObsValue(reading.Source().GetVariable(field), 0)) << text;
    return value;
}

TEST(RecordTables, StandInTheirOrder) {
    EXPECT_THAT(
        Shown().Paths(),
        ElementsAre("Model Summary", "Data Structure", StartsWith("Classification, overall ^1 ... <75"),
                    "Fixed Effects", "Fixed Coefficients", "Random Effect Covariances > Random Effect Block ^1 <1>",
                    "Covariance Parameters > Covariance Parameters Summary", kResidual, kRandom,
                    "EMMEANS Grand Mean ... <>", "EMMEANS Effect ^1 ... <a * u> > Estimates",
                    "EMMEANS Effect ^1 ... <a * u> > Simple Contrasts",
                    "EMMEANS Effect ^1 ... <a * u> > Overall Test Results"));
    const Shown nothing([](HRFTOutputStats& stats) { stats.GetBuildSettings()->fTargetIndex = -1; });
    EXPECT_THAT(nothing.Paths(), IsEmpty());
}

TEST(RecordTables, SummaryNamesTargetAndLink) {
    const Shown plain;
    const TableView table = plain.Table("Model Summary");
    EXPECT_EQ(reading::Shown(table.Table().fpSubType), "ModelSummary");
    EXPECT_EQ(table.Table().fMinDataColumnWidth, 150);
    EXPECT_TRUE(table.Dimension(0).fHideTitle);
    EXPECT_THAT(table.Categories(0),
                ElementsAre("Target", "Probability Distribution", "Link Function",
                            "Information Criterion / Akaike Corrected", "Information Criterion / Bayesian"));
    EXPECT_EQ(TextAt(table, {"Target"}), "Yield");
    EXPECT_EQ(TextAt(table, {"Probability Distribution"}), "Normal");
    EXPECT_EQ(TextAt(table, {"Link Function"}), "Identity");
    EXPECT_EQ(table.Value({"Information Criterion / Akaike Corrected"}), 10.5);
    EXPECT_EQ(table.Value({"Information Criterion / Bayesian"}), 11.5);
    EXPECT_THAT(reading::Shown(table.Table().fpCaption),
                StartsWith("Information Criteria, log likelhood ^1 ... <-62.5"));

    struct {
        int fDistribution, fLink;
        double fParam;
        int fTrials;  ///< field of the trials, -1 a number
        Texts fvCategories;
        std::string fDistributionText, fLinkText;
    } const cases[] = {
        {kNominalTarget, kLogitLink, SYSMIS, -2, {"Target", "Measurement Level"}, "Multinomial", "Generalized logit"},
        {kOrdinalTarget,
         kCauchitLink,
         SYSMIS,
         -2,
         {"Target", "Measurement Level"},
         "Multinomial",
         "Cumulative Cauchit"},
        {kGammaTarget, kPowerLink, -0.5, -2, {"Target"}, "Gamma", "Power(^1) <-0.5>"},
        // A parameter of a link that has none stands alone.
        {kGammaTarget, kLogLink, 2.0, -2, {"Target"}, "Gamma", " <2>"},
        {kBinomialTarget, kProbitLink, SYSMIS, kN, {"Target / Events", "Target / Trials"}, "Binomial", "Probit"},
        {kBinomialTarget, kLogitLink, SYSMIS, -1, {"Target / Events", "Target / Trials"}, "Binomial", "Logit"},
    };
    for (const auto& entry : cases) {
        const Shown shown([&](HRFTOutputStats& stats) {
            BuildSettings& settings = *stats.GetBuildSettings();
            settings.fDistribution = entry.fDistribution;
            settings.fLink = entry.fLink;
            settings.fLinkParam = entry.fParam;
            settings.fUseTrials = entry.fTrials != -2;
            settings.fTrialsIndex = entry.fTrials == kN ? kN : -1;
            settings.fTrialsValue = 12;
        });
        const TableView summary = shown.Table("Model Summary");
        Texts categories = summary.Categories(0);
        categories.resize(entry.fvCategories.size());
        EXPECT_EQ(categories, entry.fvCategories);
        EXPECT_EQ(TextAt(summary, {"Probability Distribution"}), entry.fDistributionText);
        EXPECT_EQ(TextAt(summary, {"Link Function"}), entry.fLinkText);
        if (entry.fTrials == kN) {
            EXPECT_EQ(TextAt(summary, {"Target / Trials"}), "n");
        }
        if (entry.fTrials == -1) {
            EXPECT_EQ(summary.Value({"Target / Trials"}), 12);
        }
        if (entry.fDistribution == kOrdinalTarget) {
            EXPECT_EQ(TextAt(summary, {"Measurement Level"}), "Ordinal");
        }
    }
}

TEST(RecordTables, DataStructureShowsTheFirstSubject) {
    const Shown plain;
    const TableView table = plain.Table("Data Structure");
    EXPECT_THAT(table.Categories(0), ElementsAre("0", "1", "Levels"));
    EXPECT_THAT(table.Categories(1), ElementsAre("Data for First Subject", "Total Number of Levels"));
    EXPECT_THAT(table.Categories(2),
                ElementsAre("Subjects / s", "Repeated Measures / t", "Repeated Measures / u", "Target / Yield"));
    EXPECT_TRUE(table.Dimension(0).fHideLabels);
    EXPECT_EQ(table.Dimension(0).fOrder, 1);
    EXPECT_EQ(table.Dimension(1).fOrder, 2);
    const auto first = [&](const char* record, const char* variable) {
        return TextAt(table, {record, "Data for First Subject", variable});
    };
    EXPECT_EQ(first("0", "Subjects / s"), "s 1");
    EXPECT_EQ(first("1", "Subjects / s"), "s 1");
    EXPECT_EQ(first("0", "Repeated Measures / t"), "1");
    EXPECT_EQ(first("1", "Repeated Measures / u"), "hi");
    EXPECT_EQ(first("1", "Target / Yield"), "2.5");
    const auto levels = [&](const char* variable) {
        return table.Value({"Levels", "Total Number of Levels", variable});
    };
    EXPECT_EQ((Doubles{levels("Subjects / s"), levels("Repeated Measures / t"), levels("Repeated Measures / u")}),
              (Doubles{3, 3, 2}));
    EXPECT_EQ(TextAt(table, {"Levels", "Total Number of Levels", "Target / Yield"}), "(no cell)");
    EXPECT_EQ(reading::Shown(table.Table().fpCaption), "Only the first ^1 records are displayed. <10>");
    EXPECT_THAT(reading::Shown(table.Table().fvNotes), ElementsAre("Target ^1 <Yield>"));

    const Shown kronecker([](HRFTOutputStats& stats) {
        BuildSettings& settings = *stats.GetBuildSettings();
        settings.fKronecker = true;
        settings.fResidualCovType = kUN_UN;
        settings.fRepeatedMeasure = {{"u"}, {kU}, {}};
        settings.fKroneckerMeasure = {{"t"}, {kT}, {}};
        stats.GetStructuredData()->fTotalFreq = 10;
        Warn(stats, {"kGLMM_C26"});
    });
    const TableView product = kronecker.Table("Data Structure");
    EXPECT_THAT(product.Categories(2), ElementsAre("Subjects / s", "Repeated Measures ^1 <1> / u",
                                                   "Repeated Measures ^1 <2> / t", "Target / Yield"));
    EXPECT_EQ(TextAt(product, {"0", "Data for First Subject", "Repeated Measures ^1 <1> / u"}), "lo");
    EXPECT_EQ(product.Table().fpCaption, nullptr);
    EXPECT_THAT(reading::Shown(product.Table().fvNotes),
                ElementsAre("Target ^1 <Yield>", "[%1:\n^1:]1 <Target ^1 <Yield>, Subject field not used ...>"));
    EXPECT_THAT(kronecker.Messages(), IsEmpty());

    const Shown trials([](HRFTOutputStats& stats) {
        stats.GetBuildSettings()->fUseTrials = true;
        stats.GetBuildSettings()->fTrialsIndex = kN;
        stats.GetStructuredData()->fvTrialsValues = {Loaded("20", kY), Loaded("30", kY)};
    });
    EXPECT_EQ(TextAt(trials.Table("Data Structure"), {"1", "Data for First Subject", "Target / n"}), "30");
    EXPECT_THAT(reading::Shown(trials.Table("Data Structure").Table().fvNotes), ElementsAre("Target ^1/^2 <Yield, n>"));

    const Shown number([](HRFTOutputStats& stats) {
        stats.GetBuildSettings()->fUseTrials = true;
        stats.GetBuildSettings()->fTrialsValue = 12;
    });
    EXPECT_THAT(CategoryNotes(number.Table("Data Structure"), 2, "Target / Yield"),
                ElementsAre("Number of Trials = ^1 <12>"));
}

TEST(RecordTables, WithoutSubjectsThereIsNoDataStructure) {
    for (const bool warned : {false, true}) {
        const Shown shown([&](HRFTOutputStats& stats) {
            stats.GetStructuredData()->fSubjectData = {};
            Warn(stats, warned ? Texts{"kGLMM_C26"} : Texts{});
        });
        EXPECT_FALSE(shown.Has("Data Structure"));
        EXPECT_EQ(shown.Messages(), warned ? Texts{"^1: ^2 <Data Structure, Subject field not used ...>"} : Texts{});
    }
    const Shown none([](HRFTOutputStats& stats) { stats.DeleteStructuredData(); });
    EXPECT_FALSE(none.Has("Data Structure"));
    EXPECT_FALSE(none.Has("Random Effect Covariances > Random Effect Block ^1 <1>"));
}

TEST(RecordTables, ClassificationCountsAndShares) {
    const auto table = [](const Shown& shown) {
        const auto path = std::find_if(shown.Paths().begin(), shown.Paths().end(),
                                       [](const auto& text) { return text.starts_with("Classification"); });
        return shown.Table(path == shown.Paths().end() ? "Classification" : *path);
    };
    const Shown plain([](HRFTOutputStats& stats) {
        stats.GetClassifMatrixData()->fvLabels = {Loaded("1", kY), Loaded("2", kY)};
    });
    const TableView view = table(plain);
    EXPECT_THAT(view.Categories(0), ElementsAre("1.0", "2.0"));
    EXPECT_THAT(view.Categories(2), ElementsAre("1.0", "2.0"));
    const auto row = [&](const char* observed) {
        return Doubles{view.Value({observed, "E60868", "1.0"}), view.Value({observed, "% within Observed", "1.0"}),
                       view.Value({observed, "E60868", "2.0"}), view.Value({observed, "% within Observed", "2.0"})};
    };
    EXPECT_EQ(row("1.0"), (Doubles{3, 75, 1, 25}));
    EXPECT_EQ(row("2.0"), (Doubles{0, 0, 0, 0}));  // nothing observed is no share of nothing
    EXPECT_EQ(view.Kind({"1.0", "% within Observed", "1.0"}), BpFormatSpec::kPercent);

    const Shown trials([](HRFTOutputStats& stats) { stats.GetBuildSettings()->fUseTrials = true; });
    EXPECT_THAT(table(trials).Categories(0), ElementsAre("Non-Event", "Event"));
    const Shown none([](HRFTOutputStats& stats) { stats.DeleteClassifMatrixData(); });
    EXPECT_EQ(none.Paths()[2], "Fixed Effects");
}

TEST(RecordTables, EffectsHaveTheirTests) {
    const Shown plain;
    const TableView table = plain.Table("Fixed Effects");
    EXPECT_THAT(table.Categories(0), ElementsAre("Corrected Model", "a(u)", "x"));
    EXPECT_THAT(table.Categories(1), ElementsAre("F", "df1", "df2", "Sig."));
    EXPECT_EQ(RowOf(table, "Corrected Model"), (Doubles{3, 2, 8.5, 0.04}));
    EXPECT_EQ(RowOf(table, "a(u)"), (Doubles{4, 1, SYSMIS, 0.03}));
    EXPECT_EQ(table.Kind({"a(u)", "df1"}), BpFormatSpec::kCount);
    EXPECT_EQ(table.Kind({"a(u)", "Sig."}), BpFormatSpec::kSignificance);
    EXPECT_EQ(reading::Shown(table.Table().fpCaption),
              "Probability Distribution ^1, Link Function ^2 ... <Normal, Identity>");
    EXPECT_THAT(CategoryNotes(table, 0, "Corrected Model"), IsEmpty());

    const auto only = [](bool intercept, std::size_t effects, std::size_t tests) {
        return Shown([=](HRFTOutputStats& stats) {
            BuildSettings& settings = *stats.GetBuildSettings();
            settings.fIntercept = intercept;
            settings.fvFixedEffectList.resize(effects);
            settings.fLinkParam = 2.0;
            stats.GetEffectTest()->fvFixedEffectTests.resize(tests);
        });
    };
    const Shown intercept = only(true, 0, 0);
    EXPECT_THAT(intercept.Table("Fixed Effects").Categories(0), ElementsAre("Corrected Model"));
    EXPECT_THAT(CategoryNotes(intercept.Table("Fixed Effects"), 0, "Corrected Model"),
                ElementsAre("Fixed effects intercept only ..."));
    EXPECT_EQ(reading::Shown(intercept.Table("Fixed Effects").Table().fpCaption),
              "Probability Distribution ^1, Link Function ^2 with ^3 ... <Normal, Identity, 2>");
    EXPECT_FALSE(only(false, 0, 0).Has("Fixed Effects"));
    EXPECT_FALSE(only(true, 2, 1).Has("Fixed Effects"));
    EXPECT_FALSE(Shown([](HRFTOutputStats& stats) { stats.DeleteEffectTest(); }).Has("Fixed Effects"));
}

TEST(RecordTables, CoefficientsShowWhatIsNotRedundant) {
    const Shown plain;
    const TableView table = plain.Table("Fixed Coefficients");
    EXPECT_THAT(table.Categories(0), ElementsAre("Intercept", "a=1"));
    EXPECT_THAT(table.Categories(1),
                ElementsAre("Coefficient", "Std. Error", "t", "Sig.", kLimits + "Lower", kLimits + "Upper",
                            "Exp(Coefficient)", kExpLimits + "Lower", kExpLimits + "Upper"));
    EXPECT_EQ(RowOf(table, "Intercept"), (Doubles{1.25, 0.25, 5, 0.001, 1, 1.5, 3.5, 2.5, 4.5}));
    EXPECT_EQ(RowOf(table, "a=1"), (Doubles{0, SYSMIS, SYSMIS, SYSMIS, SYSMIS, SYSMIS}));
    EXPECT_EQ(table.Kind({"a=1", "Coefficient"}), BpFormatSpec::kCount);
    EXPECT_EQ(table.Kind({"Intercept", "Std. Error"}), BpFormatSpec::kCoefficientSE);
    EXPECT_THAT(table.Notes({"a=1", "Coefficient"}), ElementsAre("Redundant coefficient, zero ..."));
    EXPECT_THAT(table.Notes({"Intercept", "Coefficient"}), IsEmpty());
    EXPECT_EQ(TextAt(table, {"a=1", "Exp(Coefficient)"}), "(no cell)");

    // A redundant one whose exponential was computed shows it as missing; a label of any length shows whole.
    const std::string label(600, 'x');
    const Shown longer([&](HRFTOutputStats& stats) {
        ParameterStatsData& slope = stats.GetParamCollect()->fvFixedParamEstim[0].fvParameterStats[1];
        slope.fExpEstimate = slope.fExpCILower = slope.fExpCIUpper = 1.0;
        slope.fParamLabel = label;
    });
    const TableView wide = longer.Table("Fixed Coefficients");
    const std::string row = wide.Categories(0).at(1);
    EXPECT_THAT(row, StartsWith("[:^1:]1 <xxx"));
    EXPECT_EQ(wide.Dimension(0).Categories().at(1)->fpText->Show(host::Catalogue::Current()), label);
    EXPECT_EQ(wide.Value({row, "Exp(Coefficient)"}), SYSMIS);
    EXPECT_EQ(wide.Value({row, kExpLimits + "Upper"}), SYSMIS);

    EXPECT_FALSE(Shown([](HRFTOutputStats& stats) { stats.DeleteParamCollect(); }).Has("Fixed Coefficients"));
    EXPECT_FALSE(Shown([](HRFTOutputStats& stats) {
                     stats.GetParamCollect()->fvFixedParamEstim.clear();
                 }).Has("Fixed Coefficients"));
}

TEST(RecordTables, CategoricalTargetsShapeTheCoefficients) {
    const Shown ordinal([](HRFTOutputStats& stats) {
        stats.GetBuildSettings()->fDistribution = kOrdinalTarget;
        auto& rows = stats.GetParamCollect()->fvFixedParamEstim[0].fvParameterStats;
        rows[0].fRegrParam = {{}, {{"y", kY, Loaded("1.5", kY), false}}, false, "P1"};
        rows[1].fRegrParam = {{}, {{"a", kA, Loaded("1", kA), false}}, false, "P2"};
        ASSERT_EQ(rows[0].fStatisticInt, -1);  // no effect's: a threshold
        ASSERT_EQ(rows[1].fStatisticInt, 0);
    });
    const TableView thresholds = ordinal.Table("Fixed Coefficients");
    EXPECT_THAT(thresholds.Categories(0), ElementsAre("Threshold for ^1= <Yield> / 1.5", "a=1"));
    EXPECT_EQ(thresholds.Value({"Threshold for ^1= <Yield> / 1.5", "Coefficient"}), 1.25);

    const Shown nominal([](HRFTOutputStats& stats) {
        stats.GetBuildSettings()->fDistribution = kNominalTarget;
        stats.GetBuildSettings()->fLink = kLogitLink;
        stats.GetBuildSettings()->fUseTrials = true;
        auto& targets = stats.GetParamCollect()->fvFixedParamEstim;
        targets.resize(3, targets.front());
        targets[0].fTargetCategory = Loaded("1", kY);
        targets[1].fvParameterStats.clear();  // the reference has no parameters, and no rows
        targets[1].fTargetCategory = Loaded("2", kY);
        targets[2].fTargetCategory = Loaded("3", kY);
        targets[2].fvParameterStats[0].fEstimate = 7.0;
    });
    const TableView table = nominal.Table("Fixed Coefficients");
    ASSERT_EQ(table.Table().fvDimensions.size(), 3u);
    EXPECT_EQ(reading::Shown(table.Dimension(1).fpText), "Yield");
    EXPECT_EQ(table.Dimension(1).fOrder, 2);
    EXPECT_THAT(table.Categories(1), ElementsAre("1.0", "3.0"));
    EXPECT_EQ(table.Value({"Intercept", "1.0", "Coefficient"}), 1.25);
    EXPECT_EQ(table.Value({"Intercept", "3.0", "Coefficient"}), 7.0);
    EXPECT_THAT(reading::Shown(table.Table().fvNotes), ElementsAre("Target ^1 <Yield>"));
    EXPECT_EQ(reading::Shown(table.Table().fpCaption),
              "Probability Distribution ^1, Link Function ^2 ... <Multinomial, Generalized logit>");
    // Several lists of a target that isn't nominal are no table.
    EXPECT_FALSE(Shown([](HRFTOutputStats& stats) {
                     stats.GetParamCollect()->fvFixedParamEstim.resize(2);
                 }).Has("Fixed Coefficients"));
}

TEST(RecordTables, RandomCovariancesComePlainAndGrouped) {
    const std::string path = "Random Effect Covariances > Random Effect Block ^1 <1>";
    const Shown plain;
    const TableView table = plain.Table(path);
    EXPECT_THAT(table.Categories(0), ElementsAre("Intercept", "x*x*[u=hi]", ""));
    EXPECT_EQ(table.Categories(1), table.Categories(0));
    EXPECT_EQ(table.Value({"x*x*[u=hi]", "Intercept"}), 2);
    EXPECT_EQ(table.Value({"", "x*x*[u=hi]"}), 5);
    EXPECT_EQ(reading::Shown(table.Table().fpCaption),
              "Covariance Structure ^1 Subject Specification ^2 ... <Unstructured, s>");

    const auto double_ = [](HRFTOutputStats& stats) -> RandEffCovars& {
        RandEffCovars& covars = stats.GetStructuredData()->fvRandEffCovars[0];
        covars.fMatrixValues.resize(2, covars.fMatrixValues.front());
        covars.fMatrixValues[1].fvRows[0].fvValues[0] = 9.0;
        covars.fSimpleSubjects.resize(2);
        return covars;
    };
    const Shown grouped([&](HRFTOutputStats& stats) {
        RandEffCovars& covars = double_(stats);
        covars.fSimpleSubjects[0] = {{"a"}, {kA}, {Loaded("1", kA)}, {2}};
        covars.fSimpleSubjects[1] = {{"a", "u"}, {kA, kU}, {Loaded("2", kA), Loaded("hi", kU)}, {2, 2}};
        stats.GetBuildSettings()->fvRandomSpecs[0].fvGroup = {"a"};
        stats.GetBuildSettings()->fvRandomSpecs[0].fSubject = {};
    });
    const TableView groups = grouped.Table(path);
    EXPECT_EQ(reading::Shown(groups.Dimension(1).fpText), "Grouping");
    EXPECT_THAT(groups.Categories(1), ElementsAre("EffectVar1 <a, 1>", "EffectVar2 <a, 2, u, hi>"));
    EXPECT_EQ(groups.Value({"Intercept", "EffectVar2 <a, 2, u, hi>", "Intercept"}), 9);
    EXPECT_EQ(reading::Shown(groups.Table().fpCaption),
              "Covariance Structure ^1 Subject Specification ^2 ... <Unstructured, (None)>");

    const Shown nominal([&](HRFTOutputStats& stats) {
        RandEffCovars& covars = double_(stats);
        stats.GetBuildSettings()->fDistribution = kNominalTarget;
        covars.fSimpleSubjects[0] = {{"y"}, {kY}, {Loaded("1", kY)}, {0}};
        covars.fSimpleSubjects[1] = {{"y"}, {kY}, {Loaded("2", kY)}, {0}};
    });
    EXPECT_EQ(reading::Shown(nominal.Table(path).Dimension(1).fpText), "Yield");
    EXPECT_THAT(nominal.Table(path).Categories(1), ElementsAre("1.0", "2.0"));
}

TEST(RecordTables, SummaryOfCovarianceParametersKnowsOfSubjects) {
    const std::string path = "Covariance Parameters > Covariance Parameters Summary";
    const Texts categories{"Covariance Parameters / Residual Effect", "Covariance Parameters / Random Effects",
                           "Design Matrix Columns / Fixed Effects", "Design Matrix Columns / Random Effects"};
    const Shown plain;
    const TableView table = plain.Table(path);
    Texts all = categories;
    all.push_back("Common Subjects");
    EXPECT_EQ(table.Categories(0), all);
    Doubles values;
    for (const std::string& category : all)
        values.push_back(table.Value({category}));
    EXPECT_EQ(values, (Doubles{2, 3, 7, 2, 3}));
    EXPECT_THAT(table.Notes({categories[3]}), ElementsAre("Number of common subject ..."));
    EXPECT_EQ(reading::Shown(table.Table().fpCaption), "Common Subjects are based on ...");
    for (const char* key : {"kGLMM_C8", "kGLMM_C9"}) {
        const Shown none([&](HRFTOutputStats& stats) { Warn(stats, {key}); });
        EXPECT_EQ(none.Table(path).Categories(0), categories) << key;
        EXPECT_EQ(none.Table(path).Table().fpCaption, nullptr) << key;
        EXPECT_THAT(none.Table(path).Notes({categories[3]}), IsEmpty()) << key;
    }
}

TEST(RecordTables, CaptionsOfCovarianceParametersCarryTheWarnings) {
    const std::string plain = "Covariance Structure ^1 ... <First-order autoregressive";
    const std::string subjects = "Covariance Structure ^1 Subject Specification ^2 ... <First-order autoregressive, s";
    const std::string random = "Covariance Structure ^1 Subject Specification ^2 ... <Unstructured, s";
    struct {
        Texts fvWarnings;
        int fDistribution;
        std::string fResidual, fRandom;
    } const cases[] = {
        {{}, kNormalTarget, subjects + ">", random + ">"},
        {{"kGLMM_C28", "kGLMM_C23", "kGLMM_C18"},
         kNormalTarget,
         subjects + ", kGLMM_C18, kGLMM_C23, kGLMM_C28>",
         random + ", kGLMM_C18, kGLMM_C23, kGLMM_C28>"},
        {{"kGLMM_C23", "kGLMM_C28"}, kOrdinalTarget, subjects + ", kGLMM_C28>", random + ", kGLMM_C28>"},
        {{"kGLMM_C8", "kGLMM_C23"}, kNormalTarget, plain + ", kGLMM_C23>", random + ", kGLMM_C23>"},
        {{"kGLMM_C9"}, kBinomialTarget, plain + ">", random + ">"},
    };
    for (const auto& entry : cases) {
        const Shown shown([&](HRFTOutputStats& stats) {
            Warn(stats, entry.fvWarnings);
            stats.GetBuildSettings()->fDistribution = entry.fDistribution;
        });
        EXPECT_EQ(reading::Shown(shown.Table(kResidual).Table().fpCaption), entry.fResidual);
        EXPECT_EQ(reading::Shown(shown.Table(kRandom).Table().fpCaption), entry.fRandom);
    }
    struct {
        int fType;
        bool fSubjects;
        std::string fCaption;
    } const products[] = {
        {kUN_UN, true, "Cov Struct UN ^1 Fix ^2 Var ^3 Subj Spec ^4 ... <UN, UN(1,1), u, s>"},
        {kUN_AR1, true, "Cov Struct UN ^1 Fix ^2 Var ^3 Subj Spec ^4 ... <AR1, AR1, u, s>"},
        {kUN_CS, false, "Cov Struct UN ^1 Fix ^2 Var ^3 ... <CS, CS, u>"},
    };
    for (const auto& entry : products) {
        const Shown shown([&](HRFTOutputStats& stats) {
            Warn(stats, entry.fSubjects ? Texts{} : Texts{"kGLMM_C8"});
            stats.GetBuildSettings()->fKronecker = true;
            stats.GetBuildSettings()->fResidualCovType = entry.fType;
            stats.GetBuildSettings()->fKroneckerMeasure = {{"u"}, {kU}, {}};
        });
        EXPECT_EQ(reading::Shown(shown.Table(kResidual).Table().fpCaption), entry.fCaption);
    }
}

TEST(RecordTables, WarningsReplaceWhatCouldNotBeEstimated) {
    const Texts all{"Estimate", "Std. Error", "Z", "Sig.", kLimits + "Lower", kLimits + "Upper"};
    const Texts untested{"Estimate", "Std. Error", kLimits + "Lower", kLimits + "Upper"};
    const Doubles residual{2, 1, 2, 0.05, 1, 4}, random{3, 1, 3, 0.01, 1, 9}, zeros{0, 0, 0, 0};
    struct {
        Texts fvWarnings;
        int fDistribution;
        Texts fvResidualColumns;
        Doubles fvResidual;
        Texts fvRandomColumns;
        Doubles fvRandom;
        Texts fvNotes;  ///< at the residual's estimate
    } const cases[] = {
        {{}, kBinomialTarget, all, residual, all, random, {}},
        {{"kGLMM_C9"}, kBinomialTarget, {"Estimate"}, {1}, untested, zeros, {"kGLMM_C9"}},
        {{"kGLMM_C9"}, kNominalTarget, {"Estimate"}, {1}, {}, {}, {"kGLMM_C9"}},
        {{"kGLMM_C9"}, kNegBinTarget, {"Estimate"}, {1}, untested, zeros, {"kGLMM_C9"}},
        {{"kGLMM_C9", "kGLMM_C10"}, kPoissonTarget, {"Estimate"}, {1}, untested, zeros, {"kGLMM_C9"}},
        {{"kGLMM_C9"}, kNormalTarget, all, residual, all, random, {}},
        {{"kGLMM_C9"}, kOrdinalTarget, all, residual, all, random, {}},
        {{"kGLMM_C8"}, kNormalTarget, all, residual, untested, zeros, {}},
        {{"kGLMM_C8"}, kGammaTarget, all, residual, untested, zeros, {}},
        {{"kGLMM_C8"}, kInverseGaussTarget, all, residual, untested, zeros, {}},
        {{"kGLMM_C8"}, kBinomialTarget, all, residual, all, random, {}},
        {{"kGLMM_C8", "kGLMM_C9"}, kNormalTarget, all, residual, all, random, {}},
        {{"kGLMM_C10"}, kNormalTarget, all, residual, all, random, {"kGLMM_C10"}},
    };
    for (const auto& entry : cases) {
        SCOPED_TRACE(testing::PrintToString(entry.fvWarnings) + std::to_string(entry.fDistribution));
        const Shown shown([&](HRFTOutputStats& stats) {
            Warn(stats, entry.fvWarnings);
            stats.GetBuildSettings()->fDistribution = entry.fDistribution;
        });
        EXPECT_EQ(shown.Table(kResidual).Categories(1), entry.fvResidualColumns);
        EXPECT_EQ(RowOf(shown.Table(kResidual), "Variance"), entry.fvResidual);
        EXPECT_EQ(shown.Table(kResidual).Notes({"Variance", "Estimate"}), entry.fvNotes);
        EXPECT_THAT(CategoryNotes(shown.Table(kResidual), 0, "Variance"), ElementsAre("This is the scale parameter."));
        if (entry.fDistribution == kNominalTarget) continue;  // its random table is grouped
        EXPECT_EQ(shown.Table(kRandom).Categories(1), entry.fvRandomColumns);
        EXPECT_EQ(RowOf(shown.Table(kRandom), "Var(x)"), entry.fvRandom);
        EXPECT_THAT(CategoryNotes(shown.Table(kRandom), 0, "Var(x)"), IsEmpty());
    }
    const Shown redundant([](HRFTOutputStats& stats) {
        Warn(stats, {"kGLMM_C10"});
        stats.GetParamCollect()->fvRandomParamEstim[0].fvParamEstim[0].fvParameterStats[0].fIsRedundant = true;
    });
    EXPECT_EQ(RowOf(redundant.Table(kRandom), "Var(x)"), (Doubles{3, SYSMIS, SYSMIS, SYSMIS, SYSMIS, SYSMIS}));
    EXPECT_THAT(redundant.Table(kRandom).Notes({"Var(x)", "Estimate"}),
                ElementsAre("Parameter redundant", "kGLMM_C10"));
}

/// Parameters of these texts, with estimates 1, 2, ...
ParamEstimData Parameters(const Texts& texts, int first = -1) {
    ParamEstimData data;
    data.fNumUNParam = first;
    for (const std::string& text : texts) {
        ParameterStatsData& stats = data.fvParameterStats.emplace_back();
        stats.fPrintableList.fPattern = text;
        stats.fEstimate = static_cast<double>(data.fvParameterStats.size());
    }
    return data;
}

TEST(RecordTables, ProductsTellTheirMeasuresApart) {
    const std::string one = "Repeated Measure ^1 ^2 <1, t> / ", two = "Repeated Measure ^1 ^2 <2, u> / ";
    struct {
        ParamEstimData fData;
        Texts fvRows;
    } const cases[] = {
        {Parameters({"UN (1,1)", "UN (2,1)", "UN (2,2)", "UN (1,1)", "UN (2,1)"}, 3),
         {one + "UN (1,1)", one + "UN (2,1)", one + "UN (2,2)", two + "UN (1,1)", two + "UN (2,1)"}},
        // Without the number, the second matrix starts where the texts start anew.
        {Parameters({"UN (1,1)", "UN (2,1)", "UN (2,2)", "UN (1,1)", "UN (2,1)"}, 0),
         {one + "UN (1,1)", one + "UN (2,1)", one + "UN (2,2)", two + "UN (1,1)", two + "UN (2,1)"}},
        {Parameters({"UN (1,1)", "AR1 rho"}), {one + "UN (1,1)", two + "AR1 rho"}},
        // What is once left isn't come back to.
        {Parameters({"UN (1,1)", "CS covariance", "UN (2,1)"}),
         {one + "UN (1,1)", two + "CS covariance", two + "UN (2,1)"}},
        {Parameters({"CS covariance", "UN (2,1)"}), {one + "CS covariance", one + "UN (2,1)"}},
    };
    for (const auto& entry : cases) {
        const Shown shown([&](HRFTOutputStats& stats) {
            BuildSettings& settings = *stats.GetBuildSettings();
            settings.fKronecker = true;
            settings.fResidualCovType = kUN_UN;
            settings.fKroneckerMeasure = {{"u"}, {kU}, {}};
            stats.GetParamCollect()->fvRepeatedParamEstim = {entry.fData};
        });
        const TableView table = shown.Table(kResidual);
        EXPECT_EQ(table.Categories(0), entry.fvRows);
        EXPECT_EQ(table.Value({entry.fvRows.back(), "Estimate"}), static_cast<double>(entry.fvRows.size()));
    }
}

TEST(RecordTables, GroupsHaveTheirCovarianceParameters) {
    const Shown shown([](HRFTOutputStats& stats) {
        BuildSettings& settings = *stats.GetBuildSettings();
        ParamCollect& collect = *stats.GetParamCollect();
        settings.fvResidualGroup = {"a"};
        const auto group = [](const char* text) {
            ParamEstimData data = Parameters({"Variance ", "AR1 rho"});
            data.fFiledData = {{"a"}, {kA}, {Loaded(text, kA)}, {2}};
            return data;
        };
        collect.fvRepeatedParamEstim = {group("1"), group("2")};
        settings.fvRandomSpecs.resize(2, settings.fvRandomSpecs.front());
        settings.fvRandomSpecs[1].fvGroup = {"a"};
        collect.fvRandomParamEstim.push_back({1, {group("2")}});
    });
    const TableView residual = shown.Table(kResidual);
    EXPECT_THAT(residual.Categories(0), ElementsAre("Variance", "AR1 rho"));
    EXPECT_THAT(residual.Categories(1), ElementsAre("EffectVar1 <a, 1>", "EffectVar1 <a, 2>"));
    EXPECT_EQ(residual.Dimension(1).fOrder, 2);
    EXPECT_EQ(residual.Value({"AR1 rho", "EffectVar1 <a, 2>", "Estimate"}), 2);
    EXPECT_THAT(CategoryNotes(residual, 0, "Variance"), ElementsAre("This is the scale parameter."));
    // Of two blocks each says its number.
    const TableView plain = shown.Table("Covariance Parameters > Random Effect Block ^1 <1>");
    EXPECT_EQ(reading::Shown(plain.Dimension(0).fpText), "Random Effect Covariance");
    const TableView grouped = shown.Table("Covariance Parameters > Random Effect Block ^1 <2>");
    EXPECT_EQ(reading::Shown(grouped.Dimension(0).fpText), "Random Effect Block");
    EXPECT_THAT(grouped.Categories(1), ElementsAre("EffectVar1 <a, 2>"));
    // In a random block a parameter of that name is no scale.
    EXPECT_THAT(CategoryNotes(grouped, 0, "Variance"), IsEmpty());
}

/// Everything that a reader sees of the tables and messages, in English.
Texts Displayed(const Shown& shown) {
    const host::Catalogue& english = host::Catalogue::Current();
    Texts texts = shown.DisplayedMessages();
    const auto add = [&](const output::Text& text) {
        if (text) texts.push_back(text->Show(english));
    };
    for (const output::Table* table : shown.Tables()) {
        add(table->fpTitle);
        add(table->fpCaption);
        std::for_each(table->fvNotes.begin(), table->fvNotes.end(), add);
        for (const auto& dimension : table->fvDimensions) {
            add(dimension->fpText);
            for (const auto* category : dimension->Categories()) {
                for (const output::Member* member = category; member; member = member->fpGroup)
                    add(member->fpText);
                std::for_each(category->fvNotes.begin(), category->fvNotes.end(), add);
            }
        }
        for (const auto& [place, cell] : table->fCells) {
            add(cell.fpText);
            std::for_each(cell.fvNotes.begin(), cell.fvNotes.end(), add);
        }
    }
    return texts;
}

TEST(RecordTables, EveryKeyHasItsSentence) {
    const Texts warnings{"kGLMM_C8",  "kGLMM_C9",  "kGLMM_C10", "kGLMM_C18", "kGLMM_C20",
                         "kGLMM_C23", "kGLMM_C24", "kGLMM_C26", "kGLMM_C28"};
    for (const int distribution : {kNormalTarget, kBinomialTarget, kNominalTarget, kOrdinalTarget}) {
        for (const bool kronecker : {false, true}) {
            const Shown shown([&](HRFTOutputStats& stats) {
                Warn(stats, warnings);
                BuildSettings& settings = *stats.GetBuildSettings();
                settings.fDistribution = distribution;
                settings.fUseTrials = distribution == kBinomialTarget;
                settings.fKronecker = kronecker;
                settings.fResidualCovType = kUN_CS;
                settings.fKroneckerMeasure = {{"u"}, {kU}, {}};
                settings.fvResidualGroup = {"a"};
                settings.fLinkParam = kronecker ? 2.0 : SYSMIS;
                stats.GetEmmeansData()->resize(20);
                stats.GetEmmeansData()->at(1).fEmmeansIndex = 0;
                stats.GetEmmeansData()->at(1).fvWarningList = {{"kGLMM_C25", {}}};
                stats.GetEmmeansData()->at(2) = stats.GetEmmeansData()->at(0);
                stats.GetEmmeansData()->at(2).fvWarningList = {{"kGLMM_C19_1", {"u"}}};
            });
            for (const std::string& text : Displayed(shown)) {
                EXPECT_THAT(text, testing::Not(testing::HasSubstr("kGLMM")));
                EXPECT_THAT(text, testing::Not(testing::HasSubstr("...")));
                EXPECT_THAT(text, testing::Not(testing::HasSubstr("EffectVar")));
                EXPECT_THAT(text, testing::Not(testing::HasSubstr("E60868")));
                EXPECT_THAT(text, testing::Not(testing::ContainsRegex("[\\^%][0-9]|\\]1")));
            }
        }
    }
}

}  // namespace
