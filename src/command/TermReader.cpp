#include "command/Resolver.h"
#include "command/Words.h"

#include <algorithm>

namespace command {

namespace {

bool Holds(const std::vector<int>& list, int variable) {
    return std::find(list.begin(), list.end(), variable) != list.end();
}

}  // namespace

bool Term::SameAs(const Term& other) const {
    auto sorted = [](auto list) {
        std::sort(list.begin(), list.end());
        return list;
    };
    return sorted(fvFactors) == sorted(other.fvFactors) && sorted(fvCovariates) == sorted(other.fvCovariates);
}

std::string TermText(const Term& term, const VariableList& variables) {
    if (term.IsIntercept()) return "INTERCEPT";
    auto name = [&](int variable) { return PrintItem(Item::Name(variables[variable].fName)); };
    std::vector<std::string> levels;  // innermost first
    for (const Term::Factor& factor : term.fvFactors) {
        if (static_cast<int>(levels.size()) < factor.fLevel) levels.resize(factor.fLevel);
        std::string& level = levels[factor.fLevel - 1];
        level += (level.empty() ? "" : "*") + name(factor.fVariable);
    }
    std::string covariates;
    for (const Term::Power& power : term.fvCovariates)
        for (int i = 0; i < power.fTimes; ++i)
            covariates += (covariates.empty() ? "" : "*") + name(power.fVariable);
    std::string text;
    for (const std::string& level : levels)
        text = text.empty() ? level : level + "(" + text + ")";
    if (covariates.empty() || text.empty()) return text + covariates;
    return term.fCovariatesNested ? covariates + "(" + text + ")" : covariates + "*" + text;
}

TermReader::TermReader(const CommandTree& tree, const VariableList& variables) : fVariables(variables) {
    const Parameter* factors = tree.Find("FIELDS", "FACTORS");
    const Parameter* covariates = tree.Find("FIELDS", "COVARIATES");
    fvFactors = VariablesOf(factors);
    fvCovariates = VariablesOf(covariates);
    for (std::size_t i = 0; i < fvCovariates.size(); ++i) {
        const VariableInfo& variable = fVariables[fvCovariates[i]];
        const Position at = covariates->fvItems[i].fAt;
        if (variable.IsText())
            throw CommandError{"COVARIATES: " + variable.IsTextSentence() + " and can only be a factor", at};
        if (Holds(fvFactors, fvCovariates[i]))
            throw CommandError{variable.fName + " stands in both FACTORS and COVARIATES", at};
    }
}

std::vector<int> TermReader::VariablesOf(const Parameter* parameter) const {
    std::vector<int> list;
    if (!parameter) return list;
    for (const Item& item : parameter->fvItems) {
        const int variable = Variable(item);
        if (Holds(list, variable))
            throw CommandError{parameter->fName + ": the variable " + fVariables[variable].fName + " stands twice",
                               item.fAt};
        list.push_back(variable);
    }
    return list;
}

int TermReader::VariableOf(const Parameter* parameter) const {
    return parameter ? Variable(parameter->fvItems.front()) : -1;
}

int TermReader::NumericOf(const Parameter* parameter) const {
    const int variable = VariableOf(parameter);
    if (variable >= 0 && fVariables[variable].IsText())
        throw CommandError{parameter->fName + ": " + fVariables[variable].IsTextSentence() + "; numbers are needed",
                           parameter->fvItems.front().fAt};
    return variable;
}

bool TermReader::IsFactor(int variable) {
    if (Holds(fvFactors, variable)) return true;
    if (Holds(fvCovariates, variable)) return false;
    const VariableInfo& info = fVariables[variable];
    const bool factor = info.IsText() || info.fLevel != Level::kScale;
    (factor ? fvFactors : fvCovariates).push_back(variable);
    return factor;
}

/// The names of each pair of parentheses, outermost first.
void TermReader::ReadGroup(const Item& item, std::vector<std::vector<Item>>& groups) const {
    if (item.fKind == Item::Kind::kGroup) {
        ReadGroup(item.fvParts[0], groups);
        return ReadGroup(item.fvParts[1], groups);
    }
    groups.push_back(item.fKind == Item::Kind::kProduct ? item.fvParts : std::vector<Item>{item});
}

void TermReader::AddFactor(Term& term, int variable, int level, Position at) const {
    for (const Term::Factor& factor : term.fvFactors)
        if (factor.fVariable == variable)
            throw CommandError{"the factor " + fVariables[variable].fName + " stands twice in one effect", at};
    term.fvFactors.push_back({variable, level});
}

Term TermReader::ReadTerm(const Item& item) {
    if (item.IsWord("INTERCEPT")) return {};
    std::vector<std::vector<Item>> groups;
    ReadGroup(item, groups);
    Term term;
    int level = 0;
    for (std::size_t i = groups.size(); i-- > 0;) {
        bool raised = false;
        for (const Item& name : groups[i]) {
            const int variable = Variable(name);
            if (IsFactor(variable)) {
                if (!raised) ++level;
                raised = true;
                AddFactor(term, variable, level, name.fAt);
                continue;
            }
            if (i > 0)
                throw CommandError{"the covariate " + fVariables[variable].fName +
                                       " can't stand in the parentheses of a nested effect",
                                   name.fAt};
            auto same = std::find_if(term.fvCovariates.begin(), term.fvCovariates.end(),
                                     [&](const Term::Power& power) { return power.fVariable == variable; });
            if (same != term.fvCovariates.end()) {
                ++same->fTimes;
            } else {
                term.fvCovariates.push_back({variable, 1});
            }
        }
    }
    const bool factorsOutside = std::any_of(term.fvFactors.begin(), term.fvFactors.end(), [&](const auto& factor) {
        return std::any_of(groups[0].begin(), groups[0].end(),
                           [&](const Item& name) { return Variable(name) == factor.fVariable; });
    });
    term.fCovariatesNested = groups.size() > 1 && !term.fvCovariates.empty() && !factorsOutside;
    return term;
}

}  // namespace command
