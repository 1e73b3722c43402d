#include "app/CaseRunner.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

/// Cases from the command line to the results, one file each. Lines, in order:
///   run COMMAND             what the shell runs, in a folder that holds the case's files
///   exit N                  the exit code of the last run
///   out TEXT, err TEXT      its standard output or error holds the text
///   lacks TEXT              its standard output does not hold the text
///   silent                  its standard output is empty
///   complains               its standard error is one line
///   same                    its standard output is that of the run before
///   json POINTER VALUE TOL  a figure of its standard output, to a relative tolerance
///   files NAMES             the files in the folder are these
///   --- NAME                the rest, up to the next such line, is a file
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class Case {
public:
    explicit Case(const std::string& text) {
        std::istringstream lines(text);
        std::string line, name, content;
        bool file = false;
        while (std::getline(lines, line)) {
            if (line.starts_with("--- ")) {
                if (file) fFolder.Write(name, content);
                file = true;
                name = line.substr(4);
                content.clear();
            } else if (file) {
                content += line + "\n";
            } else if (!line.empty() && line[0] != '#') {
                fvSteps.push_back(line);
            }
        }
        if (file) fFolder.Write(name, content);
    }

    void Run() {
        for (const std::string& step : fvSteps) {
            const std::size_t blank = step.find(' ');
            const std::string word = step.substr(0, blank);
            const std::string rest = blank == std::string::npos ? "" : step.substr(blank + 1);
            SCOPED_TRACE(step);
            Step(word, rest);
        }
    }

private:
    void Step(const std::string& word, const std::string& rest) {
        if (word == "run") {
            fBefore = fLast.fOut;
            fLast = apptest::RunShell(rest, fFolder.Path());
            CheckMessages();
        } else if (word == "exit") {
            EXPECT_EQ(fLast.fExit, std::stoi(rest)) << fLast.fErr;
        } else if (word == "out") {
            EXPECT_THAT(fLast.fOut, HasSubstr(rest));
        } else if (word == "err") {
            EXPECT_THAT(fLast.fErr, HasSubstr(rest));
        } else if (word == "lacks") {
            EXPECT_THAT(fLast.fOut, testing::Not(HasSubstr(rest)));
        } else if (word == "silent") {
            EXPECT_EQ(fLast.fOut, "");
        } else if (word == "complains") {
            EXPECT_EQ(std::count(fLast.fErr.begin(), fLast.fErr.end(), '\n'), 1) << fLast.fErr;
        } else if (word == "same") {
            EXPECT_EQ(fLast.fOut, fBefore);
        } else if (word == "json") {
            Figure(rest);
        } else if (word == "files") {
            std::string names;
            for (const std::string& name : fFolder.Names())
                names += (names.empty() ? "" : " ") + name;
            EXPECT_EQ(names, rest);
        } else {
            ADD_FAILURE() << "unknown step";
        }
    }

    /// Whoever pastes a message to "hierfit explain" is told what to do.
    void CheckMessages() const {
        std::istringstream lines(fLast.fErr);
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(!line.starts_with("hierfit: ") || apptest::ExplainedCode(line) != "") << line;
    }

    void Figure(const std::string& rest) const {
        std::istringstream words(rest);
        std::string pointer;
        double expected = 0, tolerance = 0;
        words >> pointer >> expected >> tolerance;
        const auto document = nlohmann::json::parse(fLast.fOut, nullptr, false);
        ASSERT_FALSE(document.is_discarded()) << fLast.fOut.substr(0, 500) << fLast.fErr;
        const nlohmann::json::json_pointer place(pointer);
        ASSERT_TRUE(document.contains(place)) << pointer;
        ASSERT_TRUE(document[place].is_number()) << document[place];
        EXPECT_NEAR(document[place].get<double>(), expected, tolerance * std::max(1.0, std::abs(expected)));
    }

    apptest::Scratch fFolder;
    std::vector<std::string> fvSteps;
    apptest::Outcome fLast;
    std::string fBefore;
};

std::vector<std::string> CaseNames() {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(HIERFIT_SOURCE_DIR "/tests/app/cases"))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

class EndToEnd : public testing::TestWithParam<std::string> {};

TEST_P(EndToEnd, Case) {
    Case(apptest::ReadFile(fs::path(HIERFIT_SOURCE_DIR "/tests/app/cases") / GetParam())).Run();
}

INSTANTIATE_TEST_SUITE_P(Cases, EndToEnd, testing::ValuesIn(CaseNames()), [](const auto& shown) {
    std::string name = shown.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
    return name;
});

}  // namespace
