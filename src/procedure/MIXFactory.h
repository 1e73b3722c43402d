#pragma once

#include "contracts/Adapter.h"
#include "contracts/Engine.h"
#include "contracts/Host.h"
#include "procedure/Export.h"

#include <memory>
#include <string>
#include <vector>

class MIXParameterAggregator;
class MIXValidSpecs;

/// The data and engine objects of a run: the adapter, the iterator over the host's cases, and for each split its
/// settings, variable list, record count and algorithm.
///
/// The driver walks it through the splits up to three times. The vectors are parallel, one entry a split, and
/// fSplitIndex is the position in all of them; a split that failed keeps its place with a null or zero entry. All
/// objects live until the destructor, since the output of the last walk reads them.
class HIERFIT_EXPORT MIXFactory {
public:
    /// pProcedure may be null: then splits are not handled. The arguments must outlive the factory.
    MIXFactory(MIXValidSpecs* pValidSpecs, ProcedureDataSource& source, BpProcedure* pProcedure);
    ~MIXFactory();
    MIXFactory(const MIXFactory&) = delete;
    MIXFactory& operator=(const MIXFactory&) = delete;

    /// Moves to the next split; false at the end. useIterator: through the data; else through the adapter alone.
    bool StartNewSplit(bool useIterator);
    /// Reads the split's records and drops them, so that the adapter learns its categories and counts. report: tell the
    /// user of a split without records.
    bool ProcedureDataPass(bool report);
    /// Builds the engine's view of the present split.
    bool CompleteMetaData();
    /// Makes the aggregators, once the number of splits is known, and the pool of model files.
    bool CreateParamAggregators();
    /// Rewinds to before the first split; false while the run's status is an error.
    bool PrepareComponentRun(bool useIterator);
    /// Fits the present split, whose first record the iterator must stand on, and leaves the iterator at its end.
    bool RunGLMMComponent();
    /// Numbers the parameters over all splits.
    bool AggregateParameters();
    void ClearSplitHistory();
    /// Finishes the pool of model files.
    bool CompleteExtFileIO();

    /// Makes the variables that the command asks to save, and rewinds. Not a step of the driver.
    bool PrepareScoringPass();
    /// Writes the present split's scores, record by record. Not a step of the driver.
    bool ScoringDataPass();

    /// Shows the warnings of the present split's fit.
    void DisplayAllMessages();
    /// Dumps the engine's results, for debugging; always true.
    bool DisplayOutput();
    void DisplayStatus() const;

    ACAInputAdapter* GetInputAdapter() const { return fpInpAdapt.get(); }
    MIXParameterAggregator* GetFixParamAggr() const { return fpFixParamAggr.get(); }
    const std::vector<std::unique_ptr<MIXParameterAggregator>>& GetRandomParamAggrs() const {
        return fvpRandParamAggrs;
    }
    int GetSplitIndex() const { return fSplitIndex; }
    MCStatus GetStatus() const { return fStatus; }

    /// Objects of the present split; null for a split that failed or when no split is current.
    GLMMSettings* GetGLMMSettings() const;
    GLMMAlgorithm* GetGLMMAlgorithm() const;
    /// Asserts that the run's status is no error and that there is an algorithm; null otherwise, and for a fit without
    /// results.
    const GLMMOutputStats* GetOutputStats() const;

    /// Record counts of the splits' first pass; 0 for a split that failed.
    const std::vector<int>& GetNRecords() const { return fvNRecords; }

private:
    bool IsSplitRun() const { return fpInpAdapt->GetSplitFile(); }
    void ReportNoValidCases();
    bool UserHasStopped() const;
    void TakeStatus(const MCStatus& status);

    void TakeSortVariables(const GLMMSettings& settings);
    bool MakeAlgorithm(std::unique_ptr<GLMMAlgorithm>& pAlgorithm);
    std::unique_ptr<ACADataFileIter> FillDataFile();  ///< null when there is nothing to fit
    bool FitRecords(GLMMAlgorithm& algorithm, ACADataFileIter& data);
    bool DumpSortedRecords(ACADataFileIter& data) const;
    bool AddSplitParams(GLMMAlgorithm& algorithm);
    bool DrainSplit();

    void MakeSavedVariable(std::size_t saved);
    std::string FreeVariableName(const std::string& root) const;
    void WriteScores(QVTA_InputCaseIterator& cases, const std::vector<double>& scores) const;

    void SavePMMLFile();

    void DisplayMessage(MCStatus const& status);
    void CheckForWarningToAdd(std::vector<MCStatus>& warnings);
    void DisplayAdapterWarnings();

    MIXValidSpecs* fpValidSpecs;
    ACAVarValidSpecs* fpVarValidSpecs;
    ProcedureDataSource* fpProcDS;
    BpProcedure* fpProcedure;
    std::unique_ptr<ACAInputAdapter> fpInpAdapt;
    ACAInpAdaptMsg fInpAdaptMsg;
    std::vector<int> fSortVars;  ///< record variables by which the engine wants the data sorted
    ParserMessage fParserMessage;
    std::unique_ptr<ACAProcDataSourceIter> fpRecIter;
    int fSplitIndex = -1;
    std::vector<std::unique_ptr<GLMMSettings>> fvpCompSettings;
    std::vector<std::unique_ptr<MCVarList>> fvpVarLists;
    std::vector<std::unique_ptr<GLMMAlgorithm>> fvpAlgorithms;
    std::vector<int> fvNRecords;
    bool fbProcContinues = false;  ///< a message of this split has announced that the procedure continues
    std::unique_ptr<MIXParameterAggregator> fpFixParamAggr;
    std::vector<std::unique_ptr<MIXParameterAggregator>> fvpRandParamAggrs;  ///< one a random block
    std::vector<int> fvSaveVarIndices;
    std::unique_ptr<QVTA_PMMLPooling> fpPMMLPooling;  ///< null unless a model or parameter file is asked for
    MCStatus fStatus;
};
