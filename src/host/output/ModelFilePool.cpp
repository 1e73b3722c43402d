#include "contracts/HostFiles.h"
#include "run/RunValue.h"

#include <filesystem>
#include <fmt/format.h>

/// The model files of a run. Without splits the file has the command's name; each split's has the split's number, from
/// 1, before the extension: "model.pmml" becomes "model_1.pmml".
struct QVTA_PMMLPooling::Impl {
    std::filesystem::path fName;
    int fGiven = 0;
};

QVTA_PMMLPooling::QVTA_PMMLPooling(const QVTA_DataSource&, const std::string& fileName)
    : fpImpl(std::make_unique<Impl>(Impl{fileName, 0})) {}

QVTA_PMMLPooling::~QVTA_PMMLPooling() = default;

void QVTA_PMMLPooling::GetCurrentPMMLName(std::string& name, const std::vector<OBS*>& splitValues) {
    name = fpImpl->fName.string();
    if (splitValues.empty()) return;
    const run::RunValue* run = run::Current();
    const int number = (run && run->fSplitOrdinal >= 0 ? run->fSplitOrdinal : fpImpl->fGiven) + 1;
    ++fpImpl->fGiven;
    const auto file = fmt::format("{}_{}{}", fpImpl->fName.stem().string(), number, fpImpl->fName.extension().string());
    name = (fpImpl->fName.parent_path() / file).string();
}

bool QVTA_PMMLPooling::CompletePMML() {
    return true;
}

const char* const* GetAppParams() {
    static const char* const kParams[] = {
        "", "", "", "", "", "", "", "", "", "Hierfit", HIERFIT_VERSION, "The Hierfit developers"};
    return kParams;
}
