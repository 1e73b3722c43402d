#include "host/charts/ChartRows.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

/// A row beyond this is no row of a chart.
constexpr std::size_t kMostRows = 1U << 24;

output::Datum* CellOf(output::ChartSource& source, std::size_t field, std::size_t row) {
    if (row >= kMostRows) return nullptr;
    if (source.fvRows.size() <= row) source.fvRows.resize(row + 1);
    auto& cells = source.fvRows[row];
    if (cells.size() <= field) cells.resize(field + 1);
    return &cells[field];
}

Json DatumJson(const output::Datum& datum) {
    if (const auto* text = std::get_if<std::string>(&datum)) return *text;
    const auto* number = std::get_if<double>(&datum);
    return number && std::isfinite(*number) ? Json(*number) : Json(nullptr);
}

output::Datum JsonDatum(const Json& json) {
    if (json.is_number()) return json.get<double>();
    if (json.is_string()) return json.get<std::string>();
    return {};
}

}  // namespace

output::ChartSource* VarDataProcessor::Impl::Find(const std::string& name) {
    for (auto& source : fvSources) {
        if (source.fName == name) return &source;
    }
    return nullptr;
}

output::Datum* VarDataProcessor::Impl::Cell(const std::string& name, const std::string& variable, std::size_t row) {
    output::ChartSource* source = Find(name);
    const int field = source ? source->Find(variable) : -1;
    return field < 0 ? nullptr : CellOf(*source, static_cast<std::size_t>(field), row);
}

output::Datum* VarDataProcessor::Impl::Cell(VarDataHandle handle, std::size_t row) {
    if (handle < 0 || static_cast<std::size_t>(handle) >= fvPlaces.size()) return nullptr;
    const Place& place = fvPlaces[static_cast<std::size_t>(handle)];
    return CellOf(fvSources[place.fSource], place.fField, row);
}

VarDataProcessor::VarDataProcessor() : fpImpl(std::make_unique<Impl>()) {}
VarDataProcessor::~VarDataProcessor() = default;

void VarDataProcessor::AddDataSource(const std::string& source, std::size_t rowHint) {
    output::ChartSource& made = fpImpl->fvSources.emplace_back();
    made.fName = source;
    made.fvRows.reserve(std::min(rowHint, kMostRows));
}

void VarDataProcessor::AddVariable(const std::string& source, const std::string& variable, VarDataHandle* handle) {
    if (handle) *handle = -1;
    output::ChartSource* found = fpImpl->Find(source);
    if (!found) return;
    found->fvFields.emplace_back().fName = variable;
    if (!handle) return;
    *handle = static_cast<VarDataHandle>(fpImpl->fvPlaces.size());
    fpImpl->fvPlaces.push_back(
        {static_cast<std::size_t>(found - fpImpl->fvSources.data()), found->fvFields.size() - 1});
}

void VarDataProcessor::SetVariableValue(VarDataHandle handle, std::size_t row, double value) {
    if (output::Datum* cell = fpImpl->Cell(handle, row)) *cell = value;
}

void VarDataProcessor::SetVariableValue(const std::string& source, const std::string& variable, std::size_t row,
                                        double value) {
    if (output::Datum* cell = fpImpl->Cell(source, variable, row)) *cell = value;
}

void VarDataProcessor::SetStringVariableValue(VarDataHandle handle, std::size_t row, const std::string& text) {
    if (output::Datum* cell = fpImpl->Cell(handle, row)) *cell = text;
}

void VarDataProcessor::SetStringVariableValue(const std::string& source, const std::string& variable, std::size_t row,
                                              const std::string& text) {
    if (output::Datum* cell = fpImpl->Cell(source, variable, row)) *cell = text;
}

const char* VarDataProcessor::GetDataStream(std::size_t* length) const {
    Json sources = Json::array();
    for (const auto& source : fpImpl->fvSources) {
        Json fields = Json::array(), rows = Json::array();
        for (const auto& field : source.fvFields)
            fields.push_back(field.fName);
        for (const auto& row : source.fvRows) {
            Json cells = Json::array();
            for (const auto& cell : row)
                cells.push_back(DatumJson(cell));
            rows.push_back(std::move(cells));
        }
        sources.push_back({{"name", source.fName}, {"variables", std::move(fields)}, {"rows", std::move(rows)}});
    }
    fpImpl->fStream = sources.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (length) *length = fpImpl->fStream.size();
    return fpImpl->fStream.data();
}

namespace host {

std::vector<output::ChartSource> ReadDataStream(const std::string& stream) {
    std::vector<output::ChartSource> sources;
    const Json json = Json::parse(stream, nullptr, false);
    if (!json.is_array()) return sources;
    for (const Json& part : json) {
        if (!part.is_object() || !part.contains("rows") || !part.contains("variables")) continue;
        output::ChartSource& source = sources.emplace_back();
        source.fName = part.value("name", "");
        for (const Json& name : part["variables"])
            source.fvFields.emplace_back().fName = name.is_string() ? name.get<std::string>() : "";
        for (const Json& row : part["rows"]) {
            auto& cells = source.fvRows.emplace_back();
            for (const Json& cell : row)
                cells.push_back(JsonDatum(cell));
        }
    }
    return sources;
}

}  // namespace host
