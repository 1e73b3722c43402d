#pragma once

#include "contracts/EngineModel.h"
#include "contracts/EngineStatus.h"

#include <vector>

/// Statistics of one regression parameter. A value that could not be computed is the missing value.
struct MCRegrParameterStats {
    double fEstimate = MCMV::Missing();
    bool fRedundant = false;
    double fStdError = MCMV::Missing();
    double fLower = MCMV::Missing();
    double fUpper = MCMV::Missing();
    double fDF = MCMV::Missing();
    double fSig = MCMV::Missing();
    double fT = MCMV::Missing();
};

/// Statistics of one test.
struct MCTestStats {
    double fDF = MCMV::Missing();
    double fDF2 = MCMV::Missing();
    double fWald = MCMV::Missing();
    double fSig = MCMV::Missing();
    double GetDF() const { return fDF; }
    double GetDF2() const { return fDF2; }
    double GetWald() const { return fWald; }
    double GetSig() const { return fSig; }
};

/// The tests of the effects: the intercept first, if the model has one, then an entry an effect.
class MCModelTestStats {
public:
    int GetNTests() const { return static_cast<int>(fvTests.size()); }
    const MCTestStats& GetTestStats(int test) const { return fvTests[test].fStats; }
    const std::vector<std::vector<double>>& GetLMatrix(int test) const { return fvTests[test].fvL; }  ///< row by row
    const std::vector<int>& GetRowIndices(int test) const { return fvTests[test].fvRows; }
    const MCStatus& GetStatus(int test) const { return fvTests[test].fStatus; }

    struct Test {
        MCTestStats fStats;
        std::vector<std::vector<double>> fvL;
        std::vector<int> fvRows;  ///< indices of the rows of L in the whole hypothesis matrix
        MCStatus fStatus;
    };
    void Add(Test test) { fvTests.push_back(std::move(test)); }

private:
    std::vector<Test> fvTests;
};

/// The results of a split, owned by the algorithm. Parameters, their statistics and the covariance matrix's rows are
/// parallel.
class GLMMOutputStats {
public:
    const std::vector<MCRegrParameter>& GetBetaParameters() const { return fvBeta; }
    const std::vector<MCRegrParameterStats>& GetBetaParamStats() const { return fvBetaStats; }
    const std::vector<std::vector<MCRegrParameter>>& GetGammaBasicParameters() const {
        return fvGamma;
    }  ///< one list a random block
    const MCSymMatrix& GetCovarianceMatrixBeta() const { return fCovBeta; }
    const MCBitSet& GetRedundancyIndicatorsBeta() const { return fKept; }  ///< bits set: parameters that are kept
    const std::vector<double>& GetThetaParamEtimates() const { return fvTheta; }  ///< without redundant and fixed ones
    double GetLogLikehood() const { return fMinus2LogLikelihood; }
    double GetAICC() const { return fAICC; }
    double GetBIC() const { return fBIC; }
    double GetTotalFreqWeight() const { return fTotalFreqWeight; }
    const MCModelTestStats* GetTypeITestStats() const { return fHasTypeI ? &fTypeI : nullptr; }
    const MCModelTestStats* GetTypeIIITestStats() const { return fHasTypeIII ? &fTypeIII : nullptr; }
    const std::vector<MCStatus>& GetBuildModelWarnings() const { return fvWarnings; }
    void Display() const;

    /// Filled by the engine.
    std::vector<MCRegrParameter> fvBeta;
    std::vector<MCRegrParameterStats> fvBetaStats;
    std::vector<std::vector<MCRegrParameter>> fvGamma;
    MCSymMatrix fCovBeta;
    MCBitSet fKept;
    std::vector<double> fvTheta;
    double fMinus2LogLikelihood = MCMV::Missing();
    double fAICC = MCMV::Missing();
    double fBIC = MCMV::Missing();
    double fTotalFreqWeight = 0.0;
    bool fHasTypeI = false;
    bool fHasTypeIII = false;
    MCModelTestStats fTypeI;
    MCModelTestStats fTypeIII;
    std::vector<MCStatus> fvWarnings;
};
