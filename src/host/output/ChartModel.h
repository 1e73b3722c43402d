#pragma once

#include "contracts/HostData.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

/// What a chart is to a renderer: rows, the marks that show them, axes, legends, facets and texts. All texts are plain.
namespace output {

/// Nothing, a number or a text.
using Datum = std::variant<std::monostate, double, std::string>;

/// Whether a value is the one that a text spells.
bool Spells(const std::string& text, const Datum& value);

inline bool IsUnset(const Datum& datum) {
    return std::holds_alternative<std::monostate>(datum);
}

/// One variable of a source.
struct ChartField {
    std::string fName;
    std::string fLabel;  ///< empty: none
    bool fCategorical = false;
    std::optional<QVTA_Format> fFormat;                     ///< of its numbers
    std::string fPrefix;                                    ///< stands ahead of each value
    std::vector<std::pair<Datum, std::string>> fvRelabels;  ///< what values show as; the first match holds
    bool fFine = false;  ///< its numbers have more digits than the format: they are means of such values

    /// A value as a reader sees it, without the prefix.
    std::string Shown(const Datum& value) const;
};

struct ChartSource {
    std::string fName;
    std::size_t fRowsPerCase = 1;  ///< so many consecutive rows make one mark
    std::vector<ChartField> fvFields;
    std::vector<std::vector<Datum>> fvRows;  ///< a row may be shorter than the fields: the rest is unset

    /// The position of a field; negative without one.
    int Find(const std::string& name) const;
    const Datum& At(std::size_t row, int field) const;
    std::size_t Cases() const { return (fvRows.size() + fRowsPerCase - 1) / fRowsPerCase; }
    bool HasValues(int field) const;
    /// Finds the fields whose numbers have more digits than their format.
    void SettleDigits();
};

/// One property of a layer's marks and the variable behind it.
struct ChartChannel {
    std::string fRole;     ///< x, y, x2, y2, color, opacity, size, shape, text
    std::string fField;    ///< of the layer's source
    std::size_t fRow = 0;  ///< which of a case's rows
    std::string fTitle;    ///< of a legend or a table's column; empty: the field's label
    double fLow = 0.0;     ///< range of a size; both 0: the renderer's own
    double fHigh = 0.0;
    std::string fPalette;  ///< of a colour with a meaning: significance (0 or 1) or sign; empty: none
};

enum class ChartMark { kPoint, kBar, kInterval, kEdge, kText, kLine, kTarget };

/// Marks of one kind, one for each case of a source.
struct ChartLayer {
    ChartMark fMark = ChartMark::kPoint;
    std::string fSource;
    std::vector<ChartChannel> fvChannels;
    std::string fPlace;    ///< of a text: before its point, or around the centre; empty: on the point
    std::string fTooltip;  ///< the field whose text a mark shows on touch; empty: the readers' columns

    const ChartChannel* Channel(const std::string& role) const;
};

struct ChartAxis {
    std::string fAlong;  ///< x or y
    std::string fTitle;
    bool fVisible = true;
    std::optional<double> fMin, fMax;
};

/// A straight line across the plot.
struct ChartGuide {
    bool fDiagonal = false;  ///< y = x; else horizontal at fHeight
    double fHeight = 0.0;
    std::vector<std::string> fvFacetTexts;  ///< the panel that it stands in; empty: every one
};

struct ChartLegend {
    std::string fFor;  ///< the role that it explains
    std::string fTitle;
    bool fVisible = true;
};

/// A column of the rows as a table, for those who can't see the picture.
struct ChartColumn {
    std::string fSource;
    std::string fField;
    std::size_t fRow = 0;
    std::string fLabel;
};

struct ChartModel {
    std::string fKind;         ///< the template's name
    std::string fTitle;        ///< of the chart itself
    std::string fSubtitle;     ///< empty: none
    std::string fDescription;  ///< in an outline
    std::string fSummary;      ///< a sentence on what the picture shows
    std::string fCaption;
    std::vector<std::string> fvFootnotes;
    bool fDiagram = false;  ///< nodes and edges without scales
    std::vector<ChartSource> fvSources;
    std::vector<ChartLayer> fvLayers;
    std::vector<ChartAxis> fvAxes;
    std::vector<ChartGuide> fvGuides;
    std::vector<ChartLegend> fvLegends;
    std::vector<std::string> fvFacets;  ///< at most two fields, the same in every source
    std::vector<ChartColumn> fvColumns;
    std::shared_ptr<const ChartModel> fpInset;  ///< a chart beside this one; null: none

    const ChartSource* Source(const std::string& name) const;
    const ChartAxis* Axis(const std::string& along) const;
    const ChartLegend* Legend(const std::string& role) const;
    /// The columns' heads, and the rows as texts: each source that has columns, case by case, empty ones left out.
    std::vector<std::string> ColumnTitles() const;
    std::vector<std::vector<std::string>> RowTexts() const;
};

}  // namespace output
