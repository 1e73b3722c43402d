#pragma once

#include <memory>
#include <string>
#include <vector>

/// The engine's missing value: the lowest finite double.
struct MCMV {
    static double Missing();
    static bool IsMissing(double value);
};

/// Outcome of an engine operation, by value: a code with its severity, and data attached to it.
class MCStatus {
public:
    MCStatus() = default;  ///< OK
    /// A status with a code: an error, or with warning true a warning.
    MCStatus(long code, bool warning) : fCode(code), fSeverity(warning ? kWarning : kError) {}

    bool IsOK() const { return fSeverity == kOK; }
    bool IsError() const { return fSeverity == kError; }
    bool IsWarning() const { return fSeverity == kWarning; }
    long GetErrorCode() const { return fCode; }

    /// A number attached to the status, such as the number of an estimated means request; 0 when there is none.
    long GetDiscreteDatum(unsigned index) const;
    void AddDiscreteDatum(long datum);

    /// The engine's own sentence on what happened, for reports; empty when the code says all.
    std::string GetDetail() const { return fpDetail ? *fpDetail : std::string(); }
    void SetDetail(const std::string& text) { fpDetail = std::make_shared<const std::string>(text); }

private:
    enum Severity { kOK, kWarning, kError };
    long fCode = 0;
    Severity fSeverity = kOK;
    std::shared_ptr<const std::vector<long>> fpDiscrete;
    std::shared_ptr<const std::string> fpDetail;
};

/// A symmetric matrix of blocks; the system reads block 0, 0.
class MCSymMatrix {
public:
    MCSymMatrix() = default;
    explicit MCSymMatrix(int order) : fOrder(order), fvElems(static_cast<std::size_t>(order) * (order + 1) / 2, 0.0) {}
    int GetOrder() const { return fOrder; }
    double GetElem(int blockRow, int blockColumn, int row, int column) const;  ///< missing outside the matrix
    void SetElem(int row, int column, double value);

private:
    int fOrder = 0;
    std::vector<double> fvElems;  ///< lower triangle, row by row
};

/// A set of bits.
class MCBitSet {
public:
    explicit MCBitSet(int size = 0) : fvBits(size, false) {}
    int InSet() const;  ///< number of bits set
    bool Get(int index) const { return fvBits[index]; }
    void Set(int index, bool value) { fvBits[index] = value; }
    int Size() const { return static_cast<int>(fvBits.size()); }

private:
    std::vector<bool> fvBits;
};
