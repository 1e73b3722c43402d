#pragma once

#include "host/data/Filter.h"
#include "host/data/Table.h"

#include <string>
#include <vector>

namespace host {

/// Puts a table's rows in the order of its split variables (content.fSplitBy: ascending, missing first, numbers by
/// value, texts by bytes; within a split as before), leaves out the rows that the filter doesn't select (null: none),
/// and fills content.fSplits. Nothing moves when the rows stand rightly already.
///
/// Rows go to their places by counting, in windows of at most windowBytes, so that memory is bounded by that and by the
/// number of splits. False with a sentence in error if the scratch files fail.
bool OrderTable(TableContent& content, const Filter* filter, const ScratchPlace& place, std::size_t windowBytes,
                std::string& error);

}  // namespace host
