#include "viewer/ChartText.h"

#include <algorithm>
#include <cmath>
#include <locale>
#include <sstream>

namespace viewer {

namespace {

constexpr std::size_t kNone = std::string::npos;

/// What stands for a byte inside of a chart document; null: the byte itself.
const char* Reference(unsigned char byte) {
    switch (byte) {
        case 10:
        case 12:
        case 13:
            return "<BR/>";
        case 14:
            return "&#9472;";
        case 15:
            return "&#9474;";
        case 16:
            return "&#9532;";
        case 17:
            return "&#9492;";
        case 18:
            return "&#9484;";
        case 19:
            return "&#9496;";
        case 20:
            return "&#9488;";
        case 21:
            return "&#9500;";
        case 22:
            return "&#9508;";
        case 23:
            return "&#9516;";
        case 24:
            return "&#9524;";
        case '"':
            return "&quot;";
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        default:
            return nullptr;
    }
}

/// Erases the second of two like elements, searching from a place; where it stood, or kNone.
std::size_t EraseSecond(std::string& text, const std::string& opening, const std::string& closing, std::size_t from) {
    const std::size_t first = text.find(opening, from);
    if (first == kNone) return kNone;
    const std::size_t second = text.find(opening, first + 2);
    if (second == kNone) return kNone;
    const std::size_t end = text.find(closing, second);
    if (end == kNone) return kNone;
    text.erase(second, end + closing.size() - second);
    return second;
}

std::string HideExpression(const FacetLine& line) {
    const std::string& first = line.fvFacetTexts[0];
    const std::string& second = line.fvFacetTexts[1];
    if (first.empty()) return "false";
    std::string expression = "facet1!=&quot;" + first + "&quot;";
    if (!second.empty()) expression += "||facet2!=&quot;" + second + "&quot;";
    return expression;
}

/// Fills the lines in order; false where the document runs out of them.
bool FillLineGuides(std::string& text, const std::map<std::string, FacetLine>& facetLines, std::size_t at) {
    const std::string when = "whenText";
    for (const auto& [key, line] : facetLines) {
        const std::size_t height = text.find("y=", at);
        if (height == kNone) return false;
        text.replace(std::min(height + 3, text.size()), 2, NumberText(line.fHeight));
        at = text.find(when, height);
        if (at == kNone) return false;
        text.replace(at, when.size(), HideExpression(line));
    }
    return true;
}

}  // namespace

void EscapeChartText(std::string& text) {
    std::string escaped;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = std::min<std::size_t>(QVTAMBmbclen_A(text.c_str() + i), text.size() - i);
        const char* reference = length > 1 ? nullptr : Reference(static_cast<unsigned char>(text[i]));
        if (reference) {
            escaped += reference;
        } else {
            escaped.append(text, i, length);
        }
        const bool pair = length == 1 && text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
        i += pair ? 2 : length;
    }
    text = std::move(escaped);
}

double ValueAsNumber(const std::string& text, bool& ok) {
    std::istringstream stream(text);
    stream.exceptions(std::ios::badbit);  // a number that memory is lacking for is none that can't be read
    stream.imbue(std::locale::classic());
    double value = 0.0;
    stream >> value;
    ok = !stream.fail() && stream.eof();
    return value;
}

std::string NumberText(double value) {
    std::ostringstream stream;
    stream.exceptions(std::ios::badbit);
    stream.imbue(std::locale::classic());
    stream << value;
    return stream.str();
}

double SigWeight(double p) {
    static constexpr double kBounds[] = {0.0001, 0.0005, 0.001, 0.005, 0.01, 0.05, 0.1, 0.2};
    double weight = 9.0;
    for (const double bound : kBounds) {
        if (p < bound) return weight;
        weight -= 1.0;
    }
    return weight;
}

std::vector<ArcPoint> ArcLayout(int n, int& count) {
    count = n == 0 ? 1 : n;
    double mid = (n + 1) * 0.5;
    if (mid == 0.0) mid = 1.0;
    std::vector<ArcPoint> points;
    for (int i = n; i >= 1; --i) {
        const double d = 2.0 * std::fabs(i - mid);
        const double size = n;
        points.push_back({size - std::sqrt(size * size - d * d), static_cast<double>(i), size, mid});
    }
    return points;
}

bool ReplaceFirst(std::string& text, const std::string& from, const std::string& to) {
    const std::size_t at = text.find(from);
    if (at == kNone) return false;
    text.replace(at, from.size(), to);
    return true;
}

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != kNone; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

bool InsertBehind(std::string& text, const std::string& mark, const std::string& inserted) {
    const std::size_t at = text.find(mark);
    if (at == kNone) return false;
    text.insert(at + mark.size(), inserted);
    return true;
}

void InsertAhead(std::string& text, const std::string& mark, std::size_t bytes, const std::string& inserted) {
    const std::size_t at = text.find(mark);
    if (at != kNone && at >= bytes) text.insert(at - bytes, inserted);
}

void EraseElement(std::string& text, const std::string& opening, const std::string& closing) {
    const std::size_t from = text.find(opening);
    if (from == kNone) return;
    const std::size_t to = text.find(closing, from);
    if (to != kNone) text.erase(from, to + closing.size() - from);
}

void DropFaceting(std::string& text) {
    const std::string closing = "</facetLayout>";
    const std::size_t from = text.find("<faceting");
    const std::size_t to = text.find(closing);
    if (from == kNone || to == kNone || to < from) return;
    text.erase(from, to + closing.size() - from);
}

void DropSecondFacet(std::string& text) {
    const std::size_t at = EraseSecond(text, "<variableReference", "</variableReference>", 0);
    if (at != kNone) EraseSecond(text, "<facetLevel ", "</facetLevel>", at);
}

void ApplyLineGuides(std::string& text, const std::map<std::string, FacetLine>& facetLines) {
    const std::size_t start = text.find("<lineGuide");
    if (start == kNone || !FillLineGuides(text, facetLines, start)) return;
    const std::size_t left = text.find("whenText");
    if (left == kNone) return;
    const std::string closing = "</lineGuide>";
    const std::size_t from = text.rfind("<lineGuide", left);
    const std::size_t to = text.rfind(closing);
    if (from == kNone || to == kNone || to < from) return;
    text.erase(from, to + closing.size() - from);
}

const char* ValueLabelOf(const QVTA_Variable& variable, const std::string& value) {
    return QVTA_ValueLabelMap(variable.GetValueLabels()).GetLabel(value);
}

const char* ValueLabelOf(const QVTA_Variable& variable, double value) {
    return QVTA_ValueLabelMap(variable.GetValueLabels()).GetLabel(value);
}

bool IsStringVariable(const QVTA_Variable& variable) {
    return variable.GetFormatEx().fType == kFormatA;
}

const char* LabelOfText(const QVTA_Variable& variable, const std::string& value) {
    return IsStringVariable(variable) ? ValueLabelOf(variable, value) : ValueLabelOf(variable, ValueAsNumber(value));
}

void SetValue(VarDataProcessor& data, VarDataHandle variable, std::size_t row, const std::string& value) {
    bool ok = false;
    const double number = ValueAsNumber(value, ok);
    if (ok) {
        data.SetVariableValue(variable, row, number);
    } else {
        data.SetStringVariableValue(variable, row, value);
    }
}

void SetValueTwice(VarDataProcessor& data, VarDataHandle variable, std::size_t row, const std::string& value) {
    SetValue(data, variable, row, value);
    SetValue(data, variable, row + 1, value);
}

const std::string& EntryAt(const std::vector<std::string>& values, std::size_t at) {
    static const std::string none;
    return at < values.size() ? values[at] : none;
}

void Relabel(XVariable axis, const QVTA_Variable& variable) {
    axis.setLabel(VariableChartLabel(variable));
    axis.setQVTAVariable(variable);
    axis.addRelabels();
}

ChartString VariableChartLabel(const QVTA_Variable& variable) {
    const char* label = variable.GetLabel();
    std::string text = label && *label ? label : variable.GetName();
    EscapeChartText(text);
    return XUtility::ChartStringFromLocalCodePage(text);
}

std::string DataText(const std::string& text) {
    return XUtility::ChartStringFromLocalCodePage(text).toUTF8();
}

std::string OutputText(const std::string& text) {
    return XUtility::ChartStringFromOLANG(text).toUTF8();
}

}  // namespace viewer
