#pragma once

#include <cstddef>

/// Where the parser puts what in the slot record and the text record, in bytes. Slots are 8 bytes wide.
namespace command {

namespace slot {
enum Offset : int {
    kConfidenceLevel = 0,
    kHessianCriterion = 8,
    kLogLikelihoodCriterion = 16,
    kParameterCriterion = 64,
    kSingularity = 80,
    kTarget = 104,
    kDFMethod = 120,
    kCriteriaFormat = 136,
    kEstimateFormat = 144,
    kHessianType = 152,
    kHistoryInterval = 240,
    kFisherSteps = 248,
    kLogLikelihoodType = 280,
    kThetaEstimation = 320,
    kMaxIterations = 344,
    kMaxStepHalvings = 352,
    kCovariateCount = 368,
    kFixedRowCount = 392,
    kRandomRowCount = 400,
    kMeansCount = 408,
    kFactorCount = 416,
    kRandomBlockCount = 512,
    kRepeatedSubjectCount = 552,
    kKroneckerCount = 560,
    kPairingACount = 568,
    kRepeatedCount = 576,
    kSpatialCount = 584,
    kSavedCount = 592,
    kRandomSubjectCount = 608,
    kTestCount = 616,
    kParameterType = 656,
    kCovariateList = 672,
    kFixedRows = 768,
    kRandomRows = 784,
    kFactorList = 792,
    kBlockRowCounts = 1040,
    kMeansChain = 1104,
    kTestChain = 1120,
    kRepeatedSubjectList = 1200,
    kRowStructures = 1216,
    kRowSubjectCounts = 1304,
    kPairingB = 1328,
    kPairingA = 1344,
    kKroneckerList = 1360,
    kSpatialList = 1376,
    kRepeatedList = 1384,
    kRowSubjectPositions = 1416,
    kBlockSolutions = 1456,
    kRandomSubjectList = 1504,
    kRepeatedStructure = 1680,
    kRegressionWeight = 1720,
    kSavedTypes = 1736,
    kSavedNames = 1792,
    kOutputSelector = 1848,
    kAnalysisType = 1856,
    kIntercept = 1896,
    kUserMissing = 1912,
    kPrintCps = 1920,
    kPrintCorb = 1928,
    kPrintCovb = 1936,
    kPrintTestCov = 1944,
    kPrintVariableInfo = 1952,
    kPrintGMatrix = 1960,
    kPrintHistory = 1968,
    kPrintLMatrix = 1976,
    kPrintRMatrix = 1984,
    kPrintSolution = 1992,
    kRecordSize = 2048
};
}  // namespace slot

namespace text {
constexpr std::size_t kFieldLength = 255;
constexpr std::size_t kFirstFile = 40;
constexpr std::size_t kStatJSON = 295;
constexpr std::size_t kStatXML = 550;
constexpr std::size_t kRecordSize = 1024;
}  // namespace text

/// Selector of the output files: none, first file a parameter file, first file a model file.
constexpr int kNoFiles = 0;
constexpr int kParameterFile = 1;
constexpr int kModelFile = 2;

constexpr int kMostSaved = 7;
constexpr int kSavedNameCells = 8;

}  // namespace command
