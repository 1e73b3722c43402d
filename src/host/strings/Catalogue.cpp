#include "host/strings/Catalogue.h"

#include "contracts/HostOutput.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace host {

namespace {

void Take(const nlohmann::json& source, std::map<std::string, std::string>& target) {
    if (!source.is_object()) return;
    for (const auto& [key, text] : source.items()) {
        if (text.is_string()) target[key] = text.get<std::string>();
    }
}

}  // namespace

bool Catalogue::Overlay(const std::string& json) {
    const auto root = nlohmann::json::parse(json, nullptr, false);
    if (!root.is_object()) return false;
    const auto none = nlohmann::json::object();
    Take(root.value("texts", none), fTexts);
    Take(root.value("messages", none), fMessages);
    const auto procedures = root.value("procedures", none);
    for (const auto& [name, texts] : procedures.items())
        Take(texts, fProcedures[name]);
    return true;
}

std::shared_ptr<const Catalogue> Catalogue::At(const std::string& directory) {
    static std::map<std::string, std::shared_ptr<const Catalogue>> known;
    auto& entry = known[directory];
    if (entry) return entry;
    auto catalogue = std::make_shared<Catalogue>();
    catalogue->Overlay(kBuiltInCatalogue);
    if (!directory.empty()) {
        std::ifstream file(directory + "/en.json", std::ios::binary);
        std::ostringstream text;
        if (file && text << file.rdbuf()) catalogue->Overlay(text.str());
    }
    entry = catalogue;
    return entry;
}

const Catalogue& Catalogue::Current() {
    static const auto current = At(PathFactory::getPathInstance().GetStringTableDirectory());
    return *current;
}

const std::string* Catalogue::Find(const std::string& procedure, const std::string& key) const {
    if (const auto texts = fProcedures.find(procedure); texts != fProcedures.end()) {
        if (const auto text = texts->second.find(key); text != texts->second.end()) return &text->second;
    }
    const auto text = fTexts.find(key);
    return text == fTexts.end() ? nullptr : &text->second;
}

std::string Catalogue::Text(const std::string& procedure, const std::string& key) const {
    const std::string* text = Find(procedure, key);
    return text ? *text : key;
}

std::string Catalogue::Message(long number) const {
    const auto text = fMessages.find(std::to_string(number));
    return text == fMessages.end() ? std::string() : text->second;
}

}  // namespace host

FacSTDictionary::FacSTDictionary(const std::string& directory) : fDirectory(directory) {}

void FacSTDictionary::SetProcedure(const std::string& name) {
    fProcedure = name;
}

// A catalogue's texts for all procedures stand in the same file as the procedures' own.
void FacSTDictionary::SetGlobalStringTable(const std::string& directory) {
    fDirectory = directory;
}

std::string FacSTDictionary::LookUp(const std::string& key) const {
    unsigned long status = 0;
    return LookUp(key, status);
}

std::string FacSTDictionary::LookUp(const std::string& key, unsigned long& status) const {
    const std::string* text = host::Catalogue::At(fDirectory)->Find(fProcedure, key);
    status = text ? 0 : 1;
    return text ? *text : key;
}
