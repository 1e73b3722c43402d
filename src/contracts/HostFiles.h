#pragma once

#include "contracts/HostData.h"

#include <fstream>
#include <memory>
#include <string>
#include <vector>

/// The host's files: names, the pool of model files, the repository that takes what was written.

enum AccessType { kAccessExists = 0 };
enum AccessValue { kAccessOther = 0, kAccessAbsent = 1 };

/// A file name of the host.
class ExtNameStr {
public:
    void SetGeneric(const std::string& name);
    /// Opens the stream on the file. The mode used is 50: out, truncate, binary. The embedded host opens a file beside
    /// the final name, which TestAndStoreToPes moves into place.
    void Open(std::ofstream& stream, int mode);
    AccessValue Access(AccessType type) const;  ///< 1 when there is no such file
    AccessValue Access(int type) const { return Access(static_cast<AccessType>(type)); }
    void remove();

private:
    std::string fName;
};

/// The model files of a split run: one name a split.
class QVTA_PMMLPooling {
public:
    QVTA_PMMLPooling(const QVTA_DataSource& source, const std::string& fileName);
    ~QVTA_PMMLPooling();
    void GetCurrentPMMLName(std::string& name, const std::vector<OBS*>& splitValues);
    bool CompletePMML();

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};

struct BEPesRepos {
    static void BEPesClear();       ///< forgets earlier repository errors
    static void BEPesCheckError();  ///< reports what TestAndStoreToPes has left over
};

/// Registers a written file with the repository. Kind 6 for model and XML files, 99 for the JSON file; the flag is 1.
void TestAndStoreToPes(const char* fileName, int kind, int flag);

/// The host's application strings; places 9, 10 and 11 go into model files (application, version, copyright).
const char* const* GetAppParams();
