#include "procedure/CommandRun.h"
#include "procedure/MIXFactory.h"
#include "tables/MIXComOutputData.h"
#include "tables/MIXOutput.h"
#include "tables/TreeReading.h"

#include <clocale>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace procedure_test;
using testing::ElementsAre;

/// A context on the first split of a command's data, before any fit.
struct Context {
    explicit Context(CommandRun& run)
        : fSpecs(run.CompletedSpecs()), fFactory(&fSpecs, run.Source(), &run.Procedure()) {
        fFactory.StartNewSplit(true);
        fFactory.ProcedureDataPass(true);
        fFactory.CompleteMetaData();
        fpData = std::make_unique<MIXComOutputData>(&fSpecs, &fFactory, run.Source(), &run.Procedure());
    }
    std::string SplitName() const { return fpData->GetSplitName(fFactory.GetInputAdapter()->GetSplitValues(), true); }

    MIXValidSpecs& fSpecs;
    MIXFactory fFactory;
    std::unique_ptr<MIXComOutputData> fpData;
};

void OneFactor(CommandRun& run) {
    run.Factors({1});
    run.FixedRows(2, {0, 1});
}

TEST(OutputContext, EncodesNumbersWhateverTheLocale) {
    CommandRun run;
    OneFactor(run);
    const Context context(run);
    const MIXComOutputData& data = *context.fpData;
    const QVTA_Format fixed{8, kFormatNumeric, 2};
    const QVTA_Format date{11, 20, 0};
    EXPECT_EQ(data.EncodeDouble(MCMV::Missing(), nullptr), ".");
    EXPECT_EQ(data.EncodeDouble(MCMV::Missing(), &fixed), ".");
    EXPECT_EQ(data.EncodeDouble(0.1, nullptr), "0.10000000000000001");
    EXPECT_EQ(data.EncodeDouble(1.5, &fixed), "1.50");
    EXPECT_EQ(data.EncodeDouble(123456789.25, &fixed), "123456789.25") << "wider than the format";
    EXPECT_LE(data.EncodeDouble(13e9, &date).size(), 11u);
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
    EXPECT_EQ(data.EncodeDouble(1.5, nullptr), "1.5");
    std::setlocale(LC_NUMERIC, before.c_str());
}

TEST(OutputContext, NamesSplitsAsTheUserWantsThemShown) {
    host::TableBuilder table;
    table.Numbers("y", {1, 2, 3});
    table.Numbers("a", {1, 2, 2});
    table.Texts("region", {"n", "n", "south"});
    table.Last().fLabel = "Region of the world";
    table.Last().fTextLabels = {{"n", "North"}};
    table.Numbers("year", {2020, 2020, 2021});
    host::DataOptions options;
    options.fSplitBy = {"region", "year"};
    CommandRun run(table, options);
    OneFactor(run);
    const Context context(run);
    host::DisplayOptions& display = host::OutputDocument::Current()->fDisplay;
    const char* const expected[] = {"region = n, year = 2020", "Region of the world = North, year = 2020",
                                    "region Region of the world = n North, year = 2020"};
    for (const int option : {1, 2, 3}) {
        display = {option, option, 1, 1};
        EXPECT_EQ(context.SplitName(), expected[option - 1]);
        EXPECT_EQ(context.fpData->GlobalDisplayOption(true, true), option - 1);
        EXPECT_EQ(context.fpData->GlobalDisplayOption(false, false), 0);
    }
    display = {1, 2, 3, 1};
    EXPECT_EQ(context.SplitName(), "region = North, year = 2020");
    EXPECT_EQ(context.fpData->GlobalDisplayOption(false, false), 2);

    CommandRun whole;
    OneFactor(whole);
    EXPECT_EQ(Context(whole).SplitName(), "");
}

TEST(OutputContext, CaptionsNameTheTargetTheTermsAndTheWeight) {
    for (const bool hasIntercept : {true, false}) {
        CommandRun run;
        run.Slot(1896, hasIntercept);
        run.Slot(1720, kWeight + 1);
        OneFactor(run);
        const Context context(run);
        BpPivotTable table = run.Procedure().PivotTable(BpString("t", false), BpString("t", false), true);
        context.fpData->AddTableCaption(table, false);
        context.fpData->AddTableCaption(table, true);
        context.fpData->GetFixParamMap()->CreateEffectMap(context.fFactory.GetGLMMSettings()->GetModelEffects());
        context.fpData->AddTableCaption(table, true);
        const auto notes = reading::Shown(static_cast<const output::Table&>(*table.Node()).fvNotes);
        if (hasIntercept) {
            EXPECT_THAT(notes, ElementsAre("Dep variable is ^1 <y>", "Reg weight is ^1 <weight>",
                                           "Dependent ^1 Model [%1:, ^1:]2 <y, (Intercept)>",
                                           "Dependent ^1 Model [%1:, ^1:]2 <y, (Intercept), a>"));
        } else {
            EXPECT_THAT(notes, ElementsAre("Dep variable is ^1 <y>", "Reg weight is ^1 <weight>",
                                           "Dependent ^1 Model <y>", "Dependent ^1 Model [%1:, ^1:]2 <y, a>"));
        }
    }
}

TEST(OutputContext, NotesTellOfMissingValuesWeightsAndFiles) {
    CommandRun run;
    OneFactor(run);
    run.Slot(1912, 1);
    MIXValidSpecs& specs = run.CompletedSpecs();
    specs.SetOutFModelFileName("Model File");
    MIXOutput output(&specs, run.Source(), &run.Procedure(), nullptr);
    output.AddToNotesTable();
    output.CompleteNotesTable();
    const reading::TableView notes(*host::OutputDocument::Current()->Notes());
    std::vector<std::string> rows;
    for (const auto* category : notes.Dimension(0).Categories()) {
        rows.push_back(reading::Shown(category->fpText) + ": " + reading::Shown(notes.Table().At({category})->fpText));
    }
    EXPECT_THAT(rows, testing::UnorderedElementsAre("Definition of Missing: MISSING is INCLUDE ...",
                                                    "Cases Used: Cases used ...", "Weight Handling: not applicable",
                                                    "Model File: Model File"));
}

}  // namespace
