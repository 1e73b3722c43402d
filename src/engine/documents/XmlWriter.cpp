#include "engine/documents/XmlWriter.h"

#include <array>
#include <charconv>
#include <cmath>

namespace engine {

namespace {

constexpr std::size_t kWrittenAtOnce = 1 << 16;

}  // namespace

std::string RoundTripText(double value) {
    if (!std::isfinite(value)) return {};
    std::array<char, 32> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
    return std::string(buffer.data(), end);
}

XmlWriter::XmlWriter(std::ostream& stream) : fStream(stream), fWaiting("<?xml version=\"1.0\" encoding=\"UTF-8\"?>") {}

void XmlWriter::Flush() {
    fStream.write(fWaiting.data(), static_cast<std::streamsize>(fWaiting.size()));
    fWaiting.clear();
}

void XmlWriter::FinishTag() {
    if (fTagOpen) fWaiting += '>';
    fTagOpen = false;
}

void XmlWriter::NewLine() {
    fWaiting += '\n';
    fWaiting.append(2 * fvOpen.size(), ' ');
}

void XmlWriter::Open(std::string_view name) {
    FinishTag();
    NewLine();
    (fWaiting += '<') += name;
    fvOpen.emplace_back(name);
    fTagOpen = true;
    fHasText = false;
}

void XmlWriter::Close() {
    const std::string name = std::move(fvOpen.back());
    fvOpen.pop_back();
    if (fTagOpen) {
        fWaiting += "/>";
        fTagOpen = false;
    } else {
        if (!fHasText) NewLine();
        ((fWaiting += "</") += name) += '>';
    }
    fHasText = false;
    if (fvOpen.empty()) fWaiting += '\n';
    if (fvOpen.empty() || fWaiting.size() > kWrittenAtOnce) Flush();
}

void XmlWriter::Attribute(std::string_view name, std::string_view value) {
    ((fWaiting += ' ') += name) += "=\"";
    Escape(value, true);
    fWaiting += '"';
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
        fWaiting += text.substr(written, at - written);
        written = at + 1;
        switch (c) {
            case '&':
                fWaiting += "&amp;";
                break;
            case '<':
                fWaiting += "&lt;";
                break;
            case '>':
                fWaiting += "&gt;";
                break;
            case '"':
                fWaiting += inAttribute ? "&quot;" : "\"";
                break;
            case '\t':
            case '\n':
            case '\r':
                if (inAttribute)
                    fWaiting += "&#" + std::to_string(static_cast<int>(c)) + ";";
                else
                    fWaiting += c;
                break;
            default:
                break;
        }
    }
    fWaiting += text.substr(written);
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
