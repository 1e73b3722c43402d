#include "procedure/DebugSwitches.h"

bool gbDisplaySpecs = false;
bool gbAggregateRandom = false;
bool gbDisplayComponent = false;
bool gbDisplayOutputStats = false;
bool gbDumpSortedRecords = false;
bool gbDisplayVarList = false;
