#include "command/Formula.h"

#include "command/FormulaTerms.h"
#include "command/Keywords.h"
#include "command/Words.h"

#include <algorithm>
#include <functional>

namespace command {

namespace {

using Kind = FormulaNode::Kind;

void ForEachNode(const FormulaNode& node, const std::function<void(const FormulaNode&)>& visit) {
    visit(node);
    for (const FormulaNode& part : node.fvParts)
        ForEachNode(part, visit);
}

bool IsBar(const FormulaNode& node) {
    return node.IsOperator("|") || node.IsOperator("||");
}

/// A formula's right side, sorted into what each part is for.
struct Parts {
    std::vector<std::pair<const FormulaNode*, bool>> fvFixed;  ///< and whether it is removed
    std::vector<const FormulaNode*> fvRandom;                  ///< (x | g) or cs(x | g)
    std::vector<const FormulaNode*> fvOffsets;                 ///< offset(x)
};

void Sort(const FormulaNode& node, bool remove, Parts& parts) {
    if (node.IsOperator("+") || node.IsOperator("-")) {
        if (node.fvParts.size() == 2) Sort(node.fvParts[0], remove, parts);
        return Sort(node.fvParts.back(), remove != (node.fText == "-"), parts);
    }
    const bool wrapped = node.fKind == Kind::kCall && !node.fvParts.empty() && IsBar(node.fvParts.front());
    const bool offset = node.fKind == Kind::kCall && node.fText == "offset";
    if (wrapped || (node.fKind == Kind::kParentheses && IsBar(node.fvParts.front()))) {
        if (remove) throw CommandError{"a random term can't be removed", node.fAt};
        parts.fvRandom.push_back(&node);
    } else if (offset) {
        if (remove || node.fvParts.size() != 1) throw CommandError{"expected + offset(x)", node.fAt};
        parts.fvOffsets.push_back(&node);
    } else {
        parts.fvFixed.emplace_back(&node, remove);
    }
}

class FormulaCommand {
public:
    FormulaCommand(const FormulaNode& root, const VariableList& variables, CommandTree& tree)
        : fRoot(root), fVariables(variables), fTree(tree), fExpander(variables) {}

    void Run() {
        Parts parts;
        Sort(fRoot.fvParts[1], false, parts);
        ReadTarget(fRoot.fvParts[0]);
        ReadOffsets(parts.fvOffsets);
        fExpander.SetOthers(OtherVariables(parts));
        const TermSum fixed = ReadFixed(parts.fvFixed);
        std::vector<Subcommand> blocks;
        for (const FormulaNode* node : parts.fvRandom)
            ReadRandom(*node, blocks);
        Subcommand& fields = fTree.Get("FIELDS");
        fields.Set("TARGET", {Item::Name(fVariables[fTarget].fName)});
        if (!fvFactors.empty()) fields.Set("FACTORS", Names(fvFactors));
        if (!fvCovariates.empty()) fields.Set("COVARIATES", Names(fvCovariates));
        Subcommand& effects = fTree.Get("FIXED");
        if (!fixed.fvTerms.empty()) effects.Set("EFFECTS", Items(fixed.fvTerms));
        effects.Set("INTERCEPT", {Item::Word(fixed.fIntercept ? "YES" : "NO")});
        fTree.fvSubcommands.insert(fTree.fvSubcommands.end(), blocks.begin(), blocks.end());
    }

private:
    void ReadTarget(const FormulaNode& node) {
        if (node.fKind == Kind::kCall && node.fText == "cbind") {
            if (node.fvParts.size() != 2) throw CommandError{"expected cbind(events, nonevents)", node.fAt};
            fTarget = fExpander.Variable(node.fvParts[0]);
            fvOutside.push_back(fExpander.Variable(node.fvParts[1]));
            fTree.Set("TARGET_OPTIONS", "DISTRIBUTION", {Item::Word("BINOMIAL")});
            fTree.Set("TARGET_OPTIONS", "NONEVENTS", {Item::Name(fVariables[fvOutside.back()].fName, node.fAt)},
                      node.fAt);
        } else if (node.fKind == Kind::kName) {
            fTarget = fExpander.Variable(node);
        } else {
            throw CommandError{"expected one target variable, or cbind(events, nonevents); transform it in the data",
                               node.fAt};
        }
        fvOutside.push_back(fTarget);
    }

    void ReadOffsets(const std::vector<const FormulaNode*>& offsets) {
        if (offsets.size() > 1) throw CommandError{"a model takes one offset", offsets[1]->fAt};
        if (offsets.empty()) return;
        const FormulaNode& argument = offsets.front()->fvParts.front();
        fvOutside.push_back(fExpander.Variable(argument));
        fTree.Set("TARGET_OPTIONS", "OFFSET", {Item::Name(fVariables[fvOutside.back()].fName, argument.fAt)},
                  argument.fAt);
    }

    /// What a dot stands for: all variables but the target, the offset, and those right of a bar.
    std::vector<int> OtherVariables(const Parts& parts) const {
        std::vector<int> outside = fvOutside;
        for (const FormulaNode* node : parts.fvRandom)
            ForEachNode(node->fvParts.front().fvParts[1], [&](const FormulaNode& part) {
                if (part.fKind == Kind::kName) outside.push_back(fExpander.Variable(part));
            });
        std::vector<int> others;
        for (int i = 0; i < fVariables.Size(); ++i)
            if (std::find(outside.begin(), outside.end(), i) == outside.end()) others.push_back(i);
        return others;
    }

    TermSum ReadFixed(const std::vector<std::pair<const FormulaNode*, bool>>& nodes) {
        TermSum sum;
        for (const auto& [node, remove] : nodes) {
            FormulaNode part = *node;
            if (remove) part = {Kind::kOperator, "-", 0.0, node->fAt, {*node}};
            Merge(part, sum);
        }
        sum.SortByDegree();
        for (const FormulaTerm& term : sum.fvTerms)
            Classify(term);
        return sum;
    }

    /// A part of a sum as a change of the sum so far.
    void Merge(const FormulaNode& part, TermSum& sum) const {
        const bool remove = part.IsOperator("-") && part.fvParts.size() == 1;
        const TermSum change = fExpander.Expand(remove ? part.fvParts.front() : part);
        const FormulaNode& bare = remove ? part.fvParts.front() : part;
        if (bare.fKind == Kind::kNumber || !change.fIntercept) sum.fIntercept = change.fIntercept != remove;
        for (const FormulaTerm& term : change.fvTerms) {
            if (remove) {
                sum.Remove(term);
            } else {
                sum.Add(term);
            }
        }
    }

    void Classify(const FormulaTerm& term) {
        for (const auto& [variable, times] : term.Powers()) {
            std::vector<int>& list = fExpander.IsFactor(variable) ? fvFactors : fvCovariates;
            if (std::find(list.begin(), list.end(), variable) == list.end()) list.push_back(variable);
        }
    }

    std::vector<Item> Names(const std::vector<int>& variables) const {
        std::vector<Item> names;
        for (const int variable : variables)
            names.push_back(Item::Name(fVariables[variable].fName));
        return names;
    }

    std::vector<Item> Items(const std::vector<FormulaTerm>& terms) const {
        std::vector<Item> items;
        for (const FormulaTerm& term : terms) {
            Item item;
            for (std::size_t g = term.fvGroups.size(); g-- > 0;) {
                std::vector<Item> names;
                for (const auto& [variable, times] : term.fvGroups[g])
                    names.insert(names.end(), times, Item::Name(fVariables[variable].fName));
                Item group = Item::Product(std::move(names));
                item = g + 1 == term.fvGroups.size() ? group : Item::Group(std::move(group), {std::move(item)});
            }
            items.push_back(std::move(item));
        }
        return items;
    }

    void ReadRandom(const FormulaNode& node, std::vector<Subcommand>& blocks) {
        const FormulaNode& bar = node.fvParts.front();
        TermSum effects = fExpander.Expand(bar.fvParts[0]);
        const std::string structure = StructureOf(node, bar, effects);
        if (structure != "VC") DropMargins(effects, node.fAt);
        if (!effects.fIntercept && effects.fvTerms.empty())
            throw CommandError{"a random term without effects; expected (1 | group)", node.fAt};
        for (const FormulaTerm& term : effects.fvTerms)
            Classify(term);
        std::vector<Item> items;
        if (effects.fIntercept) items.push_back(Item::Word("INTERCEPT"));
        for (Item& item : Items(effects.fvTerms))
            items.push_back(std::move(item));
        const TermSum subjects = fExpander.Expand(bar.fvParts[1]);
        if (subjects.fvTerms.empty())
            throw CommandError{"expected a grouping variable right of the bar", bar.fvParts[1].fAt};
        for (const FormulaTerm& subject : subjects.fvTerms) {
            Subcommand block{"RANDOM", {}, {}};
            block.Set("EFFECTS", items);
            block.Set("SUBJECTS", Names(SubjectsOf(subject)));
            block.Set("COVARIANCE_TYPE", {Item::Word(structure)});
            blocks.push_back(std::move(block));
        }
    }

    /// Of a nested term g(h) the outer variable stands last, as in h:g.
    static std::vector<int> SubjectsOf(const FormulaTerm& term) {
        std::vector<int> variables;
        for (std::size_t g = term.fvGroups.size(); g-- > 0;)
            for (const auto& [variable, times] : term.fvGroups[g])
                variables.push_back(variable);
        return variables;
    }

    std::string StructureOf(const FormulaNode& node, const FormulaNode& bar, const TermSum& effects) const {
        if (node.fKind == Kind::kCall) {
            const int code = StructureCode(node.fText);
            if (node.fvParts.size() != 1 || code == 0 || code >= kFirstRepeatedCode)
                throw CommandError{"there is no covariance structure " + node.fText + " for random effects" +
                                       SuggestionText(node.fText, StructureNames(false), true),
                                   node.fAt};
            return Upper(node.fText);
        }
        const bool severalColumns = std::any_of(effects.fvTerms.begin(), effects.fvTerms.end(), [&](const auto& term) {
            const auto powers = term.Powers();
            return std::any_of(powers.begin(), powers.end(),
                               [&](const auto& power) { return fExpander.IsFactor(power.first); });
        });
        const std::size_t terms = effects.fvTerms.size() + (effects.fIntercept ? 1 : 0);
        if (terms == 1 && !severalColumns) return "VC";
        return bar.fText == "||" ? "DIAG" : "UN";
    }

    std::vector<int> FactorsOf(const FormulaTerm& term, bool factors) const {
        std::vector<int> list;
        for (const auto& [variable, times] : term.Powers())
            if (fExpander.IsFactor(variable) == factors)
                for (int i = 0; i < times; ++i)
                    list.push_back(variable);
        return list;
    }

    /// An effect whose columns are sums of another effect's columns can't be told apart from it: the other alone stays.
    void DropMargins(TermSum& effects, Position at) const {
        std::vector<FormulaTerm> all = effects.fvTerms;
        if (effects.fIntercept) all.push_back({});
        auto inside = [&](const FormulaTerm& margin, const FormulaTerm& term) {
            const std::vector<int> few = FactorsOf(margin, true), many = FactorsOf(term, true);
            return FactorsOf(margin, false) == FactorsOf(term, false) && few != many &&
                   std::includes(many.begin(), many.end(), few.begin(), few.end());
        };
        for (const FormulaTerm& margin : all) {
            const bool covered =
                std::any_of(all.begin(), all.end(), [&](const auto& term) { return inside(margin, term); });
            if (!covered) continue;
            if (margin.fvGroups.empty()) effects.fIntercept = false;
            effects.Remove(margin);
        }
        for (std::size_t i = 0; i < effects.fvTerms.size(); ++i)
            for (std::size_t j = i + 1; j < effects.fvTerms.size(); ++j)
                if (FactorsOf(effects.fvTerms[i], false) == FactorsOf(effects.fvTerms[j], false))
                    throw CommandError{
                        "the effects of this random term can't be told apart: the levels of two factors add "
                        "up to the same; cross them (0 + a:b | g) or give each a term of its own",
                        at};
    }

    const FormulaNode& fRoot;
    const VariableList& fVariables;
    CommandTree& fTree;
    FormulaExpander fExpander;
    int fTarget = -1;
    std::vector<int> fvOutside;  ///< target, non-events, offset
    std::vector<int> fvFactors;
    std::vector<int> fvCovariates;
};

}  // namespace

std::optional<Formula> Formula::Parse(std::string_view text, CommandError& error) {
    try {
        Formula formula;
        formula.fpRoot = std::make_shared<FormulaNode>(ParseFormulaText(text));
        return formula;
    } catch (const CommandError& refused) {
        error = refused;
        return std::nullopt;
    }
}

std::vector<std::string> Formula::NominalNames() const {
    std::vector<std::string> names;
    ForEachNode(*fpRoot, [&](const FormulaNode& node) {
        if (node.fKind == Kind::kCall && node.fText == "factor")
            for (const FormulaNode& part : node.fvParts)
                if (part.fKind == Kind::kName && std::find(names.begin(), names.end(), part.fText) == names.end())
                    names.push_back(part.fText);
    });
    return names;
}

bool Formula::Expand(const VariableList& variables, CommandTree& tree, CommandError& error) const {
    CommandTree filled = tree;
    try {
        FormulaCommand(*fpRoot, variables, filled).Run();
    } catch (const CommandError& refused) {
        error = refused;
        return false;
    }
    tree = std::move(filled);
    return true;
}

}  // namespace command
