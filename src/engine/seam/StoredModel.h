#pragma once

#include "contracts/EngineSettings.h"
#include "contracts/EngineVariables.h"
#include "engine/documents/ScoringDocument.h"
#include "engine/glmm/WorkingModel.h"
#include "engine/lmm/FitResult.h"
#include "engine/seam/Scorer.h"
#include "run/RunValue.h"

#include <memory>
#include <string>
#include <vector>

namespace engine {

/// The scoring part of a fitted model. variables and run: of the split that it was fitted to. Errors of the random
/// effects are left out when they are more numbers than a model file may have.
ScoringContent MakeScoringContent(const FitResult& fit, const ModelSpec& spec, const WorkingModel* generalized,
                                  const TargetSpec& target, const MCVarList& variables, const run::RunValue& run);

/// A model that was read from its file, ready to score records. Records have the columns of the model's own, categories
/// as codes; a subject that is not among the model's has the code -1 or one beyond its categories.
class StoredModel {
public:
    /// Null with the problem, as ReadScoring says it, when the document holds no model that can score.
    static std::unique_ptr<StoredModel> Read(const std::string& document, std::string& problem);
    ~StoredModel();

    /// What a column is there for. Without the value of a column for the fixed part nothing can be predicted, without
    /// one for the random part only the fixed part; without a subject the prediction is that of the population.
    struct Column : ScoringContent::Column {
        bool fFixed = false;
        bool fRandom = false;
        bool fSubject = false;
    };
    const std::vector<Column>& Columns() const { return fColumns; }
    /// The values of the split variables that the model belongs to.
    const run::Levels& Split() const { return fContent.fSplit; }

    /// Scores the model's records; this object outlives it.
    Scorer MakeScorer(const std::vector<ScoreType>& types) const;
    /// What predictions with random effects lack since it was too much for the file; empty for nothing.
    std::string Lacks() const;

private:
    StoredModel() = default;
    bool Assemble();
    void MarkColumns();

    ScoringContent fContent;
    std::vector<Column> fColumns;
    std::shared_ptr<WorkingModel> fGeneralized;
    FitResult fFit;
};

}  // namespace engine
