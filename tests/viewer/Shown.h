#pragma once

#include "results/Reading.h"
#include "tables/TreeReading.h"
#include "viewer/HRFTOutput.h"

#include <algorithm>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// The viewer's output of a record, read back.
namespace viewer_test {

using reading::TableView;
using Texts = std::vector<std::string>;

/// A table by its path, "Heading > Title".
inline TableView TableAt(const reading::TableList& list, const std::string& path) {
    for (std::size_t i = 0; i < list.fvPaths.size(); ++i) {
        if (list.fvPaths[i] == path) return TableView(*list.fvTables[i]);
    }
    ADD_FAILURE() << "no table " << path;
    static const output::Table none;
    return TableView(none);
}

inline std::string TextAt(const TableView& table, const Texts& paths) {
    const output::Cell* cell = table.At(paths);
    return cell ? reading::Shown(cell->fpText) : "(no cell)";
}

/// The notes at a category of a dimension.
inline Texts CategoryNotes(const TableView& table, int dimension, const std::string& path) {
    for (const auto* category : table.Dimension(dimension).Categories()) {
        if (reading::PathOf(*category) == path) return reading::Shown(category->fvNotes);
    }
    return {"(no category)"};
}

/// A row's figures, column by column; a column without a cell in the row is left out.
inline std::vector<double> RowOf(const TableView& table, const std::string& row, int columns = 1) {
    std::vector<double> values;
    for (const auto& column : table.Categories(columns)) {
        if (table.At({row, column})) values.push_back(table.Value({row, column}));
    }
    return values;
}

/// Makes these keys the record's warnings.
inline void Warn(HRFTOutputStats& stats, const Texts& keys) {
    stats.GetWarningList().clear();
    for (const std::string& key : keys)
        stats.GetWarningList().push_back({key, {}});
}

/// The record of a document that has everything, changed as a test wants it, and what the viewer makes of it.
class Shown {
public:
    explicit Shown(const std::function<void(HRFTOutputStats&)>& change = {}) {
        EXPECT_TRUE(fReading.Read(reading_test::FullDocument()));
        if (change) change(fReading.Stats());
        BpProcedure procedure = fReading.Document().Procedure();
        HRFTOutput(&procedure, &fReading.Source(), &fReading.Stats()).Display();
        fReading.Document().Root().Visit(fList);
    }

    TableView Table(const std::string& path) const { return TableAt(fList, path); }
    bool Has(const std::string& path) const {
        return std::find(fList.fvPaths.begin(), fList.fvPaths.end(), path) != fList.fvPaths.end();
    }
    const Texts& Paths() const { return fList.fvPaths; }
    const Texts& Messages() const { return fList.fvMessages; }
    const std::vector<const output::Table*>& Tables() const { return fList.fvTables; }
    /// The messages as a reader sees them.
    Texts DisplayedMessages() const {
        struct Collector : output::Visitor {
            void Show(const output::Message& message) override {
                fvTexts.push_back(message.fpText->Show(host::Catalogue::Current()));
            }
            Texts fvTexts;
        } collector;
        fReading.Document().Root().Visit(collector);
        return collector.fvTexts;
    }

private:
    reading_test::Reading fReading;
    reading::TableList fList;
};

}  // namespace viewer_test
