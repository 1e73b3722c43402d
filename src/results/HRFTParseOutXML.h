#pragma once

#include "results/HRFTOutputStats.h"

#include <functional>
#include <string>
#include <vector>

/// Reads the engine's two documents of one model into the results record: the model document, of which only the
/// variable list is taken, and the result document.
///
/// Conventions of all readers: keywords compare exactly; a required attribute or element that is absent makes a reader
/// return false; the first false stops the reader and travels up; an empty number takes its field's default.
class HRFTParseOutXML {
public:
    /// The texts and the objects behind the pointers must outlive the reader.
    HRFTParseOutXML(BpProcedure* procedure, ProcedureDataSource* source, HRFTOutputStats* stats,
                    const std::string& pmml, const std::string& statXML);
    ~HRFTParseOutXML();
    HRFTParseOutXML(const HRFTParseOutXML&) = delete;
    HRFTParseOutXML& operator=(const HRFTParseOutXML&) = delete;

    /// The model document, then the result document. Read once: later calls answer as the first success did.
    bool Read();

private:
    using Reader = std::function<bool(const SDOMXMLWrapper&)>;

    bool ReadPMML();
    bool ReadStatXML();
    bool ReadDocument(const SDOMXMLWrapper& document);
    bool ReadTrainingSummary(const SDOMXMLWrapper& model);

    // Build settings.
    bool ReadBuildSettings(const SDOMXMLWrapper& element);
    bool ReadBuildParameter(const SDOMXMLWrapper& parameter);
    void SettleKronecker();
    int FieldIndex(const std::string& name) const;
    bool ReadEffect(const SDOMXMLWrapper& structured, EffectStruct& effect);
    bool ReadEffectList(const SDOMXMLWrapper& list, std::vector<EffectStruct>& effects);
    bool ReadNameList(const SDOMXMLWrapper& list, std::vector<std::string>& names);
    bool ReadRandomSpecs(const SDOMXMLWrapper& parameter);
    bool ReadRandomSpec(const SDOMXMLWrapper& structured, RandomSpec& spec);
    bool ReadRandomAttribute(const SDOMXMLWrapper& attribute, RandomSpec& spec);
    bool ReadEMMeansSpecs(const SDOMXMLWrapper& parameter);
    bool ReadEMMeansSpec(const SDOMXMLWrapper& structured, EMMeansSpec& spec);

    // String maps, printable lists, field info, messages.
    bool ReadStringMaps(const SDOMXMLWrapper& model);
    bool ReadMapEntries(const SDOMXMLWrapper& element, StringMap& map);
    bool ReadSegmentInfo(const SDOMXMLWrapper& segment, SubjectData& data);
    bool ReadPrintableList(const SDOMXMLWrapper& element, PrintableList& list);
    bool ReadMessages(const SDOMXMLWrapper& parent, std::vector<WarningInfo>& warnings);

    // Diagnostics.
    bool ReadModelDiagnostics(const SDOMXMLWrapper& diagnostics);
    bool ReadStatistics(const SDOMXMLWrapper& diagnostics, ModelDiagnostics& target);
    bool ReadTargetDistribution(const SDOMXMLWrapper& diagnostics, TargetDistData& target);
    bool ReadPredByObserved(const SDOMXMLWrapper& diagnostics, PredByObservedData& target);
    void ReadModelTests(const SDOMXMLWrapper& diagnostics);
    bool ReadStructuredData(const SDOMXMLWrapper& diagnostics);
    bool ReadFirstSubject(const SDOMXMLWrapper& block, StructuredData& target);
    bool ReadRepeatedMeasures(const SDOMXMLWrapper& group, StructuredData& target);
    bool ReadTargetRecords(const SDOMXMLWrapper& group, StructuredData& target);
    bool ReadRandEffCovars(const SDOMXMLWrapper& block, RandEffCovars& target);
    bool ReadMatrix(const SDOMXMLWrapper& element, MatrixData& matrix);

    // Estimates.
    bool ReadParameterEstimates(const SDOMXMLWrapper& training);
    bool ReadParamEstim(const SDOMXMLWrapper& element, ParamCollect& collect);
    bool ReadParameterStats(const SDOMXMLWrapper& element, ParameterStatsData& stats);
    bool ReadRegressionParameter(const SDOMXMLWrapper& element, RegrParamInfo& param);
    bool LoadTargetValue(const std::string& text, CFStatVariableValue& value);

    // Estimated means.
    bool ReadDataGroups(const SDOMXMLWrapper& diagnostics);
    bool ReadCoordinates(const SDOMXMLWrapper& element, CoordinatesData& data);
    void ReadCoordinatesGroup(const SDOMXMLWrapper& multivariate, std::vector<CoordinatesData>& axes);
    bool ReadEmmeansEstimates(const SDOMXMLWrapper& multivariate, EmmeansEstimates& target);
    bool ReadEmmeansContrasts(const SDOMXMLWrapper& multivariate, EmmeansContrasts& target);
    bool ReadEmmeansData(const SDOMXMLWrapper& group, EmmeansData& target);
    bool ReadEmmeansLabels(const SDOMXMLWrapper& group, EmmeansData& target);
    bool ReadOverallTest(const SDOMXMLWrapper& element, EmmeansOverallTest& target);

    // Small tools.
    double Real(const SDOMXMLWrapper& element, const char* attribute) const;  ///< SYSMIS when absent or empty
    double RealOf(const std::string& text) const;
    bool RequiredReal(const SDOMXMLWrapper& element, const char* attribute, double& value) const;
    bool ReadArray(const SDOMXMLWrapper& parent, std::vector<double>& values) const;
    /// Every child of the name goes through the reader until one fails; absent is what no child at all gives.
    static bool ForEach(const SDOMXMLWrapper& parent, const char* name, bool absent, const Reader& reader);

    bool fPMMLRead = false;
    bool fStatXMLRead = false;
    double fSysmis = SYSMIS;
    QVTAMBConverter* fpConverter;
    BpProcedure* fpProcedure;
    ProcedureDataSource* fpDataSource;
    HRFTOutputStats* fpOutputStats;
    BuildSettings* fpBuildSettings = nullptr;
    const std::string* fpPMMLText;
    const std::string* fpStatXMLText;
};
