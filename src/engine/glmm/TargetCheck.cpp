#include "engine/glmm/TargetCheck.h"

#include "engine/glmm/Family.h"
#include "engine/glmm/TargetValues.h"
#include "engine/glmm/WorkingModel.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace engine {

namespace {

constexpr long kNotBuilt = 130018;
constexpr long kZeroScale = 130074;

FitStatus Refuse(const std::string& sentence) {
    return {kNotBuilt, Severity::kError, sentence};
}

std::string CategoryName(const TargetSpec& target, std::size_t code) {
    return code < target.fCategoryNames.size() ? target.fCategoryNames[code] : std::to_string(code + 1);
}

/// The shortest text that reads back to the same double.
std::string NumberText(double value) {
    std::array<char, 32> buffer;
    return {buffer.data(), std::to_chars(buffer.data(), buffer.data() + buffer.size(), value).ptr};
}

/// Where a record stands: in the user's data, or among the records when its row isn't known (0).
std::string PlaceText(long row, std::size_t index) {
    return row > 0 ? "row " + std::to_string(row) + " of the data" : "record " + std::to_string(index + 1);
}

/// The sentence about a record of the view whose value is objected to; of several, that on the first in the data.
FitStatus RefuseRecord(const Family& family, const ModelSpec& spec, const TargetSpec& target, const RecordView& view,
                       std::size_t index) {
    const TargetValues values(target, spec);
    const double* record = view.Row(index);
    const char* objection = nullptr;
    double value = 0.0, trials = 1.0;
    const auto fits = [&](const double* candidate) {
        trials = values.Trials(candidate);
        value = candidate[spec.fDependent];
        objection = family.Objection(values.Value(candidate), trials);
        return objection != nullptr;
    };
    const long row = target.fFindRow ? target.fFindRow(fits) : 0;
    if (row == 0) fits(record);
    std::string sentence = "The target " + target.fName + " " + objection + " in " + PlaceText(row, index);
    sentence += ": " + NumberText(value);
    if (target.HasTrials()) sentence += " of " + NumberText(trials);
    return Refuse(sentence + ".");
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
    const auto code = [&](const double* record) { return static_cast<std::size_t>(record[spec.fDependent]); };
    std::vector<std::size_t> counts(target.fCategories, 0);
    std::vector<std::size_t> last(target.fCategories, 0);
    for (std::size_t i = 0; i < view.fCount; ++i) {
        ++counts[code(view.Row(i))];
        last[code(view.Row(i))] = i;
    }
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
            const auto fits = [&](const double* record) { return code(record) == c; };
            const std::string place = PlaceText(target.fFindRow ? target.fFindRow(fits) : 0, last[c]);
            verdict.fWarnings.push_back({kNotBuilt, Severity::kWarning,
                                         "The category " + CategoryName(target, c) + " of the target " + target.fName +
                                             " occurs in one record only (" + place +
                                             "): what is estimated for it is uncertain."});
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
    double low = std::numeric_limits<double>::infinity();
    double high = -low;
    for (std::size_t i = 0; i < view.fCount; ++i) {
        const double* record = view.Row(i);
        if (family->Objection(values.Value(record), values.Trials(record))) {
            verdict.fRefusal = RefuseRecord(*family, spec, target, view, i);
            return verdict;
        }
        low = std::min(low, values.Value(record));
        high = std::max(high, values.Value(record));
    }
    if (low < high) return verdict;
    if (!family->HasUnitScale() && spec.fIntercept) {
        verdict.fRefusal = {
            kZeroScale, Severity::kError,
            "The target " + target.fName + " is the same in all records: there is no variance to estimate."};
    } else if (family->HasUnitScale() && (high == 0.0 || (family->IsBounded() && low == 1.0))) {
        verdict.fRefusal = Refuse("The target " + target.fName + " is " + (high == 0.0 ? "0" : "at its upper limit") +
                                  " in all records: there is nothing to estimate.");
    }
    return verdict;
}

}  // namespace engine
