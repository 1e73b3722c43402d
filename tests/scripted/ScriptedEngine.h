#pragma once

#include "contracts/Engine.h"

#include <functional>
#include <string>
#include <vector>

/// An engine whose outcomes a test writes down. It takes the place of GLMMAlgorithm at link time, where a test needs an
/// outcome that no data provokes, or exact figures to read back.
namespace scripted {

/// What one algorithm does.
struct Outcome {
    MCStatus fConstruction;  ///< status right after construction
    MCStatus fBuild;         ///< what BuildModel returns; an error leaves no results
    MCStatus fFinal;         ///< status after BuildModel
    std::vector<MCStatus> fWarnings;
    GLMMOutputStats fStats;
    bool fHasStats = true;
    std::string fStatJSON;
    MCStatus fStatJSONStatus;
    std::vector<double> fScores;  ///< what Score gives for every record
};

/// Writes down the outcome of one split from what the algorithm is made of.
using Script = std::function<Outcome(const GLMMSettings&, const MCVarList&)>;

/// Puts a script in force for its own life.
class Scope {
public:
    explicit Scope(Script script);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

/// Results with every parameter that the settings' effects have in this split, intercept first, in column order.
/// Parameter i has the estimate i + 1, the standard error (i + 1) / 10, and 10 degrees of freedom; nothing is
/// redundant.
GLMMOutputStats FullResults(const GLMMSettings& settings, const MCVarList& variables);

}  // namespace scripted
