// Tables of estimated means of records that are made by hand.
#include "viewer/Shown.h"

namespace {

using namespace viewer_test;
using namespace reading_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Doubles = std::vector<double>;

const std::string kLimits = "^1% Confidence Interval <90> / ";

TEST(RecordMeans, MeansHaveTheirTables) {
    const std::string heading = "EMMEANS Effect ^1 ... <a * u> > ";
    const Shown plain;
    const TableView grand = plain.Table("EMMEANS Grand Mean ... <>");
    const Texts columns{"Mean", "Std. Error", kLimits + "Lower", kLimits + "Upper"};
    EXPECT_EQ(grand.Categories(0), columns);
    EXPECT_EQ(grand.Value({"Mean"}), 4.5);
    EXPECT_EQ(grand.Value({kLimits + "Upper"}), 5.5);
    EXPECT_EQ(grand.Table().fpCaption, nullptr);
    EXPECT_THAT(reading::Shown(grand.Table().fvNotes), ElementsAre("Target ^1 <Yield>"));

    const TableView estimates = plain.Table(heading + "Estimates");
    EXPECT_THAT(reading::Shown(estimates.Table().fpCaption),
                StartsWith("Continuous predictors fixed at [%1=%2:,^1=^2:]1 <x, 2.25"));
    EXPECT_THAT(estimates.Categories(0), ElementsAre("1", "2"));
    EXPECT_THAT(estimates.Categories(1), ElementsAre("hi", "lo"));
    EXPECT_EQ(estimates.Dimension(0).fOrder, 2);
    EXPECT_EQ(estimates.Dimension(1).fOrder, 1);
    EXPECT_EQ(estimates.Value({"2", "hi", "Mean"}), 3);
    EXPECT_EQ(estimates.Value({"2", "lo", "Std. Error"}), SYSMIS);
    EXPECT_EQ(estimates.Value({"1", "lo", kLimits + "Upper"}), 3);

    const TableView contrasts = plain.Table(heading + "Simple Contrasts");
    EXPECT_EQ(reading::Shown(contrasts.Table().fpCaption),
              "[%1:\n^1:]1 <Sequential Sidak significance adjust, Confidence interval bounds are approximate.>");
    EXPECT_THAT(contrasts.Categories(0), ElementsAre("1", "2"));
    EXPECT_EQ(reading::Shown(contrasts.Dimension(1).fpText), "^1 Simple Contrasts <u>");
    EXPECT_THAT(contrasts.Categories(1), ElementsAre("^1 - ^2 <hi, lo>"));
    EXPECT_THAT(contrasts.Categories(2), ElementsAre("Contrast Estimate", "Std. Error", "t", "df", "Adj. Sig.",
                                                     kLimits + "Lower", kLimits + "Upper"));
    Doubles row;
    for (const std::string& column : contrasts.Categories(2))
        row.push_back(contrasts.Value({"2", "^1 - ^2 <hi, lo>", column}));
    EXPECT_EQ(row, (Doubles{-1.5, 0.4, -3.4, 9, 0.02, -2.5, 0.5}));
    EXPECT_EQ(contrasts.Kind({"2", "^1 - ^2 <hi, lo>", "df"}), BpFormatSpec::kCount);

    const TableView tests = plain.Table(heading + "Overall Test Results");
    EXPECT_EQ(RowOf(tests, "1"), (Doubles{6, 1, 7, 0.05}));
    EXPECT_EQ(RowOf(tests, "2"), Doubles(4, SYSMIS));
}

TEST(RecordMeans, MeansFollowTheirSettingsAndWarnings) {
    const std::string one = "EMMEANS Effect ^1 ... <a * u> > ", second = "EMMEANS Effect ^1 block ^2 ... <a * u, 2> > ";
    const std::pair<int, std::string> captions[] = {
        {kLSD, "Least Significant significance adjust"},
        {kSeqBonferroni,
         "[%1:\n^1:]1 <Sequential Bonferroni significance adjust, Confidence interval bounds are approximate.>"},
        {kUnknownAdjustment, "(none)"}};
    for (const auto& [adjustment, caption] : captions) {
        const Shown shown(
            [kind = adjustment](HRFTOutputStats& stats) { stats.GetBuildSettings()->fPAdjustment = kind; });
        EXPECT_EQ(reading::Shown(shown.Table(one + "Simple Contrasts").Table().fpCaption), caption);
    }
    const Shown deviation([](HRFTOutputStats& stats) {
        stats.GetEmmeansData()->at(0).fContrasts.fContrastKind = kDeviation;
        stats.GetEmmeansData()->at(0).fvLabels.clear();
    });
    EXPECT_THAT(deviation.Table(one + "Deviation Contrasts").Categories(1), ElementsAre("^1 - ^2 <hi, Mean>"));
    EXPECT_EQ(deviation.Table(one + "Estimates").Table().fpCaption, nullptr);

    const auto warned = [](const char* key, int kind) {
        return Shown([=](HRFTOutputStats& stats) {
            EmmeansData& block = stats.GetEmmeansData()->at(0);
            block.fvWarningList = {{key, {"u"}}};
            block.fContrasts.fContrastKind = kind;
            block.fEmmeansIndex = 1;
            auto& specs = stats.GetBuildSettings()->fvEMMeansSpecs;
            specs.resize(2, specs.front());
        });
    };
    const Shown oneLevel = warned("kGLMM_C19_1", kSimple);
    EXPECT_THAT(oneLevel.Messages(), ElementsAre("^1 ^2: ^3 <EMMEANS, 2, kGLMM_C19_1>"));
    EXPECT_TRUE(oneLevel.Has(second + "Estimates"));
    EXPECT_FALSE(oneLevel.Has(second + "Simple Contrasts"));
    EXPECT_TRUE(oneLevel.Has(second + "Overall Test Results"));
    const Shown noReference = warned("kGLMM_C25", kSimple);
    EXPECT_THAT(noReference.Messages(), ElementsAre("^1 ^2: ^3 <EMMEANS, 2, kGLMM_C25>"));
    EXPECT_EQ(noReference.Paths().back(), "EMMEANS Grand Mean ... <>");
    const Shown unknown = warned("kGLMM_C20", kUnknownKind);
    EXPECT_TRUE(unknown.Has(second + "Estimates"));
    EXPECT_TRUE(unknown.Has(second + "Overall Test Results"));
    EXPECT_EQ(unknown.Paths().size(), Shown().Paths().size() - 1);

    for (const int index : {-1, 1, 2000000000}) {
        const Shown none([&](HRFTOutputStats& stats) { stats.GetEmmeansData()->at(0).fEmmeansIndex = index; });
        EXPECT_EQ(none.Paths().back(), "EMMEANS Grand Mean ... <>") << index;
    }
    for (const std::size_t blocks : {19u, 20u}) {
        const Shown many([&](HRFTOutputStats& stats) {
            Warn(stats, {"kGLMM_C24"});
            stats.GetEmmeansData()->resize(blocks);
        });
        EXPECT_EQ(reading::Shown(many.Table("EMMEANS Grand Mean ... <>").Table().fpCaption),
                  blocks == 20 ? "kGLMM_C24" : "(none)");
    }
    EXPECT_EQ(Shown([](HRFTOutputStats& stats) { stats.DeleteEmmeansData(); }).Paths().back(),
              "Covariance Parameters > Random Effect");
}

TEST(RecordMeans, BrokenRecordsOfMeansAreNoTables) {
    const std::string one = "EMMEANS Effect ^1 ... <a * u> > ";
    const std::function<void(EmmeansData&)> breaks[] = {
        [](EmmeansData& data) { data.fEstimates.fvCoordinates.clear(); },
        [](EmmeansData& data) { data.fEstimates.fvCoordinates.pop_back(); },
        [](EmmeansData& data) { data.fEstimates.fvCoordinates[1].fvValues.pop_back(); },
        [](EmmeansData& data) { data.fEstimates.fvCoordinates[1].fField = "ghost"; },
    };
    for (const auto& change : breaks) {
        const Shown shown([&](HRFTOutputStats& stats) { change(stats.GetEmmeansData()->at(0)); });
        EXPECT_FALSE(shown.Has(one + "Estimates"));
        EXPECT_TRUE(shown.Has(one + "Simple Contrasts"));
    }
    const std::function<void(EmmeansData&)> further[] = {
        [](EmmeansData& data) { data.fContrasts.fvCoordinates.pop_back(); },
        [](EmmeansData& data) { data.fContrasts.fvCoordinates[2].fvValues.clear(); },
        [](EmmeansData& data) { data.fContrasts.fvCoordinates[0].fField = "ghost"; },
    };
    for (const auto& change : further) {
        const Shown shown([&](HRFTOutputStats& stats) { change(stats.GetEmmeansData()->at(0)); });
        EXPECT_FALSE(shown.Has(one + "Simple Contrasts"));
    }
    const Shown shorter(
        [](HRFTOutputStats& stats) { stats.GetEmmeansData()->at(0).fEstimates.fMean.fvValues.resize(1); });
    EXPECT_EQ(shorter.Table(one + "Estimates").Value({"1", "hi", "Mean"}), 1);
    EXPECT_EQ(shorter.Table(one + "Estimates").Value({"2", "hi", "Mean"}), SYSMIS);
}

}  // namespace
