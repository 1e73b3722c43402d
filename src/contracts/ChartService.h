#pragma once

#include "contracts/HostData.h"

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>

/// The host's chart service: chart documents, the rows that go with them, and the output that takes both.
///
/// A chart document is XML. It comes from a built-in template (XViZTemplate) or from a file (FetchFile), is patched as
/// text by whoever draws, and becomes a chart of the output by XDocument. Texts inside of a document are escaped; a
/// text that is handed over beside it is plain.

/// Thrown where the document at hand can't do what is asked: it is malformed, or lacks the variable that is named.
struct ChartServiceError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Thrown, by pointer, by a graph editor that runs in a virtual machine; the object belongs to the machine.
class JNIException {};

/// A wide text.
class ChartString {
public:
    ChartString() = default;
    explicit ChartString(const std::u32string& text) : fText(text) {}
    ChartString& append(char32_t character);
    ChartString& append(const std::string& narrow);  ///< UTF-8
    ChartString& append(const ChartString& text);
    /// Puts one text in the place of every occurrence of another; a text that isn't there changes nothing.
    ChartString& replaceSubstring(const ChartString& from, const ChartString& to);
    std::string toUTF8() const;
    const char32_t* xc_str() const { return fText.c_str(); }
    bool operator==(const ChartString&) const = default;

private:
    std::u32string fText;
};

/// Conversions into wide text. A byte that is no character becomes U+FFFD.
struct XUtility {
    static ChartString ChartStringFromLocalCodePage(const std::string& text);  ///< from names and labels of the data
    static ChartString ChartStringFromOLANG(const std::string& text);          ///< from texts in the output's language
};

/// A variable of a data source of one VarDataProcessor; no other knows it.
using VarDataHandle = int;

/// The rows of a chart: named sources of named variables. A row that nothing was stored for is unset.
class VarDataProcessor {
public:
    VarDataProcessor();
    ~VarDataProcessor();
    VarDataProcessor(const VarDataProcessor&) = delete;
    VarDataProcessor& operator=(const VarDataProcessor&) = delete;

    void AddDataSource(const std::string& source, std::size_t rowHint);
    void AddVariable(const std::string& source, const std::string& variable, VarDataHandle* handle);  ///< may be null
    void SetVariableValue(VarDataHandle handle, std::size_t row, double value);
    void SetVariableValue(const std::string& source, const std::string& variable, std::size_t row, double value);
    void SetStringVariableValue(VarDataHandle handle, std::size_t row, const std::string& text);
    void SetStringVariableValue(const std::string& source, const std::string& variable, std::size_t row,
                                const std::string& text);
    /// The rows as bytes, owned by this object until the next call.
    const char* GetDataStream(std::size_t* length) const;

    struct Impl;
    const Impl& Rows() const { return *fpImpl; }

private:
    std::unique_ptr<Impl> fpImpl;
};

/// A chart document made from a built-in template.
class XViZTemplate {
public:
    XViZTemplate();
    ~XViZTemplate();
    XViZTemplate(const XViZTemplate&) = delete;
    XViZTemplate& operator=(const XViZTemplate&) = delete;

    void setTemplateInternalName(const std::string& name);
    void addLabel(int kind, const std::string& text);  ///< kind 0: the title
    /// Binds a slot of the template to a variable of a source. labelSlot: where the label goes as well, may be empty.
    /// format and label may be null. The arguments behind the label are the service's own and stand as shown.
    void addVariable(const std::string& slot, const std::string& variable, bool categorical,
                     const std::string& labelSlot, const std::string& source, const QVTA_Format* format,
                     const char* label, int reserved = 0, const char* = nullptr, bool = false, const char* = nullptr,
                     bool = false, const char* = nullptr, const char* = nullptr, const char* = nullptr);
    /// Writes the document; false, and both texts empty, without a template of that name.
    bool convert(std::string& text, std::string& scratch) const;

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

/// One variable as a chart document declares it. Copies mean the same declaration.
class XVariable {
public:
    void setLabel(const ChartString& label);  ///< escaped, as inside of a document
    void setFormat(QVTA_Format format);
    void setQVTAVariable(const QVTA_Variable& variable);  ///< where addRelabels finds the value labels
    void setFormatBasedOnQVTAVariable(const QVTA_Variable& variable);
    void SetFormatPrefix(const ChartString& prefix);  ///< stands ahead of each value, escaped as the label is
    void addRelabels();                               ///< values show their labels
    void addRelabel(int value, const ChartString& text);
    void addRelabel(const ChartString& value, const ChartString& text);
    void setCategorical(bool categorical);

    struct Impl;
    explicit XVariable(std::shared_ptr<Impl> impl) : fpImpl(std::move(impl)) {}

private:
    std::shared_ptr<Impl> fpImpl;
};

/// The graph of a document.
class XGraph {
public:
    /// The declaration of that name, 0 the first and 1 the second. Throws ChartServiceError without one.
    XVariable getVariable(const std::string& name, int occurrence) const;

    struct Impl;
    explicit XGraph(std::shared_ptr<Impl> impl) : fpImpl(std::move(impl)) {}

private:
    std::shared_ptr<Impl> fpImpl;
};

/// A chart document. Text that is no document makes one that can't be sent.
class XDocument {
public:
    explicit XDocument(const std::string& text);
    ~XDocument();
    XDocument(const XDocument&) = delete;
    XDocument& operator=(const XDocument&) = delete;

    void setEditor(int kind);  ///< 2: the editor of charts
    void setLanguage();        ///< the output's
    void SetDescription(const ChartString& text);
    void SetChartData(const VarDataProcessor& data);
    void applyCTemplate(bool override);
    void applyStyleTemplate();
    std::string AsUTF8() const;
    XGraph getExternalGraph();  ///< throws ChartServiceError for what is no document
    /// Sends the chart to the output at its current position; nothing is sent for what is no document.
    void SendChart(bool visible, bool, bool);

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

/// The virtual machine that a graph editor may need.
class QvtaJVM {
public:
    static QvtaJVM& GetInstance();
    bool IsStarted() const { return fStarted; }
    void StartJVM() { fStarted = true; }
    void AttachCurrentThread(void** environment);
    void* GetEnv() const;

private:
    bool fStarted = false;
};

/// The graph editor without a screen.
class ViZEditor {
public:
    static ViZEditor& GetInstance();
    bool IsStartedHeadless() const { return fStarted; }
    void StartEditorHeadless(void* /*environment*/) { fStarted = true; }
    /// The graph's document with a histogram, and the histogram's rows, inside. Empty where that can't be done.
    std::string EmbedHistogramInGraph(const std::string& graph, const std::string& histogram, const char* data,
                                      std::size_t length, int fieldType);

private:
    bool fStarted = false;
};

struct FetchFile {
    /// A file's text; empty when there is none.
    static std::string fetch(const std::string& path, bool, bool);
};
