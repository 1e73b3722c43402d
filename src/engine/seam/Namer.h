#pragma once

#include "contracts/EngineVariables.h"
#include "engine/lmm/FitResult.h"
#include "run/RunValue.h"

#include <string>
#include <vector>

namespace engine {

/// Names of a split's variables, categories, effects and parameters, in the user's words.
///
/// It refers to the variable list and the hidden columns, which must outlive it.
class Namer {
public:
    /// hidden names the record's columns behind the list's variables; null when there are none.
    explicit Namer(const MCVarList& variables, const run::HiddenColumns* hidden = nullptr)
        : fpVariables(&variables), fpHidden(hidden) {}

    /// The data set's name of a record variable: hidden role markers are left out.
    std::string Variable(int recordVariable) const;
    std::string Category(int recordVariable, int code) const;

    /// "a*b*x*x"; "(Intercept)" for an effect without variables.
    std::string Effect(const ModelEffect& effect) const;
    /// "[a=1] * [b=2] * x"
    std::string Term(const ModelEffect& effect, const std::vector<int>& levels) const;
    /// "block*plot"
    std::string Variables(const std::vector<int>& recordVariables) const;
    /// Category texts joined by "*".
    std::string Categories(const std::vector<int>& recordVariables, const std::vector<int>& codes) const;

private:
    const MCVarList* fpVariables;
    const run::HiddenColumns* fpHidden;
};

}  // namespace engine
