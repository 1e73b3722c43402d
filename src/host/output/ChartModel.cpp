#include "host/output/ChartModel.h"

#include "host/output/FigureText.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace output {

bool Spells(const std::string& text, const Datum& value) {
    if (const auto* held = std::get_if<std::string>(&value)) return *held == text;
    const auto* number = std::get_if<double>(&value);
    if (!number) return text.empty();
    double spelt = 0.0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), spelt);
    return error == std::errc() && end == text.data() + text.size() && spelt == *number;
}

std::string ChartField::Shown(const Datum& value) const {
    for (const auto& [known, text] : fvRelabels) {
        if (known == value) return text;
    }
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    const auto* number = std::get_if<double>(&value);
    if (!number) return {};
    if (fFormat && fFormat->fType != kFormatA && fFormat->fType != kFormatAHEX) {
        const std::string text = host::FigureText(*number, BpFormatSpec(*fFormat));
        const std::string more = fFine ? host::FigureText(*number, BpFormatSpec(BpFormatSpec::kCoefficient)) : "";
        return more.size() > text.size() ? more : text;
    }
    return host::FigureText(*number, BpFormatSpec(BpFormatSpec::kSigDigit, *number));
}

void ChartSource::SettleDigits() {
    for (std::size_t f = 0; f < fvFields.size(); ++f) {
        ChartField& field = fvFields[f];
        if (!field.fFormat || field.fFormat->fType != kFormatNumeric) continue;
        const double unit = std::pow(10.0, -static_cast<int>(field.fFormat->fDecimals));
        for (std::size_t row = 0; row < fvRows.size() && !field.fFine; ++row) {
            const auto* number = std::get_if<double>(&At(row, static_cast<int>(f)));
            if (!number || host::IsMissingFigure(*number)) continue;
            field.fFine = std::fabs(std::round(*number / unit) * unit - *number) > 1e-9 * std::fabs(*number);
        }
    }
}

int ChartSource::Find(const std::string& name) const {
    const auto found =
        std::find_if(fvFields.begin(), fvFields.end(), [&name](const ChartField& f) { return f.fName == name; });
    return found == fvFields.end() ? -1 : static_cast<int>(found - fvFields.begin());
}

const Datum& ChartSource::At(std::size_t row, int field) const {
    static const Datum unset;
    if (row >= fvRows.size() || field < 0 || static_cast<std::size_t>(field) >= fvRows[row].size()) return unset;
    return fvRows[row][field];
}

bool ChartSource::HasValues(int field) const {
    for (std::size_t row = 0; row < fvRows.size(); ++row) {
        if (!IsUnset(At(row, field))) return true;
    }
    return false;
}

const ChartChannel* ChartLayer::Channel(const std::string& role) const {
    const auto found = std::find_if(fvChannels.begin(), fvChannels.end(),
                                    [&role](const ChartChannel& channel) { return channel.fRole == role; });
    return found == fvChannels.end() ? nullptr : &*found;
}

const ChartSource* ChartModel::Source(const std::string& name) const {
    const auto found =
        std::find_if(fvSources.begin(), fvSources.end(), [&name](const ChartSource& s) { return s.fName == name; });
    return found == fvSources.end() ? nullptr : &*found;
}

const ChartAxis* ChartModel::Axis(const std::string& along) const {
    const auto found =
        std::find_if(fvAxes.begin(), fvAxes.end(), [&along](const ChartAxis& axis) { return axis.fAlong == along; });
    return found == fvAxes.end() ? nullptr : &*found;
}

const ChartLegend* ChartModel::Legend(const std::string& role) const {
    const auto found = std::find_if(fvLegends.begin(), fvLegends.end(),
                                    [&role](const ChartLegend& legend) { return legend.fFor == role; });
    return found == fvLegends.end() ? nullptr : &*found;
}

std::vector<std::string> ChartModel::ColumnTitles() const {
    std::vector<std::string> titles;
    for (const ChartColumn& column : fvColumns)
        titles.push_back(column.fLabel);
    return titles;
}

std::vector<std::vector<std::string>> ChartModel::RowTexts() const {
    std::vector<std::vector<std::string>> rows;
    for (const ChartSource& source : fvSources) {
        for (std::size_t c = 0; c < source.Cases(); ++c) {
            std::vector<std::string> row;
            bool any = false;
            for (const ChartColumn& column : fvColumns) {
                const int field = column.fSource == source.fName ? source.Find(column.fField) : -1;
                row.push_back(
                    field < 0 ? std::string()
                              : source.fvFields[field].Shown(source.At(c * source.fRowsPerCase + column.fRow, field)));
                any |= !row.back().empty();
            }
            if (any) rows.push_back(std::move(row));
        }
    }
    return rows;
}

}  // namespace output
