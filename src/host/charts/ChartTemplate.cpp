#include "contracts/ChartService.h"
#include "host/charts/BuiltInCharts.h"
#include "host/charts/ChartMarkup.h"
#include "host/documents/XmlMemory.h"

#include <fmt/format.h>
#include <fstream>
#include <map>
#include <pugixml.hpp>
#include <sstream>
#include <vector>

/// Documents from built-in templates and from files.

namespace {

struct Binding {
    std::string fVariable;
    bool fCategorical = false;
    std::string fLabelSlot;
    std::string fSource;
    std::string fFormat;  ///< width, type and decimals; empty: none
    std::string fLabel;
};

void SetText(pugi::xml_node element, const std::string& text) {
    element.text().set(host::PlainText(text).c_str());
}

struct TextWriter : pugi::xml_writer {
    void write(const void* data, std::size_t size) override { fText.append(static_cast<const char*>(data), size); }
    std::string fText;
};

}  // namespace

struct XViZTemplate::Impl {
    std::string fName;
    std::string fTitle;
    std::map<std::string, Binding> fSlots;

    void FillVariables(pugi::xml_node chart) const {
        for (pugi::xml_node source : chart.children("source")) {
            for (pugi::xml_node variable : source.children("variable")) {
                const auto found = fSlots.find(variable.attribute("slot").value());
                if (found == fSlots.end()) continue;
                const Binding& binding = found->second;
                if (!source.attribute("name")) source.append_attribute("name") = binding.fSource.c_str();
                variable.append_attribute("name") = binding.fVariable.c_str();
                variable.append_attribute("categorical") = binding.fCategorical;
                if (!binding.fFormat.empty()) variable.append_attribute("format") = binding.fFormat.c_str();
                if (!binding.fLabel.empty()) SetText(variable.append_child("label"), binding.fLabel);
            }
        }
    }

    void FillLabels(pugi::xml_node chart) const {
        if (!fTitle.empty()) SetText(chart.child("title"), fTitle);
        for (pugi::xml_node axis : chart.children("axis")) {
            pugi::xml_node title = axis.child("title");
            for (const auto& [slot, binding] : fSlots) {
                if (!binding.fLabelSlot.empty() && binding.fLabelSlot == title.attribute("slot").value())
                    SetText(title, binding.fLabel);
            }
        }
    }
};

XViZTemplate::XViZTemplate() : fpImpl(std::make_unique<Impl>()) {}
XViZTemplate::~XViZTemplate() = default;

void XViZTemplate::setTemplateInternalName(const std::string& name) {
    fpImpl->fName = name;
}

void XViZTemplate::addLabel(int kind, const std::string& text) {
    if (kind == 0) fpImpl->fTitle = text;
}

void XViZTemplate::addVariable(const std::string& slot, const std::string& variable, bool categorical,
                               const std::string& labelSlot, const std::string& source, const QVTA_Format* format,
                               const char* label, int, const char*, bool, const char*, bool, const char*, const char*,
                               const char*) {
    Binding& binding = fpImpl->fSlots[slot];
    binding = {variable, categorical, labelSlot, source, {}, label ? label : ""};
    if (format) binding.fFormat = fmt::format("{},{},{}", format->fWidth, format->fType, format->fDecimals);
}

bool XViZTemplate::convert(std::string& text, std::string& scratch) const {
    text.clear();
    scratch.clear();
    const char* built = host::FindBuiltInChart(fpImpl->fName + ".xml");
    pugi::xml_document document;
    if (!built) return false;
    const bool whole = document.load_string(built, pugi::parse_default | pugi::parse_declaration);
    const pugi::xml_node chart = document.child("chart");
    fpImpl->FillVariables(chart);
    fpImpl->FillLabels(chart);
    host::CheckXmlMemory();
    if (!whole) return false;
    TextWriter writer;
    document.save(writer, "  ", pugi::format_default);
    text = std::move(writer.fText);
    return true;
}

std::string FetchFile::fetch(const std::string& path, bool, bool) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file && text << file.rdbuf()) return text.str();
    const char* built = host::FindBuiltInChart(path.substr(path.rfind('/') + 1));
    return built ? built : "";
}

const char* host::FindBuiltInChart(const std::string& name) {
    for (const BuiltInChart& chart : kBuiltInCharts) {
        if (name == chart.fName) return chart.fText;
    }
    return nullptr;
}
