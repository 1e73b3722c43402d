#include "engine/seam/StoredModel.h"

#include "engine/lmm/FittedModel.h"
#include "engine/lmm/MixedContrasts.h"
#include "engine/seam/Namer.h"

#include <algorithm>

namespace engine {

namespace {

constexpr double kMostErrorNumbers = 3e6;

std::vector<ScoringContent::Column> RecordColumns(const ModelSpec& spec, const MCVarList& variables,
                                                  const run::RunValue& run) {
    const Namer namer(variables, &run.fHidden);
    std::vector<ScoringContent::Column> columns;
    const int width = std::max(variables.Size(), static_cast<int>(run.fHidden.fvNames.size()));
    for (int v = 0; v < width; ++v) {
        const IMCVariable* variable = variables.GetVarAt(v);
        ScoringContent::Column column{namer.Variable(v), variable && variable->IsString(), {}, false};
        column.fCategorical = v < static_cast<int>(spec.fLevels.size()) && spec.fLevels[v] > 0;
        for (int code = 0; column.fCategorical && variable && code < spec.fLevels[v]; ++code)
            column.fCategories.push_back(variable->GetCategoryText(code));
        columns.push_back(std::move(column));
    }
    return columns;
}

}  // namespace

ScoringContent MakeScoringContent(const FitResult& fit, const ModelSpec& spec, const WorkingModel* generalized,
                                  const TargetSpec& target, const MCVarList& variables, const run::RunValue& run) {
    const FittedModel& model = *fit.fModel;
    ScoringContent content;
    content.fSplit = run.fSplit;
    content.fColumns = RecordColumns(spec, variables, run);
    content.fSpec = spec;
    content.fGeneralized = generalized != nullptr;
    content.fTarget = target;
    content.fKept = model.Basis().Kept();
    content.fSpan = model.Basis().Span();
    content.fTotalFrequency = model.Basis().TotalFrequency();
    content.fFixed = model.fInference->Keep();
    content.fThetaCovariance = model.fThetaCovariance;
    if (spec.fRandom.empty()) return content;
    const int blocks = generalized ? generalized->RandomBlocks() : static_cast<int>(spec.fRandom.size());
    content.fRandom = model.Mixed().Source().Keep().ForBlocks(blocks);
    content.fRandom.Shorten(kMostErrorNumbers);
    return content;
}

StoredModel::~StoredModel() = default;

std::unique_ptr<StoredModel> StoredModel::Read(const std::string& document, std::string& problem) {
    std::unique_ptr<StoredModel> model(new StoredModel);
    model->fContent = ReadScoring(document, problem);
    if (!problem.empty()) return nullptr;
    if (!model->Assemble()) {
        problem = "has a scoring part whose pieces don't go together";
        return nullptr;
    }
    model->MarkColumns();
    return model;
}

bool StoredModel::Assemble() {
    ModelSpec spec = fContent.fSpec;
    spec.fThreads = 1;
    const RecordView none{nullptr, 0, fContent.fColumns.size()};
    if (fContent.fGeneralized) {
        fGeneralized = MakeWorkingModel(spec, fContent.fTarget, none);
        spec = fGeneralized->Spec();
    }
    auto model = std::make_shared<FittedModel>(spec, none);
    if (EffectDesign(spec.FixedEffects(), spec.fLevels).NumColumns() != fContent.fSpan.cols()) return false;
    model->fOwnBasis = std::make_unique<FixedBasis>(spec, fContent.fKept, fContent.fSpan, fContent.fTotalFrequency);
    model->fInference = std::make_unique<Inference>(*model->fOwnBasis, spec.fDf, spec.fConfidence, fContent.fFixed);
    model->fThetaCovariance = fContent.fThetaCovariance;
    model->fTheta = Eigen::VectorXd::Zero(fContent.fThetaCovariance.rows());
    for (const RandomState::Unit& unit : fContent.fRandom.fUnits) {
        for (const RandomState::Part& part : unit.fParts) {
            if (part.fBlock >= static_cast<int>(spec.fRandom.size())) return false;
            const RandomBlock& block = spec.fRandom[part.fBlock];
            const bool fits = part.fSubject.size() == block.fSubjects.size() &&
                              EffectDesign(block.fEffects, spec.fLevels).NumColumns() == part.fWidth;
            if (!fits) return false;
        }
    }
    model->UseState(std::move(fContent.fRandom));
    fFit.fModel = std::move(model);
    return true;
}

void StoredModel::MarkColumns() {
    for (const ScoringContent::Column& column : fContent.fColumns)
        fColumns.push_back({column});
    const ModelSpec& spec = fContent.fSpec;
    const auto mark = [this](const std::vector<ModelEffect>& effects, bool Column::*use) {
        for (const ModelEffect& effect : effects) {
            for (int factor : effect.fFactors)
                fColumns[factor].*use = true;
            for (const EffectCovariate& covariate : effect.fCovariates)
                fColumns[covariate.fVariable].*use = true;
        }
    };
    mark(spec.fFixed, &Column::fFixed);
    for (const RandomBlock& block : spec.fRandom) {
        mark(block.fEffects, &Column::fRandom);
        for (int subject : block.fSubjects)
            fColumns[subject].fSubject = true;
    }
    const auto needed = [this](int column) {
        if (column >= 0) fColumns[column].fFixed = true;
    };
    needed(spec.fOffset);
    if (!fContent.fGeneralized) return;
    needed(fContent.fTarget.fTrials);
    needed(fContent.fTarget.fNonEvents);
    if (fContent.fTarget.fNonEvents >= 0) needed(spec.fDependent);
}

Scorer StoredModel::MakeScorer(const std::vector<ScoreType>& types) const {
    return Scorer({fFit, fContent.fSpec, fGeneralized.get()}, types);
}

std::string StoredModel::Lacks() const {
    if (fContent.fSpec.fRandom.empty()) return {};
    const RandomSource& source = fFit.fModel->Mixed().Source();
    if (!source.HasErrors()) return "standard errors";
    const bool varies = fContent.fSpec.fDf == DfMethod::kSatterthwaite && !fFit.fModel->fThetaCovariance.isZero();
    return varies && !source.HasSlopes() ? "degrees of freedom" : std::string();
}

}  // namespace engine
