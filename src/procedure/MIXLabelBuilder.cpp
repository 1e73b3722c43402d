#include "procedure/MIXLabelBuilder.h"

#include "contracts/HostOutput.h"

#include <algorithm>

namespace {

constexpr const char* kJoin = " * ";
constexpr const char* kSubjectSeparator = " | ";

void AppendJoined(std::string& text, const std::string& piece) {
    if (!text.empty()) text += kJoin;
    text += piece;
}

std::string FactorTerm(const std::vector<int>& levels, const std::function<std::string(std::size_t)>& piece) {
    const int outermost = levels.empty() ? -1 : *std::max_element(levels.begin(), levels.end());
    std::string term;
    int open = 0;
    for (int level = outermost; level >= 0; --level) {
        if (level != outermost) {
            term += "(";
            ++open;
        }
        std::string levelText;
        for (std::size_t i = 0; i < levels.size(); ++i) {
            if (levels[i] == level) AppendJoined(levelText, piece(i));
        }
        term += levelText;
    }
    return term.append(open, ')');
}

}  // namespace

std::string MIXLabelBuilder::Intercept() {
    FacSTDictionary dictionary(PathFactory::getPathInstance().GetStringTableDirectory());
    dictionary.SetProcedure("Mixed");
    return dictionary.LookUp("(Intercept)");
}

const QVTA_Variable& MIXLabelBuilder::Variable(int recordVariable) const {
    return fpSource->GetVariable(fpRecord->GetQVTAVarIndex(recordVariable));
}

std::string MIXLabelBuilder::Subjects(const std::vector<int>& subjectVars) const {
    std::string text;
    for (const int variable : subjectVars)
        AppendJoined(text, Variable(variable).GetName());
    return text;
}

std::string MIXLabelBuilder::ParameterSuffix(const std::string& subjects) {
    return subjects.empty() ? std::string() : kSubjectSeparator + subjects;
}

std::string MIXLabelBuilder::Label(const Term& term, const FactorPiece& piece) const {
    const std::string factorTerm = FactorTerm(term.fLevels, piece);
    std::string covariateTerm;
    for (std::size_t i = 0; i < term.fCovariates.size(); ++i) {
        const std::string name = Variable(term.fCovariates[i]).GetName();
        for (int k = 0; k < term.fMults[i]; ++k)
            AppendJoined(covariateTerm, name);
    }
    if (factorTerm.empty()) return covariateTerm;
    if (covariateTerm.empty()) return factorTerm;
    return term.fFactorsInParens ? covariateTerm + "(" + factorTerm + ")" : factorTerm + kJoin + covariateTerm;
}

std::string MIXLabelBuilder::Effect(const MCModelEffect& effect) const {
    const std::vector<int> factors = effect.GetFactors();
    const std::vector<int> covariates = effect.GetCovariates();
    std::vector<int> mults;
    mults.reserve(covariates.size());
    for (const int covariate : covariates)
        mults.push_back(effect.GetCovariateMult(covariate));
    return Label({factors, effect.GetFactorLevels(), covariates, mults, effect.GetFactorsInParens()},
                 [&](std::size_t i) { return std::string(Variable(factors[i]).GetName()); });
}

void MIXLabelBuilder::AppendEffects(const std::vector<MCModelEffect>& effects, const std::string& subjects,
                                    std::vector<std::string>& labels, std::vector<std::string>& withSubject) const {
    const std::string suffix = subjects.empty() ? std::string() : "[subject = " + subjects + "]";
    for (const MCModelEffect& effect : effects) {
        const bool isEmpty = effect.GetNFactors() == 0 && effect.GetNCovariates() == 0;
        if (isEmpty && !effect.IsIntercept()) continue;
        labels.push_back(effect.IsIntercept() ? Intercept() : Effect(effect));
        withSubject.push_back(labels.back() + suffix);
    }
}

std::string MIXLabelBuilder::Parameter(const Term& term, const std::vector<const OBS*>& categories) const {
    return Label(term, [&](std::size_t i) {
        const QVTA_Variable& variable = Variable(term.fFactors[i]);
        const OBS* value = categories[i];
        const std::string text =
            value ? fpRecord->ConvertObsToString(value, variable.GetFormat(), false) : std::string();
        return std::string("[") + variable.GetName() + "=" + text + "]";
    });
}
