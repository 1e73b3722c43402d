#include "contracts/EngineDisplay.h"

#include "contracts/EngineVariables.h"
#include "engine/structures/Structure.h"

#include <array>
#include <charconv>
#include <iostream>
#include <string_view>

namespace MCDisplay {

namespace {

std::ostream*& Slot() {
    static std::ostream* stream = &std::clog;
    return stream;
}

void Line(const std::string& label, std::string_view value) {
    if (std::ostream* stream = Slot()) *stream << label << ' ' << value << '\n';
}

/// Shortest text that reads back to the same double, whatever the locale.
std::string NumberText(double value) {
    std::array<char, 32> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr;
    return std::string(buffer.data(), end);
}

struct Word {
    int fValue;
    std::string_view fWord;
};

template <std::size_t N>
void Enumerator(const std::string& label, int value, const std::array<Word, N>& words) {
    std::string text = std::to_string(value);
    for (const Word& word : words) {
        if (word.fValue == value) text += " (" + std::string(word.fWord) + ")";
    }
    Line(label, text);
}

}  // namespace

std::ostream* GetOutStream() {
    return Slot();
}

void SetOutStream(std::ostream* stream) {
    Slot() = stream;
}

void DisplayText(const std::string& text) {
    if (std::ostream* stream = Slot()) *stream << text << '\n';
}

void DisplayI(const std::string& label, long value) {
    Line(label, std::to_string(value));
}

void DisplayB(const std::string& label, bool value) {
    Line(label, value ? "true" : "false");
}

void DisplayD(const std::string& label, double value) {
    Line(label, NumberText(value));
}

void DisplayDF(const std::string& label, double value) {
    Line(label, NumberText(value));
}

void DisplayS(const std::string& label, const std::string& value) {
    Line(label, value);
}

void DisplayIV(const std::string& label, const std::vector<int>& values) {
    std::string text;
    for (int value : values)
        text += (text.empty() ? "" : " ") + std::to_string(value);
    Line(label, text);
}

void DisplayCConvType(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{1, "absolute"}, Word{2, "relative"}});
}

void DisplayCCovbType(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "model-based"}});
}

void DisplayCHessianCompMethod(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{2, "Newton"}, Word{3, "Fisher then Newton"}});
}

void DisplayCEffectAnalysisType(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "Type I"}, Word{1, "Type III"}});
}

void DisplayCEffectAnalysisStat(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "Wald"}});
}

void DisplayCCIType(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "Wald"}});
}

void DisplayCThetaEstType(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "full"}, Word{1, "restricted"}});
}

void DisplayCDegreesFreedomType(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "residual"}, Word{1, "Satterthwaite"}, Word{3, "Kenward-Roger"}});
}

void DisplayCCovarType(const std::string& label, int value) {
    Line(label, std::to_string(value) + " (" +
                    std::string(engine::CovarianceWord(static_cast<engine::CovarianceType>(value))) + ")");
}

void DisplayCScoreType(const std::string& label, int value) {
    Enumerator(
        label, value,
        std::array{Word{10, "fixed prediction"}, Word{0, "prediction"}, Word{6, "residual"},
                   Word{11, "standard error of fixed prediction"}, Word{1, "standard error of prediction"},
                   Word{19, "degrees of freedom of fixed prediction"}, Word{9, "degrees of freedom of prediction"}});
}

void DisplayCCategOrder(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "ascending"}, Word{1, "descending"}, Word{2, "data"}});
}

void DisplayCOffsetType(const std::string& label, int value) {
    Enumerator(label, value, std::array{Word{0, "none"}, Word{1, "variable"}, Word{2, "fixed value"}});
}

}  // namespace MCDisplay

void MCVarList::Display() const {
    MCDisplay::DisplayI("Number of variables", Size());
    for (const auto& variable : fvVariables) {
        MCDisplay::DisplayS("Name", variable->GetName());
        MCDisplay::DisplayI("Role", variable->GetRole());
        MCDisplay::DisplayB("Categorical", variable->IsCategorical());
        MCDisplay::DisplayI("Number of categories", variable->GetCategoryCount());
    }
    MCDisplay::DisplayDF("Cases", fCount);
    MCDisplay::DisplayDF("Weighted cases", fWeightedCount);
    MCDisplay::DisplayDF("Dropped cases", fDropped);
    MCDisplay::DisplayDF("Weighted dropped cases", fWeightedDropped);
}
