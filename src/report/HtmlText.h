#pragma once

#include <string>
#include <string_view>

namespace report {

/// A text for the content or a quoted attribute of an HTML element: cleaned, and every character that could end
/// either written as a reference. Line feeds stay.
std::string Escaped(std::string_view text);

/// A JSON document for a script element of type application/json: no character in it can end the element.
std::string ScriptSafe(std::string_view json);

}  // namespace report
