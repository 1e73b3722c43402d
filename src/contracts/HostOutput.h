#pragma once

#include "contracts/HostData.h"

#include <memory>
#include <string>
#include <vector>

/// The host's output document: a tree of headings, tables and messages, and the texts that stand in it.

namespace output {
struct Node;      ///< a heading, table, chart or message of the host's tree
struct TextNode;  ///< a text with its parts, formats and translation flags
}  // namespace output

/// A number's appearance in a table.
class BpFormatSpec {
public:
    enum Kind {
        kFormat,
        kCoefficient,
        kCoefficientSE,
        kCorrelation,
        kCount,
        kGeneralStat,
        kPercent,
        kSignificance,
        kSigDigit,
        kMean
    };
    explicit BpFormatSpec(QVTA_Format format) : fKind(kFormat), fFormat(format) {}
    explicit BpFormatSpec(Kind kind, double value = 0.0) : fKind(kind), fValue(value) {}
    Kind GetKind() const { return fKind; }
    QVTA_Format GetFormat() const { return fFormat; }
    double GetValue() const {
        return fValue;
    }  ///< SigDigit: the number whose digits decide; Mean: the variable's index

private:
    Kind fKind;
    QVTA_Format fFormat;
    double fValue = 0.0;
};

/// Base of all texts that can stand in the output. A text is a value: copies share their finished content.
class BpCellText {
public:
    virtual ~BpCellText();
    long Replicate() const;  ///< a handle of a copy that the host owns
    const std::shared_ptr<output::TextNode>& Node() const { return fpNode; }

protected:
    explicit BpCellText(std::shared_ptr<output::TextNode> node);
    std::shared_ptr<output::TextNode> fpNode;
};

/// A text. The bool says that the literal goes through the host's translation; false that it is already user text.
class BpString : public BpCellText {
public:
    BpString(const std::string& text, bool translate);
    BpString(const std::string& text, bool translate, bool isKey);
};

/// A number in a format. A missing value renders as the host's missing cell.
class BpNumber : public BpCellText {
public:
    BpNumber(double value, const BpFormatSpec& format);
};

/// A variable's name or label.
class BpVariable : public BpCellText {
public:
    enum Show { kName = 0, kLabel = 1, kPreferred = 2 };
    BpVariable(const QVTA_Variable& variable, Show show);
    BpVariable(const QVTA_Variable& variable, int show) : BpVariable(variable, static_cast<Show>(show)) {}
};

/// A data value by its variable's format and value labels; preference 0 the value, 2 under the user's display options.
class BpDataValue : public BpCellText {
public:
    enum Preference { kValue = 0, kLabel = 1, kPreferred = 2 };
    BpDataValue(const QVTA_Variable& variable, OBS const* value, Preference preference);
    BpDataValue(const QVTA_Variable& variable, OBS const* value, int preference)
        : BpDataValue(variable, value, static_cast<Preference>(preference)) {}
};

/// A template with places ^1, ^2 and lists [%1 = %2:, ^1 = ^2:]n, where n is the first place that the list takes.
class BpComposite : public BpCellText {
public:
    BpComposite(const std::string& pattern, bool translate);
    void Add(const BpCellText& text);  ///< fills the next place, or the next list element's next place inside a sublist
    void Sublist();
    void EndSublist();
    void SplitList();  ///< adds the current split's variables and values, pair by pair
    void Finish();
};

/// A note: the handle of a text's copy, a second handle of -1, and false.
struct BpAnnotation {
    BpAnnotation(const BpCellText& text) : fText(text.Replicate()) {}
    long fText;
    long fMarker = -1;
    bool fHidden = false;
};

/// A counted reference to the host's side of a table object.
template <class T>
using RefCountPtr = std::shared_ptr<T>;

class BpHandle {
public:
    long Replicate() const;
    const RefCountPtr<output::Node>& Node() const { return fpNode; }

protected:
    BpHandle() = default;
    explicit BpHandle(RefCountPtr<output::Node> node) : fpNode(std::move(node)) {}
    RefCountPtr<output::Node> fpNode;
};

/// One row or column of a table. Cells are written at the crossing of all dimensions' current categories.
class BpCategory : public BpHandle {
public:
    BpCategory() = default;
    explicit BpCategory(RefCountPtr<output::Node> node) : BpHandle(std::move(node)) {}
    void Cell(const BpCellText& text);
    void CellNote(const BpAnnotation& note);
    void Note(const BpAnnotation& note);
};

/// A group of categories. Asking for a category or group of a text that the group has already makes it current again.
class BpGroup : public BpHandle {
public:
    enum Sort { kAscending = 0, kDescending = 1, kInsertion = 2 };
    BpGroup() = default;
    explicit BpGroup(RefCountPtr<output::Node> node) : BpHandle(std::move(node)) {}
    BpGroup Group(const BpCellText& text, bool show, Sort sort);
    BpGroup Group(const BpCellText& text, bool show, int sort) { return Group(text, show, static_cast<Sort>(sort)); }
    BpCategory Category(const BpCellText& text);
};

class BpDimension : public BpGroup {
public:
    enum Place { kRow = 0, kColumn = 1, kLayer = 2 };
    BpDimension() = default;
    explicit BpDimension(RefCountPtr<output::Node> node) : BpGroup(std::move(node)) {}
    /// order: 1 is the innermost; hideTitle hides the dimension's title, hideLabels its category labels.
    void Position(Place place, int order, bool hideTitle, bool hideLabels);
    void Position(int place, int order, bool hideTitle, bool hideLabels) {
        Position(static_cast<Place>(place), order, hideTitle, hideLabels);
    }
};

class BpPivotTable : public BpHandle {
public:
    using Sort = BpGroup::Sort;
    BpPivotTable() = default;
    explicit BpPivotTable(RefCountPtr<output::Node> node) : BpHandle(std::move(node)) {}
    BpDimension Dimension(const BpCellText& name, Sort sort);
    BpDimension Dimension(const BpCellText& name, int sort) { return Dimension(name, static_cast<Sort>(sort)); }
    void Caption(const BpCellText& text);
    void Note(const BpAnnotation& note);  ///< a footnote of the whole table
    void MinDataColumnWidth(int width);
};

class BpHeading : public BpHandle {
public:
    explicit BpHeading(RefCountPtr<output::Node> node) : BpHandle(std::move(node)) {}
    virtual ~BpHeading();
    BpHeading Heading(const BpCellText& text);
    /// title and generic sub-type. bySplit: the table stands under the heading of the present split.
    BpPivotTable PivotTable(const BpCellText& title, const BpCellText& subType, bool bySplit);
};

/// The procedure's root in the output tree.
class BpProcedure : public BpHeading {
public:
    explicit BpProcedure(RefCountPtr<output::Node> node) : BpHeading(std::move(node)) {}
    static BpFormatSpec Coefficient() { return BpFormatSpec(BpFormatSpec::kCoefficient); }
    static BpFormatSpec CoefficientSE() { return BpFormatSpec(BpFormatSpec::kCoefficientSE); }
    static BpFormatSpec Correlation() { return BpFormatSpec(BpFormatSpec::kCorrelation); }
    static BpFormatSpec Count() { return BpFormatSpec(BpFormatSpec::kCount); }
    static BpFormatSpec GeneralStat() { return BpFormatSpec(BpFormatSpec::kGeneralStat); }
    static BpFormatSpec Percent() { return BpFormatSpec(BpFormatSpec::kPercent); }
    static BpFormatSpec Significance() { return BpFormatSpec(BpFormatSpec::kSignificance); }
    static BpFormatSpec SigDigit(double value) { return BpFormatSpec(BpFormatSpec::kSigDigit, value); }
    BpFormatSpec Mean(int variable) const { return BpFormatSpec(BpFormatSpec::kMean, variable); }
};

enum BpErrorShow { kShowAlways = 2 };
enum BpErrorLevel { kLevelWarning = 2, kLevelError = 3 };

/// Puts a message in the output. Level 2 is a warning; level 3 an error, which raises the procedure's fatal flag.
void BpError(const BpCellText& text, BpErrorShow show, BpErrorLevel level);
inline void BpError(const BpCellText& text, int show, int level) {
    BpError(text, static_cast<BpErrorShow>(show), static_cast<BpErrorLevel>(level));
}

/// Adds a row to the procedure's Notes table. Kind 4 is an input row, 0 a row of weight handling, 2 an output file row.
void AddNotes(int kind, const BpCellText& label, const BpCellText& value);

/// The user's global options of how variables and values are shown, table then outline; each 1 name or value, 2 label,
/// 3 both.
void GETDISPLAYOPTIONS(int* tableVariables, int* tableValues, int* outlineVariables, int* outlineValues);

/// A string cell of an output composite. Its three forms are the plain, the translated and the display text.
class OmStringCell {
public:
    OmStringCell(const std::string& plain, const std::string& translated, const std::string& display)
        : fPlain(plain), fTranslated(translated), fDisplay(display) {}
    const std::string& GetPlain() const { return fPlain; }
    const std::string& GetTranslated() const { return fTranslated; }
    const std::string& GetDisplay() const { return fDisplay; }
    void AddFootnote(int number) { fvFootnotes.push_back(number); }
    void AddMarker(const std::string& marker) { fvMarkers.push_back(marker); }
    void Print(int indent) const;  ///< debug print to the console

private:
    std::string fPlain;
    std::string fTranslated;
    std::string fDisplay;
    std::vector<int> fvFootnotes;
    std::vector<std::string> fvMarkers;
};

/// A composite that is put together outside the output tree.
class OmComposite {
public:
    explicit OmComposite(const std::string& pattern);
    void BeginRepeatList();
    void Add(const OmStringCell& cell);
    void EndRepeatList();
    void End();
    void Substitute();
    std::string AsString() const;
    void Print(int indent) const;

private:
    std::string fPattern;
    std::vector<std::vector<OmStringCell>> fvLists;  ///< per place: one cell, or a list's cells
    bool fInList = false;
    std::string fText;
};

/// Directories of the host. Virtual operations stand in slot order; the first to be called is the second slot.
class PathFinder {
public:
    virtual ~PathFinder() = default;
    /// The plain instance's directory is for scratch files; that of kind 3 is the base of the program's own files,
    /// which ends in a separator and has the chart templates in "template".
    virtual std::string GetDirectory() const = 0;
    virtual std::string GetScratchDirectory() const = 0;
    virtual std::string GetTemplateDirectory() const = 0;
    virtual std::string GetStringTableDirectory() const = 0;
};

class PathFactory {
public:
    static PathFinder& getPathInstance();
    static PathFinder& getPathInstance(int kind);
};

/// The host's translated string table. A procedure name selects a table; a text without entry comes back as it is.
class FacSTDictionary {
public:
    explicit FacSTDictionary(const std::string& directory);
    void SetProcedure(const std::string& name);
    void SetGlobalStringTable(const std::string& directory);  ///< where keys that the procedure lacks are looked up
    std::string LookUp(const std::string& key) const;
    std::string LookUp(const std::string& key, unsigned long& status) const;  ///< status 0 when found

private:
    std::string fDirectory;
    std::string fProcedure;
};
