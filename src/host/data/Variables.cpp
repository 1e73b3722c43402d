#include "contracts/HostData.h"
#include "host/data/ValueLabels.h"

#include <algorithm>
#include <cmath>

QVTA_Format UnpackFormat(std::uint32_t word) {
    const std::uint32_t type = word >> 16;
    std::uint32_t width = (word >> 8) & 0xFF;
    std::uint32_t decimals = word & 0xFF;
    if (type != kFormatA && type != kFormatAHEX)
        width = std::min(width, static_cast<std::uint32_t>(QVTA_Variable::MAXNUMFMTWID));
    if (type == kFormatA) {
        width += 256 * decimals;
        decimals = 0;
    }
    return {static_cast<std::uint16_t>(width), static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(decimals)};
}

QVTA_Variable::QVTA_Variable() : fFormat{8, kFormatNumeric, 2}, fWriteFormat(fFormat) {}
QVTA_Variable::QVTA_Variable(const QVTA_Variable&) = default;
QVTA_Variable& QVTA_Variable::operator=(const QVTA_Variable&) = default;
QVTA_Variable::~QVTA_Variable() = default;

const char* QVTA_Variable::GetName() const {
    return fName.c_str();
}
const char* QVTA_Variable::GetLabel() const {
    return fLabel.empty() ? nullptr : fLabel.c_str();
}
std::string QVTA_Variable::GetPreferredLabel() const {
    return fLabel.empty() ? fName : fLabel;
}
int QVTA_Variable::GetType() const {
    return fType;
}
QVTA_Format QVTA_Variable::GetFormat() const {
    return fFormat;
}
QVTA_Format QVTA_Variable::GetFormatEx() const {
    return fFormat;
}
void QVTA_Variable::GetFormatEx(int& type, int& width, int& decimals) const {
    type = fFormat.fType;
    width = fFormat.fWidth;
    decimals = fFormat.fDecimals;
}
QVTA_Variable::MeasurementLevel QVTA_Variable::GetMeasurementLevel() const {
    return fLevel;
}
QVTA_VLImplPointer QVTA_Variable::GetValueLabels() const {
    return fValueLabels;
}
QVTA_Format QVTA_Variable::GetWriteFormat() const {
    return fWriteFormat;
}
short QVTA_Variable::GetDisplayWidth() const {
    return fDisplayWidth;
}

void QVTA_Variable::SetName(const char* name) {
    fName = name == nullptr ? "" : name;
}
void QVTA_Variable::SetLabel(const char* label) {
    fLabel = label == nullptr ? "" : label;
}
void QVTA_Variable::SetFormat(QVTA_Format format) {
    fFormat = format;
}
void QVTA_Variable::SetWriteFormat(QVTA_Format format) {
    fWriteFormat = format;
}
void QVTA_Variable::SetMeasurementLevel(MeasurementLevel level) {
    fLevel = level;
}
void QVTA_Variable::SetDisplayWidth(short width) {
    fDisplayWidth = width;
}
void QVTA_Variable::SetType(int type) {
    fType = type;
}
void QVTA_Variable::SetValueLabels(QVTA_VLImplPointer labels) {
    fValueLabels = std::move(labels);
}

QVTA_ValueLabelMap::QVTA_ValueLabelMap(QVTA_VLImplPointer labels) : fLabels(std::move(labels)) {}

const char* QVTA_ValueLabelMap::GetLabel(double const& value) const {
    return fLabels ? fLabels->Find(value + 0.0) : nullptr;
}

const char* QVTA_ValueLabelMap::GetLabel(std::string const& value) const {
    return fLabels ? fLabels->Find(value) : nullptr;
}

const char* QVTA_ValueLabelMap::GetLabel(OBS const* value) const {
    if (!fLabels || value == nullptr) return nullptr;
    if (fLabels->Width() == 0) return GetLabel(value->fNumber);
    return GetLabel(std::string(value->fText, static_cast<std::size_t>(fLabels->Width())));
}
