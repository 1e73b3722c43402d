#pragma once

#include <pugixml.hpp>
#include <string>
#include <string_view>

/// The language of chart documents, as far as texts go.
namespace host {

/// What a text says that may hold references and "<BR/>", as texts inside of a chart document do: characters, and line
/// feeds. What is no reference stays as it is. Runs of blanks, which padded numbers leave, become one.
std::string PlainText(std::string_view text);

/// The text of an element: its characters in order, a BR element as a line feed, a CDATA section as a plain text.
std::string ElementText(const pugi::xml_node& element);

/// An attribute as a number; nothing when it is absent or no number.
bool NumberAttribute(const pugi::xml_node& element, const char* name, double& value);

}  // namespace host
