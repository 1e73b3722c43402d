#include "engine/documents/XmlWriter.h"

#include <array>
#include <charconv>
#include <cmath>

namespace engine {

std::string RoundTripText(double value) {
    if (!std::isfinite(value)) return {};
    std::array<char, 32> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
    return std::string(buffer.data(), end);
}

XmlWriter::XmlWriter(std::ostream& stream) : fStream(stream) {
    fStream << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
}

void XmlWriter::FinishTag() {
    if (fTagOpen) fStream << '>';
    fTagOpen = false;
}

void XmlWriter::Open(std::string_view name) {
    FinishTag();
    fStream << '\n' << std::string(2 * fvOpen.size(), ' ') << '<' << name;
    fvOpen.emplace_back(name);
    fTagOpen = true;
    fHasText = false;
}

void XmlWriter::Close() {
    const std::string name = std::move(fvOpen.back());
    fvOpen.pop_back();
    if (fTagOpen) {
        fStream << "/>";
        fTagOpen = false;
    } else {
        if (!fHasText) fStream << '\n' << std::string(2 * fvOpen.size(), ' ');
        fStream << "</" << name << '>';
    }
    fHasText = false;
    if (fvOpen.empty()) fStream << '\n';
}

void XmlWriter::Attribute(std::string_view name, std::string_view value) {
    fStream << ' ' << name << "=\"";
    Escape(value, true);
    fStream << '"';
}

void XmlWriter::Text(std::string_view text) {
    FinishTag();
    Escape(text, false);
    fHasText = true;
}

void XmlWriter::Escape(std::string_view text, bool inAttribute) {
    // What needs no escape goes out in one piece.
    std::size_t written = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (static_cast<unsigned char>(c) >= 0x20 && c != '&' && c != '<' && c != '>' && c != '"') continue;
        fStream << text.substr(written, at - written);
        written = at + 1;
        switch (c) {
            case '&':
                fStream << "&amp;";
                break;
            case '<':
                fStream << "&lt;";
                break;
            case '>':
                fStream << "&gt;";
                break;
            case '"':
                fStream << (inAttribute ? "&quot;" : "\"");
                break;
            case '\t':
            case '\n':
            case '\r':
                if (inAttribute) {
                    fStream << "&#" << static_cast<int>(c) << ';';
                } else {
                    fStream << c;
                }
                break;
            default:
                break;
        }
    }
    fStream << text.substr(written);
}

void XmlWriter::Array(std::span<const double> values) {
    const XmlElement element(*this, "Array");
    Attribute("type", "real");
    Attribute("n", static_cast<int>(values.size()));
    std::string text;
    for (const double value : values) {
        if (!text.empty()) text += ' ';
        text += std::isfinite(value) ? RoundTripText(value) : "__MISSING__";
    }
    Text(text);
}

void XmlWriter::Array(std::span<const std::string> values) {
    const XmlElement element(*this, "Array");
    Attribute("type", "string");
    Attribute("n", static_cast<int>(values.size()));
    std::string text;
    for (const std::string& value : values) {
        if (!text.empty()) text += ' ';
        if (!value.empty() && value.find_first_of(" \t\n\r\"\\") == std::string::npos) {
            text += value;
            continue;
        }
        text += '"';
        for (const char c : value) {
            if (c == '"' || c == '\\') text += '\\';
            text += c;
        }
        text += '"';
    }
    Text(text);
}

}  // namespace engine
