#include "contracts/EngineVariables.h"

#include <iterator>
#include <new>
#include <pugixml.hpp>
#include <set>
#include <string>

/// Reads the variable list of a model document back: every field of the data dictionary in order, then the further uses
/// of fields. No entity that a document declares is expanded.

struct MCPMMLParser::Impl {
    pugi::xml_document fDocument;
};

namespace {

/// A variable as a model document describes it.
class DocumentVariable : public IMCVariable {
public:
    DocumentVariable(const pugi::xml_node& field, VariableRole role, bool withCategories)
        : fName(field.attribute("name").value()), fRole(role) {
        const std::string kind = field.attribute("optype").value();
        fLevel = kind == "ordinal" ? kOrdinalLevel : kind == "categorical" ? kNominalLevel : kScaleLevel;
        fIsString = std::string(field.attribute("dataType").value()) == "string";
        for (const pugi::xml_node value : field.children("Value")) {
            ++fCategoryCount;
            if (withCategories) fvCategories.emplace_back(value.attribute("value").value());
        }
    }
    std::string GetName() const override { return fName; }
    VariableRole GetRole() const override { return fRole; }
    MeasurementLevel GetMeasurementLevel() const override { return fLevel; }
    bool IsCategorical() const override { return fLevel != kScaleLevel; }
    int GetCategoryCount() const override { return fCategoryCount; }
    std::string GetCategoryText(int code) const override {
        return code >= 0 && code < static_cast<int>(fvCategories.size()) ? fvCategories[code] : std::string();
    }
    bool IsString() const override { return fIsString; }

private:
    std::string fName;
    VariableRole fRole;
    MeasurementLevel fLevel = kScaleLevel;
    bool fIsString = false;
    int fCategoryCount = 0;
    std::vector<std::string> fvCategories;
};

}  // namespace

MCPMMLParser::MCPMMLParser() : fpImpl(std::make_unique<Impl>()) {}
MCPMMLParser::~MCPMMLParser() = default;

bool MCPMMLParser::ParseToDOM(std::istream& document) {
    const std::string text(std::istreambuf_iterator<char>(document), {});
    const pugi::xml_parse_result result =
        fpImpl->fDocument.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (result.status == pugi::status_out_of_memory) throw std::bad_alloc();
    return result && fpImpl->fDocument.child("PMML").child("DataDictionary");
}

bool MCPMMLParser::FillVarList(MCVarList& list, const std::vector<std::string>& names, bool withCategories) {
    const pugi::xml_node root = fpImpl->fDocument.child("PMML");
    const pugi::xml_node dictionary = root.child("DataDictionary");
    if (!dictionary) return false;
    const std::string target = root.child("GeneralRegressionModel").attribute("targetVariableName").value();
    const std::set<std::string> wanted(names.begin(), names.end());
    const auto add = [&](const pugi::xml_node& field) {
        const std::string name = field.attribute("name").value();
        if (!wanted.empty() && !wanted.contains(name)) return;
        const auto role = name == target ? IMCVariable::kDependentRole : IMCVariable::kPredictorRole;
        list.Add(std::make_unique<DocumentVariable>(field, role, withCategories));
    };
    for (const pugi::xml_node field : dictionary.children("DataField"))
        add(field);
    for (const pugi::xml_node extension : dictionary.children("Extension")) {
        for (const pugi::xml_node field : extension.children("DataField"))
            add(field);
    }
    return true;
}
