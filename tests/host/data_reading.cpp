#include "host/DataSupport.h"

#include <charconv>
#include <clocale>
#include <gmock/gmock.h>
#include <random>
#include <utility>

using namespace testing_data;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsNan;

namespace {

TEST(DataReading, OddButGoodFilesKeepEveryCell) {
    const auto table = Read(
        "\xEF\xBB\xBF"
        "id,\"the \"\"name\"\"\",note,x\r\n"
        "1,\"a,b\",\"two\nlines\", 1.5 \r\n"
        "\r\n"
        "2,plain \"inside\" ,\"\",\"-2\"\r\n"
        "3,  lead,Zo\xC3\xAB,\r\n"
        "4,\"\"\"\",end,+1e3");
    ASSERT_TRUE(table);
    EXPECT_EQ(table->RowCount(), 4u);
    EXPECT_THAT(Texts(*table, "the \"name\""), ElementsAre("a,b", "plain \"inside\"", "  lead", "\""));
    EXPECT_THAT(Texts(*table, "note"), ElementsAre("two\nlines", "", "Zo\xC3\xAB", "end"));
    EXPECT_THAT(Numbers(*table, "x"), ElementsAre(1.5, -2.0, IsNan(), 1000.0));
    EXPECT_EQ(table->GetVariable(table->Find("note")).fWidth, 9);
    EXPECT_EQ(table->GetVariable(table->Find("x")).fLevel, host::Level::kScale);
}

TEST(DataReading, SeparatorsAndDecimalCommas) {
    host::DataOptions comma;
    comma.fDecimalComma = true;
    const auto european = Read("a;b\n1,5;x\n-0,25;y\n1e-2;z\n", comma);
    EXPECT_THAT(Numbers(*european, "a"), ElementsAre(1.5, -0.25, 0.01));
    EXPECT_EQ(Read("a;b\n1.5;x\n")->VariableCount(), 2);
    EXPECT_EQ(Read("a\tb,c\n1\t2\n", {}, "data.tsv")->GetVariable(1).fName, "b,c");
    host::DataOptions bar;
    bar.fSeparator = '|';
    EXPECT_THAT(Texts(*Read("a|b\n1|p,q\n", bar), "b"), ElementsAre("p,q"));
    EXPECT_THAT(Numbers(*Read("only\n1\n\n3\n"), "only"), ElementsAre(1, IsNan(), 3));
    EXPECT_EQ(Read(",b,V1\n1,2,3\n")->GetVariable(0).fName, "V1_");
}

TEST(DataReading, NumbersAreTheNearestDoubles) {
    std::mt19937_64 random(7);
    std::string text = "x\n";
    std::vector<double> expected;
    for (int i = 0; i < 20000; ++i) {
        double value;
        do {
            const std::uint64_t bits = random();
            std::memcpy(&value, &bits, 8);
        } while (!std::isfinite(value));
        if (i % 2 == 0)
            value = std::ldexp(static_cast<double>(random() >> (random() % 60)), -static_cast<int>(random() % 50));
        if (i % 3 == 0) value = std::floor(value);
        char digits[800];
        const auto form = i % 4 == 0 ? std::chars_format::scientific : std::chars_format::fixed;
        const auto end = std::abs(value) < 1e25 && std::abs(value) > 1e-20
                             ? std::to_chars(digits, digits + sizeof(digits), value, form).ptr
                             : std::to_chars(digits, digits + sizeof(digits), value).ptr;
        text.append(digits, end).append(i % 5 == 0 ? "\r\n" : "\n");
        expected.push_back(value);
    }
    EXPECT_EQ(Numbers(*Read(text), "x"), expected);
    const auto edges =
        Numbers(*Read("x\n-0.0\n1e-400\n9007199254740993\n.5\n5.\n0.1000000000000000055511151231257827\n"), "x");
    EXPECT_EQ(edges, (std::vector<double>{0.0, 0.0, 9007199254740992.0, 0.5, 5.0, 0.1}));
    EXPECT_FALSE(std::signbit(edges[0]));
}

TEST(DataReading, LateTextKeepsTheSpellingOfEarlierCells) {
    // Wide enough that the text turns up in a later block and a later read than the numbers before it.
    std::string text = "k,v,w,u\n";
    std::vector<std::string> v, w;
    const int rows = 120000, turn = 100000;
    for (int i = 0; i < rows; ++i) {
        v.push_back(i == turn ? "n/a" : i % 3 == 0 ? "0" + std::to_string(i) : std::to_string(i) + ".50");
        w.push_back(i < 50000 ? "" : i == 70000 ? "\"x\ny\"" : "7");
        text += std::to_string(i) + "," + v.back() + "," + w.back() + "," + (i == 5 ? "t" : "1.0") + "\n";
    }
    w[70000] = "x\ny";
    const auto table = Read(text);
    EXPECT_EQ(Texts(*table, "v"), v);
    EXPECT_EQ(Texts(*table, "w"), w);
    EXPECT_THAT(Texts(*table, "u")[0], "1.0");
    EXPECT_EQ(Numbers(*table, "k")[rows - 1], rows - 1);
    EXPECT_EQ(table->GetVariable(1).fWhyText, "line 100003 has \"n/a\"; if that means missing, say --missing 'n/a'");
    ASSERT_EQ(table->Remarks().size(), 3u);
    EXPECT_THAT(table->Remarks()[0], HasSubstr("column \"v\""));
}

TEST(DataReading, FormatsTellDistinctValuesApart) {
    const auto table = Read("a,b,c,d\n1,1.50,1e-9,12345678901234567890\n-20,0.125,1e9,1\n300,-7,2,0\n");
    const auto format = [&](int i) { return table->GetVariable(i).fFormat; };
    EXPECT_EQ(format(0), (host::PrintFormat{5, 3, 0}));
    EXPECT_EQ(format(1), (host::PrintFormat{5, 6, 3}));
    EXPECT_EQ(format(2), (host::PrintFormat{5, 20, 9}));
    EXPECT_EQ(format(3).fWidth, 20);
    EXPECT_THAT(table->Remarks(), ElementsAre(HasSubstr("whole numbers with more digits")));
    EXPECT_EQ(Read("a\n1e-30\n1e30\n")->GetVariable(0).fFormat.fType, 17);
}

TEST(DataReading, SpillsToAFileWithTheSameCells) {
    std::string text = "x,s,t\n";
    for (int i = 0; i < 60000; ++i)
        text += std::to_string(i * 0.37) + ",s" + std::to_string(i % 700) + ",a long distinct text number " +
                std::to_string(i) + "\n";
    host::DataOptions tiny;
    tiny.fPlace.fMemoryBudget = 1000;
    const auto inFile = Read(text, tiny), inMemory = Read(text);
    EXPECT_EQ(Numbers(*inFile, "x"), Numbers(*inMemory, "x"));
    EXPECT_EQ(Texts(*inFile, "s"), Texts(*inMemory, "s"));
    EXPECT_EQ(Texts(*inFile, "t"), Texts(*inMemory, "t"));
    inFile->ForgetBlock(0);
    EXPECT_EQ(Texts(*inFile, "t")[0], "a long distinct text number 0");
    tiny.fPlace.fDirectory = "/nowhere/at/all";
    EXPECT_THAT(Refusal(text, tiny).Message(), HasSubstr("cannot make a temporary file in /nowhere/at/all"));
}

TEST(DataReading, BadFilesSayWhatWhereAndWhatToDo) {
    const auto message = [](const std::string& text) { return Refusal(text).Message(); };
    EXPECT_THAT(message(""), HasSubstr("data.csv: the file is empty"));
    EXPECT_THAT(message("\n\r\n\n"), HasSubstr("the file is empty"));
    EXPECT_EQ(message("a,b\n"), "data.csv: the file has a header but no rows");
    EXPECT_THAT(message("a,b\n1,2\n\n3\n"), HasSubstr("data.csv, line 4: the line has 1 field, but the header has 2"));
    EXPECT_THAT(message("a,b\n1,\"x\ny\",2\n"), HasSubstr("line 2: the line has 3 fields"));
    EXPECT_THAT(message("a,b,a\n1,2,3\n"), HasSubstr("line 1, column \"a\": columns 1 and 3 have the same name"));
    EXPECT_THAT(message("a,b\n1,\"never closed\n2,3\n"), HasSubstr("line 2: the text in quotes has no closing quote"));
    EXPECT_THAT(message("a,b\n1,\"x\ny\"z\n"), HasSubstr("line 3, column \"b\": text follows the closing quote"));
    EXPECT_THAT(message("a\nx\n\xC3(\n"), HasSubstr("line 3, column \"a\": the text isn't UTF-8"));
    EXPECT_THAT(message("a\xFF\n1\n"), HasSubstr("line 1: the header isn't UTF-8"));
    EXPECT_THAT(message(std::string("a\nx\0y\n", 6)), HasSubstr("NUL byte"));
    EXPECT_THAT(message(std::string("\xFF\xFE"
                                    "a\0",
                                    4)),
                HasSubstr("UTF-16"));
    EXPECT_THAT(message("a,b\r1,2\r"), HasSubstr("carriage return alone"));
    EXPECT_THAT(message("y\n1\n1e400\n"), HasSubstr("line 3, column \"y\": \"1e400\" is beyond the range"));
    EXPECT_THAT(message("y\n1\n\n-inf\n"), HasSubstr("line 4, column \"y\": \"-inf\" isn't a number that can be used"));
    EXPECT_THAT(message("y,z\nNaN,1\n2,1\n"), HasSubstr("line 2, column \"y\""));
    EXPECT_THAT(message("a\n" + std::string(40000, 'x') + "\n"), HasSubstr("40000 bytes, more than 32767"));
    std::string wide = "a0";
    for (int i = 1; i <= 32767; ++i)
        wide += ",a" + std::to_string(i);
    EXPECT_THAT(message(wide + "\n"), HasSubstr("32768 columns"));
    EXPECT_THAT(host::OpenDataFile("/nowhere/file.csv", {}).Error().Message(),
                HasSubstr("/nowhere/file.csv: the file can't be opened: No such file"));
    EXPECT_THAT(host::OpenDataFile("/tmp", {}).Error().Message(), HasSubstr("this is a directory"));
}

TEST(DataReading, AFileThatChangesMeanwhileIsRefused) {
    const Folder folder;
    std::string text = "x,y\n";
    for (int i = 0; i < 500'000; ++i)
        text += "1,2\n";
    const std::string file = folder.Write("changing.csv", text);
    host::DataOptions options;
    bool changed = false;
    options.fProgress = [&](double) {
        if (!std::exchange(changed, true)) std::filesystem::resize_file(file, 1'000'003);
    };
    const auto table = host::OpenDataFile(file, options);
    ASSERT_FALSE(table);
    EXPECT_THAT(table.Error().Message(), HasSubstr("changed while it was read"));
}

TEST(DataReading, SpecialTextsInATextColumnAreTexts) {
    EXPECT_THAT(Texts(*Read("name,z\nNan,1\nInf,2\n"), "name"), ElementsAre("Nan", "Inf"));
    EXPECT_THAT(Texts(*Read("name,z\n5,1\nnan,1\nbob,2\n"), "name"), ElementsAre("5", "nan", "bob"));
}

// Any bytes end in a table or in one sentence, and what a table holds can be read.
TEST(DataReading, RandomBytesNeverHarm) {
    std::mt19937 random(99);
    const std::string alphabet = "\",\n\r;\t 0123456789.eE+-ab\xC3\xA9\xFFnN";
    const std::vector<std::string> tokens = {"",   "1",     "-2.5",           "1e3", "nan",
                                             "ab", "\"q\"", "\"a,\"\"b\nc\"", " x ", "\xC3\xA9"};
    int tables = 0;
    for (int round = 0; round < 1000; ++round) {
        std::string text = "a,b\n";
        for (int row = static_cast<int>(random() % 9); row >= 0; --row) {
            text += tokens[random() % tokens.size()] + "," + tokens[random() % tokens.size()];
            text += random() % 2 == 0 ? "\n" : "\r\n";
        }
        for (int i = static_cast<int>(random() % 4); i > 0; --i)
            text[random() % text.size()] = alphabet[random() % alphabet.size()];
        const Folder folder;
        const auto table = host::OpenDataFile(folder.Write("f.csv", text), {});
        if (!table) {
            ASSERT_FALSE(table.Error().fText.empty());
            continue;
        }
        ++tables;
        for (int c = 0; c < (*table)->VariableCount(); ++c) {
            const std::string& name = (*table)->GetVariable(c).fName;
            const std::size_t rows =
                (*table)->GetVariable(c).IsText() ? Texts(**table, name).size() : Numbers(**table, name).size();
            ASSERT_EQ(rows, (*table)->RowCount());
        }
    }
    EXPECT_GT(tables, 50);
}

}  // namespace
