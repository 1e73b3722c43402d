#include "contracts/CustomProcedure.h"
#include "contracts/EngineStatus.h"

#include <charconv>
#include <cstring>

namespace {

std::vector<OBS> StringCells(const std::string& text, int width) {
    std::vector<OBS> cells(ObsCells(width));
    const std::size_t bytes = cells.size() * sizeof(OBS);
    std::memset(cells.data(), ' ', bytes);
    std::memcpy(cells.data(), text.data(), std::min(text.size(), bytes));
    return cells;
}

bool ReadNumber(const std::string& text, double& value) {
    if (text.empty() || text == ".") {
        value = MCMV::Missing();
        return true;
    }
    const char* begin = text.data();
    const char* end = begin + text.size();
    while (begin != end && (*begin == ' ' || *begin == '+'))
        ++begin;
    const auto [rest, error] = std::from_chars(begin, end, value);
    return error == std::errc() && std::string(rest, end).find_first_not_of(' ') == std::string::npos;
}

}  // namespace

void CFStatVariableValue::SetStringValue(const std::string& text) {
    fText = text;
    fvCells.clear();
}

bool CFStatVariableValue::SetCompleteValue(const std::string& text, const QVTA_Variable& variable, int flags) {
    SetStringValue(text);
    return LoadObsValue(variable, flags);
}

bool CFStatVariableValue::LoadObsValue(const QVTA_Variable& variable, int /*flags*/) {
    fvCells.clear();
    if (variable.GetType() != 0) {
        if (static_cast<int>(fText.size()) > ObsCells(variable.GetType()) * static_cast<int>(sizeof(OBS))) return false;
        fvCells = StringCells(fText, variable.GetType());
        return true;
    }
    OBS cell;
    if (!ReadNumber(fText, cell.fNumber)) return false;
    fvCells.assign(1, cell);
    return true;
}
