#pragma once

namespace app {

/// Ctrl-C and a polite kill ask the run to stop. A second one ends the program at once, and so does a second that goes
/// by before a long step of linear algebra comes to its end. Files that aren't whole are removed then; temporary ones
/// have no names.
class StopSignal {
public:
    static void Watch();
    static bool Asked();
};

}  // namespace app
