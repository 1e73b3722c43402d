#include "engine/glmm/TargetCheck.h"

#include "engine/glmm/Family.h"
#include "engine/glmm/TargetValues.h"
#include "engine/glmm/WorkingModel.h"

#include <algorithm>
#include <cmath>

namespace engine {

namespace {

constexpr long kNotBuilt = 130018;

FitStatus Refuse(const std::string& sentence) {
    return {kNotBuilt, Severity::kError, sentence};
}

std::string CategoryName(const TargetSpec& target, std::size_t code) {
    return code < target.fCategoryNames.size() ? target.fCategoryNames[code] : std::to_string(code + 1);
}

bool IsMultinomial(const TargetSpec& target) {
    return target.fDistribution == run::Distribution::kOrdinal || target.fDistribution == run::Distribution::kNominal;
}

FitStatus CheckModel(const ModelSpec& spec, const TargetSpec& target) {
    if (!IsAdmissible(target.fDistribution, target.fLink)) {
        return Refuse("The " + NameOf(target.fLink) + " link can't be used with a " + NameOf(target.fDistribution) +
                      " target: choose another link.");
    }
    if (IsMultinomial(target) && HasResidualStructure(spec)) {
        return Refuse("A " + NameOf(target.fDistribution) +
                      " target takes no residual structure: leave the repeated measures out, or use random effects.");
    }
    const bool freeDispersion = target.fDistribution == run::Distribution::kNegativeBinomial && !target.fDispersion;
    if (freeDispersion && HasResidualStructure(spec)) {
        return Refuse(
            "The dispersion of a negative binomial target can't be estimated beside a residual structure: "
            "give its value, or leave the repeated measures out.");
    }
    if (target.fDispersion && !(*target.fDispersion > 0.0 && std::isfinite(*target.fDispersion))) {
        return Refuse("The dispersion of a negative binomial target must be above zero.");
    }
    return {0, Severity::kOk, {}};
}

TargetVerdict CheckCategories(const ModelSpec& spec, const TargetSpec& target, const RecordView& view) {
    TargetVerdict verdict;
    std::vector<std::size_t> counts(target.fCategories, 0);
    for (std::size_t i = 0; i < view.fCount; ++i)
        ++counts[static_cast<std::size_t>(view.Row(i)[spec.fDependent])];
    const auto present = std::count_if(counts.begin(), counts.end(), [](std::size_t n) { return n > 0; });
    if (present < 2) {
        verdict.fRefusal =
            Refuse("The target " + target.fName + " has one category only: there is nothing to tell apart.");
        return verdict;
    }
    if (!IsMultinomial(target) && target.fCategories != 2) {
        verdict.fRefusal = Refuse("The binomial target " + target.fName + " has " + std::to_string(target.fCategories) +
                                  " categories instead of two: use a multinomial target.");
        return verdict;
    }
    for (std::size_t c = 0; c < counts.size(); ++c) {
        if (counts[c] == 0) {
            verdict.fRefusal = Refuse("The category " + CategoryName(target, c) + " of the target " + target.fName +
                                      " occurs in no record: leave it out of the target.");
            return verdict;
        }
        if (counts[c] == 1) {
            verdict.fWarnings.push_back({kNotBuilt, Severity::kWarning,
                                         "The category " + CategoryName(target, c) + " of the target " + target.fName +
                                             " occurs in one record only: what is estimated for it is uncertain."});
        }
    }
    return verdict;
}

}  // namespace

TargetVerdict CheckTarget(const ModelSpec& spec, const TargetSpec& target, const RecordView& view) {
    TargetVerdict verdict;
    verdict.fRefusal = CheckModel(spec, target);
    if (verdict.fRefusal.IsError()) return verdict;
    if (target.fCategories > 0) return CheckCategories(spec, target, view);
    const std::unique_ptr<Family> family = MakeFamily(target.fDistribution);
    const TargetValues values(target, spec);
    double sum = 0.0;
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* record = view.Row(i);
        if (const char* objection = family->Objection(values.Value(record), values.Trials(record))) {
            verdict.fRefusal =
                Refuse("The target " + target.fName + " " + objection + " in record " + std::to_string(i + 1) + ".");
            return verdict;
        }
        sum += std::abs(values.Value(record));
    }
    if (family->HasUnitScale() && sum == 0.0) {
        verdict.fRefusal = Refuse("The target " + target.fName + " is 0 in all records: there is nothing to estimate.");
    }
    return verdict;
}

}  // namespace engine
