#include "host/data/DataSource.h"

#include "host/data/ValueLabels.h"
#include "run/RunValue.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <unistd.h>

namespace host {
namespace {

QVTA_Variable Describe(const Variable& source) {
    QVTA_Variable variable;
    variable.SetName(source.fName.c_str());
    variable.SetLabel(source.fLabel.c_str());
    variable.SetType(source.fWidth);
    const QVTA_Format format{static_cast<std::uint16_t>(source.fFormat.fWidth),
                             static_cast<std::uint8_t>(source.fFormat.fType),
                             static_cast<std::uint8_t>(source.fFormat.fDecimals)};
    variable.SetFormat(format);
    variable.SetWriteFormat(format);
    variable.SetMeasurementLevel(static_cast<QVTA_Variable::MeasurementLevel>(source.fLevel));
    variable.SetDisplayWidth(static_cast<short>(std::min<int>(format.fWidth, 50)));
    variable.SetValueLabels(std::make_shared<QVTA_VLImpl>(source));
    return variable;
}

}  // namespace

SavedColumn::SavedColumn(std::uint64_t rows, const ScratchPlace& place) : fRows(rows) {
    const std::size_t size = std::max<std::size_t>(rows * 8, 8);
    const bool inFile = size > place.fMemoryBudget;
    const int file = inFile ? OpenUnnamedFile(place.fDirectory, fError) : -1;
    if (inFile && file < 0) return;
    if (const int problem = inFile ? posix_fallocate(file, 0, static_cast<off_t>(size)) : 0; problem != 0) {
        fError = std::string("there is no room for a saved variable: ") + std::strerror(problem);
    } else {
        void* map =
            mmap(nullptr, size, PROT_READ | PROT_WRITE, inFile ? MAP_SHARED : MAP_PRIVATE | MAP_ANONYMOUS, file, 0);
        if (map != MAP_FAILED)
            fCells = static_cast<double*>(map);
        else
            fError = std::string("there is no room for a saved variable: ") + std::strerror(errno);
    }
    if (file >= 0) close(file);
    if (fCells != nullptr) std::fill_n(fCells, rows, std::numeric_limits<double>::quiet_NaN());
}

SavedColumn::~SavedColumn() {
    if (fCells != nullptr) munmap(fCells, std::max<std::size_t>(fRows * 8, 8));
}

std::shared_ptr<QVTA_DataSourceImpl> MakeDataSource(std::shared_ptr<const Table> table, ScratchPlace place) {
    return std::make_shared<QVTA_DataSourceImpl>(std::move(table), std::move(place));
}

}  // namespace host

QVTA_DataSourceImpl::QVTA_DataSourceImpl(std::shared_ptr<const host::Table> table, host::ScratchPlace place)
    : fTable(std::move(table)), fPlace(std::move(place)) {
    for (int i = 0; i < fTable->VariableCount(); ++i)
        fVariables.push_back(host::Describe(fTable->GetVariable(i)));
}

QVTA_Variable& QVTA_DataSourceImpl::Make(int type, unsigned& index) {
    index = static_cast<unsigned>(fVariables.size());
    fVariables.emplace_back();
    fVariables.back().SetType(type);
    fSaved.emplace_back(fTable->InputRowCount(), fPlace);
    return fVariables.back();
}

void QVTA_DataSourceImpl::SetCell(int variable, std::uint64_t inputRow, double value) {
    const int made = variable - fTable->VariableCount();
    if (value == std::numeric_limits<double>::lowest()) value = std::numeric_limits<double>::quiet_NaN();
    if (made >= 0 && made < static_cast<int>(fSaved.size())) fSaved[made].Set(inputRow, value);
}

QVTA_DataSource::QVTA_DataSource(std::shared_ptr<QVTA_DataSourceImpl> impl) : fpImpl(std::move(impl)) {}
QVTA_DataSource::~QVTA_DataSource() = default;

unsigned QVTA_DataSource::ColumnCount() const {
    return static_cast<unsigned>(fpImpl->VariableCount());
}

QVTA_Variable& QVTA_DataSource::GetVariable(int index) {
    return fpImpl->Variable(static_cast<std::size_t>(index));
}

const QVTA_Variable& QVTA_DataSource::GetVariable(int index) const {
    return fpImpl->Variable(static_cast<std::size_t>(index));
}

int QVTA_DataSource::FindVarIndex(const char* name, int start) const {
    for (std::size_t i = static_cast<std::size_t>(std::max(start, 0)); i < fpImpl->VariableCount(); ++i)
        if (std::strcmp(fpImpl->Variable(i).GetName(), name) == 0) return static_cast<int>(i);
    return -1;
}

QVTA_Variable& QVTA_DataSource::MakeVariable(int type, unsigned& index) {
    return fpImpl->Make(type, index);
}

ProcedureDataSource::ProcedureDataSource(std::shared_ptr<QVTA_DataSourceImpl> impl)
    : QVTA_DataSource(std::move(impl)) {}
ProcedureDataSource::~ProcedureDataSource() = default;

unsigned ProcedureDataSource::GetSplitCount() const {
    return static_cast<unsigned>(Impl().GetTable().SplitIndices().size());
}

int ProcedureDataSource::GetSplitVarIndex(int position) const {
    const std::vector<int>& splits = Impl().GetTable().SplitIndices();
    return position >= 0 && position < static_cast<int>(splits.size()) ? splits[position] : -1;
}

bool ProcedureDataSource::HasSplits() const {
    return GetSplitCount() > 0;
}

bool ProcedureDataSource::GetSplitLayering() const {
    return false;
}

bool ProcedureDataSource::FatalError() const {
    return run::Current() != nullptr && run::Current()->fFatal;
}

// The command numbers the variables as the data source does.
int ProcedureDataSource::VarIndex(long position) const {
    return position >= 0 && position < static_cast<long>(ColumnCount()) ? static_cast<int>(position) : -1;
}

int ProcedureDataSource::GetWeightVarIndex() const {
    return Impl().GetTable().WeightIndex();
}
