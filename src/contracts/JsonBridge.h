#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"

#include <memory>
#include <string>

/// The host's JSON bridge: a document's nodes, and pivot tables made from table descriptions. The schema of a
/// description is between the engine that writes it and the bridge.

class _jobject;  ///< a node of a document, owned by the document

/// A parsed document.
class JNIJSONObject {
public:
    explicit JNIJSONObject(const char* text);
    ~JNIJSONObject();
    JNIJSONObject(const JNIJSONObject&) = delete;
    JNIJSONObject& operator=(const JNIJSONObject&) = delete;

    bool isGood() const;                                                 ///< the document parsed
    _jobject* getTop() const;                                            ///< the root node; null if not good
    _jobject* getByPath(_jobject* node, const std::string& path) const;  ///< the node at the dotted path, or null

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

struct JNIJSONArtifact {
    static bool isJSONArray(_jobject* node);
};

/// An array node.
class JNIJSONArray {
public:
    explicit JNIJSONArray(_jobject* node) : fpNode(node) {}
    int size() const;
    _jobject* get(int index) const;  ///< null outside the array

private:
    _jobject* fpNode;
};

/// Names that a description may use beside those of the data source.
class dataDictionary {};

/// Turns one table description into a pivot table.
class jsonPivot {
public:
    jsonPivot(JNIJSONObject& document, _jobject* const& table, ProcedureDataSource const* source,
              dataDictionary const& dictionary);
    void translateTableStrings(bool translate) { fTranslate = translate; }  ///< the description's own texts
    void supportSplits(bool support) { fSupportSplits = support; }          ///< the table goes where its split's do
    /// Writes the table under the heading; translateTitle: the title still needs translation. False, with nothing
    /// written, when the description isn't one.
    bool createPivotTable(BpHeading* heading, const std::string& title, bool translateTitle,
                          const std::string& subType);

private:
    _jobject* fpTable;
    ProcedureDataSource const* fpSource;
    bool fTranslate = false;
    bool fSupportSplits = false;
};
