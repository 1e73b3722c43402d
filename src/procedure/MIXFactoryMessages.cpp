#include "procedure/MIXFactory.h"

namespace {

enum class Severity { kAny, kError, kWarning };

/// What the user is told of one engine status. The texts are keys of the host's translation; an empty one says nothing.
struct StatusMessage {
    long fCode;
    Severity fSeverity;
    const char* fPlain;
    const char* fSplit;
    bool fContinues;  ///< the procedure goes on after this condition, and says so
};

constexpr long kCompareFactorOneLevel = 130035;

constexpr const char* kUncertain = "Model validity is uncertain ...";
constexpr const char* kUncertainInSplit = "Model validity is uncertain in split [%1=%2:,^1=^2:]1 ...";

constexpr StatusMessage kMessages[] = {
    {130009, Severity::kAny, "Component Settings are invalid...",
     "Component Settings are invalid for split [%1 = %2:,^1 = ^2:]1...", false},
    {130018, Severity::kError, "Error building model...", "Error building model for split [%1 = %2:,^1 = ^2:]1...",
     false},
    {130018, Severity::kWarning, "Warning building model...",
     "Warning building model for split [%1 = %2:,^1 = ^2:]1...", false},
    {130024, Severity::kAny, "Max number of step-halving reached ...",
     "Max number of step-halving reached for split [%1 = %2:,^1 = ^2:]1 ...", true},
    {130025, Severity::kAny, "Initial Value Failed...", "Initial Value Failed for split [%1 = %2:,^1 = ^2:]1...",
     false},
    {130032, Severity::kAny, "", "", false},
    {kCompareFactorOneLevel, Severity::kAny,
     "The compared factor has at most one level on estimated marginal means request number ^1...",
     "The compared factor has at most one level on estimated marginal means request number ^1 for split file "
     "[%1 = %2:,^1 = ^2:]2.",
     false},
    {130044, Severity::kAny, "The log likelihood value is approaching zero.",
     "The log likelihood value is approaching zero for split [%1 = %2:,^1 = ^2:]1 ...", true},
    {130045, Severity::kAny, "A quasi-complete separation may exist in the data.",
     "A quasi-complete separation may exist in the data for split [%1 = %2:,^1 = ^2:]1 ...", true},
    {130051, Severity::kAny, "", "", false},
    {130054, Severity::kAny, "Same subject and within-subject values...",
     "Same subject and within-subject values for split file [%1 = %2:,^1 = ^2:]1 ...", false},
    {130069, Severity::kAny, "An unexpected singularity in the Hessian matrix was encountered.",
     "An unexpected singularity in the Hessian matrix was encountered for split [%1 = %2:,^1 = ^2:]1 ...", true},
    {130070, Severity::kAny,
     "All convergence criteria are satisfied. but the final Hessian matrix is not positive definite.",
     "All convergence criteria are satisfied, but the final Hessian matrix for split [%1 = %2:,^1 = ^2:]1 ...", true},
    {130074, Severity::kAny, "Scale parameter is zero...",
     "Scale parameter is zero for split file [%1 = %2:,^1 = ^2:]1 ...", false},
    {130075, Severity::kAny, "", "", false},
    {130077, Severity::kAny, "Different weights in subject...",
     "Different weights in subject for split file [%1 = %2:,^1 = ^2:]1 ...", false},
    {130079, Severity::kAny, "Invalid records overflow...",
     "Invalid records overflow for split file [%1 = %2:,^1 = ^2:]1 ...", false},
    {130088, Severity::kAny, "Convergence was achieved, but no Hessian convergence ...",
     "Convergence achieved, no Hessian in split [%1 = %2:,^1 = ^2:]1 ...", true},
    {130089, Severity::kAny, "Failed to open file for new pass...",
     "Failed to open file for new pass for split [%1 = %2:,^1 = ^2:]1...", false},
    {130090, Severity::kAny, "Post estimation failed ...", "Post estimation failed for split [%1 = %2:,^1 = ^2:]1 ...",
     false},
    {130093, Severity::kAny, "Output file error...", "Output file error for split [%1 = %2:,^1 = ^2:]1...", false},
    {230024, Severity::kAny, "No valid cases ...", "No valid cases in split [%1=%2:,^1=^2:]1 ...", false},
    {230025, Severity::kAny, "Duplicate repeated measure ...", "Duplicate rep. meas. split [%1=%2:,^1=^2:]1 ...",
     false},
    {230036, Severity::kAny, kUncertain, kUncertainInSplit, false},
    {230037, Severity::kAny, "Converged singular Hessian ...",
     "Converged singular Hessian in split [%1=%2:,^1=^2:]1 ...", false},
    {230038, Severity::kAny, kUncertain, kUncertainInSplit, false},
    {230087, Severity::kAny, kUncertain, kUncertainInSplit, false},
    {230092, Severity::kAny, "Perfect fit ...", "Perfect fit [%1=%2:,^1=^2:]1 ...", false},
    {230094, Severity::kAny, kUncertain, kUncertainInSplit, false},
    {230095, Severity::kAny, kUncertain, kUncertainInSplit, false},
};

/// Texts of a code that the table lacks. The text follows the message's level, and a message of a split run is never an
/// error, so that its error text is out of reach.
constexpr StatusMessage kInternalError = {0, Severity::kError, "Internal error ...",
                                          "Internal error for split [%1 = %2:,^1 = ^2:]1 ...", false};
constexpr StatusMessage kInternalWarning = {0, Severity::kWarning, "Internal warning ...",
                                            "Internal warning for split [%1 = %2:,^1 = ^2:]1 ...", false};

const StatusMessage& FindMessage(const MCStatus& status, bool bFatal) {
    const Severity severity = status.IsError() ? Severity::kError : Severity::kWarning;
    for (const StatusMessage& message : kMessages)
        if (message.fCode == status.GetErrorCode() &&
            (message.fSeverity == Severity::kAny || message.fSeverity == severity))
            return message;
    return bFatal ? kInternalError : kInternalWarning;
}

}  // namespace

void MIXFactory::DisplayMessage(MCStatus const& status) {
    if (!status.IsError() && !status.IsWarning()) return;
    const bool bSplit = IsSplitRun();
    const bool bFatal = status.IsError() && !bSplit;
    const StatusMessage& message = FindMessage(status, bFatal);
    if (message.fContinues) fbProcContinues = true;
    const std::string text = bSplit ? message.fSplit : message.fPlain;
    if (text.empty()) return;
    const BpErrorLevel level = bFatal ? kLevelError : kLevelWarning;
    const bool hasNumber = message.fCode == kCompareFactorOneLevel;
    if (!bSplit && !hasNumber) {
        BpError(BpString(text, true), kShowAlways, level);
        return;
    }
    BpComposite composite(text, true);
    if (hasNumber) composite.Add(BpNumber(static_cast<double>(status.GetDiscreteDatum(0)), BpProcedure::Count()));
    if (bSplit) {
        composite.Sublist();
        composite.SplitList();
        composite.EndSublist();
    }
    composite.Finish();
    BpError(composite, kShowAlways, level);
}

void MIXFactory::DisplayAllMessages() {
    const GLMMAlgorithm* pAlgorithm = GetGLMMAlgorithm();
    if (!pAlgorithm) return;
    const std::vector<MCStatus> warnings = pAlgorithm->GetWarnings();
    for (const MCStatus& warning : warnings)
        DisplayMessage(warning);
    if (!fbProcContinues) return;
    BpComposite composite("^1 procedure continues ...", true);
    composite.Add(BpString("MIXED", false));
    BpError(composite, kShowAlways, kLevelWarning);
}

void MIXFactory::CheckForWarningToAdd(std::vector<MCStatus>&) {}

void MIXFactory::DisplayAdapterWarnings() {}
