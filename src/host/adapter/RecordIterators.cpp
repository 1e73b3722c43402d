#include "contracts/Adapter.h"
#include "host/adapter/CaseStream.h"
#include "host/adapter/RecordFile.h"
#include "run/RunValue.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>

namespace {

constexpr int kNoFailure = 0;
constexpr int kNoCases = 1;
constexpr int kNoRecords = 3;

/// Writes into the row of the data file behind the iterator's present record.
class PresentCase : public QVTA_InputCaseIterator {
public:
    PresentCase(ACAInputAdapter::Impl& stream, ProcedureDataSource& source) : fStream(stream), fSource(source) {}
    void SetColumnValue(int column, double value) override {
        if (fStream.fAt < fStream.fKept.size()) fSource.Impl().SetCell(column, fStream.InputRow(fStream.fAt), value);
    }

private:
    ACAInputAdapter::Impl& fStream;
    ProcedureDataSource& fSource;
};

}  // namespace

struct ACAProcDataSourceIter::Impl {
    Impl(ACAInputAdapter& adapter) : fAdapter(adapter), fStream(adapter.GetImpl()), fCase(fStream, *fStream.fpSource) {}

    ACAInputAdapter& fAdapter;
    ACAInputAdapter::Impl& fStream;
    PresentCase fCase;
    Record fRecord;
    int fFailReason = kNoFailure;
};

ACAProcDataSourceIter::ACAProcDataSourceIter(ACAInputAdapter& adapter, bool) : fpImpl(std::make_unique<Impl>(adapter)) {
    if (fpImpl->fStream.fpTable->RowCount() == 0) fpImpl->fFailReason = kNoCases;
    fpImpl->fRecord.fSize = fpImpl->fStream.fDeclared;
    fpImpl->fStream.Rewind();
}

ACAProcDataSourceIter::~ACAProcDataSourceIter() = default;

bool ACAProcDataSourceIter::HasMore() {
    ACAInputAdapter::Impl& stream = fpImpl->fStream;
    return stream.fAt < stream.fKept.size() || PreprocessCase();
}

Record const* ACAProcDataSourceIter::Next() {
    if (!HasMore()) return nullptr;
    ACAInputAdapter::Impl& stream = fpImpl->fStream;
    fpImpl->fRecord.fpValues = stream.BlockRecord(stream.fAt++);
    return &fpImpl->fRecord;
}

int ACAProcDataSourceIter::GetFailReason() const {
    return fpImpl->fFailReason;
}

int ACAProcDataSourceIter::NewPass() {
    fpImpl->fAdapter.PrepareNewPass();
    return 0;
}

int ACAProcDataSourceIter::NewPass(bool) {
    return NewPass();
}

bool ACAProcDataSourceIter::PreprocessCase() {
    return fpImpl->fStream.NextBlock();
}

bool ACAProcDataSourceIter::NewSplit() {
    const int before = fpImpl->fStream.fSplit;
    fpImpl->fAdapter.PrepareNewSplit();
    return fpImpl->fStream.fSplit > before;
}

Record const* ACAProcDataSourceIter::Current() const {
    ACAInputAdapter::Impl& stream = fpImpl->fStream;
    if (stream.fAt >= stream.fKept.size()) return nullptr;
    fpImpl->fRecord.fpValues = stream.BlockRecord(stream.fAt);
    return &fpImpl->fRecord;
}

// Every pass reads the same table, so the last one is like the others.
void ACAProcDataSourceIter::SetLastPass() {}

QVTA_InputCaseIterator* ACAProcDataSourceIter::GetProcDS() {
    return &fpImpl->fCase;
}

struct ACADataFileIter::Impl {
    Impl(ACAInputAdapter const& adapter, const std::vector<int>& sortVariables, int recordCount)
        : fStream(adapter.GetImpl()),
          fExpected(recordCount),
          fFile(fStream.Stride(), sortVariables,
                run::Current() != nullptr ? run::Current()->fMemoryBudget : std::size_t{256} << 20) {
        fRecord.fSize = fStream.fDeclared;
        fFile.Expect(recordCount > 0 ? static_cast<std::size_t>(recordCount) : 0);
    }

    // The records of the stream's present split, from where it stands to the split's end, block by block.
    bool TakeBlocks() {
        do {
            const std::size_t count = fStream.fKept.size() - fStream.fAt;
            if (count > 0 && !fFile.Append(fStream.BlockRecord(fStream.fAt), count)) return false;
            if (Stopped()) return false;
        } while (fStream.NextBlock());
        return true;
    }

    static bool Stopped() {
        run::RunValue* run = run::Current();
        if (run == nullptr || !run->fStop || !run->fStop()) return false;
        run->fFatal = true;
        return true;
    }

    // Another iterator's records have the declared values only.
    bool TakeRecords(RecordIterator& records) {
        std::vector<double> values(fStream.Stride(), 0.0);
        while (records.HasMore()) {
            const Record* record = records.Next();
            if (record == nullptr) break;
            std::copy_n(record->fpValues, std::min<std::size_t>(values.size(), record->fSize), values.begin());
            if (!fFile.Append(values.data(), 1)) return false;
        }
        return true;
    }

    ACAInputAdapter::Impl& fStream;
    int fExpected;
    host::RecordFile fFile;
    std::size_t fAt = 0;
    Record fRecord;
};

ACADataFileIter::ACADataFileIter(ACAInputAdapter const& adapter, const std::vector<int>& sortVariables, int recordCount)
    : fpImpl(std::make_unique<Impl>(adapter, sortVariables, recordCount)) {}

ACADataFileIter::~ACADataFileIter() {
    CloseDataFile();
}

bool ACADataFileIter::HasMore() {
    return fpImpl->fAt < fpImpl->fFile.Count();
}

Record const* ACADataFileIter::Next() {
    if (!HasMore()) return nullptr;
    fpImpl->fRecord.fpValues = fpImpl->fFile.Records() + fpImpl->fAt++ * fpImpl->fFile.Stride();
    return &fpImpl->fRecord;
}

int ACADataFileIter::GetFailReason() const {
    return fpImpl->fExpected > 0 ? kNoFailure : kNoRecords;
}

int ACADataFileIter::NewPass() {
    fpImpl->fAt = 0;
    return 0;
}

bool ACADataFileIter::FillDataFile(RecordIterator& records) {
    host::RecordFile& file = fpImpl->fFile;
    const bool own = dynamic_cast<ACAProcDataSourceIter*>(&records) != nullptr;
    const bool taken = own ? fpImpl->TakeBlocks() : fpImpl->TakeRecords(records);
    run::RunValue* run = run::Current();
    if (!taken || !file.Finish()) {
        if (!file.Error().empty()) {
            if (run != nullptr) run->fFileFailed = true;
            BpError(BpString(file.Error(), false), kShowAlways, kLevelError);
        }
        return false;
    }
    if (run == nullptr) return true;
    run->fRecords = {this, file.Records(), file.Count(), static_cast<int>(file.Stride()), nullptr};
    if (own) {
        run->fRecords.fFindRow = [&stream = fpImpl->fStream](const auto& fits) {
            return static_cast<long>(stream.FindRow(fits));
        };
    }
    return true;
}

bool ACADataFileIter::GetTextFile(const std::string& fileName) {
    std::ofstream stream(fileName, std::ios::binary | std::ios::trunc);
    const host::RecordFile& file = fpImpl->fFile;
    for (std::size_t i = 0; i < file.Count() && stream; ++i) {
        const double* record = file.Records() + i * file.Stride();
        std::string line;
        for (int j = 0; j < fpImpl->fStream.fDeclared; ++j)
            line.append(j == 0 ? "" : "\t").append(fmt::format("{}", record[j]));
        stream << line << '\n';
    }
    stream.flush();
    return stream.good();
}

void ACADataFileIter::CloseDataFile() {
    if (run::RunValue* run = run::Current(); run != nullptr && run->fRecords.fpIterator == this) run->fRecords = {};
    fpImpl->fFile.Clear();
    fpImpl->fAt = 0;
}
