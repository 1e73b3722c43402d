#pragma once

#include "procedure/Export.h"

class BpProcedure;
class ProcedureDataSource;
struct CmaMix_map;
struct CmnMix_map;

/// The library's entry points for the host.

/// Hands the parser's slot record and text record to the library, before MixDriver is called. The records stay the
/// parser's and must outlive the run; a later call overwrites.
extern "C" HIERFIT_EXPORT void EXPOSEMIX(CmnMix_map* slots, CmaMix_map* texts);

/// Runs the procedure: one parsed command, from its block to the finished output.
///
/// parsedBlock is the array of 8-byte cells that the parser filled. All outcomes reach the user through the host's
/// error and output services. Exceptions of the host or the engine travel on.
HIERFIT_EXPORT void MixDriver(void* parsedBlock, BpProcedure& procedure, ProcedureDataSource& source);
