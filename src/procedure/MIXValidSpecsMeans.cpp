#include "procedure/CommandRecords.h"
#include "procedure/MIXValidSpecs.h"

#include <cassert>
#include <numeric>

namespace {

/// Fields of an estimated means record.
enum MeansField {
    kTableFactors = 1,
    kTableFactorList = 2,
    kCompareFactor = 3,
    kCovariateEntries = 4,
    kAdjustment = 5,
    kReferenceType = 6,
    kReferenceValue = 7,  ///< a string's length
    kReferenceText = 8
};

/// Cells of a covariate's entry.
enum CovariateCell { kGiven = 0, kValue = 1, kTextLength = 2, kTextPosition = 3, kEntryCells = 4 };

/// Fields of a custom test record.
enum TestField {
    kForm = 0,
    kRows = 1,
    kFixedCounts = 2,
    kRandomCounts = 3,
    kCoefficients = 4,
    kLabelLength = 5,
    kLabelPosition = 6,
    kKVector = 7
};

/// Kinds of an L matrix row.
enum RowKind { kFixedWithIntercept = 0, kFixedWithoutIntercept = 1, kAllColumns = 2, kRandomByEffects = 3 };

constexpr double kAllColumnsForm = 1.0;
constexpr MCContrastType kNoContrast = 6;
constexpr MCContrastType kSimpleContrast = 0;

long long Field(const double* record, int field) {
    return static_cast<long long>(record[field]);
}

MCPAdjustMethod PAdjust(long long code) {
    if (code == 2) return 1;
    return code == 3 ? 3 : 0;
}

/// Coefficients of a test, taken off one after the other.
class Coefficients {
public:
    explicit Coefficients(const double* next) : fpNext(next) {}
    double One() { return *fpNext++; }
    std::vector<double> Take(int count) {
        if (count <= 0) return {};
        fpNext += count;
        return std::vector<double>(fpNext - count, fpNext);
    }

private:
    const double* fpNext;
};

LMatrixRow AllColumnsRow(int nEffects, int nValues, Coefficients& values) {
    LMatrixRow row;
    row.Setup(kAllColumns, nEffects);
    row.SetAllValues(values.Take(nValues));
    return row;
}

/// counts: coefficients an effect, the intercept's in front if the model has one.
LMatrixRow FixedRow(const std::vector<int>& counts, bool intercept, Coefficients& values) {
    const std::size_t first = intercept ? 1 : 0;
    const int nEffects = static_cast<int>(counts.size() - first);
    LMatrixRow row;
    const int nEffCols = intercept ? counts[0] : 0;
    if (nEffCols == 0) {
        row.Setup(kFixedWithoutIntercept, nEffects);
    } else {
        assert(nEffCols == 1);
        row.Setup(kFixedWithIntercept, nEffects);
        row.SetFirstValue(values.One());
    }
    for (int effect = 0; effect < nEffects; ++effect)
        if (const int count = counts[first + effect]; count > 0) row.AddNewPair(effect, values.Take(count));
    return row;
}

LMatrixRow RandomRow(const std::vector<int>& counts, const std::vector<MCModelEffect>& effects, Coefficients& values) {
    LMatrixRow row;
    row.Setup(kRandomByEffects, static_cast<int>(counts.size()));
    for (std::size_t effect = 0; effect < counts.size(); ++effect)
        if (counts[effect] > 0) row.AddNewPair(effects[effect], values.Take(counts[effect]));
    return row;
}

}  // namespace

bool MIXValidSpecs::FillEMMeansSpec(const double* record, MCEmmeansSpec& spec, const OBS*& refValue,
                                    QVTA_Format& format, std::string& refString, RefCatTypes& refType, bool& refLong,
                                    std::vector<std::string>& fixCovStr) const {
    spec.Reset();
    refValue = nullptr;
    format = QVTA_Format();
    refString.clear();
    refLong = false;

    const int compareFactInd = FillTableFactors(record, spec);
    if (compareFactInd >= 0) format = fpDataSource->GetVariable(compareFactInd).GetFormat();
    FillFixedCovariates(Field(record, kCovariateEntries), spec, fixCovStr);
    spec.SetPAdjust(PAdjust(Field(record, kAdjustment)));

    refType = static_cast<RefCatTypes>(Field(record, kReferenceType));
    spec.SetReferenceType(refType != RefCatLast);
    if (refType == RefCatNumeric) refValue = reinterpret_cast<const OBS*>(record + kReferenceValue);
    if (refType == RefCatString) {
        assert(compareFactInd >= 0);
        const long long length = Field(record, kReferenceValue);
        const long long position = Field(record, kReferenceText);
        refValue = reinterpret_cast<const OBS*>(fpBlockDouble + position - 1);
        refString = CellText(position, length);
        refLong = length > format.fWidth;
    }
    spec.SetContrastType(refType == RefCatNone ? kNoContrast : kSimpleContrast);
    return true;
}

int MIXValidSpecs::FillTableFactors(const double* record, MCEmmeansSpec& spec) const {
    const long long nTabFacts = Field(record, kTableFactors);
    const long long list = Field(record, kTableFactorList);
    std::vector<int> ordinals;
    for (long long k = 0; k < nTabFacts; ++k) {
        ordinals.push_back(LowCell(list + k) - 1);
        spec.AddFactor(fvFactorList[ordinals.back()], 0);
    }
    const long long locComprFactInd = Field(record, kCompareFactor) - 1;
    if (locComprFactInd < 0) return -1;
    assert(locComprFactInd < nTabFacts);
    if (locComprFactInd >= nTabFacts) return -1;
    const int tabComprFactInd = ordinals[locComprFactInd];
    assert(tabComprFactInd >= 0);
    const int compareFactInd = fvFactorList[tabComprFactInd];
    assert(compareFactInd >= 0);
    spec.AddCompareFactor(compareFactInd);
    return compareFactInd;
}

void MIXValidSpecs::FillFixedCovariates(long long entries, MCEmmeansSpec& spec,
                                        std::vector<std::string>& fixCovStr) const {
    fixCovStr.clear();
    for (std::size_t j = 0; j < fvCovariateList.size(); ++j) {
        const double* entry = fpBlockDouble + entries - 1 + kEntryCells * j;
        const long long length = Field(entry, kTextLength);
        const long long position = Field(entry, kTextPosition);
        fixCovStr.push_back(length > 0 && position > 0 ? CellText(position, length) : std::string());
        spec.AddCovariate(fvCovariateList[j], entry[kGiven] < 0.0 ? entry[kValue] : fMissingValue);
    }
}

void MIXValidSpecs::SetEMMeansSpec(const std::vector<MCEmmeansSpec>& specs,
                                   const std::vector<ContrastPair>& contrastPairs,
                                   const std::vector<std::string>& contrastStrings,
                                   const std::vector<RefCatTypes>& refCatTypes,
                                   const std::vector<std::vector<std::string>>& fixCovStrs) {
    [[maybe_unused]] const std::size_t nEMMeans = specs.size();
    [[maybe_unused]] const std::size_t nContrasts = contrastPairs.size();
    [[maybe_unused]] const std::size_t nValues = contrastStrings.size();
    [[maybe_unused]] const std::size_t nRefCatTypes = refCatTypes.size();
    [[maybe_unused]] const std::size_t nvFixCovStr = fixCovStrs.size();
    assert(nEMMeans == nContrasts);
    assert(nEMMeans == nValues);
    assert(nEMMeans == nRefCatTypes);
    assert(nEMMeans == nvFixCovStr);
    if (nEMMeans != nContrasts || nEMMeans != nValues) return;
    fvEMMeansList = specs;
    fvContrastPairList = contrastPairs;
    fvContrastStrings = contrastStrings;
    fvEmmRCTypeList = refCatTypes;
    fvvEmmFixCovStr = fixCovStrs;
}

bool MIXValidSpecs::FillCustomTest(const double* record, CustomTest& test, bool useCompEffects) const {
    test.Reset();
    const int nFixEffExt = LowSlot(slots::kNFixedRows);
    assert(nFixEffExt > 0);
    if (nFixEffExt <= 0) return true;
    const int nRand = LowSlot(slots::kNRandomRows);
    const bool allColumns = record[kForm] == kAllColumnsForm;

    std::vector<int> fixedCounts;
    std::vector<int> randomCounts;
    int nFixVals = static_cast<int>(Field(record, kFixedCounts));
    int nRandVals = static_cast<int>(Field(record, kRandomCounts));
    if (!allColumns) {
        fixedCounts = ReadCounts(nFixVals, nFixEffExt);
        randomCounts = ReadCounts(nRandVals, nRand);
        nFixVals = std::accumulate(fixedCounts.begin(), fixedCounts.end(), 0);
        nRandVals = std::accumulate(randomCounts.begin(), randomCounts.end(), 0);
    }
    if (const long long length = Field(record, kLabelLength); length > 0) {
        const long long intLabPtr = Field(record, kLabelPosition);
        assert(intLabPtr > 0);
        if (intLabPtr > 0) test.SetLabel(CellText(intLabPtr, length));
    }

    const std::vector<MCModelEffect>& randomEffects = useCompEffects ? fvCompRandEffectList : fvRandEffectList;
    const long long nRows = Field(record, kRows);
    Coefficients values(fpBlockDouble + Field(record, kCoefficients) - 1);
    for (long long row = 0; row < nRows; ++row) {
        const LMatrixRow fixed =
            allColumns ? AllColumnsRow(nFixEffExt, nFixVals, values) : FixedRow(fixedCounts, fInterceptInModel, values);
        if (nRandVals == 0) {
            test.AddFixedRow(fixed);
            continue;
        }
        test.AddMixedRow(fixed, allColumns ? AllColumnsRow(nRand, nRandVals, values)
                                           : RandomRow(randomCounts, randomEffects, values));
    }
    if (const long long kVector = Field(record, kKVector); kVector > 0)
        test.SetKMatrix(Coefficients(fpBlockDouble + kVector - 1).Take(static_cast<int>(nRows)));
    return true;
}

std::vector<int> MIXValidSpecs::ReadCounts(long long position, int count) const {
    std::vector<int> counts;
    for (int k = 0; k < count; ++k)
        counts.push_back(LowCell(position + k));
    return counts;
}
