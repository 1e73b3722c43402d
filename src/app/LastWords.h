#pragma once

namespace app {

/// Ends the process at once where memory is limited: the linear algebra library's own threads may wait for ever for
/// some, and an orderly exit for them. Elsewhere it does nothing.
///
/// What else this file has takes effect by itself, ahead of main: an exception that nobody can catch, and a fault of a
/// library that was refused memory, end in one message on the standard error and leave no half-written file.
void LeaveAtOnceIfLimited(int code);

}  // namespace app
