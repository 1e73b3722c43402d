#pragma once

#include "contracts/HostData.h"
#include "contracts/HostOutput.h"
#include "results/HRFTOutputStats.h"

#include <string>
#include <vector>

/// Texts that several of the viewer's tables share.
namespace viewer {

constexpr int kInsertionOrder = 2;

/// "Target ^1", or "Target ^1/^2" with the trials as a variable or a number.
BpComposite TargetNote(const BuildSettings& settings, const ProcedureDataSource& source);

/// A value as a variable shows it, also one that was loaded against another variable or not at all: in the latter case
/// it is missing.
BpDataValue DataValue(const QVTA_Variable& variable, const CFStatVariableValue& value, int preference);

/// "^1% Confidence Interval" and its kin, with the level in percent.
BpComposite ConfidenceTitle(const std::string& pattern, const BuildSettings& settings);

/// A finished composite of a pattern and one argument.
BpComposite Filled(const std::string& pattern, bool translate, const BpCellText& argument);
BpComposite Filled(const std::string& pattern, bool translate, const BpCellText& first, const BpCellText& second);

/// A text through the host's string table of the viewer's procedure.
std::string LookUp(const std::string& key);

/// Joins an effect's field texts: " * " within a level, "(" to a deeper one, all closed at the end.
std::string JoinFields(const std::vector<std::string>& texts, const std::vector<int>& levels);

}  // namespace viewer
