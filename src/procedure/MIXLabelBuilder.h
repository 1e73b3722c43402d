#pragma once

#include "contracts/Adapter.h"
#include "contracts/EngineModel.h"
#include "contracts/HostData.h"

#include <functional>
#include <string>
#include <vector>

/// The grammar of parameter and effect labels, for the global list and for one split's map alike.
///
/// A factor term lists the factors of the outermost nest level first and each lower level in a further pair of
/// parentheses: "[a=1]([b=2] * [c=3])". Factors and covariates, of which one stands as often as its multiplicity says,
/// join by " * ": "[a=1] * x * x", or "x([a=1])" where the effect has its factors in parentheses.
class MIXLabelBuilder {
public:
    /// A term's variables by record index; the paired lists have equal sizes.
    struct Term {
        const std::vector<int>& fFactors;
        const std::vector<int>& fLevels;
        const std::vector<int>& fCovariates;
        const std::vector<int>& fMults;
        bool fFactorsInParens;
    };

    MIXLabelBuilder(const ACAVarValidSpecs& record, const QVTA_DataSource& source)
        : fpRecord(&record), fpSource(&source) {}

    /// The intercept in the user's language.
    static std::string Intercept();
    /// The variables' names joined by " * "; empty for none.
    std::string Subjects(const std::vector<int>& subjectVars) const;
    /// What a parameter's label gets behind it for a subject text: nothing, or a separator and the text.
    static std::string ParameterSuffix(const std::string& subjects);
    /// Appends a label an effect to both lists, to the second with the suffix of the subject text.
    void AppendEffects(const std::vector<MCModelEffect>& effects, const std::string& subjects,
                       std::vector<std::string>& labels, std::vector<std::string>& withSubject) const;
    /// categories: a value a factor of the term; null shows no value.
    std::string Parameter(const Term& term, const std::vector<const OBS*>& categories) const;

private:
    using FactorPiece = std::function<std::string(std::size_t position)>;
    const QVTA_Variable& Variable(int recordVariable) const;
    std::string Effect(const MCModelEffect& effect) const;
    std::string Label(const Term& term, const FactorPiece& piece) const;

    const ACAVarValidSpecs* fpRecord;
    const QVTA_DataSource* fpSource;
};
