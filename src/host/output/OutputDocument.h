#pragma once

#include "contracts/HostOutput.h"
#include "host/output/Tree.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace host {

/// How the user wants variables and values shown: 1 name or value, 2 label (where there is one), 3 both.
struct DisplayOptions {
    int fTableVariables = 2;
    int fTableValues = 2;
    int fOutlineVariables = 2;
    int fOutlineValues = 2;
};

/// The output of one run: the tree's root, its Notes table, and what cell texts need to know while it is written.
///
/// The host makes one and puts it in force (OutputScope) for the run; the contract's operations find it by Current.
class OutputDocument {
public:
    /// title: the procedure's name as the outline shows it; a key of the catalogue.
    explicit OutputDocument(const std::string& title);

    BpProcedure Procedure() const { return BpProcedure(fpRoot); }
    /// The heading of the present split as a procedure; the root without splits.
    BpProcedure SplitProcedure();
    const output::Heading& Root() const { return *fpRoot; }
    const output::Table* Notes() const { return fpNotes.get(); }  ///< null while no note was added
    const output::Text& Title() const { return fTitle; }

    /// Blocks that are written from now on belong to this half.
    void SetHalf(output::Half half) { fHalf = half; }
    output::Half GetHalf() const { return fHalf; }

    /// The data whose variables' formats Mean asks for.
    void SetData(const QVTA_DataSource* data) { fpData = data; }
    const QVTA_DataSource* Data() const { return fpData; }

    DisplayOptions fDisplay;
    bool fDrawn = true;  ///< whether anyone draws the charts; if not, they are kept with their texts alone

    /// Adds a row to the Notes table, under the group of its kind.
    void AddNote(int kind, const output::Text& label, const output::Text& value);
    /// Adds a message under the heading of the present split.
    void AddMessage(const output::Text& text, BpErrorLevel level);
    /// Adds a block under a heading; bySplit: under the split's heading when it would stand outside of it.
    void Add(output::Heading& under, std::shared_ptr<output::Block> block, bool bySplit);

    /// Adds a chart where the output stands: under the heading that was written to last.
    void AddChart(std::shared_ptr<const output::ChartModel> model);

    /// Keeps a text under a handle for the document's life.
    long Keep(output::Text text);
    output::Text Kept(long handle) const;  ///< null for a handle that isn't known

    /// The document in force; null outside a run.
    static OutputDocument* Current();

private:
    friend class OutputScope;
    static OutputDocument*& Slot();
    std::shared_ptr<output::Heading> SplitHeading(int ordinal, const std::string& name);

    output::Text fTitle;
    std::shared_ptr<output::Heading> fpRoot;
    std::unordered_map<std::string, std::shared_ptr<output::Heading>> fSplits;  ///< the splits' headings by name
    std::shared_ptr<output::Table> fpNotes;
    output::Heading* fpPosition = nullptr;  ///< where the output stands; null: at the present split's heading
    output::Half fHalf = output::Half::kBoth;
    const QVTA_DataSource* fpData = nullptr;
    std::vector<output::Text> fvKept;
};

/// Puts a document in force for its own life, and the one before back after it.
class OutputScope {
public:
    explicit OutputScope(OutputDocument& document) : fBefore(OutputDocument::Slot()) {
        OutputDocument::Slot() = &document;
    }
    ~OutputScope() { OutputDocument::Slot() = fBefore; }
    OutputScope(const OutputScope&) = delete;
    OutputScope& operator=(const OutputScope&) = delete;

private:
    OutputDocument* fBefore;
};

}  // namespace host
