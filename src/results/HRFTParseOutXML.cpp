#include "results/HRFTParseOutXML.h"

#include <cassert>
#include <sstream>

HRFTParseOutXML::HRFTParseOutXML(BpProcedure* procedure, ProcedureDataSource* source, HRFTOutputStats* stats,
                                 const std::string& pmml, const std::string& statXML)
    : fpConverter(QVTAMBConverterNew_A()),
      fpProcedure(procedure),
      fpDataSource(source),
      fpOutputStats(stats),
      fpPMMLText(&pmml),
      fpStatXMLText(&statXML) {}

HRFTParseOutXML::~HRFTParseOutXML() {
    QVTAMBConverterDelete_A(fpConverter);
}

bool HRFTParseOutXML::Read() {
    return ReadPMML() && ReadStatXML();
}

bool HRFTParseOutXML::ReadPMML() {
    if (fPMMLRead) return true;
    MCPMMLParser parser;
    std::istringstream stream(*fpPMMLText);
    if (!parser.ParseToDOM(stream)) return false;
    if (!parser.FillVarList(*fpOutputStats->NewVarList(), {}, false)) return false;
    fpOutputStats->BuildVarMapInfo();
    fPMMLRead = true;
    return true;
}

bool HRFTParseOutXML::ReadStatXML() {
    if (fStatXMLRead) return true;
    if (fpStatXMLText->empty()) return false;
    SDOMXMLWrapper document;
    const bool loaded = document.LoadFromString(*fpStatXMLText) != nullptr;
    fpOutputStats->ForgetResults();
    fpBuildSettings = fpOutputStats->NewBuildSettings();
    assert(fpBuildSettings != nullptr);
    fStatXMLRead = loaded && ReadDocument(document);
    if (!fStatXMLRead) BpError(BpString("StatXML parsing error ...", true), 2, 3);
    return fStatXMLRead;
}

/// Everything between a loaded document and the verdict, in the fixed order in which the record is filled.
bool HRFTParseOutXML::ReadDocument(const SDOMXMLWrapper& document) {
    SDOMXMLWrapper summary;
    if (!document.GetFirstElement("PMMLModel/PredictiveSummary", summary, true)) return false;
    if (!summary.GetAttribute("algorithmName", fpBuildSettings->fAlgorithmName)) return false;
    if (fpBuildSettings->fAlgorithmName != "GLMM") return false;

    SDOMXMLWrapper settings;
    if (!document.GetFirstElement("BuildSettings", settings, true)) return false;
    if (!ReadBuildSettings(settings)) {
        fpOutputStats->DeleteBuildSettings();
        fpBuildSettings = nullptr;
        return false;
    }

    fpOutputStats->NewStringMapCollect();
    SDOMXMLWrapper model;
    if (!document.GetFirstElement("PMMLModel", model, true) || !ReadStringMaps(model)) return false;

    fpOutputStats->NewModelDiagnostics();
    SDOMXMLWrapper diagnostics;
    if (!document.GetFirstElement("PMMLModel/ModelDiagnostics", diagnostics, true)) return false;
    if (!ReadModelDiagnostics(diagnostics) || !ReadStructuredData(diagnostics)) return false;

    SDOMXMLWrapper matrix;
    std::string description;
    if (diagnostics.GetFirstElement("Matrix", matrix, true) && matrix.GetAttribute("description", description) &&
        description == "classificationTable") {
        if (!ReadMatrix(matrix, *fpOutputStats->NewClassifMatrixData())) return false;
    }
    if (!ReadDataGroups(diagnostics)) return false;
    return ReadTrainingSummary(model);
}

/// A model that could not be estimated has no estimates but messages: it still counts as read.
bool HRFTParseOutXML::ReadTrainingSummary(const SDOMXMLWrapper& model) {
    fpOutputStats->NewParamCollect();
    SDOMXMLWrapper training;
    const bool present = model.GetFirstElement("TrainingSummary", training, true);
    const bool estimated = present && ReadParameterEstimates(training);
    if (!estimated) fpOutputStats->DeleteParamCollect();
    SDOMXMLIterator messages;
    if (!present || !training.GetElementIterator("Message", messages, true)) return estimated;
    return ReadMessages(training, fpOutputStats->GetWarningList());
}

bool HRFTParseOutXML::ForEach(const SDOMXMLWrapper& parent, const char* name, bool absent, const Reader& reader) {
    SDOMXMLIterator iterator;
    if (!parent.GetElementIterator(name, iterator, true)) return absent;
    SDOMXMLWrapper element;
    while (iterator.Next(element)) {
        if (!reader(element)) return false;
    }
    return true;
}

double HRFTParseOutXML::RealOf(const std::string& text) const {
    return text.empty() ? fSysmis : String2Double(text);
}

double HRFTParseOutXML::Real(const SDOMXMLWrapper& element, const char* attribute) const {
    std::string text;
    element.GetAttribute(attribute, text);
    return RealOf(text);
}

bool HRFTParseOutXML::RequiredReal(const SDOMXMLWrapper& element, const char* attribute, double& value) const {
    std::string text;
    if (!element.GetAttribute(attribute, text)) return false;
    value = RealOf(text);
    return true;
}

/// The first Array of the parent as numbers; absent, it leaves no values.
bool HRFTParseOutXML::ReadArray(const SDOMXMLWrapper& parent, std::vector<double>& values) const {
    values.clear();
    SDOMXMLWrapper array;
    std::vector<std::string> tokens;
    if (!parent.GetFirstElement("Array", array, true) || !array.GetSimpleArray(tokens)) return false;
    values.reserve(tokens.size());
    for (const std::string& token : tokens)
        values.push_back(token == "__MISSING__" ? fSysmis : String2Double(token));
    return true;
}
