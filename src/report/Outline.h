#pragma once

#include "host/output/OutputDocument.h"

#include <string>
#include <vector>

/// The blocks of a document in reading order, each with the headings over it.
namespace report {

/// What of a document is shown. Messages always are.
struct Selection {
    bool fClassic = true;  ///< tables of the classic half
    bool fViewer = true;   ///< tables and charts of the viewer's half
    bool fNotes = true;    ///< the Notes table, at the end
};

struct Item {
    std::vector<std::string> fvHeadings;  ///< titles, outermost first, without the root
    const output::Block* fpBlock = nullptr;
};

/// Headings without a block that is shown don't appear, and neighbours of one title read as one.
std::vector<Item> Collect(const host::OutputDocument& document, const Selection& selection,
                          const host::Catalogue& strings);

/// The number of leading headings that two items share.
std::size_t SharedHeadings(const Item& before, const Item& item);

}  // namespace report
