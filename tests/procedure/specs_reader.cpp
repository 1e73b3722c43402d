#include "procedure/CommandRun.h"

#include <gtest/gtest.h>

namespace {

using namespace procedure_test;

TEST(SpecsReader, EverySlotReachesItsField) {
    CommandRun run;
    run.SlotDouble(0, 250.0);
    run.SlotDouble(8, 0.008);
    run.SlotDouble(16, 0.016);
    run.SlotDouble(64, 0.064);
    run.SlotDouble(80, 0.08);
    run.Slot(104, kZ + 1);
    run.Slot(152, 2);
    run.Slot(240, 0);
    run.Slot(248, 7);
    run.Slot(280, 2);
    run.Slot(320, 1);
    run.Slot(344, 33);
    run.Slot(352, -2);
    run.Slot(656, 2);
    run.Slot(1720, kWeight + 1);
    run.Slot(1856, 1);
    run.Slot(1896, 0);
    run.Slot(1912, 8);
    const MIXValidSpecs& specs = run.ReadSpecs();
    EXPECT_EQ(specs.GetCILevelPct(), 250.0);
    EXPECT_EQ(specs.GetHConvCrit(), 0.008);
    EXPECT_EQ(specs.GetLConvCrit(), 0.016);
    EXPECT_EQ(specs.GetPConvCrit(), 0.064);
    EXPECT_EQ(specs.GetTolerance(), 0.08);
    EXPECT_EQ(specs.GetDependVar(), kZ);
    EXPECT_EQ(specs.GetHConvType(), 2);
    EXPECT_EQ(specs.GetPrintHistPar(), 0);
    EXPECT_EQ(specs.GetMaxFisherSteps(), 7);
    EXPECT_EQ(specs.GetEstMethod(), 3);
    EXPECT_EQ(specs.GetLConvType(), 2);
    EXPECT_EQ(specs.GetThetaEstType(), 0);
    EXPECT_EQ(specs.GetMaxIter(), 33);
    EXPECT_EQ(specs.GetMaxStepHalving(), -2);
    EXPECT_EQ(specs.GetPConvType(), 2);
    EXPECT_EQ(specs.GetRegrWeightIndex(), kWeight);
    EXPECT_EQ(specs.GetEffectAnalysisType(), 0);
    EXPECT_FALSE(specs.GetInterceptInModel());
    EXPECT_TRUE(specs.GetClassMissInclude());
}

TEST(SpecsReader, UnknownCodesLeaveDefaultsAndIterationsAreAtLeastOne) {
    for (const int code : {0, 4, -1}) {
        CommandRun run;
        for (const int slot : {152, 280, 656, 320, 1856, 1720})
            run.Slot(slot, slot == 1720 ? -code : code);
        run.Slot(344, code > 0 ? 0 : code);
        const MIXValidSpecs& specs = run.ReadSpecs();
        EXPECT_EQ(specs.GetHConvType(), 1);
        EXPECT_EQ(specs.GetLConvType(), 1);
        EXPECT_EQ(specs.GetPConvType(), 1);
        EXPECT_EQ(specs.GetThetaEstType(), 1);
        EXPECT_EQ(specs.GetEffectAnalysisType(), 1);
        EXPECT_EQ(specs.GetMaxIter(), 1);
    }
}

TEST(SpecsReader, EachPrintFlagSetsItsOptionAlone) {
    using Getter = bool (MIXValidSpecs::*)() const;
    const std::pair<int, Getter> options[] = {
        {1920, &MIXValidSpecs::GetPrintOptionCPS},          {1928, &MIXValidSpecs::GetPrintOptionCORB},
        {1936, &MIXValidSpecs::GetPrintOptionCOVB},         {1944, &MIXValidSpecs::GetPrintOptionTestCov},
        {1952, &MIXValidSpecs::GetPrintOptionVARIABLEINFO}, {1960, &MIXValidSpecs::GetPrintOptionGMatrix},
        {1968, &MIXValidSpecs::GetPrintOptionHISTORY},      {1976, &MIXValidSpecs::GetPrintOptionLMATRIX},
        {1984, &MIXValidSpecs::GetPrintOptionRMatrix},      {1992, &MIXValidSpecs::GetPrintOptionSOLUTION}};
    for (const auto& [slot, own] : options) {
        CommandRun run;
        run.Slot(slot, 1);
        const MIXValidSpecs& specs = run.ReadSpecs();
        for (const auto& [other, getter] : options)
            EXPECT_EQ((specs.*getter)(), other == slot) << slot << " " << other;
    }
}

TEST(SpecsReader, CovarianceCodesMapByKindOfBlock) {
    // By code, from 0 to 29; below 17 both kinds are the same.
    const Ints common = {1, 9, 0, 10, 2, 11, 12, 3, 13, 17, 14, 4, 5, 15, 7, 16};
    const Ints repeated = {8, 3, 8, 18, 19, 20, 21, 22, 23, 24, 25, 26};
    for (int code = 0; code <= 29; ++code) {
        CommandRun run;
        run.Factors({kA});
        run.RandomBlock({0}, code, {kSubject});
        run.Slot(1680, code);
        const MIXValidSpecs& specs = run.ReadSpecs();
        const bool isCommon = code >= 1 && code <= 16;
        const bool known = code >= 1 && code <= 28;
        EXPECT_EQ(specs.GetRandomList()[0].GetCovarianceType(), isCommon ? common[code - 1] : 8) << code;
        EXPECT_EQ(specs.GetRepeatedSpec().GetCovarianceType(), isCommon ? common[code - 1]
                                                               : known  ? repeated[code - 17]
                                                                        : 3)
            << code;
    }
}

TEST(SpecsReader, OutputFilesFollowTheSelector) {
    for (const int selector : {0, 1, 2, 3, 4, 5}) {
        CommandRun run;
        run.Slot(1848, selector);
        run.Field(40, "first file.xml");
        run.Field(295, "stat.json");
        run.Field(550, std::string(251, 'x') + ".xml");
        const MIXValidSpecs& specs = run.ReadSpecs();
        const bool none = selector < 1 || selector > 4;
        const bool model = selector == 2 || selector == 4;
        EXPECT_EQ(specs.GetOutFModelFileName(), !none && model ? "first file.xml" : "");
        EXPECT_EQ(specs.GetOutFParameterFileName(), !none && !model ? "first file.xml" : "");
        EXPECT_EQ(specs.GetOutFStatJSONFileName(), none ? "" : "stat.json");
        EXPECT_EQ(specs.GetOutFStatXMLFileName(), none ? "" : std::string(251, 'x') + ".xml");
        EXPECT_EQ(specs.GetOutFOptionPARAMETER(), !none && !model);
    }
}

TEST(SpecsReader, OneFileForTwoOutputsIsRefused) {
    const struct {
        const char *fFirst, *fJson, *fXml, *fShown, *fKeyword1, *fKeyword2;
    } cases[] = {{"a.xml", "b.json", "A.XML", "a.xml", "MODEL", "STATXML"},
                 {"a.xml", "A.xml", "c.xml", "a.xml", "MODEL", "STATJSON"},
                 {"", "r.out", "R.out", "R.out", "STATXML", "STATJSON"},
                 {"s", "s", "S", "s", "MODEL", "STATXML"}};
    for (const auto& each : cases) {
        CommandRun run;
        run.Slot(1848, 1);
        run.Field(40, each.fFirst);
        run.Field(295, each.fJson);
        run.Field(550, each.fXml);
        MIXValidSpecs& specs = run.Specs();
        EXPECT_FALSE(specs.SetMixedSpecs());
        EXPECT_EQ(specs.GetOutFParameterFileName() + specs.GetOutFStatXMLFileName() + specs.GetOutFStatJSONFileName(),
                  "");
        const Listener heard = run.Heard();
        EXPECT_EQ(heard.fvSaid, (std::vector<Said>{{3, "File ^1 shouldn't be used for both ^2 and ^3..."}}));
        const auto& message = dynamic_cast<const output::CompositeNode&>(*heard.fvTexts.at(0));
        const std::string expected[] = {each.fShown, each.fKeyword1, each.fKeyword2};
        for (int place = 0; place < 3; ++place)
            EXPECT_EQ(Key(message.fvPlaces.at(place).fvTexts.at(0)), expected[place]);
        EXPECT_TRUE(run.Source().FatalError());
    }
    CommandRun empty;
    empty.Slot(1848, 2);
    EXPECT_TRUE(empty.Specs().SetMixedSpecs());
}

TEST(SpecsReader, EffectRowsNestByLevelAndRepeatCovariates) {
    CommandRun run;
    run.Factors({kA, kB, kSubject});
    run.Covariates({kX, kZ});
    run.FixedRows(5, {0, 0, 0, 0,  0,    // the intercept
                      0, 2, 1, 0,  0,    // b in subject
                      1, 1, 0, 0,  0,    // a with b
                      0, 0, 0, 2,  0,    // x with x
                      1, 0, 2, -1, 3});  // subject in a, x nested, z three times
    const MIXValidSpecs& specs = run.ReadSpecs();
    const std::vector<MCModelEffect>& effects = specs.GetModelEffectList();
    ASSERT_EQ(effects.size(), 4u);
    EXPECT_EQ(effects[0].GetFactors(), (Ints{kSubject, kB}));
    EXPECT_EQ(effects[0].GetFactorLevels().size(), 2u);
    EXPECT_NE(effects[0].GetFactorLevels()[0], effects[0].GetFactorLevels()[1]);
    EXPECT_EQ(effects[0].GetVarsIndicesForTheEffectInSetting(), (Ints{kSubject, kB}));
    EXPECT_EQ(effects[1].GetFactorLevels()[0], effects[1].GetFactorLevels()[1]);
    EXPECT_EQ(effects[1].GetVarsIndicesForTheEffectInSetting(), (Ints{kA, kB}));
    EXPECT_EQ(effects[2].GetCovariateMult(kX), 2);
    EXPECT_EQ(effects[2].GetVarsIndicesForTheEffectInSetting(), (Ints{kX, kX}));
    EXPECT_EQ(effects[3].GetVarsIndicesForTheEffectInSetting(), (Ints{kA, kSubject, kX, kZ, kZ, kZ}));
    EXPECT_EQ(specs.GetCovarateNested(),
              (std::vector<Flags>{{false, false}, {false, false}, {false, false}, {true, false}}));
}

TEST(SpecsReader, AnInterceptRowAloneIsNoEffect) {
    CommandRun run;
    run.Factors({kA});
    run.FixedRows(1, {0});
    EXPECT_EQ(run.ReadSpecs().GetNModelEffect(), 0);
}

TEST(SpecsReader, RandomTablesAreIndexedByRow) {
    CommandRun run;
    run.Factors({kA, kB});
    run.RandomRows({0, 0, 1, 0, /**/ 0, 1, 1, 1, 0, 0}, {-2, 3}, {0, 1}, {17, 99, 15, 8, 1},
                   {{kSubject}, {}, {kRegion, kSubject}, {}, {}});
    const MIXValidSpecs& specs = run.ReadSpecs();
    const std::vector<GLMMRandomSpec>& blocks = specs.GetRandomList();
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(specs.GetNRandEffects(), (Ints{2, 3}));
    EXPECT_EQ(specs.GetRandCovarNested().size(), 5u);
    EXPECT_TRUE(blocks[0].GetEffects()[0].IsIntercept());
    EXPECT_EQ(blocks[1].GetEffects()[0].GetFactors(), Ints{kB});
    EXPECT_EQ(blocks[0].GetCovarianceType(), 8);
    EXPECT_EQ(blocks[1].GetCovarianceType(), 7);
    EXPECT_EQ(blocks[0].GetSubjectVars(), Ints{kSubject});
    EXPECT_EQ(blocks[1].GetSubjectVars(), (Ints{kRegion, kSubject}));
    EXPECT_EQ(blocks[1].GetIndex(), 1);
    EXPECT_FALSE(blocks[0].GetComputeEBLUPs());
    EXPECT_TRUE(blocks[1].GetComputeEBLUPs());
    EXPECT_TRUE(specs.GetUseStatJSON());
}

TEST(SpecsReader, PairingIsReadForKroneckerTypesAlone) {
    for (const int code : {25, 26, 27, 28}) {
        CommandRun run;
        run.Slot(1680, code);
        run.Variables(576, 1384, {kTime, kA});
        run.List(568, 1344, {2});
        run.Variables(560, 1360, {kTime});
        run.Slot(1328, run.Append({1}));
        run.Variables(552, 1200, {kSubject});
        const MIXValidSpecs& specs = run.ReadSpecs();
        const bool kronecker = code != 25;
        const GLMMRandomSpec& block = specs.GetRepeatedSpec();
        EXPECT_EQ(block.GetfvectorAforPaired(), kronecker ? Ints{1} : Ints{});
        EXPECT_EQ(block.GetfvectorBforPaired(), kronecker ? Ints{0} : Ints{});
        EXPECT_EQ(block.GetEffects().at(0).GetFactors(), (Ints{kTime, kA}));
        EXPECT_EQ(block.GetSubjectVars(), Ints{kSubject});
        EXPECT_EQ(block.GetIndex(), -1);
    }
}

TEST(SpecsReader, ATextCoordinateIsRefused) {
    CommandRun run;
    run.Variables(584, 1376, {kCoord, kB, kTime});
    MIXValidSpecs& specs = run.Specs();
    EXPECT_FALSE(specs.SetMixedSpecs());
    EXPECT_EQ(specs.GetSpatVarInds(), (Ints{kCoord, kB}));
    EXPECT_EQ(run.Messages(), (std::vector<Said>{{3, "Not numeric REPEATED SPCOORDS ^1 ..."}}));
}

TEST(SpecsReader, SavedVariablesTakeNameLabelAndFormat) {
    CommandRun run;
    std::string name = "residuals of the fit";
    name.resize(64, ' ');
    const int types[] = {3, 1, 6, 7};  // the residual, the fixed prediction, and both degrees of freedom
    run.Slot(592, 4);
    for (int i = 0; i < 4; ++i)
        run.Slot(1736 + 8 * i, types[i]);
    run.Slot(1792, static_cast<std::int64_t>(run.Texts(name)));
    const MIXValidSpecs& specs = run.ReadSpecs();
    EXPECT_EQ(specs.GetSaveVarNames(), (std::vector<std::string>{"residuals of the fit", "", "", ""}));
    EXPECT_EQ(specs.GetSaveScoreTypes(), (Ints{6, 10, 19, 9}));
    EXPECT_EQ(specs.GetMaxObsAdded(), 4);
    EXPECT_EQ(specs.GetSaveVarLabels().at(0), host::Catalogue::Current().Message(15902));
    EXPECT_EQ(specs.GetSaveVarLabels().at(1), host::Catalogue::Current().Message(15904));
    EXPECT_FALSE(specs.GetSaveVarLabels().at(3).empty());
    const QVTA_Format widened{40, 5, 16};
    const QVTA_Format fixed{8, 5, 2};
    EXPECT_EQ(specs.GetSaveVarFormats(), (std::vector<QVTA_Format>{widened, widened, fixed, fixed}));
}

TEST(SpecsReader, MeansRecordsKeepTheReferenceAsItStands) {
    CommandRun run;
    run.Factors({kA, kB});
    run.Covariates({kX, kZ});
    const double factors = run.Counts({2, 1});
    const double text = run.Texts("0.50");
    const double free = run.Numbers({0, 7, 0, 0, 0, 7, 0, 0});
    const double fixed = run.Numbers({-1, 0.5, 4, text, 0, 9, 0, 0});
    const double shortRef = run.Texts("lo");
    const double longRef = run.Texts("lo!");
    run.Chain(408, 1104,
              {{0, 2, factors, 0, free, 1, 0, 0, 0},
               {0, 2, factors, 2, fixed, 2, 1, 1.5, 0},
               {0, 2, factors, 1, free, 3, 2, 2, shortRef},
               {0, 2, factors, 1, free, 9, 2, 3, longRef},
               {0, 2, factors, 1, free, 0, 3, 0, 0},
               {0, 1, factors, 1, free, 0, 4, 0, 0}});
    const MIXValidSpecs& specs = run.ReadSpecs();
    const std::vector<MCEmmeansSpec>& means = specs.GetEMMeansList();
    ASSERT_EQ(means.size(), 6u);
    EXPECT_EQ(means[0].GetFactors(), (Ints{kB, kA}));
    EXPECT_EQ(means[5].GetFactors(), Ints{kB});
    EXPECT_TRUE(means[0].GetCompareFactors().empty());
    EXPECT_EQ(means[1].GetCompareFactors(), Ints{kA});
    EXPECT_EQ(means[2].GetCompareFactors(), Ints{kB});
    using Covariate = std::pair<int, double>;
    EXPECT_EQ(means[0].GetCovariates(), (std::vector<Covariate>{{kX, MCMV::Missing()}, {kZ, MCMV::Missing()}}));
    EXPECT_EQ(means[1].GetCovariates(), (std::vector<Covariate>{{kX, 0.5}, {kZ, MCMV::Missing()}}));
    EXPECT_EQ(specs.GetEmmFixCovStr()[0], (std::vector<std::string>{"", ""}));
    EXPECT_EQ(specs.GetEmmFixCovStr()[1], (std::vector<std::string>{"0.50", ""}));
    const Ints adjustments = {0, 1, 3, 0, 0, 0};
    const Ints contrasts = {6, 0, 0, 0, 0, 0};
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(means[i].GetPAdjust(), adjustments[i]) << i;
        EXPECT_EQ(means[i].GetContrastType(), contrasts[i]) << i;
        EXPECT_EQ(means[i].GetReferenceType(), i != 5) << i;
        EXPECT_EQ(specs.GetContrastPairList()[i].first != nullptr, i >= 1 && i <= 3) << i;
    }
    EXPECT_EQ(specs.GetContrastPairList()[1].first->fNumber, 1.5);
    EXPECT_EQ(specs.GetContrastString(0), "");
    EXPECT_EQ(specs.GetContrastString(2), "lo");
    EXPECT_EQ(specs.GetEmmRCLongList(), (Flags{false, false, false, true, false, false}));
}

TEST(SpecsReader, CustomTestsReadEffectsAndAllColumns) {
    CommandRun run;
    run.Factors({kA, kB});
    run.FixedRows(3, {0, 0, 1, 0, 0, 1});
    run.RandomBlock({1, 0}, 17, {kSubject});
    const double values = run.Numbers({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    const double withIntercept = run.Counts({1, 2, 0});
    const double without = run.Counts({0, 0, 2});
    const double random = run.Counts({2});
    const double noRandom = run.Counts({0});
    const double label = run.Texts("a label");
    const double k = run.Numbers({0.25, 0.5});
    run.Chain(616, 1120,
              {{0, 2, withIntercept, random, values, 7, label, k},
               {0, 1, without, noRandom, values, 0, 0, 0},
               {1.0, 2, 3, 2, values, 0, 0, 0}});
    MIXValidSpecs& specs = run.CompletedSpecs();
    ASSERT_EQ(specs.GetNCustomTests(), 3);
    const CustomTest& mixed = specs.GetCustomTests()[0];
    EXPECT_EQ(mixed.GetLabel(), "a label");
    EXPECT_EQ(mixed.GetKMatrix(), (Doubles{0.25, 0.5}));
    ASSERT_EQ(mixed.GetRows().size(), 2u);
    const CustomTest::Row& second = mixed.GetRows()[1];
    EXPECT_TRUE(second.fMixed);
    EXPECT_EQ(second.fFixed.GetType(), 0);
    EXPECT_EQ(second.fFixed.GetNEffects(), 2);
    EXPECT_EQ(second.fFixed.GetFirstValue(), 6);
    using Pair = std::pair<int, Doubles>;
    EXPECT_EQ(second.fFixed.GetEffectPairs(), (std::vector<Pair>{{0, {7, 8}}}));
    EXPECT_EQ(second.fRandom.GetType(), 3);
    EXPECT_EQ(second.fRandom.GetRandomPairs().at(0).second, (Doubles{9, 10}));
    EXPECT_EQ(second.fRandom.GetRandomPairs().at(0).first.GetFactors(), Ints{kA});
    // The engine's copy holds the same rows on record indices.
    const auto& engineRow = specs.GetCompCustomTests().at(0).GetRows()[1].fRandom;
    EXPECT_EQ(engineRow.GetRandomPairs().at(0).first.GetFactors(), Ints{specs.GetCompFactorList()[0]});

    const CustomTest::Row& plain = specs.GetCustomTests()[1].GetRows().at(0);
    EXPECT_FALSE(plain.fMixed);
    EXPECT_EQ(plain.fFixed.GetType(), 1);
    EXPECT_EQ(plain.fFixed.GetEffectPairs(), (std::vector<Pair>{{1, {1, 2}}}));
    EXPECT_TRUE(specs.GetCustomTests()[1].GetKMatrix().empty());

    const CustomTest::Row& columns = specs.GetCustomTests()[2].GetRows().at(1);
    EXPECT_EQ(columns.fFixed.GetType(), 2);
    EXPECT_EQ(columns.fFixed.GetAllValues(), (Doubles{6, 7, 8}));
    EXPECT_EQ(columns.fRandom.GetAllValues(), (Doubles{9, 10}));
}

TEST(SpecsReader, WithoutAnInterceptTheFirstCountIsTheFirstEffects) {
    CommandRun run;
    run.Factors({kA, kB});
    run.Slot(1896, 0);
    run.FixedRows(2, {1, 0, 0, 1});
    const double counts = run.Counts({2, 1});
    run.Chain(616, 1120, {{0, 1, counts, 0, run.Numbers({1, 2, 3}), 0, 0, 0}});
    const CustomTest::Row& row = run.ReadSpecs().GetCustomTests().at(0).GetRows().at(0);
    EXPECT_EQ(row.fFixed.GetType(), 1);
    using Pair = std::pair<int, Doubles>;
    EXPECT_EQ(row.fFixed.GetEffectPairs(), (std::vector<Pair>{{0, {1, 2}}, {1, {3}}}));
}

}  // namespace
