#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "contracts/Parser.h"

#include <memory>
#include <string>
#include <vector>

/// The custom procedure framework: the object that the host calls back, document access, single values.

/// One result document of a run.
struct CFStatXMLInfoBlock {
    std::string fText;
};

/// A field of the active data set.
class CFField {
public:
    enum Storage { kUnknown = 0, kInteger, kReal, kString, kDate, kTime, kTimestamp };
    virtual ~CFField() = default;
    virtual int GetType() const = 0;  ///< a Storage; numbers beyond its own are the host's
};

/// Metadata of the active data set.
class CFMetaData {
public:
    virtual ~CFMetaData() = default;
    virtual int FieldCount() const = 0;
    virtual int GetFieldIndex(const std::string& name) const = 0;  ///< negative if there is no such field
    virtual const QVTA_Format* GetPrivateFormat(int field) const = 0;
    virtual const CFField* GetField(int field) const = 0;  ///< null for a number that is no field's
};

/// Base of the object that a procedure gives the host to be called back. Virtual operations stand in slot order.
class CFProcCustom {
public:
    CFProcCustom() = default;
    CFProcCustom(BpProcedure* procedure, ProcedureDataSource* source) : fpProcedure(procedure), fpDataSource(source) {}
    CFProcCustom(const CFProcCustom&) = default;
    CFProcCustom& operator=(const CFProcCustom&) = default;
    virtual ~CFProcCustom() = default;
    virtual bool ProcessSyntax(const CommandSpec* spec, const CommandDescriptor* descriptor) = 0;
    virtual bool ProcessOutputXML(const std::vector<std::string>& vPMMLStr,
                                  const std::vector<CFStatXMLInfoBlock>& vStatXMLBlocks,
                                  const std::string& summaryXMLStr) = 0;
    virtual bool ProcessOutputXML(const std::string& pmml, const CFStatXMLInfoBlock& statXML) = 0;
    virtual void SetStatJSON(const std::vector<std::string>& texts) = 0;
    virtual bool ProcessOutputJSON() = 0;

    /// Called by the host: what the object works on.
    void SetContext(BpProcedure* procedure, ProcedureDataSource* source, CFMetaData* metaData) {
        fpProcedure = procedure;
        fpDataSource = source;
        fpMetaData = metaData;
    }

protected:
    BpProcedure* fpProcedure = nullptr;
    ProcedureDataSource* fpDataSource = nullptr;
    CFMetaData* fpMetaData = nullptr;
};

/// One value of one variable, as text and, once loaded against the variable, as cells.
class CFStatVariableValue {
public:
    CFStatVariableValue() = default;
    CFStatVariableValue(const std::string& text) : fText(text) {}
    void SetStringValue(const std::string& text);  ///< forgets loaded cells
    /// Takes a text that is in the variable's value form already and loads it.
    bool SetCompleteValue(const std::string& text, const QVTA_Variable& variable, int flags);
    /// Parses the held text by the variable's type and format: a number's text, or a string's bytes, blank-padded.
    /// False, with no cells, for a text that is no value of a numeric variable. "." and an empty text are missing.
    bool LoadObsValue(const QVTA_Variable& variable, int flags);
    const OBS* GetObsValue() const { return fvCells.empty() ? nullptr : fvCells.data(); }
    const std::string& GetStringValue() const { return fText; }

private:
    std::string fText;
    std::vector<OBS> fvCells;
};

class SDOMXMLIterator;

/// An element of an XML document, or the document itself. Names with "/" are paths of child names.
class SDOMXMLWrapper {
public:
    SDOMXMLWrapper();
    ~SDOMXMLWrapper();
    SDOMXMLWrapper(const SDOMXMLWrapper&);
    SDOMXMLWrapper& operator=(const SDOMXMLWrapper&);

    /// Parses the text into a document held by this wrapper; null on a parse failure, else this wrapper. No entities
    /// are expanded, and documents nested too deeply are refused.
    SDOMXMLWrapper* LoadFromString(const std::string& text);
    bool GetFirstElement(const std::string& name, SDOMXMLWrapper& element, bool childrenOnly) const;
    /// Iterates over all child elements of the name, in document order; false when there are none.
    bool GetElementIterator(const std::string& name, SDOMXMLIterator& iterator, bool childrenOnly) const;
    bool GetAttribute(const std::string& name, std::string& text) const;  ///< false, and text empty, when absent
    bool GetSimpleArray(std::vector<std::string>& tokens) const;          ///< tokens of an Array element, in order

    struct Impl;

private:
    friend class SDOMXMLIterator;
    std::shared_ptr<Impl> fpImpl;
};

class SDOMXMLIterator {
public:
    SDOMXMLIterator();
    ~SDOMXMLIterator();
    SDOMXMLIterator(const SDOMXMLIterator&) = delete;
    SDOMXMLIterator& operator=(const SDOMXMLIterator&) = delete;
    bool Next(SDOMXMLWrapper& element);  ///< false at the end

    struct Impl;

private:
    friend class SDOMXMLWrapper;
    std::unique_ptr<Impl> fpImpl;
};

/// The number that a text spells; 0 when it spells none. Never depends on the locale.
int String2Integer(const std::string& text);
double String2Double(const std::string& text);
int Roman2Integer(const std::string& text);
