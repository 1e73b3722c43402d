#pragma once

#include "contracts/HostData.h"

#include <istream>
#include <memory>
#include <string>
#include <vector>

/// A variable as the engine knows it.
class IMCVariable {
public:
    enum VariableRole { kDependentRole = 1, kWeightRole = 3, kPredictorRole = 4 };
    enum WRoundingOption { kNoRounding = 0, kRoundToNearest = 1 };
    enum MeasurementLevel { kScaleLevel = 1, kOrdinalLevel = 2, kNominalLevel = 3 };

    virtual ~IMCVariable() = default;
    virtual std::string GetName() const = 0;
    virtual VariableRole GetRole() const = 0;
    virtual MeasurementLevel GetMeasurementLevel() const = 0;
    virtual bool IsCategorical() const = 0;
    virtual int GetCategoryCount() const = 0;
    /// Category by code, as text that reads back to the same value; and whether it is a string's.
    virtual std::string GetCategoryText(int code) const = 0;
    virtual bool IsString() const = 0;
};

/// The engine's list of variables: one entry a record variable, in record order.
class MCVarList {
public:
    MCVarList();
    ~MCVarList();
    MCVarList(const MCVarList&) = delete;
    MCVarList& operator=(const MCVarList&) = delete;

    int Size() const;
    IMCVariable* GetVarAt(int index) const;
    void Add(std::unique_ptr<IMCVariable> variable);
    void SetListwiseDeletion(bool on) { fListwise = on; }
    void SetUnWeightedCount(double count) { fCount = count; }
    void SetWeightedCount(double count) { fWeightedCount = count; }
    void SetDroppedCount(double count) { fDropped = count; }
    void SetWeightedDroppedCount(double count) { fWeightedDropped = count; }
    bool GetListwiseDeletion() const { return fListwise; }
    double GetUnWeightedCount() const { return fCount; }
    double GetWeightedCount() const { return fWeightedCount; }
    double GetDroppedCount() const { return fDropped; }
    double GetWeightedDroppedCount() const { return fWeightedDropped; }
    void Display() const;

private:
    std::vector<std::unique_ptr<IMCVariable>> fvVariables;
    bool fListwise = false;
    double fCount = 0.0;
    double fWeightedCount = 0.0;
    double fDropped = 0.0;
    double fWeightedDropped = 0.0;
};

/// Reads a model document into a variable list.
class MCPMMLParser {
public:
    MCPMMLParser();
    ~MCPMMLParser();
    bool ParseToDOM(std::istream& document);
    /// Fills the list with the document's variables; names limits and orders them when it isn't empty.
    bool FillVarList(MCVarList& list, const std::vector<std::string>& names, bool withCategories);

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};
