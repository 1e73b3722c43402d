#pragma once

#include "contracts/HostOutput.h"
#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

#include <string>
#include <vector>

/// A document such as a run writes: classic tables of the sleep study (Belenky et al., Journal of Sleep Research 12,
/// 2003), with rounded figures, since only their looks matter here.
struct SampleDocument {
    SampleDocument() { fDocument.SetHalf(output::Half::kClassic); }

    static constexpr double kMissing = -1.7976931348623157e308;

    static BpComposite Dependent(const std::string& name) {
        BpComposite note("Dep variable is ^1", true);
        note.Add(BpString(name, false));
        note.Finish();
        return note;
    }

    void InformationCriteria() {
        const BpString name("Information Criteria", true);
        auto table = fRoot.PivotTable(name, name, true);
        table.Note(BpAnnotation(Dependent("reaction")));
        table.Caption(BpString("Smaller is better ...", true));
        auto rows = table.Dimension(BpString("Statistics", true), 2);
        rows.Position(0, 1, true, false);
        const std::pair<const char*, double> figures[] = {{"-2 Restricted Log Likelihood", 1743.6282719599},
                                                          {"Akaike IC", 1751.6282719599},
                                                          {"Bayesian IC", kMissing}};
        for (const auto& [label, value] : figures) {
            rows.Category(BpString(label, true)).Cell(BpNumber(value, BpProcedure::GeneralStat()));
        }
    }

    void Estimates() {
        auto heading = fRoot.Heading(BpString("Fixed Effects", true));
        auto table = heading.PivotTable(BpString("Fixed Parameter Estimates", true),
                                        BpString("Parameter Estimates", true), true);
        table.Note(BpAnnotation(Dependent("reaction")));
        auto rows = table.Dimension(BpString("Parameter", true), 2);
        rows.Position(0, 1, false, false);
        auto columns = table.Dimension(BpString("Statistics", true), 2);
        columns.Position(1, 1, true, false);
        const double m = kMissing;
        Estimate(rows, columns, "(Intercept)", {251.40510484848, 6.8245967, 17, 36.838, 1e-17, 237.0063, 265.8039});
        Estimate(rows, columns, "days", {10.467285959596, 1.5457890, 17, 6.7715, 3.3e-06, 7.2059, 13.7287});
        Estimate(rows, columns, "[sex=2]", {0, 0, m, m, m, m, m}, true);
    }

    static void Estimate(BpDimension& rows, BpDimension& columns, const std::string& label,
                         const std::vector<double>& v, bool redundant = false) {
        rows.Category(BpString(label, false));
        auto first = columns.Category(BpString("B0", true));
        const auto count = BpProcedure::Count();
        first.Cell(BpNumber(v[0], redundant ? count : BpProcedure::Coefficient()));
        if (redundant) first.CellNote(BpAnnotation(BpString("Redundant parameter ...", true)));
        const auto put = [](BpGroup group, const char* name, double value, const BpFormatSpec& format) {
            group.Category(BpString(name, true)).Cell(BpNumber(value, format));
        };
        put(columns, "Standard Error", v[1], redundant ? count : BpProcedure::CoefficientSE());
        put(columns, "Degrees of Freedom", v[2], count);
        put(columns, "t Statistic", v[3], BpProcedure::GeneralStat());
        put(columns, "Significance", v[4], BpProcedure::Significance());
        BpComposite level("^1 Confidence Interval", true);
        level.Add(BpNumber(95.0, BpProcedure::SigDigit(95.0)));
        level.Finish();
        auto limits = columns.Group(level, true, 2);
        put(limits, "Lower Bound", v[5], BpProcedure::Coefficient());
        put(limits, "Upper Bound", v[6], BpProcedure::Coefficient());
    }

    /// Two row dimensions and a hidden third, groups beside ungrouped columns, notes on a category and on cells, texts
    /// as cells.
    void Nested() {
        auto table = fRoot.PivotTable(BpString("Data Structure", true), BpString("DataStructure", false), true);
        auto record = table.Dimension(BpString("Record", false), 2);
        record.Position(0, 1, true, true);
        auto data = table.Dimension(BpString("Data", false), 2);
        data.Position(0, 2, true, false);
        auto columns = table.Dimension(BpString("Variables", false), 2);
        columns.Position(1, 1, true, false);
        data.Category(BpString("Data for First Subject", true));
        for (int r = 0; r < 3; ++r) {
            record.Category(BpNumber(r, BpProcedure::Count()));
            columns.Group(BpString("Subjects", true), true, 2)
                .Category(BpString("subject", false))
                .Cell(BpString("s308", false));
            auto target = columns.Group(BpString("Target", true), true, 2);
            auto events = target.Category(BpString("events", false));
            events.Cell(BpNumber(r * 10.25, BpProcedure::GeneralStat()));
            if (r == 1) events.CellNote(BpAnnotation(BpString("second note", false)));
            if (r == 0) events.Note(BpAnnotation(BpString("Number of trials: 12", false)));
        }
        data.Category(BpString("Total Number of Levels", true));
        record.Category(BpString("Levels", false));
        columns.Group(BpString("Subjects", true), true, 2)
            .Category(BpString("subject", false))
            .Cell(BpNumber(18, BpProcedure::Count()));
        auto plain = columns.Category(BpString("all", false));
        plain.Cell(BpNumber(180, BpProcedure::Count()));
        plain.CellNote(BpAnnotation(BpString("Number of trials: 12", false)));
    }

    run::RunValue fRun;
    host::OutputDocument fDocument{"Linear Mixed Model"};
    run::Scope fRunScope{fRun};
    host::OutputScope fScope{fDocument};
    BpProcedure fRoot = fDocument.Procedure();
};
