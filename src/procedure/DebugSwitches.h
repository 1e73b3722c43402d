#pragma once

/// Switches of a debugging build, zero at load. Nothing in the library sets them: a normal run has them all off.

extern bool gbDisplaySpecs;        ///< the driver dumps the specification after the metadata pass
extern bool gbAggregateRandom;     ///< the random blocks' aggregators are fed and mapped too
extern bool gbDisplayComponent;    ///< the engine object and its outcome are dumped after each fit
extern bool gbDisplayOutputStats;  ///< the engine's results are dumped after each fit
extern bool gbDumpSortedRecords;   ///< a split's sorted encoded records are written to the scratch directory
extern bool gbDisplayVarList;      ///< the engine's variable list is dumped after the metadata pass of a split
