#include "contracts/HostFiles.h"
#include "host/output/FileStore.h"

struct QVTA_PMMLPooling::Impl {
    std::string fName;
};

QVTA_PMMLPooling::QVTA_PMMLPooling(const QVTA_DataSource&, const std::string& fileName)
    : fpImpl(std::make_unique<Impl>(Impl{fileName})) {}

QVTA_PMMLPooling::~QVTA_PMMLPooling() = default;

void QVTA_PMMLPooling::GetCurrentPMMLName(std::string& name, const std::vector<OBS*>&) {
    name = host::FileStore::Instance().NameInSplit(fpImpl->fName);
}

bool QVTA_PMMLPooling::CompletePMML() {
    return true;
}

const char* const* GetAppParams() {
    static const char* const kParams[] = {
        "", "", "", "", "", "", "", "", "", "Hierfit", HIERFIT_VERSION, "The Hierfit developers"};
    return kParams;
}
