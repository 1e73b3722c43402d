#include "app/CaseRunner.h"
#include "app/CsvText.h"
#include "app/PmmlEvaluator.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

/// Saved variables, model files and scoring by them, from the command line.
namespace {

using apptest::Csv;
using apptest::GermanShell;
using apptest::PmmlEvaluator;
using apptest::RunShell;
using apptest::Scratch;
using testing::HasSubstr;

constexpr double kReadBack = 1e-12;  // a model file holds every double exactly
constexpr double kLibm = 1e-12;      // the same formula with other calls of the mathematics library

const std::string kAll = " --scores fxpred,pred,sefixp,sepred,dffixp,dfpred";
const char* const kNames[] = {"FXPRED_1", "PRED_1", "SEFIXP_1", "SEPRED_1", "DFFIXP_1", "DFPRED_1"};

struct Model {
    const char* fName;
    const char* fData;
    const char* fArguments;
};

void PrintTo(const Model& model, std::ostream* stream) {
    *stream << model.fName;
}

std::string Data(const Model& model) {
    return std::string(HIERFIT_TEST_DATA "/") + model.fData;
}

std::string FitLine(const Model& model) {
    return std::string("hierfit fit ") + model.fArguments + " --data '" + Data(model) +
           "' --save saved.csv --model-out model.pmml --format json" + kAll;
}

const Model kModels[] = {
    {"subjects", "sleepstudy.csv", "'Reaction ~ Days + (Days | Subject)'"},
    {"adjusted", "sleepstudy.csv", "'Reaction ~ Days + (Days || Subject)' --df kenward-roger"},
    {"nested", "oats.csv", "'yield ~ nitro*Variety + (1 | Block/Variety)'"},
    {"crossed", "penicillin.csv", "'diameter ~ 1 + (1 | plate) + (1 | sample)'"},
    {"structured", "orthodont.csv", "'distance ~ age*Sex' --repeated 'age | Subject' --rcov AR1"},
    {"binary", "bacteria.csv", "'y ~ trt + week + (1 | ID)' --family binomial"},
    {"events", "cbpp.csv", "'incidence ~ factor(period) + (1 | herd)' --family binomial --trials size"},
    {"counts", "epil.csv", "'y ~ trt*lbase + (1 | subject) + offset(lage)' --family poisson"},
    {"dispersed", "epil.csv", "'y ~ trt*lbase + (1 | subject)' --family negbin"},
    {"dispersed_crossed", "epil.csv", "'y ~ trt*lbase + (1 | subject) + (1 | period)' --family negbin"},
    {"gamma", "sleepstudy.csv", "'Reaction ~ Days + (1 | Subject)' --family gamma"},
    {"power", "sleepstudy.csv", "'Reaction ~ Days + (1 | Subject)' --family gamma --link 'power(-1)'"},
    {"inverse", "sleepstudy.csv", "'Reaction ~ Days + (1 | Subject)' --family inverse-gaussian"},
    {"probit", "bacteria.csv", "'y ~ trt + week + (1 | ID)' --family binomial --link probit"},
    {"loglog", "bacteria.csv", "'y ~ trt + (1 | ID)' --family binomial --link nloglog --target-reference last"},
    {"ordinal", "wine.csv", "'rating ~ temp + contact + (1 | judge)' --family ordinal"},
    {"ordinal_cauchit", "wine.csv", "'rating ~ temp + contact + offset(bottle)' --family ordinal --link cauchit"},
    {"nominal", "verbagg6.csv", "'resp ~ Gender + mode + (1 | id)' --family nominal"},
};

class EveryTarget : public testing::TestWithParam<Model> {
protected:
    Scratch fFolder;
};

TEST_P(EveryTarget, AModelFileScoresLikeTheRunThatWroteIt) {
    const apptest::Outcome fit = RunShell(FitLine(GetParam()), fFolder.Path());
    ASSERT_EQ(fit.fExit, 0) << fit.fErr;
    for (const std::string& settings : {std::string("LC_ALL=C "), GermanShell()}) {
        const apptest::Outcome predict =
            RunShell(settings + "hierfit predict model.pmml --data '" + Data(GetParam()) + "'", fFolder.Path());
        ASSERT_EQ(predict.fExit, 0) << predict.fErr;
        EXPECT_EQ(predict.fErr, "");
        const Csv saved(apptest::ReadFile(fFolder.Path() / "saved.csv"));
        const Csv scored(predict.fOut);
        ASSERT_EQ(saved.Rows(), scored.Rows());
        for (std::size_t i = 0; i < saved.Rows(); ++i) {
            for (const char* name : kNames) {
                const double expected = saved.Number(i, name);
                if (std::isnan(expected))
                    EXPECT_EQ(scored.Text(i, name), "") << name << " " << i;
                else
                    EXPECT_NEAR(scored.Number(i, name), expected, kReadBack * std::max(1.0, std::abs(expected)))
                        << name << " " << i;
            }
        }
        EXPECT_FALSE(std::isnan(saved.Number(0, "PRED_1")));
        EXPECT_FALSE(std::isnan(saved.Number(0, "SEPRED_1")));
    }
    if (GermanShell().empty()) GTEST_SKIP() << "the locale de_DE.UTF-8 can't be made: install the package locales";
    const std::string model = apptest::ReadFile(fFolder.Path() / "model.pmml");
    const std::string saved = apptest::ReadFile(fFolder.Path() / "saved.csv");
    ASSERT_EQ(RunShell(GermanShell() + FitLine(GetParam()), fFolder.Path()).fExit, 0);
    EXPECT_TRUE(apptest::ReadFile(fFolder.Path() / "model.pmml") == model);
    EXPECT_TRUE(apptest::ReadFile(fFolder.Path() / "saved.csv") == saved);
}

TEST_P(EveryTarget, AnyConsumerScoresTheFixedPart) {
    const apptest::Outcome fit = RunShell(FitLine(GetParam()), fFolder.Path());
    ASSERT_EQ(fit.fExit, 0) << fit.fErr;
    const PmmlEvaluator model(apptest::ReadFile(fFolder.Path() / "model.pmml"));
    ASSERT_TRUE(model.IsScorable());
    const Csv saved(apptest::ReadFile(fFolder.Path() / "saved.csv"));
    const bool several = std::string(GetParam().fArguments).find("ordinal") != std::string::npos ||
                         std::string(GetParam().fArguments).find("nominal") != std::string::npos;
    const bool binary = std::string(GetParam().fData) == "bacteria.csv";
    for (std::size_t i = 0; i < saved.Rows(); ++i) {
        const double expected = saved.Number(i, "FXPRED_1");
        double found = 0.0;
        if (several) {
            // The prediction is the most probable category: its number, or of texts its place.
            const std::map<std::string, double> shares = model.Probabilities(saved.Row(i));
            double sum = 0.0, best = -1.0;
            int place = 0;
            for (const auto& [category, share] : shares) {
                ++place;
                sum += share;
                if (share <= best) continue;
                best = share;
                found = std::isnan(Csv::ToNumber(category)) ? place : Csv::ToNumber(category);
            }
            EXPECT_NEAR(sum, 1.0, kLibm);
        } else if (binary) {
            const bool last = std::string(GetParam().fArguments).find("last") != std::string::npos;
            found = model.Probabilities(saved.Row(i)).at(last ? "0" : "1");
        } else {
            found = model.Mean(saved.Row(i));
        }
        EXPECT_NEAR(found, expected, kLibm * std::max(1.0, std::abs(expected))) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Models, EveryTarget, testing::ValuesIn(kModels),
                         [](const auto& model) { return std::string(model.param.fName); });

TEST(SavedData, KeepsItsRowsAsTheyAreSpelt) {
    const Scratch folder;
    folder.Write("d.csv",
                 "\xEF\xBB\xBFg,\"the, y\",x\r\n"
                 "a,1.50,1\r\n"
                 "b,\"2,\r\n\",2\r\n"
                 "\r\n"
                 "b,,3\r\n"
                 "a,3.25,9\r\n"
                 "b,4,4\r\n"
                 "a,2.125,007\r\n"
                 "b,6.5,8\r\na,3,4\r\nb,5,5\r\na,2.5,2\r\nb,4.5,7");
    folder.Write("d.json", R"({"fields": [{"name": "the, y", "type": "number"}], "missingValues": ["", "2,\r\n"]})");
    const apptest::Outcome run = RunShell(
        "hierfit fit '`the, y` ~ x' --data d.csv --data-schema d.json --filter 'x < 9' --split-by g "
        "--save s.csv --scores 'pred(`the, prediction`)'",
        folder.Path());
    EXPECT_EQ(run.fExit, 0) << run.fErr;
    const std::string text = apptest::ReadFile(folder.Path() / "s.csv");
    EXPECT_THAT(text, testing::StartsWith("g,\"the, y\",x,\"the, prediction\"\r\na,1.50,1,"));
    EXPECT_THAT(text, HasSubstr("\nb,\"2,\r\n\",2,\r\nb,,3,\r\na,3.25,9,\r\nb,4,4,"));
    EXPECT_THAT(text, HasSubstr("\na,2.125,007,"));
    EXPECT_THAT(text, testing::EndsWith("\r\n"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 13);
}

// The fitted values of the best known example, printed in the vignette of lme4 1.1 (Bates, Maechler, Bolker and Walker
// 2015, J. Statistical Software 67(1)): subject 308 has the effects 2.258565 and 9.198976 on 251.405105 and 10.467286.
TEST(SavedData, HasThePublishedPredictions) {
    const Scratch folder;
    const apptest::Outcome run = RunShell("hierfit fit 'Reaction ~ Days + (Days | Subject)' --data '" HIERFIT_TEST_DATA
                                          "/sleepstudy.csv' --save s.csv",
                                          folder.Path());
    ASSERT_EQ(run.fExit, 0) << run.fErr;
    const Csv saved(apptest::ReadFile(folder.Path() / "s.csv"));
    for (int day = 0; day < 10; ++day) {
        const double fixed = 251.405105 + 10.467286 * day;
        const double whole = fixed + 2.258565 + 9.198976 * day;
        EXPECT_NEAR(saved.Number(day, "FXPRED_1"), fixed, 1e-5);
        EXPECT_NEAR(saved.Number(day, "PRED_1"), whole, 1e-3);
        EXPECT_NEAR(saved.Number(day, "RESID_1"), saved.Number(day, "Reaction") - saved.Number(day, "PRED_1"), 1e-9);
    }
}

// Standard errors of new predictions against the textbook's: of a balanced one-way layout, the population mean has
// variance (s2/n + s_a2)/k, and its degrees of freedom are k - 1 (Searle, Casella and McCulloch 1992, section 3.6).
TEST(Predict, KnowsSubjectsFromStrangers) {
    const Scratch folder;
    folder.Write("d.csv", "g,y\n1,2\n1,4\n2,9\n2,7\n3,1\n3,2\n4,8\n4,12\n");
    folder.Write("n.csv", "g,y\n1,\n7,\n,\n");
    ASSERT_EQ(RunShell("hierfit fit 'y ~ 1 + (1 | g)' --data d.csv --model-out m.pmml", folder.Path()).fExit, 0);
    const apptest::Outcome run = RunShell("hierfit predict m.pmml --data n.csv", folder.Path());
    EXPECT_EQ(run.fExit, 0);
    const Csv scored(run.fOut);
    // Means of the groups 3, 8, 1.5, 10: between mean square 37.0625*... by hand below.
    const double means[] = {3, 8, 1.5, 10};
    const double grand = (3 + 8 + 1.5 + 10) / 4;
    double between = 0.0;
    for (const double mean : means)
        between += 2 * (mean - grand) * (mean - grand) / 3;
    const double within = (2.0 + 2.0 + 0.5 + 8.0) / 4;
    const double shrinkage = 1 - within / between;
    EXPECT_NEAR(scored.Number(0, "FXPRED_1"), grand, 1e-6);
    EXPECT_NEAR(scored.Number(0, "SEFIXP_1"), std::sqrt(between / 8), 1e-5);
    EXPECT_NEAR(scored.Number(0, "DFFIXP_1"), 3.0, 1e-3);
    EXPECT_NEAR(scored.Number(0, "PRED_1"), grand + shrinkage * (3 - grand), 1e-5);
    EXPECT_EQ(scored.Text(1, "PRED_1"), scored.Text(1, "FXPRED_1"));
    EXPECT_EQ(scored.Text(1, "SEPRED_1"), scored.Text(1, "SEFIXP_1"));
    EXPECT_EQ(scored.Text(2, "PRED_1"), scored.Text(2, "FXPRED_1"));
    EXPECT_THAT(run.fErr, HasSubstr("in 2 rows the subject is one that the model has not seen"));
}

TEST(Predict, TellsWhatDoesNotFitByKindAndCount) {
    const Scratch folder;
    const std::string fit = "hierfit fit 'distance ~ age*Sex + (1 | Subject)' --data '" HIERFIT_TEST_DATA
                            "/orthodont.csv' --model-out m.pmml --quiet";
    ASSERT_EQ(RunShell(fit, folder.Path()).fExit, 0);
    folder.Write("n.csv", "age,Sex,Subject\n8,Male,M01\n9,Other,M01\n9,else,M02\n,Male,M01\n8,Female,F99\n");
    const std::string predict = "hierfit predict m.pmml --data n.csv";
    const apptest::Outcome run = RunShell(predict + " -o out.csv", folder.Path());
    EXPECT_EQ(run.fExit, 0);
    EXPECT_EQ(run.fOut, "");
    EXPECT_THAT(run.fErr, HasSubstr("in 2 rows the category of \"Sex\" is one that the model has not seen; the "
                                    "prediction is missing (\"Other\", \"else\")"));
    EXPECT_THAT(run.fErr, HasSubstr("in 1 row the value of \"age\" is missing"));
    EXPECT_THAT(run.fErr, HasSubstr("in 1 row the subject is one that the model has not seen"));
    const Csv scored(apptest::ReadFile(folder.Path() / "out.csv"));
    EXPECT_EQ(scored.Text(1, "FXPRED_1"), "");
    EXPECT_EQ(scored.Text(3, "PRED_1"), "");
    EXPECT_NE(scored.Text(4, "PRED_1"), "");

    const apptest::Outcome strict = RunShell(predict + " --strict -o strict.csv", folder.Path());
    EXPECT_EQ(strict.fExit, 3);
    EXPECT_EQ(std::count(strict.fErr.begin(), strict.fErr.end(), '\n'), 1);
    EXPECT_FALSE(std::filesystem::exists(folder.Path() / "strict.csv"));

    folder.Write("n.csv", "age,Subject\nten,1\n8,M01\n");
    const apptest::Outcome changed = RunShell(predict, folder.Path());
    EXPECT_EQ(changed.fExit, 1);
    EXPECT_THAT(changed.fErr, HasSubstr("in 2 rows the column \"Sex\" is not there"));
    EXPECT_THAT(changed.fErr, HasSubstr("in 2 rows the column \"age\" has texts where the model has numbers"));
}

TEST(Predict, ASplitsModelKeepsToItsSplit) {
    const Scratch folder;
    ASSERT_EQ(RunShell("hierfit fit 'distance ~ age + (1 | Subject)' --split-by Sex --data '" HIERFIT_TEST_DATA
                       "/orthodont.csv' --model-out m.pmml --save s.csv" +
                           kAll,
                       folder.Path())
                  .fExit,
              0);
    EXPECT_EQ(folder.Names(), (std::vector<std::string>{"m_1.pmml", "m_2.pmml", "s.csv"}));
    const Csv saved(apptest::ReadFile(folder.Path() / "s.csv"));
    for (const char* file : {"m_1.pmml", "m_2.pmml"}) {
        const apptest::Outcome run = RunShell(
            std::string("hierfit predict ") + file + " --data '" HIERFIT_TEST_DATA "/orthodont.csv'", folder.Path());
        EXPECT_THAT(run.fErr, HasSubstr("rows the split is not the model's, Sex = "));
        const Csv scored(run.fOut);
        int rows = 0;
        for (std::size_t i = 0; i < scored.Rows(); ++i) {
            if (scored.Text(i, "PRED_1").empty()) continue;
            ++rows;
            for (const char* name : kNames)
                EXPECT_NEAR(scored.Number(i, name), saved.Number(i, name), kReadBack * std::abs(saved.Number(i, name)));
        }
        EXPECT_EQ(rows, std::string(file) == "m_1.pmml" ? 44 : 64);
    }
}

// The joint errors of many crossed effects don't fit a file: it predicts with what it has, and says what it lacks.
class ManyCrossedEffects : public testing::TestWithParam<int> {};

TEST_P(ManyCrossedEffects, AreScoredByWhatAFileHolds) {
    const Scratch folder;
    const int levels = GetParam();
    const bool errors = levels < 1000, slopes = levels < 400;
    std::string data = "a,b,y\n";
    for (int i = 0; i < 4 * levels; ++i) {
        const int a = i * 7 % levels, b = i * 11 % (levels * 2 / 3);
        const double y = (a % 13) * 0.5 + (b % 7) * 0.25 + (i * 37 % 101) * 0.01;
        data.append("a").append(std::to_string(a)).append(",b").append(std::to_string(b));
        data.append(",").append(std::to_string(y)).append("\n");
    }
    folder.Write("d.csv", data);
    const std::string fit =
        "hierfit fit 'y ~ 1 + (1 | a) + (1 | b)' --data d.csv --model-out m.pmml --save s.csv --quiet";
    ASSERT_EQ(RunShell(fit + (errors ? kAll : " --scores pred"), folder.Path()).fExit, 0);
    const apptest::Outcome run = RunShell("hierfit predict m.pmml --data d.csv", folder.Path());
    EXPECT_EQ(run.fExit, 0);
    if (slopes)
        EXPECT_EQ(run.fErr, "");
    else
        EXPECT_THAT(run.fErr, HasSubstr(errors ? "has no degrees of freedom of predictions with random effects"
                                               : "has no standard errors of predictions with random effects"));
    const Csv saved(apptest::ReadFile(folder.Path() / "s.csv"));
    const Csv scored(run.fOut);
    const auto same = [&](std::size_t i, const char* name, bool known) {
        if (known)
            EXPECT_NEAR(scored.Number(i, name), saved.Number(i, name), 1e-9 * std::abs(saved.Number(i, name))) << name;
        else
            EXPECT_EQ(scored.Text(i, name), "");
    };
    for (std::size_t i = 0; i < scored.Rows(); i += 50) {
        same(i, "PRED_1", true);
        same(i, "SEPRED_1", errors);
        same(i, "DFPRED_1", slopes);
        EXPECT_NE(scored.Text(i, "SEFIXP_1"), "");
    }
}

INSTANTIATE_TEST_SUITE_P(Levels, ManyCrossedEffects, testing::Values(150, 600, 1100));

const std::string kBounded = apptest::kSanitized ? "" : "ulimit -v 2000000; ";

// A model file is data from outside: whatever is in it ends in one message, soon, and in bounded memory.
TEST(Predict, RefusesHostileModelFiles) {
    const Scratch folder;
    folder.Write("d.csv", "x,g,y\n1,a,2\n2,a,5\n3,b,3\n4,b,6\n6,a,8\n7,b,8\n");
    ASSERT_EQ(RunShell("hierfit fit 'y ~ x + (1 | g)' --data d.csv --model-out m.pmml; true", folder.Path()).fExit, 0);
    const std::string whole = apptest::ReadFile(folder.Path() / "m.pmml");
    ASSERT_THAT(whole, HasSubstr("<Scoring "));
    const auto refused = [&](const std::string& text, const std::string& sentence) {
        folder.Write("bad.pmml", text);
        const apptest::Outcome run =
            RunShell(kBounded + "timeout 20 hierfit predict bad.pmml --data d.csv", folder.Path());
        EXPECT_EQ(run.fExit, 3) << sentence;
        EXPECT_EQ(run.fOut, "");
        EXPECT_EQ(std::count(run.fErr.begin(), run.fErr.end(), '\n'), 1) << run.fErr;
        EXPECT_THAT(run.fErr, HasSubstr("bad.pmml: "));
        EXPECT_THAT(run.fErr, HasSubstr(sentence));
    };
    refused("", "isn't whole XML");
    refused("y,x\n1,2\n", "isn't");
    refused("<html><body>a page</body></html>", "isn't a model file");
    refused(whole.substr(0, whole.size() / 2), "isn't whole XML");
    refused("<PMML><GeneralRegressionModel/></PMML>", "has no scoring part");
    std::string deep = "<PMML>";
    for (int i = 0; i < 1000000; ++i)
        deep += "<a>";
    refused(deep, "nested more deeply");
    std::string bomb = "<?xml version='1.0'?><!DOCTYPE l [<!ENTITY a 'ha'>";
    for (char c = 'b'; c <= 'z'; ++c) {
        bomb += std::string("<!ENTITY ") + c + " '";
        for (int i = 0; i < 10; ++i)
            bomb += std::string("&") + static_cast<char>(c - 1) + ";";
        bomb += "'>";
    }
    refused(bomb + "]><PMML><x>&z;</x></PMML>", "has no scoring part");
    std::string many = "<PMML>";
    for (int i = 0; i < 5000000; ++i)
        many += "<a/>";
    refused(many, "more elements");

    // Every number of the scoring part, put out of range or out of its place, is found or does no harm.
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string text = whole;
        const std::size_t at = text.find(from, text.find("<Scoring "));
        EXPECT_NE(at, std::string::npos) << from;
        return text.replace(at, from.size(), to);
    };
    refused(with("dependent=\"0\"", "dependent=\"77\""), "wrong dependent");
    refused(with("dependent=\"0\"", "dependent=\"-1\""), "wrong dependent");
    refused(with("version=\"1\"", "version=\"2\""), "wrong version");
    refused(with("power=\"1\"", "power=\"1000000000\""), "wrong power");
    refused(with("<Covariate column=\"", "<Covariate column=\"9"), "wrong column");
    refused(with("name=\"span\" rows=\"2\"", "name=\"span\" rows=\"3\""), "wrong size");
    refused(with("name=\"span\"", "name=\"spam\""), "");
    refused(with("<Part block=\"0\"", "<Part block=\"5\""), "don't go together");
    refused(with("width=\"1\"", "width=\"2\""), "wrong width");
    refused(with("errors=\"0\"", "errors=\"4\""), "wrong errors");
    refused(with("categorical=\"true\"", "categorical=\"false\""), "a subject without categories");
    refused(with("intercept=\"true\"", "intercept=\"false\""), "pieces don't go together");
    refused(with(">0 1<", ">1 1<"), "columns that don't go together");

    const apptest::Outcome huge = RunShell(
        kBounded + "truncate -s 1G huge.pmml; timeout 20 hierfit predict huge.pmml --data d.csv", folder.Path());
    EXPECT_EQ(huge.fExit, 3);
    EXPECT_THAT(huge.fErr, HasSubstr("more than 128 MiB"));
}

}  // namespace
