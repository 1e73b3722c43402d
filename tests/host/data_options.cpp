#include "host/DataSupport.h"
#include "host/data/DateText.h"

#include <gmock/gmock.h>
#include <map>
#include <random>

using namespace testing_data;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsNan;

namespace {

const char* const kSchema = R"({
  "missingValues": ["", "NA", "-9"],
  "fields": [
    {"name": "sex", "type": "integer", "title": "Sex of the child",
     "categories": [{"value": 1, "label": "boy"}, {"value": 2, "label": "girl"}]},
    {"name": "grade", "type": "string", "categories": ["low", "high"], "categoriesOrdered": true},
    {"name": "dose", "type": "number", "format": "F8.3", "missingValues": ["99"]},
    {"name": "code", "type": "string"}
  ]})";
const char* const kData = "sex,grade,dose,code\n1,low,1,007\n2,NA,-9,7\nNA,high,99,8\n-9,low,2.5,\n";

TEST(DataSchema, GivesColumnsTheirMeaning) {
    const Folder folder;
    folder.Write("kids.schema.json", kSchema);
    const auto read = host::OpenDataFile(folder.Write("kids.csv", kData), {});
    ASSERT_TRUE(read) << read.Error().Message();
    const host::Table& table = **read;
    const host::Variable& sex = table.GetVariable(0);
    EXPECT_EQ(sex.fLabel, "Sex of the child");
    EXPECT_EQ(sex.fLevel, host::Level::kNominal);
    EXPECT_EQ(sex.fNumberLabels, (std::map<double, std::string>{{1, "boy"}, {2, "girl"}}));
    EXPECT_THAT(sex.fMissingNumbers, ElementsAre(-9));
    EXPECT_THAT(Numbers(table, "sex"), ElementsAre(1, 2, IsNan(), -9));
    EXPECT_EQ(table.GetVariable(1).fLevel, host::Level::kOrdinal);
    EXPECT_THAT(table.GetVariable(1).fMissingTexts, ElementsAre("-9", "NA"));
    EXPECT_EQ(table.GetVariable(2).fFormat, (host::PrintFormat{5, 8, 3}));
    EXPECT_THAT(table.GetVariable(2).fMissingNumbers, ElementsAre(99));
    EXPECT_THAT(Texts(table, "code"), ElementsAre("007", "7", "8", ""));
}

TEST(DataSchema, MissingTextsMayBeginLikeNumbers) {
    const Folder folder;
    host::DataOptions options;
    options.fMissing = {"9 or so"};
    const auto table = host::OpenDataFile(folder.Write("d.csv", "x\n1\n9 or so\n3\n"), options);
    ASSERT_TRUE(table);
    EXPECT_THAT(Numbers(**table, "x"), ElementsAre(1, IsNan(), 3));
}

TEST(DataSchema, DatesAreNumbersThatShowAsDates) {
    const Folder folder;
    folder.Write("d.schema.json", R"({"fields": [
        {"name": "day", "type": "date", "missingValues": ["1900-01-01"],
         "categories": [{"value": "2000-02-29", "label": "leap day"}]},
        {"name": "at", "type": "datetime"}, {"name": "clock", "type": "time"},
        {"name": "ours", "type": "date", "format": "%d.%m.%Y"}]})");
    const auto read = host::OpenDataFile(folder.Write("d.csv",
                                                      "day,at,clock,ours\n"
                                                      "1970-01-02,1970-01-02T00:00:01Z,00:01,1.2.2024\n"
                                                      "2000-02-29,1969-12-31 23:59:59.5,23:59:59,x\n"
                                                      ",,,\n"),
                                         {});
    ASSERT_TRUE(read) << read.Error().Message();
    const host::Table& table = **read;
    EXPECT_THAT(Numbers(table, "day"), ElementsAre(1, 11016, IsNan()));
    EXPECT_THAT(Numbers(table, "at"), ElementsAre(86401, -0.5, IsNan()));
    EXPECT_THAT(Numbers(table, "clock"), ElementsAre(60, 86399, IsNan()));
    EXPECT_EQ(table.GetVariable(0).fFormat, (host::PrintFormat{host::kFormatDate, 10, 0}));
    EXPECT_THAT(table.GetVariable(0).fMissingNumbers, ElementsAre(-25567));
    EXPECT_EQ(table.GetVariable(0).fNumberLabels.at(11016), "leap day");
    EXPECT_THAT(Texts(table, "ours"), ElementsAre("1.2.2024", "x", ""));
    // Every day of a span of leap years, one without a leap day in 1900 among them, is read back as it is shown.
    for (int day = -25600; day < 20000; ++day) {
        const std::string text = host::DateText(day, host::DateFormat(host::kFormatDate));
        ASSERT_EQ(host::ReadDate(text, host::kFormatDate), day) << text;
    }
    const QVTA_Format tenths{21, host::kFormatDateTime, 1};
    EXPECT_EQ(host::DateText(-0.04, tenths), "1970-01-01 00:00:00.0");
    EXPECT_EQ(host::DateText(59.96, tenths), "1970-01-01 00:01:00.0");
    EXPECT_EQ(host::DateText(-0.5, tenths), "1969-12-31 23:59:59.5");
    EXPECT_EQ(host::DateText(1e7, tenths), "1970-04-26 17:46:40.0");
    EXPECT_EQ(host::DateText(1e300, tenths), "");
    for (const char* wrong : {"2023-02-29", "2024-13-01", "24-01-01", "2024-01-01x", "2024-01", "01/02/2024", ""})
        EXPECT_FALSE(host::ReadDate(wrong, host::kFormatDate)) << wrong;
    for (const char* wrong : {"24:00", "1:60", "12", "12:00:60", "12:00:00.x"})
        EXPECT_FALSE(host::ReadDate(wrong, host::kFormatTime)) << wrong;
}

TEST(DataSchema, RefusesWhatItCannotMean) {
    const auto refusal = [](const std::string& schema, const std::string& data = "a,b\n1,2\n") {
        const Folder folder;
        host::DataOptions options;
        options.fSchemaFile = folder.Write("s.json", schema);
        const auto table = host::OpenDataFile(folder.Write("d.csv", data), options);
        return table ? std::string("accepted") : table.Error().Message();
    };
    EXPECT_THAT(refusal("{\n\"fields\": [\n}"), HasSubstr("s.json, line 3: the schema isn't valid JSON"));
    EXPECT_THAT(refusal("[1]"), HasSubstr("needs an object with a list \"fields\""));
    EXPECT_THAT(refusal(R"({"fields":[{"name":"aa"}]})"), HasSubstr("no such column; did you mean \"a\"?"));
    EXPECT_THAT(refusal(R"({"fields":[{"name":"a","type":"nombre"}]})"), HasSubstr("the type \"nombre\" isn't known"));
    EXPECT_THAT(refusal(R"({"fields":[{"name":"a"},{"name":"a"}]})"), HasSubstr("this field twice"));
    EXPECT_THAT(refusal(R"({"fields":[{"name":"a","missingValues":3}]})"), HasSubstr("must be a list"));
    EXPECT_THAT(refusal(R"({"fields":[{"name":"a","type":"number"}]})", "a,b\n1,2\nx,2\n"),
                HasSubstr("d.csv, line 3, column \"a\": \"x\" isn't a number, and the schema declares one"));
    EXPECT_THAT(refusal(R"({"fields":[{"name":"a","type":"date"}]})", "a,b\n2024-02-30,2\n"),
                HasSubstr("line 2, column \"a\": \"2024-02-30\" isn't a date or time as the schema declares"));
    EXPECT_THAT(refusal(R"({"fields":[{"name":"a","categories":[{"value":"low","label":"L"}]}]})"),
                HasSubstr("the category \"low\""));
    EXPECT_EQ(refusal(R"({"fields":[{"name":"a","type":"any","other":{}}]})"), "accepted");
}

TEST(DataOptions, NamesMustBeVariables) {
    const auto refusal = [](auto change) {
        host::DataOptions options;
        change(options);
        return Refusal("days,name\n1,x\n2,n/a\n", options).Message();
    };
    EXPECT_THAT(refusal([](auto& o) { o.fNominal = {"day"}; }),
                HasSubstr("\"day\", named as nominal; did you mean \"days\"?"));
    EXPECT_THAT(refusal([](auto& o) { o.fSplitBy = {"zzzzz"}; }), HasSubstr("the variables are days, name"));
    EXPECT_THAT(refusal([](auto& o) { o.fWeight = "name"; }),
                HasSubstr("column \"name\": the frequency weight must be numeric"));
    EXPECT_THAT(refusal([](auto& o) { o.fFilter = "dayz > 1"; }),
                HasSubstr("there is no variable \"dayz\"; did you mean"));
    host::DataOptions levels;
    levels.fOrdinal = {"days"};
    levels.fMissing = {"2"};
    const auto table = Read("days,name\n1,x\n2,n/a\n", levels);
    EXPECT_EQ(table->GetVariable(0).fLevel, host::Level::kOrdinal);
    EXPECT_THAT(table->GetVariable(0).fMissingNumbers, ElementsAre(2));
}

TEST(DataFilter, SelectsTheRowsForWhichTheConditionIsTrue) {
    const std::string data = "age,sex,my var\n9,F,1\n10,F,2\n12,M,3\n,F,4\n11,,5\n";
    const auto rows = [&](const std::string& condition) {
        host::DataOptions options;
        options.fFilter = condition;
        const auto table = Read(data, options);
        return table ? Numbers(*table, "my var") : std::vector<double>();
    };
    EXPECT_THAT(rows("age >= 10 and sex == 'F'"), ElementsAre(2));
    EXPECT_THAT(rows("not age >= 10"), ElementsAre(1));
    EXPECT_THAT(rows("age > 10 OR sex = \"F\""), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_THAT(rows("missing(age) | missing(sex)"), ElementsAre(4, 5));
    EXPECT_THAT(rows("sex in ('M', 'X') || age in (9)"), ElementsAre(1, 3));
    EXPECT_THAT(rows("sex not in ('M') && !(age < 10)"), ElementsAre(2));
    EXPECT_THAT(rows("`my var` * 2 + 1 <= -(-7) and `my var` / 2 <> 1"), ElementsAre(1, 3));
    EXPECT_THAT(rows("sex < 'M'"), ElementsAre(1, 2, 4));
    EXPECT_THAT(rows("age > 100"), ElementsAre());

    for (const char* bad :
         {"", "age >", "age > 'x'", "age", "(age > 1", "age > 1)", "age > 1 and", "not 3", "'a' + 1 > 2", "in (1)",
          "age in 1", "sex == 'F", "(age > 1) == (age > 2)", "1e999 > age"}) {
        host::DataOptions options;
        options.fFilter = bad;
        if (*bad != '\0') {
            EXPECT_THAT(Refusal(data, options).Message(), HasSubstr("can't be read")) << bad;
        }
    }
    host::DataOptions deep;
    deep.fFilter = std::string(1000, '(') + "age > 1" + std::string(1000, ')');
    EXPECT_THAT(Refusal(data, deep).Message(), HasSubstr("nested too deeply"));
    deep.fFilter.clear();
    for (int i = 0; i < 1000; ++i)
        deep.fFilter += "-";
    deep.fFilter += "age > 1";
    EXPECT_THAT(Refusal(data, deep).Message(), HasSubstr("nested too deeply"));
    deep.fFilter = std::string(100000, '-');
    EXPECT_THAT(Refusal(data, deep).Message(), HasSubstr("longer than 10000 characters"));
}

// Splits scattered over the file come together in the order of their values, whatever the memory for it.
TEST(DataOrder, SplitsStandTogetherInOrderAndKeepTheirRows) {
    std::mt19937 random(3);
    std::string text = "g,h,row,name\n";
    std::map<std::pair<double, std::string>, std::vector<double>> expected;
    const char* const names[] = {"", "Zoe", "anna", "\xC3\xA9va"};
    for (int i = 0; i < 40000; ++i) {
        const int g = static_cast<int>(random() % 5) - 2;
        const std::string h = names[random() % 4];
        const bool selected = random() % 10 != 0;
        text +=
            (g == 2 ? "" : std::to_string(g)) + "," + h + "," + std::to_string(i) + "," + (selected ? "y" : "n") + "\n";
        if (selected) expected[{g == 2 ? -1e300 : g, h}].push_back(i);
    }
    for (const std::size_t window : {std::size_t{1}, std::size_t{300000}, std::size_t{64} << 20}) {
        host::DataOptions options;
        options.fSplitBy = {"g", "h"};
        options.fFilter = "name == 'y'";
        options.fWindowBytes = window;
        options.fPlace.fMemoryBudget = window;
        const auto table = Read(text, options);
        ASSERT_EQ(table->Splits().size(), expected.size());
        const auto rows = Numbers(*table, "row");
        const auto names_ = Texts(*table, "h");
        std::vector<double> inputRows(table->RowCount());
        table->ReadInputRows(0, inputRows.size(), inputRows.data());
        EXPECT_EQ(inputRows, rows);
        EXPECT_EQ(table->InputRowCount(), 40000u);
        std::size_t split = 0;
        for (const auto& [key, own] : expected) {
            const host::SplitRange& range = table->Splits()[split++];
            ASSERT_EQ(range.fCount, own.size());
            EXPECT_EQ(names_[range.fFirst], key.second);
            EXPECT_TRUE(std::equal(own.begin(), own.end(), rows.begin() + static_cast<long>(range.fFirst)));
        }
    }
}

TEST(DataOrder, RowsThatStandRightlyStay) {
    host::DataOptions options;
    options.fSplitBy = {"g"};
    const auto table = Read("g,x\n1,a\n1,b\n10,c\n", options);
    EXPECT_EQ(table->Splits().size(), 2u);
    EXPECT_EQ(table->Splits()[1].fFirst, 2u);
    options.fFilter = "x == 'none'";
    EXPECT_EQ(Read("g,x\n1,a\n", options)->Splits().size(), 0u);
}

TEST(TableBuilder, MakesTheTableThatAFileWouldGive) {
    host::TableBuilder builder;
    builder.Numbers("x", {1.5, NAN, -0.0}).Texts("s", {"b ", "", "a"});
    builder.Last().fLabel = "A text";
    const auto table = builder.Finish();
    ASSERT_TRUE(table);
    EXPECT_THAT(Numbers(**table, "x"), ElementsAre(1.5, IsNan(), 0.0));
    EXPECT_FALSE(std::signbit(Numbers(**table, "x")[2]));
    EXPECT_THAT(Texts(**table, "s"), ElementsAre("b", "", "a"));
    EXPECT_EQ((*table)->GetVariable(0).fFormat, (host::PrintFormat{5, 3, 1}));
    EXPECT_FALSE(host::TableBuilder().Numbers("x", {1}).Numbers("y", {1, 2}).Finish());
    EXPECT_FALSE(host::TableBuilder().Numbers("x", {1}).Texts("x", {"a"}).Finish());
}

}  // namespace
