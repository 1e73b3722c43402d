// Runs in which one call fails: for memory, or to the system for a file, a map or a thread. Wherever that is, the
// program ends by itself in one message, or as if nothing had happened, and every file is whole: the old or the new
// one.
#include "app/CaseRunner.h"

#include <algorithm>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <sstream>

namespace {

using apptest::Outcome;
using apptest::ReadFile;
using apptest::RunShell;
using apptest::Scratch;

struct Job {
    const char* fName;
    const char* fBefore;   ///< what is run once, undisturbed
    const char* fCommand;  ///< arguments of hierfit
    std::vector<std::string> fvFiles;
};

const Job kJobs[] = {
    {"Files",
     "cp \"$EXAMPLES/sleepstudy.csv\" d.csv",
     "fit 'reaction ~ days + (days | subject)' --data d.csv --quiet --format html -o r.html --save s.csv "
     "--model-out m.pmml",
     {"r.html", "s.csv", "m.pmml"}},
    {"Counts",
     "cp \"$EXAMPLES/epil.csv\" d.csv",
     "fit 'y ~ trt + base + (1 | subject)' --data d.csv --quiet --family poisson --emmeans trt --contrast pairwise "
     "--format json -o r.json --charts-out .",
     {"r.json"}},
    {"Scoring",
     "cp \"$EXAMPLES/sleepstudy.csv\" d.csv; hierfit fit 'reaction ~ days + (days | subject)' --data d.csv --quiet "
     "--model-out m.pmml",
     "predict m.pmml --data d.csv --quiet -o s.csv",
     {"s.csv"}},
};

class FaultyRun {
public:
    FaultyRun(const Job& job, std::string kind) : fJob(job), fKind(std::move(kind)) {
        EXPECT_EQ(RunShell(job.fBefore, fFolder.Path()).fExit, 0);
        const Outcome listed = Run("FAULT_PLACES=places");
        EXPECT_EQ(listed.fExit, 0) << listed.fErr;
        for (const std::string& file : job.fvFiles)
            fvWhole.push_back(ReadFile(fFolder.Path() / file));
        std::istringstream places(ReadFile(fFolder.Path() / "places"));
        for (long place; places >> place;)
            fvPlaces.push_back(place);
    }

    /// Some fifty of the places where a call can fail, or as many as HIERFIT_FAULTS in the environment says.
    std::vector<long> Places() const {
        const char* const wanted = std::getenv("HIERFIT_FAULTS");
        const std::size_t step = fvPlaces.size() / (wanted ? std::stoul(wanted) : 50) + 1;
        std::vector<long> places;
        for (std::size_t i = 0; i < fvPlaces.size(); i += step)
            places.push_back(fvPlaces[i]);
        return places;
    }

    std::size_t PlaceCount() const { return fvPlaces.size(); }

    void FailAt(long call) {
        SCOPED_TRACE(fKind + " call " + std::to_string(call));
        for (const std::string& file : fJob.fvFiles)
            fFolder.Write(file, "old");
        const Outcome outcome = Run("FAULT_AT=" + std::to_string(call));
        const bool failed = outcome.fExit != 0;
        EXPECT_THAT(outcome.fExit, testing::AnyOf(0, 1, 2, 3)) << outcome.fErr;
        EXPECT_EQ(std::count(outcome.fErr.begin(), outcome.fErr.end(), '\n'), failed ? 1 : 0) << outcome.fErr;
        if (failed) {
            EXPECT_THAT(outcome.fErr, testing::StartsWith("hierfit: "));
        }
        for (std::size_t i = 0; i < fvWhole.size(); ++i) {
            const std::string content = ReadFile(fFolder.Path() / fJob.fvFiles[i]);
            const bool whole = content == fvWhole[i] || (failed && (content == "old" || IsMessage(content)));
            EXPECT_TRUE(whole) << fJob.fvFiles[i] << ": " << content.substr(0, 200) << "\n" << outcome.fErr;
        }
        for (const std::string& name : fFolder.Names())
            EXPECT_EQ(name.find(".part"), std::string::npos) << name;
    }

private:
    /// Results of a run that failed are a document too, with the message in the place of the tables.
    static bool IsMessage(const std::string& content) {
        return content.ends_with("</html>\n") || (content.starts_with("{") && content.ends_with("}\n"));
    }

    Outcome Run(const std::string& variables) const {
        return RunShell("timeout 60 env FAULT_KIND=" + fKind + " " + variables +
                            " LD_PRELOAD=" HIERFIT_FAULTY_CALLS " hierfit " + fJob.fCommand,
                        fFolder.Path());
    }

    const Job& fJob;
    std::string fKind;
    Scratch fFolder;
    std::vector<std::string> fvWhole;
    std::vector<long> fvPlaces;
};

class Faults : public testing::TestWithParam<std::tuple<int, const char*>> {};

TEST_P(Faults, EndInOneMessage) {
    if (apptest::kSanitized) GTEST_SKIP() << "the sanitizer takes the place of malloc itself";
    FaultyRun run(kJobs[std::get<0>(GetParam())], std::get<1>(GetParam()));
    const std::vector<long> places = run.Places();
    EXPECT_GT(places.size(), 10);
    for (const long place : places)
        run.FailAt(place);
    std::cout << places.size() << " of " << run.PlaceCount() << " places\n";
}

/// Less and less room, and a model with a matrix of several thousand rows: a message, never a crash and no waiting.
TEST(Limits, LittleMemoryEndsInAMessage) {
    if (apptest::kSanitized) GTEST_SKIP() << "the sanitizer maps more than any limit";
    const Scratch folder;
    RunShell(
        "awk 'BEGIN { srand(3); print \"y,x,g,h\"; for (i = 0; i < 20000; ++i) "
        "print rand() + i % 7 \",\" rand() \",\" i % 1000 \",\" int(rand() * 500) }' > d.csv",
        folder.Path());
    int started = 0;
    for (const int kilobytes : {60'000, 80'000, 100'000, 140'000, 200'000, 300'000, 400'000}) {
        const Outcome outcome = RunShell("ulimit -v " + std::to_string(kilobytes) +
                                             "; timeout 120 hierfit fit 'y ~ x + (x | g) + (1 | h)' --data d.csv "
                                             "--quiet -o r.txt",
                                         folder.Path());
        constexpr int kNotLoaded = 127;  // the system had no room for the program's libraries
        if (outcome.fExit == kNotLoaded) continue;
        ++started;
        EXPECT_THAT(outcome.fExit, testing::AnyOf(0, 1)) << kilobytes << "\n" << outcome.fErr;
        if (outcome.fExit == 1) {
            EXPECT_THAT(outcome.fErr, testing::HasSubstr("not enough memory"));
        }
    }
    EXPECT_GT(started, 3);
}

INSTANTIATE_TEST_SUITE_P(Jobs, Faults, testing::Combine(testing::Range(0, 3), testing::Values("memory", "system")),
                         [](const auto& shown) {
                             return std::string(kJobs[std::get<0>(shown.param)].fName) + "_" + std::get<1>(shown.param);
                         });

}  // namespace
