#pragma once

namespace app {

/// Ctrl-C and a polite kill ask the run to stop; a second one ends the program at once. Nothing needs to be tidied
/// then: temporary files have no names.
class StopSignal {
public:
    static void Watch();
    static bool Asked();
};

}  // namespace app
