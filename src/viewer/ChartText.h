#pragma once

#include "contracts/ChartService.h"
#include "contracts/HostData.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// Chart documents as plain text, and the small rules that all charts share. Places are found byte by byte; a place
/// that isn't there leaves the text as it is.
namespace viewer {

/// The text for the inside of a chart document: marks of the language as references, line ends as "<BR/>", the host's
/// codes for box drawing (bytes 14 to 24) as the characters that they stand for.
void EscapeChartText(std::string& text);

/// The number at the whole of a text, with ok; 0 with ok false where there is none or something stands behind it.
double ValueAsNumber(const std::string& text, bool& ok);
inline double ValueAsNumber(const std::string& text) {
    bool ok = false;
    return ValueAsNumber(text, ok);
}

/// Six significant digits, the shorter of fixed and scientific.
std::string NumberText(double value);

/// Thickness of an edge by the significance of what it stands for: 9 for the least p, 1 for 0.2 and above. A missing
/// significance is below all others.
double SigWeight(double p);

/// An edge from a node on the arc to the target.
struct ArcPoint {
    double fFromX, fFromY, fToX, fToY;
};

/// Places n nodes on an arc around the target node, the topmost first. count is n, or 1 without nodes.
std::vector<ArcPoint> ArcLayout(int n, int& count);

/// Replaces the first occurrence, or all; whether there was one.
bool ReplaceFirst(std::string& text, const std::string& from, const std::string& to);
void ReplaceAll(std::string& text, const std::string& from, const std::string& to);
/// Inserts behind the first occurrence of a mark; whether there was one.
bool InsertBehind(std::string& text, const std::string& mark, const std::string& inserted);
/// Inserts so many bytes ahead of the first occurrence of a mark.
void InsertAhead(std::string& text, const std::string& mark, std::size_t bytes, const std::string& inserted);
/// Erases from the first occurrence of the opening through the closing that follows it.
void EraseElement(std::string& text, const std::string& opening, const std::string& closing);

/// Takes the facets out of a document that has places for two.
void DropFaceting(std::string& text);
/// Leaves the first facet and takes out the second.
void DropSecondFacet(std::string& text);

/// One horizontal line, that of one combination of the facets.
struct FacetLine {
    std::string fvFacetTexts[2];
    double fHeight = 0.0;
    struct Row {
        double fMean, fLower, fUpper;
    };
    std::map<std::string, Row> fRows;  ///< by category value
};

/// Fills the document's lines, one for each entry, and takes out those that are left.
void ApplyLineGuides(std::string& text, const std::map<std::string, FacetLine>& facetLines);

/// The label of a value, or null; of a text, or of a number.
const char* ValueLabelOf(const QVTA_Variable& variable, const std::string& value);
const char* ValueLabelOf(const QVTA_Variable& variable, double value);
bool IsStringVariable(const QVTA_Variable& variable);
/// The label of a value that a document gives as text: by the text for a string variable, else by its number.
const char* LabelOfText(const QVTA_Variable& variable, const std::string& value);

/// Stores a value that a document gives as text: as a number where the whole text is one, else as text.
void SetValue(VarDataProcessor& data, VarDataHandle variable, std::size_t row, const std::string& value);
/// The same in two consecutive rows.
void SetValueTwice(VarDataProcessor& data, VarDataHandle variable, std::size_t row, const std::string& value);

/// The entry of a document's list; empty behind its end.
const std::string& EntryAt(const std::vector<std::string>& values, std::size_t at);

/// Makes an axis show a variable: its label, and its value labels in the values' place.
void Relabel(XVariable axis, const QVTA_Variable& variable);

/// The variable's label, else its name, for the inside of a chart document.
ChartString VariableChartLabel(const QVTA_Variable& variable);

/// A name or label of the data as UTF-8.
std::string DataText(const std::string& text);
/// A text of the output's language as UTF-8.
std::string OutputText(const std::string& text);

}  // namespace viewer
