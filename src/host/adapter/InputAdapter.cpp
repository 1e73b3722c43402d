#include "contracts/Adapter.h"
#include "host/adapter/CaseStream.h"

#include <algorithm>
#include <limits>

ACAInputAdapter::ACAInputAdapter(ACAVarValidSpecs* specs, ProcedureDataSource& source)
    : fpImpl(std::make_unique<Impl>(*this, specs, source)) {}
ACAInputAdapter::~ACAInputAdapter() = default;

int ACAInputAdapter::GetRecordSize() const {
    return static_cast<int>(fpImpl->Stride());
}

bool ACAInputAdapter::EncodeCatVars() {
    fpImpl->FillCategories();
    return true;
}

bool ACAInputAdapter::GetContVars() {
    fpImpl->FillNumbers();
    return true;
}

// Records here have no matrix specifications and no variables that aren't declared or asked for by the run value.
void ACAInputAdapter::RecodeMatrixSpecs() {}
void ACAInputAdapter::HandleBadMatrixSpec() {}
void ACAInputAdapter::FillFreeVars() {}

// The cases of a block: read, and judged whether they are usable.
bool ACAInputAdapter::PreprocessCase() {
    fpImpl->ReadBlock();
    fpImpl->JudgeCases();
    return !fpImpl->fKept.empty();
}

// The usable cases of a block become records.
bool ACAInputAdapter::PreprocessRecord() {
    const bool numbers = GetContVars();
    const bool codes = EncodeCatVars();
    FillFreeVars();
    return numbers && codes;
}

void ACAInputAdapter::PrepareNewPass() {
    fpImpl->Rewind();
}

void ACAInputAdapter::PrepareNewSplit() {
    fpImpl->NextSplit();
}

void ACAInputAdapter::SetSplitFile(BpProcedure&, bool headings, bool labels, bool sorted) {
    fpImpl->fSplitFile = (headings || labels || sorted) && fpImpl->fpSource->GetSplitCount() > 0;
}

bool ACAInputAdapter::GetSplitFile() const {
    return fpImpl->fSplitFile;
}

int ACAInputAdapter::GetSplitCount() const {
    return fpImpl->fSplit + 1;
}

std::vector<OBS*> ACAInputAdapter::GetSplitValues() const {
    return fpImpl->fPresentSplitValues;
}

void ACAInputAdapter::ChangeSplitNoIter() {
    fpImpl->NextSplit();
}

void ACAInputAdapter::ResetSplitNoIter() {
    fpImpl->Rewind();
}

void ACAInputAdapter::ClearDSIterator() {
    fpImpl->Rewind();
}

double ACAInputAdapter::GetNCases() const {
    return fpImpl->fCases;
}
double ACAInputAdapter::GetNInvalidCases() const {
    return fpImpl->fInvalid;
}
double ACAInputAdapter::GetWeightNCases() const {
    return fpImpl->fWeightCases;
}
double ACAInputAdapter::GetWeightNInvalidCases() const {
    return fpImpl->fWeightInvalid;
}

int ACAInputAdapter::GetSplitRecordCount() const {
    const host::SplitCategories* split = fpImpl->Present();
    const std::uint64_t records = split == nullptr ? 0 : split->fRecords;
    return static_cast<int>(std::min<std::uint64_t>(records, std::numeric_limits<int>::max()));
}

int ACAInputAdapter::GetRecordCatVarSize(int recordVariable) const {
    return fpImpl->HasCategories(recordVariable) ? static_cast<int>(fpImpl->Appeared(recordVariable).size()) : 0;
}

void ACAInputAdapter::ReorderRecordCats(int recordVariable, bool ascending) {
    if (!fpImpl->HasCategories(recordVariable)) return;
    const int source = fpImpl->fColumns[recordVariable].fSource;
    fpImpl->Present()->fOrders[recordVariable].Sort(fpImpl->Appeared(recordVariable), fpImpl->fSources[source]->fValues,
                                                    ascending);
}

int ACAInputAdapter::EncodeRecordCatValue(int recordVariable, OBS const* value, bool& error, bool) const {
    error = true;
    if (value == nullptr || !fpImpl->HasCategories(recordVariable)) return -1;
    const host::SourceVariable& source = *fpImpl->fSources[fpImpl->fColumns[recordVariable].fSource];
    const std::uint32_t global = source.fValues.Find(value);
    if (global >= source.fSeen.size() || source.fSeen[global].fWalk != fpImpl->fWalk) return -1;
    error = false;
    return static_cast<int>(fpImpl->Present()->fOrders[recordVariable].Code(source.fSeen[global].fPlace));
}

const OBS* ACAInputAdapter::DecodeCatValue(int recordVariable, int code, int& error) const {
    error = 1;
    if (code < 0 || code >= GetRecordCatVarSize(recordVariable)) return nullptr;
    error = 0;
    const std::uint32_t place = fpImpl->Present()->fOrders[recordVariable].Place(static_cast<std::uint32_t>(code));
    const std::uint32_t global = fpImpl->Appeared(recordVariable)[place];
    return fpImpl->fSources[fpImpl->fColumns[recordVariable].fSource]->fValues.Cells(global);
}
