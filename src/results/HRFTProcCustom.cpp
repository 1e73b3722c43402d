#include "results/HRFTProcCustom.h"

#include "results/HRFTOutputStats.h"
#include "results/HRFTParseOutXML.h"
#include "results/HRFTStatJSON.h"
#include "viewer/HRFTOutput.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <new>

HRFTProcCustom::HRFTProcCustom() : fpHRFTOutputStats(new HRFTOutputStats()) {}

HRFTProcCustom::HRFTProcCustom(BpProcedure* procedure, ProcedureDataSource* source)
    : CFProcCustom(procedure, source), fpHRFTOutputStats(new HRFTOutputStats()) {}

HRFTProcCustom::HRFTProcCustom(const HRFTProcCustom& other) = default;
HRFTProcCustom& HRFTProcCustom::operator=(const HRFTProcCustom& other) = default;

HRFTProcCustom::~HRFTProcCustom() {
    delete fpHRFTOutputStats;
    delete fpStatJSON;
}

bool HRFTProcCustom::ProcessSyntax(const CommandSpec* spec, const CommandDescriptor* descriptor) {
    if (!spec || !descriptor) return true;
    ParserMessage message;
    message.SetCommandName(descriptor->getCommandName());
    message.SetProcedureTitle(descriptor->getProcedureTitle());
    const SubComObj* structure = spec->getSubComObj("DATA_STRUCTURE");
    if (!structure || !structure->getParamObj("KRONECKER_MEASURES")) return true;
    const ParamObj* type = structure->getParamObj("COVARIANCE_TYPE");
    constexpr std::array kKroneckerTypes{"UN_AR1", "UN_CS", "UN_UN"};
    const bool kronecker = type && std::any_of(kKroneckerTypes.begin(), kKroneckerTypes.end(),
                                               [type](const char* word) { return type->isStringValueCase(word); });
    if (!kronecker) {
        message.GenericError("kKroneckerNeedType");
        return false;
    }
    if (structure->getParamObj("REPEATED_MEASURES")) return true;
    message.ParamNeedParamInSubCom("REPEATED_MEASURES", "KRONECKER_MEASURES", "DATA_STRUCTURE");
    return false;
}

bool HRFTProcCustom::ProcessOutputXML(const std::vector<std::string>& vPMMLStr,
                                      const std::vector<CFStatXMLInfoBlock>& vStatXMLBlocks,
                                      const std::string& summaryXMLStr) {
    assert(vPMMLStr.size() == 1);
    assert(vStatXMLBlocks.size() == 1);
    assert(summaryXMLStr.empty());
    (void)summaryXMLStr;
    return ProcessOutputXML(vPMMLStr.front(), vStatXMLBlocks.front());
}

bool HRFTProcCustom::ProcessOutputXML(const std::string& pmml, const CFStatXMLInfoBlock& statXML) {
    assert(fpHRFTOutputStats != nullptr);
    fpHRFTOutputStats->SetMetaData(fpMetaData);
    HRFTParseOutXML reader(fpProcedure, fpDataSource, fpHRFTOutputStats, pmml, statXML.fText);
    if (!reader.Read()) return false;
    HRFTOutput output(fpProcedure, fpDataSource, fpHRFTOutputStats);
    output.SetStatJSON(fpStatJSON);
    output.Display();
    return true;
}

void HRFTProcCustom::SetStatJSON(const std::vector<std::string>& texts) {
    if (!texts.empty() && !texts.front().empty())
        fpStatJSON = new HRFTStatJSON(fpProcedure, fpDataSource, texts.front());
}

bool HRFTProcCustom::ProcessOutputJSON() {
    if (!fpStatJSON) return true;
    fpStatJSON->DisplayOutput();
    BpError(BpString("EBLUP table separately from the Model Viewer", true), 2, 2);
    return true;
}

HRFTProcCustom* GetCFProcCustom() {
    return new (std::nothrow) HRFTProcCustom();
}
