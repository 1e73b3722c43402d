#include "host/charts/ChartMarkup.h"

#include "contracts/ChartService.h"

#include <charconv>
#include <utility>

namespace host {

namespace {

constexpr std::pair<std::string_view, std::string_view> kReferences[] = {
    {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}, {"<BR/>", "\n"}};

/// A numeric reference at the start of a text, and how long it is; 0 for none.
std::size_t NumericReference(std::string_view text, std::string& character) {
    if (text.substr(0, 2) != "&#") return 0;
    unsigned code = 0;
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), code);
    if (error != std::errc() || end == text.data() + text.size() || *end != ';' || code < 32 || code > 0x10FFFF)
        return 0;
    character = ChartString().append(static_cast<char32_t>(code)).toUTF8();
    return static_cast<std::size_t>(end - text.data()) + 1;
}

/// The reference at the start of a text, and how long it is; 0 for none.
std::size_t Reference(std::string_view text, std::string& character) {
    for (const auto& [reference, meaning] : kReferences) {
        if (text.substr(0, reference.size()) == reference) {
            character = meaning;
            return reference.size();
        }
    }
    return NumericReference(text, character);
}

/// Leaves one of several blanks, and none at the ends.
std::string WithoutPadding(const std::string& text) {
    std::string clean;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\t' || c == '\r';
        const bool atEdge = clean.empty() || clean.back() == ' ' || clean.back() == '\n';
        if (blank && atEdge) continue;
        if (c == '\n' && !clean.empty() && clean.back() == ' ') clean.pop_back();
        clean += blank ? ' ' : c;
    }
    const std::size_t end = clean.find_last_not_of(" \n");
    clean.resize(end == std::string::npos ? 0 : end + 1);
    return clean;
}

void Append(const pugi::xml_node& element, std::string& text) {
    for (const pugi::xml_node& child : element.children()) {
        if (child.type() == pugi::node_pcdata) {
            text += child.value();
        } else if (child.type() == pugi::node_cdata) {
            // The place of a text that was put in as it came: with references, with "<BR/>", or plain.
            text += PlainText(child.value());
        } else if (std::string_view(child.name()) == "BR") {
            text += '\n';
        } else {
            Append(child, text);
        }
    }
}

}  // namespace

std::string PlainText(std::string_view text) {
    std::string plain, character;
    while (!text.empty()) {
        const bool mark = text.front() == '&' || text.front() == '<';
        const std::size_t length = mark ? Reference(text, character) : 0;
        if (length > 0) {
            plain += character;
        } else {
            plain += text.front();
        }
        text.remove_prefix(length > 0 ? length : 1);
    }
    return WithoutPadding(plain);
}

std::string ElementText(const pugi::xml_node& element) {
    std::string text;
    Append(element, text);
    return WithoutPadding(text);
}

bool NumberAttribute(const pugi::xml_node& element, const char* name, double& value) {
    const std::string_view text = element.attribute(name).value();
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace host
