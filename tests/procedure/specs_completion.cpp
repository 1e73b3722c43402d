#include "procedure/CommandRun.h"

#include <gtest/gtest.h>
#include <sstream>

namespace {

using namespace procedure_test;

host::DataOptions SplitByRegion() {
    host::DataOptions options;
    options.fSplitBy = {"region"};
    return options;
}

/// A model with every role: a and subject as factors, x, subjects of a random block shared with the repeated block.
void FillAllRoles(CommandRun& run) {
    run.Factors({kA, kSubject});
    run.Covariates({kX});
    run.FixedRows(1, {1, 0, 1});
    run.RandomBlock({1, 0, 0}, 17, {kSubject});
    run.Slot(1720, kZ + 1);
    run.Variables(552, 1200, {kSubject, kRegion});
    run.Variables(584, 1376, {kCoord});
    run.Variables(576, 1384, {kTime});
}

/// The adapter after its first pass over a split.
struct PassedAdapter {
    PassedAdapter(CommandRun& run, MIXValidSpecs& specs) : fAdapter(specs.GetVarValidSpecsPtr(), run.Source()) {
        fAdapter.SetSplitFile(run.Procedure(), true, true, true);
        fpCases = std::make_unique<ACAProcDataSourceIter>(fAdapter, true);
        NextSplit();
    }
    void NextSplit() {
        fpCases->NewSplit();
        while (fpCases->HasMore())
            fpCases->Next();
    }
    ACAInputAdapter fAdapter;
    std::unique_ptr<ACAProcDataSourceIter> fpCases;
};

TEST(SpecsCompletion, TheRecordHoldsModelVariablesFirstAndSharesSubjects) {
    host::DataOptions options;
    options.fWeight = "weight";
    CommandRun run(UsualData(), options);
    FillAllRoles(run);
    const MIXValidSpecs& specs = run.CompletedSpecs();
    const ACAVarValidSpecs& record = *specs.GetVarValidSpecsPtr();
    Ints hosts;
    for (int r = 0; r < record.GetNRecordVars(); ++r)
        hosts.push_back(record.GetQVTAVarIndex(r));
    EXPECT_EQ(hosts, (Ints{kY, kA, kSubject, kX, -1, kZ, kSubject, kRegion, kCoord, kTime}));
    EXPECT_EQ(specs.GetCompModelEffectList()[0].GetVarsIndicesForTheEffectInSetting(), (Ints{1, 3}));
    EXPECT_EQ(specs.GetCompRandomList()[0].GetEffects()[0].GetFactors(), Ints{1});
    EXPECT_EQ(specs.GetCompRandomList()[0].GetSubjectVars(), Ints{6});
    EXPECT_EQ(specs.GetCompRepeatedSpec().GetSubjectVars(), (Ints{6, 7}));
    EXPECT_EQ(specs.GetCompRepeatedSpec().GetEffects()[0].GetFactors(), Ints{9});
    EXPECT_EQ(specs.GetCompSpatVarInds(), Ints{8});
    EXPECT_FALSE(specs.GetKronCovType());
    EXPECT_EQ(specs.GetCompSettingsPtr()->GetFrequencyWeightVar(), 4);
    EXPECT_EQ(specs.GetCompSettingsPtr()->GetRegrWeightVar(), 5);
}

TEST(SpecsCompletion, UserMissingValuesAreForCategoriesAndCoordinatesOnly) {
    CommandRun run;
    FillAllRoles(run);
    run.Slot(1912, 1);
    const ACAVarValidSpecs& record = *run.CompletedSpecs().GetVarValidSpecsPtr();
    Flags invalid;
    for (int r = 0; r < record.GetNRecordVars(); ++r)
        invalid.push_back(record.GetUse(r).fUserMissingInvalid);
    // y a subject x | z subject region coord time
    EXPECT_EQ(invalid, (Flags{true, false, false, true, true, false, false, false, false}));
}

TEST(SpecsCompletion, AKroneckerMeasureIsARepeatedVariableSeenAgain) {
    CommandRun run;
    run.Slot(1680, 27);
    run.Variables(576, 1384, {kA, kTime});
    run.List(568, 1344, {1});
    run.Variables(560, 1360, {kTime});
    run.Slot(1328, run.Append({2}));
    run.Variables(552, 1200, {kSubject});
    const MIXValidSpecs& specs = run.CompletedSpecs();
    EXPECT_EQ(specs.GetVarValidSpecsPtr()->GetNRecordVars(), 4);
    EXPECT_TRUE(specs.GetKronCovType());
    const GLMMSettings& settings = *specs.GetCompSettingsPtr();
    EXPECT_EQ(settings.GetKronecker().GetEffects()[0].GetFactors(), Ints{3});
    EXPECT_EQ(settings.GetKronecker().GetCovarianceType(), 4);
    EXPECT_EQ(settings.GetRepeated().GetfvectorAforPaired(), Ints{0});
    EXPECT_EQ(settings.GetRepeated().GetfvectorBforPaired(), Ints{1});
    using Levels = std::pair<int, int>;
    EXPECT_EQ(settings.GetFactors(), (std::vector<Levels>{{2, 1}, {3, 1}, {3, 1}}));
}

TEST(SpecsCompletion, MeansCarryAllButTheReferenceType) {
    CommandRun run;
    run.Factors({kA, kB});
    run.Covariates({kX});
    const double list = run.Counts({2, 1});
    const double entry = run.Numbers({-1, 4.5, 0, 0});
    run.Chain(408, 1104, {{0, 2, list, 2, entry, 3, 4, 0, 0}});
    const MCEmmeansSpec& request = run.CompletedSpecs().GetCompEMMeansList().at(0);
    EXPECT_EQ(request.GetFactors(), (Ints{2, 1}));
    EXPECT_EQ(request.GetCompareFactors(), Ints{1});
    EXPECT_EQ(request.GetCovariates(), (std::vector<std::pair<int, double>>{{3, 4.5}}));
    EXPECT_EQ(request.GetContrastType(), 0);
    EXPECT_EQ(request.GetPAdjust(), 3);
    EXPECT_TRUE(request.GetReferenceType());
}

TEST(SpecsCompletion, SettingsTakeTheCommandsNumbers) {
    const Ints byCode = {1, 0, 1, 3, 1};
    for (int code = 0; code < 5; ++code) {
        CommandRun run;
        run.Slot(120, code);
        EXPECT_EQ(run.CompletedSpecs().GetCompSettingsPtr()->GetDegreesFreedomType(), byCode[code]) << code;
    }
    CommandRun run;
    run.SlotDouble(0, 90.0);
    run.SlotDouble(16, 1e-3);
    run.SlotDouble(64, 0.0);
    run.Slot(248, 3);
    const GLMMSettings& settings = *run.CompletedSpecs().GetCompSettingsPtr();
    EXPECT_TRUE(settings.GetUse4Mixed());
    EXPECT_EQ(settings.GetDependent(), 0);
    EXPECT_EQ(settings.GetConfidenceLevel(), 0.9);
    EXPECT_TRUE(settings.GetloglikelihoodCheck());
    EXPECT_FALSE(settings.GetparameterCheck());
    EXPECT_FALSE(settings.GethessianCheck());
    EXPECT_EQ(settings.GetMaxFisherIterNum(), 4);
    EXPECT_NE(settings.GetCancelPointer(), nullptr);
    CommandRun newton;
    EXPECT_EQ(newton.CompletedSpecs().GetCompSettingsPtr()->GetMaxFisherIterNum(), 0);
}

TEST(SpecsCompletion, OffsetAndFrequencyWeightGoToTheMasterSettingsAlone) {
    host::DataOptions options;
    options.fWeight = "weight";
    CommandRun run(UsualData(), options);
    MIXValidSpecs& specs = run.ReadSpecs();
    specs.SetOffsetType(1);
    specs.SetOffsetIndex(kX);
    specs.CompleteSpecs();
    PassedAdapter passed(run, specs);
    GLMMSettings settings;
    specs.CompleteSettings(&settings, &passed.fAdapter, 0);
    EXPECT_EQ(specs.GetCompSettingsPtr()->GetOffset(), 2);
    EXPECT_EQ(specs.GetCompSettingsPtr()->GetFrequencyWeightVar(), 1);
    EXPECT_EQ(settings.GetOffset(), -1);
    EXPECT_EQ(settings.GetFrequencyWeightVar(), -1);
}

TEST(SpecsCompletion, SplitFlagsGrowAsSplitsAreReached) {
    CommandRun run;
    run.Factors({kA});
    const double list = run.Counts({1});
    run.Chain(408, 1104, {{0, 1, list, 0, 0, 1, 0, 0, 0}});
    MIXValidSpecs& specs = run.CompletedSpecs();
    EXPECT_TRUE(specs.GetValidSplits().empty());
    GLMMSettings settings;
    specs.CompleteSettings(&settings, nullptr, -1);
    EXPECT_TRUE(specs.GetValidSplits().empty());
    PassedAdapter passed(run, specs);
    specs.CompleteSettings(&settings, &passed.fAdapter, 5);
    EXPECT_EQ(specs.GetValidSplits(), (Flags{false, false, false, false, false, true}));
    EXPECT_EQ(specs.GetEmmValidList()[4], Flags{false});
    EXPECT_EQ(specs.GetEmmValidList()[5], Flags{true});
    specs.CompleteSplits(3);
    EXPECT_EQ(specs.GetValidSplits().size(), 6u);
    specs.CompleteSplits(8);
    EXPECT_EQ(specs.GetValidSplits().size(), 8u);
    EXPECT_EQ(specs.GetEmmValidList()[7], Flags{false});
}

TEST(SpecsCompletion, AReferenceIsEncodedInEachSplitsOwnCategories) {
    CommandRun run(UsualData(), SplitByRegion());
    run.Factors({kA, kB});
    const double lists = run.Counts({1, 2});
    const double high = run.Texts("lo");
    const double longText = run.Texts("long");
    run.Chain(408, 1104,
              {{0, 2, lists, 1, 0, 1, 1, 2.0, 0},       // a against 2, which region n doesn't have
               {0, 2, lists, 2, 0, 1, 2, 2, high},      // b against "lo"
               {0, 2, lists, 2, 0, 1, 2, 4, longText},  // b against a text that no value can have
               {0, 2, lists, 2, 0, 1, 3, 0, 0},         // b against its first category
               {0, 2, lists, 2, 0, 1, 4, 0, 0}});       // b against its last category
    MIXValidSpecs& specs = run.CompletedSpecs();
    PassedAdapter passed(run, specs);
    GLMMSettings north, south;
    specs.CompleteSettings(&north, &passed.fAdapter, 0);
    passed.NextSplit();
    specs.CompleteSettings(&south, &passed.fAdapter, 1);
    EXPECT_EQ(specs.GetEmmValidList()[0], (Flags{false, true, false, true, true}));
    EXPECT_EQ(specs.GetEmmValidList()[1], (Flags{true, true, false, true, true}));
    ASSERT_EQ(north.GetEmmeans().size(), 5u);
    EXPECT_EQ(north.GetEmmeans()[0].GetRefCateg(), -1);
    EXPECT_EQ(south.GetEmmeans()[0].GetRefCateg(), 1);
    EXPECT_EQ(south.GetEmmeans()[1].GetRefCateg(), 1);  // "hi" sorts before "lo"
    EXPECT_EQ(south.GetEmmeans()[3].GetRefCateg(), 0);
    EXPECT_EQ(south.GetEmmeans()[4].GetRefCateg(), -1);
    using Levels = std::pair<int, int>;
    EXPECT_EQ(north.GetFactors()[0], (Levels{1, 1}));
    EXPECT_EQ(south.GetFactors()[0], (Levels{1, 2}));
}

TEST(SpecsCompletion, VariablesOutsideTheModelCarryTheirMarker) {
    host::DataOptions options;
    options.fWeight = "weight";
    CommandRun run(UsualData(), options);
    FillAllRoles(run);
    MIXValidSpecs& specs = run.ReadSpecs();
    specs.SetOffsetType(1);
    specs.SetOffsetIndex(kX);
    specs.CompleteSpecs();
    PassedAdapter passed(run, specs);
    MCVarList list;
    EXPECT_TRUE(specs.CompleteVarList(nullptr, &passed.fAdapter));
    EXPECT_TRUE(specs.CompleteVarList(&list, nullptr));
    EXPECT_EQ(list.Size(), 0);
    EXPECT_TRUE(specs.CompleteVarList(&list, &passed.fAdapter));
    std::vector<std::string> names;
    for (int r = 0; r < list.Size(); ++r)
        names.push_back(list.GetVarAt(r)->GetName());
    EXPECT_EQ(names, (std::vector<std::string>{"y", "a", "subject", "x", "weight", "@#$offset@#$_x",
                                               "@#$regweight@#$_z", "@#$randsubj@#$_subject", "@#$repsubj@#$_region",
                                               "@#$spatial@#$_coord", "@#$ordinal@#$_time"}));
    EXPECT_EQ(list.GetVarAt(0)->GetRole(), IMCVariable::kDependentRole);
    EXPECT_EQ(list.GetVarAt(4)->GetRole(), IMCVariable::kWeightRole);
    EXPECT_TRUE(list.GetVarAt(10)->IsCategorical());
    EXPECT_FALSE(list.GetVarAt(9)->IsCategorical());
    EXPECT_EQ(list.GetUnWeightedCount(), 12.0);
    EXPECT_TRUE(list.GetListwiseDeletion());
}

TEST(SpecsDump, NamesEveryFieldAndReachesTheFrontEndInPieces) {
    CommandRun run;
    FillAllRoles(run);
    run.Slot(1848, 2);
    run.Field(40, "model.xml");
    const double list = run.Counts({1});
    const double entry = run.Numbers({0, 0, 0, 0});
    run.Chain(408, 1104, {{0, 1, list, 0, entry, 1, 0, 0, 0}});
    const MIXValidSpecs& specs = run.CompletedSpecs();
    std::ostringstream stream;
    specs.Display(stream);
    const std::string text = stream.str();
    for (const char* part : {"MIXValidSpecs display start", "Number of model effects", "Display of random specs end",
                             "Offset variable is not defined", "Emmeans value string is not defined",
                             "Custom tests are not defined", "Saved variables not defined", "OUTFILE MODEL file name",
                             "OUTFILE STATJSON is not defined", "MIXValidSpecs display end"})
        EXPECT_NE(text.find(part), std::string::npos) << part;

    std::string sent;
    const auto before = host::SetFrontEnd([&](bool, const std::string& piece) {
        EXPECT_LE(piece.size(), 4096u);
        sent += piece;
    });
    specs.Display();
    host::SetFrontEnd(before);
    EXPECT_EQ(sent, text);
}

}  // namespace
