#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// The host's data: cell values, variables, the data source of a procedure, keyed cells.
///
/// Owner of every object that is reached by reference or pointer is the host.

/// A cell value: a double, or eight bytes of a string. A string of width w above 8 takes (w + 7) / 8 cells,
/// blank-padded.
union OBS {
    double fNumber;
    char fText[8];
};

/// Cells that a value of the width takes; width 0 is a number, and a negative width counts as a long string.
inline int ObsCells(int width) {
    return width > 8 || width < 0 ? (width + 7) / 8 : 1;
}

/// A print format in 32 bits.
struct QVTA_Format {
    std::uint16_t fWidth = 0;
    std::uint8_t fType = 0;
    std::uint8_t fDecimals = 0;
    bool operator==(const QVTA_Format&) const = default;
};

constexpr int kFormatA = 1;        ///< string
constexpr int kFormatAHEX = 2;     ///< string as hexadecimal digits
constexpr int kFormatNumeric = 5;  ///< plain number

/// A format from a packed word: type in bits 16 and up, width in bits 8 to 15, decimals in bits 0 to 7. A width above
/// 40 is cut to 40 unless the format is a string's; for type A only, the width is then width + 256 * decimals.
QVTA_Format UnpackFormat(std::uint32_t word);

namespace QVTA_Variable_Enumerations {
enum MeasurementLevel { kNominal = 1, kOrdinal = 2, kScale = 3 };
}

class QVTA_VLImpl;
using QVTA_VLImplPointer = std::shared_ptr<const QVTA_VLImpl>;

/// A variable of the data, by value.
class QVTA_Variable {
public:
    static constexpr int MAXNUMFMTWID = 40;
    using MeasurementLevel = QVTA_Variable_Enumerations::MeasurementLevel;

    QVTA_Variable();
    QVTA_Variable(const QVTA_Variable&);
    QVTA_Variable& operator=(const QVTA_Variable&);
    ~QVTA_Variable();

    const char* GetName() const;
    const char* GetLabel() const;           ///< null without a label
    std::string GetPreferredLabel() const;  ///< the label if any, else the name
    int GetType() const;                    ///< 0 numeric, else the string's width
    QVTA_Format GetFormat() const;
    QVTA_Format GetFormatEx() const;
    void GetFormatEx(int& type, int& width, int& decimals) const;
    MeasurementLevel GetMeasurementLevel() const;
    QVTA_VLImplPointer GetValueLabels() const;

    void SetName(const char* name);
    void SetLabel(const char* label);
    void SetFormat(QVTA_Format format);
    void SetWriteFormat(QVTA_Format format);
    void SetMeasurementLevel(MeasurementLevel level);
    void SetDisplayWidth(short width);

    /// For the host that makes variables: type (0 or width) and value labels.
    void SetType(int type);
    void SetValueLabels(QVTA_VLImplPointer labels);
    QVTA_Format GetWriteFormat() const;
    short GetDisplayWidth() const;

private:
    std::string fName;
    std::string fLabel;
    int fType = 0;
    QVTA_Format fFormat;
    QVTA_Format fWriteFormat;
    MeasurementLevel fLevel = QVTA_Variable_Enumerations::kScale;
    short fDisplayWidth = 8;
    QVTA_VLImplPointer fValueLabels;
};

/// Labels of a variable's values. Each GetLabel gives null for a value without a label.
class QVTA_ValueLabelMap {
public:
    explicit QVTA_ValueLabelMap(QVTA_VLImplPointer labels);
    const char* GetLabel(double const& value) const;
    const char* GetLabel(std::string const& value) const;
    const char* GetLabel(OBS const* value) const;

private:
    QVTA_VLImplPointer fLabels;
};

class QVTA_DataSourceImpl;

/// A rectangle of cases and variables.
class QVTA_DataSource {
public:
    virtual ~QVTA_DataSource();
    unsigned ColumnCount() const;
    QVTA_Variable& GetVariable(int index);
    const QVTA_Variable& GetVariable(int index) const;
    int FindVarIndex(const char* name, int start) const;     ///< negative if there is no such variable
    QVTA_Variable& MakeVariable(int type, unsigned& index);  ///< a new variable at the end of the data

    QVTA_DataSourceImpl& Impl() const { return *fpImpl; }

protected:
    explicit QVTA_DataSource(std::shared_ptr<QVTA_DataSourceImpl> impl);

private:
    std::shared_ptr<QVTA_DataSourceImpl> fpImpl;
};

/// The data source of a running procedure. The virtual operations stand in slot order.
class ProcedureDataSource : public QVTA_DataSource {
public:
    explicit ProcedureDataSource(std::shared_ptr<QVTA_DataSourceImpl> impl);
    ~ProcedureDataSource() override;
    virtual unsigned GetSplitCount() const;            ///< number of split variables; 0 when the data isn't split
    virtual int GetSplitVarIndex(int position) const;  ///< index of a split variable in the data source
    virtual bool HasSplits() const;
    virtual bool GetSplitLayering() const;  ///< split results are layered inside one table

    bool FatalError() const;            ///< a fatal error has been raised for this procedure
    int VarIndex(long position) const;  ///< index of a variable that the parsed command names by position
    int GetWeightVarIndex() const;      ///< index of the active weight variable, negative if none
};

/// Writes into the current case of a data pass.
class QVTA_InputCaseIterator {
public:
    virtual ~QVTA_InputCaseIterator() = default;
    virtual void SetColumnValue(int column, double value) = 0;
};

/// Renders a value in a format: into a buffer of at least the format's width, 0 on success; or as a string, untrimmed.
long ToString(OBS const* value, QVTA_Format format, char* buffer);
std::string ToString(OBS const* value, QVTA_Format format);

/// Multi-byte text helpers of the host. The embedded host's code page is UTF-8.
struct QVTAMBConverter;
char* QVTAMBstrtrim_A(char* text);  ///< trims in place and returns its argument
QVTAMBConverter* QVTAMBConverterNew_A();
void QVTAMBConverterDelete_A(QVTAMBConverter* converter);
std::string QVTAMBU8ToGeneric(QVTAMBConverter* converter, const std::string& text);
std::string QVTAMBGenericToU8(QVTAMBConverter* converter, const std::string& text);
int QVTAMBmbclen_A(const char* text);  ///< bytes of the character at text, at least 1
std::string GetUpperString(const std::string& text);

/// An ordered map whose rows are fixed-length runs of cells and whose key is the leading cells of a row.
///
/// Keys are raw bytes in lookups and values in order: numbers ascend by value, strings by bytes. Rows never move once
/// inserted, so that pointers to them stay valid for the map's life.
class ObsVecMap {
public:
    /// keySpec: per key variable its width (0 a number); nValues: value cells behind the key. An empty spec has one key
    /// cell.
    ObsVecMap(const std::vector<short>& keySpec, std::size_t nValues);
    ~ObsVecMap();
    ObsVecMap(const ObsVecMap&) = delete;
    ObsVecMap& operator=(const ObsVecMap&) = delete;

    static std::vector<short> MakeKeySpec(const QVTA_DataSource& source, const std::vector<int>& variables);
    const std::vector<short>& GetKeySpec() const;
    std::size_t CellSize() const;         ///< cells in a row, key and values
    std::size_t Size() const;             ///< rows
    OBS* Contains(const OBS* key) const;  ///< the row, or null
    OBS* Insert(const OBS* row);          ///< copies CellSize() cells in; the row stored (an equal key's row is kept)
    OBS* operator[](std::size_t position) const;
    void Sort(std::vector<OBS*>& rows) const;  ///< the rows in order of their keys

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

/// The host's string type for debug text.
class BP_Character {
public:
    BP_Character(const char* text = "") : fText(text) {}
    BP_Character& operator=(const char* text) {
        fText = text;
        return *this;
    }
    BP_Character& operator+=(const char* text) {
        fText += text;
        return *this;
    }
    const char* Text() const { return fText.c_str(); }

private:
    std::string fText;
};

/// Debug text to the front end. The flag is 1 for a line of its own and 0 for a piece of a text.
void BP_ToFront(long long const& flag, BP_Character const& text);
