#include "app/CaseRunner.h"
#include "command/Keywords.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

/// What the pages show at a console happens: each command of a block ```console is run, in a copy of the examples that
/// all blocks of a page share, and ends as it is shown ("[exit 2]" behind it, else 0). The lines shown stand in what it
/// writes, blanks apart.
namespace {

namespace fs = std::filesystem;

std::string Squeezed(const std::string& text) {
    std::string squeezed;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\n' || c == '\t';
        if (!blank || (!squeezed.empty() && squeezed.back() != ' ')) squeezed += blank ? ' ' : c;
    }
    while (!squeezed.empty() && squeezed.back() == ' ')
        squeezed.pop_back();
    return squeezed;
}

struct Step {
    std::string fCommand;
    std::vector<std::string> fLines;
    int fExit = 0;
};

std::vector<Step> StepsOf(const std::string& page) {
    std::vector<Step> steps;
    std::istringstream lines(page);
    bool open = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```"))
            open = line == "```console";
        else if (open && line.starts_with("$ "))
            steps.push_back({line.substr(2), {}});
        else if (open && line.starts_with("[exit "))
            steps.back().fExit = std::stoi(line.substr(6));
        else if (open)
            steps.back().fLines.push_back(line);
    }
    return steps;
}

TEST(Pages, WhatTheyShowHappens) {
    int steps = 0;
    for (const auto& entry : fs::directory_iterator(HIERFIT_SOURCE_DIR "/docs")) {
        if (entry.path().extension() != ".md") continue;
        SCOPED_TRACE(entry.path().filename().string());
        const apptest::Scratch scratch;
        for (const auto& data : fs::directory_iterator(HIERFIT_SOURCE_DIR "/examples"))
            if (data.path().extension() == ".csv") fs::copy(data.path(), scratch.Path());
        for (const Step& step : StepsOf(apptest::ReadFile(entry.path()))) {
            const auto outcome = apptest::RunShell(step.fCommand, scratch.Path());
            EXPECT_EQ(outcome.fExit, step.fExit) << step.fCommand << '\n' << outcome.fErr;
            const std::string written = Squeezed(outcome.fOut + outcome.fErr);
            for (const std::string& line : step.fLines)
                EXPECT_NE(written.find(Squeezed(line)), std::string::npos) << step.fCommand << '\n' << line;
            ++steps;
        }
    }
    EXPECT_GE(steps, 30);
}

TEST(Pages, LinksLeadToPagesAndEveryPageIsListed) {
    const fs::path docs = HIERFIT_SOURCE_DIR "/docs";
    const std::string list = apptest::ReadFile(docs / "pages");
    for (const auto& entry : fs::directory_iterator(docs)) {
        if (entry.path().extension() != ".md") continue;
        EXPECT_THAT(list, testing::ContainsRegex("(^|\n)" + entry.path().stem().string() + " "));
        const std::string page = apptest::ReadFile(entry.path());
        const std::regex link("\\]\\(([^)#:]+)(#[^)]*)?\\)");
        for (std::sregex_iterator match(page.begin(), page.end(), link), end; match != end; ++match)
            EXPECT_TRUE(fs::exists(docs / (*match)[1].str())) << entry.path() << ": " << (*match)[0];
    }
}

TEST(Pages, EveryStructureIsOnItsPage) {
    const std::string page = apptest::ReadFile(HIERFIT_SOURCE_DIR "/docs/covariance.md");
    for (const auto& structure : command::StructureWords())
        EXPECT_THAT(page, testing::ContainsRegex("(^|[^A-Z0-9_])" + structure.fName + "([^A-Z0-9_]|$)"));
}

}  // namespace
