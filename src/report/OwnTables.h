#pragma once

#include "host/output/OutputDocument.h"
#include "run/RunValue.h"

namespace report {

/// Adds to the document, under each split's heading, the tables that the system itself doesn't write, from the splits'
/// figures: the covariance parameters and, of a categorical target, the estimates by target category (both for the
/// classic half, since the viewer's half has its own); tests of covariance parameters where they were asked for;
/// iteration history, matrices and custom tests where the figures have them.
///
/// Call it once, when the run is over and its results stand in the run value.
void AddOwnTables(run::RunValue& run, host::OutputDocument& document);

}  // namespace report
