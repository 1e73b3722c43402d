#pragma once

#include "contracts/HostData.h"
#include "host/data/Variable.h"

#include <map>
#include <string>

/// Value labels of one variable; width 0: of numbers.
class QVTA_VLImpl {
public:
    explicit QVTA_VLImpl(const host::Variable& variable)
        : fWidth(variable.fWidth), fNumbers(variable.fNumberLabels), fTexts(variable.fTextLabels) {}

    const char* Find(double value) const {
        const auto found = fNumbers.find(value);
        return found == fNumbers.end() ? nullptr : found->second.c_str();
    }
    const char* Find(const std::string& text) const {
        const auto found = fTexts.find(text.substr(0, text.find_last_not_of(' ') + 1));
        return found == fTexts.end() ? nullptr : found->second.c_str();
    }
    int Width() const { return fWidth; }

private:
    int fWidth;
    std::map<double, std::string> fNumbers;
    std::map<std::string, std::string> fTexts;
};
