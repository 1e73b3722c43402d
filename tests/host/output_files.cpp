#include "contracts/HostFiles.h"
#include "host/data/DataSource.h"
#include "host/data/TableBuilder.h"
#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

namespace fs = std::filesystem;

class OutputFiles : public testing::Test {
protected:
    void SetUp() override {
        fs::remove_all(fFolder);
        fs::create_directories(fFolder);
        std::ofstream(fName) << "old";
        BEPesRepos::BEPesClear();
    }

    void Write(const std::string& name, const std::string& text, bool failed = false) {
        ExtNameStr file;
        file.SetGeneric(name);
        std::ofstream stream;
        file.Open(stream, 50);
        if (!stream.is_open()) return;
        stream << text << std::flush;
        fRun.fStreamFailed = failed;
        stream.close();
    }

    static std::string Read(const fs::path& name) {
        std::ostringstream text;
        text << std::ifstream(name).rdbuf();
        return text.str();
    }

    std::size_t Files() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(fFolder), fs::directory_iterator()));
    }

    std::vector<std::string> Errors() const {
        std::vector<std::string> errors;
        for (const auto& block : fDocument.Root().fvBlocks) {
            errors.push_back(dynamic_cast<const output::Message&>(*block).fpText->Show(host::Catalogue::Current()));
        }
        return errors;
    }

    run::RunValue fRun;
    run::Scope fRunScope{fRun};
    host::OutputDocument fDocument{"Linear Mixed Model"};
    host::OutputScope fScope{fDocument};
    fs::path fFolder = fs::path(testing::TempDir()) / "hierfit_output_files";
    std::string fName = (fFolder / "model.xml").string();
};

TEST_F(OutputFiles, AWholeDocumentTakesItsNameOnlyWhenItIsRegistered) {
    Write(fName, "new");
    EXPECT_EQ(Read(fName), "old");
    TestAndStoreToPes(fName.c_str(), 6, 1);
    EXPECT_EQ(Read(fName), "new");
    EXPECT_EQ(Files(), 1U);
    BEPesRepos::BEPesCheckError();
    EXPECT_TRUE(Errors().empty());
    EXPECT_FALSE(fRun.fFileFailed);
}

TEST_F(OutputFiles, ABadStreamLeavesTheOldFileAndOneErrorAndNothingElse) {
    Write(fName, "half", true);
    TestAndStoreToPes(fName.c_str(), 6, 1);
    EXPECT_EQ(Read(fName), "old");
    EXPECT_EQ(Files(), 1U);
    Write((fFolder / "none" / "x.xml").string(), "nowhere to go");
    BEPesRepos::BEPesCheckError();
    EXPECT_THAT(Errors(), testing::ElementsAre(testing::HasSubstr("model.xml could not be written: No space left"),
                                               testing::HasSubstr("x.xml could not be written: No such file")));
    EXPECT_TRUE(fRun.fFatal);
    EXPECT_TRUE(fRun.fFileFailed);
    BEPesRepos::BEPesCheckError();
    EXPECT_EQ(Errors().size(), 2U);
}

TEST_F(OutputFiles, ASplitsDocumentsHaveItsNumber) {
    fRun.fSplit = {{"site", "b"}};
    fRun.fSplitOrdinal = 1;
    Write(fName, "result");
    TestAndStoreToPes(fName.c_str(), 6, 1);
    EXPECT_EQ(Read(fFolder / "model_2.xml"), "result");
    EXPECT_EQ(Read(fName), "old");
    std::string model;
    const ProcedureDataSource source(host::MakeDataSource(*host::TableBuilder().Numbers("y", {1.0}).Finish()));
    QVTA_PMMLPooling pool(source, (fFolder / "m.pmml").string());
    pool.GetCurrentPMMLName(model, {});
    EXPECT_EQ(fs::path(model).filename(), "m_2.pmml");
    Write(model, "model");
    TestAndStoreToPes(model.c_str(), 6, 1);
    EXPECT_EQ(Read(model), "model");
    EXPECT_EQ(Files(), 3U);
}

TEST_F(OutputFiles, WhatIsNeverRegisteredIsRemovedAtTheEnd) {
    Write(fName, "half");
    EXPECT_EQ(Files(), 2U);
    BEPesRepos::BEPesCheckError();
    EXPECT_EQ(Files(), 1U);
    EXPECT_EQ(Read(fName), "old");
    ExtNameStr file;
    file.SetGeneric(fName);
    EXPECT_EQ(file.Access(0), kAccessOther);
    file.remove();
    EXPECT_EQ(file.Access(0), kAccessAbsent);
}

}  // namespace
