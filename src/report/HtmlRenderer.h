#pragma once

#include "report/Outline.h"

#include <string>

namespace report {

struct PageInfo {
    std::string fTitle;    ///< of the page and its first heading; empty: the document's
    std::string fCommand;  ///< shown below the title; empty: none
    std::string fVersion;  ///< of the program, for the foot
};

/// A document as one page that needs nothing beside it: an outline of its headings, tables with their scopes, charts
/// as figures with their rows as a table, messages in place. It reads without its script, which adds copying,
/// downloads and the drawing of charts. A content security policy in the page allows its own style and script, by
/// their hashes, and nothing else; no request goes out.
std::string RenderHtml(const host::OutputDocument& document, const Selection& selection, const PageInfo& info);

}  // namespace report
