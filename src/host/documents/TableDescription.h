#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// A table as a JSON result document describes it, read and checked. docs/documents.md has the schema.
///
/// Texts are built on the data source, which must outlive the description. Reading touches no output; a description
/// that isn't valid gives none.
class TableDescription {
public:
    /// translate: the description's own texts go through the host's translation.
    static std::optional<TableDescription> Read(const nlohmann::json& node, const QVTA_DataSource* source,
                                                bool translate);

    /// Makes the dimensions, all categories in order, and the cells that the description has.
    void Write(BpPivotTable& table) const;

private:
    using Text = std::shared_ptr<const BpCellText>;

    struct Leaf {
        std::vector<Text> fvPath;  ///< groups from outside, then the category's own text
        BpFormatSpec fFormat{BpFormatSpec::kGeneralStat};
        std::vector<Text> fvNotes;
    };
    struct Dimension {
        Text fName;
        BpDimension::Place fPlace = BpDimension::kRow;
        int fOrder = 1;
        bool fHideTitle = false;
        bool fHideLabels = false;
        std::vector<Leaf> fvLeaves;
    };
    struct Cell {
        Text fText;  ///< null where there is no cell
        std::vector<Text> fvNotes;
    };
    class Reader;

    void WriteCells(std::vector<BpDimension>& dimensions, std::size_t depth, std::size_t& nextCell) const;

    Text fCaption;
    std::vector<Text> fvNotes;
    std::vector<Dimension> fvDimensions;
    std::vector<Cell> fvCells;  ///< the last dimension runs fastest
};

}  // namespace host
