#pragma once

#include "command/ParsedBlock.h"
#include "contracts/Host.h"
#include "host/data/DataSource.h"
#include "host/data/FrontEnd.h"
#include "host/data/TableBuilder.h"
#include "host/output/OutputDocument.h"
#include "host/output/Tree.h"
#include "procedure/MIXValidSpecs.h"
#include "procedure/MixDriver.h"
#include "run/RunValue.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

/// A command whose memory areas a test fills slot by slot, on data that a test makes, in the embedded host.
namespace procedure_test {

using Ints = std::vector<int>;
using Cells = std::vector<std::int64_t>;
using Doubles = std::vector<double>;
using Flags = std::vector<bool>;

inline const double kNaN = std::numeric_limits<double>::quiet_NaN();

/// Host indices of the usual data. In the areas a variable's number is one more.
enum Var { kY, kA, kB, kX, kZ, kSubject, kTime, kCoord, kWeight, kRegion };

/// Twelve rows: factors a (1 2) and b ("lo" "hi"), covariates x and z, three subjects, times 1 to 4, two regions.
inline host::TableBuilder UsualData() {
    host::TableBuilder data;
    data.Numbers("y", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
    data.Last().fFormat = {5, 39, 15};
    data.Numbers("a", {1, 1, 1, 1, 2, 2, 2, 2, 1, 1, 2, 2});
    data.Texts("b", {"lo", "hi", "lo", "hi", "lo", "hi", "lo", "hi", "lo", "hi", "lo", "hi"});
    data.Numbers("x", {2, 7, 1, 8, 2, 8, 1, 8, 2, 8, 4, 5});
    data.Numbers("z", {3, 1, 4, 1, 5, 9, 2, 6, 5, 3, 5, 8});
    data.Numbers("subject", {1, 1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3});
    data.Numbers("time", {1, 2, 3, 4, 1, 2, 3, 4, 1, 2, 3, 4});
    data.Numbers("coord", {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3});
    data.Numbers("weight", {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1});
    data.Texts("region", {"n", "n", "n", "n", "s", "s", "s", "s", "s", "s", "s", "s"});
    return data;
}

/// A text of the output as the system wrote it: a literal, or a composite's pattern.
inline std::string Key(const output::Text& text) {
    const auto* composite = dynamic_cast<const output::CompositeNode*>(text.get());
    return composite ? composite->fPattern : text->Show(host::Catalogue());
}

struct Said {
    int fLevel;
    std::string fKey;
    bool operator==(const Said&) const = default;
};

inline void PrintTo(const Said& said, std::ostream* stream) {
    *stream << said.fLevel << " " << said.fKey;
}

struct Listener : output::Visitor {
    void Show(const output::Message& message) override {
        fvSaid.push_back({message.fLevel, Key(message.fpText)});
        fvTexts.push_back(message.fpText);
    }
    void Show(const output::Table& table) override { fvTables.push_back(&table); }
    std::vector<Said> fvSaid;
    std::vector<output::Text> fvTexts;
    std::vector<const output::Table*> fvTables;
};

class CommandRun {
public:
    explicit CommandRun(host::TableBuilder data = UsualData(), const host::DataOptions& options = {})
        : fSource(host::MakeDataSource(*data.Finish(options))) {
        fAreas.Append(Cells(8, 0));  // no list stands at position 1
        Slot(104, kY + 1);
        Slot(344, 100);
        Slot(352, 10);
        Slot(240, 1);
        Slot(1896, 1);
        SlotDouble(0, 95.0);
        SlotDouble(64, 1e-6);
        SlotDouble(80, 1e-12);
        Slot(1680, 12);
    }

    void Slot(int offset, std::int64_t value) { fAreas.SetSlot(offset, value); }
    void SlotDouble(int offset, double value) { fAreas.SetSlotDouble(offset, value); }
    void Field(std::size_t offset, const std::string& text) { fAreas.SetText(offset, text); }
    std::int64_t Append(const Cells& cells) { return fAreas.Append(cells); }

    void List(int countSlot, int startSlot, const Cells& cells) {
        Slot(countSlot, static_cast<std::int64_t>(cells.size()));
        Slot(startSlot, Append(cells));
    }
    void Variables(int countSlot, int startSlot, const Ints& hostIndices) {
        Cells numbers;
        for (const int index : hostIndices)
            numbers.push_back(index + 1);
        List(countSlot, startSlot, numbers);
    }
    void Factors(const Ints& hostIndices) { Variables(416, 792, hostIndices); }
    void Covariates(const Ints& hostIndices) { Variables(368, 672, hostIndices); }
    /// Effect rows, end to end; width is that of the factors and covariates.
    void FixedRows(int count, const Cells& rows) {
        Slot(392, count);
        Slot(768, Append(rows));
    }
    /// Random rows: per block its row count and solution flag, per row its covariance code and subjects.
    void RandomRows(const Cells& rows, const Cells& blockRows, const Cells& solutions, const Cells& rowTypes,
                    const std::vector<Ints>& rowSubjects) {
        Slot(400, static_cast<std::int64_t>(rowTypes.size()));
        Slot(784, Append(rows));
        List(512, 1040, blockRows);
        Slot(1456, Append(solutions));
        Slot(1216, Append(rowTypes));
        Cells counts, lists;
        Ints all;
        for (const Ints& subjects : rowSubjects) {
            Cells numbers;
            for (const int subject : subjects)
                numbers.push_back(subject + 1);
            counts.push_back(static_cast<std::int64_t>(numbers.size()));
            lists.push_back(numbers.empty() ? 0 : Append(numbers));
            all.insert(all.end(), subjects.begin(), subjects.end());
        }
        Slot(1304, Append(counts));
        Slot(1416, Append(lists));
        Variables(608, 1504, all);
    }
    /// One random block of one row.
    void RandomBlock(const Cells& row, int type, const Ints& subjects, int solution = 0) {
        RandomRows(row, {1}, {solution}, {type}, {subjects});
    }
    void Chain(int countSlot, int headSlot, const std::vector<Doubles>& records) {
        Slot(countSlot, static_cast<std::int64_t>(records.size()));
        std::int64_t link = 0;
        for (const Doubles& record : records) {
            link = fAreas.AppendLink(fAreas.AppendDoubles(record), link);
            if (fAreas.SlotCells()[headSlot / 8] == 0) Slot(headSlot, link);
        }
    }
    double Texts(const std::string& text) { return static_cast<double>(fAreas.AppendText(text, 0)); }
    double Numbers(const Doubles& values) { return static_cast<double>(fAreas.AppendDoubles(values)); }
    double Counts(const Cells& cells) { return static_cast<double>(Append(cells)); }

    /// The specification, not read yet. The areas must not grow after this.
    MIXValidSpecs& Specs() {
        EXPOSEMIX(fAreas.Slots(), fAreas.Texts());
        fSpecs = std::make_unique<MIXValidSpecs>(fAreas.Cells(), fSource);
        return *fSpecs;
    }
    MIXValidSpecs& ReadSpecs() {
        Specs().SetMixedSpecs();
        return *fSpecs;
    }
    MIXValidSpecs& CompletedSpecs() {
        ReadSpecs().CompleteSpecs();
        return *fSpecs;
    }

    ProcedureDataSource& Source() { return fSource; }
    BpProcedure& Procedure() { return fProcedure; }
    run::RunValue& Value() { return fValue; }
    void* Block() {
        EXPOSEMIX(fAreas.Slots(), fAreas.Texts());
        return fAreas.Cells();
    }

    Listener Heard() const {
        Listener listener;
        fDocument.Root().Visit(listener);
        return listener;
    }
    std::vector<Said> Messages() const { return Heard().fvSaid; }

private:
    run::RunValue fValue;
    run::Scope fScope{fValue};
    host::OutputDocument fDocument{"Mixed"};
    host::OutputScope fOutput{fDocument};
    BpProcedure fProcedure = fDocument.Procedure();
    command::ParsedBlock fAreas;
    ProcedureDataSource fSource;
    std::unique_ptr<MIXValidSpecs> fSpecs;
};

}  // namespace procedure_test
