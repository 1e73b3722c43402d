#include "results/HRFTParseOutXML.h"

#include <algorithm>
#include <limits>
#include <map>
#include <string_view>

namespace {

int IntegerOrZero(const std::string& text) {
    return text.empty() ? 0 : String2Integer(text);
}

/// An integer statistic; an empty text is the missing value cut to 32 bits.
int IntegerStatistic(const std::string& text) {
    return text.empty() ? std::numeric_limits<int>::min() : String2Integer(text);
}

int TotalFrequency(const SDOMXMLWrapper& counts) {
    std::string text;
    counts.GetAttribute("totalFreq", text);
    return IntegerOrZero(text);
}

}  // namespace

bool HRFTParseOutXML::ReadModelDiagnostics(const SDOMXMLWrapper& diagnostics) {
    ModelDiagnostics& target = *fpOutputStats->GetModelDiagnostics();
    target = ModelDiagnostics();
    if (!ReadStatistics(diagnostics, target)) return false;
    if (!ReadTargetDistribution(diagnostics, target.fTargetDist)) return false;
    if (!ReadPredByObserved(diagnostics, target.fPredByObserved)) return false;
    ReadModelTests(diagnostics);
    return true;
}

bool HRFTParseOutXML::ReadStatistics(const SDOMXMLWrapper& diagnostics, ModelDiagnostics& target) {
    static const std::map<std::string_view, double ModelDiagnostics::*> kReals{
        {"AICC", &ModelDiagnostics::fAICC},
        {"BIC", &ModelDiagnostics::fBIC},
        {"minus2LogLikelihood", &ModelDiagnostics::fMinus2LogLikelihood},
        {"classificationAccuracy", &ModelDiagnostics::fClassificationAccuracy},
        {"grandMean", &ModelDiagnostics::fGrandMean},
        {"grandMeanStdErr", &ModelDiagnostics::fGrandMeanStdErr},
        {"grandMeanCILower", &ModelDiagnostics::fGrandMeanCILower},
        {"grandMeanCIUpper", &ModelDiagnostics::fGrandMeanCIUpper}};
    static const std::map<std::string_view, int ModelDiagnostics::*> kIntegers{
        {"numOfCovParamOfRepeated", &ModelDiagnostics::fNumOfCovParamOfRepeated},
        {"numOfCovParamOfRandom", &ModelDiagnostics::fNumOfCovParamOfRandom},
        {"numOfColsOfFixed", &ModelDiagnostics::fNumOfColsOfFixed},
        {"numOfColsOfRandom", &ModelDiagnostics::fNumOfColsOfRandom},
        {"numOfCommonSubjects", &ModelDiagnostics::fNumOfCommonSubjects}};
    return ForEach(diagnostics, "Statistic", false, [&](const SDOMXMLWrapper& statistic) {
        std::string name;
        std::string value;
        if (!statistic.GetAttribute("name", name) || !statistic.GetAttribute("value", value)) return false;
        if (const auto real = kReals.find(name); real != kReals.end()) target.*(real->second) = RealOf(value);
        if (const auto whole = kIntegers.find(name); whole != kIntegers.end())
            target.*(whole->second) = IntegerStatistic(value);
        return true;
    });
}

bool HRFTParseOutXML::ReadTargetDistribution(const SDOMXMLWrapper& diagnostics, TargetDistData& target) {
    static const std::map<std::string_view, double TargetDistData::*> kStatistics{
        {"mean", &TargetDistData::fMean},   {"stdDeviation", &TargetDistData::fStdDeviation},
        {"shape", &TargetDistData::fShape}, {"rate", &TargetDistData::fRate},
        {"r", &TargetDistData::fR},         {"p", &TargetDistData::fP}};
    SDOMXMLIterator iterator;
    if (!diagnostics.GetElementIterator("UnivariateData", iterator, true)) return true;
    target.fMean = target.fStdDeviation = 0.0;
    target.fTotalFreq = 0;
    bool described = true;
    SDOMXMLWrapper data;
    while (iterator.Next(data)) {
        target.fShape = target.fRate = target.fR = target.fP = 0.0;
        described = data.GetAttribute("description", target.fDescription);
        if (target.fDescription != "TargetDistribution") continue;
        SDOMXMLWrapper counts;
        if (data.GetFirstElement("Counts", counts, true)) target.fTotalFreq = TotalFrequency(counts);
        const bool statistics = ForEach(data, "Statistic", false, [&](const SDOMXMLWrapper& statistic) {
            std::string name;
            std::string value;
            if (!statistic.GetAttribute("name", name) || !statistic.GetAttribute("value", value)) return false;
            const auto known = kStatistics.find(name);
            if (known != kStatistics.end()) target.*(known->second) = value.empty() ? 0.0 : String2Double(value);
            return true;
        });
        return statistics && ForEach(data, "Coordinates", false, [&](const SDOMXMLWrapper& coordinates) {
                   std::string feature;
                   std::vector<double> values;
                   if (!coordinates.GetAttribute("feature", feature) || !ReadArray(coordinates, values)) return false;
                   if (feature == "frequency") target.fvFrequency = values;
                   if (feature == "observed") target.fvObserved = values;
                   return true;
               });
    }
    return described;
}

bool HRFTParseOutXML::ReadPredByObserved(const SDOMXMLWrapper& diagnostics, PredByObservedData& target) {
    SDOMXMLIterator iterator;
    if (!diagnostics.GetElementIterator("BivariateData", iterator, true)) return true;
    target = PredByObservedData();
    SDOMXMLWrapper data;
    bool found = false;
    while (!found && iterator.Next(data)) {
        std::string description;
        data.GetAttribute("description", description);
        found = description == "observedByPredicted";
        if (found) target.fDescription = description;
    }
    if (!found) return true;

    SDOMXMLWrapper counts;
    if (data.GetFirstElement("Counts", counts, true)) target.fTotalFreq = TotalFrequency(counts);
    const bool read = ForEach(data, "Coordinates", false, [&](const SDOMXMLWrapper& coordinates) {
        std::string feature;
        std::vector<double> values;
        if (!coordinates.GetAttribute("feature", feature) || !ReadArray(coordinates, values)) return false;
        if (feature == "observed") target.fvObserved = values;
        if (feature == "statistic") target.fvStatistic = values;
        if (feature == "frequency") target.fvFrequency = values;
        return true;
    });
    if (!read) return false;
    if (!target.fvObserved.empty()) {
        const auto [low, high] = std::minmax_element(target.fvObserved.begin(), target.fvObserved.end());
        target.fMinValue = *low;
        target.fMaxValue = *high;
    }
    double low = 0.0;
    double high = 0.0;
    if (!target.fvStatistic.empty()) {
        const auto [least, greatest] = std::minmax_element(target.fvStatistic.begin(), target.fvStatistic.end());
        low = *least;
        high = *greatest;
    }
    target.fMinValue = std::min(target.fMinValue, low);
    target.fMaxValue = std::max(target.fMaxValue, high);
    return true;
}

void HRFTParseOutXML::ReadModelTests(const SDOMXMLWrapper& diagnostics) {
    SDOMXMLIterator iterator;
    if (!diagnostics.GetElementIterator("ModelTestStats", iterator, true)) return;
    EffectTest& target = *fpOutputStats->NewEffectTest();
    SDOMXMLWrapper element;
    while (iterator.Next(element)) {
        std::string description;
        std::string id;
        std::string type;
        element.GetAttribute("description", description);
        element.GetAttribute("testID", id);
        element.GetAttribute("testType", type);
        EffectTestStat stat;
        stat.fTestType = type.empty() ? 0 : Roman2Integer(type);
        SDOMXMLWrapper test;
        if (element.GetFirstElement("FTest", test, true)) {
            stat.fFStatistic = Real(test, "fStatistic");
            stat.fSig = Real(test, "sig");
            stat.fDf1 = Real(test, "df1");
            stat.fDf2 = Real(test, "df2");
        }
        if (description == "correctedModel") target.fCorrectedModel = stat;
        if (description == "fixedEffect") {
            stat.fTestID = IntegerOrZero(id);
            target.fvFixedEffectTests.push_back(stat);
        }
    }
}

bool HRFTParseOutXML::ReadStructuredData(const SDOMXMLWrapper& diagnostics) {
    SDOMXMLIterator iterator;
    if (!diagnostics.GetElementIterator("StructuredData", iterator, true)) return true;
    StructuredData& target = *fpOutputStats->NewStructuredData();
    SDOMXMLWrapper block;
    while (iterator.Next(block)) {
        std::string description;
        if (!block.GetAttribute("description", description)) return false;
        if (description == "firstSubjectRecordsForDataStructure" && !ReadFirstSubject(block, target)) return false;
        if (description == "randomEffectCovariances") {
            RandEffCovars covars;
            if (!ReadRandEffCovars(block, covars)) return false;
            target.fvRandEffCovars.push_back(std::move(covars));
        }
    }
    return true;
}

bool HRFTParseOutXML::ReadFirstSubject(const SDOMXMLWrapper& block, StructuredData& target) {
    SDOMXMLWrapper counts;
    SDOMXMLWrapper segment;
    SDOMXMLWrapper data;
    if (!block.GetFirstElement("Counts", counts, true)) return false;
    target.fTotalFreq = TotalFrequency(counts);
    if (!block.GetFirstElement("SegmentData/SegmentInfo", segment, true)) return false;
    if (!ReadSegmentInfo(segment, target.fSubjectData)) return false;
    if (!block.GetFirstElement("SegmentData/MultivariateData", data, true)) return false;
    return ForEach(data, "CoordinatesGroup", true, [&](const SDOMXMLWrapper& group) {
        std::string description;
        group.GetAttribute("description", description);
        if (description == "repeatedMeasures") return ReadRepeatedMeasures(group, target);
        return description != "target" || ReadTargetRecords(group, target);
    });
}

bool HRFTParseOutXML::ReadRepeatedMeasures(const SDOMXMLWrapper& group, StructuredData& target) {
    return ForEach(group, "Coordinates", true, [&](const SDOMXMLWrapper& coordinates) {
        RepeatMeasVarStruct measure;
        SDOMXMLWrapper array;
        std::vector<std::string> tokens;
        if (!coordinates.GetAttribute("field", measure.fFieldName)) return false;
        measure.fRepMeasInd = FieldIndex(measure.fFieldName);
        const VarMapInfo& map = fpOutputStats->GetVarMapInfo();
        if (measure.fRepMeasInd < 0 || measure.fRepMeasInd >= static_cast<int>(map.fvFieldToVarList.size()))
            return false;
        const int entry = map.fvFieldToVarList[measure.fRepMeasInd];
        if (entry < 0) return false;
        measure.fNumLevels = map.fvCategoryCount[entry];
        if (!coordinates.GetFirstElement("Array", array, true) || !array.GetSimpleArray(tokens)) return false;
        for (const std::string& token : tokens) {
            CFStatVariableValue value(token);
            if (!value.LoadObsValue(fpDataSource->GetVariable(measure.fRepMeasInd), 0)) return false;
            measure.fvValues.push_back(std::move(value));
        }
        target.fvRepeatedMeasures.push_back(std::move(measure));
        return true;
    });
}

/// Trials values are loaded in the target's format too.
bool HRFTParseOutXML::ReadTargetRecords(const SDOMXMLWrapper& group, StructuredData& target) {
    return ForEach(group, "Coordinates", true, [&](const SDOMXMLWrapper& coordinates) {
        std::string field;
        SDOMXMLWrapper array;
        std::vector<std::string> tokens;
        coordinates.GetAttribute("field", field);
        const int index = FieldIndex(field);
        if (!coordinates.GetFirstElement("Array", array, true) || !array.GetSimpleArray(tokens)) return false;
        for (const std::string& token : tokens) {
            CFStatVariableValue value(token);
            if (!LoadTargetValue(token, value)) return false;
            if (index == fpBuildSettings->fTargetIndex) {
                target.fvTargetValues.push_back(std::move(value));
            } else if (index == fpBuildSettings->fTrialsIndex) {
                target.fvTrialsValues.push_back(std::move(value));
            }
        }
        return true;
    });
}

bool HRFTParseOutXML::LoadTargetValue(const std::string& text, CFStatVariableValue& value) {
    if (fpBuildSettings->fTargetIndex < 0) return false;
    value.SetStringValue(text);
    return value.LoadObsValue(fpDataSource->GetVariable(fpBuildSettings->fTargetIndex), 0);
}

bool HRFTParseOutXML::ReadRandEffCovars(const SDOMXMLWrapper& block, RandEffCovars& target) {
    SDOMXMLWrapper statistic;
    SDOMXMLWrapper labels;
    if (!block.GetFirstElement("Statistic", statistic, true) || !statistic.GetAttribute("name", target.fName))
        return false;
    target.fValue = Real(statistic, "value");
    if (!block.GetFirstElement("MatrixLabels/RowColLabels", labels, true)) return false;
    const bool labelled = ForEach(labels, "Label", false, [&](const SDOMXMLWrapper& label) {
        SDOMXMLWrapper element;
        PrintableList list;
        if (!label.GetFirstElement("PrintableList", element, true) || !ReadPrintableList(element, list)) return false;
        std::string& text = target.fvEffectLabels.emplace_back();
        if (!fpOutputStats->PrintableListText(list, text)) text.clear();
        return true;
    });
    if (!labelled) return false;
    return ForEach(block, "SegmentData", true, [&](const SDOMXMLWrapper& segment) {
        SDOMXMLWrapper info;
        SDOMXMLWrapper matrix;
        SubjectData subject;
        if (!segment.GetFirstElement("SegmentInfo", info, true) || !ReadSegmentInfo(info, subject)) return false;
        if (!segment.GetFirstElement("Matrix", matrix, true)) return false;
        target.fSimpleSubjects.push_back(std::move(subject));
        return ReadMatrix(matrix, target.fMatrixValues.emplace_back());
    });
}

namespace {

using CellAt = double (*)(const std::vector<double>& flat, int row, int column, int columns);

double DiagonalCell(const std::vector<double>& flat, int row, int column, int /*columns*/) {
    return row == column ? flat[row] : 0.0;
}

double SymmetricCell(const std::vector<double>& flat, int row, int column, int /*columns*/) {
    const auto [small, large] = std::minmax(row, column);
    return flat[static_cast<std::size_t>(large) * (large + 1) / 2 + small];
}

double FullCell(const std::vector<double>& flat, int row, int column, int columns) {
    return column < columns ? flat[static_cast<std::size_t>(row) * columns + column] : 0.0;
}

}  // namespace

bool HRFTParseOutXML::ReadMatrix(const SDOMXMLWrapper& element, MatrixData& matrix) {
    std::string rows;
    std::string columns;
    std::string kind;
    if (!element.GetAttribute("nbRows", rows)) return false;
    element.GetAttribute("nbCols", columns);
    element.GetAttribute("kind", kind);
    matrix.fNRows = IntegerOrZero(rows);
    int nColumns = IntegerOrZero(columns);
    if (nColumns == 0) nColumns = matrix.fNRows;

    SDOMXMLWrapper labels;
    if (!fpBuildSettings->fUseTrials && element.GetFirstElement("MatrixLabels/RowColLabels", labels, true)) {
        const bool labelled = ForEach(labels, "Label", true, [&](const SDOMXMLWrapper& label) {
            std::string text;
            if (!label.GetAttribute("label", text)) return false;
            LoadTargetValue(text, matrix.fvLabels.emplace_back());
            return true;
        });
        if (!labelled) return false;
    }
    std::vector<double> flat;
    if (!ReadArray(element, flat)) return false;

    const bool diagonal = kind == "diagonal";
    const bool symmetric = kind == "symmetric";
    const std::size_t n = matrix.fNRows < 0 ? 0 : static_cast<std::size_t>(matrix.fNRows);
    const std::size_t wanted = diagonal    ? n
                               : symmetric ? n * (n + 1) / 2
                                           : n * static_cast<std::size_t>(std::max(nColumns, 0));
    if (matrix.fNRows < 0 || nColumns < 0 || nColumns > std::max(matrix.fNRows, 0) || flat.size() != wanted)
        return false;

    const CellAt cell = diagonal ? DiagonalCell : symmetric ? SymmetricCell : FullCell;
    matrix.fvRows.assign(n, MatrixRow());
    for (int i = 0; i < matrix.fNRows; ++i) {
        MatrixRow& row = matrix.fvRows[i];
        for (int j = 0; j < matrix.fNRows; ++j) {
            row.fvValues.push_back(cell(flat, i, j, nColumns));
            row.fRowSum += row.fvValues.back();
        }
    }
    return true;
}
