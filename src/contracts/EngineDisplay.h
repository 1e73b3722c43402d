#pragma once

#include <ostream>
#include <string>
#include <vector>

/// The engine's debug writers. They write a label and a value to a process-wide stream, which a dump swaps for its
/// length.
namespace MCDisplay {
std::ostream* GetOutStream();
void SetOutStream(std::ostream* stream);
void DisplayText(const std::string& text);
void DisplayI(const std::string& label, long value);
void DisplayB(const std::string& label, bool value);
void DisplayD(const std::string& label, double value);
void DisplayDF(const std::string& label, double value);  ///< every digit
void DisplayS(const std::string& label, const std::string& value);
void DisplayIV(const std::string& label, const std::vector<int>& values);

/// One form an enumeration that crosses to the engine; each writes the enumerator's number and word.
void DisplayCConvType(const std::string& label, int value);
void DisplayCCovbType(const std::string& label, int value);
void DisplayCHessianCompMethod(const std::string& label, int value);
void DisplayCEffectAnalysisType(const std::string& label, int value);
void DisplayCEffectAnalysisStat(const std::string& label, int value);
void DisplayCCIType(const std::string& label, int value);
void DisplayCThetaEstType(const std::string& label, int value);
void DisplayCDegreesFreedomType(const std::string& label, int value);
void DisplayCCovarType(const std::string& label, int value);
void DisplayCScoreType(const std::string& label, int value);
void DisplayCCategOrder(const std::string& label, int value);
void DisplayCOffsetType(const std::string& label, int value);
}  // namespace MCDisplay
