#pragma once

#include "run/RunValue.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace engine {

/// The target of a generalized model, in record indices. A categorical target has its category codes in the dependent
/// variable's place.
struct TargetSpec {
    run::Distribution fDistribution = run::Distribution::kNormal;
    run::Link fLink = run::Link::kIdentity;
    double fLinkPower = 1.0;
    int fTrials = -1;                   ///< binomial events: variable with the trials, or -1
    double fTrialsValue = 0.0;          ///< binomial events: fixed number of trials, 0 for none
    int fNonEvents = -1;                ///< binomial events: variable with the other trials' number, or -1
    std::optional<double> fDispersion;  ///< negative binomial: held at this; absent: estimated
    int fCategories = 0;                ///< number of categories, 0 when the target isn't categorical
    int fReference = -1;  ///< code of the reference category; -1: of two the first, of nominal ones the last

    // For sentences about the data.
    std::string fName = "target";
    std::vector<std::string> fCategoryNames;  ///< by code; may be empty
    std::vector<double> fCategoryValues;      ///< by code; empty: the code counted from 1
    /// Row of the user's data of the first record that fits, as run::RecordBlock has it; may be empty.
    std::function<long(const std::function<bool(const double* record)>& fits)> fFindRow;
    /// The name of a column of the fixed effects: index into ModelSpec::FixedEffects, level codes; may be empty.
    std::function<std::string(int effect, const std::vector<int>& levels)> fTermName;

    double ValueOfCategory(int code) const {
        return code < static_cast<int>(fCategoryValues.size()) ? fCategoryValues[code] : code + 1.0;
    }
    bool HasTrials() const { return fTrials >= 0 || fTrialsValue > 0.0 || fNonEvents >= 0; }
};

}  // namespace engine
