#pragma once

#include "contracts/Parser.h"

#include <cstddef>
#include <string>

/// The two fixed records that the parser fills beside the cell array, and their layout.
///
/// The slot record is a run of 8-byte slots, little-endian; a slot holds a double, a 64-bit integer or, where only the
/// low 32 bits count, a signed int. Position slots hold one-based indices into the cell array.

/// The records that EXPOSEMIX received; null before its first call.
CmnMix_map* GetCmnMixRecord();
CmaMix_map* GetCmaMixRecord();

/// A slot of the record in force. EXPOSEMIX must have been called.
double DoubleSlot(std::size_t offset);
long long IntSlot(std::size_t offset);
int LowSlot(std::size_t offset);

/// A field of the text record in force, its trailing blanks cut.
std::string TextField(std::size_t offset);

/// Offsets in the slot record, in bytes.
namespace slots {
constexpr std::size_t kConfidenceLevel = 0;
constexpr std::size_t kHConvCrit = 8;
constexpr std::size_t kLConvCrit = 16;
constexpr std::size_t kPConvCrit = 64;
constexpr std::size_t kTolerance = 80;
constexpr std::size_t kDependent = 104;
constexpr std::size_t kDFMethod = 120;
constexpr std::size_t kCriteriaFormat = 136;   ///< packed format of the information criteria table
constexpr std::size_t kParameterFormat = 144;  ///< packed format of the parameter estimate tables
constexpr std::size_t kHConvType = 152;
constexpr std::size_t kHistoryInterval = 240;
constexpr std::size_t kMaxFisherSteps = 248;
constexpr std::size_t kLConvType = 280;
constexpr std::size_t kThetaEstType = 320;
constexpr std::size_t kMaxIter = 344;
constexpr std::size_t kMaxStepHalving = 352;
constexpr std::size_t kPConvType = 656;
constexpr std::size_t kScaleWeight = 1720;
constexpr std::size_t kSaveTypes = 1736;  ///< seven slots
constexpr std::size_t kSaveNames = 1792;  ///< seven slots
constexpr std::size_t kOutfileSelector = 1848;
constexpr std::size_t kAnalysisType = 1856;
constexpr std::size_t kIntercept = 1896;
constexpr std::size_t kClassMissInclude = 1912;
constexpr std::size_t kPrintCPS = 1920;
constexpr std::size_t kPrintCORB = 1928;
constexpr std::size_t kPrintCOVB = 1936;
constexpr std::size_t kPrintTestCov = 1944;
constexpr std::size_t kPrintVARIABLEINFO = 1952;
constexpr std::size_t kPrintGMatrix = 1960;
constexpr std::size_t kPrintHISTORY = 1968;
constexpr std::size_t kPrintLMATRIX = 1976;
constexpr std::size_t kPrintRMatrix = 1984;
constexpr std::size_t kPrintSOLUTION = 1992;
constexpr std::size_t kSize = 2000;  ///< bytes of the record

/// Counts.
constexpr std::size_t kNCovariates = 368;
constexpr std::size_t kNFixedRows = 392;   ///< fixed effect rows, the intercept's included
constexpr std::size_t kNRandomRows = 400;  ///< random effect rows over all blocks
constexpr std::size_t kNMeans = 408;
constexpr std::size_t kNFactors = 416;
constexpr std::size_t kNRandomBlocks = 512;
constexpr std::size_t kNRepSubjects = 552;
constexpr std::size_t kNKronVars = 560;
constexpr std::size_t kNPairsA = 568;
constexpr std::size_t kNRepeatedVars = 576;
constexpr std::size_t kNSpatialVars = 584;
constexpr std::size_t kNSaveVars = 592;
constexpr std::size_t kNRandSubjects = 608;  ///< subject variables over all random blocks
constexpr std::size_t kNCustomTests = 616;

/// Positions of lists.
constexpr std::size_t kCovariates = 672;
constexpr std::size_t kFixedRows = 768;
constexpr std::size_t kRandomRows = 784;
constexpr std::size_t kFactors = 792;
constexpr std::size_t kBlockRowCounts = 1040;  ///< one cell a block
constexpr std::size_t kRepSubjects = 1200;
constexpr std::size_t kRowCovarTypes = 1216;     ///< one cell a random row
constexpr std::size_t kRowSubjectCounts = 1304;  ///< one cell a random row
constexpr std::size_t kPairsB = 1328;            ///< one cell a Kronecker variable
constexpr std::size_t kPairsA = 1344;
constexpr std::size_t kKronVars = 1360;
constexpr std::size_t kSpatialVars = 1376;
constexpr std::size_t kRepeatedVars = 1384;
constexpr std::size_t kRowSubjectLists = 1416;  ///< one cell a random row
constexpr std::size_t kBlockSolutions = 1456;   ///< one cell a block
constexpr std::size_t kRandSubjects = 1504;
constexpr std::size_t kRepeatedCovarType = 1680;

/// Chain heads.
constexpr std::size_t kMeansChain = 1104;
constexpr std::size_t kCustomTestChain = 1120;
}  // namespace slots

/// Offsets in the text record. A field is blank-padded and has no terminator.
namespace texts {
constexpr std::size_t kFirstFile = 40;  ///< model or parameter file
constexpr std::size_t kStatJson = 295;
constexpr std::size_t kStatXml = 550;
constexpr std::size_t kFieldLength = 255;
constexpr std::size_t kSize = 805;  ///< bytes of the record
}  // namespace texts
