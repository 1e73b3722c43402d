#pragma once

#include "run/Figures.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

/// Mixed models from another program: data from memory, a model formula and options; results as values.
///
///     hierfit::Data data;
///     data.Numbers("y", y).Numbers("x", x).Texts("group", group);
///     hierfit::Outcome<hierfit::Fitted> fit = hierfit::Fit(data, "y ~ x + (1 | group)");
///     if (!fit) return Complain(fit.Error().fText);
///     for (const hierfit::FixedRow& row : fit->Only().fFigures.fFixed) Show(row.fTerm, row.fEstimate, row.fStdError);
///
/// Everything that goes in or comes out is a value of its own: nothing refers to the caller's memory after a call, and
/// no results refer to the library's. No call prints, throws or ends the program, and none writes a file.
/// Calls may come from any thread; they are carried out one at a time, each on as many threads as it is allowed.
namespace hierfit {

#if defined(__GNUC__)
#define HIERFIT_API __attribute__((visibility("default")))
#else
#define HIERFIT_API
#endif

/// Figures by name, as the JSON results have them; a figure that does not exist is NaN. Estimates and their errors are
/// in the units of the target, on the scale of the link; p-values and confidence limits belong to the level asked for.
using run::ContrastRow;
using run::CovarianceRow;
using run::CustomTestRow;
using run::Figures;
using run::FixedRow;
using run::Levels;
using run::MeanRow;
using run::MeansRequest;
using run::Message;
using run::OverallTestRow;
using run::RandomEffectRow;
using run::TestRow;

/// One column of a table: numbers, or texts.
struct Column {
    std::string fName;
    std::vector<double> fNumbers;     ///< NaN is missing
    std::vector<std::string> fTexts;  ///< in place of numbers; the empty text is missing
};

/// A data table by columns, all of one length. A text column is a factor; a column of numbers is a covariate unless the
/// formula says factor(x) or the options name it as nominal.
class Data {
public:
    Data& Numbers(std::string name, std::vector<double> values) {
        fColumns.push_back({std::move(name), std::move(values), {}});
        return *this;
    }
    Data& Texts(std::string name, std::vector<std::string> values) {
        fColumns.push_back({std::move(name), {}, std::move(values)});
        return *this;
    }
    const std::vector<Column>& Columns() const { return fColumns; }

private:
    std::vector<Column> fColumns;
};

struct Options {
    /// Options of `hierfit fit` by their names without dashes, each with its text: {"family", "binomial"},
    /// {"df", "kenward-roger"}, {"emmeans", "a,b"}, {"scores", "pred,resid"}. Those that name files or say how a file
    /// is read have no place here and are refused.
    std::map<std::string, std::string> fTexts;
    int fThreads = 0;             ///< 0: all cores. Figures don't depend on it
    std::function<bool()> fStop;  ///< asked now and then, from the calling thread and others; true stops the fit
};

/// Why there are no results.
struct Error {
    enum class Kind {
        kUse,        ///< the formula or an option is wrong, or doesn't fit the data's columns
        kData,       ///< the table is wrong: columns of different lengths, two of one name
        kNotFitted,  ///< the model could not be fitted to these data; fCode says why
        kStopped,    ///< Options::fStop said so
        kMemory,     ///< not enough memory for this model and these data
        kInternal    ///< a fault of the library
    };
    Kind fKind = Kind::kInternal;
    std::string fText;  ///< a sentence: what, where, what to do
    long fCode = 0;     ///< the status of a model that could not be fitted; 0 otherwise
};

/// A value, or why there is none. Asking for the one that isn't there is the caller's fault and ends in
/// std::bad_variant_access.
template <class T>
class Outcome {
public:
    Outcome(T value) : fContent(std::in_place_index<0>, std::move(value)) {}
    Outcome(hierfit::Error error) : fContent(std::in_place_index<1>, std::move(error)) {}

    explicit operator bool() const { return fContent.index() == 0; }
    T& operator*() { return std::get<0>(fContent); }
    const T& operator*() const { return std::get<0>(fContent); }
    T* operator->() { return &std::get<0>(fContent); }
    const T* operator->() const { return &std::get<0>(fContent); }
    const hierfit::Error& Error() const { return std::get<1>(fContent); }

private:
    std::variant<T, hierfit::Error> fContent;
};

/// One model. Without the option split-by there is one of them.
struct Split {
    Levels fValues;          ///< split variables and this split's values
    std::string fName;       ///< "region = north"; empty without splits
    bool fHasModel = false;  ///< false: this split could not be fitted; the figures' messages say why
    Figures fFigures;
    std::string fModel;  ///< the fitted model as PMML, which Predict and other programs read
};

struct Fitted {
    std::vector<Split> fSplits;
    /// What the option "scores" asks for, FXPRED_1 and the like: a value for each row of the data, in their order, NaN
    /// where there is none.
    std::vector<Column> fScores;
    std::vector<std::string> fNotes;  ///< sentences on what was doubtful

    /// The model of a run without splits.
    const Split& Only() const { return fSplits.front(); }
};

struct Predictions {
    /// For each row of the data, in their order: FXPRED_1, SEFIXP_1, DFFIXP_1 (by the fixed effects alone, with
    /// standard error and degrees of freedom) and PRED_1, SEPRED_1, DFPRED_1 (with the random effects), on the scale
    /// of the target. NaN where nothing can be predicted.
    std::vector<Column> fColumns;
    std::vector<std::string> fNotes;  ///< what of the data did not fit the model, a sentence a kind with its count
};

/// Fits a model: data, a formula as in "y ~ a*b + x + (1 + x | g)", options. At least one split has a model when there
/// is no error. A model that didn't converge is no error: see Figures::fConverged and its messages.
HIERFIT_API Outcome<Fitted> Fit(const Data& data, const std::string& formula, const Options& options = {});

/// Predicts for new data by a model of Split::fModel, or of a file of `hierfit fit --model-out`.
HIERFIT_API Outcome<Predictions> Predict(const std::string& model, const Data& data);

/// Version, compiler and linear algebra of this build, a line each.
HIERFIT_API std::string Version();

}  // namespace hierfit
