#include "host/adapter/CaseStream.h"

#include "run/RunValue.h"

#include <algorithm>
#include <cmath>
#include <limits>

using host::RecordColumn;
using host::SourceVariable;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The place of a value in its split's order of appearance; a new value takes the next one.
inline std::uint32_t PlaceOf(SourceVariable& source, std::uint32_t global, std::uint32_t walk,
                             std::vector<std::uint32_t>& appeared) {
    if (global >= source.fSeen.size())
        source.fSeen.resize(std::max<std::size_t>(global + 1, source.fValues.Size() + source.fValues.Size() / 2));
    SourceVariable::Seen& seen = source.fSeen[global];
    if (seen.fWalk != walk) {
        seen = {walk, static_cast<std::uint32_t>(appeared.size())};
        appeared.push_back(global);
    }
    return seen.fPlace;
}

}  // namespace

ACAInputAdapter::Impl::Impl(ACAInputAdapter& self, ACAVarValidSpecs* specs, ProcedureDataSource& source)
    : fSelf(self), fpSpecs(specs), fpSource(&source), fpTable(&source.Impl().GetTable()) {
    const run::RunValue* run = run::Current();
    const bool categoricalTarget = run != nullptr && run->fTarget.IsCategorical();
    if (fpTable->WeightIndex() >= 0) fWeightSource = AddSource(fpTable->WeightIndex());
    fDeclared = specs->GetNRecordVars();
    for (int i = 0; i < fDeclared; ++i) {
        const ACAVarValidSpecs::Use& use = specs->GetUse(i);
        if (use.fWeight) {
            fColumns.push_back({RecordColumn::Kind::kWeight, fWeightSource, RecordColumn::Order::kAppearance});
        } else if (i == 0 && categoricalTarget && !use.fCategorical) {
            fTargetColumn = 0;
            AddColumn(use.fHostIndex, true, true,
                      run->fTarget.fDescending ? RecordColumn::Order::kDescending : RecordColumn::Order::kAscending);
        } else {
            AddColumn(use.fHostIndex, use.fCategorical, use.fUserMissingInvalid, RecordColumn::Order::kAppearance);
        }
    }
    AddHidden();
    fSplits.resize(fpTable->Splits().size());
    for (const int column : fpTable->SplitIndices())
        fSplitValues.push_back(std::make_unique<host::ValueIndex>(*fpTable, column));
}

int ACAInputAdapter::Impl::AddSource(int column) {
    for (std::size_t i = 0; i < fSources.size(); ++i)
        if (fSources[i]->fValues.Column() == column) return static_cast<int>(i);
    fSources.push_back(std::make_unique<SourceVariable>(*fpTable, column));
    SourceVariable& source = *fSources.back();
    if (source.fValues.IsText()) {
        const host::StringPool& pool = fpTable->Pool(column);
        for (const std::string& text : source.fValues.GetVariable().fMissingTexts) {
            const std::uint32_t code = pool.Find(text);
            if (code == host::StringPool::kAbsent) continue;
            source.fMissingCodes.resize(pool.Size());
            source.fMissingCodes[code] = true;
        }
    }
    return static_cast<int>(fSources.size()) - 1;
}

void ACAInputAdapter::Impl::AddColumn(int column, bool category, bool userMissingInvalid, RecordColumn::Order order) {
    const int source = AddSource(column);
    fSources[source]->fAsCategories |= category;
    fSources[source]->fUserMissingInvalid |= userMissingInvalid;
    fColumns.push_back({category ? RecordColumn::Kind::kCategory : RecordColumn::Kind::kNumber, source, order});
}

// What the run value asks for travels behind the declared variables.
void ACAInputAdapter::Impl::AddHidden() {
    run::RunValue* run = run::Current();
    if (run == nullptr) return;
    run->fHidden = {};
    const auto add = [this, run](int variable, bool category) {
        if (variable < 0) return -1;
        AddColumn(variable, category, true, RecordColumn::Order::kAscending);
        run->fHidden.fvNames.resize(fColumns.size());
        run->fHidden.fvNames.back() = fpTable->GetVariable(variable).fName;
        return static_cast<int>(fColumns.size()) - 1;
    };
    const run::Target& target = run->fTarget;
    run->fHidden.fTrials = add(target.fTrialsVar >= 0 ? target.fTrialsVar : target.fNonEventsVar, false);
    run->fHidden.fOffset = add(run->fTarget.fOffsetVar, false);
    run->fHidden.fResidualGroup = add(run->fResidualGroupVar, true);
    for (const int variable : run->fvRandomGroupVars)
        run->fHidden.fRandomGroups.push_back(add(variable, true));
}

void ACAInputAdapter::Impl::Rewind() {
    CloseSplit();
    fSplit = -1;
    fFirst = fEnd = fNext = fSplitEnd = 0;
    fKept.clear();
    fAt = 0;
}

bool ACAInputAdapter::Impl::NextSplit() {
    CloseSplit();
    fKept.clear();
    fAt = 0;
    if (fSplit + 1 >= static_cast<int>(fSplits.size())) {
        fNext = fSplitEnd;
        return false;
    }
    ++fSplit;
    ++fWalk;
    const host::SplitRange& range = fpTable->Splits()[fSplit];
    fFirst = fEnd = fNext = range.fFirst;
    fSplitEnd = range.fFirst + range.fCount;
    fCases = fInvalid = fWeightCases = fWeightInvalid = 0;
    host::SplitCategories& split = fSplits[fSplit];
    if (split.fComplete) {
        for (std::size_t i = 0; i < fSources.size(); ++i)
            for (std::size_t place = 0; place < split.fAppeared[i].size(); ++place)
                fSources[i]->fSeen[split.fAppeared[i][place]] = {fWalk, static_cast<std::uint32_t>(place)};
    } else {
        split.fAppeared.assign(fSources.size(), {});
        split.fOrders.assign(fColumns.size(), {});
    }
    Publish();
    return true;
}

bool ACAInputAdapter::Impl::NextBlock() {
    while (fNext < fSplitEnd) {
        if (fEnd > 0 && fEnd == fNext && fEnd % fpTable->BlockRows() == 0) fpTable->ForgetBlock(fEnd - 1);
        const std::size_t block = fpTable->BlockRows();
        fFirst = fNext;
        fEnd = std::min<std::uint64_t>(fSplitEnd, fFirst + block - fFirst % block);
        fNext = fEnd;
        fSelf.PreprocessCase();
        if (fKept.empty()) continue;
        fSelf.PreprocessRecord();
        fAt = 0;
        return true;
    }
    fKept.clear();
    fAt = 0;
    CloseSplit();
    return false;
}

void ACAInputAdapter::Impl::ReadBlock() {
    const std::size_t count = BlockCases();
    for (const auto& source : fSources) {
        const int column = source->fValues.Column();
        if (source->fValues.IsText()) {
            source->fCodes.resize(count);
            fpTable->ReadCodes(column, fFirst, count, source->fCodes.data());
        } else {
            source->fCells.resize(count);
            fpTable->ReadNumbers(column, fFirst, count, source->fCells.data());
        }
    }
    fInputRowsRead = false;
}

// Listwise deletion: a case is usable when every value that the record needs is there and its weight is 1 or more.
void ACAInputAdapter::Impl::JudgeCases() {
    const std::size_t count = BlockCases();
    fUsable.assign(count, 1);
    if (fWeightSource >= 0) {
        fWeights.resize(count);
        const SourceVariable& source = *fSources[fWeightSource];
        const std::vector<double>& missing = source.fValues.GetVariable().fMissingNumbers;
        for (std::size_t i = 0; i < count; ++i) {
            const double weight = source.fCells[i];
            const bool known = !std::isnan(weight) && !std::binary_search(missing.begin(), missing.end(), weight);
            fWeights[i] = known && weight >= 0.5 ? std::floor(weight + 0.5) : 0.0;
            fUsable[i] = fWeights[i] >= 1.0;
        }
    }
    for (const RecordColumn& column : fColumns) {
        if (column.fKind == RecordColumn::Kind::kWeight) continue;
        const SourceVariable& source = *fSources[column.fSource];
        if (!source.fValues.IsText())
            for (std::size_t i = 0; i < count; ++i)
                fUsable[i] &= source.fCells[i] == source.fCells[i] ? 1 : 0;
        else if (column.fKind == RecordColumn::Kind::kCategory)
            for (std::size_t i = 0; i < count; ++i)
                fUsable[i] &= source.fCodes[i] != 0 ? 1 : 0;
        else
            fUsable.assign(count, 0);
    }
    for (const auto& source : fSources) {
        if (!source->fUserMissingInvalid) continue;
        for (const double missing : source->fValues.GetVariable().fMissingNumbers)
            for (std::size_t i = 0; i < source->fCells.size(); ++i)
                fUsable[i] &= source->fCells[i] != missing ? 1 : 0;
        if (source->fMissingCodes.empty()) continue;
        for (std::size_t i = 0; i < count; ++i)
            fUsable[i] &= source->fMissingCodes[source->fCodes[i]] ? 0 : 1;
    }
    fKept.clear();
    for (std::size_t i = 0; i < count; ++i) {
        if (fUsable[i] != 0) fKept.push_back(static_cast<std::uint32_t>(i));
        if (fWeightSource >= 0) (fUsable[i] != 0 ? fWeightCases : fWeightInvalid) += fWeights[i];
    }
    fCases += static_cast<double>(fKept.size());
    fInvalid += static_cast<double>(count - fKept.size());
    if (fWeightSource < 0) {
        fWeightCases = fCases;
        fWeightInvalid = fInvalid;
    }
}

void ACAInputAdapter::Impl::FillNumbers() {
    const std::size_t stride = Stride();
    fRecords.resize(fKept.size() * stride);
    for (std::size_t c = 0; c < stride; ++c) {
        if (fColumns[c].fKind == RecordColumn::Kind::kCategory) continue;
        const bool weight = fColumns[c].fKind == RecordColumn::Kind::kWeight;
        const std::vector<double>& cells = weight ? fWeights : fSources[fColumns[c].fSource]->fCells;
        double* to = fRecords.data() + c;
        for (const std::uint32_t i : fKept) {
            *to = cells[i];
            to += stride;
        }
    }
}

void ACAInputAdapter::Impl::FillCategories() {
    host::SplitCategories& split = fSplits[fSplit];
    for (std::size_t s = 0; s < fSources.size(); ++s) {
        SourceVariable& source = *fSources[s];
        if (!source.fAsCategories) continue;
        std::vector<std::uint32_t>& appeared = split.fAppeared[s];
        source.fPlaces.resize(fKept.size());
        if (source.fValues.IsText()) {
            for (std::size_t k = 0; k < fKept.size(); ++k)
                source.fPlaces[k] = PlaceOf(source, source.fCodes[fKept[k]], fWalk, appeared);
            continue;
        }
        double last = kNaN;
        std::uint32_t place = 0;
        for (std::size_t k = 0; k < fKept.size(); ++k) {
            const double cell = source.fCells[fKept[k]];
            if (cell != last) {
                place = PlaceOf(source, source.fValues.OfNumber(cell), fWalk, appeared);
                last = cell;
            }
            source.fPlaces[k] = place;
        }
    }
    const std::size_t stride = Stride();
    for (std::size_t c = 0; c < stride; ++c) {
        if (fColumns[c].fKind != RecordColumn::Kind::kCategory) continue;
        const std::vector<std::uint32_t>& places = fSources[fColumns[c].fSource]->fPlaces;
        const std::vector<std::uint32_t>& codes = split.fOrders[c].fCodeOf;
        double* to = fRecords.data() + c;
        for (const std::uint32_t place : places) {
            *to = codes.empty() ? place : codes[place];
            to += stride;
        }
    }
}

// At the end of a split's first pass its categories are complete; those that nobody else reorders are put in order.
void ACAInputAdapter::Impl::CloseSplit() {
    if (fSplit < 0 || fNext < fSplitEnd || fSplits[fSplit].fComplete) return;
    host::SplitCategories& split = fSplits[fSplit];
    split.fComplete = true;
    split.fRecords = static_cast<std::uint64_t>(fCases);
    for (std::size_t c = 0; c < fColumns.size(); ++c)
        if (fColumns[c].fOrder != RecordColumn::Order::kAppearance &&
            fColumns[c].fKind == RecordColumn::Kind::kCategory)
            split.fOrders[c].Sort(split.fAppeared[fColumns[c].fSource], fSources[fColumns[c].fSource]->fValues,
                                  fColumns[c].fOrder == RecordColumn::Order::kAscending);
    Publish();
}

bool ACAInputAdapter::Impl::HasCategories(int column) const {
    return fSplit >= 0 && column >= 0 && column < static_cast<int>(fColumns.size()) &&
           fColumns[column].fKind == RecordColumn::Kind::kCategory;
}

std::uint64_t ACAInputAdapter::Impl::InputRow(std::size_t index) {
    if (!fInputRowsRead) {
        fInputRows.resize(BlockCases());
        fpTable->ReadInputRows(fFirst, BlockCases(), fInputRows.data());
        fInputRowsRead = true;
    }
    return static_cast<std::uint64_t>(fInputRows[fKept[index]]);
}

std::uint64_t ACAInputAdapter::Impl::FindRow(const std::function<bool(const double* record)>& fits) {
    const double counts[] = {fCases, fInvalid, fWeightCases, fWeightInvalid};
    fFirst = fEnd = fNext = fpTable->Splits()[fSplit].fFirst;
    std::uint64_t row = 0;
    while (row == 0 && NextBlock()) {
        for (std::size_t i = 0; i < fKept.size() && row == 0; ++i) {
            if (fits(BlockRecord(i))) row = InputRow(i) + 1;
        }
    }
    fFirst = fEnd = fNext = fSplitEnd;
    fKept.clear();
    fAt = 0;
    fCases = counts[0];
    fInvalid = counts[1];
    fWeightCases = counts[2];
    fWeightInvalid = counts[3];
    return row;
}

// What the run value tells of the present split: its number and values, and the categories that only it knows.
void ACAInputAdapter::Impl::Publish() {
    run::RunValue* run = run::Current();
    fPresentSplitValues.clear();
    run::Levels levels;
    std::string name;
    for (const auto& values : fSplitValues) {
        std::uint32_t global = host::ValueIndex::kMissing;
        if (values->IsText()) {
            std::uint32_t code = 0;
            fpTable->ReadCodes(values->Column(), fpTable->Splits()[fSplit].fFirst, 1, &code);
            if (code != 0) global = code;
        } else {
            double cell = kNaN;
            fpTable->ReadNumbers(values->Column(), fpTable->Splits()[fSplit].fFirst, 1, &cell);
            if (!std::isnan(cell)) global = values->OfNumber(cell);
        }
        fPresentSplitValues.push_back(values->Cells(global));
        const host::Variable& variable = values->GetVariable();
        levels.emplace_back(variable.fName, values->Text(global));
        if (!name.empty()) name += ", ";
        name += (variable.fLabel.empty() ? variable.fName : variable.fLabel) + " = " + values->LabelText(global);
    }
    if (run == nullptr) return;
    run->fSplit = std::move(levels);
    run->fSplitName = std::move(name);
    run->fSplitOrdinal = fSplit;
    const auto texts = [this](int column) {
        std::vector<std::string> result;
        if (column < 0 || !fSplits[fSplit].fComplete) return result;
        const std::vector<std::uint32_t>& appeared = Appeared(column);
        for (std::size_t code = 0; code < appeared.size(); ++code)
            result.push_back(fSources[fColumns[column].fSource]->fValues.Text(
                appeared[fSplits[fSplit].fOrders[column].Place(static_cast<std::uint32_t>(code))]));
        return result;
    };
    run->fTargetCategories = texts(fTargetColumn);
    run->fHidden.fvResidualGroupTexts = texts(run->fHidden.fResidualGroup);
    run->fHidden.fvRandomGroupTexts.clear();
    for (const int column : run->fHidden.fRandomGroups)
        run->fHidden.fvRandomGroupTexts.push_back(texts(column));
}
