#pragma once

#include "host/output/ChartModel.h"
#include "host/output/Text.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

/// The output tree: headings that hold tables, charts and messages, in reading order.
///
/// The tree is made through the contract's operations (BpHeading and its kin) and read here. Parts point up by plain
/// pointers; each part is owned by what holds it.
namespace output {

struct Heading;
struct Table;
struct Chart;
struct Message;

struct Node {
    virtual ~Node() = default;
};

/// Walks blocks in reading order.
struct Visitor {
    virtual ~Visitor() = default;
    virtual void Enter(const Heading&) {}
    virtual void Leave(const Heading&) {}
    virtual void Show(const Table&) {}
    virtual void Show(const Chart&) {}
    virtual void Show(const Message&) {}
};

/// Which half of the procedure's output a block belongs to; a reader can choose.
enum class Half { kBoth, kClassic, kViewer };

/// What can stand under a heading.
struct Block : Node {
    virtual void Visit(Visitor& visitor) const = 0;
    Heading* fpParent = nullptr;
    Half fHalf = Half::kBoth;
};

struct Heading : Block {
    void Visit(Visitor& visitor) const override;
    Text fpTitle;            ///< null for the root
    bool fSplit = false;     ///< stands for a split
    int fSplitOrdinal = -1;  ///< number of the split that it stands for
    std::string fSplitName;  ///< name of the split
    std::vector<std::shared_ptr<Block>> fvBlocks;
};

struct Group;

/// A group or a category of a dimension.
struct Member : Node {
    Table* fpTable = nullptr;
    Group* fpGroup = nullptr;  ///< null for a dimension
    Text fpText;
    virtual const Group* AsGroup() const { return nullptr; }
};

struct Category : Member {
    std::vector<Text> fvNotes;
    int fOrdinal = 0;  ///< number within its dimension, by creation
};

struct Group : Member {
    const Group* AsGroup() const override { return this; }
    bool fShow = true;
    BpGroup::Sort fSort = BpGroup::kInsertion;
    std::vector<std::shared_ptr<Member>> fvMembers;
    std::map<std::string, std::shared_ptr<Category>> fCategories;  ///< by identity of the text
    std::map<std::string, std::shared_ptr<Group>> fGroups;
};

struct Dimension : Group {
    BpDimension::Place fPlace = BpDimension::kRow;
    int fOrder = 0;  ///< 1 is the innermost; 0: never placed, inside of all others
    bool fHideTitle = false;
    bool fHideLabels = false;
    int fIndex = 0;  ///< position in the table's dimensions
    int fNCategories = 0;
    const Category* fpCurrent = nullptr;

    /// All categories in reading order, groups opened in place.
    std::vector<const Category*> Categories() const;
};

struct Cell {
    Text fpText;
    std::vector<Text> fvNotes;
};

/// A table whose cells stand at the crossing of one category of every dimension.
struct Table : Block {
    void Visit(Visitor& visitor) const override { visitor.Show(*this); }

    Text fpTitle;
    Text fpSubType;
    Text fpCaption;  ///< null without one
    std::vector<Text> fvNotes;
    int fMinDataColumnWidth = 0;
    std::vector<std::shared_ptr<Dimension>> fvDimensions;
    std::map<std::vector<int>, Cell> fCells;  ///< by category ordinals, in the dimensions' order

    /// The dimensions of a place, outermost first. Layers are rows outside of all others.
    std::vector<const Dimension*> DimensionsAt(BpDimension::Place place) const;
    /// The crossings of the dimensions that have a cell, in reading order: category by category, as DimensionsAt.
    std::vector<std::vector<const Category*>> Entries(const std::vector<const Dimension*>& dimensions) const;
    /// The cell at one category of every dimension, in any order; null where none was written.
    const Cell* At(const std::vector<const Category*>& categories) const;
};

struct Chart : Block {
    void Visit(Visitor& visitor) const override { visitor.Show(*this); }
    std::shared_ptr<const ChartModel> fpModel;
};

struct Message : Block {
    void Visit(Visitor& visitor) const override { visitor.Show(*this); }
    Text fpText;
    BpErrorLevel fLevel = kLevelWarning;
};

}  // namespace output
