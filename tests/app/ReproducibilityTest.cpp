// The same data and command give the same bytes, whatever machine they meet: its number of cores, its language, its
// clock, and for what is printed the order of the rows.
#include "app/CaseRunner.h"

#include <gtest/gtest.h>

namespace {

using apptest::ReadFile;
using apptest::RunShell;
using apptest::Scratch;

/// Everything that a run writes, one file after the other.
std::string Everything(const std::string& settings, const std::string& arguments) {
    const Scratch folder;
    const apptest::Outcome outcome =
        RunShell(settings + " hierfit " + arguments + " --model-out m.pmml --save s.csv --charts-out charts -o result",
                 folder.Path());
    EXPECT_EQ(outcome.fExit, 0) << settings << outcome.fErr;
    return RunShell("cat result m.pmml s.csv charts/*", folder.Path()).fOut;
}

std::string GalleryRun(const std::string& name, const std::string& format) {
    return "run \"$EXAMPLES/gallery/" + name + ".hierfit\" --quiet --data \"$EXAMPLES/" +
           (name == "seizures"   ? "epil"
            : name == "repeated" ? "obrienkaiser"
                                 : name) +
           ".csv\" --format " + format;
}

class Reproducible : public testing::TestWithParam<const char*> {};

TEST_P(Reproducible, OnEveryMachine) {
    for (const char* format : {"html", "json"}) {
        const std::string run = GalleryRun(GetParam(), format);
        const std::string first = Everything("env TZ=UTC LC_ALL=C", run + " --threads 1");
        ASSERT_GT(first.size(), 10'000u);
        EXPECT_TRUE(Everything("env TZ=Asia/Kathmandu LC_ALL=C", run + " --threads 2") == first) << format;
        EXPECT_TRUE(Everything("env TZ=UTC " + apptest::GermanShell(), run + " --threads 7") == first) << format;
    }
}

INSTANTIATE_TEST_SUITE_P(Gallery, Reproducible, testing::Values("oats", "repeated", "seizures", "bacteria"));

/// Sums change in their last bits with the order of rows, and categories come in the order of the data; where a model
/// has none but its subjects, what is shown stays as it was.
TEST(ReproducibleText, FromShuffledRows) {
    const Scratch folder;
    const auto fit = [&](const std::string& data) {
        const std::string shown = RunShell(
                                      "hierfit fit 'reaction ~ days + (days | subject)' --quiet "
                                      "--df kenward-roger --data " +
                                          data,
                                      folder.Path())
                                      .fOut;
        // The first subject is another one.
        const std::size_t first = shown.find("Data for First Subject");
        return shown.substr(0, first) + shown.substr(shown.find("\n\n", first));
    };
    const std::string ordered = fit("\"$EXAMPLES/sleepstudy.csv\"");
    ASSERT_GT(ordered.size(), 1'000u);
    for (const char* seed : {"1", "2", "3"}) {
        const std::string shuffle =
            std::string("awk -v s=") + seed +
            " 'BEGIN { srand(s) } NR == 1 { print \"0 \" $0; next } { print 1 + rand() \" \" $0 }' "
            "\"$EXAMPLES/sleepstudy.csv\" | sort -n | cut -d' ' -f2- > shuffled.csv; ";
        RunShell(shuffle, folder.Path());
        EXPECT_EQ(fit("shuffled.csv"), ordered);
    }
}

}  // namespace
