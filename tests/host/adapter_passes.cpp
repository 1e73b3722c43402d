#include "contracts/Adapter.h"
#include "host/DataSupport.h"
#include "host/data/DataSource.h"
#include "run/RunValue.h"

#include <cstring>
#include <gmock/gmock.h>

using namespace testing_data;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Rows = std::vector<std::vector<double>>;

/// A run's adapter side on a table: the variables declared, passes walked as the factory walks them.
struct Walk {
    explicit Walk(std::shared_ptr<host::Table> table) : fSource(host::MakeDataSource(table)), fScope(fRun) {}

    int Use(const std::string& name, bool categorical, bool userMissingInvalid = true) {
        return fSpecs.AddVariable(fSource.FindVarIndex(name.c_str(), 0), categorical, false, userMissingInvalid, true);
    }
    void Start() {
        fAdapter = std::make_unique<ACAInputAdapter>(&fSpecs, fSource);
        if (fSource.GetSplitCount() > 0) fAdapter->SetSplitFile(fProcedure, true, true, true);
        fIter = std::make_unique<ACAProcDataSourceIter>(*fAdapter, true);
    }

    /// The rest of the present split, the hidden values too.
    Rows Records() {
        Rows rows;
        while (fIter->HasMore()) {
            const Record* record = fIter->Next();
            rows.emplace_back(record->fpValues, record->fpValues + fAdapter->GetRecordSize());
        }
        return rows;
    }
    std::string Category(int variable, int code) {
        int error = 7;
        const OBS* cells = fAdapter->DecodeCatValue(variable, code, error);
        if (cells == nullptr) return error != 0 ? "none" : "silent";
        const QVTA_Variable& host = fSource.GetVariable(fSpecs.GetQVTAVarIndex(variable));
        return fSpecs.ConvertObsToString(cells, host.GetFormat(), false);
    }

    ProcedureDataSource fSource;
    run::RunValue fRun;
    run::Scope fScope;
    BpProcedure fProcedure{nullptr};
    ACAVarValidSpecs fSpecs{true, true, true};
    std::unique_ptr<ACAInputAdapter> fAdapter;
    std::unique_ptr<ACAProcDataSourceIter> fIter;
};

TEST(Adapter, EncodesAndDropsListwise) {
    host::DataOptions options;
    options.fWeight = "w";
    options.fMissing = {"-9"};
    Walk walk(Read("y,f,x,w\n1,b,5,1\n2,a,,1\n3,a,6,2.4\n4,,7,1\n,c,1,1\n5,b,-9,1\n6,b,8,0.4\n7,b,9,\n8,a,-0.0,0.5\n",
                   options));
    const int y = walk.Use("y", false), f = walk.Use("f", true), x = walk.Use("x", false);
    const int w = walk.fSpecs.SetWeightVar();
    walk.fSpecs.SetMultRecode(true);
    const int again = walk.Use("f", true);
    walk.Start();
    EXPECT_EQ(walk.fIter->GetFailReason(), 0);
    ASSERT_TRUE(walk.fIter->NewSplit());
    EXPECT_EQ(walk.Records(), (Rows{{1, 0, 5, 1, 0}, {3, 1, 6, 2, 1}, {8, 1, 0, 1, 1}}));
    EXPECT_EQ(walk.fAdapter->GetNCases(), 3);
    EXPECT_EQ(walk.fAdapter->GetNInvalidCases(), 6);
    EXPECT_EQ(walk.fAdapter->GetWeightNCases(), 4);
    EXPECT_EQ(walk.fAdapter->GetWeightNInvalidCases(), 4);
    EXPECT_EQ(walk.fAdapter->GetSplitRecordCount(), 3);
    EXPECT_EQ(walk.fAdapter->GetRecordCatVarSize(f), 2);
    EXPECT_EQ(walk.fAdapter->GetRecordCatVarSize(x), 0);
    EXPECT_EQ(walk.fSpecs.GetQVTAVarIndex(w), -1);
    EXPECT_EQ(walk.fSpecs.GetRecVarIndex(walk.fSource.FindVarIndex("f", 0)), f);
    EXPECT_EQ(y, 0);

    walk.fAdapter->ReorderRecordCats(f, true);
    EXPECT_EQ(walk.Category(f, 0), "a");
    EXPECT_EQ(walk.Category(again, 0), "b") << "a further use keeps its own order";
    EXPECT_EQ(walk.Category(f, 2), "none");
    EXPECT_FALSE(walk.fIter->NewSplit());
    EXPECT_EQ(walk.fIter->NewPass(), 0);
    ASSERT_TRUE(walk.fIter->NewSplit());
    EXPECT_EQ(walk.Records(), (Rows{{1, 1, 5, 1, 0}, {3, 0, 6, 2, 1}, {8, 0, 0, 1, 1}}));
    bool error = false;
    OBS cell;
    std::memcpy(cell.fText, "c       ", 8);
    walk.fAdapter->EncodeRecordCatValue(f, &cell, error, false);
    EXPECT_TRUE(error) << "a category of dropped cases only is no category";
    std::memcpy(cell.fText, "b       ", 8);
    EXPECT_EQ(walk.fAdapter->EncodeRecordCatValue(f, &cell, error, false), 1);
    EXPECT_FALSE(error);
}

TEST(Adapter, UserMissingCategoriesCountWhereTheyAreIncluded) {
    host::DataOptions options;
    options.fMissing = {"-9", "DK"};
    for (const bool invalid : {true, false}) {
        Walk walk(Read("y,f,g\n1,-9,a\n2,1,DK\n3,1,a\n", options));
        walk.Use("y", false);
        walk.Use("f", true, invalid);
        walk.Use("g", true, invalid);
        walk.Start();
        walk.fIter->NewSplit();
        EXPECT_EQ(walk.Records().size(), invalid ? 1u : 3u);
    }
}

// Three splits, scattered over the file: the second has no usable record, the third lacks a category.
TEST(Adapter, EachSplitHasItsOwnCategoriesForTheWholeRun) {
    host::DataOptions options;
    options.fSplitBy = {"s"};
    Walk walk(Read("s,y,f\n3,1,z\n1,2,q\n2,,q\n3,3,z\n1,4,p\n2,,z\n1,5,z\n", options));
    walk.Use("y", false);
    const int f = walk.Use("f", true);
    walk.Start();
    ASSERT_TRUE(walk.fAdapter->GetSplitFile());
    EXPECT_EQ(walk.fAdapter->GetSplitCount(), 0);

    std::vector<int> sizes;
    std::vector<double> valid, invalid;
    while (walk.fIter->NewSplit()) {
        walk.Records();
        walk.fAdapter->ReorderRecordCats(f, false);
        sizes.push_back(walk.fAdapter->GetRecordCatVarSize(f));
        valid.push_back(walk.fAdapter->GetNCases());
        invalid.push_back(walk.fAdapter->GetNInvalidCases());
    }
    EXPECT_THAT(sizes, ElementsAre(3, 0, 1));
    EXPECT_THAT(valid, ElementsAre(3, 0, 2));
    EXPECT_THAT(invalid, ElementsAre(0, 2, 0));
    EXPECT_EQ(walk.fAdapter->GetSplitCount(), 3);

    walk.fIter->NewPass();
    EXPECT_EQ(walk.fAdapter->GetSplitCount(), 0);
    ASSERT_TRUE(walk.fIter->NewSplit());
    EXPECT_EQ(walk.fRun.fSplitName, "s = 1");
    EXPECT_EQ(walk.fRun.fSplitOrdinal, 0);
    EXPECT_EQ(walk.fAdapter->GetSplitValues()[0]->fNumber, 1.0);
    EXPECT_EQ(walk.Category(f, 0), "z") << "known before a record is read";
    EXPECT_EQ(walk.Records(), (Rows{{2, 1}, {4, 2}, {5, 0}}));
    ASSERT_TRUE(walk.fIter->NewSplit());
    EXPECT_FALSE(walk.fIter->HasMore());
    EXPECT_EQ(walk.fAdapter->GetSplitRecordCount(), 0);
    ASSERT_TRUE(walk.fIter->NewSplit());
    EXPECT_EQ(walk.fAdapter->GetSplitCount(), 3);
    bool error = false;
    OBS cell;
    std::memcpy(cell.fText, "q       ", 8);
    walk.fAdapter->EncodeRecordCatValue(f, &cell, error, false);
    EXPECT_TRUE(error);
    EXPECT_FALSE(walk.fIter->NewSplit());
    walk.fAdapter->ResetSplitNoIter();
    walk.fAdapter->ChangeSplitNoIter();
    EXPECT_EQ(walk.fAdapter->GetRecordCatVarSize(f), 3);
}

TEST(Adapter, HiddenValuesTravelBehindTheRecord) {
    Walk walk(Read("y,n,g,off,t\n3,10,b,0.5,no\n4,,b,1,yes\n5,12,,1,yes\n6,11,a,,yes\n7,20,a,2,yes\n"));
    walk.fRun.fTarget.fDistribution = run::Distribution::kBinomial;
    walk.fRun.fTarget.fTrialsVar = 1;
    walk.fRun.fTarget.fOffsetVar = 3;
    walk.fRun.fResidualGroupVar = 2;
    walk.fRun.fvRandomGroupVars = {-1, 2};
    walk.Use("y", false);
    walk.Start();
    EXPECT_EQ(walk.fAdapter->GetRecordSize(), 5);
    walk.fIter->NewSplit();
    walk.Records();
    walk.fIter->NewPass();
    walk.fIter->NewSplit();
    EXPECT_THAT(walk.fRun.fHidden.fvResidualGroupTexts, ElementsAre("a", "b"));
    EXPECT_THAT(walk.fRun.fHidden.fvRandomGroupTexts, ElementsAre(IsEmpty(), ElementsAre("a", "b")));
    EXPECT_THAT(walk.fRun.fHidden.fRandomGroups, ElementsAre(-1, 4));
    const Rows rows = walk.Records();
    EXPECT_EQ(rows, (Rows{{3, 10, 0.5, 1, 1}, {7, 20, 2, 0, 0}}));
}

TEST(Adapter, ACategoricalTargetStandsAsItsCode) {
    Walk walk(Read("x,t\n1,no\n2,yes\n3,\n4,maybe\n"));
    walk.fRun.fTarget.fDistribution = run::Distribution::kNominal;
    const int t = walk.Use("t", false);
    walk.Use("x", false);
    walk.Start();
    walk.fIter->NewSplit();
    walk.Records();
    EXPECT_THAT(walk.fRun.fTargetCategories, ElementsAre("maybe", "no", "yes"));
    EXPECT_EQ(walk.Category(t, 2), "yes");
    walk.fIter->NewPass();
    walk.fIter->NewSplit();
    EXPECT_EQ(walk.Records(), (Rows{{1, 1}, {2, 2}, {0, 4}}));
}

TEST(Adapter, ScoresGoToTheRowsOfTheFile) {
    host::DataOptions options;
    options.fSplitBy = {"s"};
    options.fFilter = "y != 4";
    Walk walk(Read("s,y\n2,1\n1,2\n2,\n1,4\n1,5\n", options));
    walk.Use("y", false);
    walk.Start();
    unsigned index = 0;
    walk.fSource.MakeVariable(0, index);
    walk.fIter->NewPass(true);
    walk.fIter->SetLastPass();
    while (walk.fIter->NewSplit())
        while (walk.fIter->HasMore()) {
            walk.fIter->GetProcDS()->SetColumnValue(static_cast<int>(index), 10 * walk.fIter->Current()->fpValues[0]);
            walk.fIter->Next();
        }
    const double* saved = walk.fSource.Impl().Saved(0).Cells();
    EXPECT_THAT(std::vector<double>(saved, saved + 5), ElementsAre(10, 20, testing::IsNan(), testing::IsNan(), 50));
}

TEST(Adapter, DataWithoutCasesOrRecordsSaysSo) {
    host::DataOptions none;
    none.fFilter = "y > 100";
    Walk empty(Read("y\n1\n", none));
    empty.Use("y", false);
    empty.Start();
    EXPECT_EQ(empty.fIter->GetFailReason(), 1);
    EXPECT_FALSE(empty.fIter->NewSplit());

    Walk missing(Read("y,t\n,a\n,b\n"));
    missing.Use("y", false);
    missing.Start();
    EXPECT_EQ(missing.fIter->GetFailReason(), 0);
    ASSERT_TRUE(missing.fIter->NewSplit());
    EXPECT_FALSE(missing.fIter->HasMore());
    EXPECT_EQ(missing.fIter->Next(), nullptr);
    EXPECT_EQ(missing.fIter->Current(), nullptr);

    Walk text(Read("t\na\n"));
    text.Use("t", false);
    text.Start();
    ASSERT_TRUE(text.fIter->NewSplit());
    EXPECT_FALSE(text.fIter->HasMore()) << "a text is no number";
}

TEST(Adapter, TheEngineSeesTheVariablesOfASplitAfterIt) {
    host::DataOptions options;
    options.fSplitBy = {"s"};
    options.fWeight = "w";
    Walk walk(Read("s,y,f,k,w\n1,1,20,b,1\n1,2,3,a,1\n2,5,9,c,1\n", options));
    walk.Use("y", false);
    const int f = walk.Use("f", true), k = walk.Use("k", true);
    walk.fSpecs.SetWeightVar();
    walk.Start();
    walk.fIter->NewSplit();
    walk.Records();
    walk.fAdapter->ReorderRecordCats(f, true);
    MCVarList list;
    ACAVarListMetaData writer(list, &walk.fSpecs, walk.fSource, walk.fAdapter.get(), true);
    EXPECT_TRUE(writer.AddRecVariable(0, false, IMCVariable::kDependentRole, nullptr, ""));
    EXPECT_TRUE(writer.AddRecVariable(f, true, IMCVariable::kPredictorRole, nullptr, ""));
    EXPECT_TRUE(writer.AddRecVariable(k, true, IMCVariable::kPredictorRole, nullptr, "@#$randsubj@#$_k"));
    EXPECT_TRUE(writer.AddRecWeightVar(3, IMCVariable::kWeightRole, IMCVariable::kRoundToNearest, ""));
    EXPECT_FALSE(writer.AddRecVariable(9, false, IMCVariable::kPredictorRole, nullptr, ""));
    walk.fIter->NewSplit();
    walk.Records();
    ASSERT_EQ(list.Size(), 4);
    EXPECT_EQ(list.GetVarAt(0)->GetMeasurementLevel(), IMCVariable::kScaleLevel);
    EXPECT_EQ(list.GetVarAt(1)->GetMeasurementLevel(), IMCVariable::kNominalLevel);
    ASSERT_EQ(list.GetVarAt(1)->GetCategoryCount(), 2);
    EXPECT_EQ(list.GetVarAt(1)->GetCategoryText(0), "3");
    EXPECT_EQ(list.GetVarAt(2)->GetCategoryText(0), "b");
    EXPECT_TRUE(list.GetVarAt(2)->IsString());
    EXPECT_EQ(list.GetVarAt(2)->GetName(), "@#$randsubj@#$_k");
    EXPECT_EQ(list.GetVarAt(3)->GetName(), "w");
}

}  // namespace
