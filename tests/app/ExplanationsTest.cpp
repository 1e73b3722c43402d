#include "app/CaseRunner.h"

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
using Names = std::set<std::string>;

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

nlohmann::json Strings(const char* file) {
    return nlohmann::json::parse(apptest::ReadFile(fs::path(HIERFIT_SOURCE_DIR) / "share/strings" / file));
}

class Messages : public testing::Test {
protected:
    const nlohmann::json fEntries = Strings("explanations.json").at("explanations");

    Names Codes(const std::string& pattern) const {
        Names codes;
        for (const auto& [code, entry] : fEntries.items())
            if (std::regex_match(code, std::regex(pattern))) codes.insert(code);
        return codes;
    }
};

TEST_F(Messages, EveryStatusAndKeyIsExplainedAndNoneIsOrphaned) {
    EXPECT_EQ(Codes("\\d+"), Found(Sources(), "\\b([12]30\\d{3})\\b"));
    EXPECT_EQ(Codes("k.*"), Found(Sources(), "\"(k(?:GLMM_C|[A-Z][a-z]+Need)\\w+)\""));
}

TEST_F(Messages, StatusesAreExplainedUnderTheTextThatTheySay) {
    std::map<std::string, std::string> said;
    const std::string& text = Sources();
    const std::regex row("\\{([12]30\\d{3}|kCompareFactorOneLevel), Severity::\\w+,\\s*(?:\"([^\"]*)\"|kUncertain)");
    for (std::sregex_iterator match(text.begin(), text.end(), row), end; match != end; ++match) {
        const std::string code = (*match)[1] == "kCompareFactorOneLevel" ? "130035" : (*match)[1].str();
        said.emplace(code, (*match)[2].matched ? (*match)[2].str() : "Model validity is uncertain ...");
    }
    EXPECT_GE(said.size(), 29u);
    for (const auto& [code, key] : said)
        EXPECT_EQ(fEntries.at(code).at("key"), key) << code;
}

TEST_F(Messages, WhatIsExplainedIsSaidSomewhere) {
    const auto texts = Strings("en.json").at("texts");
    for (const auto& [code, entry] : fEntries.items()) {
        EXPECT_GT(entry.at("cause").get<std::string>().size(), 20u) << code;
        EXPECT_GT(entry.at("remedy").get<std::string>().size(), 5u) << code;
        if (entry.contains("key") && entry.at("key") != "") {
            const std::string key = entry.at("key");
            EXPECT_TRUE(texts.contains(key)) << code;
            EXPECT_NE(Sources().find('"' + key + '"'), std::string::npos) << code;
        }
        for (const auto& beginning : entry.value("also", nlohmann::json::array()))
            EXPECT_NE(Sources().find('"' + beginning.get<std::string>()), std::string::npos) << code;
    }
}

TEST_F(Messages, ThePageIsTheCatalogue) {
    const auto page = apptest::RunShell("hierfit explain --markdown", "/");
    EXPECT_EQ(page.fExit, 0);
    EXPECT_TRUE(page.fOut == apptest::ReadFile(HIERFIT_SOURCE_DIR "/docs/messages.md"))
        << "write it anew: hierfit explain --markdown > docs/messages.md";
}

}  // namespace
