#include "contracts/EngineAlgorithm.h"
#include "contracts/EngineDisplay.h"
#include "engine/documents/BlupJson.h"
#include "engine/documents/PmmlWriter.h"
#include "engine/documents/StatXmlWriter.h"
#include "engine/glmm/GlmmFit.h"
#include "engine/lmm/LmmFit.h"
#include "engine/means/MeansResults.h"
#include "engine/seam/ModelBuilder.h"
#include "engine/seam/ResultWriter.h"
#include "engine/seam/Scorer.h"
#include "engine/seam/StoredModel.h"
#include "run/RunValue.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <new>
#include <optional>
#include <sstream>

namespace engine {

namespace {

constexpr long kInvalidSettings = 130009;
constexpr long kNotBuilt = 130018;
constexpr long kMachineFailed = 130089;
constexpr long kFileError = 130093;

/// What the engine keeps of a split for scoring.
struct KeptModel : run::FittedModel {
    ModelSpec fSpec;
    FitResult fFit;
    std::shared_ptr<const WorkingModel> fGeneralized;  ///< null for a linear mixed model
    TargetSpec fTarget;                                ///< of a generalized model
    RecordSummary fSummary;
    MeansResults fMeans;
};

}  // namespace

}  // namespace engine

namespace {

/// The fitted values of the records. Some targets are fitted to records that stand as often as their frequency says.
engine::FittedRun FittedOf(const engine::GlmmResult& fitted, const engine::ModelSpec& spec,
                           const engine::RecordView& records) {
    if (fitted.fFitted.size() == records.fCount) {
        return [&fitted](std::size_t from, std::size_t count, double* out) {
            std::copy_n(fitted.fFitted.begin() + static_cast<std::ptrdiff_t>(from), count, out);
        };
    }
    std::vector<std::size_t> first;
    std::size_t next = 0;
    for (std::size_t i = 0; i < records.fCount; ++i) {
        first.push_back(next);
        next += spec.fFrequencyWeight < 0 ? 1 : std::lround(records.Row(i)[spec.fFrequencyWeight]);
    }
    return [&fitted, first](std::size_t from, std::size_t count, double* out) {
        for (std::size_t i = 0; i < count; ++i)
            out[i] = fitted.fFitted[std::min(first[from + i], fitted.fFitted.size() - 1)];
    };
}

}  // namespace

struct GLMMAlgorithm::Impl {
    Impl(GLMMSettings const& settings, MCVarList const& variables)
        : fSettings(settings), fVariables(variables), fpRun(run::Current()), fpCancel(settings.GetCancelPointer()) {
        if (!settings.IsValidSettings()) fStatus = MCStatus(engine::kInvalidSettings, false);
        for (const GLMMRandomSpec& block : settings.GetRandomSpecs())
            fvBlups.push_back(block.GetComputeEBLUPs());
    }

    MCStatus Fit(MultiPassRecordIter& data);
    MCStatus StreamStatus(std::ostream& stream);
    MCStatus TakeKeptModel();
    void Keep(engine::ModelSpec spec, engine::GlmmResult result, engine::TargetSpec target,
              const engine::RecordView& records);
    void LeaveDocuments();
    void LeaveModel();
    void WriteModel(const MCApplicInfo4XML& application, std::ostream& stream) const;
    void GiveUpForMemory();
    void AddMeans(engine::KeptModel& model, const engine::RecordView& records);
    engine::DocumentSource Documents() const;
    bool WantsDocuments() const;
    bool BlupsWanted() const { return std::find(fvBlups.begin(), fvBlups.end(), true) != fvBlups.end(); }

    GLMMSettings const& fSettings;
    MCVarList const& fVariables;
    run::RunValue* fpRun;
    run::RunValue fNoRun;  ///< stands in for a host that has none
    MCQueryCancel* fpCancel;
    ProgressListener* fpListener = nullptr;
    std::atomic<bool> fCancelled{false};
    MCStatus fStatus;
    std::vector<MCStatus> fvWarnings;
    std::vector<ScoreType> fvScoreTypes;
    std::vector<bool> fvBlups;  ///< per random block: predictions are asked for
    std::shared_ptr<const engine::KeptModel> fpModel;
    std::optional<engine::Scorer> fScorer;  ///< of the model, once it is asked to score
    std::optional<GLMMOutputStats> fStats;
};

MCStatus GLMMAlgorithm::Impl::Fit(MultiPassRecordIter& data) {
    if (data.NewPass() != 0) {
        fStatus = MCStatus(engine::kMachineFailed, false);
        fStatus.SetDetail("The records of this split could not be read again.");
        return fStatus;
    }
    engine::ModelSpec spec = engine::BuildModelSpec(fSettings, &fVariables, fpRun);
    spec.fCancelled = [this] { return fCancelled || (fpCancel && fpCancel->CheckCancel()); };
    if (fpListener) {
        spec.fProgress = [this, limit = spec.fMaxIterations](const engine::FitProgress& progress) {
            fpListener->OnProgress("fitting", static_cast<double>(progress.fIteration) / limit);
        };
    }
    std::vector<double> storage;
    const engine::RecordView records = engine::ViewRecords(data, fpRun, storage);
    if (engine::IsGeneralized(fpRun)) {
        const engine::TargetSpec target = engine::BuildTargetSpec(spec, fVariables, *fpRun);
        spec.fResidual.fUnitScale = engine::HoldsScale(spec, target);
        Keep(spec, engine::FitGlmm(spec, target, records), target, records);
    } else {
        Keep(spec, {engine::FitLmm(spec, records), nullptr, {}}, {}, records);
    }
    return fStatus;
}

/// A stream that went bad is noted for the host, which alone puts files in their place.
MCStatus GLMMAlgorithm::Impl::StreamStatus(std::ostream& stream) {
    if (stream.flush()) return {};
    if (fpRun) fpRun->fStreamFailed = true;
    return {engine::kFileError, false};
}

/// The split's model was fitted by an earlier walk over the same command.
MCStatus GLMMAlgorithm::Impl::TakeKeptModel() {
    const run::SplitResult& result = fpRun->Result(fpRun->fSplitOrdinal);
    fpModel = std::dynamic_pointer_cast<const engine::KeptModel>(result.fpModel);
    fStatus = fpModel ? engine::ConvertStatus(fpModel->fFit.fStatus) : MCStatus(engine::kInvalidSettings, false);
    return fStatus;
}

void GLMMAlgorithm::Impl::Keep(engine::ModelSpec spec, engine::GlmmResult fitted, engine::TargetSpec target,
                               const engine::RecordView& records) {
    engine::FitResult& fit = fitted.fFit;
    fStatus = engine::ConvertStatus(fit.fStatus);
    fvWarnings.clear();
    for (const engine::FitStatus& warning : fit.fWarnings)
        fvWarnings.push_back(engine::ConvertStatus(warning));
    if (fpRun) {
        run::SplitResult& result = fpRun->Result(fpRun->fSplitOrdinal);
        result.fSplit = fpRun->fSplit;
        result.fName = fpRun->fSplitName;
        result.fFigures = engine::MakeFigures(
            {fit, spec, fVariables, *fpRun, fitted.fModel.get(), fSettings.GetIterationFrequency()});
    }
    if (fStatus.IsError() || !fit.HasEstimates()) return;

    fStats = engine::MakeOutputStats(fit, spec, fSettings);
    auto model = std::make_shared<engine::KeptModel>();
    if (WantsDocuments()) {
        const engine::FittedRun prediction =
            fitted.fModel ? FittedOf(fitted, spec, records) : engine::LinearPredictor(fit, spec, records);
        model->fSummary = engine::SummariseRecords(fit, spec, fitted.fModel ? &target : nullptr, records, prediction);
    }
    model->fSpec = std::move(spec);
    model->fFit = std::move(fit);
    model->fGeneralized = std::move(fitted.fModel);
    model->fTarget = std::move(target);
    if (fpRun) fpRun->Say({.fPhase = "estimating means"});
    AddMeans(*model, records);
    // Scoring and files come when the records may be gone.
    if (!fvScoreTypes.empty() || (fpRun && fpRun->fWishes.fFiles)) model->fFit.KeepPredictions();
    fpModel = model;
    if (!fpRun) return;
    fpRun->Result(fpRun->fSplitOrdinal).fpModel = model;
    if (WantsDocuments()) fpRun->Say({.fPhase = "writing documents"});
    if (fpRun->fWishes.fDocuments)
        LeaveDocuments();
    else if (fpRun->fWishes.fFiles)
        LeaveModel();
}

/// What follows from the fit on request: estimated means and custom tests.
void GLMMAlgorithm::Impl::AddMeans(engine::KeptModel& model, const engine::RecordView& records) {
    const run::RunValue& run = fpRun ? *fpRun : fNoRun;
    model.fMeans = engine::EstimateMeans(model.fFit, model.fSpec, engine::AverageRecords(model.fSpec, records),
                                         engine::TargetScale(run.fTarget, model.fGeneralized.get()), fSettings, run,
                                         WantsDocuments());
    for (const MCStatus& warning : model.fMeans.Warnings()) {
        fvWarnings.push_back(warning);
        fStats->fvWarnings.push_back(warning);
    }
    if (!fpRun) return;
    model.fMeans.AddFigures(run, model.fSpec.fDependent, engine::Namer(fVariables, &run.fHidden),
                            fpRun->Result(fpRun->fSplitOrdinal).fFigures);
}

bool GLMMAlgorithm::Impl::WantsDocuments() const {
    return !fpRun || fpRun->fWishes.fDocuments || fpRun->fWishes.fFiles;
}

engine::DocumentSource GLMMAlgorithm::Impl::Documents() const {
    return {fpModel->fFit,     fpModel->fSpec,  fVariables,       fpRun ? *fpRun : fNoRun,
            fpModel->fSummary, fpModel->fMeans, fpModel->fTarget, fpModel->fGeneralized.get()};
}

/// What write puts into a stream. A stream that lacks memory would end early without a word.
template <class Write>
static std::string TextOf(Write write) {
    std::ostringstream stream;
    stream.exceptions(std::ios::badbit);
    write(stream);
    return std::move(stream).str();
}

/// The second half of the system is called back with these.
void GLMMAlgorithm::Impl::LeaveDocuments() {
    run::SplitResult& result = fpRun->Result(fpRun->fSplitOrdinal);
    result.fPMML = TextOf([this](std::ostream& stream) { engine::WritePmml(Documents(), {}, stream); });
    result.fStatXML = TextOf([this](std::ostream& stream) { engine::WriteStatXml(Documents(), stream); });
    if (BlupsWanted())
        result.fStatJSON =
            TextOf([this](std::ostream& stream) { engine::WriteBlupJson(Documents(), fvBlups, stream); });
}

/// Without a second half the run leaves what a model file would hold.
void GLMMAlgorithm::Impl::LeaveModel() {
    fpRun->Result(fpRun->fSplitOrdinal).fPMML = TextOf([this](std::ostream& stream) { WriteModel({}, stream); });
}

/// The model with what scoring needs.
void GLMMAlgorithm::Impl::WriteModel(const MCApplicInfo4XML& application, std::ostream& stream) const {
    engine::DocumentSource source = Documents();
    const engine::ScoringContent scoring = engine::MakeScoringContent(source.fFit, source.fSpec, source.fGeneralized,
                                                                      source.fTarget, source.fVariables, source.fRun);
    source.fpScoring = &scoring;
    engine::WritePmml(source, application, stream);
}

/// Whatever was fitted before the memory ran out, nothing of it is shown.
void GLMMAlgorithm::Impl::GiveUpForMemory() {
    const char* const remedy =
        "There is not enough memory for this model: leave out an effect with many levels, or use a larger machine.";
    fpModel = nullptr;
    fStatus = MCStatus(engine::kNotBuilt, false);
    fStatus.SetDetail(remedy);
    if (!fpRun) return;
    run::SplitResult failed;
    failed.fSplit = fpRun->fSplit;
    failed.fName = fpRun->fSplitName;
    failed.fFigures.fMessages.push_back({"error", engine::kNotBuilt, remedy});
    fpRun->Result(fpRun->fSplitOrdinal) = std::move(failed);
}

GLMMAlgorithm::GLMMAlgorithm(GLMMSettings const& settings, MCVarList const& variables)
    : fpImpl(std::make_unique<Impl>(settings, variables)) {}

GLMMAlgorithm::~GLMMAlgorithm() = default;

MCStatus GLMMAlgorithm::BuildModel(MultiPassRecordIter& data, MultiPassRecordIter* /*second*/) {
    if (fpImpl->fStatus.IsError()) return fpImpl->fStatus;
    fpImpl->fScorer.reset();
    if (fpImpl->fpRun && fpImpl->fpRun->fScoring) return fpImpl->TakeKeptModel();
    try {
        return fpImpl->Fit(data);
    } catch (const std::bad_alloc&) {
        fpImpl->GiveUpForMemory();
    }
    return fpImpl->fStatus;
}

bool GLMMAlgorithm::IsModelBuilt() const {
    return fpImpl->fpModel != nullptr;
}

MCStatus GLMMAlgorithm::Score(Record const& record, std::vector<double>& scores,
                              std::vector<std::vector<double>>& probabilities) {
    probabilities.clear();
    if (!fpImpl->fpModel) return {engine::kInvalidSettings, false};
    const engine::KeptModel& model = *fpImpl->fpModel;
    if (!fpImpl->fScorer)
        fpImpl->fScorer.emplace(engine::ScoreSource{model.fFit, model.fSpec, model.fGeneralized.get()},
                                fpImpl->fvScoreTypes);
    fpImpl->fScorer->Score(record.fpValues, scores, &probabilities);
    return {};
}

MCStatus GLMMAlgorithm::ExportModel(std::ostream& stream, MCApplicInfo4XML* application) {
    if (!fpImpl->fpModel) return {engine::kInvalidSettings, false};
    const MCApplicInfo4XML info = application ? *application : MCApplicInfo4XML();
    if (fpImpl->fpRun && fpImpl->fpRun->fParameterFile) {
        engine::WriteParameterFile(fpImpl->Documents(), info, stream);
        return fpImpl->StreamStatus(stream);
    }
    fpImpl->WriteModel(info, stream);
    return fpImpl->StreamStatus(stream);
}

MCStatus GLMMAlgorithm::ExportStatXML(std::ostream& stream) {
    if (!fpImpl->fpModel) return {engine::kInvalidSettings, false};
    engine::WriteStatXml(fpImpl->Documents(), stream);
    return fpImpl->StreamStatus(stream);
}

MCStatus GLMMAlgorithm::ExportStatJSON(std::ostream& stream) {
    if (!fpImpl->fpModel) return {engine::kInvalidSettings, false};
    engine::WriteBlupJson(fpImpl->Documents(), fpImpl->fvBlups, stream);
    return fpImpl->StreamStatus(stream);
}

MCStatus GLMMAlgorithm::GetStatus() const {
    return fpImpl->fStatus;
}

void GLMMAlgorithm::SetProgressListener(ProgressListener* listener) {
    fpImpl->fpListener = listener;
}

void GLMMAlgorithm::SetCancelPtr(MCQueryCancel* cancel) {
    fpImpl->fpCancel = cancel;
}

void GLMMAlgorithm::Cancel() {
    fpImpl->fCancelled = true;
}

std::string GLMMAlgorithm::GetComponentVersion() const {
    return "1.0";
}

std::vector<MCStatus> GLMMAlgorithm::GetWarnings() const {
    return fpImpl->fvWarnings;
}

void GLMMAlgorithm::SetCompScoreTypes(const std::vector<ScoreType>& types) {
    fpImpl->fvScoreTypes = types;
}

const GLMMOutputStats* GLMMAlgorithm::GetOutputStats() const {
    return fpImpl->fStats ? &*fpImpl->fStats : nullptr;
}

void GLMMAlgorithm::Display(std::ostream& stream) const {
    std::ostream* saved = MCDisplay::GetOutStream();
    MCDisplay::SetOutStream(&stream);
    MCDisplay::DisplayText("GLMMAlgorithm display start");
    fpImpl->fSettings.Display();
    fpImpl->fVariables.Display();
    MCDisplay::DisplayI("Status", fpImpl->fStatus.GetErrorCode());
    for (const MCStatus& warning : fpImpl->fvWarnings)
        MCDisplay::DisplayI("Warning", warning.GetErrorCode());
    if (fpImpl->fStats) fpImpl->fStats->Display();
    MCDisplay::DisplayText("GLMMAlgorithm display end");
    MCDisplay::SetOutStream(saved);
}
