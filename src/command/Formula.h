#pragma once

#include "command/CommandTree.h"
#include "command/VariableList.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace command {

struct FormulaNode;

/// A model formula, `y ~ a*b + x + (1 + x | g)`, that becomes a command.
///
/// Operators in order of binding: ^, :, %in%, * and /, + and -, then | and || in the parentheses of a random term. The
/// expansion is that of Wilkinson and Rogers (Applied Statistics 22, 1973) in its widespread form: a*b is a + b + a:b,
/// a/b is a + b %in% a, (a + b)^2 stops at two variables; effects go by their number of variables, and a - removes one.
class Formula {
public:
    /// Nothing, with the error and its column, when the text isn't a formula.
    static std::optional<Formula> Parse(std::string_view text, CommandError& error);

    /// The variables that factor() marks as nominal, as written.
    std::vector<std::string> NominalNames() const;

    /// Fills FIELDS, FIXED and RANDOM of the command, and of TARGET_OPTIONS what cbind() and offset() say. False, with
    /// the error, when the formula doesn't fit the variables.
    bool Expand(const VariableList& variables, CommandTree& tree, CommandError& error) const;

private:
    std::shared_ptr<const FormulaNode> fpRoot;
};

}  // namespace command
