#pragma once

#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace engine {

/// Shortest text that reads back to the same double, whatever the locale; empty for a value that does not exist.
std::string RoundTripText(double value);

/// Writes an XML document element by element to a stream, some kilobytes at a time. Text is escaped; characters that
/// XML has no place for are left out.
class XmlWriter {
public:
    explicit XmlWriter(std::ostream& stream);

    void Open(std::string_view name);
    void Close();
    void Attribute(std::string_view name, std::string_view value);
    void Attribute(std::string_view name, const char* value) { Attribute(name, std::string_view(value)); }
    void Attribute(std::string_view name, double value) { Attribute(name, RoundTripText(value)); }
    void Attribute(std::string_view name, int value) { Attribute(name, std::to_string(value)); }
    void Attribute(std::string_view name, bool value) { Attribute(name, value ? "true" : "false"); }
    void Text(std::string_view text);

    /// An Array element of numbers; a value that does not exist is the token __MISSING__.
    void Array(std::span<const double> values);
    /// An Array element of texts, quoted where they hold white space or quotes.
    void Array(std::span<const std::string> values);

private:
    void FinishTag();
    void NewLine();
    void Flush();
    void Escape(std::string_view text, bool inAttribute);

    std::ostream& fStream;
    std::string fWaiting;  ///< for the stream
    std::vector<std::string> fvOpen;
    bool fTagOpen = false;
    bool fHasText = false;
};

/// Opens an element for the life of the object.
class XmlElement {
public:
    XmlElement(XmlWriter& writer, std::string_view name) : fWriter(writer) { fWriter.Open(name); }
    ~XmlElement() { fWriter.Close(); }
    XmlElement(const XmlElement&) = delete;
    XmlElement& operator=(const XmlElement&) = delete;
    template <class T>
    XmlElement& With(std::string_view name, const T& value) {
        fWriter.Attribute(name, value);
        return *this;
    }

private:
    XmlWriter& fWriter;
};

}  // namespace engine
