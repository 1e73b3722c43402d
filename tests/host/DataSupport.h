#pragma once

#include "host/data/DataFile.h"
#include "host/data/TableBuilder.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace testing_data {

/// A folder of its own for a test's files.
class Folder {
public:
    Folder() {
        std::string name = (std::filesystem::temp_directory_path() / "hierfit-test-XXXXXX").string();
        fPath = mkdtemp(name.data());
    }
    ~Folder() { std::filesystem::remove_all(fPath); }
    std::string Write(const std::string& name, const std::string& text) const {
        std::ofstream(fPath / name, std::ios::binary) << text;
        return (fPath / name).string();
    }
    std::filesystem::path fPath;
};

inline std::vector<double> Numbers(const host::Table& table, const std::string& name) {
    std::vector<double> cells(table.RowCount());
    table.ReadNumbers(table.Find(name), 0, cells.size(), cells.data());
    return cells;
}

inline std::vector<std::string> Texts(const host::Table& table, const std::string& name) {
    std::vector<std::uint32_t> codes(table.RowCount());
    const int column = table.Find(name);
    table.ReadCodes(column, 0, codes.size(), codes.data());
    std::vector<std::string> texts;
    for (const std::uint32_t code : codes)
        texts.emplace_back(table.Pool(column).Text(code));
    return texts;
}

inline std::shared_ptr<host::Table> Read(const std::string& text, const host::DataOptions& options = {},
                                         const std::string& name = "data.csv") {
    const Folder folder;
    auto table = host::OpenDataFile(folder.Write(name, text), options);
    EXPECT_TRUE(table) << (table ? "" : table.Error().Message());
    return table ? *table : nullptr;
}

/// The error that reading a file of this text ends in; its file name is cut to the last part.
inline host::DataError Refusal(const std::string& text, const host::DataOptions& options = {}) {
    const Folder folder;
    auto table = host::OpenDataFile(folder.Write("data.csv", text), options);
    EXPECT_FALSE(table);
    if (table) return {};
    host::DataError error = table.Error();
    error.fFile = std::filesystem::path(error.fFile).filename().string();
    return error;
}

}  // namespace testing_data
