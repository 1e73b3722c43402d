#include "procedure/CommandRecords.h"
#include "procedure/MIXValidSpecs.h"

#include <cassert>
#include <map>

namespace {

constexpr MCContrastType kSimpleContrast = 0;
constexpr MCContrastType kMetricContrast = 5;
constexpr MCOffsetType kOffsetVariable = 1;

/// Host to record index of variables declared side by side; a repeated variable keeps its first place.
std::map<int, int> IndexMap(const std::vector<int>& hostIndices, const std::vector<int>& recordIndices) {
    std::map<int, int> places;
    for (std::size_t i = 0; i < hostIndices.size() && i < recordIndices.size(); ++i)
        places.emplace(hostIndices[i], recordIndices[i]);
    return places;
}

}  // namespace

// Categorical variables and coordinates follow the command's word on user-missing values; the other numeric variables
// never take them.

void MIXValidSpecs::CompleteSpecs() {
    fpVarValidSpecs = new ACAVarValidSpecs(true, true, true);
    fpCompSettings = new GLMMSettings;
    fpStopProcessor = new ACAStopProcessor(0.0);
    DeclareModelVariables();
    CompleteEffects();
    CompleteCustomTests();
    CompleteEMMeans();
    fpVarValidSpecs->SetMultRecode(true);
    DeclareFurtherVariables();
    CompleteRandomBlocks();
    DeclareRepeatedVariables();
    CompleteRepeatedBlocks();
    CompleteSettings(fpCompSettings, nullptr, -1);
}

void MIXValidSpecs::DeclareModelVariables() {
    if (fDependVar >= 0) fCompDependVar = fpVarValidSpecs->AddVariable(fDependVar, false, false, true, true);
    if (!fvFactorList.empty())
        fpVarValidSpecs->AddVariables(fvFactorList, fvCompFactorList, true, false, !fClassMissInclude, true);
    if (!fvCovariateList.empty())
        fpVarValidSpecs->AddVariables(fvCovariateList, fvCompCovariateList, false, false, true, true);
    fvCompPredictorList = fvCompFactorList;
    fvCompPredictorList.insert(fvCompPredictorList.end(), fvCompCovariateList.begin(), fvCompCovariateList.end());
    if (fQvtaWeightIndex >= 0) fCompQvtaWeightIndex = fpVarValidSpecs->SetWeightVar();
}

void MIXValidSpecs::CompleteEffects() {
    for (const MCModelEffect& effect : fvModelEffectList)
        CreateCompEffect(effect, fvCompModelEffectList.emplace_back());
    for (const MCModelEffect& effect : fvRandEffectList)
        CreateCompEffect(effect, fvCompRandEffectList.emplace_back());
}

// The tests are read a second time, so that their random coefficients hold engine effects.
void MIXValidSpecs::CompleteCustomTests() {
    const int count = LowSlot(slots::kNCustomTests);
    for (int ordinal = 1; ordinal <= count; ++ordinal) {
        CustomTest test;
        const bool custTestOK = FillCustomTest(ChainRecord(slots::kCustomTestChain, ordinal), test, true);
        assert(custTestOK);
        if (custTestOK) fvCompCustomTests.push_back(test);
    }
}

void MIXValidSpecs::CompleteEMMeans() {
    for (const MCEmmeansSpec& request : fvEMMeansList) {
        MCEmmeansSpec target;
        const bool emMeansOK = CreateCompEMMeans(request, target);
        assert(emMeansOK);
        if (emMeansOK) fvCompEMMeansList.push_back(target);
    }
}

void MIXValidSpecs::DeclareFurtherVariables() {
    if (fOffsetType == kOffsetVariable && fOffsetIndex >= 0)
        fCompOffsetIndex = fpVarValidSpecs->AddVariable(fOffsetIndex, false, false, true, true);
    if (fRegrWeightIndex >= 0)
        fCompRegrWeightIndex = fpVarValidSpecs->AddVariable(fRegrWeightIndex, false, false, true, true);
    if (!fvRandSubjVars.empty())
        fpVarValidSpecs->AddVariables(fvRandSubjVars, fvCompRandSubjVars, true, false, !fClassMissInclude, true);
}

void MIXValidSpecs::CompleteRandomBlocks() {
    for (const GLMMRandomSpec& spec : fvRandomList) {
        GLMMRandomSpec target;
        const bool randomOK = CreateCompRandom(spec, target, RandomBlock);
        assert(randomOK);
        if (randomOK) fvCompRandomList.push_back(target);
    }
}

void MIXValidSpecs::DeclareRepeatedVariables() {
    DeclareRepeatedSubjects();
    if (!fvSpatVarInds.empty())
        fpVarValidSpecs->AddVariables(fvSpatVarInds, fvCompSpatVarInds, false, false, !fClassMissInclude, true);
    if (!fvRepeatedVars.empty())
        fpVarValidSpecs->AddVariables(fvRepeatedVars, fvCompRepeatedVars, true, false, !fClassMissInclude, true);
}

// A subject variable that the random blocks have too takes one place in the record.
void MIXValidSpecs::DeclareRepeatedSubjects() {
    if (fvRepSubjVars.empty()) return;
    const std::map<int, int> randSubjIndMap = IndexMap(fvRandSubjVars, fvCompRandSubjVars);
    if (randSubjIndMap.empty()) {
        fpVarValidSpecs->AddVariables(fvRepSubjVars, fvCompRepSubjVars, true, false, !fClassMissInclude, true);
        return;
    }
    fvCompRepSubjVars.clear();
    for (const int variable : fvRepSubjVars) {
        const auto shared = randSubjIndMap.find(variable);
        const int compSubjVar = shared != randSubjIndMap.end()
                                    ? shared->second
                                    : fpVarValidSpecs->AddVariable(variable, true, false, !fClassMissInclude, true);
        assert(compSubjVar >= 0);
        fvCompRepSubjVars.push_back(compSubjVar);
    }
}

// A Kronecker measure is a repeated variable seen a second time: it gets no place of its own in the record.
void MIXValidSpecs::CompleteRepeatedBlocks() {
    [[maybe_unused]] const bool repeatOK = CreateCompRandom(fRepeatedSpec, fCompRepeatedSpec, RepeatedBlock);
    assert(repeatOK);
    for (std::size_t i = 0; i < fvKronVars.size(); ++i) {
        const int position = fvKronPairs[i];
        const bool paired = position >= 0 && position < Count(fvCompRepeatedVars);
        assert(paired && fvKronVars[i] == fvRepeatedVars[position]);
        if (paired) fvCompKronVars.push_back(fvCompRepeatedVars[position]);
    }
    [[maybe_unused]] const bool kronOK = CreateCompRandom(fKronSpec, fCompKronSpec, KroneckerBlock);
    assert(kronOK);
}

bool MIXValidSpecs::CreateCompEffect(const MCModelEffect& source, MCModelEffect& target) const {
    target = source;
    target.SetVarIndices(fvCompPredictorList);
    std::vector<int> recordIndices;
    for (const int predInd : source.GetVarsIndicesForTheEffectInSetting()) {
        assert(predInd >= 0);
        const int compPredInd = fpVarValidSpecs->GetRecVarIndex(predInd);
        assert(compPredInd >= 0);
        recordIndices.push_back(compPredInd);
    }
    target.SetVarsIndicesForTheEffectInSetting(recordIndices);
    return true;
}

bool MIXValidSpecs::CreateCompRandom(const GLMMRandomSpec& source, GLMMRandomSpec& target, RandomSpecTypes type) const {
    target.Reset(false);
    const std::vector<int>& measures = type == KroneckerBlock ? fvCompKronVars : fvCompRepeatedVars;
    for (MCModelEffect effect : source.GetEffects()) {
        if (type == RandomBlock) {
            const MCModelEffect hostEffect = effect;
            CreateCompEffect(hostEffect, effect);
        } else {
            effect.SetVarIndices(measures);
            effect.SetVarsIndicesForTheEffectInSetting(measures);
        }
        target.AddEffect(effect);
    }
    AddCompSubjects(source, target, type);
    target.SetCovarianceType(source.GetCovarianceType());
    if (type == RepeatedBlock) {
        // Positions in the measure list, not variables.
        target.SetfvectorAforPaired(source.GetfvectorAforPaired());
        target.SetfvectorBforPaired(source.GetfvectorBforPaired());
    }
    target.SetIndex(source.GetIndex());
    target.SetComputeEBLUPs(source.GetComputeEBLUPs());
    return true;
}

void MIXValidSpecs::AddCompSubjects(const GLMMRandomSpec& source, GLMMRandomSpec& target, RandomSpecTypes type) const {
    const std::map<int, int> randSubjIndMap = IndexMap(fvRandSubjVars, fvCompRandSubjVars);
    const std::vector<int>& subjects = source.GetSubjectVars();
    for (std::size_t j = 0; j < subjects.size(); ++j) {
        const int qvtaSubjVar = subjects[j];
        assert(qvtaSubjVar >= 0);
        int compSubjVar = -1;
        if (type == RandomBlock) {
            const auto place = randSubjIndMap.find(qvtaSubjVar);
            assert(randSubjIndMap.find(qvtaSubjVar) != randSubjIndMap.end());
            if (place != randSubjIndMap.end()) compSubjVar = place->second;
        } else if (j < fvCompRepSubjVars.size()) {
            compSubjVar = fvCompRepSubjVars[j];
        }
        assert(compSubjVar >= 0);
        if (compSubjVar >= 0) target.AddSubjectVar(compSubjVar);
    }
}

// The reference type stays behind: the engine learns the contrast, its reference category and the adjustment only.
bool MIXValidSpecs::CreateCompEMMeans(const MCEmmeansSpec& source, MCEmmeansSpec& target) const {
    target.Reset();
    const std::vector<int>& factors = source.GetFactors();
    const std::vector<int>& nestLevels = source.GetFactorsNestLevel();
    for (std::size_t i = 0; i < factors.size(); ++i) {
        const int factor = fpVarValidSpecs->GetRecVarIndex(factors[i]);
        const int level = nestLevels.size() == factors.size() ? nestLevels[i] : 0;
        if (factor < 0 || target.AddFactor(factor, level) < 0) return false;
    }
    for (const auto& [hostIndex, value] : source.GetCovariates()) {
        const int covariate = fpVarValidSpecs->GetRecVarIndex(hostIndex);
        if (covariate < 0 || target.AddCovariate(covariate, value) < 0) return false;
    }
    if (!target.SetEmmScaleType(source.GetEmmScaleType())) return false;
    for (const int hostIndex : source.GetCompareFactors()) {
        const int factor = fpVarValidSpecs->GetRecVarIndex(hostIndex);
        if (factor < 0 || target.AddCompareFactor(factor) < 0) return false;
    }
    if (!target.SetContrastType(source.GetContrastType())) return false;
    if (source.GetContrastType() == kSimpleContrast) target.SetRefCateg(source.GetRefCateg());
    if (source.GetContrastType() == kMetricContrast && !target.SetMetricValueList(source.GetMetricValueList()))
        return false;
    return target.SetPAdjust(source.GetPAdjust());
}
