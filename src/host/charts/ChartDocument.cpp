#include "host/charts/ChartDocument.h"

#include "host/charts/ChartMarkup.h"
#include "host/charts/ChartRows.h"
#include "host/documents/XmlMemory.h"
#include "host/output/OutputDocument.h"

#include <cstdio>

namespace host {

namespace {

constexpr int kDeepestDocument = 64;  ///< levels of elements

bool TooDeep(const pugi::xml_node& node, int level = 0) {
    if (level > kDeepestDocument) return true;
    for (const pugi::xml_node& child : node.children()) {
        if (TooDeep(child, level + 1)) return true;
    }
    return false;
}

std::optional<QVTA_Format> FormatOf(const pugi::xml_node& variable) {
    int width = 0, type = 0, decimals = 0;
    if (std::sscanf(variable.attribute("format").value(), "%d,%d,%d", &width, &type, &decimals) != 3) return {};
    return QVTA_Format{static_cast<std::uint16_t>(width), static_cast<std::uint8_t>(type),
                       static_cast<std::uint8_t>(decimals)};
}

/// The label of a value of a variable; null without one.
const char* LabelOf(const QVTA_Variable& variable, const output::Datum& value) {
    const QVTA_ValueLabelMap labels(variable.GetValueLabels());
    const auto* number = std::get_if<double>(&value);
    if (!number) return labels.GetLabel(std::get<std::string>(value));
    if (variable.GetType() == 0) return labels.GetLabel(*number);
    return labels.GetLabel(output::ChartField().Shown(value));
}

}  // namespace

output::ChartField ChartDeclaration::Labelled(const output::ChartSource& source, int field) const {
    output::ChartField labelled = fField;
    if (fVariable && fVariable->GetType() == 0 && !labelled.fFormat) labelled.fFormat = fVariable->GetFormat();
    if (!fVariable || !fRelabel) {
        if (fNamedRelabels.empty()) return labelled;
    }
    std::map<std::string, bool> seen;
    for (std::size_t row = 0; row < source.fvRows.size(); ++row) {
        const output::Datum& value = source.At(row, field);
        if (output::IsUnset(value)) continue;
        const std::string text = output::ChartField().Shown(value);
        if (!seen.emplace(text, true).second) continue;
        if (const auto named = fNamedRelabels.find(text); named != fNamedRelabels.end()) {
            labelled.fvRelabels.emplace_back(value, named->second);
        } else if (const char* label = fVariable && fRelabel ? LabelOf(*fVariable, value) : nullptr) {
            labelled.fvRelabels.emplace_back(value, label);
        }
    }
    return labelled;
}

ChartDocument::ChartDocument(const std::string& text) {
    const auto parsed = fXml.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_declaration);
    CheckXmlMemory();
    fGood = parsed && Chart() && !TooDeep(fXml);
    if (!fGood) return;
    for (const pugi::xml_node& source : Chart().children("source")) {
        for (const pugi::xml_node& variable : source.children("variable")) {
            auto& declaration = *fvDeclarations.emplace_back(std::make_shared<ChartDeclaration>());
            declaration.fSource = source.attribute("name").value();
            declaration.fSlot = variable.attribute("slot").value();
            declaration.fField.fName = variable.attribute("name").value();
            declaration.fField.fCategorical = variable.attribute("categorical").as_bool();
            declaration.fField.fFormat = FormatOf(variable);
            declaration.fField.fLabel = ElementText(variable.child("label"));
        }
    }
}

}  // namespace host

struct XVariable::Impl {
    std::shared_ptr<host::ChartDeclaration> fpDeclaration;
};

struct XGraph::Impl {
    std::shared_ptr<host::ChartDocument> fpDocument;
};

struct XDocument::Impl {
    std::shared_ptr<host::ChartDocument> fpDocument;
};

void XVariable::setLabel(const ChartString& label) {
    fpImpl->fpDeclaration->fField.fLabel = host::PlainText(label.toUTF8());
}

void XVariable::setFormat(QVTA_Format format) {
    fpImpl->fpDeclaration->fField.fFormat = format;
}

void XVariable::setQVTAVariable(const QVTA_Variable& variable) {
    fpImpl->fpDeclaration->fVariable = variable;
}

void XVariable::setFormatBasedOnQVTAVariable(const QVTA_Variable& variable) {
    fpImpl->fpDeclaration->fField.fFormat = variable.GetFormat();
}

void XVariable::SetFormatPrefix(const ChartString& prefix) {
    // The blank at the end of "name = " belongs to it.
    const std::string text = prefix.toUTF8();
    const bool blank = !text.empty() && text.back() == ' ';
    fpImpl->fpDeclaration->fField.fPrefix = host::PlainText(text) + (blank ? " " : "");
}

void XVariable::addRelabels() {
    fpImpl->fpDeclaration->fRelabel = true;
}

void XVariable::addRelabel(int value, const ChartString& text) {
    fpImpl->fpDeclaration->fNamedRelabels[std::to_string(value)] = text.toUTF8();
}

void XVariable::addRelabel(const ChartString& value, const ChartString& text) {
    fpImpl->fpDeclaration->fNamedRelabels[value.toUTF8()] = text.toUTF8();
}

void XVariable::setCategorical(bool categorical) {
    fpImpl->fpDeclaration->fField.fCategorical = categorical;
}

XVariable XGraph::getVariable(const std::string& name, int occurrence) const {
    for (const auto& declaration : fpImpl->fpDocument->fvDeclarations) {
        if (declaration->fField.fName == name && occurrence-- == 0)
            return XVariable(std::make_shared<XVariable::Impl>(XVariable::Impl{declaration}));
    }
    throw ChartServiceError("the chart has no variable " + name);
}

XDocument::XDocument(const std::string& text)
    : fpImpl(std::make_unique<Impl>(Impl{std::make_shared<host::ChartDocument>(text)})) {}
XDocument::~XDocument() = default;

// There is one editor and one language, and one style for all charts: the renderer's.
void XDocument::setEditor(int) {}
void XDocument::setLanguage() {}
void XDocument::applyCTemplate(bool) {}
void XDocument::applyStyleTemplate() {}

void XDocument::SetDescription(const ChartString& text) {
    fpImpl->fpDocument->fDescription = host::PlainText(text.toUTF8());
}

void XDocument::SetChartData(const VarDataProcessor& data) {
    fpImpl->fpDocument->fvRows = data.Rows().fvSources;
}

std::string XDocument::AsUTF8() const {
    struct Writer : pugi::xml_writer {
        void write(const void* data, std::size_t size) override { fText.append(static_cast<const char*>(data), size); }
        std::string fText;
    } writer;
    if (fpImpl->fpDocument->fGood) fpImpl->fpDocument->fXml.save(writer, "  ");
    return writer.fText;
}

XGraph XDocument::getExternalGraph() {
    if (!fpImpl->fpDocument->fGood) throw ChartServiceError("the chart's document can't be read");
    return XGraph(std::make_shared<XGraph::Impl>(XGraph::Impl{fpImpl->fpDocument}));
}

void XDocument::SendChart(bool visible, bool, bool) {
    host::OutputDocument* output = host::OutputDocument::Current();
    if (!visible || !output || !fpImpl->fpDocument->fGood) return;
    output->AddChart(fpImpl->fpDocument->Model(output->fDrawn));
}

QvtaJVM& QvtaJVM::GetInstance() {
    static QvtaJVM machine;
    return machine;
}

// The editor here needs no machine, so that there is nothing to attach to.
void QvtaJVM::AttachCurrentThread(void** environment) {
    if (environment) *environment = GetEnv();
}

void* QvtaJVM::GetEnv() const {
    return nullptr;
}

ViZEditor& ViZEditor::GetInstance() {
    static ViZEditor editor;
    return editor;
}

std::string ViZEditor::EmbedHistogramInGraph(const std::string& graph, const std::string& histogram, const char* data,
                                             std::size_t length, int fieldType) {
    const host::OutputDocument* output = host::OutputDocument::Current();
    if (output && !output->fDrawn) return graph;
    const std::string closing = "</chart>";
    const std::size_t end = graph.rfind(closing);
    if (end == std::string::npos || !host::ChartDocument(histogram).fGood) return {};
    pugi::xml_document holder;
    pugi::xml_node inset = holder.append_child("inset");
    inset.append_attribute("fieldType") = fieldType;
    inset.append_child("document").text().set(histogram.c_str());
    inset.append_child("rows").text().set(std::string(data, length).c_str());
    struct Writer : pugi::xml_writer {
        void write(const void* bytes, std::size_t size) override {
            fText.append(static_cast<const char*>(bytes), size);
        }
        std::string fText;
    } writer;
    inset.print(writer, "", pugi::format_raw);
    host::CheckXmlMemory();
    return graph.substr(0, end) + writer.fText + "\n" + graph.substr(end);
}
