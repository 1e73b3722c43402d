#pragma once

#include <functional>
#include <string>

namespace host {

/// Takes debug text: whole lines (true) or pieces of a text (false).
using FrontEndSink = std::function<void(bool wholeLine, const std::string& text)>;

/// Where the system's debug text goes from now on; gives back the sink before. At first there is none, and the text is
/// dropped.
FrontEndSink SetFrontEnd(FrontEndSink sink);

}  // namespace host
