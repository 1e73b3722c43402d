#pragma once

#include "contracts/EngineSettings.h"
#include "contracts/EngineVariables.h"
#include "engine/glmm/TargetSpec.h"
#include "engine/model/ModelSpec.h"
#include "run/RunValue.h"

#include <vector>

namespace engine {

/// The model that the settings ask for, in record indices.
///
/// variables gives category counts and the frequency weight; null leaves them out, which is enough to know the sort
/// variables. run adds what the settings have no place for (groups, offset, threads); null means none of it.
ModelSpec BuildModelSpec(const GLMMSettings& settings, const MCVarList* variables, const run::RunValue* run);

/// Whether the run's target asks for more than a linear mixed model.
bool IsGeneralized(const run::RunValue* run);

/// The run's target in record indices. variables: the record's, for names; it refers to them.
TargetSpec BuildTargetSpec(const ModelSpec& spec, const MCVarList& variables, const run::RunValue& run);

/// The records behind an iterator as one block: the run's mapped block when the iterator is the one that it belongs
/// to, else a copy in storage, made by one pass.
RecordView ViewRecords(MultiPassRecordIter& data, const run::RunValue* run, std::vector<double>& storage);

}  // namespace engine
