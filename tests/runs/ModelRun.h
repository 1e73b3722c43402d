#pragma once

#include "app/CallBack.h"
#include "app/Variables.h"
#include "command/CommandParser.h"
#include "command/ParsedBlock.h"
#include "command/Specification.h"
#include "contracts/Host.h"
#include "host/data/DataFile.h"
#include "host/data/DataSource.h"
#include "host/documents/SourceMetaData.h"
#include "host/output/OutputDocument.h"
#include "procedure/MixDriver.h"
#include "results/HRFTOutputStats.h"
#include "results/HRFTParseOutXML.h"
#include "run/RunValue.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>

/// A command run in this process as the program runs it: from its text to the documents and the viewer's output.
namespace runs {

inline std::shared_ptr<host::Table> OpenData(const command::DataWishes& wishes) {
    host::DataOptions options;
    options.fNominal = wishes.fvNominal;
    options.fOrdinal = wishes.fvOrdinal;
    options.fWeight = wishes.fWeight;
    options.fSplitBy = wishes.fvSplitBy;
    options.fFilter = wishes.fFilter;
    const std::string file = std::string(HIERFIT_TEST_DATA "/") + wishes.fFile;
    const auto table = host::OpenDataFile(file, options);
    EXPECT_TRUE(table) << file;
    return *table;
}

class ModelRun {
public:
    /// The command names its data in tests/data.
    explicit ModelRun(const std::string& text) {
        command::CommandError error;
        const auto tree = command::ParseCommand(text, error);
        if (!tree) {
            ADD_FAILURE() << error.Message();
            return;
        }
        Run(*tree, OpenData(command::ReadDataWishes(*tree)));
    }
    /// The same on data that the test makes.
    ModelRun(const std::string& text, std::shared_ptr<host::Table> table) {
        command::CommandError error;
        const auto tree = command::ParseCommand(text, error);
        if (!tree) {
            ADD_FAILURE() << error.Message();
            return;
        }
        Run(*tree, std::move(table));
    }

    const run::RunValue& Value() const { return fValue; }
    const run::SplitResult& Result(std::size_t split = 0) const { return fValue.fvResults.at(split); }
    const run::Figures& Figures(std::size_t split = 0) const { return Result(split).fFigures; }
    const host::OutputDocument& Output() const { return fDocument; }
    ProcedureDataSource& Source() { return *fpSource; }

    /// A split's record, read anew from its documents.
    const HRFTOutputStats& Record(std::size_t split = 0) {
        const host::OutputScope output(fDocument);
        fpMetaData = std::make_unique<host::SourceMetaData>(*fpSource);
        fpRecord = std::make_unique<HRFTOutputStats>();
        fpRecord->SetMetaData(fpMetaData.get());
        BpProcedure procedure = fDocument.Procedure();
        HRFTParseOutXML reader(&procedure, fpSource.get(), fpRecord.get(), Result(split).fPMML, Result(split).fStatXML);
        EXPECT_TRUE(reader.Read());
        return *fpRecord;
    }

private:
    void Run(const command::CommandTree& tree, std::shared_ptr<host::Table> table) {
        command::CommandError error;
        const auto specification = command::Resolve(tree, app::VariablesOf(*table), error);
        if (!specification) {
            ADD_FAILURE() << error.Message();
            return;
        }
        fBlock = command::WriteBlock(*specification);
        command::FillRunValue(*specification, fValue);
        fValue.fThreads = 1;
        const host::OutputScope output(fDocument);
        const run::Scope run(fValue);
        fpSource = std::make_unique<ProcedureDataSource>(host::MakeDataSource(std::move(table)));
        fDocument.SetData(fpSource.get());
        BpProcedure procedure = fDocument.Procedure();
        EXPOSEMIX(fBlock.Slots(), fBlock.Texts());
        fDocument.SetHalf(output::Half::kClassic);
        MixDriver(fBlock.Cells(), procedure, *fpSource);
        app::CallBack(fValue, fDocument, *fpSource);
    }

    run::RunValue fValue;
    host::OutputDocument fDocument{"Mixed Model Analysis"};
    command::ParsedBlock fBlock;
    std::unique_ptr<ProcedureDataSource> fpSource;
    std::unique_ptr<host::SourceMetaData> fpMetaData;
    std::unique_ptr<HRFTOutputStats> fpRecord;
};

}  // namespace runs
