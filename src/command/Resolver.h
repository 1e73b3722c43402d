#pragma once

#include "command/Specification.h"

namespace command {

/// Reads effects and names of one command; shared by the resolver's sources.
class TermReader {
public:
    TermReader(const CommandTree& tree, const VariableList& variables);

    int Variable(const Item& item) const { return fVariables.Find(item.fText, item.fAt); }
    std::vector<int> VariablesOf(const Parameter* parameter) const;  ///< each once; none without the parameter
    int VariableOf(const Parameter* parameter) const;                ///< -1 without the parameter
    int NumericOf(const Parameter* parameter) const;                 ///< the same, refused when it is a text

    /// An effect. Predictors that stand in neither list yet join one by their measurement level.
    Term ReadTerm(const Item& item);

    const VariableList& Variables() const { return fVariables; }
    std::vector<int> fvFactors;
    std::vector<int> fvCovariates;

private:
    void ReadGroup(const Item& item, std::vector<std::vector<Item>>& groups) const;
    bool IsFactor(int variable);
    void AddFactor(Term& term, int variable, int level, Position at) const;

    const VariableList& fVariables;
};

/// The parts of a command that refer to its effects.
void ReadMeans(const Subcommand& subcommand, TermReader& reader, Means& means);
void ReadTest(const Subcommand& subcommand, TermReader& reader, const Specification& specification, CustomTest& test);

/// What the target's options say, tested against the target.
run::Target ReadTarget(const CommandTree& tree, const TermReader& reader, int target);

/// Numbers of a parameter: tested against the bounds, fallback without the parameter.
double NumberOf(const Parameter* parameter, double fallback, double least, double most);
int WholeNumberOf(const Parameter* parameter, int fallback, int least, int most);
bool IsYes(const Parameter* parameter, bool fallback);
/// Position of the parameter's word in the keyword table, fallback without the parameter.
int ChoiceOf(const Subcommand& subcommand, const char* parameter, int fallback);

}  // namespace command
