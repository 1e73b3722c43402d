#pragma once

/// One case as the engine sees it: a value a record variable, in the order in which the record was declared.
/// A categorical variable's value is its category code, from 0. The values belong to the iterator and stand until its
/// next step.
struct Record {
    const double* fpValues = nullptr;
    int fSize = 0;  ///< declared record variables; a host may carry further values of its own behind them
};

/// Forward iterator of records.
class RecordIterator {
public:
    virtual ~RecordIterator() = default;
    virtual bool HasMore() = 0;
    virtual Record const* Next() = 0;
    virtual int GetFailReason() const = 0;  ///< 0 no failure; 1 no cases at all; 3 no usable records
};

/// An iterator that can start again.
class MultiPassRecordIter : public RecordIterator {
public:
    virtual int NewPass() = 0;  ///< 0 on success
};

/// Cancel test. The engine asks it often.
class MCQueryCancel {
public:
    virtual ~MCQueryCancel() = default;
    virtual bool GetCancel() = 0;
    virtual bool CheckCancel() = 0;
};
