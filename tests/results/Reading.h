#pragma once

#include "contracts/CustomProcedure.h"
#include "contracts/HostData.h"
#include "host/data/DataSource.h"
#include "host/data/TableBuilder.h"
#include "host/documents/SourceMetaData.h"
#include "host/output/OutputDocument.h"
#include "results/HRFTOutputStats.h"
#include "results/HRFTParseOutXML.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A result document read into a record, on data of a few rows: numbers y, x, n and w, factors a (1, 2), t (1 to 3),
/// u ("hi", "lo") and kind ("no", "yes"), subjects s ("s 1" to "s 3").
namespace reading_test {

enum Field { kY, kA, kT, kU, kKind, kS, kX, kN, kW };

inline host::TableBuilder Data() {
    host::TableBuilder data;
    data.Numbers("y", {1.5, 2.5, 3.5, 4.5});
    data.Last().fLabel = "Yield";
    data.Numbers("a", {1, 2, 1, 2});
    data.Numbers("t", {1, 2, 3, 1});
    data.Texts("u", {"hi", "lo", "hi", "lo"});
    data.Texts("kind", {"no", "yes", "no", "yes"});
    data.Texts("s", {"s 1", "s 2", "s 3", "s 1"});
    data.Numbers("x", {0.5, 1.5, 2.5, 3.5});
    data.Numbers("n", {20, 30, 40, 50});
    data.Numbers("w", {1, 1, 1, 1});
    return data;
}

/// A model document of all variables but w. "ghost" stands in no data.
inline const char* const kModelDocument = R"(<PMML><DataDictionary>
  <DataField name="y" optype="continuous" dataType="double"/>
  <DataField name="a" optype="categorical" dataType="double"><Value value="1"/><Value value="2"/></DataField>
  <DataField name="ghost" optype="categorical" dataType="double"><Value value="1"/></DataField>
  <DataField name="t" optype="ordinal" dataType="double"><Value value="1"/><Value value="2"/><Value value="3"/></DataField>
  <DataField name="u" optype="categorical" dataType="string"><Value value="hi"/><Value value="lo"/></DataField>
  <DataField name="kind" optype="categorical" dataType="string"><Value value="no"/><Value value="yes"/></DataField>
  <DataField name="s" optype="categorical" dataType="string"><Value value="s 1"/><Value value="s 2"/><Value value="s 3"/></DataField>
  <DataField name="x" optype="continuous" dataType="double"/>
  <DataField name="n" optype="continuous" dataType="double"/>
</DataDictionary></PMML>)";

/// A document that has every element of the grammar.
inline const std::string& FullDocument() {
    static const std::string text = [] {
        std::ifstream file(HIERFIT_SOURCE_DIR "/tests/results/documents/full.xml");
        return std::string(std::istreambuf_iterator<char>(file), {});
    }();
    return text;
}

/// The text with every piece replaced in turn: all its places. A piece that isn't there is a fault of the test.
using Change = std::vector<std::pair<std::string, std::string>>;

inline std::string Changed(std::string text, const Change& change) {
    for (const auto& [from, to] : change) {
        std::size_t at = text.find(from);
        if (at == std::string::npos) ADD_FAILURE() << "the document has no " << from;
        for (; at != std::string::npos; at = text.find(from, at + to.size()))
            text.replace(at, from.size(), to);
    }
    return text;
}

/// The texts of values that must have been found in the data.
inline std::vector<std::string> TextsOf(const std::vector<CFStatVariableValue>& values) {
    std::vector<std::string> texts;
    for (const auto& value : values) {
        EXPECT_NE(value.GetObsValue(), nullptr) << value.GetStringValue();
        texts.push_back(value.GetStringValue());
    }
    return texts;
}

/// The data and the output in which documents are read. Each reading has a record of its own.
class Reading {
public:
    Reading() { fStats.SetMetaData(&fMetaData); }

    /// Reads a result document; messages go into the output.
    bool Read(const std::string& statXML, const std::string& pmml = kModelDocument) {
        BpProcedure procedure = fDocument.Procedure();
        HRFTParseOutXML reader(&procedure, &fSource, &fStats, pmml, statXML);
        return reader.Read();
    }

    HRFTOutputStats& Stats() { return fStats; }
    const BuildSettings& Settings() const { return *fStats.GetBuildSettings(); }
    ProcedureDataSource& Source() { return fSource; }
    CFMetaData& MetaData() { return fMetaData; }
    host::OutputDocument& Document() { return fDocument; }
    const host::OutputDocument& Document() const { return fDocument; }

private:
    host::OutputDocument fDocument{"Mixed Model Analysis"};
    host::OutputScope fOutput{fDocument};
    ProcedureDataSource fSource{host::MakeDataSource(*Data().Finish())};
    host::SourceMetaData fMetaData{fSource};
    HRFTOutputStats fStats;
};

}  // namespace reading_test
