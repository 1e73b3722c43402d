#include "engine/seam/ModelBuilder.h"

#include "engine/seam/Namer.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace engine {

namespace {

ModelEffect ConvertEffect(const MCModelEffect& source) {
    ModelEffect effect;
    effect.fFactors = source.GetFactors();
    const std::vector<int> covariates = source.GetCovariates();
    for (std::size_t i = 0; i < covariates.size(); ++i) {
        effect.fCovariates.push_back({covariates[i], source.GetCovMultiplicities()[i]});
    }
    return effect;
}

RandomBlock ConvertRandom(const GLMMRandomSpec& source) {
    RandomBlock block;
    for (const MCModelEffect& effect : source.GetEffects())
        block.fEffects.push_back(ConvertEffect(effect));
    block.fSubjects = source.GetSubjectVars();
    block.fType = static_cast<CovarianceType>(source.GetCovarianceType());
    return block;
}

ResidualBlock ConvertResidual(const GLMMSettings& settings) {
    const GLMMRandomSpec& source = settings.GetRepeated();
    ResidualBlock block;
    if (!source.GetEffects().empty()) block.fRepeated = source.GetEffects().front().GetFactors();
    block.fSubjects = source.GetSubjectVars();
    block.fSpatial = settings.GetSpatialVars();
    block.fType = static_cast<CovarianceType>(source.GetCovarianceType());
    block.fFirstMeasures = source.GetfvectorAforPaired();
    block.fSecondMeasures = source.GetfvectorBforPaired();
    return block;
}

Criterion ConvertCriterion(bool on, double value, MCConvType type) {
    return {on ? value : 0.0, type == 2};
}

void AddVariables(const MCVarList& variables, ModelSpec& spec) {
    spec.fLevels.assign(variables.Size(), 0);
    for (int i = 0; i < variables.Size(); ++i) {
        const IMCVariable& variable = *variables.GetVarAt(i);
        if (variable.IsCategorical()) spec.fLevels[i] = variable.GetCategoryCount();
        if (variable.GetRole() == IMCVariable::kWeightRole) spec.fFrequencyWeight = i;
    }
}

void AddHiddenColumn(int column, int levels, ModelSpec& spec) {
    if (column >= static_cast<int>(spec.fLevels.size())) spec.fLevels.resize(column + 1, 0);
    spec.fLevels[column] = levels;
}

void AddRunChoices(const run::RunValue& run, ModelSpec& spec) {
    spec.fThreads = run.fThreads;
    const run::HiddenColumns& hidden = run.fHidden;
    if (hidden.fResidualGroup >= 0) {
        spec.fResidual.fGroup = hidden.fResidualGroup;
        AddHiddenColumn(hidden.fResidualGroup, static_cast<int>(hidden.fvResidualGroupTexts.size()), spec);
    }
    const std::size_t blocks = std::min(hidden.fRandomGroups.size(), spec.fRandom.size());
    for (std::size_t b = 0; b < blocks; ++b) {
        if (hidden.fRandomGroups[b] < 0) continue;
        spec.fRandom[b].fGroup = hidden.fRandomGroups[b];
        AddHiddenColumn(hidden.fRandomGroups[b], static_cast<int>(hidden.fvRandomGroupTexts[b].size()), spec);
    }
    for (int column : {hidden.fTrials, hidden.fOffset})
        if (column >= 0) AddHiddenColumn(column, 0, spec);
    if (hidden.fOffset >= 0) spec.fOffset = hidden.fOffset;
    if (run.fTarget.fOffsetValue != 0.0) spec.fOffsetValue = run.fTarget.fOffsetValue;
    if (run.fProgress) {
        run.Say({.fPhase = "fitting"});
        spec.fProgress = [&run, before = 0.0](const FitProgress& progress) mutable {
            const double change = progress.fIteration > 1 ? std::abs(before - progress.fObjective) : 0.0;
            run.Say({.fPhase = "fitting", .fIteration = progress.fIteration, .fChange = change});
            before = progress.fObjective;
        };
    }
}

void AddCategories(const run::RunValue& run, TargetSpec& target) {
    target.fCategoryNames = run.fTargetCategories;
    target.fCategories = static_cast<int>(run.fTargetCategories.size());
    std::vector<double> values;
    for (const std::string& text : run.fTargetCategories) {
        double value = 0.0;
        const auto end = std::from_chars(text.data(), text.data() + text.size(), value);
        if (end.ec == std::errc() && end.ptr == text.data() + text.size()) values.push_back(value);
    }
    if (values.size() == run.fTargetCategories.size()) target.fCategoryValues = std::move(values);
    const auto named = run.fTarget.fReference ? std::find(target.fCategoryNames.begin(), target.fCategoryNames.end(),
                                                          *run.fTarget.fReference)
                                              : target.fCategoryNames.end();
    if (named != target.fCategoryNames.end()) {
        target.fReference = static_cast<int>(named - target.fCategoryNames.begin());
    } else if (run.fTarget.fReferenceEnd == run::ReferenceEnd::kFirst) {
        target.fReference = 0;
    } else if (run.fTarget.fReferenceEnd == run::ReferenceEnd::kLast) {
        target.fReference = target.fCategories - 1;
    }
}

}  // namespace

ModelSpec BuildModelSpec(const GLMMSettings& settings, const MCVarList* variables, const run::RunValue* run) {
    ModelSpec spec;
    spec.fDependent = settings.GetDependent();
    spec.fIntercept = settings.GetInterceptUse();
    for (const MCModelEffect& effect : settings.GetModelEffects())
        spec.fFixed.push_back(ConvertEffect(effect));
    for (const GLMMRandomSpec& block : settings.GetRandomSpecs())
        spec.fRandom.push_back(ConvertRandom(block));
    spec.fResidual = ConvertResidual(settings);
    spec.fRegressionWeight = settings.GetRegrWeightVar();
    spec.fOffset = settings.GetOffset();
    spec.fOffsetValue = settings.GetOffsetValue();

    spec.fRestricted = settings.GetThetaEstType() == 1;
    spec.fDf = static_cast<DfMethod>(settings.GetDegreesFreedomType());
    spec.fTypeI = settings.GetEffectAnalysisType() == 0;
    spec.fTolerance = settings.GetTolerance();
    spec.fConfidence = settings.GetConfidenceLevel();
    spec.fMaxIterations = settings.GetMaxIterations();
    spec.fMaxHalvings = settings.GetMaxStepHalvingValue();
    const bool newtonOnly = settings.GetHessianCompMethod() == 2;
    // The limit of scoring iterations counts the start as one of them, unless every step is a Newton step.
    spec.fFisherSteps = std::max(0, settings.GetMaxFisherIterNum() - (newtonOnly ? 0 : 1));
    spec.fLikelihoodCriterion =
        ConvertCriterion(settings.GetloglikelihoodCheck(), settings.GetLLConCriterion(), settings.GetLConvergeType());
    spec.fParameterCriterion =
        ConvertCriterion(settings.GetparameterCheck(), settings.GetParamEstConCriterion(), settings.GetPConvergeType());
    spec.fHessianCriterion =
        ConvertCriterion(settings.GethessianCheck(), settings.GetToleranceHessian(), settings.GetHConvergeType());

    if (variables) AddVariables(*variables, spec);
    if (run) AddRunChoices(*run, spec);
    // Thresholds are an ordinal target's intercepts: it can't do without them.
    if (run && run->fTarget.fDistribution == run::Distribution::kOrdinal) spec.fIntercept = true;
    return spec;
}

bool IsGeneralized(const run::RunValue* run) {
    return run &&
           (run->fTarget.fDistribution != run::Distribution::kNormal || run->fTarget.fLink != run::Link::kIdentity);
}

TargetSpec BuildTargetSpec(const ModelSpec& spec, const MCVarList& variables, const run::RunValue& run) {
    TargetSpec target;
    target.fDistribution = run.fTarget.fDistribution;
    target.fLink = run.fTarget.fLink;
    target.fLinkPower = run.fTarget.fLinkPower;
    target.fDispersion = run.fTarget.fDispersion;
    if (run.fTarget.fNonEventsVar >= 0) {
        target.fNonEvents = run.fHidden.fTrials;
    } else if (run.fTarget.fTrialsVar >= 0) {
        target.fTrials = run.fHidden.fTrials;
    } else {
        target.fTrialsValue = run.fTarget.fTrialsValue;
    }
    target.fName = Namer(variables).Variable(spec.fDependent);
    target.fFindRow = run.fRecords.fFindRow;
    target.fTermName = [&variables, effects = spec.FixedEffects()](int effect, const std::vector<int>& levels) {
        return Namer(variables).Term(effects[effect], levels);
    };
    if (run.fTarget.IsCategorical()) AddCategories(run, target);
    return target;
}

RecordView ViewRecords(MultiPassRecordIter& data, const run::RunValue* run, std::vector<double>& storage) {
    RecordView view;
    if (run && run->fRecords.fpIterator == &data) {
        view.fData = run->fRecords.fpValues;
        view.fCount = run->fRecords.fCount;
        view.fStride = run->fRecords.fStride;
        return view;
    }
    storage.clear();
    while (data.HasMore()) {
        const Record* record = data.Next();
        if (!record) break;
        view.fStride = record->fSize;
        storage.insert(storage.end(), record->fpValues, record->fpValues + record->fSize);
        ++view.fCount;
    }
    view.fData = storage.data();
    return view;
}

}  // namespace engine
