#include "contracts/Adapter.h"

#include <fmt/format.h>
#include <ostream>

namespace {

/// At first a stream that drops everything: a dump saves the stream in force and puts it back.
std::ostream*& Stream() {
    static std::ostream quiet(nullptr);
    static std::ostream* stream = &quiet;
    return stream;
}

void Write(BP_Character const& label, const std::string& value) {
    if (Stream() != nullptr) *Stream() << label.Text() << ' ' << value << '\n';
}

template <class List, class Show>
std::string Join(const List& values, Show show) {
    std::string text;
    for (const auto& value : values)
        text += (text.empty() ? "" : " ") + show(value);
    return text;
}

}  // namespace

std::ostream* ACACommonDisplay::GetOutStream() {
    return Stream();
}

void ACACommonDisplay::SetOutStream(std::ostream* stream) {
    Stream() = stream;
}

void ACACommonDisplay::DisplayText(BP_Character const& text) {
    if (Stream() != nullptr) *Stream() << text.Text() << '\n';
}

void ACACommonDisplay::DisplayB(BP_Character const& label, bool value) {
    Write(label, value ? "true" : "false");
}

void ACACommonDisplay::DisplayD(BP_Character const& label, double value) {
    Write(label, fmt::format("{}", value));
}

void ACACommonDisplay::DisplayI(BP_Character const& label, long value) {
    Write(label, fmt::format("{}", value));
}

void ACACommonDisplay::DisplayS(BP_Character const& label, const std::string& value) {
    Write(label, value);
}

void ACACommonDisplay::DisplayIV(BP_Character const& label, const std::vector<int>& values) {
    Write(label, Join(values, [](int value) { return fmt::format("{}", value); }));
}

void ACACommonDisplay::DisplayBV(BP_Character const& label, const std::vector<bool>& values) {
    Write(label, Join(values, [](bool value) { return std::string(value ? "true" : "false"); }));
}

void ACACommonDisplay::DisplaySV(BP_Character const& label, const std::vector<std::string>& values) {
    Write(label, Join(values, [](const std::string& value) { return value; }));
}

void ACACommonDisplay::DisplayObs(BP_Character const& label, OBS const* value, int width) {
    if (value == nullptr) return Write(label, "(null)");
    if (width == 0) return DisplayD(label, value->fNumber);
    std::string text(value->fText, static_cast<std::size_t>(width));
    text.erase(text.find_last_not_of(' ') + 1);
    Write(label, text);
}
