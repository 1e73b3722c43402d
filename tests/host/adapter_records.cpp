#include "contracts/Adapter.h"
#include "host/DataSupport.h"
#include "host/adapter/RecordFile.h"
#include "host/data/DataSource.h"
#include "run/RunValue.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <numeric>
#include <random>

using namespace testing_data;

namespace {

std::vector<std::vector<double>> Sorted(const std::vector<std::vector<double>>& rows, const std::vector<int>& sortBy,
                                        std::size_t budget, std::size_t step) {
    host::RecordFile file(rows[0].size(), sortBy, budget);
    std::vector<double> flat;
    for (const auto& row : rows)
        flat.insert(flat.end(), row.begin(), row.end());
    for (std::size_t at = 0; at < rows.size(); at += step) {
        const std::size_t count = std::min(step, rows.size() - at);
        EXPECT_TRUE(file.Append(flat.data() + at * rows[0].size(), count));
    }
    EXPECT_TRUE(file.Finish()) << file.Error();
    EXPECT_EQ(file.Count(), rows.size());
    std::vector<std::vector<double>> result;
    for (std::size_t i = 0; i < file.Count(); ++i)
        result.emplace_back(file.Records() + i * file.Stride(), file.Records() + (i + 1) * file.Stride());
    return result;
}

TEST(RecordFile, EveryBudgetGivesTheSameStableSort) {
    std::mt19937 random(5);
    for (const double scale : {1.0, 0.5}) {  // codes, and numbers that are none
        std::vector<std::vector<double>> rows;
        for (int i = 0; i < 5000; ++i)
            rows.push_back({static_cast<double>(i), scale * static_cast<double>(random() % 40),
                            scale * (static_cast<double>(random() % 7) - (scale < 1 ? 3 : 0))});
        for (const std::vector<int>& sortBy : {std::vector<int>{1}, {2, 1}, {}}) {
            auto expected = rows;
            std::stable_sort(expected.begin(), expected.end(), [&](const auto& a, const auto& b) {
                for (const int key : sortBy)
                    if (a[key] != b[key]) return a[key] < b[key];
                return false;
            });
            for (const std::size_t budget :
                 {std::size_t{100}, std::size_t{3000}, std::size_t{40000}, std::size_t{1} << 24})
                EXPECT_EQ(Sorted(rows, sortBy, budget, 333), expected) << budget;
        }
    }
}

TEST(RecordFile, RecordsInOrderAreNotMerged) {
    std::vector<std::vector<double>> rows;
    for (int i = 0; i < 1000; ++i)
        rows.push_back({static_cast<double>(i / 10), static_cast<double>(-i)});
    EXPECT_EQ(Sorted(rows, {0}, 500, 7), rows);
    // Each chunk is in order by itself, the whole is not.
    std::vector<std::vector<double>> blocks;
    for (int i = 0; i < 1000; ++i)
        blocks.push_back({static_cast<double>(i % 10), static_cast<double>(i)});
    const auto sorted = Sorted(blocks, {0}, 360, 10);
    for (std::size_t i = 1; i < sorted.size(); ++i)
        ASSERT_TRUE(sorted[i - 1][0] < sorted[i][0] ||
                    (sorted[i - 1][0] == sorted[i][0] && sorted[i - 1][1] < sorted[i][1]));
}

TEST(RecordFile, ADiskThatTakesNothingIsAnError) {
    host::RecordFile file(2, {0}, 64, "/nowhere");
    const std::vector<double> rows(200, 1.0);
    EXPECT_FALSE(file.Append(rows.data(), 100) && file.Finish());
    EXPECT_THAT(file.Error(), testing::HasSubstr("cannot make a temporary file in /nowhere"));
}

TEST(DataFileIter, GivesTheEngineItsSplitSortedAsOftenAsItLikes) {
    std::string text = "y,s,x\n";
    for (int i = 0; i < 3000; ++i)
        text += std::to_string(i) + ",s" + std::to_string((i * 13) % 50) + ",1\n";
    ProcedureDataSource source(host::MakeDataSource(Read(text)));
    run::RunValue run;
    const run::Scope scope(run);
    run.fMemoryBudget = 10000;
    ACAVarValidSpecs specs(true, true, true);
    specs.AddVariable(0, false, false, true, true);
    specs.AddVariable(1, true, false, true, true);
    ACAInputAdapter adapter(&specs, source);
    ACAProcDataSourceIter cases(adapter, true);
    cases.NewSplit();
    while (cases.HasMore())
        cases.Next();
    cases.NewPass();
    cases.NewSplit();
    {
        ACADataFileIter file(adapter, {1}, adapter.GetSplitRecordCount());
        EXPECT_EQ(file.GetFailReason(), 0);
        ASSERT_TRUE(file.FillDataFile(cases));
        EXPECT_FALSE(cases.HasMore());
        ASSERT_EQ(run.fRecords.fCount, 3000u);
        EXPECT_EQ(run.fRecords.fpIterator, &file);
        for (int pass = 0; pass < 2; ++pass) {
            file.NewPass();
            std::size_t i = 0;
            double before = -1;
            for (; file.HasMore(); ++i) {
                const Record* record = file.Next();
                ASSERT_EQ(record->fpValues, run.fRecords.fpValues + i * static_cast<std::size_t>(run.fRecords.fStride));
                ASSERT_LE(before, record->fpValues[1]);
                before = record->fpValues[1];
            }
            EXPECT_EQ(i, 3000u);
        }
        const Folder folder;
        const std::string name = (folder.fPath / "records.txt").string();
        ASSERT_TRUE(file.GetTextFile(name));
        std::ifstream stream(name);
        std::string line;
        std::getline(stream, line);
        EXPECT_EQ(line, "0\t0");
        EXPECT_FALSE(file.GetTextFile("/nowhere/records.txt"));
    }
    EXPECT_EQ(run.fRecords.fpValues, nullptr);
    EXPECT_EQ(ACADataFileIter(adapter, {1}, 0).GetFailReason(), 3);

    // A stop by the user ends the filling and raises the fatal flag.
    cases.NewPass();
    cases.NewSplit();
    run.fStop = [] { return true; };
    ACADataFileIter stopped(adapter, {1}, 3000);
    EXPECT_FALSE(stopped.FillDataFile(cases));
    EXPECT_TRUE(source.FatalError());
    EXPECT_TRUE(ACAStopProcessor(0.0).GetCancel());
}

}  // namespace
