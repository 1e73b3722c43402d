#pragma once

#include "command/CommandTree.h"

#include <string>
#include <string_view>
#include <vector>

namespace command {

/// A formula as written.
struct FormulaNode {
    enum class Kind { kName, kNumber, kDot, kCall, kOperator, kParentheses };
    Kind fKind = Kind::kName;
    std::string fText;  ///< name, number, function or operator
    double fNumber = 0.0;
    Position fAt;
    std::vector<FormulaNode> fvParts;  ///< arguments, operands (one for a sign), or what stands in parentheses

    bool IsOperator(std::string_view sign) const { return fKind == Kind::kOperator && fText == sign; }
};

/// Throws CommandError.
FormulaNode ParseFormulaText(std::string_view text);

}  // namespace command
