#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

/// Compares a whole output with the one that was looked at and kept under tests/report/approved. After a wanted change
/// copy the received file that the failure names over the approved one, and look at the difference.
inline void ExpectApproved(const std::string& name, const std::string& text) {
    const std::string approved = std::string(HIERFIT_SOURCE_DIR) + "/tests/report/approved/" + name;
    std::ostringstream expected;
    expected << std::ifstream(approved, std::ios::binary).rdbuf();
    if (expected.str() == text) return;
    const std::string received = testing::TempDir() + name;
    std::ofstream(received, std::ios::binary) << text;
    ADD_FAILURE() << "differs: diff " << approved << " " << received;
}
