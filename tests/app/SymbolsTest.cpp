#include "app/CaseRunner.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <set>
#include <sstream>

/// The library's edges: what it offers is its list, and what it needs is in the contracts or in the language's runtime.
namespace {

std::vector<std::string> Lines(const std::string& command) {
    const auto outcome = apptest::RunShell(command, "/");
    EXPECT_EQ(outcome.fExit, 0) << outcome.fErr;
    std::vector<std::string> lines;
    std::istringstream stream(outcome.fOut);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

TEST(Symbols, TheLibraryExportsItsListAndNothingElse) {
    const std::set<std::string> functions{"EXPOSEMIX", "MixDriver", "GetCFProcCustom"};
    const std::set<std::string> classes{"MIXValidSpecs",
                                        "MIXFactory",
                                        "MIXOutput",
                                        "MIXComOutputData",
                                        "MIXParamEstimateOutput",
                                        "MIXJsonOutput",
                                        "MIXParameterAggregator",
                                        "MIXParameterMap",
                                        "MIXRegrParameter",
                                        "HRFTProcCustom"};
    // What a program that debugs the library turns on; no part of the library does.
    const std::set<std::string> switches{"gbDisplaySpecs", "gbDisplayVarList", "gbDisplayComponent",
                                         "gbDisplayOutputStats", "gbDumpSortedRecords"};
    std::set<std::string> found;
    const std::regex symbol("^[0-9a-f]+ \\w (?:vtable for |typeinfo for |typeinfo name for )?(\\w+)(.*)$");
    for (const std::string& line : Lines("nm -D -C --defined-only '" HIERFIT_LIBRARY "'")) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, symbol)) << line;
        EXPECT_TRUE(functions.count(match[1]) || classes.count(match[1]) || switches.count(match[1])) << line;
        found.insert(match[1]);
    }
    for (const std::string& name : functions)
        EXPECT_TRUE(found.count(name)) << name;
    for (const std::string& name : classes)
        EXPECT_TRUE(found.count(name)) << name;
}

TEST(Symbols, WhatTheLibraryNeedsIsInTheContracts) {
    if (apptest::kSanitized)
        GTEST_SKIP() << "the sanitizer's own symbols and what it wraps stand among the undefined ones";
    std::string contracts;
    for (const auto& entry : std::filesystem::directory_iterator(HIERFIT_SOURCE_DIR "/src/contracts"))
        contracts += apptest::ReadFile(entry.path());
    const std::regex symbol("^ +[Uw] (?:vtable for |typeinfo for |VTT for )?(\\w+).*$");
    int needed = 0;
    for (const std::string& line : Lines("nm -D -C --undefined-only '" HIERFIT_LIBRARY "'")) {
        if (line.find("@GLIBC") != std::string::npos || line.find("@CXXABI") != std::string::npos ||
            line.find("@GCC") != std::string::npos || line.find(" w ") != std::string::npos)
            continue;
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, symbol)) << line;
        EXPECT_TRUE(std::regex_search(contracts, std::regex("\\b" + match[1].str() + "\\b"))) << line;
        ++needed;
    }
    EXPECT_GT(needed, 50);
}

}  // namespace
