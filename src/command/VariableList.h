#pragma once

#include "command/CommandTree.h"

#include <string>
#include <string_view>
#include <vector>

namespace command {

enum class Level { kNominal = 1, kOrdinal = 2, kScale = 3 };

/// What the command needs to know of a variable of the data.
struct VariableInfo {
    std::string fName;
    int fWidth = 0;  ///< 0: numeric; else the width of its texts in bytes
    Level fLevel = Level::kScale;
    std::string
        fWhyText;  ///< of a column of numbers and other texts: what makes it a text ("line 7 has "n/a""), else empty
    bool IsText() const { return fWidth > 0; }
    /// "x is a text", with the reason if there is one.
    std::string IsTextSentence() const {
        return fName + " is a text" + (fWhyText.empty() ? "" : " (" + fWhyText + ")");
    }
};

/// The variables of the data in their order; a variable is its position from 0.
class VariableList {
public:
    VariableList() = default;
    /// source: the data file's name for messages, may be empty.
    VariableList(std::vector<VariableInfo> variables, std::string source);

    int Size() const { return static_cast<int>(fvVariables.size()); }
    const VariableInfo& operator[](int index) const { return fvVariables[index]; }

    /// The variable of exactly this name, else the only one that differs in the case of its letters. Throws
    /// CommandError with a suggestion when there is none, or several.
    int Find(std::string_view name, Position at) const;
    bool Has(std::string_view name) const;

private:
    std::vector<VariableInfo> fvVariables;
    std::string fSource;
};

}  // namespace command
