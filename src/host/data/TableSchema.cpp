#include "host/data/TableSchema.h"

#include "host/data/DateText.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>

namespace host {
namespace {

using nlohmann::json;

// Numbers keep the spelling that the column's cells have to be compared with by value, so any exact one will do.
std::optional<std::string> AsText(const json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_number() || value.is_boolean()) return value.dump();
    return std::nullopt;
}

std::optional<std::string> Property(const json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? std::nullopt : AsText(*found);
}

std::optional<FieldSchema::Type> ParseType(const std::string& name) {
    static const std::set<std::string> numbers = {"number", "integer", "year"};
    static const std::set<std::string> texts = {"string", "boolean", "date", "time",     "datetime", "yearmonth",
                                                "object", "array",   "list", "duration", "geopoint", "geojson"};
    if (numbers.count(name) != 0) return FieldSchema::Type::kNumber;
    if (texts.count(name) != 0) return FieldSchema::Type::kText;
    if (name == "any") return FieldSchema::Type::kAny;
    return std::nullopt;
}

std::optional<PrintFormat> ParsePrintFormat(const std::string& text) {
    if (text.size() < 2 || (text[0] != 'F' && text[0] != 'f')) return std::nullopt;
    const std::size_t point = text.find('.');
    const std::string width = text.substr(1, point == std::string::npos ? std::string::npos : point - 1);
    const std::string decimals = point == std::string::npos ? "0" : text.substr(point + 1);
    const auto digits = [](const std::string& part) {
        return !part.empty() && part.size() <= 2 &&
               std::all_of(part.begin(), part.end(), [](unsigned char c) { return c >= '0' && c <= '9'; });
    };
    if (!digits(width) || !digits(decimals)) return std::nullopt;
    const PrintFormat format{5, std::stoi(width), std::stoi(decimals)};
    if (format.fWidth < 1 || format.fWidth > 40 || format.fDecimals >= format.fWidth) return std::nullopt;
    return format;
}

class SchemaReader {
public:
    explicit SchemaReader(const std::string& file) { fSchema.fFile = file; }

    Outcome<TableSchema> Read() {
        std::ifstream stream(fSchema.fFile, std::ios::binary);
        std::error_code code;
        if (!stream || std::filesystem::is_directory(fSchema.fFile, code))
            return Fail("the schema file can't be read; check its name");
        const std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        json document;
        try {
            document = json::parse(text);
        } catch (const json::exception& problem) {
            const auto* parse = dynamic_cast<const json::parse_error*>(&problem);
            const std::size_t at = parse == nullptr ? 0 : std::min(parse->byte, text.size());
            DataError error = Fail("the schema isn't valid JSON here");
            error.fLine = 1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
            return error;
        }
        if (!document.is_object() || !document.contains("fields") || !document["fields"].is_array())
            return Fail("the schema needs an object with a list \"fields\"");
        if (!ReadMissing(document, "the schema's", fSchema.fMissing)) return *fError;
        for (const json& field : document["fields"])
            if (!ReadField(field)) return *fError;
        return std::move(fSchema);
    }

private:
    DataError Fail(std::string text) const { return {std::move(text), fSchema.fFile, 0, {}}; }

    bool Refuse(std::string text, const std::string& column = {}) {
        fError = Fail(std::move(text));
        fError->fColumn = column;
        return false;
    }

    bool ReadMissing(const json& object, const std::string& whose, std::vector<std::string>& missing) {
        const auto found = object.find("missingValues");
        if (found == object.end()) return true;
        if (!found->is_array()) return Refuse(whose + " \"missingValues\" must be a list of texts");
        for (const json& entry : *found) {
            const auto value = entry.is_object() ? Property(entry, "value") : AsText(entry);
            if (!value) return Refuse(whose + " \"missingValues\" must be a list of texts");
            if (!value->empty()) missing.push_back(*value);
        }
        return true;
    }

    bool ReadField(const json& object) {
        FieldSchema field;
        if (const auto name = object.is_object() ? Property(object, "name") : std::nullopt; name && !name->empty())
            field.fName = *name;
        else
            return Refuse("every field of the schema needs a \"name\"");
        if (fSchema.Find(field.fName) != nullptr) return Refuse("the schema has this field twice", field.fName);
        field.fLabel = Property(object, "title").value_or("");
        const std::string typeName = Property(object, "type").value_or("any");
        const auto type = ParseType(typeName);
        if (!type)
            return Refuse("the type \"" + typeName + "\" isn't known; use number, integer, string or any", field.fName);
        field.fType = *type;
        const auto format = Property(object, "format");
        if (const int date = DateType(typeName); date != 0 && (!format || *format == "default")) {
            const QVTA_Format shown = DateFormat(date);
            field.fType = FieldSchema::Type::kNumber;
            field.fDateFormat = date;
            field.fFormat = PrintFormat{shown.fType, shown.fWidth, shown.fDecimals};
        }
        if (field.fType == FieldSchema::Type::kText) field.fLevel = Level::kNominal;
        if (format && field.fType != FieldSchema::Type::kText && field.fDateFormat == 0)
            field.fFormat = ParsePrintFormat(*format);
        if (object.contains("missingValues")) {
            field.fMissing.emplace();
            if (!ReadMissing(object, "the field's", *field.fMissing)) {
                fError->fColumn = field.fName;
                return false;
            }
        }
        if (!ReadCategories(object, field)) return false;
        fSchema.fFields.push_back(std::move(field));
        return true;
    }

    bool ReadCategories(const json& object, FieldSchema& field) {
        const auto found = object.find("categories");
        if (found == object.end()) return true;
        if (!found->is_array()) return Refuse("\"categories\" must be a list", field.fName);
        const auto ordered = object.find("categoriesOrdered");
        const bool isOrdered = ordered != object.end() && ordered->is_boolean() && ordered->get<bool>();
        field.fLevel = isOrdered ? Level::kOrdinal : Level::kNominal;
        for (const json& entry : *found) {
            const auto value = entry.is_object() ? Property(entry, "value") : AsText(entry);
            if (!value) return Refuse("every category must be a value or an object with a \"value\"", field.fName);
            const auto label = entry.is_object() ? Property(entry, "label") : std::nullopt;
            if (label && !label->empty()) field.fLabels.emplace_back(*value, *label);
        }
        return true;
    }

    TableSchema fSchema;
    std::optional<DataError> fError;
};

}  // namespace

const FieldSchema* TableSchema::Find(const std::string& name) const {
    const auto found =
        std::find_if(fFields.begin(), fFields.end(), [&](const FieldSchema& field) { return field.fName == name; });
    return found == fFields.end() ? nullptr : &*found;
}

Outcome<TableSchema> ReadTableSchema(const std::string& file) {
    return SchemaReader(file).Read();
}

std::string FindTableSchema(const std::string& dataFile) {
    std::error_code code;
    for (const std::string& candidate :
         {dataFile + ".schema.json", std::filesystem::path(dataFile).replace_extension("schema.json").string()})
        if (std::filesystem::is_regular_file(candidate, code)) return candidate;
    return {};
}

}  // namespace host
