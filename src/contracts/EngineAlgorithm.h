#pragma once

#include "contracts/EngineRecord.h"
#include "contracts/EngineResults.h"
#include "contracts/EngineSettings.h"
#include "contracts/EngineVariables.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

/// What a model document says of the program that wrote it. The strings are the host's and outlive the call.
struct MCApplicInfo4XML {
    const char* fApplication = nullptr;
    const char* fVersion = nullptr;
    const char* fCopyright = nullptr;
};

class ProgressListener {
public:
    virtual ~ProgressListener() = default;
    virtual void OnProgress(const std::string& phase, double share) = 0;  ///< share from 0 to 1, negative when unknown
};

/// Interface of an engine component.
class IMCAlgorithm {
public:
    virtual ~IMCAlgorithm() = default;
    virtual MCStatus BuildModel(MultiPassRecordIter& data, MultiPassRecordIter* second) = 0;
    virtual bool IsModelBuilt() const = 0;
    /// Fills scores with one value a score type; probabilities with further values a target category needs.
    virtual MCStatus Score(Record const& record, std::vector<double>& scores,
                           std::vector<std::vector<double>>& probabilities) = 0;
    virtual MCStatus ExportModel(std::ostream& stream, MCApplicInfo4XML* application) = 0;
    virtual MCStatus GetStatus() const = 0;
    virtual void SetProgressListener(ProgressListener* listener) = 0;
    virtual void SetCancelPtr(MCQueryCancel* cancel) = 0;
    virtual void Cancel() = 0;
    virtual std::string GetComponentVersion() const = 0;
    virtual std::vector<MCStatus> GetWarnings() const = 0;
    virtual void Display(std::ostream& stream) const = 0;
};

/// The fitting object of one split. It keeps references to the settings and the variable list.
class GLMMAlgorithm : public IMCAlgorithm {
public:
    GLMMAlgorithm(GLMMSettings const& settings, MCVarList const& variables);
    ~GLMMAlgorithm() override;
    GLMMAlgorithm(const GLMMAlgorithm&) = delete;
    GLMMAlgorithm& operator=(const GLMMAlgorithm&) = delete;

    MCStatus BuildModel(MultiPassRecordIter& data, MultiPassRecordIter* second) override;
    bool IsModelBuilt() const override;
    MCStatus Score(Record const& record, std::vector<double>& scores,
                   std::vector<std::vector<double>>& probabilities) override;
    MCStatus ExportModel(std::ostream& stream, MCApplicInfo4XML* application) override;
    MCStatus GetStatus() const override;
    void SetProgressListener(ProgressListener* listener) override;
    void SetCancelPtr(MCQueryCancel* cancel) override;
    void Cancel() override;
    std::string GetComponentVersion() const override;
    std::vector<MCStatus> GetWarnings() const override;
    void Display(std::ostream& stream) const override;

    void SetCompScoreTypes(const std::vector<ScoreType>& types);
    MCStatus ExportStatXML(std::ostream& stream);
    MCStatus ExportStatJSON(std::ostream& stream);
    const GLMMOutputStats* GetOutputStats() const;  ///< null without results

private:
    struct Impl;
    std::unique_ptr<Impl> fpImpl;
};
