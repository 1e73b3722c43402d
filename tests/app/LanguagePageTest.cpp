#include "app/CaseRunner.h"
#include "command/Keywords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

namespace {

const std::string kSource = HIERFIT_SOURCE_DIR;

std::string Page() {
    return apptest::ReadFile(kSource + "/docs/command-language.md");
}

TEST(LanguagePage, ItsExamplesAreRightForTheirData) {
    const std::string page = Page();
    const std::string open = "```hierfit\n";
    int examples = 0;
    for (std::size_t at = page.find(open); at != std::string::npos; at = page.find(open, at + 1)) {
        const std::size_t begin = at + open.size();
        const apptest::Scratch scratch;
        scratch.Write("command", page.substr(begin, page.find("```", begin) - begin));
        const auto outcome =
            apptest::RunShell("hierfit check '" + (scratch.Path() / "command").string() + "'", kSource);
        EXPECT_EQ(outcome.fExit, 0) << outcome.fErr << apptest::ReadFile(scratch.Path() / "command");
        ++examples;
    }
    EXPECT_GE(examples, 5);
}

TEST(LanguagePage, NamesEveryKeyword) {
    const std::string page = Page();
    for (const auto& subcommand : command::SubcommandWords()) {
        EXPECT_THAT(page, testing::HasSubstr("### " + subcommand.fName));
        for (const auto& parameter : subcommand.fParameters) {
            EXPECT_THAT(page, testing::HasSubstr(parameter.fName)) << subcommand.fName;
            for (const std::string& word : parameter.fWords)
                EXPECT_THAT(page, testing::HasSubstr(word)) << parameter.fName;
        }
    }
}

// Every line is run as it stands, from the place where the page says its data are.
TEST(TargetsPage, ItsExamplesAreFitted) {
    std::istringstream lines(apptest::ReadFile(kSource + "/docs/targets.md"));
    std::string line;
    bool open = false;
    int examples = 0;
    while (std::getline(lines, line)) {
        if (line.starts_with("```")) {
            open = line == "```sh";
            continue;
        }
        if (!open) continue;
        const auto outcome = apptest::RunShell(line + " --format json", kSource);
        EXPECT_EQ(outcome.fExit, 0) << line << '\n' << outcome.fErr;
        EXPECT_THAT(outcome.fOut, testing::HasSubstr("\"converged\": true")) << line;
        EXPECT_THAT(outcome.fOut, testing::HasSubstr("\"likelihood\": \"pseudo\"")) << line;
        ++examples;
    }
    EXPECT_GE(examples, 8);
}

}  // namespace
