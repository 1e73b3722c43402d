#pragma once

#include "contracts/CustomProcedure.h"

class HRFTOutputStats;
class HRFTStatJSON;

/// The object that the host calls back: checks a command before it runs, and after it reads the engine's documents into
/// the results record and starts the viewer output.
///
/// Copies share the record and the JSON companion; of two copies only one may ever be destroyed.
class __attribute__((visibility("default"))) HRFTProcCustom : public CFProcCustom {
public:
    HRFTProcCustom();
    HRFTProcCustom(BpProcedure* procedure, ProcedureDataSource* source);
    HRFTProcCustom(const HRFTProcCustom& other);
    HRFTProcCustom& operator=(const HRFTProcCustom& other);
    ~HRFTProcCustom() override;

    bool ProcessSyntax(const CommandSpec* spec, const CommandDescriptor* descriptor) override;
    bool ProcessOutputXML(const std::vector<std::string>& vPMMLStr,
                          const std::vector<CFStatXMLInfoBlock>& vStatXMLBlocks,
                          const std::string& summaryXMLStr) override;
    bool ProcessOutputXML(const std::string& pmml, const CFStatXMLInfoBlock& statXML) override;
    void SetStatJSON(const std::vector<std::string>& texts) override;
    bool ProcessOutputJSON() override;

    const HRFTOutputStats* GetOutputStats() const { return fpHRFTOutputStats; }

private:
    HRFTOutputStats* fpHRFTOutputStats;
    HRFTStatJSON* fpStatJSON = nullptr;
};

/// A fresh object, owned by the caller; null when there is no memory for it.
extern "C" __attribute__((visibility("default"))) HRFTProcCustom* GetCFProcCustom();
