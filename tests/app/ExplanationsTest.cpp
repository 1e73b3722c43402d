#include "app/CaseRunner.h"
#include "app/SourceLiterals.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

/// The catalogue of messages against the sources that raise them.
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Names = std::set<std::string>;
using apptest::Literal;
using apptest::SourceLiterals;

/// All sources as one text, literals that go on over lines joined.
const std::string& Sources() {
    static const std::string sources = [] {
        std::string text;
        for (const auto& entry : fs::recursive_directory_iterator(HIERFIT_SOURCE_DIR "/src")) {
            const fs::path extension = entry.path().extension();
            if (extension == ".cpp" || extension == ".h") text += apptest::ReadFile(entry.path());
        }
        return std::regex_replace(text, std::regex("\"\\s*\n\\s*\""), "");
    }();
    return sources;
}

Names Found(const std::string& text, const std::string& pattern) {
    Names names;
    const std::regex regex(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
        names.insert((*match)[1]);
    return names;
}

Json Strings(const char* file) {
    return Json::parse(apptest::ReadFile(fs::path(HIERFIT_SOURCE_DIR) / "share/strings" / file));
}

std::vector<std::string> Split(const std::string& text, const char* separator) {
    const std::regex regex(separator);
    return {std::sregex_token_iterator(text.begin(), text.end(), regex, -1), {}};
}

std::string Trimmed(const std::string& text) {
    const std::size_t begin = std::min(text.find_first_not_of(" \n"), text.size());
    return text.substr(begin, text.find_last_not_of(" \n") + 1 - begin);
}

/// A literal without markup, its places apart.
std::vector<std::string> Pieces(const std::string& literal) {
    return Split(std::regex_replace(literal, std::regex("<[^>]*>|\n"), ""), "\\{\\}|\\^\\d");
}

/// Sources whose texts are none of messages: help, internal texts and what the pages are made of.
const Names kOtherFiles{"app/CommandOptions.cpp",
                        "app/ShellHelp.cpp",
                        "app/Version.cpp",
                        "command/Keywords.cpp",
                        "engine/seam/EngineDisplay.cpp",
                        "engine/seam/EngineModel.cpp",
                        "engine/seam/EngineSettings.cpp",
                        "engine/seam/OutputStats.cpp",
                        "host/adapter/VarValidSpecs.cpp",
                        "procedure/MIXRegrParameter.cpp",
                        "procedure/MIXValidSpecsDump.cpp",
                        "procedure/MIXFactoryRun.cpp"};

/// Texts of other sources that are none of messages.
const Names kOtherTexts{
    // titles and headings
    "Mixed Model Analysis", "Hierarchical Model Fit", "The Hierfit developers", "Output Files", "Random Effects",
    "Target category: ^1", "k:Adj. Sig.", "Std. Error", "G Matrix: block", "R Matrix: first subject",
    "Repeated measures", "Means and tests", "charts on pages: yes", "charts on pages: no",
    "Linear and generalized linear mixed models",
    // answers, and what an explanation is framed by
    "The command is right for its data.", "The command is right as far as it can be checked without data.",
    "hierfit explain CODE, or the message in quotes, tells the cause of one, and what to do.",
    "Nothing is shown for it.", "What to do:", "**What to do.**", "(hierfit explain", "hierfit: %s",
    "hierfit: note: %s", ", change %.2g", "hierfit: stopped by the user",
    // what stands at a message's places
    "standard input", "saved data", "a control character", "the threshold", "of category", "at its upper limit",
    "at its end", "a split variable", "inverse Gaussian", "ordinal multinomial", "nominal multinomial",
    "log complement", "complementary log-log", "negative log-log",
    // the end of messages about a name
    "; did you mean", "; did you mean \"", "; the variables are",
    // documents and internal texts
    "offset with its sign changed", "events and other trials", "CS diagonal offset", "ARMA11 gamma share",
    "GLMMAlgorithm display start", "GLMMAlgorithm display end"};

/// Texts that the command line's library makes.
const Names kLibraryTexts{"^1 is required", "^1 not in {^2}", "Value ^1 not in range ^2"};

/// Whether a literal may be a message or part of one: it has words with a blank between, and in the sources of the
/// output, whose titles and labels have such too, it is a sentence.
bool IsProse(const Literal& literal) {
    static const std::regex words("[a-z]{2,}[^ ]* [^ ]*[a-z(]");
    static const std::regex output("(procedure|report|results|tables|viewer)/.*");
    static const std::regex otherStatement("[^]*(add_|AddTask|AddText|fPhase)[^]*");
    const std::string text = Trimmed(literal.fText);
    if (!std::regex_search(text, words) || text.starts_with("#")) return false;  // a page's heading
    if (std::regex_match(literal.fStatement, otherStatement)) return false;
    return !std::regex_match(literal.fFile, output) || text.ends_with(".") || text.find(". ") != std::string::npos;
}

class Messages : public testing::Test {
protected:
    Messages() {
        const Json catalogue = Strings("explanations.json");
        for (const Json& group : catalogue.at("groups")) {
            EXPECT_NE(group.at("title"), "");
            EXPECT_NE(group.at("about"), "");
            for (const auto& [code, entry] : group.at("messages").items()) {
                EXPECT_FALSE(fEntries.contains(code)) << code;
                fEntries[code] = entry;
                for (const std::string& text : Listed(code, "texts"))
                    fTexts.push_back(text);
            }
        }
    }

    std::vector<std::string> Listed(const std::string& code, const char* what) const {
        return fEntries.at(code).value(what, std::vector<std::string>());
    }

    Names Codes(const std::string& pattern) const {
        Names codes;
        for (const auto& [code, entry] : fEntries.items())
            if (std::regex_match(code, std::regex(pattern))) codes.insert(code);
        return codes;
    }

    Names Keys() const {
        Names keys;
        for (const auto& [code, entry] : fEntries.items())
            for (const std::string& key : Listed(code, "keys"))
                keys.insert(key);
        return keys;
    }

    /// Whether a literal stands in some text; {} in it is a place.
    bool Catalogued(const std::string& literal) const {
        const std::vector<std::string> pieces = Pieces(literal);
        return std::any_of(fTexts.begin(), fTexts.end(), [&](const std::string& text) {
            return std::all_of(pieces.begin(), pieces.end(), [&](const std::string& piece) {
                return text.find(Trimmed(piece)) != std::string::npos;
            });
        });
    }

    Json fEntries = Json::object();
    std::vector<std::string> fTexts;
};

TEST_F(Messages, EveryStatusAndKeyIsExplainedAndNoneIsOrphaned) {
    EXPECT_EQ(Codes("\\d+"), Found(Sources(), "\\b([12]30\\d{3})\\b"));
    EXPECT_EQ(Codes("k[A-Z].*"), Found(Sources(), "\"(k(?:GLMM_C|[A-Z][a-z]+Need)\\w+)\""));
}

TEST_F(Messages, StatusesAreExplainedUnderTheTextThatTheySay) {
    const auto texts = Strings("en.json").at("texts");
    const std::string& text = Sources();
    const std::regex row(
        "\\{([12]30\\d{3}|kCompareFactorOneLevel), Severity::\\w+,\\s*(?:\"([^\"]*)\"|kUncertain),"
        "\\s*(?:\"([^\"]*)\"|kUncertainInSplit)");
    int rows = 0;
    for (std::sregex_iterator match(text.begin(), text.end(), row), end; match != end; ++match, ++rows) {
        const std::string code = (*match)[1] == "kCompareFactorOneLevel" ? "130035" : (*match)[1].str();
        const std::string key = (*match)[2].matched ? (*match)[2].str() : "Model validity is uncertain ...";
        if (key.empty()) {
            EXPECT_TRUE(Listed(code, "keys").empty()) << code;
            continue;
        }
        EXPECT_THAT(Listed(code, "keys"), testing::Contains(key)) << code;
        if (!(*match)[3].matched) continue;
        // The text of a split run leads to an explanation of the same text.
        const std::string found = apptest::ExplainedCode(texts.at((*match)[3].str()));
        ASSERT_TRUE(fEntries.contains(found)) << code << found;
        EXPECT_THAT(Listed(found, "keys"), testing::Contains(key)) << code;
    }
    EXPECT_GE(rows, 29);
}

TEST_F(Messages, EveryTextThatTheSourcesSayIsInTheCatalogue) {
    int prose = 0;
    EXPECT_GE(fTexts.size(), 350u);
    Names others = kOtherTexts;
    const Names keys = Keys();
    const auto texts = Strings("en.json").at("texts");
    for (const Literal& literal : SourceLiterals()) {
        const std::string text = Trimmed(literal.fText);
        if (kOtherFiles.contains(literal.fFile) || !IsProse(literal)) continue;
        ++prose;
        others.erase(text);
        if (kOtherTexts.contains(text) || texts.contains(literal.fText) || keys.contains(literal.fText)) continue;
        EXPECT_TRUE(Catalogued(text)) << literal.fFile << ": " << text;
    }
    EXPECT_GE(prose, 400);
    EXPECT_THAT(others, testing::IsEmpty()) << "nothing says these any more";
    for (const auto& [key, text] : texts.items()) {
        const bool sentence = text.get<std::string>().ends_with(".");
        const bool ofSplit = key.find("split") != std::string::npos || key.find("Perfect fit [") == 0;
        EXPECT_TRUE(!sentence || ofSplit || keys.contains(key)) << key;
    }
}

/// Whether a text is a row of literals.
bool IsMadeOf(const std::string& text, const Names& literals) {
    std::vector<std::string> inside;
    for (const std::string& literal : literals)
        if (text.find(literal) != std::string::npos) inside.push_back(literal);
    std::vector<bool> reached(text.size() + 1, false);
    reached[0] = true;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (!reached[at]) continue;
        for (const std::string& literal : inside)
            if (text.compare(at, literal.size(), literal) == 0) reached[at + literal.size()] = true;
    }
    return reached.back();
}

TEST_F(Messages, EveryTextOfTheCatalogueIsSaidSomewhere) {
    Names literals;
    for (const Literal& literal : SourceLiterals()) {
        for (const std::string& piece : Pieces(literal.fText)) {
            // Letters and syllables would make up any text.
            const bool sign = std::none_of(piece.begin(), piece.end(), [](unsigned char c) { return std::isalnum(c); });
            if (!piece.empty() && (sign || piece.size() > 3)) literals.insert(piece);
            if (piece.ends_with(" ")) literals.insert(Trimmed(piece));
        }
    }
    for (const std::string& text : fTexts) {
        if (kLibraryTexts.contains(text)) continue;
        for (const std::string& piece : Split(text, "\\^\\d"))
            EXPECT_TRUE(IsMadeOf(piece, literals)) << text << "\n" << piece;
    }
    const auto texts = Strings("en.json").at("texts");
    for (const std::string& key : Keys()) {
        EXPECT_TRUE(texts.contains(key) || key.ends_with(".")) << key;
        EXPECT_NE(Sources().find('"' + key + '"'), std::string::npos) << key;
    }
}

TEST_F(Messages, CauseAndRemedyAreToldAndNotTheSameTwice) {
    Names told;
    for (const auto& [code, entry] : fEntries.items()) {
        const std::string cause = entry.at("cause"), remedy = entry.at("remedy");
        EXPECT_GT(cause.size(), 20u) << code;
        EXPECT_GT(remedy.size(), 5u) << code;
        EXPECT_THAT(entry.at("kind"), testing::AnyOf("error", "warning", "note")) << code;
        EXPECT_TRUE(told.insert(cause + remedy).second || code == "130075") << code;
        for (const std::string& text : Listed(code, "texts"))
            EXPECT_EQ(std::count(fTexts.begin(), fTexts.end(), text), 1) << text;
    }
}

TEST_F(Messages, ThePageIsTheCatalogue) {
    const auto page = apptest::RunShell("hierfit explain --markdown", "/");
    EXPECT_EQ(page.fExit, 0);
    EXPECT_TRUE(page.fOut == apptest::ReadFile(HIERFIT_SOURCE_DIR "/docs/messages.md"))
        << "write it anew: hierfit explain --markdown > docs/messages.md";
}

TEST(PastedMessages, LeadToTheirOwnExplanation) {
    const std::vector<std::pair<const char*, const char*>> mistakes{
        {"line-no-task", "hierfit fti 'y ~ x'"},
        {"line-no-option", "hierfit fit 'y ~ x' --data d.csv --methd ml"},
        {"line-alone", "hierfit fit y ~ x --data d.csv"},
        {"line-required", "hierfit fit"},
        {"line-choice", "hierfit fit 'y ~ x' --data d.csv --format xml"},
        {"line-no-data", "printf 'HIERFIT /FIELDS TARGET=y' > c.hft; hierfit run c.hft"},
        {"line-measures", "hierfit fit 'y ~ x' --data d.csv --repeated x"},
        {"line-means-first", "hierfit fit 'y ~ x' --data d.csv --contrast pairwise"},
        {"line-at", "hierfit fit 'y ~ x + a' --data d.csv --emmeans a --at x"},
        {"formula-tilde", "hierfit fit 'y x' --data d.csv"},
        {"formula-no-model", "hierfit fit 'y ~' --data d.csv"},
        {"formula-bar", "hierfit fit 'y ~ x | g' --data d.csv"},
        {"formula-operator", "hierfit fit 'y ~ x a' --data d.csv"},
        {"formula-variable", "hierfit fit 'y ~ x + ' --data d.csv"},
        {"formula-power", "hierfit fit 'y ~ (x + a)^99' --data d.csv"},
        {"formula-target", "hierfit fit 'log(y) ~ x' --data d.csv"},
        {"formula-random-empty", "hierfit fit 'y ~ x + (0 | g)' --data d.csv"},
        {"formula-random-group", "hierfit fit 'y ~ x + (1 | 1)' --data d.csv"},
        {"formula-structure", "hierfit fit 'y ~ x + sc(1 | g)' --data d.csv"},
        {"formula-number", "hierfit fit 'y ~ 2 + x' --data d.csv"},
        {"formula-no-function", "hierfit fit 'y ~ log(x)' --data d.csv"},
        {"formula-as-is", "hierfit fit 'y ~ I(x+1)' --data d.csv"},
        {"name-unknown", "hierfit fit 'y ~ xx' --data d.csv"},
        {"word-hierfit", "printf 'FIT /FIELDS TARGET=y' > c.hft; hierfit check c.hft"},
        {"word-subcommand", "printf 'HIERFIT /FIXD EFFECTS=x' > c.hft; hierfit check c.hft"},
        {"word-no-parameter", "printf 'HIERFIT /FIELDS TARGT=y' > c.hft; hierfit check c.hft"},
        {"word-equals", "printf 'HIERFIT /FIELDS TARGET y' > c.hft; hierfit check c.hft"},
        {"word-neither", "printf 'HIERFIT /FIELDS TARGET=2nd' > c.hft; hierfit check c.hft"},
        {"parentheses-open", "printf 'HIERFIT /FIXED EFFECTS=a(b' > c.hft; hierfit check c.hft"},
        {"value-missing", "printf 'HIERFIT /FIELDS TARGET=' > c.hft; hierfit check c.hft"},
        {"value-one", "printf 'HIERFIT /FIELDS TARGET=y x' > c.hft; hierfit check c.hft"},
        {"value-variable", "printf 'HIERFIT /FIELDS TARGET=3' > c.hft; hierfit check c.hft"},
        {"value-number", "printf 'HIERFIT /BUILD_OPTIONS MAX_ITERATIONS=x' > c.hft; hierfit check c.hft"},
        {"value-word", "hierfit fit 'y ~ x' --data d.csv --method mll"},
        {"value-level", "hierfit fit 'y ~ x' --data d.csv --level 100"},
        {"value-between", "hierfit fit 'y ~ x' --data d.csv --max-iter 0"},
        {"fields-target-text", "hierfit fit 'a ~ x' --data d.csv"},
        {"structure-coordinates", "hierfit fit 'y ~ x' --data d.csv --repeated 'x | g' --rcov SPEXP"},
        {"target-options-link", "hierfit fit 'y ~ x' --data d.csv --family nominal --link log"},
        {"means-tables", "hierfit fit 'y ~ x + a' --data d.csv --emmeans x"},
        {"test-rows-no-effect", "hierfit fit 'y ~ x' --data d.csv --test 'a(1 -1)'"},
        {"data-open", "hierfit describe absent.csv"},
        {"data-fields", "printf 'y,x\\n1,2,3\\n' > e.csv; hierfit describe e.csv"},
        {"data-quotes", "printf 'y,x\\n1,\"2\\n' > e.csv; hierfit describe e.csv"},
        {"data-same-names", "printf 'y,y\\n1,2\\n' > e.csv; hierfit describe e.csv"},
        {"data-special", "printf 'y,x\\n1,2\\n1e400,3\\n' > e.csv; hierfit describe e.csv"},
        {"data-text", "printf 'y,x\\n1,2\\n3,n.a.\\n' > e.csv; hierfit describe e.csv"},
        {"data-named", "hierfit describe d.csv --nominal xx"},
        {"schema-type",
         "printf '{\"fields\": [{\"name\": \"y\", \"type\": \"numbr\"}]}' > s.json; hierfit describe d.csv "
         "--data-schema s.json"},
        {"schema-json", "printf '{' > s.json; hierfit describe d.csv --data-schema s.json"},
        {"filter-arithmetic", "hierfit fit 'y ~ x' --data d.csv --filter 'a + 1 > 2'"},
        {"filter-variable", "hierfit fit 'y ~ x' --data d.csv --filter 'zz > 2'"},
        {"filter-value", "hierfit fit 'y ~ x' --data d.csv --filter 'x'"},
        {"file-over-data", "hierfit fit 'y ~ x' --data d.csv --save ./d.csv"},
        {"file-directory", "hierfit fit 'y ~ x' --data d.csv -o ."},
        {"one-file-twice", "hierfit fit 'y ~ x' --data d.csv -o o.txt --save o.txt"},
        {"model-none", "printf '<a/>' > m.xml; hierfit predict m.xml --data d.csv"},
        {"model-xml", "printf '<a>' > m.xml; hierfit predict m.xml --data d.csv"},
        {"target-not-binary", "hierfit fit 'g ~ x' --data d.csv --family binomial"},
        {"target-value", "hierfit fit 'x ~ y' --data d.csv --family binomial --trials 3"}};
    const apptest::Scratch folder;
    folder.Write("d.csv", "y,x,a,g\n1,2,p,1\n3,5,q,1\n4,3,p,2\n6,6,q,2\n5,1,p,3\n2,2,q,3\n");
    for (const auto& [code, command] : mistakes) {
        const std::string said = apptest::RunShell(command, folder.Path()).fErr;
        EXPECT_EQ(apptest::ExplainedCode(said.substr(0, said.find('\n'))), code) << command << '\n' << said;
    }
    EXPECT_EQ(apptest::ExplainedCode("the moon is made of green cheese"), "");
    EXPECT_EQ(apptest::ExplainedCode(
                  "--level, column 1: CONFIDENCE_LEVEL: expected a percentage above 0 and below 100, found 0"),
              "value-level");
}

}  // namespace
