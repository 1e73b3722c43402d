#pragma once

/// What the system requires of the statistical engine.

#include "contracts/EngineAlgorithm.h"
#include "contracts/EngineDisplay.h"
#include "contracts/EngineModel.h"
#include "contracts/EngineRecord.h"
#include "contracts/EngineResults.h"
#include "contracts/EngineSettings.h"
#include "contracts/EngineStatus.h"
#include "contracts/EngineVariables.h"
