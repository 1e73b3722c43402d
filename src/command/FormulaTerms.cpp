#include "command/FormulaTerms.h"

#include "command/Words.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace command {

using Kind = FormulaNode::Kind;

namespace {

constexpr int kHighestPower = 20;
constexpr std::size_t kMostTerms = 500;  ///< beyond these an expansion is taken for a slip

void RefuseNumber(const FormulaNode& node) {
    throw CommandError{"the number " + node.fText + " stands for an intercept and can be added or removed only",
                       node.fAt};
}

}  // namespace

std::vector<FormulaTerm::Power> FormulaTerm::Powers() const {
    std::map<int, int> powers;
    for (const auto& group : fvGroups)
        for (const auto& [variable, times] : group)
            powers[variable] = std::max(powers[variable], times);
    return {powers.begin(), powers.end()};
}

void TermSum::Add(const FormulaTerm& term) {
    if (fvKeys.insert(term.Powers()).second) fvTerms.push_back(term);
    if (fvTerms.size() > kMostTerms)
        throw CommandError{"the formula stands for more than " + std::to_string(kMostTerms) + " effects",
                           {1, 0, "formula"}};
}

void TermSum::Remove(const FormulaTerm& term) {
    if (fvKeys.erase(term.Powers()) == 0) return;
    std::erase_if(fvTerms, [&](const FormulaTerm& before) { return before.SameVariables(term); });
}

void TermSum::SortByDegree() {
    std::stable_sort(fvTerms.begin(), fvTerms.end(),
                     [](const FormulaTerm& a, const FormulaTerm& b) { return a.Powers().size() < b.Powers().size(); });
}

TermSum FormulaExpander::Expand(const FormulaNode& node) const {
    TermSum sum;
    AddSum(node, false, sum);
    sum.SortByDegree();
    return sum;
}

void FormulaExpander::AddSum(const FormulaNode& node, bool remove, TermSum& sum) const {
    if (node.IsOperator("+") || node.IsOperator("-")) {
        const bool minus = node.fText == "-";
        if (node.fvParts.size() == 2) AddSum(node.fvParts[0], remove, sum);
        return AddSum(node.fvParts.back(), remove != minus, sum);
    }
    if (node.fKind == Kind::kParentheses && !remove) return AddSum(node.fvParts.front(), remove, sum);
    if (node.fKind == Kind::kNumber) {
        if (node.fNumber != 0.0 && node.fNumber != 1.0) RefuseNumber(node);
        sum.fIntercept = (node.fNumber == 1.0) != remove;
        return;
    }
    for (const FormulaTerm& term : Terms(node)) {
        if (remove) {
            sum.Remove(term);
        } else {
            sum.Add(term);
        }
    }
}

int FormulaExpander::Variable(const FormulaNode& name) const {
    if (name.fKind == Kind::kCall && name.fText == "factor" && name.fvParts.size() == 1)
        return Variable(name.fvParts.front());
    if (name.fKind != Kind::kName) throw CommandError{"expected a variable", name.fAt};
    return fVariables.Find(name.fText, name.fAt);
}

std::vector<FormulaTerm> FormulaExpander::Terms(const FormulaNode& node) const {
    switch (node.fKind) {
        case Kind::kName:
            return {Single(Variable(node), 1, node.fAt)};
        case Kind::kDot: {
            std::vector<FormulaTerm> terms;
            for (const int variable : fvOthers)
                terms.push_back(Single(variable, 1, node.fAt));
            return terms;
        }
        case Kind::kCall:
            return {AsIs(node)};
        case Kind::kNumber:
            RefuseNumber(node);
            break;
        case Kind::kParentheses: {
            TermSum sum;
            AddSum(node.fvParts.front(), false, sum);
            return sum.fvTerms;
        }
        case Kind::kOperator:
            break;
    }
    if (node.fText == ":") return Product(Terms(node.fvParts[0]), Terms(node.fvParts[1]), true);
    if (node.fText == "^") return RaisedTo(node);
    if (node.fText == "%in%") return Nested(node.fvParts[0], Terms(node.fvParts[1]));
    if (node.fText != "*" && node.fText != "/")
        throw CommandError{"a random term in parentheses can only be added, as in + (1 | group)", node.fAt};
    TermSum sum;
    // Each side once: a chain of operators would double the work at every one.
    const std::vector<FormulaTerm> left = Terms(node.fvParts[0]);
    for (const FormulaTerm& term : left)
        sum.Add(term);
    if (node.fText == "/") {
        for (const FormulaTerm& term : Nested(node.fvParts[1], sum.fvTerms))
            sum.Add(term);
        return sum.fvTerms;
    }
    const std::vector<FormulaTerm> right = Terms(node.fvParts[1]);
    for (const FormulaTerm& term : right)
        sum.Add(term);
    for (const FormulaTerm& term : Product(left, right, false))
        sum.Add(term);
    return sum.fvTerms;
}

std::vector<FormulaTerm> FormulaExpander::Product(const std::vector<FormulaTerm>& left,
                                                  const std::vector<FormulaTerm>& right, bool addPowers) const {
    TermSum sum;
    for (const FormulaTerm& a : left)
        for (const FormulaTerm& b : right) {
            sum.Add(Joined(a, b, addPowers));
        }
    return sum.fvTerms;
}

/// Each outer effect in the parentheses of all inner variables: of the inner effect that holds them all, if there is
/// one.
std::vector<FormulaTerm> FormulaExpander::Nested(const FormulaNode& outer,
                                                 const std::vector<FormulaTerm>& inner) const {
    FormulaTerm all;
    for (const FormulaTerm& term : inner) {
        all = all.fvGroups.empty() ? term : Joined(all, term, false);
        if (term.SameVariables(all)) all = term;
    }
    std::vector<FormulaTerm> nested;
    for (FormulaTerm term : Terms(outer)) {
        for (const auto& group : all.fvGroups)
            for (const auto& [variable, times] : group) {
                if (!IsFactor(variable))
                    throw CommandError{"nothing can be nested in the covariate " + fVariables[variable].fName,
                                       outer.fAt};
                for (auto& own : term.fvGroups)
                    std::erase_if(own, [name = variable](const auto& power) { return power.first == name; });
            }
        std::erase_if(term.fvGroups, [](const auto& group) { return group.empty(); });
        term.fvGroups.insert(term.fvGroups.end(), all.fvGroups.begin(), all.fvGroups.end());
        nested.push_back(std::move(term));
    }
    return nested;
}

std::vector<FormulaTerm> FormulaExpander::RaisedTo(const FormulaNode& node) const {
    const double power = node.fvParts[1].fNumber;
    if (power < 1 || power > kHighestPower || power != std::floor(power))
        throw CommandError{"expected a whole number from 1 to 20 behind ^; a power of a covariate is I(x^2)",
                           node.fvParts[1].fAt};
    const std::vector<FormulaTerm> base = Terms(node.fvParts[0]);
    TermSum sum;
    for (const FormulaTerm& term : base)
        sum.Add(term);
    std::vector<FormulaTerm> last = sum.fvTerms;
    for (int i = 1; i < static_cast<int>(power); ++i) {
        TermSum next;
        for (const FormulaTerm& a : last)
            for (const FormulaTerm& b : base) {
                next.Add(Joined(a, b, false));
            }
        for (const FormulaTerm& term : next.fvTerms)
            sum.Add(term);
        last = std::move(next.fvTerms);
    }
    return sum.fvTerms;
}

FormulaTerm FormulaExpander::Single(int variable, int times, Position at) const {
    if (times > 1 && IsFactor(variable))
        throw CommandError{"the factor " + fVariables[variable].fName + " has no powers", at};
    return {{{{variable, times}}}};
}

/// The variables of both. Outermost groups join; deeper ones stay apart where only one side has them. A covariate that
/// both sides hold gets the sum of its powers with addPowers, else the higher one.
FormulaTerm FormulaExpander::Joined(const FormulaTerm& a, const FormulaTerm& b, bool addPowers) const {
    FormulaTerm joined = a;
    const std::size_t shift = a.fvGroups.size() > b.fvGroups.size() ? a.fvGroups.size() - b.fvGroups.size() : 0;
    for (std::size_t g = 0; g < b.fvGroups.size(); ++g)
        for (const auto& [variable, times] : b.fvGroups[g]) {
            FormulaTerm::Power* same = nullptr;
            for (auto& group : joined.fvGroups)
                for (auto& power : group)
                    if (power.first == variable) same = &power;
            if (same) {
                const bool sum = addPowers && !IsFactor(variable);
                same->second = std::min(sum ? same->second + times : std::max(same->second, times), kHighestPower);
                continue;
            }
            const std::size_t place = g == 0 ? 0 : g + shift;
            if (place >= joined.fvGroups.size()) joined.fvGroups.resize(place + 1);
            joined.fvGroups[place].emplace_back(variable, times);
        }
    std::erase_if(joined.fvGroups, [](const auto& group) { return group.empty(); });
    return joined;
}

FormulaTerm FormulaExpander::AsIs(const FormulaNode& call) const {
    if (call.fText == "factor") return Single(Variable(call), 1, call.fAt);
    if (call.fText != "I") {
        const std::vector<std::string> known{"factor", "I", "offset", "cbind"};
        throw CommandError{"the formula has no function " + call.fText + SuggestionText(call.fText, known, false) +
                               (NearestWord(call.fText, known).empty() ? "; transform the variable in the data" : ""),
                           call.fAt};
    }
    const FormulaNode& power = call.fvParts.front();
    const bool good = call.fvParts.size() == 1 && power.IsOperator("^") && power.fvParts[0].fKind == Kind::kName;
    if (!good) throw CommandError{"I() holds a power of a covariate only, as in I(x^2)", call.fAt};
    const double times = power.fvParts[1].fNumber;
    if (times < 1 || times > kHighestPower || times != std::floor(times))
        throw CommandError{"expected a whole number from 1 to 20 behind ^", power.fvParts[1].fAt};
    return Single(Variable(power.fvParts[0]), static_cast<int>(times), call.fAt);
}

}  // namespace command
