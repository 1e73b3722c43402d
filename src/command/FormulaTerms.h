#pragma once

#include "command/FormulaNode.h"
#include "command/VariableList.h"

#include <set>
#include <utility>
#include <vector>

namespace command {

/// An effect of a formula: its variables with their powers, in groups from the outermost to the innermost pair of
/// parentheses of the nested form.
struct FormulaTerm {
    using Power = std::pair<int, int>;  ///< variable, times
    std::vector<std::vector<Power>> fvGroups;

    std::vector<Power> Powers() const;  ///< sorted by variable
    bool SameVariables(const FormulaTerm& other) const { return Powers() == other.Powers(); }
};

/// A sum of effects.
struct TermSum {
    bool fIntercept = true;
    std::vector<FormulaTerm> fvTerms;

    void Add(const FormulaTerm& term);  ///< nothing is added twice; throws CommandError beyond some hundred effects
    void Remove(const FormulaTerm& term);
    void SortByDegree();

private:
    std::set<std::vector<FormulaTerm::Power>> fvKeys;
};

/// Expands the operators of a formula over the variables of the data.
class FormulaExpander {
public:
    explicit FormulaExpander(const VariableList& variables) : fVariables(variables) {}

    void SetOthers(std::vector<int> others) { fvOthers = std::move(others); }  ///< what a dot stands for

    TermSum Expand(const FormulaNode& node) const;

    int Variable(const FormulaNode& name) const;  ///< of a name or factor(name)
    bool IsFactor(int variable) const {
        return fVariables[variable].IsText() || fVariables[variable].fLevel != Level::kScale;
    }

private:
    void AddSum(const FormulaNode& node, bool remove, TermSum& sum) const;
    std::vector<FormulaTerm> Terms(const FormulaNode& node) const;
    std::vector<FormulaTerm> Product(const std::vector<FormulaTerm>& left, const std::vector<FormulaTerm>& right,
                                     bool addPowers) const;
    std::vector<FormulaTerm> Nested(const FormulaNode& outer, const std::vector<FormulaTerm>& inner) const;
    std::vector<FormulaTerm> RaisedTo(const FormulaNode& node) const;
    FormulaTerm Single(int variable, int times, Position at) const;
    FormulaTerm Joined(const FormulaTerm& a, const FormulaTerm& b, bool addPowers) const;
    FormulaTerm AsIs(const FormulaNode& call) const;

    const VariableList& fVariables;
    std::vector<int> fvOthers;
};

}  // namespace command
