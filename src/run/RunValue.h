#pragma once

#include "contracts/EngineRecord.h"
#include "run/Figures.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What a command says that the parsed block has no slot for, and what the embedded engine leaves behind for the host.
///
/// One value a run. The host makes it and puts it in force (Scope) before it calls MixDriver; the embedded adapter and
/// engine find it by Current. The system's own classes know nothing of it. Variables are host indices.
namespace run {

enum class Distribution {
    kNormal,
    kBinomial,
    kPoisson,
    kGamma,
    kInverseGaussian,
    kNegativeBinomial,
    kOrdinal,
    kNominal
};
enum class Link {
    kIdentity,
    kLog,
    kLogComplement,
    kLogit,
    kProbit,
    kComplementaryLogLog,
    kNegativeLogLog,
    kPower,
    kCauchit
};

/// Which end of the sorted categories is the reference, when no category is named.
enum class ReferenceEnd { kDefault, kFirst, kLast };

struct Target {
    Distribution fDistribution = Distribution::kNormal;
    Link fLink = Link::kIdentity;
    double fLinkPower = 1.0;
    int fTrialsVar = -1;        ///< binomial: trials by variable
    double fTrialsValue = 0.0;  ///< binomial: fixed number of trials; 0 none
    int fNonEventsVar = -1;     ///< binomial: trials are the target plus this variable
    int fOffsetVar = -1;
    double fOffsetValue = 0.0;
    bool fDescending = false;               ///< order of a categorical target's categories
    std::optional<std::string> fReference;  ///< reference category of a binary or nominal target, as text
    ReferenceEnd fReferenceEnd = ReferenceEnd::kDefault;
    std::optional<double> fDispersion;  ///< negative binomial: fixed dispersion; absent: estimated
    /// Whether the target's values are categories: binomial without trials, ordinal, nominal.
    bool IsCategorical() const {
        return fDistribution == Distribution::kOrdinal || fDistribution == Distribution::kNominal ||
               (fDistribution == Distribution::kBinomial && fTrialsVar < 0 && fTrialsValue <= 0.0 && fNonEventsVar < 0);
    }
};

enum class ContrastKind { kNoContrast, kPairwise, kDeviation, kSimple };

/// What the block's means record has no field for, request by request.
struct MeansChoice {
    ContrastKind fContrast = ContrastKind::kNoContrast;
    bool fLinkScale = false;
    bool fFirstIsReference = false;
    bool fReferenceNamed = false;  ///< the reference level is given by its value
};

/// A custom test: rows of coefficients, against values. Each row holds the coefficients of the fixed effects, the
/// intercept's first when there is one, and behind them those of the random effects, block by block.
struct CustomTest {
    std::string fLabel;
    bool fAllColumns = false;         ///< coefficients of all columns in one run, else effect by effect
    std::vector<int> fvFixedCounts;   ///< all columns: one entry; else one for each fixed effect
    std::vector<int> fvRandomCounts;  ///< all columns: one entry; else one for each random effect
    std::vector<std::vector<double>> fvRows;
    std::vector<double> fvK;  ///< one for each row; empty: zeros
};

/// Where the adapter has put what the engine needs behind the declared record variables; -1 where there is none.
struct HiddenColumns {
    int fTrials = -1;
    int fOffset = -1;
    int fResidualGroup = -1;         ///< category code of the residual's grouping variable
    std::vector<int> fRandomGroups;  ///< per random block
    /// Category texts of the grouping variables in the present split, by code.
    std::vector<std::string> fvResidualGroupTexts;
    std::vector<std::vector<std::string>> fvRandomGroupTexts;
    /// Names of the record's columns behind the declared variables, by column; empty for declared ones.
    std::vector<std::string> fvNames;
};

/// The records of the present split, in the engine's order, read-only: row-major doubles, the declared variables first.
struct RecordBlock {
    const MultiPassRecordIter* fpIterator = nullptr;  ///< the iterator whose records these are
    const double* fpValues = nullptr;
    std::size_t fCount = 0;
    int fStride = 0;
    /// Row of the data, counted from 1 behind the header, of the first record in the data's order that fits; 0 when
    /// none does. It reads the split's data again: for sentences about what is wrong with them.
    std::function<long(const std::function<bool(const double* record)>& fits)> fFindRow;
};

/// The categories of a categorical target in the present split, by code, as texts; empty for other targets.
using TargetCategories = std::vector<std::string>;

/// A fitted model that the engine keeps for scoring and means; the engine alone looks inside.
struct FittedModel {
    virtual ~FittedModel() = default;
};

struct SplitResult {
    Levels fSplit;                               ///< split variables and this split's values
    std::string fName;                           ///< "region = north", as headings show it
    std::shared_ptr<const FittedModel> fpModel;  ///< null when nothing was fitted
    Figures fFigures;
    std::string fPMML;  ///< documents, empty when there is no model
    std::string fStatXML;
    std::string fStatJSON;
};

/// What the engine may be asked to show beyond the system's tables.
struct Wishes {
    bool fHistory = false;
    bool fGMatrix = false;
    bool fRMatrix = false;
    bool fCovarianceTests = false;
    bool fLMatrix = false;
    bool fCrossProducts = false;
    bool fDocuments = true;      ///< result and model documents, which the viewer's half reads
    bool fFiles = false;         ///< the command asks for files, which are written from the same documents
    bool fRandomEffects = true;  ///< predictions of the random effects in the figures
};

/// How far a run is, for those who wait.
struct Progress {
    const char* fPhase = "";
    double fShare = -1.0;  ///< of the phase that is done, 0 to 1; negative when unknown
    int fIteration = 0;    ///< of a fit; 0 none
    double fChange = 0.0;  ///< of the objective in that iteration; 0 unknown
};

struct RunValue {
    /// Set by the host before the run.
    Target fTarget;
    int fResidualGroupVar = -1;
    std::vector<int> fvRandomGroupVars;  ///< per random block, -1 none
    std::vector<MeansChoice> fvMeans;    ///< per estimated means request
    std::vector<CustomTest> fvTests;     ///< the settings have no setter for them
    bool fParameterFile = false;         ///< the model file asked for is a parameter file
    Wishes fWishes;
    int fThreads = 0;                                    ///< 0: all cores
    std::size_t fMemoryBudget = std::size_t(256) << 20;  ///< bytes the adapter may sort in memory
    std::function<bool()> fStop;                         ///< the user has asked to stop
    std::function<void(const Progress&)> fProgress;      ///< called now and then, from the run's own thread

    /// Kept by the adapter during the run.
    HiddenColumns fHidden;
    RecordBlock fRecords;
    TargetCategories fTargetCategories;
    Levels fSplit;
    std::string fSplitName;
    int fSplitOrdinal = -1;  ///< number of the present split, from 0

    bool fFatal = false;         ///< an error of level 3 was raised, or the user stopped the run
    bool fStreamFailed = false;  ///< a document's stream went bad: the engine flushes it and says so before it returns
    bool fFileFailed = false;    ///< a file that was asked for could not be written

    /// Left by the engine: one entry a split that reached it, by split ordinal.
    std::vector<SplitResult> fvResults;
    bool fScoring = false;  ///< this walk only scores: models are taken from fvResults

    void Say(const Progress& progress) const {
        if (fProgress) fProgress(progress);
    }
    SplitResult& Result(int ordinal) {
        if (static_cast<int>(fvResults.size()) <= ordinal) fvResults.resize(ordinal + 1);
        return fvResults[ordinal];
    }
};

inline RunValue*& CurrentSlot() {
    static RunValue* current = nullptr;
    return current;
}

/// The run in force; null outside one.
inline RunValue* Current() {
    return CurrentSlot();
}

/// Puts a run in force for its own life, and the one before back after it.
class Scope {
public:
    explicit Scope(RunValue& value) : fBefore(CurrentSlot()) { CurrentSlot() = &value; }
    ~Scope() { CurrentSlot() = fBefore; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

private:
    RunValue* fBefore;
};

}  // namespace run
