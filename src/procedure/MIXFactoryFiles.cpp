#include "procedure/MIXFactory.h"
#include "procedure/MIXValidSpecs.h"

#include <fstream>
#include <functional>

namespace {

constexpr int kOutTruncateBinary = 50;
constexpr int kModelOrXmlFile = 6;
constexpr int kJsonFile = 99;
constexpr int kStoreFlag = 1;
constexpr int kFirstAppParam = 9;

/// What is written is best effort: a stream that doesn't open is passed over, and an export's status isn't asked for.
void WriteFile(const std::string& name, int kind, const std::function<void(std::ostream&)>& write) {
    std::ofstream stream;
    ExtNameStr file;
    file.SetGeneric(name);
    file.Open(stream, kOutTruncateBinary);
    if (!stream.is_open()) return;
    write(stream);
    stream.close();
    TestAndStoreToPes(name.c_str(), kind, kStoreFlag);
}

/// A document of an earlier run must not stand beside the new output.
void RemoveStaleFile(const std::string& name) {
    ExtNameStr file;
    file.SetGeneric(name);
    if (file.Access(kAccessExists) != kAccessAbsent) file.remove();
}

}  // namespace

void MIXFactory::SavePMMLFile() {
    GLMMAlgorithm& algorithm = *GetGLMMAlgorithm();
    std::string modelFile;
    if (fpPMMLPooling) fpPMMLPooling->GetCurrentPMMLName(modelFile, fpInpAdapt->GetSplitValues());
    if (!modelFile.empty()) {
        const char* const* params = GetAppParams();
        MCApplicInfo4XML application{params[kFirstAppParam], params[kFirstAppParam + 1], params[kFirstAppParam + 2]};
        WriteFile(modelFile, kModelOrXmlFile,
                  [&](std::ostream& stream) { algorithm.ExportModel(stream, &application); });
    }
    if (fpValidSpecs->GetOutFOptionStatXML())
        WriteFile(fpValidSpecs->GetOutFStatXMLFileName(), kModelOrXmlFile,
                  [&](std::ostream& stream) { algorithm.ExportStatXML(stream); });
    if (!fpValidSpecs->GetOutFOptionStatJSON()) return;
    const std::string& jsonFile = fpValidSpecs->GetOutFStatJSONFileName();
    if (fpValidSpecs->GetUseStatJSON())
        WriteFile(jsonFile, kJsonFile, [&](std::ostream& stream) { algorithm.ExportStatJSON(stream); });
    else
        RemoveStaleFile(jsonFile);
}
