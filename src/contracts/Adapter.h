#pragma once

#include "contracts/EngineRecord.h"
#include "contracts/EngineVariables.h"
#include "contracts/HostData.h"
#include "contracts/HostOutput.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

/// What the system requires of the data adapter, which stands between the host's cases and the engine's records.

/// The variables of a record, in the order in which they were declared.
class ACAVarValidSpecs {
public:
    ACAVarValidSpecs(bool listwise, bool useWeight, bool useSplits);
    virtual ~ACAVarValidSpecs();

    /// Declares a use of a host variable; its record index. userMissingInvalid: user-missing values make a record
    /// invalid.
    int AddVariable(int hostIndex, bool isCategorical, bool second, bool userMissingInvalid, bool last);
    void AddVariables(const std::vector<int>& hostIndices, std::vector<int>& recordIndices, bool isCategorical,
                      bool second, bool userMissingInvalid, bool last);
    int SetWeightVar();           ///< record index of the data source's frequency weight
    void SetMultRecode(bool on);  ///< later declarations are further uses, behind the model's variables
    int GetNRecordVars() const;
    bool GetRecordCatVar(int recordIndex) const;  ///< whether the record variable is categorical
    int GetRecVarIndex(int hostIndex) const;      ///< first record index of a host variable, negative if none
    int GetQVTAVarIndex(int recordIndex) const;   ///< host index of a record variable; the weight's is -1
    /// Text of a value in a format; label: its value label instead, if it has one.
    std::string ConvertObsToString(OBS const* value, QVTA_Format const& format, bool label) const;
    void Display() const;

    struct Use {
        int fHostIndex = -1;
        bool fCategorical = false;
        bool fUserMissingInvalid = true;
        bool fWeight = false;
        bool fFurtherUse = false;
    };
    const Use& GetUse(int recordIndex) const { return fvUses[recordIndex]; }

private:
    std::vector<Use> fvUses;
    bool fMultRecode = false;
};

/// The input adapter of a run. The virtual operations are the adapter's own steps, called inside its iterators.
class ACAInputAdapter {
public:
    ACAInputAdapter(ACAVarValidSpecs* specs, ProcedureDataSource& source);
    virtual ~ACAInputAdapter();
    ACAInputAdapter(const ACAInputAdapter&) = delete;
    ACAInputAdapter& operator=(const ACAInputAdapter&) = delete;

    virtual int GetRecordSize() const;
    virtual bool EncodeCatVars();
    virtual bool GetContVars();
    virtual void RecodeMatrixSpecs();
    virtual void HandleBadMatrixSpec();
    virtual void FillFreeVars();
    virtual bool PreprocessCase();
    virtual bool PreprocessRecord();
    virtual void PrepareNewPass();
    virtual void PrepareNewSplit();

    void SetSplitFile(BpProcedure& procedure, bool headings, bool labels, bool sorted);
    bool GetSplitFile() const;                 ///< the run has splits
    int GetSplitCount() const;                 ///< splits seen in the present pass
    std::vector<OBS*> GetSplitValues() const;  ///< the current split's values
    void ChangeSplitNoIter();
    void ResetSplitNoIter();
    void ClearDSIterator();
    double GetNCases() const;  ///< valid cases of the last data pass of the split
    double GetNInvalidCases() const;
    double GetWeightNCases() const;
    double GetWeightNInvalidCases() const;
    int GetSplitRecordCount() const;                    ///< records of the current split, at the end of its first pass
    int GetRecordCatVarSize(int recordVariable) const;  ///< categories seen
    void ReorderRecordCats(int recordVariable, bool ascending);
    int EncodeRecordCatValue(int recordVariable, OBS const* value, bool& error, bool add) const;
    const OBS* DecodeCatValue(int recordVariable, int code,
                              int& error) const;  ///< null, with error not 0, for no such code

    struct Impl;
    Impl& GetImpl() const { return *fpImpl; }

private:
    std::unique_ptr<Impl> fpImpl;
};

/// Writes an engine variable list from the record's definition.
class ACAVarListMetaData {
public:
    ACAVarListMetaData(MCVarList& list, ACAVarValidSpecs const* specs, ProcedureDataSource const& source,
                       ACAInputAdapter const* adapter, bool withCategories);
    /// An empty name takes the data source's.
    bool AddRecVariable(int recordIndex, bool isCategorical, IMCVariable::VariableRole role, OBS const* value,
                        const std::string& name);
    bool AddRecWeightVar(int recordIndex, IMCVariable::VariableRole role, IMCVariable::WRoundingOption rounding,
                         const std::string& name);

private:
    MCVarList* fpList;
    ACAVarValidSpecs const* fpSpecs;
    ProcedureDataSource const* fpSource;
    ACAInputAdapter const* fpAdapter;
    bool fWithCategories;
};

/// The iterator over the host's cases.
class ACAProcDataSourceIter : public MultiPassRecordIter {
public:
    ACAProcDataSourceIter(ACAInputAdapter& adapter, bool readAhead);
    ~ACAProcDataSourceIter() override;
    bool HasMore() override;  ///< a record is available in the present split
    Record const* Next() override;
    int GetFailReason() const override;
    int NewPass() override;
    virtual bool PreprocessCase();

    int NewPass(bool forScoring);
    bool NewSplit();  ///< moved to the next split; false at the end of the data
    Record const* Current() const;
    void SetLastPass();
    QVTA_InputCaseIterator* GetProcDS();  ///< through which values are written back

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

/// The sorted temporary data file of a split.
class ACADataFileIter : public MultiPassRecordIter {
public:
    ACADataFileIter(ACAInputAdapter const& adapter, const std::vector<int>& sortVariables, int recordCount);
    ~ACADataFileIter() override;
    bool HasMore() override;
    Record const* Next() override;
    int GetFailReason() const override;
    int NewPass() override;

    bool FillDataFile(RecordIterator& records);     ///< reads the split's records and sorts them in the file
    bool GetTextFile(const std::string& fileName);  ///< writes the records as text
    void CloseDataFile();

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

/// The engine's cancel object of a run: true once the user has asked to stop.
class ACAStopProcessor : public MCQueryCancel {
public:
    explicit ACAStopProcessor(double interval);
    bool GetCancel() override;
    bool CheckCancel() override;

private:
    double fInterval;
};

/// The adapter's data conditions in the host's words.
class ACAInpAdaptMsg {
public:
    explicit ACAInpAdaptMsg(ProcedureDataSource& source);
    void NoValidCases();
    void NoValidCasesSplit();
    void NoValidCasesForSelect();

private:
    ProcedureDataSource* fpSource;
};

/// The debug dump's writers: a label and a value on a process-wide stream.
class ACACommonDisplay {
public:
    static std::ostream* GetOutStream();
    static void SetOutStream(std::ostream* stream);
    static void DisplayText(BP_Character const& text);
    static void DisplayB(BP_Character const& label, bool value);
    static void DisplayD(BP_Character const& label, double value);
    static void DisplayI(BP_Character const& label, long value);
    static void DisplayS(BP_Character const& label, const std::string& value);
    static void DisplayIV(BP_Character const& label, const std::vector<int>& values);
    static void DisplayBV(BP_Character const& label, const std::vector<bool>& values);
    static void DisplaySV(BP_Character const& label, const std::vector<std::string>& values);
    static void DisplayObs(BP_Character const& label, OBS const* value, int width);
};
